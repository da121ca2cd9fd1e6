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
#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

const QByteArray okBody = R"({"status": "ok", "actions": []})";

EventsViewRequest viewRequest()
{
    return { { std::nullopt, false, u"home"_s, 1 }, {} };
}

template<typename T> struct Waiter
{
    std::optional<Expected<T, APIFailure>> result;
    auto completion()
    {
        return [this](Expected<T, APIFailure> r) { result.emplace(std::move(r)); };
    }
    bool wait(int timeoutMs = 10000)
    {
        QElapsedTimer timer;
        timer.start();
        while (!result && timer.elapsed() < timeoutMs)
            QTest::qWait(5);
        return result.has_value();
    }
};

std::optional<VelmoraError> velmoraError(const APIFailure &failure)
{
    if (const auto *e = std::get_if<VelmoraError>(&failure))
        return *e;
    return std::nullopt;
}

} // namespace

class tst_APIClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void postsBodyAndHeaders();
    void headerSet();
    void urlIsPlainConcatenation();
    void invalidURL();
    void encodingFailure();
    void status_data();
    void status();
    void responseHeadersNormalised();
    void undecodableBody_data();
    void undecodableBody();
    void timeouts_data();
    void timeouts();
    void cancellation();
    void https();
    void redirectGuard_data();
    void redirectGuard();
    void apiRedirects_data();
    void apiRedirects();
    void contentDecodingFailure_data();
    void contentDecodingFailure();
    void responseSizeLimit_data();
    void responseSizeLimit();
    void headerValuesCannotInjectHeaders();

private:
    HttpServer m_server;
    QTemporaryDir m_dir;
};

void tst_APIClient::initTestCase()
{
    QVERIFY(m_server.listen());
}

void tst_APIClient::postsBodyAndHeaders()
{
    m_server.clear();
    m_server.setResponse(u"/vorpex/v1/app_events/view"_s,
                         Response::json(okBody).header("X-Vorpex-Visitor-Id", "v-1"));
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    EventsViewRequest request { { u"cust"_s, true, u"home"_s, 42 }, { { u"k"_s, { qint64(1) } } } };
    client.viewEvents(request, m_server.baseUrl().toString() + u"/vorpex/v1"_s,
                      { { u"x-api-key"_s, u"key"_s },
                        { u"tenant-id"_s, QString() },
                        { u"x-vorpex-visitor-id"_s, std::nullopt } },
                      waiter.completion());
    QVERIFY(waiter.wait());
    QVERIFY(waiter.result->hasValue());
    QCOMPARE(waiter.result->value().headers.value(u"x-vorpex-visitor-id"_s), u"v-1"_s);

    QCOMPARE(m_server.requestCount(), 1);
    const auto recorded = m_server.lastRequest();
    QCOMPARE(recorded.method, QByteArray("POST"));
    QCOMPARE(recorded.target, u"/vorpex/v1/app_events/view"_s);
    QCOMPARE(recorded.header("x-api-key"), QByteArray("key"));
    QVERIFY(recorded.hasHeader("tenant-id")); // sent even when empty
    QCOMPARE(recorded.header("tenant-id"), QByteArray());
    QVERIFY(!recorded.hasHeader("x-vorpex-visitor-id"));
    const QJsonObject body = recorded.json().object();
    QCOMPARE(body.value(u"meta").toObject().value(u"customer_id"), QJsonValue(u"cust"_s));
    QCOMPARE(body.value(u"custom").toArray().size(), 1);
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

void tst_APIClient::urlIsPlainConcatenation()
{
    m_server.clear();
    m_server.setDefaultResponse(Response::json(okBody));
    APIClient client;
    Waiter<ResponseHeaders> waiter;
    client.reactionEvents({ {}, EventsReactionType::Click, u"s"_s },
                          m_server.baseUrl().toString() + u"/v1/"_s, {}, waiter.completion());
    QVERIFY(waiter.wait());
    QVERIFY(waiter.result->hasValue());
    QCOMPARE(m_server.lastRequest().target, u"/v1//app_events/reaction"_s);
}

void tst_APIClient::invalidURL()
{
    m_server.clear();
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    client.viewEvents(viewRequest(), u"http://exa mple.com"_s, {}, waiter.completion());
    QVERIFY(waiter.wait());
    const auto error = velmoraError(waiter.result->error());
    QVERIFY(error);
    QCOMPARE(error->kind(), VelmoraError::Kind::Precondition);
    QCOMPARE(
        error->message(),
        u"Failed to build a valid URL from apiHost + path: \"http://exa mple.com/app_events/view\". "_s
        u"Check the apiHost passed to VelmoraInAppMessaging::shared().setup()."_s);
    QCOMPARE(m_server.requestCount(), 0);
}

void tst_APIClient::encodingFailure()
{
    m_server.clear();
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    EventsViewRequest request = viewRequest();
    request.custom = { { u"ratio"_s, { qQNaN() } } };
    client.viewEvents(request, m_server.baseUrl().toString(), {}, waiter.completion());
    QVERIFY(waiter.wait());
    const auto error = velmoraError(waiter.result->error());
    QVERIFY(error);
    QCOMPARE(error->kind(), VelmoraError::Kind::Precondition);
    QVERIFY2(error->message().startsWith(u"Failed to encode request data for EventsViewRequest("_s),
             qPrintable(error->message()));
    QVERIFY(error->message().contains(u"): "_s));
    QCOMPARE(m_server.requestCount(), 0);
}

void tst_APIClient::status_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("kind"); // -1: success
    const int client = int(VelmoraError::Kind::ClientError);
    const int server = int(VelmoraError::Kind::ServerError);
    QTest::newRow("101") << 101 << server;
    QTest::newRow("200") << 200 << -1;
    QTest::newRow("204") << 204 << -1;
    QTest::newRow("299") << 299 << -1;
    QTest::newRow("304") << 304 << server;
    QTest::newRow("399") << 399 << server;
    QTest::newRow("400") << 400 << client;
    QTest::newRow("404") << 404 << client;
    QTest::newRow("499") << 499 << client;
    QTest::newRow("500") << 500 << server;
    QTest::newRow("503") << 503 << server;
    QTest::newRow("599") << 599 << server;
    QTest::newRow("600") << 600 << server;
}

void tst_APIClient::status()
{
    QFETCH(int, status);
    QFETCH(int, kind);
    m_server.clear();
    m_server.setDefaultResponse(Response::withStatus(status, "{}"));
    APIClient client;
    Waiter<ResponseHeaders> waiter;
    client.reactionEvents({}, m_server.baseUrl().toString(), {}, waiter.completion());
    QVERIFY(waiter.wait());
    if (kind < 0) {
        QVERIFY(waiter.result->hasValue());
        return;
    }
    const auto error = velmoraError(waiter.result->error());
    QVERIFY(error);
    QCOMPARE(int(error->kind()), kind);
    QCOMPARE(error->statusCode(), std::optional(status));
}

void tst_APIClient::responseHeadersNormalised()
{
    const auto headers = APIClient::normalizeHeaders({ { "X-Vorpex-Visitor-ID", "first" },
                                                       { "x-vorpex-visitor-id", "second" },
                                                       { "Content-Type", "application/json" },
                                                       { "bad\xff", "v" },
                                                       { "x-bad-value", "\xc3\x28" } });
    QCOMPARE(headers.value(u"x-vorpex-visitor-id"_s), u"second"_s);
    QCOMPARE(headers.value(u"content-type"_s), u"application/json"_s);
    QCOMPARE(headers.size(), 2);
}

void tst_APIClient::undecodableBody_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("html") << QByteArray("<html>oops</html>");
    QTest::newRow("no actions") << QByteArray(R"({"status": "ok"})");
}

void tst_APIClient::undecodableBody()
{
    QFETCH(QByteArray, body);
    m_server.clear();
    m_server.setDefaultResponse(Response::json(body));
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    client.viewEvents(viewRequest(), m_server.baseUrl().toString(), {}, waiter.completion());
    QVERIFY(waiter.wait());
    QVERIFY(!waiter.result->hasValue());
    QVERIFY(std::holds_alternative<DecodingError>(waiter.result->error()));
    const VelmoraError host = toVelmoraError(waiter.result->error());
    QCOMPARE(host.kind(), VelmoraError::Kind::NetworkError);
    QCOMPARE(host.underlyingError()->domain(), UnderlyingError::Domain::Decoding);
    QVERIFY(!isCancellation(waiter.result->error()));
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
    m_server.clear();
    m_server.setDefaultResponse(response);
    APIClient client;
    client.setTimeouts({ std::chrono::milliseconds(600), std::chrono::milliseconds(300),
                         std::chrono::milliseconds(400) });
    Waiter<ViewEventsReply> waiter;
    QElapsedTimer timer;
    timer.start();
    client.viewEvents(viewRequest(), m_server.baseUrl().toString(), {}, waiter.completion());
    QVERIFY(waiter.wait());
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
    const auto error = velmoraError(waiter.result->error());
    QVERIFY(error);
    QCOMPARE(error->kind(), VelmoraError::Kind::NetworkError);
    QCOMPARE(error->underlyingError()->networkCode(), QNetworkReply::TimeoutError);
    QVERIFY(!isCancellation(*error));
}

void tst_APIClient::cancellation()
{
    m_server.clear();
    m_server.setDefaultResponse(Response::hang());
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    QPointer<APICall> call
        = client.viewEvents(viewRequest(), m_server.baseUrl().toString(), {}, waiter.completion());
    QTRY_COMPARE(m_server.requestCount(), 1);
    call->cancel();
    QVERIFY(!waiter.result); // delivered later, not inside cancel()
    QVERIFY(waiter.wait());
    QVERIFY(isCancellation(waiter.result->error()));
    QTRY_VERIFY(call.isNull()); // a finished call cleans itself up

    // Cancellation is recognised through a network error that wraps one.
    const VelmoraError cancelled = toVelmoraError(waiter.result->error());
    QVERIFY(isCancellation(VelmoraError::networkError(UnderlyingError::wrapping(cancelled))));
    QVERIFY(isCancellation(VelmoraError::networkError(UnderlyingError::cancellation())));
    QVERIFY(!isCancellation(
        VelmoraError::networkError(UnderlyingError::wrapping(VelmoraError::serverError(500)))));
}

void tst_APIClient::https()
{
    const auto *certificate = loopback::Certificate::shared();
    QVERIFY(certificate);
    HttpServer secure;
    QVERIFY(secure.listen(HttpServer::Mode::Https));
    secure.setDefaultResponse(Response::json(okBody));

    APIClient untrusting;
    Waiter<ViewEventsReply> refused;
    untrusting.viewEvents(viewRequest(), secure.baseUrl().toString(), {}, refused.completion());
    QVERIFY(refused.wait());
    const auto error = velmoraError(refused.result->error());
    QVERIFY(error && error->kind() == VelmoraError::Kind::NetworkError);

    const QSslConfiguration previous = QSslConfiguration::defaultConfiguration();
    QSslConfiguration::setDefaultConfiguration(certificate->clientConfiguration());
    APIClient trusting;
    Waiter<ViewEventsReply> accepted;
    trusting.viewEvents(viewRequest(), secure.baseUrl().toString(), {}, accepted.completion());
    QVERIFY(accepted.wait());
    QSslConfiguration::setDefaultConfiguration(previous);
    QVERIFY(accepted.result->hasValue());
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
    QTest::addColumn<QString>("outcome"); // followed, serverError, refused, tooMany

    // Same origin: the event endpoint only takes a POST with its body, so every redirect that
    // is followed re-sends exactly that; 303 asks for a GET elsewhere, which has no meaning for
    // an event, so it reaches the caller as a 3xx.
    QTest::newRow("307 same origin") << 307 << QByteArray("/moved/view") << u"followed"_s;
    QTest::newRow("308 same origin") << 308 << QByteArray("/moved/view") << u"followed"_s;
    QTest::newRow("301 same origin") << 301 << QByteArray("/moved/view") << u"followed"_s;
    QTest::newRow("302 same origin absolute")
        << 302 << QByteArray("{self}/moved/view") << u"followed"_s;
    QTest::newRow("303 same origin") << 303 << QByteArray("/moved/view") << u"serverError"_s;
    QTest::newRow("302 without Location") << 302 << QByteArray() << u"serverError"_s;
    QTest::newRow("301 without Location") << 301 << QByteArray() << u"serverError"_s;
    QTest::newRow("302 other port") << 302 << QByteArray("{other}/view") << u"refused"_s;
    QTest::newRow("307 other port") << 307 << QByteArray("{other}/view") << u"refused"_s;
    QTest::newRow("303 other port") << 303 << QByteArray("{other}/view") << u"refused"_s;
    QTest::newRow("307 other host")
        << 307 << QByteArray("http://localhost:{port}/moved/view") << u"refused"_s;
    QTest::newRow("308 other scheme")
        << 308 << QByteArray("https://127.0.0.1:{port}/moved/view") << u"refused"_s;
    QTest::newRow("loop") << 307 << QByteArray("/app_events/view") << u"tooMany"_s;
}

void tst_APIClient::apiRedirects()
{
    QFETCH(int, status);
    QFETCH(QByteArray, location);
    QFETCH(QString, outcome);
    HttpServer other;
    QVERIFY(other.listen());
    other.setDefaultResponse(Response::json(okBody));
    location.replace("{other}", other.baseUrl().toString().toUtf8());
    location.replace("{self}", m_server.baseUrl().toString().toUtf8());
    location.replace("{port}", QByteArray::number(m_server.port()));

    m_server.clear();
    m_server.clearRoutes();
    m_server.setResponse(u"/app_events/view"_s,
                         location.isEmpty() ? Response::withStatus(status)
                                            : Response::redirect(status, location));
    m_server.setResponse(u"/moved/view"_s, Response::json(okBody));
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    client.viewEvents(viewRequest(), m_server.baseUrl().toString(),
                      { { u"x-api-key"_s, u"secret"_s },
                        { u"tenant-id"_s, u"t"_s },
                        { u"content-type"_s, u"application/json"_s } },
                      waiter.completion());
    QVERIFY(waiter.wait());
    QCOMPARE(other.requestCount(), 0); // the key never leaves the API origin

    const auto requests = m_server.requests();
    if (outcome == u"followed") {
        if (!waiter.result->hasValue())
            QFAIL(qPrintable(toVelmoraError(waiter.result->error()).description()));
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests.at(1).target, u"/moved/view"_s);
        QCOMPARE(requests.at(1).method, QByteArray("POST"));
        QCOMPARE(requests.at(1).body, requests.at(0).body);
        QCOMPARE(requests.at(1).header("x-api-key"), QByteArray("secret"));
        QCOMPARE(requests.at(1).header("content-type"), QByteArray("application/json"));
        return;
    }
    QVERIFY(!waiter.result->hasValue());
    const auto error = velmoraError(waiter.result->error());
    QVERIFY(error);
    if (outcome == u"serverError") {
        QCOMPARE(requests.size(), 1);
        QCOMPARE(error->kind(), VelmoraError::Kind::ServerError);
        QCOMPARE(error->statusCode(), std::optional(status));
    } else if (outcome == u"refused") {
        QCOMPARE(requests.size(), 1);
        QCOMPARE(error->kind(), VelmoraError::Kind::NetworkError);
        QCOMPARE(error->underlyingError()->networkCode(), QNetworkReply::InsecureRedirectError);
        QVERIFY2(error->underlyingError()->description().contains(u"configured API origin"_s),
                 qPrintable(error->underlyingError()->description()));
    } else {
        QCOMPARE(error->kind(), VelmoraError::Kind::NetworkError);
        QCOMPARE(error->underlyingError()->networkCode(), QNetworkReply::TooManyRedirectsError);
        QVERIFY(requests.size() > 1 && requests.size() < 20);
    }
}

void tst_APIClient::contentDecodingFailure_data()
{
    QTest::addColumn<Response>("response");
    QTest::newRow("not gzip")
        << Response::json("{\"actions\": []}").header("Content-Encoding", "gzip");
    // 64 MB of zeros in 64 kB: Qt stops decompressing it, which must not read as success.
    QTest::newRow("deflate bomb") << Response::json(
                                         qCompress(QByteArray(64 * 1024 * 1024, '\0'), 9).mid(4))
                                         .header("Content-Encoding", "deflate");
}

void tst_APIClient::contentDecodingFailure()
{
    QFETCH(Response, response);
    m_server.clear();
    m_server.clearRoutes();
    m_server.setDefaultResponse(response);
    APIClient client;
    Waiter<ViewEventsReply> view;
    client.viewEvents(viewRequest(), m_server.baseUrl().toString(), {}, view.completion());
    QVERIFY(view.wait());
    Waiter<ResponseHeaders> reaction;
    client.reactionEvents({}, m_server.baseUrl().toString(), {}, reaction.completion());
    QVERIFY(reaction.wait());
    for (const auto &failure :
         { view.result->hasValue() ? std::optional<APIFailure>() : view.result->error(),
           reaction.result->hasValue() ? std::optional<APIFailure>() : reaction.result->error() }) {
        QVERIFY(failure); // not a success
        const auto error = velmoraError(*failure);
        QVERIFY(error);
        QCOMPARE(error->kind(), VelmoraError::Kind::NetworkError);
    }
}

void tst_APIClient::responseSizeLimit_data()
{
    QTest::addColumn<Response>("response");
    QTest::addColumn<bool>("accepted");
    constexpr qsizetype limit = 10 * 1024 * 1024;
    const QByteArray fits = okBody + QByteArray(limit - okBody.size(), ' ');
    const QByteArray over = fits + ' ';
    QTest::newRow("exactly 10 MiB") << Response::json(fits) << true;
    QTest::newRow("announced over") << Response::json(over) << false;
    // No length announced: only the bytes received can tell.
    QTest::newRow("unannounced over") << [&] {
        Response r = Response::json(over);
        r.omitContentLength = true;
        return r;
    }() << false;
}

void tst_APIClient::responseSizeLimit()
{
    QFETCH(Response, response);
    QFETCH(bool, accepted);
    m_server.clear();
    m_server.clearRoutes();
    m_server.setDefaultResponse(response);
    APIClient client;
    Waiter<ViewEventsReply> waiter;
    client.viewEvents(viewRequest(), m_server.baseUrl().toString(), {}, waiter.completion());
    QVERIFY(waiter.wait(20000));
    if (accepted) {
        QVERIFY(waiter.result->hasValue());
        return;
    }
    QVERIFY(!waiter.result->hasValue());
    const auto error = velmoraError(waiter.result->error());
    QVERIFY(error);
    QCOMPARE(error->kind(), VelmoraError::Kind::NetworkError);
    QVERIFY2(error->underlyingError()->description().contains(u"10485760 bytes"_s),
             qPrintable(error->underlyingError()->description()));

    // Reactions never keep their answer, whatever its size.
    Waiter<ResponseHeaders> reaction;
    client.reactionEvents({}, m_server.baseUrl().toString(), {}, reaction.completion());
    QVERIFY(reaction.wait(20000));
    QVERIFY(reaction.result->hasValue());
}

void tst_APIClient::headerValuesCannotInjectHeaders()
{
    m_server.clear();
    m_server.clearRoutes();
    m_server.setDefaultResponse(Response::json(okBody));
    APIClient client;
    Waiter<ResponseHeaders> waiter;
    client.reactionEvents({}, m_server.baseUrl().toString(),
                          { { u"x-api-key"_s, u"K\r\nX-Injected: yes"_s },
                            { u"x-vorpex-visitor-id"_s, u"v\n"_s },
                            { u"tenant-id"_s, u"t"_s } },
                          waiter.completion());
    QVERIFY(waiter.wait());
    QCOMPARE(m_server.requestCount(), 1);
    const auto request = m_server.lastRequest();
    QVERIFY(!request.hasHeader("X-Injected"));
    QVERIFY(!request.hasHeader("x-api-key"));
    QVERIFY(!request.hasHeader("x-vorpex-visitor-id"));
    QCOMPARE(request.header("tenant-id"), QByteArray("t"));
}

QTEST_GUILESS_MAIN(tst_APIClient)
#include "tst_apiclient.moc"
