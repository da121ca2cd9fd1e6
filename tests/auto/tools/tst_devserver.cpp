#include "apiclient.h"
#include "devserver.h"
#include "devserveroptions.h"
#include "popupbanneraction.h"
#include "sdkconfiguration.h"
#include "singlemessagecreative.h"
#include "useridentityrepository.h"

#include <QCommandLineParser>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QSignalSpy>
#include <QSslCertificate>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <set>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace velmora;
using namespace velmora::devserver;

namespace {

using Headers = QList<std::pair<QByteArray, QByteArray>>;

struct Reply
{
    int status = 0; // 0: no HTTP answer at all
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    QByteArray body;
    QNetworkReply *raw = nullptr; // for headers; deleted with the manager's children
    QByteArray header(const QByteArray &name) const { return raw->rawHeader(name); }
    QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
};

QByteArray viewBody(const QString &screen, const QJsonValue &customerId = QJsonValue::Null)
{
    const QJsonObject meta { { u"customer_id"_s, customerId },
                             { u"strict_login"_s, false },
                             { u"screen_name"_s, screen },
                             { u"timestamp"_s, 1 } };
    return QJsonDocument(QJsonObject { { u"meta"_s, meta }, { u"custom"_s, QJsonArray() } })
        .toJson(QJsonDocument::Compact);
}

QByteArray reactionBody(const QString &reaction, const QString &scenario)
{
    const QJsonObject meta { { u"customer_id"_s, QJsonValue::Null },
                             { u"strict_login"_s, false },
                             { u"screen_name"_s, u"home"_s },
                             { u"timestamp"_s, 1 } };
    return QJsonDocument(QJsonObject { { u"meta"_s, meta },
                                       { u"reaction"_s, reaction },
                                       { u"scenario_id"_s, scenario } })
        .toJson(QJsonDocument::Compact);
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

QByteArray campaign(const QString &scenario)
{
    return (uR"({"status":"ok","actions":[{"meta":{"scenario_id":")"_s + scenario
            + uR"(","updated_at":"2026-01-01T00:00:00Z","action_type":"popup_banner"},)"_s
            + uR"("creative":{"image":{"url":"{{base}}/images/pic.png"}},)"_s
            + uR"("layout":{"location":"bottom_left"}}]})"_s)
        .toUtf8();
}

template<typename T>
std::optional<Expected<T, APIFailure>>
await(const std::function<void(std::function<void(Expected<T, APIFailure>)>)> &start)
{
    std::optional<Expected<T, APIFailure>> result;
    start([&result](Expected<T, APIFailure> r) { result.emplace(std::move(r)); });
    QElapsedTimer timer;
    timer.start();
    while (!result && timer.elapsed() < 15000)
        QTest::qWait(5);
    return result;
}

} // namespace

class tst_DevServer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void options_data();
    void options();
    void startupAndCertificate();
    void authentication_data();
    void authentication();
    void campaignSelection_data();
    void campaignSelection();
    void visitorAndCustomerIds();
    void reactions_data();
    void reactions();
    void failureInjection_data();
    void failureInjection();
    void failureFractionFollowsSeed();
    void latency();
    void files_data();
    void files();
    void libraryTalksToIt();
    void sampleCampaigns();
    void processStopsOnSignal_data();
    void processStopsOnSignal();

private:
    std::unique_ptr<DevServer> startServer(Options options = {});
    Reply send(const QByteArray &method, const QUrl &url, const QByteArray &body = {},
               const Headers &headers = { { "x-api-key", "key" }, { "tenant-id", "tenant" } });
    Reply post(DevServer &server, const QString &endpoint, const QByteArray &body,
               const Headers &headers = { { "x-api-key", "key" }, { "tenant-id", "tenant" } })
    {
        return send("POST", QUrl(server.apiHost() + u"/app_events/"_s + endpoint), body, headers);
    }

    QTemporaryDir m_dir;
    QString m_campaigns;
    QString m_state;
    QNetworkAccessManager m_manager;
    QStringList m_log;
};

void tst_DevServer::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_campaigns = m_dir.filePath(u"campaigns"_s);
    m_state = m_dir.filePath(u"state"_s);
    writeFile(m_campaigns + u"/home.json"_s, campaign(u"home-1"_s));
    writeFile(m_campaigns + u"/default.json"_s, campaign(u"fallback"_s));
    writeFile(m_campaigns + u"/broken.json"_s, "{ not json");
    QImage image(8, 4, QImage::Format_RGB32);
    image.fill(Qt::red);
    QVERIFY(QDir().mkpath(m_campaigns + u"/images"_s));
    QVERIFY(image.save(m_campaigns + u"/images/pic.png"_s));
    writeFile(m_campaigns + u"/.secret"_s, "hidden");
    writeFile(m_dir.filePath(u"outside.txt"_s), "outside");

    // Makes the certificate once; later servers load it from the state folder.
    auto server = startServer();
    QVERIFY(server);
    const QList<QSslCertificate> ca = QSslCertificate::fromPath(server->caFile());
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
    connect(server.get(), &DevServer::logLine, this, [this](const QString &l) { m_log.append(l); });
    QString error;
    if (!server->start(&error)) {
        qWarning("%ls", qUtf16Printable(error));
        return nullptr;
    }
    m_log.clear();
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
    reply.error = reply.raw->error();
    reply.body = reply.raw->readAll();
    return reply;
}

void tst_DevServer::options_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error"); // a piece of the message; empty: accepted
    QTest::addColumn<QString>("basePath");
    QTest::addColumn<double>("fraction");

    const QStringList base { u"prog"_s, u"--campaigns"_s, u"."_s, u"--state"_s, u"s"_s };
    QTest::newRow("defaults") << base << QString() << u"/vorpex/v1"_s << 1.0;
    QTest::newRow("base path normalised") << base + QStringList { u"--base-path"_s, u"api/v2//"_s }
                                          << QString() << u"/api/v2"_s << 1.0;
    QTest::newRow("fraction with a status")
        << base + QStringList { u"--fail-status"_s, u"503"_s, u"--fail-fraction"_s, u"0.25"_s }
        << QString() << u"/vorpex/v1"_s << 0.25;
    QTest::newRow("no campaigns") << QStringList { u"prog"_s } << u"--campaigns"_s << QString()
                                  << 0.0;
    QTest::newRow("campaigns not a folder")
        << QStringList { u"prog"_s, u"--campaigns"_s, u"/no/such/dir"_s } << u"not a folder"_s
        << QString() << 0.0;
    QTest::newRow("fraction alone") << base + QStringList { u"--fail-fraction"_s, u"0.5"_s }
                                    << u"need --fail-status or --fail-drop"_s << QString() << 0.0;
    QTest::newRow("status and drop")
        << base + QStringList { u"--fail-status"_s, u"500"_s, u"--fail-drop"_s }
        << u"exclude each other"_s << QString() << 0.0;
    QTest::newRow("fraction above 1")
        << base + QStringList { u"--fail-drop"_s, u"--fail-fraction"_s, u"1.5"_s }
        << u"from 0 to 1"_s << QString() << 0.0;
    QTest::newRow("status not a status") << base + QStringList { u"--fail-status"_s, u"42"_s }
                                         << u"--fail-status must be"_s << QString() << 0.0;
    QTest::newRow("unknown endpoint")
        << base + QStringList { u"--fail-drop"_s, u"--fail-only"_s, u"images"_s }
        << u"\"view\" or \"reaction\""_s << QString() << 0.0;
    QTest::newRow("port too big") << base + QStringList { u"--port"_s, u"70000"_s }
                                  << u"--port must be"_s << QString() << 0.0;
    QTest::newRow("same ports") << base
            + QStringList { u"--port"_s, u"8080"_s, u"--https-port"_s, u"8080"_s }
                                << u"must differ"_s << QString() << 0.0;
    QTest::newRow("stray argument")
        << base + QStringList { u"extra"_s } << u"\"extra\""_s << QString() << 0.0;
}

void tst_DevServer::options()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    QFETCH(QString, basePath);
    QFETCH(double, fraction);

    QCommandLineParser parser;
    addOptions(parser);
    QVERIFY(parser.parse(arguments));
    QString message;
    const auto options = optionsFromParser(parser, u"/default/state"_s, &message);
    if (!error.isEmpty()) {
        QVERIFY(!options);
        QVERIFY2(message.contains(error), qPrintable(message));
        return;
    }
    QVERIFY2(options, qPrintable(message));
    QCOMPARE(options->basePath, basePath);
    QCOMPARE(options->failure.fraction, fraction);
    QCOMPARE(options->stateDir, QDir(u"s"_s).absolutePath());
}

void tst_DevServer::startupAndCertificate()
{
    QByteArray firstPem;
    {
        auto server = startServer();
        QVERIFY(server);
        const QStringList banner = server->startupBanner();
        QCOMPARE(banner.constLast(),
                 u"api-host: http://127.0.0.1:"_s + QString::number(server->port())
                     + u"/vorpex/v1"_s);
        QVERIFY(banner.contains(u"ca-file: "_s + server->caFile()));
        QVERIFY(banner.contains(u"image-base: https://127.0.0.1:"_s
                                + QString::number(server->httpsPort())));
        QVERIFY(server->caFile().startsWith(m_state + u'/'));
        QFile pem(server->caFile());
        QVERIFY(pem.open(QIODevice::ReadOnly));
        firstPem = pem.readAll();
        const QSslCertificate certificate(firstPem);
        QVERIFY(certificate.subjectAlternativeNames()
                    .values(QSsl::IpAddressEntry)
                    .contains(u"127.0.0.1"_s));
        QVERIFY(certificate.expiryDate() > QDateTime::currentDateTimeUtc().addDays(300));
    }
    {
        // Hosts trust the file once, so a restart must not replace it.
        auto server = startServer();
        QVERIFY(server);
        QFile pem(server->caFile());
        QVERIFY(pem.open(QIODevice::ReadOnly));
        QCOMPARE(pem.readAll(), firstPem);
    }

    QTemporaryDir state;
    writeFile(state.filePath(u"tls/cert.pem"_s), "garbage");
    writeFile(state.filePath(u"tls/key.pem"_s), "garbage");
    Options options;
    options.stateDir = state.path();
    auto server = startServer(options);
    QVERIFY(server);
    QCOMPARE(QSslCertificate::fromPath(server->caFile()).size(), 1);
}

void tst_DevServer::authentication_data()
{
    QTest::addColumn<QString>("key"); // what the server wants; null: anything
    QTest::addColumn<QString>("tenant");
    QTest::addColumn<Headers>("sent");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("tag");

    const Headers both { { "x-api-key", "key" }, { "tenant-id", "tenant" } };
    QTest::newRow("both match") << u"key"_s << u"tenant"_s << both << 200 << u"new-visitor"_s;
    QTest::newRow("key missing") << u"key"_s << u"tenant"_s << Headers { { "tenant-id", "tenant" } }
                                 << 401 << u"no-api-key"_s;
    QTest::newRow("key differs in case")
        << u"key"_s << u"tenant"_s << Headers { { "x-api-key", "KEY" }, { "tenant-id", "tenant" } }
        << 401 << u"wrong-api-key"_s;
    QTest::newRow("wrong tenant") << u"key"_s << u"tenant"_s
                                  << Headers { { "x-api-key", "key" }, { "tenant-id", "other" } }
                                  << 403 << u"wrong-tenant"_s;
    QTest::newRow("empty tenant") << u"key"_s << u"tenant"_s
                                  << Headers { { "x-api-key", "key" }, { "tenant-id", "" } } << 403
                                  << u"wrong-tenant"_s;
    QTest::newRow("both wrong: key first")
        << u"key"_s << u"tenant"_s << Headers { { "x-api-key", "x" }, { "tenant-id", "y" } } << 401
        << u"wrong-api-key"_s;
    QTest::newRow("nothing required")
        << QString() << QString() << Headers {} << 200 << u"new-visitor"_s;
}

void tst_DevServer::authentication()
{
    QFETCH(QString, key);
    QFETCH(QString, tenant);
    QFETCH(Headers, sent);
    QFETCH(int, status);
    QFETCH(QString, tag);

    Options options;
    if (!key.isNull())
        options.apiKey = key;
    if (!tenant.isNull())
        options.tenant = tenant;
    auto server = startServer(options);
    QVERIFY(server);
    for (const QString &endpoint : { u"view"_s, u"reaction"_s }) {
        const QByteArray body
            = endpoint == u"view" ? viewBody(u"home"_s) : reactionBody(u"open"_s, u"s"_s);
        const Reply reply = post(*server, endpoint, body, sent);
        QCOMPARE(reply.status, status);
        // A refused request gets no identity: it never reached the back end proper.
        QCOMPARE(reply.raw->hasRawHeader("x-vorpex-visitor-id"), status == 200);
        QVERIFY2(m_log.constLast().split(u' ').contains(tag), qPrintable(m_log.constLast()));
    }
}

void tst_DevServer::campaignSelection_data()
{
    QTest::addColumn<QString>("screen");
    QTest::addColumn<bool>("withDefault");
    QTest::addColumn<QString>("scenario"); // of the only action; empty: no actions
    QTest::addColumn<QString>("logged");

    QTest::newRow("own file") << u"home"_s << true << u"home-1"_s << u"campaign=home.json"_s;
    QTest::newRow("no file: default")
        << u"cart"_s << true << u"fallback"_s << u"campaign=default.json"_s;
    QTest::newRow("name differs in case")
        << u"Home"_s << true << u"fallback"_s << u"campaign=default.json"_s;
    QTest::newRow("path in the name")
        << u"../campaigns/home"_s << true << u"fallback"_s << u"campaign=default.json"_s;
    QTest::newRow("empty name") << QString() << true << u"fallback"_s << u"campaign=default.json"_s;
    QTest::newRow("no default") << u"cart"_s << false << QString() << u"campaign=none"_s;
}

void tst_DevServer::campaignSelection()
{
    QFETCH(QString, screen);
    QFETCH(bool, withDefault);
    QFETCH(QString, scenario);
    QFETCH(QString, logged);

    QTemporaryDir campaigns;
    QVERIFY(QFile::copy(m_campaigns + u"/home.json"_s, campaigns.filePath(u"home.json"_s)));
    if (withDefault)
        QVERIFY(
            QFile::copy(m_campaigns + u"/default.json"_s, campaigns.filePath(u"default.json"_s)));
    Options options;
    options.campaignsDir = campaigns.path();
    auto server = startServer(options);
    QVERIFY(server);

    const Reply reply = post(*server, u"view"_s, viewBody(screen));
    QCOMPARE(reply.status, 200);
    const QJsonArray actions = reply.json().value(u"actions"_s).toArray();
    QCOMPARE(actions.size(), scenario.isEmpty() ? 0 : 1);
    if (!scenario.isEmpty()) {
        const QJsonObject action = actions.first().toObject();
        QCOMPARE(action.value(u"meta"_s).toObject().value(u"scenario_id"_s).toString(), scenario);
        QCOMPARE(action.value(u"creative"_s)["image"_L1]["url"_L1].toString(),
                 server->imageBase() + u"/images/pic.png"_s);
    }
    QVERIFY2(m_log.constLast().contains(logged), qPrintable(m_log.constLast()));
}

void tst_DevServer::visitorAndCustomerIds()
{
    QTemporaryDir state;
    Options options;
    options.stateDir = state.path();
    QByteArray issued;
    {
        auto server = startServer(options);
        QVERIFY(server);
        Reply first = post(*server, u"view"_s, viewBody(u"home"_s, u"alice"_s));
        issued = first.header("x-vorpex-visitor-id");
        QVERIFY(!QUuid::fromString(QLatin1StringView(issued)).isNull());
        QCOMPARE(first.header("x-vorpex-customer-id"),
                 QCryptographicHash::hash("alice", QCryptographicHash::Sha256).toHex());
        QVERIFY(m_log.constLast().endsWith(u"new-visitor"_s));

        // What the client stored comes back unchanged, also on reactions, and so does the
        // hashed customer id when the host has no customer id any more.
        const Reply second = post(*server, u"reaction"_s, reactionBody(u"open"_s, u"s"_s),
                                  { { "x-api-key", "key" },
                                    { "tenant-id", "tenant" },
                                    { "x-vorpex-visitor-id", issued },
                                    { "x-vorpex-customer-id", "hashed" } });
        QCOMPARE(second.header("x-vorpex-visitor-id"), issued);
        QCOMPARE(second.header("x-vorpex-customer-id"), QByteArray("hashed"));
        QVERIFY(!m_log.constLast().contains(u"new-visitor"_s));

        // An empty stored id is no id.
        const Reply third
            = post(*server, u"view"_s, viewBody(u"home"_s), { { "x-vorpex-visitor-id", "" } });
        QVERIFY(!third.header("x-vorpex-visitor-id").isEmpty());
        QVERIFY(third.header("x-vorpex-visitor-id") != issued);
    }
    auto server = startServer(options);
    QVERIFY(server);
    post(*server, u"view"_s, viewBody(u"home"_s), { { "x-vorpex-visitor-id", issued } });
    QVERIFY2(m_log.constLast().endsWith(u"visitor="_s + QLatin1StringView(issued)),
             qPrintable(m_log.constLast()));
    const Reply foreign = post(*server, u"view"_s, viewBody(u"home"_s),
                               { { "x-vorpex-visitor-id", "from-elsewhere" } });
    QCOMPARE(foreign.header("x-vorpex-visitor-id"), QByteArray("from-elsewhere"));
    QVERIFY(m_log.constLast().endsWith(u"unknown-visitor"_s));

    QFile visitors(server->visitorsFile());
    QVERIFY(visitors.open(QIODevice::ReadOnly));
    const QJsonObject saved = QJsonDocument::fromJson(visitors.readAll()).object();
    QCOMPARE(saved.size(), 3);
    QCOMPARE(saved[QLatin1StringView(issued)]["customer_id"_L1].toString(), u"alice"_s);
}

void tst_DevServer::reactions_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("logged");

    QTest::newRow("click") << QByteArray("POST") << reactionBody(u"click"_s, u"home-1"_s) << 200
                           << u"POST /vorpex/v1/app_events/reaction 200 reaction=click "_s
                              u"scenario=home-1 screen=home visitor="_s;
    QTest::newRow("upper-case type")
        << QByteArray("POST") << reactionBody(u"CLOSE"_s, u"s"_s) << 400 << u"error="_s;
    QTest::newRow("no scenario") << QByteArray(
        "POST") << QByteArray(R"({"meta":{"screen_name":"home"},"reaction":"open"})")
                                 << 400
                                 << u"error=\"\\\"scenario_id\\\" is missing or not a string\""_s;
    QTest::newRow("no meta") << QByteArray("POST")
                             << QByteArray(R"({"reaction":"open","scenario_id":"s"})") << 400
                             << u"reaction=open scenario=s error="_s;
    QTest::newRow("not JSON") << QByteArray("POST") << QByteArray("reaction=open") << 400
                              << u"error=\"body is not JSON"_s;
    QTest::newRow("GET") << QByteArray("GET") << QByteArray() << 405 << u"405 not-post"_s;
}

void tst_DevServer::reactions()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, logged);

    auto server = startServer();
    QVERIFY(server);
    const Reply reply = send(method, QUrl(server->apiHost() + u"/app_events/reaction"_s), body);
    QCOMPARE(reply.status, status);
    QCOMPARE(m_log.size(), 1);
    QVERIFY2(m_log.constFirst().contains(logged), qPrintable(m_log.constFirst()));
}

void tst_DevServer::failureInjection_data()
{
    QTest::addColumn<bool>("drop");
    QTest::addColumn<int>("only"); // -1: both endpoints
    QTest::addColumn<QString>("viewLog");
    QTest::addColumn<QString>("reactionLog");

    QTest::newRow("status everywhere") << false << -1 << u" 503 screen=home injected"_s
                                       << u" 503 reaction=click scenario=s1 screen=home injected"_s;
    QTest::newRow("status on reactions")
        << false << int(Endpoint::Reaction) << u" 401 screen=home no-api-key"_s
        << u" 503 reaction=click scenario=s1 screen=home injected"_s;
    QTest::newRow("drop on views")
        << true << int(Endpoint::View) << u" dropped screen=home injected"_s
        << u" 401 reaction=click scenario=s1 screen=home no-api-key"_s;
}

void tst_DevServer::failureInjection()
{
    QFETCH(bool, drop);
    QFETCH(int, only);
    QFETCH(QString, viewLog);
    QFETCH(QString, reactionLog);

    Options options;
    options.apiKey = u"key"_s;
    if (!drop)
        options.failure.status = 503;
    options.failure.drop = drop;
    if (only >= 0)
        options.failure.only = Endpoint(only);
    auto server = startServer(options);
    QVERIFY(server);

    // Sent without a key: injected failures come first, as from the infrastructure in front
    // of a back end, and everything else meets the key check.
    const Reply view = post(*server, u"view"_s, viewBody(u"home"_s), {});
    if (drop)
        QCOMPARE(view.error, QNetworkReply::RemoteHostClosedError);
    const Reply reaction = post(*server, u"reaction"_s, reactionBody(u"click"_s, u"s1"_s), {});
    QVERIFY(!reaction.raw->hasRawHeader("x-vorpex-visitor-id"));

    // Qt retries a request whose connection closed before any answer, so a drop may be
    // logged more than once.
    QVERIFY(m_log.size() >= 2);
    for (const QString &line : m_log.first(m_log.size() - 1))
        QVERIFY2(line.contains(viewLog), qPrintable(line));
    QVERIFY2(m_log.constLast().contains(reactionLog), qPrintable(m_log.constLast()));
}

void tst_DevServer::failureFractionFollowsSeed()
{
    const auto pattern = [this](quint32 seed) {
        Options options;
        options.failure.status = 500;
        options.failure.fraction = 0.5;
        options.seed = seed;
        auto server = startServer(options);
        QString result;
        for (int i = 0; server && i < 16; ++i)
            result += post(*server, u"reaction"_s, reactionBody(u"open"_s, u"s"_s)).status == 500
                ? u'x'
                : u'.';
        return result;
    };
    const QString first = pattern(7);
    QCOMPARE(first.size(), 16);
    QCOMPARE(pattern(7), first);
    QVERIFY2(first.contains(u'x') && first.contains(u'.'), qPrintable(first));
    QVERIFY(pattern(8) != first);
}

void tst_DevServer::latency()
{
    Options options;
    options.latencyMs = 300;
    auto server = startServer(options);
    QVERIFY(server);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(post(*server, u"view"_s, viewBody(u"home"_s)).status, 200);
    QVERIFY(timer.elapsed() >= 300);
    timer.restart();
    QCOMPARE(send("GET", QUrl(server->imageBase() + u"/images/pic.png"_s)).status, 200);
    QVERIFY(timer.elapsed() >= 300);
}

void tst_DevServer::files_data()
{
    QTest::addColumn<bool>("secure");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("status");

    QTest::newRow("image") << true << u"/images/pic.png"_s << 200;
    QTest::newRow("over plain HTTP") << false << u"/images/pic.png"_s << 404;
    QTest::newRow("escaped dots") << true << u"/images/%2e%2e/%2e%2e/outside.txt"_s << 404;
    QTest::newRow("hidden file") << true << u"/.secret"_s << 404;
    QTest::newRow("folder") << true << u"/images"_s << 404;
    QTest::newRow("missing") << true << u"/images/none.png"_s << 404;
    QTest::newRow("API on HTTPS, wrong method") << true << u"/vorpex/v1/app_events/view"_s << 405;
}

void tst_DevServer::files()
{
    QFETCH(bool, secure);
    QFETCH(QString, path);
    QFETCH(int, status);

    auto server = startServer();
    QVERIFY(server);
    const QString base
        = secure ? server->imageBase() : u"http://127.0.0.1:"_s + QString::number(server->port());
    const Reply reply = send("GET", QUrl(base + path, QUrl::StrictMode));
    QCOMPARE(reply.status, status);
    if (status == 200) {
        QCOMPARE(reply.header("content-type"), QByteArray("image/png"));
        QCOMPARE(QImage::fromData(reply.body).size(), QSize(8, 4));
    }
}

void tst_DevServer::libraryTalksToIt()
{
    Options options;
    options.apiKey = u"key"_s;
    options.tenant = u"tenant"_s;
    options.failure.status = 503;
    options.failure.only = Endpoint::Reaction;
    auto server = startServer(options);
    QVERIFY(server);

    QTemporaryDir dir;
    UserIdentityRepository repository(
        SDKUserDefaults(std::make_shared<SettingsUserDefaults>(dir.filePath(u"s.ini"_s))));
    SDKConfiguration config(DeviceInfo { u"12.0.0"_s, u"1.0.0"_s, u"test"_s });
    APIClient client;
    for (const QString &host : { server->apiHost(), server->httpsApiHost() }) {
        config.setup(u"key"_s, u"tenant"_s, host);
        const EventsViewRequest request { { u"bob"_s, false, u"home"_s, 1 }, {} };
        const auto view = await<ViewEventsReply>([&](auto done) {
            client.viewEvents(request, config.apiHost, buildRequestHeaders(config, repository),
                              done);
        });
        QVERIFY(view && view->hasValue());
        const QList<InAppMessageAction> &actions = view->value().response.actions;
        QCOMPARE(actions.size(), 1);
        QCOMPARE(actions.first().meta.scenarioId, u"home-1"_s);
        QCOMPARE(actions.first().contents.popupBannerAction()->position,
                 DisplayPosition::BottomLeft);
        repository.saveResponseHeaders(view->value().headers);
        QVERIFY(repository.visitorId());
        QVERIFY(repository.hashedCustomerId());
    }
    // The second host saw the id the first one issued.
    QVERIFY(!m_log.constLast().contains(u"new-visitor"_s));

    const EventsReactionRequest reaction { { std::nullopt, false, u"home"_s, 1 },
                                           EventsReactionType::Click,
                                           u"home-1"_s };
    const auto result = await<ResponseHeaders>([&](auto done) {
        client.reactionEvents(reaction, config.apiHost, buildRequestHeaders(config, repository),
                              done);
    });
    QVERIFY(result && !result->hasValue());
    const VelmoraError error = toVelmoraError(result->error());
    QCOMPARE(error.kind(), VelmoraError::Kind::ServerError);
    QCOMPARE(error.statusCode(), 503);
}

void tst_DevServer::sampleCampaigns()
{
    Options options;
    options.campaignsDir = QStringLiteral(VELMORA_SAMPLE_CAMPAIGNS);
    auto server = startServer(options);
    QVERIFY(server);
    const QStringList screens = server->campaignScreens();
    QVERIFY(screens.contains(u"positions"_s));

    std::set<InAppMessage::Type> kinds;
    std::set<DisplayPosition> positions;
    QSet<QString> images;
    APIClient client;
    for (const QString &screen : screens + QStringList { u"not-a-campaign"_s }) {
        const auto view = await<ViewEventsReply>([&](auto done) {
            client.viewEvents({ { std::nullopt, false, screen, 1 }, {} }, server->apiHost(),
                              { { u"content-type"_s, u"application/json"_s } }, done);
        });
        QVERIFY(view && view->hasValue());
        QFile file(options.campaignsDir + u'/' + screen + u".json"_s);
        if (screen != u"tolerance" && file.open(QIODevice::ReadOnly)) {
            // Every sample but the one about tolerance decodes without losing an action.
            const QJsonArray raw = QJsonDocument::fromJson(file.readAll())["actions"_L1].toArray();
            QCOMPARE(view->value().response.actions.size(), raw.size());
        }
        for (const InAppMessageAction &action : view->value().response.actions) {
            kinds.insert(action.contents.type());
            if (const auto *banner = action.contents.popupBannerAction())
                positions.insert(banner->position);
            if (const auto *creative = action.contents.creative();
                creative && !creative->image.url.isEmpty())
                images.insert(creative->image.url);
        }
    }
    QCOMPARE(kinds.size(), 4);
    QCOMPARE(positions.size(), 9);
    for (const QString &url : std::as_const(images)) {
        QVERIFY2(url.startsWith(server->imageBase() + u'/'), qPrintable(url));
        const Reply image = send("GET", QUrl(url));
        QCOMPARE(image.status, 200);
        QVERIFY2(!QImage::fromData(image.body).isNull(), qPrintable(url));
    }
}

void tst_DevServer::processStopsOnSignal_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("SIGTERM") << int(SIGTERM);
    QTest::newRow("SIGINT") << int(SIGINT);
}

void tst_DevServer::processStopsOnSignal()
{
    QFETCH(int, signal);

    QProcess process;
    process.start(QStringLiteral(VELMORA_DEVSERVER_BINARY),
                  { u"--campaigns"_s, m_campaigns, u"--state"_s, m_state, u"--fail-status"_s,
                    u"502"_s, u"--fail-only"_s, u"reaction"_s });
    QVERIFY(process.waitForStarted());
    QString apiHost;
    QStringList lines;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            while (process.canReadLine())
                lines.append(QString::fromUtf8(process.readLine()).trimmed());
            return !lines.isEmpty() && lines.constLast().startsWith(u"api-host: "_s);
        }(),
        15000);
    apiHost = lines.constLast().mid(10);
    QVERIFY(lines.contains(u"ca-file: "_s + m_state + u"/tls/cert.pem"_s));
    QVERIFY2(lines.filter(u"failure: status 502 on 100% of reaction requests (seed "_s).size() == 1,
             qPrintable(lines.join(u'\n')));

    const Reply reply = send("POST", QUrl(apiHost + u"/app_events/reaction"_s),
                             reactionBody(u"close"_s, u"s9"_s));
    QCOMPARE(reply.status, 502);
    QTRY_VERIFY_WITH_TIMEOUT(process.canReadLine(), 5000);
    QVERIFY(QString::fromUtf8(process.readLine())
                .contains(u" 502 reaction=close scenario=s9 screen=home injected"_s));

    ::kill(pid_t(process.processId()), signal);
    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardOutput().trimmed(), QByteArray("stopped"));
}

QTEST_GUILESS_MAIN(tst_DevServer)
#include "tst_devserver.moc"
