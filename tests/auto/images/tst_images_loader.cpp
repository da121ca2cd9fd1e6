#include "gifwriter/gifwriter.h"
#include "httpserver/httpserver.h"
#include "images/imageloader.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <thread>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::GifFrame;

namespace {

QByteArray twoFrameGif(qsizetype paddedTo = 0)
{
    QImage first(24, 16, QImage::Format_RGB32);
    first.fill(Qt::red);
    QImage second = first;
    second.fill(Qt::blue);
    QByteArray gif = test::encodeGif({ GifFrame(first, 20), GifFrame(second, 30) }, first.size());
    // A GIF decoder stops at the trailer, so padding keeps the image valid.
    gif.append(std::max<qsizetype>(0, paddedTo - gif.size()), '\0');
    return gif;
}

Response withoutLength(Response response)
{
    response.omitContentLength = true;
    return response;
}

// About six seconds to arrive, at 8 bytes every 50 ms.
Response slowGif()
{
    return Response::withStatus(200, twoFrameGif(1000)).trickled(8, 50);
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
    void load_data();
    void load();
    void destroyedOwnerEndsTheLoad_data();
    void destroyedOwnerEndsTheLoad();
    void loadFromAnotherThread();
    void transfersStayOffTheCallingThread();

private:
    std::shared_ptr<Outcome> startLoad(const QString &url, QObject *context = nullptr);
    QString url(const QString &path) const { return m_server.url(path).toString(); }

    HttpServer m_server;
    HttpServer m_plain;
    std::unique_ptr<QTemporaryDir> m_cacheDir;
    std::unique_ptr<ImageLoader> m_loader;
    QObject m_context;
};

void tst_ImageLoader::initTestCase()
{
    QVERIFY(Certificate::shared());
    QVERIFY(m_server.listen(HttpServer::Mode::Https));
    QVERIFY(m_plain.listen(HttpServer::Mode::Http));
    m_plain.setDefaultResponse(Response::withStatus(200, twoFrameGif()));
}

void tst_ImageLoader::init()
{
    m_server.clearRoutes();
    m_server.clear();
    m_plain.clear();
    m_cacheDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_cacheDir->isValid());
    m_loader = std::make_unique<ImageLoader>(m_cacheDir->path());
    m_loader->setSslConfiguration(Certificate::shared()->clientConfiguration());
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

void tst_ImageLoader::load_data()
{
    // Loaded from this HTTPS server; %1 is its port, %2 the port of a plain HTTP one that
    // serves the same image.
    QTest::addColumn<QString>("url");
    // At /image; /to-http, /to-HTTPS and /to-https redirect there with that scheme.
    QTest::addColumn<Response>("response");
    QTest::addColumn<int>("loads");
    QTest::addColumn<int>("requests"); // that reach the HTTPS server
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<bool>("shortTimeouts"); // 400 ms per request, 800 ms in all

    const QString image = u"https://127.0.0.1:%1/image"_s;
    const Response gif = Response::withStatus(200, twoFrameGif());
    const auto row = [](const char *name, const QString &url, const Response &response,
                        int requests, bool accepted, int loads = 1, bool shortTimeouts = false) {
        QTest::newRow(name) << url << response << loads << requests << accepted << shortTimeouts;
    };
    row("https", image, gif, 1, true);
    row("http", u"http://127.0.0.1:%2/image"_s, gif, 0, false);
    row("upper-case HTTPS", u"HTTPS://127.0.0.1:%1/image"_s, gif, 0, false);
    for (const int status : { 204, 206, 404 })
        row(qPrintable(u"status %1"_s.arg(status)), image,
            Response::withStatus(status, twoFrameGif()), 1, false);
    // The body would take over an hour; only a refusal on the header ends the load in time.
    row("announced 30,000,000 bytes", image,
        Response::withStatus(200, QByteArray(4096, 'x'))
            .header("Content-Length", "30000000")
            .trickled(1, 1000),
        1, false);
    row("5,000,000 bytes with their length", image,
        Response::withStatus(200, twoFrameGif(5'000'000)), 1, true);
    row("20,971,520 bytes without a length", image,
        withoutLength(Response::withStatus(200, twoFrameGif(ImageLoader::byteLimit))), 1, true);
    row("20,971,521 bytes without a length", image,
        withoutLength(Response::withStatus(200, twoFrameGif(ImageLoader::byteLimit + 1))), 1,
        false);
    row("redirect to http", u"https://127.0.0.1:%1/to-http"_s, gif, 1, false);
    row("redirect to upper-case HTTPS", u"https://127.0.0.1:%1/to-HTTPS"_s, gif, 1, false);
    row("redirect to https", u"https://127.0.0.1:%1/to-https"_s, gif, 2, true);
    row("second load from the cache", image,
        Response::withStatus(200, twoFrameGif()).header("Cache-Control", "max-age=3600"), 1, true,
        2);
    row("silent server", image, Response::hang(), 1, false, 1, true);
    // A trickle that never falls silent for long is cut only by the deadline for the whole.
    row("slow trickle", image, slowGif(), 1, false, 1, true);
}

void tst_ImageLoader::load()
{
    QFETCH(QString, url);
    QFETCH(Response, response);
    QFETCH(int, loads);
    QFETCH(int, requests);
    QFETCH(bool, accepted);
    QFETCH(bool, shortTimeouts);

    const QString https = QString::number(m_server.port());
    const QString http = QString::number(m_plain.port());
    const auto ports
        = [&](QString text) { return text.replace(u"%1"_s, https).replace(u"%2"_s, http); };
    m_server.setResponse(u"/image"_s, response);
    for (const QString &to :
         { u"http://127.0.0.1:%2"_s, u"HTTPS://127.0.0.1:%1"_s, u"https://127.0.0.1:%1"_s }) {
        m_server.setResponse(u"/to-"_s + to.left(to.indexOf(u':')),
                             Response::redirect(302, ports(to + u"/image"_s).toUtf8()));
    }

    if (shortTimeouts)
        m_loader->setTimeouts({ std::chrono::milliseconds(400), std::chrono::milliseconds(800) });
    for (int i = 0; i < loads; ++i) {
        const auto outcome = startLoad(ports(url));
        QVERIFY2(!outcome->delivered, "the completion must not run inside load()");
        // Well before a trickled body ends or a default timeout strikes.
        QTRY_VERIFY_WITH_TIMEOUT(outcome->delivered, 15000);
        QCOMPARE(bool(outcome->image), accepted);
        if (accepted)
            QCOMPARE(outcome->image->animatedSource()->delays(), (QList<double> { 0.2, 0.3 }));
    }
    QTest::qWait(50);
    QCOMPARE(m_server.requestCount(), requests);
    QCOMPARE(m_plain.requestCount(), 0);
}

void tst_ImageLoader::destroyedOwnerEndsTheLoad_data()
{
    QTest::addColumn<bool>("loader"); // else the completion's context
    QTest::newRow("context") << false;
    QTest::newRow("loader") << true;
}

void tst_ImageLoader::destroyedOwnerEndsTheLoad()
{
    QFETCH(bool, loader);
    m_server.setResponse(u"/slow"_s, slowGif());
    auto context = std::make_unique<QObject>();
    const auto outcome = startLoad(url(u"/slow"_s), context.get());
    QTRY_COMPARE(m_server.requestCount(), 1);
    loader ? m_loader.reset() : context.reset();
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

// The network objects live on the loader's thread: the caller's thread only sees the
// completion, however much the transfer has to do.
void tst_ImageLoader::transfersStayOffTheCallingThread()
{
    class NetworkEventCounter : public QObject
    {
    public:
        bool eventFilter(QObject *receiver, QEvent *) override
        {
            count += receiver->inherits("QNetworkReply")
                || receiver->inherits("QNetworkAccessManager")
                || receiver->inherits("QAbstractNetworkCache");
            return false;
        }
        int count = 0;
    } counter;
    QCoreApplication::instance()->installEventFilter(&counter);
    m_server.setResponse(
        u"/image"_s, Response::withStatus(200, twoFrameGif(2 * 1024 * 1024)).trickled(65536, 1));
    const auto outcome = startLoad(url(u"/image"_s));
    QTRY_VERIFY_WITH_TIMEOUT(outcome->delivered, 15000);
    QCoreApplication::instance()->removeEventFilter(&counter);
    QVERIFY(outcome->image);
    QCOMPARE(counter.count, 0);
}

QTEST_GUILESS_MAIN(tst_ImageLoader)
#include "tst_images_loader.moc"
