#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include "httpserver/httpserver.h"
#include "network/apiclient.h"
#include "network/httpsredirectguarddelegate.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

const QByteArray okBody = R"({"status": "ok", "actions": []})";

template<typename T> using Result = std::optional<Expected<T, APIFailure>>;

// Starts a call through `start(completion)` and waits for its one answer.
template<typename T, typename Start> Result<T> await(Start start, int timeoutMs = 20000)
{
    auto result = std::make_shared<Result<T>>();
    start([result](Expected<T, APIFailure> r) { result->emplace(std::move(r)); });
    (void)QTest::qWaitFor([&] { return result->has_value(); }, timeoutMs);
    return *result;
}

Result<ViewEventsReply>
view(APIClient &client, const QString &host, const RequestHeaders &headers = {},
     EventsViewRequest request = { { std::nullopt, false, u"home"_s, 1 }, {} })
{
    return await<ViewEventsReply>(
        [&](auto done) { client.viewEvents(request, host, headers, std::move(done)); });
}

Result<ResponseHeaders> reaction(APIClient &client, const QString &host,
                                 const RequestHeaders &headers = {})
{
    return await<ResponseHeaders>([&](auto done) {
        client.reactionEvents({ {}, EventsReactionType::Click, u"s"_s }, host, headers,
                              std::move(done));
    });
}

// "" for a success, the error's description otherwise.
template<typename T> QString outcome(const Result<T> &result)
{
    if (!result)
        return u"(no answer)"_s;
    return result->hasValue() ? QString() : toVelmoraError(result->error()).description();
}

// Whole-text match where '*' stands for any text.
bool matches(const QString &actual, const QString &pattern)
{
    QStringList pieces = pattern.split(u'*');
    for (QString &piece : pieces)
        piece = QRegularExpression::escape(piece);
    return QRegularExpression(QRegularExpression::anchoredPattern(pieces.join(u".*"_s)),
                              QRegularExpression::DotMatchesEverythingOption)
        .match(actual)
        .hasMatch();
}

#define VERIFY_OUTCOME(reply, pattern)                                                             \
    QVERIFY2(matches(outcome(reply), pattern), qPrintable(outcome(reply)))

} // namespace

class tst_APIClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void postsBodyAndHeaders();
    void headerSet();
    void refusedBeforeSending_data();
    void refusedBeforeSending();
    void answers_data();
    void answers();
    void responseHeadersNormalised();
    void timeouts_data();
    void timeouts();
    void cancellation();
    void redirectGuard_data();
    void redirectGuard();
    void apiRedirects_data();
    void apiRedirects();

private:
    QString serve(const Response &response)
    {
        m_server.clear();
        m_server.clearRoutes();
        m_server.setDefaultResponse(response);
        return m_server.baseUrl().toString();
    }

    HttpServer m_server;
};

void tst_APIClient::initTestCase()
{
    QVERIFY(m_server.listen());
}

void tst_APIClient::postsBodyAndHeaders()
{
    const QString host = serve(Response::json(okBody));
    m_server.setResponse(u"/vorpex/v1/app_events/view"_s,
                         Response::json(okBody).header("X-Vorpex-Visitor-Id", "v-1"));
    APIClient client;
    // A value that could end the header line is not sent at all.
    const auto reply = view(client, host + u"/vorpex/v1"_s,
                            { { u"x-api-key"_s, u"key"_s },
                              { u"tenant-id"_s, QString() },
                              { u"x-vorpex-visitor-id"_s, std::nullopt },
                              { u"x-vorpex-customer-id"_s, u"K\r\nX-Injected: yes"_s },
                              { u"x-os-version"_s, u"v\n"_s } },
                            { { u"cust"_s, true, u"home"_s, 42 }, { { u"k"_s, { qint64(1) } } } });
    QVERIFY(reply && reply->hasValue());
    QCOMPARE(reply->value().headers.value(u"x-vorpex-visitor-id"_s), u"v-1"_s);

    QCOMPARE(m_server.requestCount(), 1);
    const auto recorded = m_server.lastRequest();
    QVERIFY(recorded.hasHeader("tenant-id")); // sent even when empty
    QCOMPARE((QList<QByteArray> { recorded.method, recorded.target.toUtf8(),
                                  recorded.header("x-api-key"), recorded.header("tenant-id") }),
             (QList<QByteArray> { "POST", "/vorpex/v1/app_events/view", "key", "" }));
    for (const char *absent :
         { "x-vorpex-visitor-id", "x-vorpex-customer-id", "X-Injected", "x-os-version" })
        QVERIFY2(!recorded.hasHeader(absent), absent);
    const QJsonObject body = recorded.json().object();
    QCOMPARE(body.value(u"meta").toObject().value(u"customer_id"), QJsonValue(u"cust"_s));
    QCOMPARE(body.value(u"custom").toArray().size(), 1);

    // The path is appended as it is, even after a trailing slash.
    QCOMPARE(outcome(reaction(client, host + u"/v1/"_s)), QString());
    QCOMPARE(m_server.lastRequest().target, u"/v1//app_events/reaction"_s);
}

void tst_APIClient::headerSet()
{
    QTemporaryDir dir;
    UserIdentityRepository repository(
        SDKUserDefaults(std::make_shared<SettingsUserDefaults>(dir.filePath(u"s.ini"_s))));
    SDKConfiguration config(DeviceInfo { u"12.0.0"_s, u"1.2.3"_s, u"Model X"_s });

    const auto names = [](const RequestHeaders &headers) {
        QStringList list;
        for (const auto &[name, value] : headers) {
            if (value)
                list.append(name + u'=' + *value);
        }
        return list;
    };
    const QStringList device { u"x-os="_s + DeviceInfo::osName(), u"x-os-version=12.0.0"_s,
                               u"x-device-name=Model X"_s, u"x-sdk-version=1.2.3"_s,
                               u"content-type=application/json"_s };
    // Unconfigured and fresh: tenant and key present but empty, no identity headers.
    QCOMPARE(names(buildRequestHeaders(config, repository)),
             QStringList({ u"tenant-id="_s, u"x-api-key="_s }) + device);

    config.setup(u"k"_s, u"t"_s, u"https://h.example"_s);
    repository.saveResponseHeaders(
        { { u"x-vorpex-visitor-id"_s, u"v"_s }, { u"x-vorpex-customer-id"_s, QString() } });
    QCOMPARE(names(buildRequestHeaders(config, repository)),
             QStringList({ u"tenant-id=t"_s, u"x-api-key=k"_s, u"x-vorpex-visitor-id=v"_s,
                           u"x-vorpex-customer-id="_s })
                 + device);
}

void tst_APIClient::refusedBeforeSending_data()
{
    QTest::addColumn<QString>("host"); // "": the test server
    QTest::addColumn<double>("custom"); // the value of a custom parameter, if any
    QTest::addColumn<QString>("message"); // '*' stands for any text

    QTest::newRow("invalid URL")
        << u"http://exa mple.com"_s << 0.0
        << u"Failed to build a valid URL from apiHost + path: \"http://exa mple.com/app_events/"_s
           u"view\". Check the apiHost passed to VelmoraInAppMessaging::shared().setup()."_s;
    QTest::newRow("NaN in the body")
        << QString() << qQNaN() << u"Failed to encode request data for EventsViewRequest(*): *"_s;
}

void tst_APIClient::refusedBeforeSending()
{
    QFETCH(QString, host);
    QFETCH(double, custom);
    QFETCH(QString, message);
    const QString server = serve(Response::json(okBody));
    APIClient client;
    EventsViewRequest request { { std::nullopt, false, u"home"_s, 1 }, {} };
    if (custom != 0.0) // NaN included
        request.custom = { { u"ratio"_s, { custom } } };
    const auto reply = view(client, host.isEmpty() ? server : host, {}, request);
    VERIFY_OUTCOME(reply, u"precondition: "_s + message);
    QCOMPARE(m_server.requestCount(), 0);
}

void tst_APIClient::answers_data()
{
    QTest::addColumn<Response>("response");
    // The descriptions of what the view and the reaction call end with: "" for a success; '*'
    // stands for any text.
    QTest::addColumn<QString>("view");
    QTest::addColumn<QString>("reaction");

    const QString undecodable = u"networkError: decoding error*"_s;
    for (int status : { 200, 204, 299 }) // "{}" has no actions
        QTest::addRow("%d", status)
            << Response::withStatus(status, "{}") << undecodable << QString();
    for (int status : { 101, 304, 399, 400, 404, 499, 500, 503, 599, 600 }) {
        const QString error = (status / 100 == 4 ? u"clientError: "_s : u"serverError: "_s)
            + QString::number(status);
        QTest::addRow("%d", status) << Response::withStatus(status, "{}") << error << error;
    }
    // Reactions never read their answer; what else a view's answer must hold is
    // tst_responsedecoding's.
    const QString undecoded = u"networkError: *"_s;
    QTest::newRow("not gzip") << Response::json(okBody).header("Content-Encoding", "gzip")
                              << undecoded << undecoded;
    // 64 MB of zeros in 64 kB: Qt stops decompressing it, which must not read as success.
    QTest::newRow("deflate bomb") << Response::json(
                                         qCompress(QByteArray(64 * 1024 * 1024, '\0'), 9).mid(4))
                                         .header("Content-Encoding", "deflate")
                                  << undecoded << undecoded;

    constexpr qsizetype limit = 10 * 1024 * 1024;
    const QByteArray fits = okBody + QByteArray(limit - okBody.size(), ' ');
    const QString tooLarge = u"networkError: *10485760 bytes*"_s;
    QTest::newRow("exactly 10 MiB") << Response::json(fits) << QString() << QString();
    QTest::newRow("announced over") << Response::json(fits + ' ') << tooLarge << QString();
    // No length announced: only the bytes received can tell.
    Response unannounced = Response::json(fits + ' ');
    unannounced.omitContentLength = true;
    QTest::newRow("unannounced over") << unannounced << tooLarge << QString();
}

void tst_APIClient::answers()
{
    QFETCH(Response, response);
    QFETCH(QString, view);
    QFETCH(QString, reaction);
    const QString host = serve(response);
    APIClient client;
    const auto viewReply = ::view(client, host);
    const auto reactionReply = ::reaction(client, host);
    VERIFY_OUTCOME(viewReply, view);
    VERIFY_OUTCOME(reactionReply, reaction);
    if (view.isEmpty())
        return;
    QVERIFY(!isCancellation(viewReply->error()));
    if (view.startsWith(u"networkError: decoding error"_s)) {
        QVERIFY(std::holds_alternative<DecodingError>(viewReply->error()));
        QCOMPARE(toVelmoraError(viewReply->error()).underlyingError()->domain(),
                 UnderlyingError::Domain::Decoding);
    }
}

void tst_APIClient::responseHeadersNormalised()
{
    const auto headers = APIClient::normalizeHeaders({ { "X-Vorpex-Visitor-ID", "first" },
                                                       { "x-vorpex-visitor-id", "second" },
                                                       { "Content-Type", "application/json" },
                                                       { "bad\xff", "v" },
                                                       { "x-bad-value", "\xc3\x28" } });
    // Names lower-cased, the last of a repeated name wins, undecodable pairs dropped.
    QCOMPARE(headers,
             (ResponseHeaders { { u"x-vorpex-visitor-id"_s, u"second"_s },
                                { u"content-type"_s, u"application/json"_s } }));
}

void tst_APIClient::timeouts_data()
{
    QTest::addColumn<Response>("response");
    // Bytes keep arriving, so only an end-to-end deadline can stop this one.
    QTest::newRow("trickle") << Response::json(QByteArray(4000, ' ') + okBody).trickled(10, 20);
    QTest::newRow("silent") << Response::hang();
    QTest::newRow("slow headers") << Response::json(okBody).delayed(5000);
}

void tst_APIClient::timeouts()
{
    QFETCH(Response, response);
    const QString host = serve(response);
    APIClient client;
    client.setTimeouts({ std::chrono::milliseconds(600), std::chrono::milliseconds(300),
                         std::chrono::milliseconds(400) });
    QElapsedTimer timer;
    timer.start();
    const auto reply = view(client, host);
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
    VERIFY_OUTCOME(reply, u"networkError: TimeoutError: *"_s);
    QVERIFY(!isCancellation(reply->error()));
}

void tst_APIClient::cancellation()
{
    const QString host = serve(Response::hang());
    APIClient client;
    Result<ViewEventsReply> result;
    QPointer<APICall> call
        = client.viewEvents({ { std::nullopt, false, u"home"_s, 1 }, {} }, host, {},
                            [&](Expected<ViewEventsReply, APIFailure> r) { result.emplace(r); });
    QTRY_COMPARE(m_server.requestCount(), 1);
    call->cancel();
    QVERIFY(!result); // delivered later, not inside cancel()
    QTRY_VERIFY(result);
    QVERIFY(isCancellation(result->error()));
    QTRY_VERIFY(call.isNull()); // a finished call cleans itself up

    // Cancellation is recognised through a network error that wraps one.
    const VelmoraError cancelled = toVelmoraError(result->error());
    QVERIFY(isCancellation(VelmoraError::networkError(UnderlyingError::wrapping(cancelled))));
    QVERIFY(isCancellation(VelmoraError::networkError(UnderlyingError::cancellation())));
    QVERIFY(!isCancellation(
        VelmoraError::networkError(UnderlyingError::wrapping(VelmoraError::serverError(500)))));
}

void tst_APIClient::redirectGuard_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("current");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("https") << u"https://cdn.example/a.png"_s << u"https://x/"_s << true;
    QTest::newRow("http") << u"http://cdn.example/a.png"_s << u"https://x/"_s << false;
    QTest::newRow("upper-case HTTPS") << u"HTTPS://cdn.example/a.png"_s << u"https://x/"_s << false;
    QTest::newRow("mixed-case Https") << u"Https://cdn.example/a.png"_s << u"https://x/"_s << false;
    QTest::newRow("ftp") << u"ftp://cdn.example/a.png"_s << u"https://x/"_s << false;
    QTest::newRow("relative on https") << u"/b.png"_s << u"https://x/a.png"_s << true;
    QTest::newRow("relative on http") << u"/b.png"_s << u"http://x/a.png"_s << false;
    QTest::newRow("empty") << QString() << u"https://x/"_s << false;
}

void tst_APIClient::redirectGuard()
{
    QFETCH(QString, target);
    QFETCH(QString, current);
    QFETCH(bool, allowed);
    QCOMPARE(HTTPSRedirectGuardDelegate::shouldAllowRedirect(target, QUrl(current)), allowed);
}

void tst_APIClient::apiRedirects_data()
{
    QTest::addColumn<int>("status");
    // {other}: a second server on another port; {self}: this server with another scheme.
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QString>("expected"); // as in answers(); "": followed

    // Same origin: the event endpoint only takes a POST with its body, so every redirect that
    // is followed re-sends exactly that; 303 asks for a GET elsewhere, which has no meaning for
    // an event, so it reaches the caller as a 3xx.
    for (int status : { 307, 308, 301 })
        QTest::addRow("%d same origin", status) << status << QByteArray("/moved/view") << QString();
    QTest::newRow("302 same origin absolute")
        << 302 << QByteArray("{self}/moved/view") << QString();
    QTest::newRow("303 same origin") << 303 << QByteArray("/moved/view") << u"serverError: 303"_s;
    QTest::newRow("302 without Location") << 302 << QByteArray() << u"serverError: 302"_s;
    QTest::newRow("301 without Location") << 301 << QByteArray() << u"serverError: 301"_s;
    const QString refused = u"networkError: InsecureRedirectError: *configured API origin*"_s;
    for (int status : { 302, 307, 303 })
        QTest::addRow("%d other port", status) << status << QByteArray("{other}/view") << refused;
    QTest::newRow("307 other host")
        << 307 << QByteArray("http://localhost:{port}/moved/view") << refused;
    QTest::newRow("308 other scheme")
        << 308 << QByteArray("https://127.0.0.1:{port}/moved/view") << refused;
    QTest::newRow("loop") << 307 << QByteArray("/app_events/view")
                          << u"networkError: TooManyRedirectsError*"_s;
}

void tst_APIClient::apiRedirects()
{
    QFETCH(int, status);
    QFETCH(QByteArray, location);
    QFETCH(QString, expected);
    HttpServer other;
    QVERIFY(other.listen());
    other.setDefaultResponse(Response::json(okBody));
    location.replace("{other}", other.baseUrl().toString().toUtf8());
    location.replace("{self}", m_server.baseUrl().toString().toUtf8());
    location.replace("{port}", QByteArray::number(m_server.port()));

    const QString host = serve(Response());
    m_server.setResponse(u"/app_events/view"_s,
                         location.isEmpty() ? Response::withStatus(status)
                                            : Response::redirect(status, location));
    m_server.setResponse(u"/moved/view"_s, Response::json(okBody));
    APIClient client;
    const auto reply = view(client, host,
                            { { u"x-api-key"_s, u"secret"_s },
                              { u"tenant-id"_s, u"t"_s },
                              { u"content-type"_s, u"application/json"_s } });
    VERIFY_OUTCOME(reply, expected);
    QCOMPARE(other.requestCount(), 0); // the key never leaves the API origin

    const auto requests = m_server.requests();
    const auto &last = requests.last();
    if (expected.contains(u"TooMany"_s))
        QVERIFY(requests.size() > 1 && requests.size() < 20);
    else if (!expected.isEmpty())
        QCOMPARE(requests.size(), 1);
    else // followed: the same POST, body, key and content type, to the new place
        QCOMPARE((QList<QByteArray> { QByteArray::number(requests.size()), last.target.toUtf8(),
                                      last.method, last.body, last.header("x-api-key"),
                                      last.header("content-type") }),
                 (QList<QByteArray> { "2", "/moved/view", "POST", requests.first().body, "secret",
                                      "application/json" }));
}

QTEST_GUILESS_MAIN(tst_APIClient)
#include "tst_apiclient.moc"
