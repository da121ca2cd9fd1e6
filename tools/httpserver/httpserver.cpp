#include "httpserver/httpserver.h"

#include <QJsonDocument>
#include <QPointer>
#include <QSslServer>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QtDebug>

#include <algorithm>

#ifdef Q_OS_UNIX
#include <sys/socket.h>
#endif

using namespace Qt::StringLiterals;

namespace velmora::loopback {

namespace {

// Anything bigger is a client bug or an attack on the test run, not a request a test
// would want to see recorded.
constexpr qsizetype MaxHeaderBytes = 64 * 1024;
constexpr qsizetype MaxBodyBytes = 256 * 1024 * 1024;

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return QByteArrayLiteral("OK");
    case 201:
        return QByteArrayLiteral("Created");
    case 202:
        return QByteArrayLiteral("Accepted");
    case 204:
        return QByteArrayLiteral("No Content");
    case 301:
        return QByteArrayLiteral("Moved Permanently");
    case 302:
        return QByteArrayLiteral("Found");
    case 303:
        return QByteArrayLiteral("See Other");
    case 304:
        return QByteArrayLiteral("Not Modified");
    case 307:
        return QByteArrayLiteral("Temporary Redirect");
    case 308:
        return QByteArrayLiteral("Permanent Redirect");
    case 400:
        return QByteArrayLiteral("Bad Request");
    case 401:
        return QByteArrayLiteral("Unauthorized");
    case 403:
        return QByteArrayLiteral("Forbidden");
    case 404:
        return QByteArrayLiteral("Not Found");
    case 408:
        return QByteArrayLiteral("Request Timeout");
    case 413:
        return QByteArrayLiteral("Content Too Large");
    case 429:
        return QByteArrayLiteral("Too Many Requests");
    case 431:
        return QByteArrayLiteral("Request Header Fields Too Large");
    case 500:
        return QByteArrayLiteral("Internal Server Error");
    case 502:
        return QByteArrayLiteral("Bad Gateway");
    case 503:
        return QByteArrayLiteral("Service Unavailable");
    case 504:
        return QByteArrayLiteral("Gateway Timeout");
    default:
        return QByteArrayLiteral("Status");
    }
}

bool sameName(QByteArrayView a, QByteArrayView b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

const QByteArray *findHeader(const HeaderList &headers, QByteArrayView name)
{
    for (const auto &[key, value] : headers) {
        if (sameName(key, name))
            return &value;
    }
    return nullptr;
}

bool headerHasToken(const HeaderList &headers, QByteArrayView name, QByteArrayView token)
{
    for (const auto &[key, value] : headers) {
        if (!sameName(key, name))
            continue;
        for (const QByteArray &part : value.split(',')) {
            if (sameName(part.trimmed(), token))
                return true;
        }
    }
    return false;
}

bool statusHasNoBody(int status)
{
    return (status >= 100 && status < 200) || status == 204 || status == 304;
}

struct ParsedRequest
{
    RecordedRequest request;
    qsizetype consumed = 0;
};

enum class ParseState { Incomplete, Complete, Malformed, TooLarge };

// Decodes a chunked body starting at `from`. Returns the end offset of the whole
// message, or -1 when more bytes are needed, or -2 on garbage.
qsizetype decodeChunked(const QByteArray &buffer, qsizetype from, QByteArray &body)
{
    qsizetype pos = from;
    for (;;) {
        const qsizetype lineEnd = buffer.indexOf("\r\n", pos);
        if (lineEnd < 0)
            return -1;
        QByteArray sizeField = buffer.mid(pos, lineEnd - pos);
        if (const qsizetype semicolon = sizeField.indexOf(';'); semicolon >= 0)
            sizeField.truncate(semicolon);
        bool ok = false;
        const qlonglong size = sizeField.trimmed().toLongLong(&ok, 16);
        if (!ok || size < 0 || size > MaxBodyBytes)
            return -2;
        pos = lineEnd + 2;
        if (size == 0) {
            // Trailer fields, then an empty line.
            for (;;) {
                const qsizetype trailerEnd = buffer.indexOf("\r\n", pos);
                if (trailerEnd < 0)
                    return -1;
                const bool empty = trailerEnd == pos;
                pos = trailerEnd + 2;
                if (empty)
                    return pos;
            }
        }
        if (buffer.size() < pos + size + 2)
            return -1;
        body.append(buffer.constData() + pos, size);
        pos += size;
        if (buffer.mid(pos, 2) != "\r\n")
            return -2;
        pos += 2;
    }
}

ParseState parseRequest(const QByteArray &buffer, ParsedRequest &out)
{
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return buffer.size() > MaxHeaderBytes ? ParseState::TooLarge : ParseState::Incomplete;

    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() != 3 || !requestLine.at(2).startsWith("HTTP/"))
        return ParseState::Malformed;

    RecordedRequest &request = out.request;
    request.method = requestLine.at(0);
    request.target = QString::fromLatin1(requestLine.at(1));
    request.httpVersion = requestLine.at(2);
    request.headers.clear();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0)
            return ParseState::Malformed;
        request.headers.append({ line.left(colon), line.mid(colon + 1).trimmed() });
    }

    const qsizetype bodyStart = headerEnd + 4;
    request.body.clear();
    if (headerHasToken(request.headers, "transfer-encoding", "chunked")) {
        const qsizetype end = decodeChunked(buffer, bodyStart, request.body);
        if (end == -2)
            return ParseState::Malformed;
        if (end < 0)
            return ParseState::Incomplete;
        out.consumed = end;
        return ParseState::Complete;
    }

    qsizetype length = 0;
    if (const QByteArray *value = findHeader(request.headers, "content-length")) {
        bool ok = false;
        length = value->toLongLong(&ok);
        if (!ok || length < 0)
            return ParseState::Malformed;
        if (length > MaxBodyBytes)
            return ParseState::TooLarge;
    }
    if (buffer.size() < bodyStart + length)
        return ParseState::Incomplete;
    request.body = buffer.mid(bodyStart, length);
    out.consumed = bodyStart + length;
    return ParseState::Complete;
}

} // namespace

// ---------------------------------------------------------------------------------------

QString RecordedRequest::path() const
{
    const qsizetype question = target.indexOf(u'?');
    return question < 0 ? target : target.left(question);
}

QUrlQuery RecordedRequest::query() const
{
    const qsizetype question = target.indexOf(u'?');
    return question < 0 ? QUrlQuery() : QUrlQuery(target.mid(question + 1));
}

QByteArray RecordedRequest::header(QByteArrayView name) const
{
    const QByteArray *value = findHeader(headers, name);
    return value ? *value : QByteArray();
}

QList<QByteArray> RecordedRequest::headerValues(QByteArrayView name) const
{
    QList<QByteArray> values;
    for (const auto &[key, value] : headers) {
        if (sameName(key, name))
            values.append(value);
    }
    return values;
}

bool RecordedRequest::hasHeader(QByteArrayView name) const
{
    return findHeader(headers, name) != nullptr;
}

QJsonDocument RecordedRequest::json() const
{
    return QJsonDocument::fromJson(body);
}

// ---------------------------------------------------------------------------------------

Response Response::withStatus(int status, QByteArray body)
{
    Response response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

Response Response::json(QByteArray body, int status)
{
    Response response = withStatus(status, std::move(body));
    response.headers.append(
        { QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/json") });
    return response;
}

Response Response::redirect(int status, const QByteArray &location)
{
    Response response = withStatus(status);
    response.headers.append({ QByteArrayLiteral("Location"), location });
    return response;
}

Response Response::drop()
{
    Response response;
    response.action = Action::Drop;
    return response;
}

Response Response::reset()
{
    Response response;
    response.action = Action::Reset;
    return response;
}

Response Response::hang()
{
    Response response;
    response.action = Action::Hang;
    return response;
}

Response &Response::header(QByteArray name, QByteArray value)
{
    headers.append({ std::move(name), std::move(value) });
    return *this;
}

Response &Response::delayed(int ms)
{
    delayMs = ms;
    return *this;
}

Response &Response::trickled(int chunkBytes, int intervalMs)
{
    trickleChunkBytes = chunkBytes;
    trickleIntervalMs = intervalMs;
    return *this;
}

Response &Response::truncated(qsizetype sentBodyBytes)
{
    truncateBodyAt = sentBodyBytes;
    return *this;
}

// ---------------------------------------------------------------------------------------

// One accepted socket. Requests on it are answered strictly in order; bytes of the next
// (pipelined) request wait in the buffer while the current answer is delayed or trickled.
class HttpServer::Connection : public QObject
{
public:
    Connection(HttpServer *server, QTcpSocket *socket, int id)
        : QObject(server)
        , m_server(server)
        , m_socket(socket)
        , m_id(id)
    {
        m_socket->setParent(this);
        connect(m_socket, &QIODevice::readyRead, this, &Connection::onReadyRead);
        connect(m_socket, &QAbstractSocket::disconnected, this, &Connection::onDisconnected);
        // Precise timers: the default coarse ones may fire 5% early, and tests assert that
        // a client waited at least as long as the server held back.
        m_delayTimer.setTimerType(Qt::PreciseTimer);
        m_trickleTimer.setTimerType(Qt::PreciseTimer);
        m_delayTimer.setSingleShot(true);
        connect(&m_delayTimer, &QTimer::timeout, this, &Connection::sendHead);
        connect(&m_trickleTimer, &QTimer::timeout, this, &Connection::sendNextChunk);
        connect(m_socket, &QAbstractSocket::errorOccurred, this, [this] {
            // A reset or broken pipe from a client that gave up; nothing to report.
            if (m_socket->state() == QAbstractSocket::UnconnectedState)
                onDisconnected();
        });
        // The handshake (HTTPS) or the kernel may already have buffered the request.
        if (m_socket->bytesAvailable() > 0)
            QTimer::singleShot(0, this, &Connection::onReadyRead);
    }

    ~Connection() override
    {
        m_server->forgetConnection(this);
        // Disconnect first so the abort below cannot call back into a half-destroyed
        // connection.
        m_socket->disconnect(this);
        m_socket->abort();
    }

private:
    enum class State { Reading, Responding, Hanging, Closing };

    void onReadyRead()
    {
        m_buffer.append(m_socket->readAll());
        processBuffer();
    }

    void onDisconnected()
    {
        if (m_gone)
            return;
        m_gone = true;
        m_state = State::Closing;
        m_delayTimer.stop();
        m_trickleTimer.stop();
        deleteLater();
    }

    void processBuffer()
    {
        if (m_state != State::Reading || m_buffer.isEmpty())
            return;
        ParsedRequest parsed;
        switch (parseRequest(m_buffer, parsed)) {
        case ParseState::Incomplete:
            // curl and others wait for this before sending a large body.
            if (!m_sentContinue
                && headerHasToken(parsed.request.headers, "expect", "100-continue")) {
                m_sentContinue = true;
                m_socket->write("HTTP/1.1 100 Continue\r\n\r\n");
            }
            return;
        case ParseState::Malformed:
            sendErrorAndClose(400);
            return;
        case ParseState::TooLarge:
            sendErrorAndClose(m_buffer.indexOf("\r\n\r\n") < 0 ? 431 : 413);
            return;
        case ParseState::Complete:
            break;
        }
        m_buffer.remove(0, parsed.consumed);
        m_state = State::Responding;
        m_sentContinue = false;

        RecordedRequest &request = parsed.request;
        request.receivedAt = QDateTime::currentDateTimeUtc();
        request.receivedMsecs = m_server->elapsedMsecs();
        request.connectionId = m_id;

        const bool http10 = request.httpVersion == "HTTP/1.0";
        m_clientWantsClose = headerHasToken(request.headers, "connection", "close")
            || (http10 && !headerHasToken(request.headers, "connection", "keep-alive"));
        m_isHead = request.method == "HEAD";

        // Recorded before the answer is chosen so that a handler, or a slot on
        // requestReceived, already sees this request in requests().
        const QPointer<Connection> self(this);
        m_server->record(request);
        if (!self || m_state != State::Responding)
            return;
        Response response = m_server->respond(request);
        if (!self || m_state != State::Responding)
            return;
        startResponse(std::move(response));
    }

    void sendErrorAndClose(int status)
    {
        m_state = State::Responding;
        m_clientWantsClose = true;
        m_isHead = false;
        startResponse(Response::withStatus(status));
    }

    void startResponse(Response response)
    {
        m_response = std::move(response);
        switch (m_response.action) {
        case Response::Action::Hang:
            m_state = State::Hanging;
            return;
        case Response::Action::Drop:
            closeGracefully();
            return;
        case Response::Action::Reset:
            resetConnection();
            return;
        case Response::Action::Respond:
            break;
        }
        if (m_response.delayMs > 0) {
            m_delayTimer.start(m_response.delayMs);
        } else {
            sendHead();
        }
    }

    void sendHead()
    {
        const Response &r = m_response;
        const bool noBody = m_isHead || statusHasNoBody(r.status);
        const bool truncating = r.truncateBodyAt.has_value() && !noBody;
        m_closeAfter = r.closeConnection || m_clientWantsClose || r.omitContentLength || truncating;

        QByteArray head = "HTTP/1.1 " + QByteArray::number(r.status) + ' '
            + (r.reason.isEmpty() ? reasonPhrase(r.status) : r.reason) + "\r\n";
        for (const auto &[name, value] : r.headers)
            head += name + ": " + value + "\r\n";
        const bool lengthGiven
            = findHeader(r.headers, "content-length") || findHeader(r.headers, "transfer-encoding");
        if (!lengthGiven && !r.omitContentLength && !statusHasNoBody(r.status))
            head += "Content-Length: " + QByteArray::number(r.body.size()) + "\r\n";
        // A truncated answer imitates a server dying mid-body, so it must not warn the
        // client that the connection is about to go.
        if (m_closeAfter && !truncating && !findHeader(r.headers, "connection"))
            head += "Connection: close\r\n";
        head += "\r\n";
        m_socket->write(head);

        m_pending = noBody ? QByteArray() : r.body;
        if (truncating)
            m_pending.truncate(std::clamp<qsizetype>(*r.truncateBodyAt, 0, r.body.size()));

        if (r.trickleChunkBytes > 0 && !m_pending.isEmpty()) {
            m_trickleTimer.start(std::max(0, r.trickleIntervalMs));
            sendNextChunk();
        } else {
            m_socket->write(m_pending);
            m_pending.clear();
            finishResponse();
        }
    }

    void sendNextChunk()
    {
        if (m_socket->state() != QAbstractSocket::ConnectedState)
            return;
        const qsizetype n = std::min<qsizetype>(m_response.trickleChunkBytes, m_pending.size());
        m_socket->write(m_pending.left(n));
        m_socket->flush();
        m_pending.remove(0, n);
        if (m_pending.isEmpty()) {
            m_trickleTimer.stop();
            finishResponse();
        }
    }

    void finishResponse()
    {
        if (m_closeAfter) {
            closeGracefully();
            return;
        }
        m_state = State::Reading;
        m_response = {};
        if (!m_buffer.isEmpty())
            QTimer::singleShot(0, this, &Connection::processBuffer);
    }

    void closeGracefully()
    {
        m_state = State::Closing;
        // Sends what is still queued before the FIN; may emit disconnected() right away.
        m_socket->disconnectFromHost();
    }

    void resetConnection()
    {
        m_state = State::Closing;
#ifdef Q_OS_UNIX
        // A zero linger time makes close() send RST instead of FIN.
        const linger immediate { 1, 0 };
        ::setsockopt(int(m_socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediate,
                     sizeof immediate);
#endif
        m_socket->abort();
        onDisconnected();
    }

    HttpServer *m_server;
    QTcpSocket *m_socket;
    const int m_id;
    QByteArray m_buffer;
    State m_state = State::Reading;
    Response m_response;
    QByteArray m_pending;
    QTimer m_delayTimer;
    QTimer m_trickleTimer;
    bool m_clientWantsClose = false;
    bool m_isHead = false;
    bool m_closeAfter = false;
    bool m_gone = false;
    bool m_sentContinue = false;
};

// ---------------------------------------------------------------------------------------

HttpServer::HttpServer(QObject *parent)
    : QObject(parent)
{
    m_defaultResponse = Response::withStatus(404, QByteArrayLiteral("no route"));
}

HttpServer::~HttpServer()
{
    close();
}

bool HttpServer::listen(Mode mode)
{
    return listen(mode, 0);
}

bool HttpServer::listen(Mode mode, quint16 port)
{
    close();
    m_mode = mode;
    if (mode == Mode::Https) {
        if (!m_certificate) {
            const Certificate *shared = Certificate::shared();
            if (!shared)
                return false;
            m_certificate = *shared;
        }
        auto sslServer = std::make_unique<QSslServer>();
        QSslConfiguration configuration = m_certificate->serverConfiguration();
        // Offering only HTTP/1.1 keeps clients that would prefer HTTP/2 on a protocol this
        // server speaks.
        configuration.setAllowedNextProtocols({ QByteArrayLiteral("http/1.1") });
        sslServer->setSslConfiguration(configuration);
        m_server = std::move(sslServer);
    } else {
        m_server = std::make_unique<QTcpServer>();
    }
    // pendingConnectionAvailable rather than newConnection: QSslServer queues a socket
    // only after its handshake, and newConnection can fire before that.
    connect(m_server.get(), &QTcpServer::pendingConnectionAvailable, this,
            &HttpServer::acceptPending);
    if (!m_server->listen(QHostAddress::LocalHost, port)) {
        qWarning("HttpServer: cannot listen: %ls", qUtf16Printable(m_server->errorString()));
        m_server.reset();
        return false;
    }
    m_clock.start();
    return true;
}

void HttpServer::close()
{
    if (m_server) {
        m_server->close();
        m_server->disconnect(this);
    }
    const QList<Connection *> connections = std::exchange(m_connections, {});
    qDeleteAll(connections);
    m_server.reset();
}

bool HttpServer::isListening() const
{
    return m_server && m_server->isListening();
}

quint16 HttpServer::port() const
{
    return m_server ? m_server->serverPort() : 0;
}

QUrl HttpServer::baseUrl() const
{
    QUrl url;
    url.setScheme(m_mode == Mode::Https ? u"https"_s : u"http"_s);
    url.setHost(u"127.0.0.1"_s);
    url.setPort(port());
    return url;
}

QUrl HttpServer::url(const QString &pathAndQuery) const
{
    return baseUrl().resolved(QUrl(pathAndQuery));
}

void HttpServer::setCertificate(const Certificate &certificate)
{
    m_certificate = certificate;
}

HttpServer::Route &HttpServer::routeFor(const QString &path, const QByteArray &method)
{
    const RouteKey key { method.toUpper(), path };
    for (auto &[existing, route] : m_routes) {
        if (existing == key)
            return route;
    }
    m_routes.emplace_back(key, Route {});
    return m_routes.back().second;
}

void HttpServer::setResponse(const QString &path, const Response &response,
                             const QByteArray &method)
{
    routeFor(path, method).fixed = response;
}

void HttpServer::enqueueResponse(const QString &path, const Response &response,
                                 const QByteArray &method)
{
    routeFor(path, method).queue.push_back(response);
}

void HttpServer::setHandler(const QString &path, Handler handler, const QByteArray &method)
{
    routeFor(path, method).handler = std::move(handler);
}

void HttpServer::setDefaultResponse(const Response &response)
{
    m_defaultResponse = response;
}

void HttpServer::setDefaultHandler(Handler handler)
{
    m_defaultHandler = std::move(handler);
}

void HttpServer::clearRoutes()
{
    m_routes.clear();
}

void HttpServer::clear()
{
    m_requests.clear();
}

void HttpServer::acceptPending()
{
    while (m_server && m_server->hasPendingConnections()) {
        QTcpSocket *socket = m_server->nextPendingConnection();
        if (!socket)
            break;
        m_connections.append(new Connection(this, socket, m_nextConnectionId++));
    }
}

void HttpServer::forgetConnection(Connection *connection)
{
    m_connections.removeOne(connection);
}

void HttpServer::record(const RecordedRequest &request)
{
    m_requests.append(request);
    Q_EMIT requestReceived(request);
}

Response HttpServer::respond(const RecordedRequest &request)
{
    const QString path = request.path();
    const QByteArray method = request.method.toUpper();

    // Narrowest match first: exact path before prefix (longer prefix first), then a
    // route for this method before an any-method one.
    struct Candidate
    {
        Route *route;
        qsizetype prefixLength; // -1 for an exact match
        bool anyMethod;
    };
    QList<Candidate> candidates;
    for (auto &[key, route] : m_routes) {
        const auto &[routeMethod, routePath] = key;
        if (!routeMethod.isEmpty() && routeMethod != method)
            continue;
        if (routePath == path) {
            candidates.append({ &route, -1, routeMethod.isEmpty() });
        } else if (routePath.endsWith(u'*')) {
            const QStringView prefix = QStringView(routePath).chopped(1);
            if (path.startsWith(prefix))
                candidates.append({ &route, prefix.size(), routeMethod.isEmpty() });
        }
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate &a, const Candidate &b) {
                         const bool aExact = a.prefixLength < 0;
                         const bool bExact = b.prefixLength < 0;
                         if (aExact != bExact)
                             return aExact;
                         if (a.prefixLength != b.prefixLength)
                             return a.prefixLength > b.prefixLength;
                         return !a.anyMethod && b.anyMethod;
                     });

    for (const Candidate &candidate : std::as_const(candidates)) {
        Route &route = *candidate.route;
        if (!route.queue.empty()) {
            Response response = std::move(route.queue.front());
            route.queue.pop_front();
            return response;
        }
        if (route.handler) {
            // Copy: the handler may replace itself via setHandler().
            const Handler handler = route.handler;
            return handler(request);
        }
        if (route.fixed)
            return *route.fixed;
    }
    if (m_defaultHandler) {
        const Handler handler = m_defaultHandler;
        return handler(request);
    }
    return m_defaultResponse;
}

} // namespace velmora::loopback
