#include "devserver.h"

#include "httpserver/certificate.h"
#include "httpserver/httpserver.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMimeDatabase>
#include <QSaveFile>
#include <QSslCertificate>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace velmora::devserver {

namespace {

using velmora::loopback::Response;

constexpr QByteArrayView VisitorHeader("x-vorpex-visitor-id");
constexpr QByteArrayView CustomerHeader("x-vorpex-customer-id");
constexpr auto BasePlaceholder = "{{base}}"_L1;
constexpr auto DefaultCampaign = "default"_L1;
constexpr int CertificateDays = 365;
// Regenerating a day early keeps a certificate from expiring in the middle of a session.
constexpr qint64 CertificateMarginSecs = 24 * 60 * 60;

Response jsonAnswer(int status, const QString &statusText, const QString &message = {})
{
    QJsonObject body { { u"status"_s, statusText } };
    if (!message.isEmpty())
        body.insert(u"message"_s, message);
    return Response::json(QJsonDocument(body).toJson(QJsonDocument::Compact), status);
}

QString stringAt(const QJsonObject &object, const QString &key)
{
    return object.value(key).toString();
}

// Screen names come from the app; only plain names may pick a file, so that "../x" or
// "a/b" cannot reach outside the campaigns folder.
bool isPlainFileStem(const QString &name)
{
    if (name.isEmpty() || name.startsWith(u'.'))
        return false;
    for (const QChar c : name) {
        if (c == u'/' || c == u'\\' || c.unicode() < 0x20)
            return false;
    }
    return true;
}

bool isInside(const QString &path, const QString &folder)
{
    return path.startsWith(folder + u'/');
}

QString quoteIfNeeded(const QString &value)
{
    bool plain = !value.isEmpty();
    for (const QChar c : value) {
        if (c.isSpace() || c == u'"' || c == u'=' || c.unicode() < 0x20) {
            plain = false;
            break;
        }
    }
    if (plain)
        return value;
    QString quoted = value;
    quoted.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s).replace(u'\n', u"\\n"_s);
    return u'"' + quoted + u'"';
}

std::optional<loopback::Certificate> usableCertificate(const QString &dir)
{
    auto certificate = loopback::Certificate::load(dir);
    if (!certificate)
        return std::nullopt;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QSslCertificate &cert = certificate->certificate();
    if (cert.effectiveDate() > now || cert.expiryDate() < now.addSecs(CertificateMarginSecs))
        return std::nullopt;
    return certificate;
}

} // namespace

struct DevServer::Exchange
{
    explicit Exchange(const loopback::RecordedRequest &request)
        : request(request)
        , path(QUrl::fromPercentEncoding(request.path().toUtf8()))
    { }

    const loopback::RecordedRequest &request;
    QString path; // percent-decoded
    // Name/value pairs for the log line, then bare words such as "injected".
    QList<std::pair<QString, QString>> fields;
    QStringList tags;
    QString visitorId; // set once the request passed every check

    void note(const QString &name, const QString &value) { fields.append({ name, value }); }
    void noteString(const QString &name, const QJsonObject &object, const QString &key)
    {
        if (const QJsonValue value = object.value(key); value.isString())
            note(name, value.toString());
    }
};

DevServer::DevServer(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    m_options.basePath = normalizedBasePath(m_options.basePath);
    // Always a known seed, shown at start, so that a run can be repeated with --seed.
    if (!m_options.seed)
        m_options.seed = QRandomGenerator::global()->generate();
    m_random.seed(*m_options.seed);
}

DevServer::~DevServer() = default;

bool DevServer::start(QString *errorMessage)
{
    const auto fail = [&](const QString &message) {
        if (errorMessage)
            *errorMessage = message;
        m_http.reset();
        m_https.reset();
        return false;
    };

    const QString tlsDir = QDir(m_options.stateDir).filePath(u"tls"_s);
    if (!QDir().mkpath(tlsDir))
        return fail(u"cannot create the state folder "_s + tlsDir);
    auto certificate = usableCertificate(tlsDir);
    if (!certificate) {
        certificate = loopback::Certificate::generate(tlsDir, CertificateDays);
        if (!certificate)
            return fail(u"cannot make a certificate in "_s + tlsDir
                        + u" (the openssl command line tool is needed)"_s);
        QFile::setPermissions(certificate->keyPath(), QFile::ReadOwner | QFile::WriteOwner);
    }
    m_caFile = certificate->certificatePath();

    loadVisitors();

    m_http = std::make_unique<loopback::HttpServer>();
    m_https = std::make_unique<loopback::HttpServer>();
    m_https->setCertificate(*certificate);
    m_http->setDefaultHandler(
        [this](const loopback::RecordedRequest &r) { return handle(r, false); });
    m_https->setDefaultHandler(
        [this](const loopback::RecordedRequest &r) { return handle(r, true); });
    if (!m_http->listen(loopback::HttpServer::Mode::Http, m_options.port))
        return fail(u"cannot listen on 127.0.0.1 port "_s + QString::number(m_options.port));
    if (!m_https->listen(loopback::HttpServer::Mode::Https, m_options.httpsPort))
        return fail(u"cannot listen on 127.0.0.1 port "_s + QString::number(m_options.httpsPort)
                    + u" (HTTPS)"_s);
    return true;
}

quint16 DevServer::port() const
{
    return m_http ? m_http->port() : 0;
}

quint16 DevServer::httpsPort() const
{
    return m_https ? m_https->port() : 0;
}

QString DevServer::apiHost() const
{
    return u"http://127.0.0.1:"_s + QString::number(port()) + m_options.basePath;
}

QString DevServer::httpsApiHost() const
{
    return imageBase() + m_options.basePath;
}

QString DevServer::imageBase() const
{
    return u"https://127.0.0.1:"_s + QString::number(httpsPort());
}

QString DevServer::caFile() const
{
    return m_caFile;
}

QString DevServer::visitorsFile() const
{
    return QDir(m_options.stateDir).filePath(u"visitors.json"_s);
}

QStringList DevServer::campaignScreens() const
{
    QStringList screens;
    const QStringList files
        = QDir(m_options.campaignsDir).entryList({ u"*.json"_s }, QDir::Files, QDir::Name);
    for (const QString &file : files) {
        const QString screen = file.chopped(5);
        if (screen != DefaultCampaign && isPlainFileStem(screen))
            screens.append(screen);
    }
    return screens;
}

QStringList DevServer::startupBanner() const
{
    const QStringList screens = campaignScreens();
    const bool hasDefault
        = QFileInfo(QDir(m_options.campaignsDir).filePath(DefaultCampaign + u".json"_s)).isFile();
    QString failure = u"none"_s;
    if (const FailureInjection &f = m_options.failure; f.isEnabled()) {
        failure = (f.drop ? u"drop the connection"_s : u"status "_s + QString::number(*f.status))
            + u" on "_s + QString::number(f.fraction * 100.0, 'g', 4) + u"% of "_s
            + (!f.only                         ? u"API"_s
                   : *f.only == Endpoint::View ? u"view"_s
                                               : u"reaction"_s)
            + u" requests (seed "_s + QString::number(*m_options.seed) + u')';
    }
    return {
        u"campaigns: "_s + m_options.campaignsDir + u" (screens: "_s
            + (screens.isEmpty() ? u"none"_s : screens.join(u", "_s))
            + (hasDefault ? u"; default.json for the rest)"_s : u"; no default.json)"_s),
        u"state: "_s + m_options.stateDir,
        u"api-key: "_s + m_options.apiKey.value_or(u"any"_s),
        u"tenant: "_s + m_options.tenant.value_or(u"any"_s),
        u"latency: "_s + QString::number(m_options.latencyMs) + u" ms"_s,
        u"failure: "_s + failure,
        u"image-base: "_s + imageBase(),
        u"ca-file: "_s + caFile(),
        u"api-host-https: "_s + httpsApiHost(),
        u"api-host: "_s + apiHost(),
    };
}

Response DevServer::handle(const loopback::RecordedRequest &request, bool secure)
{
    Exchange exchange(request);
    const QString &base = m_options.basePath;
    Response response;
    if (exchange.path == base + u"/app_events/view"_s) {
        response = handleApi(exchange, Endpoint::View);
    } else if (exchange.path == base + u"/app_events/reaction"_s) {
        response = handleApi(exchange, Endpoint::Reaction);
    } else if (!base.isEmpty() && exchange.path.startsWith(base + u'/')) {
        response = jsonAnswer(404, u"not_found"_s,
                              u"the API has "_s + base + u"/app_events/view and "_s + base
                                  + u"/app_events/reaction"_s);
    } else if (secure) {
        response = handleFile(exchange);
    } else {
        response = Response::withStatus(
            404, (u"images are served over HTTPS at "_s + imageBase() + u'\n').toUtf8());
    }

    if (m_options.latencyMs > 0)
        response.delayMs = m_options.latencyMs;
    log(exchange, response);
    // The servers keep every request for tests to inspect; a long run has no use for that.
    m_http->clear();
    m_https->clear();
    return response;
}

bool DevServer::shouldFail(Endpoint endpoint)
{
    const FailureInjection &failure = m_options.failure;
    if (!failure.covers(endpoint))
        return false;
    // One draw per eligible request, also at 0 and 1, so that the choices depend only on
    // the seed and the order of requests.
    return m_random.generateDouble() < failure.fraction;
}

Response DevServer::handleApi(Exchange &exchange, Endpoint endpoint)
{
    const loopback::RecordedRequest &request = exchange.request;
    if (request.method != "POST") {
        exchange.tags.append(u"not-post"_s);
        return jsonAnswer(405, u"method_not_allowed"_s, u"use POST"_s)
            .header(QByteArrayLiteral("Allow"), QByteArrayLiteral("POST"));
    }

    // Read before anything can fail so that the log shows which screen or reaction a
    // failed attempt was for, retries included.
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(request.body, &parseError);
    const QJsonObject body = document.object();
    const QJsonObject meta = body.value(u"meta"_s).toObject();
    if (endpoint == Endpoint::Reaction) {
        exchange.noteString(u"reaction"_s, body, u"reaction"_s);
        exchange.noteString(u"scenario"_s, body, u"scenario_id"_s);
    }
    exchange.noteString(u"screen"_s, meta, u"screen_name"_s);

    if (shouldFail(endpoint)) {
        exchange.tags.append(u"injected"_s);
        const FailureInjection &failure = m_options.failure;
        if (failure.drop)
            return Response::drop();
        return jsonAnswer(*failure.status, u"injected_failure"_s,
                          u"failure injected by velmora-devserver"_s);
    }

    if (m_options.apiKey && request.header("x-api-key") != m_options.apiKey->toUtf8()) {
        exchange.tags.append(request.hasHeader("x-api-key") ? u"wrong-api-key"_s : u"no-api-key"_s);
        return jsonAnswer(401, u"unauthorized"_s, u"x-api-key does not match"_s);
    }
    if (m_options.tenant && request.header("tenant-id") != m_options.tenant->toUtf8()) {
        exchange.tags.append(request.hasHeader("tenant-id") ? u"wrong-tenant"_s : u"no-tenant"_s);
        return jsonAnswer(403, u"forbidden"_s, u"tenant-id does not match"_s);
    }

    QString problem;
    if (parseError.error != QJsonParseError::NoError)
        problem = u"body is not JSON: "_s + parseError.errorString();
    else if (!document.isObject())
        problem = u"body is not a JSON object"_s;
    else if (!body.value(u"meta"_s).isObject())
        problem = u"\"meta\" is missing or not an object"_s;
    else if (!meta.value(u"screen_name"_s).isString())
        problem = u"\"meta.screen_name\" is missing or not a string"_s;
    if (!problem.isEmpty()) {
        exchange.note(u"error"_s, problem);
        return jsonAnswer(400, u"bad_request"_s, problem);
    }

    Response response
        = endpoint == Endpoint::View ? handleView(exchange, body) : handleReaction(exchange, body);
    if (response.status / 100 == 2)
        applyIdentity(exchange, meta);
    if (!exchange.visitorId.isEmpty())
        response.header(VisitorHeader.toByteArray(), exchange.visitorId.toUtf8());
    if (const QJsonValue customer = meta.value(u"customer_id"_s);
        response.status / 100 == 2 && customer.isString()) {
        response.header(
            CustomerHeader.toByteArray(),
            QCryptographicHash::hash(customer.toString().toUtf8(), QCryptographicHash::Sha256)
                .toHex());
    } else if (response.status / 100 == 2 && request.hasHeader(CustomerHeader)) {
        response.header(CustomerHeader.toByteArray(), request.header(CustomerHeader));
    }
    return response;
}

Response DevServer::handleView(Exchange &exchange, const QJsonObject &body)
{
    const QString screen = stringAt(body.value(u"meta"_s).toObject(), u"screen_name"_s);
    const QDir campaigns(m_options.campaignsDir);
    QString file;
    if (isPlainFileStem(screen) && QFileInfo(campaigns.filePath(screen + u".json"_s)).isFile())
        file = screen + u".json"_s;
    else if (QFileInfo(campaigns.filePath(DefaultCampaign + u".json"_s)).isFile())
        file = DefaultCampaign + u".json"_s;

    const auto noteCustom = [&] {
        if (const QJsonValue custom = body.value(u"custom"_s); custom.isArray())
            exchange.note(u"custom"_s, QString::number(custom.toArray().size()));
    };
    if (file.isEmpty()) {
        exchange.note(u"campaign"_s, u"none"_s);
        exchange.note(u"actions"_s, u"0"_s);
        noteCustom();
        return Response::json(QByteArrayLiteral(R"({"status":"ok","actions":[]})"));
    }
    exchange.note(u"campaign"_s, file);

    QFile source(campaigns.filePath(file));
    if (!source.open(QIODevice::ReadOnly)) {
        exchange.note(u"error"_s, u"cannot read "_s + file);
        return jsonAnswer(500, u"error"_s, u"cannot read "_s + file);
    }
    // Served even when it is not valid JSON, so that integrators can watch the library
    // cope with a broken answer.
    const QByteArray answer
        = QString::fromUtf8(source.readAll()).replace(BasePlaceholder, imageBase()).toUtf8();
    const QJsonDocument parsed = QJsonDocument::fromJson(answer);
    const QJsonValue actions = parsed.object().value(u"actions"_s);
    exchange.note(u"actions"_s,
                  actions.isArray() ? QString::number(actions.toArray().size()) : u"invalid"_s);
    noteCustom();
    return Response::json(answer);
}

Response DevServer::handleReaction(Exchange &exchange, const QJsonObject &body)
{
    const QString reaction = stringAt(body, u"reaction"_s);
    if (reaction != u"open" && reaction != u"click" && reaction != u"close") {
        const QString problem = u"\"reaction\" must be \"open\", \"click\" or \"close\""_s;
        exchange.note(u"error"_s, problem);
        return jsonAnswer(400, u"bad_request"_s, problem);
    }
    if (!body.value(u"scenario_id"_s).isString()) {
        const QString problem = u"\"scenario_id\" is missing or not a string"_s;
        exchange.note(u"error"_s, problem);
        return jsonAnswer(400, u"bad_request"_s, problem);
    }
    return jsonAnswer(200, u"ok"_s);
}

Response DevServer::handleFile(Exchange &exchange)
{
    const loopback::RecordedRequest &request = exchange.request;
    if (request.method != "GET" && request.method != "HEAD")
        return Response::withStatus(405).header(QByteArrayLiteral("Allow"),
                                                QByteArrayLiteral("GET, HEAD"));

    const QString root = QFileInfo(m_options.campaignsDir).canonicalFilePath();
    const QFileInfo info(QDir(root).filePath(exchange.path.mid(1)));
    const QString canonical = info.canonicalFilePath();
    const bool hidden = exchange.path.contains(u"/."_s);
    if (canonical.isEmpty() || !isInside(canonical, root) || !info.isFile() || hidden)
        return Response::withStatus(404, QByteArrayLiteral("no such file\n"));

    QFile file(canonical);
    if (!file.open(QIODevice::ReadOnly)) {
        exchange.note(u"error"_s, file.errorString());
        return Response::withStatus(500);
    }
    const QByteArray bytes = file.readAll();
    exchange.note(u"bytes"_s, QString::number(bytes.size()));
    const QString type
        = QMimeDatabase().mimeTypeForFile(info, QMimeDatabase::MatchExtension).name();
    // Campaign images change while integrators work on them; a cached copy would hide that.
    return Response::withStatus(200, bytes)
        .header(QByteArrayLiteral("Content-Type"), type.toUtf8())
        .header(QByteArrayLiteral("Cache-Control"), QByteArrayLiteral("no-cache"));
}

void DevServer::applyIdentity(Exchange &exchange, const QJsonObject &meta)
{
    const loopback::RecordedRequest &request = exchange.request;
    const QJsonValue customerValue = meta.value(u"customer_id"_s);
    const QString customerId = customerValue.isString() ? customerValue.toString() : QString();

    QString visitorId;
    bool changed = false;
    // An empty id is no id: the client stores whatever it was sent, and this server never
    // sends an empty one.
    if (const QByteArray sent = request.header(VisitorHeader); !sent.isEmpty()) {
        visitorId = QString::fromUtf8(sent);
        if (!m_visitors.contains(visitorId)) {
            // An id from another back end, or from before the state folder was wiped:
            // echoed all the same, and remembered from now on.
            exchange.tags.append(u"unknown-visitor"_s);
            m_visitors.insert(visitorId,
                              { QDateTime::currentDateTimeUtc().toString(Qt::ISODate), {} });
            changed = true;
        }
    } else {
        visitorId = issueVisitorId();
        exchange.tags.append(u"new-visitor"_s);
        changed = true;
    }
    exchange.visitorId = visitorId;

    Visitor &visitor = m_visitors[visitorId];
    if (!customerId.isEmpty() && visitor.customerId != customerId) {
        visitor.customerId = customerId;
        changed = true;
    }
    if (!customerId.isEmpty())
        exchange.note(u"customer"_s, customerId);
    if (changed)
        saveVisitors();
}

QString DevServer::issueVisitorId()
{
    const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    m_visitors.insert(id, { QDateTime::currentDateTimeUtc().toString(Qt::ISODate), {} });
    return id;
}

void DevServer::loadVisitors()
{
    m_visitors.clear();
    QFile file(visitorsFile());
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonObject all = QJsonDocument::fromJson(file.readAll()).object();
    for (auto it = all.begin(); it != all.end(); ++it) {
        const QJsonObject entry = it.value().toObject();
        m_visitors.insert(it.key(),
                          { stringAt(entry, u"first_seen"_s), stringAt(entry, u"customer_id"_s) });
    }
}

void DevServer::saveVisitors() const
{
    QJsonObject all;
    for (auto it = m_visitors.begin(); it != m_visitors.end(); ++it) {
        QJsonObject entry { { u"first_seen"_s, it->firstSeen } };
        entry.insert(u"customer_id"_s,
                     it->customerId.isEmpty() ? QJsonValue() : QJsonValue(it->customerId));
        all.insert(it.key(), entry);
    }
    QSaveFile file(visitorsFile());
    if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(all).toJson()) < 0
        || !file.commit()) {
        qWarning("velmora-devserver: cannot write %ls", qUtf16Printable(visitorsFile()));
    }
}

void DevServer::log(const Exchange &exchange, const Response &response)
{
    QStringList parts {
        QTime::currentTime().toString(u"hh:mm:ss.zzz"_s),
        QString::fromLatin1(exchange.request.method),
        quoteIfNeeded(exchange.path),
        response.action == Response::Action::Drop ? u"dropped"_s : QString::number(response.status),
    };
    for (const auto &[name, value] : exchange.fields)
        parts.append(name + u'=' + quoteIfNeeded(value));
    if (!exchange.visitorId.isEmpty())
        parts.append(u"visitor="_s + quoteIfNeeded(exchange.visitorId));
    parts += exchange.tags;
    Q_EMIT logLine(parts.join(u' '));
}

} // namespace velmora::devserver
