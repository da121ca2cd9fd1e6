#include "httpserver/httpserver.h"
#include "network/apiclient.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QSslConfiguration>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace velmora;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

const QByteArray okBody = R"({"status": "ok", "actions": []})";
constexpr qint64 limit = 256 * 1024;

enum class Call { View, Reaction };

} // namespace

Q_DECLARE_METATYPE(Call)

// The client against servers that fail in every way the wire allows: each call must end with
// the right error, within its bound, holding no more of the body than the limit allows.
class tst_Faults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void fault_data();
    void fault();

private:
    QTemporaryDir m_dir;
    HttpServer m_plain;
    HttpServer m_secure;
    HttpServer m_untrusted;
    HttpServer m_other;
    QSslConfiguration m_previousSsl;
};

void tst_Faults::initTestCase()
{
    const Certificate *trusted = Certificate::shared();
    QVERIFY(trusted);
    const auto untrusted = Certificate::generate(m_dir.path());
    QVERIFY(untrusted);
    m_previousSsl = QSslConfiguration::defaultConfiguration();
    QSslConfiguration::setDefaultConfiguration(trusted->clientConfiguration());
    m_untrusted.setCertificate(*untrusted);
    QVERIFY(m_plain.listen());
    QVERIFY(m_secure.listen(HttpServer::Mode::Https));
    QVERIFY(m_untrusted.listen(HttpServer::Mode::Https));
    QVERIFY(m_other.listen());
    m_untrusted.setDefaultResponse(Response::json(okBody));
    m_other.setDefaultResponse(Response::json(okBody));
}

void tst_Faults::cleanupTestCase()
{
    QSslConfiguration::setDefaultConfiguration(m_previousSsl);
}

void tst_Faults::fault_data()
{
    // The API on plain HTTP when empty, "closed" for a port nothing listens on.
    QTest::addColumn<QString>("host");
    QTest::addColumn<Response>("response");
    QTest::addColumn<Call>("call");
    // The start of VelmoraError::description(); "" for success.
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<int>("boundMs");

    const QByteArray big(2 * limit, ' ');
    // Every time-out below ends at the client's 800 ms end-to-end deadline. Large bodies come
    // a moment after the request, as over any real network: the client's bound on Qt's buffer
    // reaches Qt's network thread just after the transfer starts, and on loopback an instant
    // answer can beat it. A body without a length comes in pieces: when the server closes the
    // connection Qt takes in whatever the socket still holds, bound or not.
    const int rtt = 20;
    const auto view = [](const char *name, const Response &response, const QString &outcome,
                         int boundMs = 1000, const QString &host = {}) {
        QTest::newRow(name) << host << response << Call::View << outcome << boundMs;
    };
    const auto reaction = [](const char *name, const Response &response, const QString &outcome,
                             int boundMs = 1000) {
        QTest::newRow(name) << QString() << response << Call::Reaction << outcome << boundMs;
    };
    // The API on HTTPS with a certificate the client trusts.
    const QString secure = m_secure.baseUrl().toString();
    const QByteArray plain = m_plain.baseUrl().toString().toUtf8();
    const QByteArray other = m_other.baseUrl().toString().toUtf8();
    const QString closed = u"networkError: RemoteHostClosedError"_s;
    const QString timeout = u"networkError: TimeoutError"_s;
    const QString oversized
        = u"networkError: UnknownContentError: The response body exceeds 262144 bytes"_s;
    const QString insecure = u"networkError: InsecureRedirectError"_s;
    Response unannounced = Response::json(okBody + big).delayed(rtt).trickled(32 * 1024, 1);
    unannounced.omitContentLength = true;
    view("500", Response::withStatus(500), u"serverError: 500"_s);
    reaction("503 reaction", Response::withStatus(503, big).delayed(rtt), u"serverError: 503"_s);
    view("400", Response::withStatus(400), u"clientError: 400"_s);
    view("401", Response::withStatus(401), u"clientError: 401"_s);
    view("404 with a large body", Response::withStatus(404, big).delayed(rtt),
         u"clientError: 404"_s);
    view("reset before headers", Response::reset(), closed);
    reaction("reset before headers, reaction", Response::reset(), closed);
    reaction("closed before headers", Response::drop(), closed);
    view("refused", Response(), u"networkError: ConnectionRefusedError"_s, 1000, u"closed"_s);
    view("accepted, never answered", Response::hang(), timeout, 1500);
    view("1 byte/s trickle", Response::json(okBody).trickled(1, 1000), timeout, 1500);
    reaction("1 byte/s trickle, reaction", Response::json(okBody).trickled(1, 1000), timeout, 1500);
    view("truncated body", Response::json(okBody).truncated(10), closed);
    view("oversized, announced", Response::json(okBody + big).delayed(rtt), oversized);
    view("oversized, not announced", unannounced, oversized);
    reaction("oversized, reaction", Response::json(big + big).delayed(rtt), QString());
    view("compression bomb",
         Response::json(qCompress(QByteArray(64 * 1024 * 1024, ' '), 9).mid(4))
             .header("Content-Encoding", "deflate"),
         u"networkError: UnknownContentError"_s, 1500);
    view("redirect to http", Response::redirect(302, plain + "/app_events/view"),
         insecure + u": Refused to follow a redirect from https://"_s, 1000, secure);
    reaction("redirect to another host",
             Response::redirect(302,
                                "http://localhost:" + QByteArray::number(m_other.port())
                                    + "/app_events/view"),
             insecure);
    view("redirect to another port", Response::redirect(302, other + "/app_events/view"), insecure);
    view("not JSON", Response::json("<html>busy</html>"), u"networkError: decoding error"_s);
    view("100,000-deep nesting", Response::json(QByteArray(100000, '[') + QByteArray(100000, ']')),
         u"networkError: decoding error"_s);
    // HTTPS with a certificate nobody trusts.
    view("TLS failure", Response(), u"networkError: SslHandshakeFailedError"_s, 1000,
         m_untrusted.baseUrl().toString());
    view("healthy HTTPS", Response::json(okBody), QString(), 1000, secure);
}

void tst_Faults::fault()
{
    QFETCH(QString, host);
    QFETCH(Response, response);
    QFETCH(Call, call);
    QFETCH(QString, outcome);
    QFETCH(int, boundMs);

    for (auto *s : { &m_plain, &m_secure, &m_untrusted, &m_other })
        s->clear();
    m_plain.setDefaultResponse(response);
    m_secure.setDefaultResponse(response);

    if (host.isEmpty()) {
        host = m_plain.baseUrl().toString();
    } else if (host == u"closed") {
        HttpServer closed; // closed at once, so nothing listens on its port
        QVERIFY(closed.listen());
        host = closed.baseUrl().toString();
    }

    APIClient client;
    client.setTimeouts({ 800ms, 800ms, 800ms });
    client.setLimits({ limit, 5 });
    std::optional<Expected<ResponseHeaders, APIFailure>> result;
    const auto viewDone = [&](Expected<ViewEventsReply, APIFailure> r) {
        r ? result.emplace(r.value().headers) : result.emplace(r.error());
    };
    const auto reactionDone = [&](Expected<ResponseHeaders, APIFailure> r) { result.emplace(r); };
    QElapsedTimer timer;
    timer.start();
    if (call == Call::View)
        client.viewEvents({ { std::nullopt, false, u"home"_s, 1 }, {} }, host,
                          { { u"x-api-key"_s, u"secret"_s } }, viewDone);
    else
        client.reactionEvents({ {}, EventsReactionType::Click, u"s"_s }, host,
                              { { u"x-api-key"_s, u"secret"_s } }, reactionDone);
    QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), boundMs + 5000);
    const qint64 elapsed = timer.elapsed();

    // A success has no description, so an empty outcome matches nothing else.
    const QString description
        = result->hasValue() ? QString() : toVelmoraError(result->error()).description();
    QVERIFY2(outcome.isEmpty() ? description.isEmpty() : description.startsWith(outcome),
             qPrintable(u"got \""_s + description + u'"'));
    QVERIFY2(elapsed <= boundMs, qPrintable(QString::number(elapsed) + u" ms"_s));
    // The client's own buffer (nothing for a reaction) and what Qt buffered for it, which
    // fills in socket-sized pieces and can pass its bound by one of them.
    const qint64 bound = (call == Call::View ? limit : 0) + 2 * APIClient::readBufferBytes;
    QVERIFY2(client.peakBufferedBytes() <= bound,
             qPrintable(QString::number(client.peakBufferedBytes())));
    // No request is sent twice, and the key never leaves the API's origin.
    QVERIFY(m_plain.requestCount() + m_secure.requestCount() <= 1);
    QCOMPARE(m_other.requestCount(), 0);
}

QTEST_GUILESS_MAIN(tst_Faults)
#include "tst_faults.moc"
