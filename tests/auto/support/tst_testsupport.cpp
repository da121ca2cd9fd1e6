#include "gifwriter.h"
#include "testcertificate.h"
#include "testhttpserver.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QImageReader>
#include <QMetaEnum>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora::test;
using Mode = TestHttpServer::Mode;

namespace {

// One request through Qt's network stack, summed up as "<status> <body> <content-type and
// x- headers> at <final URL when redirected> <error>", leaving out what is absent.
QString fetch(QNetworkAccessManager &nam, const TestHttpServer &server, const QString &target,
              int transferTimeoutMs = 0, const QByteArray &method = "GET",
              const QByteArray &body = {})
{
    QNetworkRequest request(server.url(target));
    request.setSslConfiguration(TestCertificate::shared()->clientConfiguration());
    request.setTransferTimeout(transferTimeoutMs);
    request.setRawHeader("X-Velmora-ODD", "one");
    std::unique_ptr<QNetworkReply> reply(
        method == "GET" ? nam.get(request) : nam.sendCustomRequest(request, method, body));
    QByteArray received;
    QObject::connect(reply.get(), &QIODevice::readyRead, [&] { received += reply->readAll(); });
    if (!QSignalSpy(reply.get(), &QNetworkReply::finished).wait(15000))
        return u"no answer"_s;
    if (reply->isOpen())
        received += reply->readAll();
    QStringList parts;
    if (const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt())
        parts << QString::number(status);
    if (!received.isEmpty())
        parts << QString::fromLatin1(received);
    for (const auto &[name, value] : reply->rawHeaderPairs()) {
        if (name.toLower().startsWith("x-") || name.toLower() == "content-type")
            parts << QString::fromLatin1(QByteArray(name.toLower() + '=' + value));
    }
    if (reply->url() != request.url())
        parts << u"at "_s + reply->url().toString(QUrl::RemoveScheme | QUrl::RemoveAuthority);
    if (reply->error() != QNetworkReply::NoError)
        parts << QString::fromLatin1(
            QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(reply->error()));
    return parts.join(u' ');
}

QImage filled(QRgb colour)
{
    QImage image(40, 30, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

} // namespace

class tst_TestSupport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(TestCertificate::shared(), "openssl could not make a certificate");
    }

    void serves_data()
    {
        QTest::addColumn<Mode>("mode");
        QTest::addColumn<QList<Response>>("queued");
        QTest::addColumn<Response>("fixed");
        QTest::addColumn<int>("transferTimeout");
        QTest::addColumn<QStringList>("expected"); // one entry per request, see fetch()
        QTest::addColumn<int>("minMs");
        const QByteArray text = "0123456789abcdef";
        const QString whole = u"200 "_s + QString::fromLatin1(text);
        auto row = [](const char *name, Mode mode, QList<Response> queued, Response fixed,
                      QStringList expected, int minMs = 0, int transferTimeout = 0) {
            QTest::addRow("%s, %s", name, mode == Mode::Http ? "http" : "https")
                << mode << queued << fixed << transferTimeout << expected << minMs;
        };
        for (Mode mode : { Mode::Http, Mode::Https }) {
            row("json with a header", mode, {},
                Response::json(R"({"ok":true})").header("X-Visitor-Id", "v-77"),
                { u"200 {\"ok\":true} content-type=application/json x-visitor-id=v-77"_s });
            row("truncated", mode, {}, Response::withStatus(200, text).truncated(5),
                { u"200 01234 RemoteHostClosedError"_s });
            row("redirect", mode, { Response::redirect(302, "/r?from=start") },
                Response::withStatus(200, "arrived"), { u"200 arrived at /r?from=start"_s });
            row("trickled", mode, {}, Response::withStatus(200, text).trickled(4, 80), { whole },
                240);
        }
        row("queued answers first, then the fixed one", Mode::Http,
            { Response::withStatus(503), Response::withStatus(429, "later") },
            Response::withStatus(204),
            { u"503 ServiceUnavailableError"_s, u"429 later UnknownContentError"_s, u"204"_s,
              u"204"_s });
        row("delayed", Mode::Http, {}, Response::withStatus(200, text).delayed(300), { whole },
            300);
        Response unsized = Response::withStatus(200, text);
        unsized.omitContentLength = true;
        row("no length, close ends the body", Mode::Http, {}, unsized, { whole });
        row("dropped", Mode::Http, {}, Response::drop(), { u"RemoteHostClosedError"_s });
        // Qt's transfer timer is coarse and may fire up to 5% early.
        row("hangs until the client gives up", Mode::Http, {}, Response::hang(),
            { u"OperationCanceledError"_s }, 280, 300);
    }

    void serves()
    {
        QFETCH(Mode, mode);
        QFETCH(QList<Response>, queued);
        QFETCH(int, transferTimeout);
        QFETCH(QStringList, expected);
        TestHttpServer server;
        QVERIFY(server.listen(mode));
        for (const Response &response : std::as_const(queued))
            server.enqueueResponse(u"/r"_s, response);
        QFETCH(Response, fixed);
        server.setResponse(u"/r"_s, fixed);
        QNetworkAccessManager nam;
        QElapsedTimer clock;
        clock.start();
        QStringList got;
        for (qsizetype i = 0; i < expected.size(); ++i)
            got << fetch(nam, server, u"/r"_s, transferTimeout);
        QCOMPARE(got, expected);
        QFETCH(int, minMs);
        QCOMPARE_GE(clock.elapsed(), minMs);
        QCOMPARE(server.lastRequest().path(), u"/r"_s);
    }

    void recordsRequestsAndConnections()
    {
        TestHttpServer server;
        QVERIFY(server.listen());
        server.setDefaultHandler([](const RecordedRequest &) { return Response::withStatus(201); });
        const QByteArray body("{\"a\":\0\r\n}", 9);
        {
            QNetworkAccessManager nam;
            QCOMPARE(fetch(nam, server, u"/v1/events?user=a%20b"_s, 0, "POST", body), u"201"_s);
            const RecordedRequest request = server.lastRequest();
            QCOMPARE(request.method, QByteArray("POST"));
            QCOMPARE(request.path(), u"/v1/events"_s);
            QCOMPARE(request.query().queryItemValue(u"user"_s, QUrl::FullyDecoded), u"a b"_s);
            QCOMPARE(request.header("x-velmora-odd"), QByteArray("one"));
            QCOMPARE(request.body, body);
            QCOMPARE(server.openConnectionCount(), 1);
        }
        QTRY_COMPARE(server.openConnectionCount(), 0);
    }

    void gifRoundTrip_data()
    {
        QTest::addColumn<QList<GifFrame>>("frames");
        QTest::addColumn<int>("cutAt"); // the first frame truncatedGif() breaks; -1: none
        QTest::addColumn<QList<int>>("qtDelaysMs"); // one per frame Qt can read
        const QRgb red = qRgb(255, 0, 0), green = qRgb(0, 255, 0), blue = qRgb(0, 0, 255);
        QImage gradient(256, 64, QImage::Format_ARGB32);
        for (int x = 0; x < 256; ++x) {
            for (int y = 0; y < 64; ++y)
                gradient.setPixel(x, y, qRgb(x, 255 - x, (x * 7) & 0xff));
        }
        const QList<GifFrame> three = { { filled(red) }, { filled(green) }, { filled(blue) } };

        // Qt lets a frame without a control block keep the previous delay and reads 0 as 100 ms.
        QTest::newRow("delays: default, given, missing, zero") << QList<GifFrame> {
            { filled(blue) }, { filled(red), 7 }, { filled(blue), 5, false }, { filled(green), 0 }
        } << -1 << QList<int> { 100, 70, 70, 100 };
        QTest::newRow("256 colours, codes up to 12 bits")
            << QList<GifFrame> { { gradient, 2 } } << -1 << QList<int> { 20 };
        // Qt also returns the half-decoded frame.
        QTest::newRow("cut inside the first frame") << three << 0 << QList<int> { 100 };
        QTest::newRow("cut inside the second frame") << three << 1 << QList<int> { 100, 100 };
        QTest::newRow("only the trailer missing") << three << 3 << QList<int> { 100, 100, 100 };
    }

    void gifRoundTrip()
    {
        QFETCH(QList<GifFrame>, frames);
        QFETCH(int, cutAt);
        QByteArray gif = encodeGif(frames, {});
        if (cutAt < 0) {
            const auto written = inspectGif(gif);
            QVERIFY(written);
            QCOMPARE(written->size(), frames.size());
            for (qsizetype i = 0; i < frames.size(); ++i) {
                QCOMPARE(written->at(i).delayCentiseconds,
                         frames[i].graphicControl ? frames[i].delayCentiseconds : -1);
            }
        } else {
            gif = truncatedGif(gif, cutAt);
            QVERIFY(!inspectGif(gif));
        }
        QBuffer buffer(&gif);
        QImageReader reader(&buffer, "gif");
        QCOMPARE(reader.size(), frames[0].image.size());
        QCOMPARE(reader.loopCount(), -1);
        QList<int> delays;
        for (qsizetype i = 0; i < frames.size(); ++i) {
            const QImage decoded = reader.read().convertToFormat(QImage::Format_ARGB32);
            if (decoded.isNull())
                break;
            delays << reader.nextImageDelay();
            QCOMPARE(decoded == frames[i].image, cutAt < 0 || i < cutAt);
        }
        QTEST(delays, "qtDelaysMs");
    }
};

QTEST_MAIN(tst_TestSupport)
#include "tst_testsupport.moc"
