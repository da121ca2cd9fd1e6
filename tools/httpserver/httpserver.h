#pragma once

#include "httpserver/certificate.h"

#include <QByteArray>
#include <QDateTime>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QUrl>
#include <QUrlQuery>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

QT_BEGIN_NAMESPACE
class QTcpServer;
class QJsonDocument;
QT_END_NAMESPACE

namespace velmora::loopback {

// Name/value pairs in wire order. A list rather than a map so tests can send duplicate
// names or names in unusual case and see exactly what a client sent.
using HeaderList = QList<std::pair<QByteArray, QByteArray>>;

struct RecordedRequest
{
    QByteArray method;
    // The request target exactly as sent: percent-encoding and query included.
    QString target;
    QByteArray httpVersion; // "HTTP/1.1"
    HeaderList headers;
    QByteArray body; // de-chunked if the client used chunked transfer coding
    QDateTime receivedAt; // UTC, when the last byte of the request arrived
    qint64 receivedMsecs = 0; // monotonic, since listen(); use this to measure gaps
    int connectionId = 0; // equal for requests that shared a keep-alive connection

    QString path() const; // target without the query
    QUrlQuery query() const;
    // Case-insensitive; the first value when the header was sent more than once.
    QByteArray header(QByteArrayView name) const;
    QList<QByteArray> headerValues(QByteArrayView name) const;
    bool hasHeader(QByteArrayView name) const;
    QJsonDocument json() const;
};

struct Response
{
    enum class Action {
        Respond,
        Drop, // close the connection without sending anything
        Reset, // abort the connection with a TCP reset, without sending anything
        Hang, // never answer; the connection stays open until the client gives up
    };

    int status = 200;
    QByteArray reason; // empty: the usual phrase for the status
    // Sent as given. Content-Length is added unless one is listed here, Transfer-Encoding
    // is listed, or omitContentLength is set; Connection: close is added when the server
    // is going to close, except for a truncated body, which must come as a surprise.
    HeaderList headers;
    QByteArray body;

    Action action = Action::Respond;
    int delayMs = 0; // before the status line
    // With trickleChunkBytes > 0 the body goes out in pieces of that size, one every
    // trickleIntervalMs, the first right after the headers.
    int trickleChunkBytes = 0;
    int trickleIntervalMs = 0;
    // Announce body.size() but send only this many body bytes, then close.
    std::optional<qsizetype> truncateBodyAt;
    // No length at all: the end of the body is marked by closing the connection.
    bool omitContentLength = false;
    bool closeConnection = false; // close after this response even if keep-alive

    static Response withStatus(int status, QByteArray body = {});
    static Response json(QByteArray body, int status = 200);
    static Response redirect(int status, const QByteArray &location);
    static Response drop();
    static Response reset();
    static Response hang();

    Response &header(QByteArray name, QByteArray value);
    Response &delayed(int ms);
    Response &trickled(int chunkBytes, int intervalMs);
    Response &truncated(qsizetype sentBodyBytes);
};

// A real HTTP/1.1 server on 127.0.0.1 for tests of network code: it records every
// request and answers from per-route responses, queues or handlers, including answers
// that misbehave on purpose. It lives in the thread that creates it; run the client in
// the same event loop (e.g. QTRY_ or QSignalSpy::wait) so both make progress.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    enum class Mode { Http, Https };
    Q_ENUM(Mode)
    using Handler = std::function<Response(const RecordedRequest &)>;

    explicit HttpServer(QObject *parent = nullptr);
    ~HttpServer() override;

    // Https uses Certificate::shared() unless setCertificate() was called first.
    bool listen(Mode mode = Mode::Http);
    // On a chosen port of 127.0.0.1 (0: any free one), for servers that others must find.
    bool listen(Mode mode, quint16 port);
    void close(); // stops listening and drops every open connection
    bool isListening() const;
    Mode mode() const { return m_mode; }
    quint16 port() const;
    QUrl baseUrl() const; // http(s)://127.0.0.1:PORT
    QUrl url(const QString &pathAndQuery) const; // baseUrl() plus "/x?y=z"

    void setCertificate(const Certificate &certificate);

    // Routes match the path without the query, exactly, or by prefix when the route
    // ends in '*'. An empty method matches any method; a route for the method wins over
    // an any-method one, and an exact path over a prefix. Within a route, queued
    // responses are used up first, then the handler, then the fixed response; a request
    // no route answers gets the default handler or default response (404).
    void setResponse(const QString &path, const Response &response, const QByteArray &method = {});
    void enqueueResponse(const QString &path, const Response &response,
                         const QByteArray &method = {});
    void setHandler(const QString &path, Handler handler, const QByteArray &method = {});
    void setDefaultResponse(const Response &response);
    void setDefaultHandler(Handler handler);
    void clearRoutes();

    QList<RecordedRequest> requests() const { return m_requests; }
    qsizetype requestCount() const { return m_requests.size(); }
    RecordedRequest lastRequest() const { return m_requests.value(m_requests.size() - 1); }
    void clear(); // forgets recorded requests, keeps routes
    int openConnectionCount() const { return int(m_connections.size()); }
    int connectionsAccepted() const { return m_nextConnectionId - 1; }

Q_SIGNALS:
    void requestReceived(const velmora::loopback::RecordedRequest &request);

private:
    class Connection;
    friend class Connection;

    struct Route
    {
        std::deque<Response> queue;
        Handler handler;
        std::optional<Response> fixed;
    };
    using RouteKey = std::pair<QByteArray, QString>;

    Route &routeFor(const QString &path, const QByteArray &method);
    void acceptPending();
    void forgetConnection(Connection *connection);
    Response respond(const RecordedRequest &request);
    qint64 elapsedMsecs() const { return m_clock.elapsed(); }
    void record(const RecordedRequest &request);

    std::unique_ptr<QTcpServer> m_server;
    std::optional<Certificate> m_certificate;
    Mode m_mode = Mode::Http;
    QList<Connection *> m_connections;
    QList<RecordedRequest> m_requests;
    std::vector<std::pair<RouteKey, Route>> m_routes;
    Response m_defaultResponse;
    Handler m_defaultHandler;
    QElapsedTimer m_clock;
    int m_nextConnectionId = 1;
};

} // namespace velmora::loopback

Q_DECLARE_METATYPE(velmora::loopback::RecordedRequest)
Q_DECLARE_METATYPE(velmora::loopback::Response)
