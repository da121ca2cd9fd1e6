#include "gifwriter.h"
#include "imageloader.h"
#include "testhttpserver.h"

#include <QLoggingCategory>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <thread>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::test::GifFrame;
using velmora::test::Response;
using velmora::test::TestCertificate;
using velmora::test::TestHttpServer;

namespace {

// Collects the images debug log, which is where every refusal is explained.
class LogCapture
{
public:
    LogCapture() { s_instance = this, s_previous = qInstallMessageHandler(handler); }
    ~LogCapture() { qInstallMessageHandler(s_previous), s_instance = nullptr; }

    QStringList lines() const
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }

private:
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (QByteArrayView(context.category) == "velmora.images") {
            QMutexLocker locker(&s_instance->m_mutex);
            s_instance->m_lines.append(text);
            return;
        }
        s_previous(type, context, text);
    }

    static inline LogCapture *s_instance = nullptr;
    static inline QtMessageHandler s_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_lines;
};

QByteArray twoFrameGif()
{
    QImage first(24, 16, QImage::Format_RGB32);
    first.fill(Qt::red);
    QImage second(24, 16, QImage::Format_RGB32);
    second.fill(Qt::blue);
    return test::encodeGif({ GifFrame(first, 20), GifFrame(second, 30) }, first.size());
}

// Padding after the trailer keeps the GIF valid and makes a trickled body last: at 8 bytes
// every 50 ms, about six seconds.
QByteArray slowBody()
{
    QByteArray body = twoFrameGif();
    body.append(1000 - body.size(), '\0');
    return body;
}

struct Outcome
{
    bool delivered = false;
    std::optional<LoadedImage> image;
};

} // namespace

class tst_ImageLoader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void refusedURLs_data();
    void refusedURLs();
    void status_data();
    void status();
    void announcedLengthOverLimit();
    void bodyWithoutLength_data();
    void bodyWithoutLength();
    void redirects_data();
    void redirects();
    void secondLoadComesFromCache();
    void timeouts_data();
    void timeouts();
    void destroyedContextAbandonsLoad();
    void loadFromAnotherThread();

private:
    std::shared_ptr<Outcome> startLoad(const QString &url, QObject *context = nullptr);
    // Waits for the completion; check `delivered` before trusting `image`.
    Outcome load(const QString &url);
    QString url(const QString &path) const { return m_server.url(path).toString(); }
    bool logged(const QString &line) const { return m_log->lines().contains(line); }

    TestHttpServer m_server;
    std::unique_ptr<QTemporaryDir> m_cacheDir;
    std::unique_ptr<ImageLoader> m_loader;
    std::unique_ptr<LogCapture> m_log;
    QObject m_context;
};

void tst_ImageLoader::initTestCase()
{
    QLoggingCategory::setFilterRules(u"velmora.images.debug=true"_s);
    QVERIFY(TestCertificate::shared());
    QVERIFY(m_server.listen(TestHttpServer::Mode::Https));
}

void tst_ImageLoader::init()
{
    m_server.clearRoutes();
    m_server.clear();
    m_cacheDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_cacheDir->isValid());
    m_loader = std::make_unique<ImageLoader>(m_cacheDir->path());
    m_loader->setSslConfiguration(TestCertificate::shared()->clientConfiguration());
    m_log = std::make_unique<LogCapture>();
}

void tst_ImageLoader::cleanup()
{
    m_log.reset();
    m_loader.reset();
}

std::shared_ptr<Outcome> tst_ImageLoader::startLoad(const QString &url, QObject *context)
{
    auto outcome = std::make_shared<Outcome>();
    m_loader->load(url, context ? context : &m_context,
                   [outcome](std::optional<LoadedImage> image) {
                       outcome->delivered = true;
                       outcome->image = std::move(image);
                   });
    return outcome;
}

Outcome tst_ImageLoader::load(const QString &url)
{
    const auto outcome = startLoad(url);
    (void)QTest::qWaitFor([&] { return outcome->delivered; }, 15000);
    return *outcome;
}

void tst_ImageLoader::refusedURLs_data()
{
    QTest::addColumn<QString>("url");
    const QString port = QString::number(m_server.port());
    QTest::newRow("http") << u"http://127.0.0.1:"_s + port + u"/a.gif"_s;
    QTest::newRow("upper-case HTTPS") << u"HTTPS://127.0.0.1:"_s + port + u"/a.gif"_s;
    QTest::newRow("mixed-case scheme") << u"Https://127.0.0.1:"_s + port + u"/a.gif"_s;
    QTest::newRow("leading space") << u" https://127.0.0.1:"_s + port + u"/a.gif"_s;
    QTest::newRow("no host") << u"https://"_s;
    QTest::newRow("relative") << u"/a.gif"_s;
    QTest::newRow("empty") << QString();
}

void tst_ImageLoader::refusedURLs()
{
    QFETCH(QString, url);
    m_server.setDefaultResponse(Response::withStatus(200, twoFrameGif()));
    const auto outcome = startLoad(url);
    QVERIFY2(!outcome->delivered, "the completion must not run inside load()");
    QTRY_VERIFY(outcome->delivered);
    QVERIFY(!outcome->image);
    QVERIFY(logged(u"ImageLoader: rejected non-HTTPS or invalid URL: "_s + url));
    QTest::qWait(50);
    QCOMPARE(m_server.requestCount(), 0);
}

void tst_ImageLoader::status_data()
{
    QTest::addColumn<int>("status");
    QTest::newRow("200") << 200;
    QTest::newRow("204") << 204;
    QTest::newRow("206") << 206;
    QTest::newRow("404") << 404;
    QTest::newRow("500") << 500;
}

void tst_ImageLoader::status()
{
    QFETCH(int, status);
    m_server.setResponse(
        u"/image"_s, Response::withStatus(status, status == 204 ? QByteArray() : twoFrameGif()));
    const QString target = url(u"/image"_s);
    const auto [delivered, image] = load(target);
    QVERIFY(delivered);
    QCOMPARE(m_server.requestCount(), 1);
    if (status == 200) {
        QVERIFY(image && image->isAnimated());
        QCOMPARE(image->size(), QSize(24, 16));
        QCOMPARE(image->animatedSource()->delays(), (QList<double> { 0.2, 0.3 }));
    } else {
        QVERIFY(!image);
        QVERIFY(logged(u"ImageLoader HTTP error for "_s + target + u": status "_s
                       + QString::number(status)));
    }
}

void tst_ImageLoader::announcedLengthOverLimit()
{
    // The body would take minutes to arrive; only a refusal on the header ends this quickly.
    m_server.setResponse(u"/huge"_s,
                         Response::withStatus(200, QByteArray(4096, 'x'))
                             .header("Content-Length", "30000000")
                             .trickled(1, 1000));
    const QString target = url(u"/huge"_s);
    QElapsedTimer timer;
    timer.start();
    const Outcome outcome = load(target);
    QVERIFY(outcome.delivered && !outcome.image);
    QVERIFY(timer.elapsed() < 5000);
    QVERIFY(
        logged(u"ImageLoader: rejected oversized response (expectedContentLength=30000000) for "_s
               + target));
}

void tst_ImageLoader::bodyWithoutLength_data()
{
    QTest::addColumn<qsizetype>("size");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("at the limit") << qsizetype(ImageLoader::byteLimit) << true;
    QTest::newRow("one byte over") << qsizetype(ImageLoader::byteLimit + 1) << false;
}

void tst_ImageLoader::bodyWithoutLength()
{
    QFETCH(qsizetype, size);
    QFETCH(bool, accepted);
    // A GIF decoder stops at the trailer, so padding keeps the image valid.
    QByteArray body = twoFrameGif();
    body.append(size - body.size(), '\0');
    Response response = Response::withStatus(200, body);
    response.omitContentLength = true;
    m_server.setResponse(u"/unannounced"_s, response);

    const auto [delivered, image] = load(url(u"/unannounced"_s));
    QVERIFY(delivered);
    QCOMPARE(bool(image), accepted);
    QCOMPARE(logged(u"ImageLoader: response exceeds 20971520 bytes, aborting"_s), !accepted);
}

void tst_ImageLoader::redirects_data()
{
    QTest::addColumn<QString>("location"); // %1: this server's port, %2: the plain HTTP one's
    QTest::addColumn<bool>("followed");
    QTest::newRow("to http") << u"http://127.0.0.1:%2/image"_s << false;
    QTest::newRow("to upper-case HTTPS") << u"HTTPS://127.0.0.1:%1/image"_s << false;
    QTest::newRow("to https") << u"https://127.0.0.1:%1/image"_s << true;
    QTest::newRow("relative") << u"/image"_s << true;
}

void tst_ImageLoader::redirects()
{
    QFETCH(QString, location);
    QFETCH(bool, followed);
    TestHttpServer plain;
    QVERIFY(plain.listen(TestHttpServer::Mode::Http));
    plain.setDefaultResponse(Response::withStatus(200, twoFrameGif()));
    m_server.setResponse(u"/image"_s, Response::withStatus(200, twoFrameGif()));
    const QString target = QString(location)
                               .replace(u"%1"_s, QString::number(m_server.port()))
                               .replace(u"%2"_s, QString::number(plain.port()));
    m_server.setResponse(u"/moved"_s, Response::redirect(302, target.toUtf8()));

    const QString start = url(u"/moved"_s);
    const auto [delivered, image] = load(start);
    QVERIFY(delivered);
    QCOMPARE(bool(image), followed);
    QCOMPARE(plain.requestCount(), 0);
    QCOMPARE(m_server.requestCount(), followed ? 2 : 1);
    if (!followed)
        QVERIFY(logged(u"ImageLoader HTTP error for "_s + start + u": status 302"_s));
}

void tst_ImageLoader::secondLoadComesFromCache()
{
    m_server.setResponse(
        u"/cached"_s,
        Response::withStatus(200, twoFrameGif()).header("Cache-Control", "max-age=3600"));
    const auto first = load(url(u"/cached"_s)).image;
    QVERIFY(first);
    const auto second = load(url(u"/cached"_s)).image;
    QVERIFY(second && second->isAnimated());
    QCOMPARE(second->firstFrame(), first->firstFrame());
    QCOMPARE(m_server.requestCount(), 1);
}

void tst_ImageLoader::timeouts_data()
{
    QTest::addColumn<Response>("response");
    // A trickle that never falls silent for long is cut only by the end-to-end deadline.
    QTest::newRow("slow trickle") << Response::withStatus(200, slowBody()).trickled(8, 50);
    QTest::newRow("silent server") << Response::hang();
}

void tst_ImageLoader::timeouts()
{
    QFETCH(Response, response);
    m_loader->setTimeouts({ std::chrono::milliseconds(400), std::chrono::milliseconds(800) });
    m_server.setResponse(u"/slow"_s, response);
    const QString target = url(u"/slow"_s);
    QElapsedTimer timer;
    timer.start();
    const Outcome outcome = load(target);
    QVERIFY(outcome.delivered && !outcome.image);
    QVERIFY2(timer.elapsed() < 3000, QByteArray::number(timer.elapsed()).constData());
    QVERIFY(logged(u"ImageLoader error for "_s + target + u": The request timed out."_s));
}

void tst_ImageLoader::destroyedContextAbandonsLoad()
{
    m_server.setResponse(u"/slow"_s, Response::withStatus(200, slowBody()).trickled(8, 50));
    auto context = std::make_unique<QObject>();
    const auto outcome = startLoad(url(u"/slow"_s), context.get());
    QTRY_COMPARE(m_server.requestCount(), 1);
    context.reset();
    QTRY_COMPARE_WITH_TIMEOUT(m_server.openConnectionCount(), 0, 5000);
    QTest::qWait(100);
    QVERIFY(!outcome->delivered);
}

void tst_ImageLoader::loadFromAnotherThread()
{
    m_server.setResponse(u"/image"_s, Response::withStatus(200, twoFrameGif()));
    auto outcome = std::make_shared<Outcome>();
    QThread *completionThread = nullptr;
    std::thread caller([&] {
        m_loader->load(url(u"/image"_s), &m_context,
                       [&, outcome](std::optional<LoadedImage> image) {
                           completionThread = QThread::currentThread();
                           outcome->image = std::move(image);
                           outcome->delivered = true;
                       });
    });
    caller.join();
    QTRY_VERIFY_WITH_TIMEOUT(outcome->delivered, 15000);
    QVERIFY(outcome->image);
    QCOMPARE(completionThread, QThread::currentThread());
}

QTEST_GUILESS_MAIN(tst_ImageLoader)
#include "tst_images_loader.moc"
