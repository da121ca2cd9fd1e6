// The longest stall of the GUI thread while ten 100-frame GIFs load at once over loopback
// HTTPS, against the longest stall of the same idle event loop measured first. The server runs
// on a thread of its own so that only the loader's work lands on the GUI thread.
#include "benchgif.h"
#include "httpserver/httpserver.h"
#include "images/imageloader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <ctime>
#include <memory>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

// Ticks every millisecond and remembers the longest gap between two ticks beyond that.
class StallProbe
{
public:
    StallProbe()
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(1);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            m_longest = std::max(m_longest, now - m_last);
            m_last = now;
        });
    }
    void start()
    {
        m_longest = 0;
        m_clock.start();
        m_last = 0;
        m_timer.start();
    }
    double stop()
    {
        m_timer.stop();
        return double(m_longest) / 1e6;
    }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_longest = 0;
};

// Times every event the GUI thread delivers, to name the longest one when a stall shows up.
class TimedApplication : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        if (QThread::currentThread() != thread())
            return QCoreApplication::notify(receiver, event);
        // Taken before delivery: a deferred delete destroys the receiver.
        const char *className = receiver->metaObject()->className();
        const int type = event->type();
        QElapsedTimer timer;
        timer.start();
        const qint64 cpuBefore = threadCpuNs();
        const bool result = QCoreApplication::notify(receiver, event);
        const qint64 cpuNs = threadCpuNs() - cpuBefore;
        const qint64 ns = timer.nsecsElapsed();
        if (ns > longestNs) {
            longestNs = ns;
            longestWhat = QByteArray(className) + " event " + QByteArray::number(type);
        }
        if (cpuNs > longestCpuNs) {
            longestCpuNs = cpuNs;
            longestCpuWhat = QByteArray(className) + " event " + QByteArray::number(type);
        }
        return result;
    }

    static qint64 threadCpuNs()
    {
        timespec now {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
    }

    qint64 longestNs = 0;
    QByteArray longestWhat;
    // The same measured in the GUI thread's own CPU time, which leaves out the time the
    // thread waited for a core while other threads (decoders, network, server) ran.
    qint64 longestCpuNs = 0;
    QByteArray longestCpuWhat;
};

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char *argv[])
{
    TimedApplication app(argc, argv);
    const Certificate *certificate = Certificate::shared();
    if (!certificate) {
        std::printf("no test certificate (openssl missing?)\n");
        return 1;
    }
    const QByteArray gif = bench::hundredFrameGif();

    QThread serverThread;
    QObject serverSide; // runs functions on the server's thread
    serverSide.moveToThread(&serverThread);
    serverThread.start();
    std::unique_ptr<HttpServer> server;
    quint16 port = 0;
    QMetaObject::invokeMethod(
        &serverSide,
        [&] {
            server = std::make_unique<HttpServer>();
            server->listen(HttpServer::Mode::Https);
            server->setDefaultResponse(Response::withStatus(200, gif));
            port = server->port();
        },
        Qt::BlockingQueuedConnection);
    if (port == 0) {
        std::printf("the server did not start\n");
        return 1;
    }

    QTemporaryDir cacheDir;
    ImageLoader loader(cacheDir.path());
    loader.setSslConfiguration(certificate->clientConfiguration());

    StallProbe probe;
    probe.start();
    spin(1500);
    const double idleMs = probe.stop();

    constexpr int loads = 10;
    QList<LoadedImage> kept;
    int finished = 0;
    int animated = 0;
    QElapsedTimer wall;
    wall.start();
    probe.start();
    app.longestNs = 0;
    app.longestCpuNs = 0;
    for (int i = 0; i < loads; ++i) {
        // Distinct URLs, so that no load is answered from the cache.
        const QString url = u"https://127.0.0.1:"_s + QString::number(port) + u"/banner-"_s
            + QString::number(i) + u".gif"_s;
        loader.load(url, &app, [&](std::optional<LoadedImage> image) {
            ++finished;
            animated += image && image->isAnimated();
            if (image)
                kept.append(*image);
        });
    }
    while (finished < loads && wall.elapsed() < 120000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    const double busyMs = probe.stop();
    const double longestEventMs = double(app.longestNs) / 1e6;
    // Views hold their images; letting go of one is also GUI-thread work.
    QElapsedTimer release;
    release.start();
    const qsizetype held = kept.size();
    kept.clear();
    const double releaseMs
        = double(release.nsecsElapsed()) / 1e6 / double(std::max<qsizetype>(held, 1));
    const qint64 totalMs = wall.elapsed();

    QMetaObject::invokeMethod(
        &serverSide, [&] { server.reset(); }, Qt::BlockingQueuedConnection);
    serverThread.quit();
    serverThread.wait();

    std::printf("Ten concurrent loads of a 100-frame 600x500 GIF (%.1f MB) over loopback HTTPS:\n",
                double(gif.size()) / 1e6);
    std::printf("  loads finished: %d, animations: %d, wall time %lld ms\n", finished, animated,
                totalMs);
    std::printf("  longest GUI-thread stall, idle loop:    %6.2f ms\n", idleMs);
    std::printf("  longest GUI-thread stall, during loads: %6.2f ms  = %.1f x idle\n", busyMs,
                busyMs / idleMs);
    std::printf("  longest single event on the GUI thread:  %6.2f ms  (%s)\n", longestEventMs,
                app.longestWhat.constData());
    std::printf("  most GUI-thread CPU in one event:        %6.2f ms  (%s)\n",
                double(app.longestCpuNs) / 1e6, app.longestCpuWhat.constData());
    std::printf("  releasing one decoded animation:         %6.2f ms\n", releaseMs);
    return finished == loads && animated == loads ? 0 : 1;
}
