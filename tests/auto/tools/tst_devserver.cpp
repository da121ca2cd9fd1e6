#include "devserver.h"
#include "devserveroptions.h"
#include "network/apiclient.h"
#include <VelmoraInAppMessaging/singlemessagecreative.h>

#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QSslCertificate>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace velmora;
using namespace velmora::devserver;

namespace {

using Headers = QList<std::pair<QByteArray, QByteArray>>;

const Headers credentials { { "x-api-key", "key" }, { "tenant-id", "tenant" } };

struct Reply
{
    int status = 0; // 0: no HTTP answer at all
    QByteArray body;
    QNetworkReply *raw = nullptr; // deleted with the manager's children
};

// A view event, or a reaction event when `reaction` is given.
QByteArray apiEvent(const QString &screen, const QString &customerId = {},
                    const QString &reaction = {})
{
    const QString customer = customerId.isNull() ? u"null"_s : u'"' + customerId + u'"';
    return (uR"({"meta":{"customer_id":%1,"screen_name":"%2"},)"_s.arg(customer, screen)
            + (reaction.isEmpty() ? uR"("custom":[]})"_s
                                  : uR"("reaction":"%1","scenario_id":"s1"})"_s.arg(reaction)))
        .toUtf8();
}

const QByteArray click = apiEvent(u"home"_s, {}, u"click"_s);

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray campaign(const QByteArray &scenario)
{
    return R"({"status":"ok","actions":[{"meta":{"scenario_id":")" + scenario
        + R"(","updated_at":"2026-01-01T00:00:00Z","action_type":"popup_banner"},"creative":)"
          R"({"image":{"url":"{{base}}/images/pic.png"}},"layout":{"location":"bottom_left"}}]})";
}

} // namespace

class tst_DevServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void options_data();
    void options();
    void requestChecks_data();
    void requestChecks();
    void campaignSelection_data();
    void campaignSelection();
    void failureInjection_data();
    void failureInjection();
    void filesOnlyFromTheCampaignsFolderOverHttps();
    void sampleCampaignsThroughTheLibrary();
    void binaryStopsOnSigterm();

private:
    std::unique_ptr<DevServer> startServer(Options options = {});
    Reply send(const QByteArray &method, const QUrl &url, const QByteArray &body = {},
               const Headers &headers = credentials);
    Reply post(DevServer &server, const QString &endpoint, const QByteArray &body,
               const Headers &headers = credentials)
    {
        return send("POST", QUrl(server.apiHost() + u"/app_events/"_s + endpoint), body, headers);
    }

    QTemporaryDir m_dir;
    QString m_campaigns;
    QString m_state;
    QByteArray m_caPem;
    QNetworkAccessManager m_manager;
};

void tst_DevServer::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_campaigns = m_dir.filePath(u"campaigns"_s);
    m_state = m_dir.filePath(u"state"_s);
    writeFile(m_campaigns + u"/home.json"_s, campaign("home-1"));
    writeFile(m_campaigns + u"/default.json"_s, campaign("fallback"));
    writeFile(m_campaigns + u"/.secret"_s, "hidden");
    writeFile(m_dir.filePath(u"outside.txt"_s), "outside");
    QVERIFY(QFile::link(m_dir.filePath(u"outside.txt"_s), m_campaigns + u"/linked.txt"_s));
    QImage image(8, 4, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(QDir().mkpath(m_campaigns + u"/images"_s));
    QVERIFY(image.save(m_campaigns + u"/images/pic.png"_s));

    // Makes the certificate once; every later server, the binary too, must reuse it.
    auto server = startServer();
    QVERIFY(server);
    QFile pem(server->caFile());
    QVERIFY(pem.open(QIODevice::ReadOnly));
    m_caPem = pem.readAll();
    const QList<QSslCertificate> ca = QSslCertificate::fromData(m_caPem);
    QCOMPARE(ca.size(), 1);
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.addCaCertificates(ca);
    QSslConfiguration::setDefaultConfiguration(tls);
}

std::unique_ptr<DevServer> tst_DevServer::startServer(Options options)
{
    if (options.campaignsDir.isEmpty())
        options.campaignsDir = m_campaigns;
    if (options.stateDir.isEmpty())
        options.stateDir = m_state;
    auto server = std::make_unique<DevServer>(options);
    QString error;
    if (!server->start(&error)) {
        qWarning("%ls", qUtf16Printable(error));
        return nullptr;
    }
    return server;
}

Reply tst_DevServer::send(const QByteArray &method, const QUrl &url, const QByteArray &body,
                          const Headers &headers)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    Reply reply;
    reply.raw = m_manager.sendCustomRequest(request, method, body);
    QSignalSpy finished(reply.raw, &QNetworkReply::finished);
    if (!finished.wait(15000))
        return reply;
    reply.status = reply.raw->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    reply.body = reply.raw->readAll();
    return reply;
}

void tst_DevServer::options_data()
{
    QTest::addColumn<QString>("arguments");
    // Accepted: "<base path> <failure fraction>"; refused: a piece of the message.
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *name, const QString &arguments, const QString &expected) {
        QTest::newRow(name) << u"--campaigns . --state s "_s + arguments << expected;
    };
    row("defaults", {}, u"/vorpex/v1 1"_s);
    row("base path normalised", u"--base-path api/v2//"_s, u"/api/v2 1"_s);
    row("fraction with a status", u"--fail-status 503 --fail-fraction 0.25"_s,
        u"/vorpex/v1 0.25"_s);
    QTest::newRow("no campaigns") << QString() << u"--campaigns DIR is required"_s;
    QTest::newRow("campaigns not a folder") << u"--campaigns /no/such/dir"_s << u"not a folder"_s;
    row("fraction alone", u"--fail-fraction 0.5"_s, u"need --fail-status or --fail-drop"_s);
    row("status and drop", u"--fail-status 500 --fail-drop"_s, u"exclude each other"_s);
    row("fraction above 1", u"--fail-drop --fail-fraction 1.5"_s, u"from 0 to 1"_s);
    row("status not a status", u"--fail-status 42"_s, u"--fail-status must"_s);
    row("unknown endpoint", u"--fail-drop --fail-only images"_s, u"\"view\" or \"reaction\""_s);
    row("same ports", u"--port 8080 --https-port 8080"_s, u"must differ"_s);
    row("stray argument", u"extra"_s, u"\"extra\""_s);
}

void tst_DevServer::options()
{
    QFETCH(QString, arguments);
    QFETCH(QString, expected);

    QCommandLineParser parser;
    addOptions(parser);
    QVERIFY(parser.parse(QStringList { u"prog"_s } + arguments.split(u' ', Qt::SkipEmptyParts)));
    QString message;
    if (const auto options = optionsFromParser(parser, u"/default/state"_s, &message))
        QCOMPARE(options->basePath + u' ' + QString::number(options->failure.fraction), expected);
    else
        QVERIFY2(message.contains(expected), qPrintable(message));
}

void tst_DevServer::requestChecks_data()
{
    QTest::addColumn<bool>("credentialsRequired"); // x-api-key "key", tenant-id "tenant"
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("endpoint");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<Headers>("sent"); // with the ids the client kept from earlier answers
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("visitorId"); // empty: a newly issued one
    QTest::addColumn<QByteArray>("customerHeader"); // empty: none

    const auto row
        = [](const char *name, bool required, const QString &endpoint, const QByteArray &body,
             const Headers &sent, int status, const QByteArray &visitor = {},
             const QByteArray &customer = {}, const QByteArray &method = "POST") {
              QTest::newRow(name) << required << method << endpoint << body << sent << status
                                  << visitor << customer;
          };
    const QByteArray view = apiEvent(u"home"_s);
    row("credentials match", true, u"view"_s, view, credentials, 200);
    row("nothing required", false, u"reaction"_s, click, {}, 200);
    row("key differs in case", true, u"reaction"_s, click,
        { { "x-api-key", "KEY" }, { "tenant-id", "tenant" } }, 401);
    row("wrong tenant", true, u"view"_s, view, { { "x-api-key", "key" }, { "tenant-id", "x" } },
        403);
    row("both wrong: key first", true, u"reaction"_s, click,
        { { "x-api-key", "x" }, { "tenant-id", "y" } }, 401);
    row("upper-case reaction", false, u"reaction"_s, apiEvent(u"home"_s, {}, u"CLOSE"_s), {}, 400);
    row("reaction without scenario", false, u"reaction"_s,
        R"({"meta":{"screen_name":"home"},"reaction":"open"})", {}, 400);
    row("not JSON", false, u"view"_s, "screen=home", {}, 400);
    row("GET", false, u"view"_s, {}, {}, 405, {}, {}, "GET");

    const QByteArray alice = QCryptographicHash::hash("alice", QCryptographicHash::Sha256).toHex();
    const QByteArray aliceView = apiEvent(u"home"_s, u"alice"_s);
    row("customer id hashed", false, u"view"_s, aliceView, {}, 200, {}, alice);
    row("stored ids echoed on a reaction", false, u"reaction"_s, apiEvent(u"home"_s, {}, u"open"_s),
        { { "x-vorpex-visitor-id", "v-1" }, { "x-vorpex-customer-id", "hashed" } }, 200, "v-1",
        "hashed");
    row("customer id beats the stored hash", false, u"view"_s, aliceView,
        { { "x-vorpex-customer-id", "old" } }, 200, {}, alice);
    row("empty stored id is no id", false, u"view"_s, view, { { "x-vorpex-visitor-id", "" } }, 200);
}

void tst_DevServer::requestChecks()
{
    QFETCH(bool, credentialsRequired);
    QFETCH(QByteArray, method);
    QFETCH(QString, endpoint);
    QFETCH(QByteArray, body);
    QFETCH(Headers, sent);
    QFETCH(QByteArray, visitorId);

    Options options;
    if (credentialsRequired) {
        options.apiKey = u"key"_s;
        options.tenant = u"tenant"_s;
    }
    auto server = startServer(options);
    QVERIFY(server);
    const Reply reply
        = send(method, QUrl(server->apiHost() + u"/app_events/"_s + endpoint), body, sent);
    QTEST(reply.status, "status");
    const QByteArray visitor = reply.raw->rawHeader("x-vorpex-visitor-id");
    // A refused request gets no identity: it never reached the back end proper.
    if (reply.status != 200)
        QVERIFY2(!reply.raw->hasRawHeader("x-vorpex-visitor-id"), visitor.constData());
    else if (visitorId.isEmpty())
        QVERIFY2(!QUuid::fromString(QLatin1StringView(visitor)).isNull(), visitor.constData());
    else
        QCOMPARE(visitor, visitorId);
    QTEST(reply.raw->rawHeader("x-vorpex-customer-id"), "customerHeader");
}

void tst_DevServer::campaignSelection_data()
{
    QTest::addColumn<QString>("screen");
    QTest::addColumn<bool>("withDefault");
    QTest::addColumn<QString>("scenario"); // of the only action; empty: no actions

    QTest::newRow("own file") << u"home"_s << true << u"home-1"_s;
    QTest::newRow("no file: default") << u"cart"_s << true << u"fallback"_s;
    // From the campaigns folder this path reaches home.json, which a plain name never does.
    QTest::newRow("path in the name") << u"../campaigns/home"_s << true << u"fallback"_s;
    QTest::newRow("no default") << u"cart"_s << false << QString();
}

void tst_DevServer::campaignSelection()
{
    QFETCH(QString, screen);
    QFETCH(bool, withDefault);
    QFETCH(QString, scenario);

    QTemporaryDir withoutDefault;
    QVERIFY(QFile::copy(m_campaigns + u"/home.json"_s, withoutDefault.filePath(u"home.json"_s)));
    Options options;
    options.campaignsDir = withDefault ? m_campaigns : withoutDefault.path();
    auto server = startServer(options);
    QVERIFY(server);

    const Reply reply = post(*server, u"view"_s, apiEvent(screen));
    QCOMPARE(reply.status, 200);
    const QJsonArray actions = QJsonDocument::fromJson(reply.body)["actions"_L1].toArray();
    QCOMPARE(actions.size(), scenario.isEmpty() ? 0 : 1);
    if (!scenario.isEmpty()) {
        QCOMPARE(actions[0]["meta"_L1]["scenario_id"_L1].toString(), scenario);
        QCOMPARE(actions[0]["creative"_L1]["image"_L1]["url"_L1].toString(),
                 server->imageBase() + u"/images/pic.png"_s);
    }
}

void tst_DevServer::failureInjection_data()
{
    QTest::addColumn<int>("status"); // 0: drop the connection, so no HTTP answer
    QTest::addColumn<int>("only"); // -1: both endpoints
    QTest::addColumn<double>("fraction");
    // Per request, views and reactions taking turns: 'x' failed on purpose, '.' met the key
    // check. Empty: a mix of both, the same from the same seed.
    QTest::addColumn<QString>("expected");

    QTest::newRow("status everywhere") << 503 << -1 << 1.0 << u"xxxx"_s;
    QTest::newRow("status on reactions") << 503 << int(Endpoint::Reaction) << 1.0 << u".x.x"_s;
    QTest::newRow("drop on views") << 0 << int(Endpoint::View) << 1.0 << u"x.x."_s;
    QTest::newRow("half of them") << 500 << -1 << 0.5 << QString();
}

void tst_DevServer::failureInjection()
{
    QFETCH(int, status);
    QFETCH(int, only);
    QFETCH(double, fraction);
    QFETCH(QString, expected);

    const auto pattern = [&] {
        Options options;
        options.apiKey = u"key"_s;
        if (status)
            options.failure.status = status;
        options.failure.drop = status == 0;
        options.failure.fraction = fraction;
        if (only >= 0)
            options.failure.only = Endpoint(only);
        options.seed = 7;
        auto server = startServer(options);
        QString result;
        for (int i = 0; server && i < (expected.isEmpty() ? 16 : expected.size()); ++i) {
            // Sent without a key: a failure on purpose comes first, as one from the
            // infrastructure in front of a back end would.
            const Reply reply = i % 2 ? post(*server, u"reaction"_s, click, {})
                                      : post(*server, u"view"_s, apiEvent(u"home"_s), {});
            result += reply.status == status ? u'x' : reply.status == 401 ? u'.' : u'?';
            if (reply.raw->hasRawHeader("x-vorpex-visitor-id"))
                result += u'!';
        }
        return result;
    };
    const QString first = pattern();
    if (!expected.isEmpty()) {
        QCOMPARE(first, expected);
        return;
    }
    QVERIFY2(first.size() == 16 && first.contains(u'x') && first.contains(u'.'), qPrintable(first));
    QCOMPARE(pattern(), first);
}

void tst_DevServer::filesOnlyFromTheCampaignsFolderOverHttps()
{
    auto server = startServer();
    QVERIFY(server);
    const QString https = server->imageBase();
    const Reply image = send("GET", QUrl(https + u"/images/pic.png"_s));
    QCOMPARE(QImage::fromData(image.body).size(), QSize(8, 4));
    const QStringList refused { u"http://127.0.0.1:"_s + QString::number(server->port())
                                    + u"/images/pic.png"_s,
                                https + u"/images/%2e%2e/%2e%2e/outside.txt"_s,
                                https + u"/linked.txt"_s, https + u"/.secret"_s,
                                https + u"/images"_s };
    for (const QString &url : refused)
        QVERIFY2(send("GET", QUrl(url, QUrl::StrictMode)).status == 404, qPrintable(url));
}

void tst_DevServer::sampleCampaignsThroughTheLibrary()
{
    Options options;
    options.campaignsDir = QStringLiteral(VELMORA_SAMPLE_CAMPAIGNS);
    auto server = startServer(options);
    QVERIFY(server);

    QSet<QString> images;
    APIClient client;
    const QStringList screens = server->campaignScreens() + QStringList { u"not-a-campaign"_s };
    for (qsizetype i = 0; i < screens.size(); ++i) {
        // The API answers on both ports.
        const QString host = i % 2 ? server->httpsApiHost() : server->apiHost();
        std::optional<Expected<ViewEventsReply, APIFailure>> view;
        client.viewEvents({ { std::nullopt, false, screens[i], 1 }, {} }, host,
                          { { u"content-type"_s, u"application/json"_s } },
                          [&](auto reply) { view.emplace(std::move(reply)); });
        QTRY_VERIFY_WITH_TIMEOUT(view, 15000);
        QVERIFY2(view->hasValue(), qPrintable(screens[i]));
        QFile file(options.campaignsDir + u'/' + screens[i] + u".json"_s);
        if (screens[i] != u"tolerance" && file.open(QIODevice::ReadOnly)) {
            // Every sample but the one about tolerance decodes without losing an action.
            const QJsonArray raw = QJsonDocument::fromJson(file.readAll())["actions"_L1].toArray();
            QCOMPARE(view->value().response.actions.size(), raw.size());
        }
        for (const InAppMessageAction &action : view->value().response.actions) {
            if (const auto *creative = action.contents.creative();
                creative && !creative->image.url.isEmpty())
                images.insert(creative->image.url);
        }
    }
    for (const QString &url : std::as_const(images)) {
        QVERIFY2(url.startsWith(server->imageBase() + u'/'), qPrintable(url));
        const Reply image = send("GET", QUrl(url));
        QCOMPARE(image.status, 200);
        QVERIFY2(!QImage::fromData(image.body).isNull(), qPrintable(url));
    }
}

void tst_DevServer::binaryStopsOnSigterm()
{
    QProcess process;
    process.start(QStringLiteral(VELMORA_DEVSERVER_BINARY),
                  { u"--campaigns"_s, m_campaigns, u"--state"_s, m_state, u"--fail-status"_s,
                    u"502"_s, u"--fail-only"_s, u"reaction"_s, u"--latency"_s, u"300"_s });
    QVERIFY(process.waitForStarted());
    // Scripts wait for "api-host: ", the last line of the startup block.
    QStringList lines;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            while (process.canReadLine())
                lines.append(QString::fromUtf8(process.readLine()).trimmed());
            return !lines.isEmpty() && lines.constLast().startsWith(u"api-host: "_s);
        }(),
        15000);
    const QString caFile = m_state + u"/tls/cert.pem"_s;
    QVERIFY2(lines.contains(u"ca-file: "_s + caFile), qPrintable(lines.join(u'\n')));
    // Hosts trust the file once, so a restart must not replace it.
    QFile pem(caFile);
    QVERIFY(pem.open(QIODevice::ReadOnly));
    QCOMPARE(pem.readAll(), m_caPem);

    QElapsedTimer timer;
    timer.start();
    const QUrl reaction(lines.constLast().mid(10) + u"/app_events/reaction"_s);
    QCOMPARE(send("POST", reaction, click).status, 502);
    QVERIFY(timer.elapsed() >= 300);

    ::kill(pid_t(process.processId()), SIGTERM);
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardOutput().trimmed().split('\n').constLast(),
             QByteArray("stopped"));
}

QTEST_GUILESS_MAIN(tst_DevServer)
#include "tst_devserver.moc"
