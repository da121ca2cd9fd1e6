#include "network/apiclient.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include "common/logging.h"
#include "common/threading.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"

#include <QFutureWatcher>
#include <QIODevice>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cstring>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

bool isCancellation(const UnderlyingError &error)
{
    switch (error.domain()) {
    case UnderlyingError::Domain::Cancellation:
        return true;
    case UnderlyingError::Domain::Network:
        return error.networkCode() == QNetworkReply::OperationCanceledError;
    case UnderlyingError::Domain::Library:
        return error.wrappedError() && velmora::isCancellation(*error.wrappedError());
    case UnderlyingError::Domain::Decoding:
    case UnderlyingError::Domain::ImageLoad:
        return false;
    }
    return false;
}

// Qt turns many HTTP statuses into error codes of its own (400 becomes a protocol error, 407 a
// proxy error); for those the status decides. Only these codes mean the exchange itself broke.
bool isTransportFailure(QNetworkReply::NetworkError code)
{
    const int value = int(code);
    return (value >= 1 && value <= 99) || (value >= 101 && value <= 104) || value == 199
        || code == QNetworkReply::ProtocolUnknownError || code == QNetworkReply::ProtocolFailure;
}

bool isSuccess(const QNetworkReply *reply)
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return status >= 200 && status <= 299;
}

// CR or LF in a value would let it add header lines of its own; no other control character has
// any business in one either (a tab is allowed by HTTP and harmless).
bool isSafeHeaderValue(const QString &value)
{
    return std::none_of(value.cbegin(), value.cend(), [](QChar c) {
        return (c.unicode() < 0x20 && c != u'\t') || c.unicode() == 0x7f;
    });
}

int defaultPort(const QUrl &url)
{
    return url.scheme() == u"https" ? 443 : 80;
}

bool sameOrigin(const QUrl &a, const QUrl &b)
{
    return a.scheme() == b.scheme() && a.host() == b.host()
        && a.port(defaultPort(a)) == b.port(defaultPort(b));
}

QString originText(const QUrl &url)
{
    const QString host = url.host(QUrl::FullyEncoded);
    return url.scheme() + u"://"_s + (host.contains(u':') ? u'[' + host + u']' : host) + u':'
        + QString::number(url.port(defaultPort(url)));
}

// The request body of one hop. Qt re-sends a request by itself when the connection closes
// before the response, which can deliver an event twice; it can only do so by rewinding the
// body, and this one refuses to rewind, so each request reaches the server at most once. Qt
// then reports the closed connection (or ContentReSendError) instead.
class OneShotBody final : public QIODevice
{
public:
    explicit OneShotBody(QByteArray data)
        : m_data(std::move(data))
    {
        open(QIODevice::ReadOnly);
    }

    bool isSequential() const override { return true; }
    bool reset() override { return false; }
    qint64 bytesAvailable() const override
    {
        return m_data.size() - m_position + QIODevice::bytesAvailable();
    }
    bool atEnd() const override { return m_position >= m_data.size() && QIODevice::atEnd(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 n = std::min(maxSize, m_data.size() - m_position);
        std::memcpy(data, m_data.constData() + m_position, size_t(n));
        m_position += n;
        return n;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_data;
    qint64 m_position = 0;
};

std::optional<QString> decodeUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace

RequestHeaders buildRequestHeaders(const SDKConfiguration &config,
                                   const UserIdentityRepository &repository)
{
    const DeviceInfo &device = config.deviceInfo();
    return {
        { u"tenant-id"_s, config.tenantId.value_or(QString()) },
        { u"x-api-key"_s, config.apiKey.value_or(QString()) },
        { u"x-vorpex-visitor-id"_s, repository.visitorId() },
        { u"x-vorpex-customer-id"_s, repository.hashedCustomerId() },
        { u"x-os"_s, DeviceInfo::osName() },
        { u"x-os-version"_s, device.osVersion },
        { u"x-device-name"_s, device.deviceName },
        { u"x-sdk-version"_s, device.sdkVersion },
        { u"content-type"_s, u"application/json"_s },
    };
}

VelmoraError toVelmoraError(const APIFailure &failure)
{
    if (const auto *error = std::get_if<VelmoraError>(&failure))
        return *error;
    return VelmoraError::networkError(
        UnderlyingError::decoding(std::get<DecodingError>(failure).description));
}

bool isCancellation(const VelmoraError &error)
{
    return error.kind() == VelmoraError::Kind::NetworkError && error.underlyingError()
        && isCancellation(*error.underlyingError());
}

bool isCancellation(const APIFailure &failure)
{
    const auto *error = std::get_if<VelmoraError>(&failure);
    return error && isCancellation(*error);
}

APICall::APICall(QObject *parent)
    : QObject(parent)
{ }

void APICall::cancel()
{
    if (m_replyDone || m_cancelled)
        return;
    m_cancelled = true;
    if (m_reply)
        m_reply->abort();
}

APIClient::APIClient(QObject *parent)
    : QObject(parent)
    , m_manager(new QNetworkAccessManager(this))
{
    setTimeouts(m_timeouts);
}

APIClient::~APIClient() = default;

void APIClient::setTimeouts(const Timeouts &timeouts)
{
    m_timeouts = timeouts;
    m_manager->setTransferTimeout(int(timeouts.sessionRequest.count()));
}

ResponseHeaders APIClient::normalizeHeaders(const QList<std::pair<QByteArray, QByteArray>> &raw)
{
    ResponseHeaders headers;
    for (const auto &[rawName, rawValue] : raw) {
        const auto name = decodeUtf8(rawName);
        const auto value = decodeUtf8(rawValue);
        if (name && value)
            headers.insert(name->toLower(), *value);
    }
    return headers;
}

APICall *APIClient::viewEvents(const EventsViewRequest &request, const QString &apiHost,
                               const RequestHeaders &headers, ViewEventsCompletion completion)
{
    return send(
        EventsViewRequest::path(), request.encode(), request.describe(), apiHost, headers,
        APICall::BodyUse::Keep,
        [completion = std::move(completion)](APICall *call, Expected<Exchange, APIFailure> result) {
            if (!result) {
                completion(result.error());
                call->deleteLater();
                return;
            }
            // Decoding a large answer must not stall the GUI thread; the watcher belongs to
            // the call, so a client destroyed meanwhile drops the result quietly.
            auto *watcher = new QFutureWatcher<Expected<APIResponse, DecodingError>>(call);
            QObject::connect(watcher, &QFutureWatcherBase::finished, call,
                             [watcher, completion, headers = result.value().headers, call] {
                                 const auto decoded = watcher->result();
                                 if (decoded)
                                     completion(ViewEventsReply { decoded.value(), headers });
                                 else
                                     completion(APIFailure(decoded.error()));
                                 call->deleteLater();
                             });
            watcher->setFuture(QtConcurrent::run(decodeAPIResponse, result.value().body));
        });
}

APICall *APIClient::reactionEvents(const EventsReactionRequest &request, const QString &apiHost,
                                   const RequestHeaders &headers,
                                   ReactionEventsCompletion completion)
{
    return send(
        EventsReactionRequest::path(), request.encode(), request.describe(), apiHost, headers,
        APICall::BodyUse::Discard,
        [completion = std::move(completion)](APICall *call, Expected<Exchange, APIFailure> result) {
            if (result) {
                qCDebug(lcVelmoraNetwork).noquote() << u"reactionEvents response: "_s
                        + QString::number(result.value().bodySize) + u" bytes"_s;
                completion(result.value().headers);
            } else {
                completion(result.error());
            }
            call->deleteLater();
        });
}

APICall *APIClient::send(const QString &path, const EncodedBody &body, const QString &description,
                         const QString &apiHost, const RequestHeaders &headers,
                         APICall::BodyUse bodyUse, ExchangeCompletion completion)
{
    auto *call = new APICall(this);
    const auto fail = [&](const VelmoraError &error) {
        detail::deliverLater<Expected<Exchange, APIFailure>>(
            call, [call, completion](Expected<Exchange, APIFailure> r) { completion(call, r); },
            APIFailure(error));
        return call;
    };

    // Plain concatenation: a host ending in "/" yields "//" before the path, on purpose.
    const QString urlText = apiHost + path;
    const QUrl url(urlText, QUrl::StrictMode);
    if (!url.isValid()) {
        return fail(VelmoraError::precondition(
            u"Failed to build a valid URL from apiHost + path: \""_s + urlText
            + u"\". Check the apiHost passed to VelmoraInAppMessaging::shared().setup()."_s));
    }
    if (!body) {
        return fail(VelmoraError::precondition(u"Failed to encode request data for "_s + description
                                               + u": "_s + body.error()));
    }

    QNetworkRequest request(url);
    request.setTransferTimeout(int(m_timeouts.request.count()));
    // Redirects are followed by the client itself, so that credentials stay on the origin.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    // Streamed from a body that cannot rewind (see OneShotBody); Qt needs the length for that.
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.value().size());
    for (const auto &[name, value] : headers) {
        if (!value)
            continue;
        if (!isSafeHeaderValue(*value)) {
            qCDebug(lcVelmoraNetwork).noquote()
                << u"header not sent, its value has a control character: "_s + name;
            continue;
        }
        // A null value would make Qt drop the header, but an empty tenant or key must still be
        // sent, so the value is always a non-null array.
        request.setRawHeader(name.toUtf8(), value->isEmpty() ? QByteArray("") : value->toUtf8());
    }
    call->m_request = request;
    call->m_requestBody = body.value();
    call->m_origin = url;
    call->m_bodyUse = bodyUse;
    startHop(call, url, completion);

    call->m_deadline = detail::startDeadline(call, m_timeouts.resource, [call] {
        if (call->m_replyDone || !call->m_reply)
            return;
        call->m_timedOut = true;
        call->m_reply->abort();
    });
    return call;
}

void APIClient::startHop(APICall *call, const QUrl &url, const ExchangeCompletion &completion)
{
    QNetworkRequest request = call->m_request;
    request.setUrl(url);
    auto *body = new OneShotBody(call->m_requestBody);
    QNetworkReply *reply = m_manager->post(request, body);
    body->setParent(reply);
    reply->setParent(call);
    // Without a bound Qt reads a whole body into the reply however fast it arrives. Qt hands
    // the bound to its network thread only once the transfer has started, which happens in a
    // queued call (the body is streamed), so it is set in one queued after that.
    QMetaObject::invokeMethod(
        reply, [reply] { reply->setReadBufferSize(readBufferBytes); }, Qt::QueuedConnection);
    call->m_reply = reply;

    connect(reply, &QNetworkReply::metaDataChanged, call,
            [this, call, reply] { checkAnnouncedLength(call, reply); });
    connect(reply, &QIODevice::readyRead, call, [this, call, reply] {
        if (!readBody(call, reply))
            refuseOversized(call);
    });
    // abort() emits finished() synchronously, so the handler must tolerate running inside
    // cancel(), the deadline or a refusal; finishHop defers the completion itself.
    connect(reply, &QNetworkReply::finished, call,
            [this, call, reply, completion] { finishHop(call, reply, completion); });
}

void APIClient::checkAnnouncedLength(APICall *call, QNetworkReply *reply)
{
    if (call->m_replyDone || reply != call->m_reply || call->m_bodyUse != APICall::BodyUse::Keep
        || !isSuccess(reply))
        return;
    bool ok = false;
    const qint64 announced = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&ok);
    if (ok && announced > m_limits.maxResponseBytes)
        refuseOversized(call);
}

bool APIClient::readBody(APICall *call, QNetworkReply *reply)
{
    if (call->m_refusal || reply != call->m_reply || !reply->isOpen())
        return true;
    const qint64 available = reply->bytesAvailable();
    if (call->m_bodyUse == APICall::BodyUse::Discard || !isSuccess(reply)) {
        // Nothing but the size of a reaction's answer or of a failed status is ever used.
        m_peakBufferedBytes = std::max(m_peakBufferedBytes, available);
        char chunk[16 * 1024];
        for (qint64 n; (n = reply->read(chunk, sizeof chunk)) > 0;)
            call->m_discardedBytes += n;
        return true;
    }
    const qint64 held = call->m_received.size() + available;
    m_peakBufferedBytes = std::max(m_peakBufferedBytes, held);
    if (held > m_limits.maxResponseBytes)
        return false;
    call->m_received += reply->readAll();
    return true;
}

void APIClient::refuseOversized(APICall *call)
{
    if (call->m_refusal || call->m_replyDone)
        return;
    call->m_refusal = VelmoraError::networkError(UnderlyingError::network(
        QNetworkReply::UnknownContentError,
        u"The response body exceeds "_s + QString::number(m_limits.maxResponseBytes)
            + u" bytes; the transfer was abandoned."_s));
    call->m_received = {};
    if (call->m_reply)
        call->m_reply->abort();
}

Expected<QUrl, APIFailure> APIClient::redirectTarget(APICall *call, QNetworkReply *reply,
                                                     int status)
{
    const QByteArray location = reply->rawHeader("Location");
    const QUrl target = reply->url().resolved(QUrl(QString::fromUtf8(location)));
    const bool isRedirect
        = status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
    if (!isRedirect || location.isEmpty() || !target.isValid())
        return APIFailure(VelmoraError::serverError(status));
    // Every request carries the API key and tenant: whatever the status, they never go to
    // another scheme, host or port than the one configured.
    if (!sameOrigin(target, call->m_origin)) {
        return APIFailure(VelmoraError::networkError(UnderlyingError::network(
            QNetworkReply::InsecureRedirectError,
            u"Refused to follow a redirect from "_s + originText(call->m_origin) + u" to "_s
                + originText(target)
                + u": requests carry the API key and tenant only to the configured API origin."_s)));
    }
    // 301, 302, 307 and 308 are followed with the same POST and body: an event endpoint takes
    // nothing else, so the GET that user agents historically make of a 301 or 302 could only
    // lose the event. 303 asks for a GET of another resource instead, which has no meaning for
    // an event, so it reaches the caller as a 3xx like any other.
    if (status == 303)
        return APIFailure(VelmoraError::serverError(status));
    if (++call->m_redirects > m_limits.maxRedirects) {
        return APIFailure(VelmoraError::networkError(
            UnderlyingError::network(QNetworkReply::TooManyRedirectsError,
                                     u"Stopped after "_s + QString::number(m_limits.maxRedirects)
                                         + u" redirects within the API origin."_s)));
    }
    return target;
}

void APIClient::finishHop(APICall *call, QNetworkReply *reply, const ExchangeCompletion &completion)
{
    if (call->m_replyDone || reply != call->m_reply)
        return;

    const auto deliver = [call, completion](Expected<Exchange, APIFailure> result) {
        call->m_replyDone = true;
        call->m_deadline->stop();
        detail::deliverLater<Expected<Exchange, APIFailure>>(
            call, [call, completion](Expected<Exchange, APIFailure> r) { completion(call, r); },
            std::move(result));
    };

    reply->disconnect(call);
    reply->deleteLater();
    if (!call->m_refusal && !readBody(call, reply))
        refuseOversized(call);
    if (call->m_refusal) {
        deliver(APIFailure(*call->m_refusal));
        return;
    }

    const QNetworkReply::NetworkError code = reply->error();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (code == QNetworkReply::OperationCanceledError && !call->m_cancelled) {
        // Either our end-to-end deadline or Qt's idle limit fired: both are time-outs, not
        // cancellations, so callers do not mistake them for a superseded request.
        deliver(APIFailure(VelmoraError::networkError(
            UnderlyingError::network(QNetworkReply::TimeoutError, u"The request timed out."_s))));
        return;
    }
    if (code == QNetworkReply::ContentReSendError && !status.isValid()) {
        // Qt wanted to send the request again after the connection closed, and OneShotBody
        // refused: to the caller this is the closed connection itself. (With a status, this is
        // Qt preparing to follow a 307 or 308 itself, which the client does instead.)
        deliver(APIFailure(VelmoraError::networkError(UnderlyingError::network(
            QNetworkReply::RemoteHostClosedError,
            u"The connection closed before the response; the request is not sent again, "_s
            u"since the server may already have received it."_s))));
        return;
    }
    if (isTransportFailure(code) || (code != QNetworkReply::NoError && !status.isValid())) {
        deliver(APIFailure(
            VelmoraError::networkError(UnderlyingError::network(code, reply->errorString()))));
        return;
    }
    if (!status.isValid()) {
        deliver(APIFailure(VelmoraError::precondition(
            u"URLSession returned a non-HTTP response for "_s + reply->url().toString()
            + u". This indicates an unexpected URLSession configuration rather than a "_s
              u"retryable network condition."_s)));
        return;
    }
    const int statusCode = status.toInt();
    if (statusCode >= 200 && statusCode <= 299) {
        // A success status whose content Qt could not decode (a bad or oversized
        // Content-Encoding) has no usable body: the exchange failed.
        if (code != QNetworkReply::NoError) {
            deliver(APIFailure(
                VelmoraError::networkError(UnderlyingError::network(code, reply->errorString()))));
            return;
        }
        const qint64 size = call->m_bodyUse == APICall::BodyUse::Keep ? call->m_received.size()
                                                                      : call->m_discardedBytes;
        deliver(Exchange { std::exchange(call->m_received, {}), size,
                           normalizeHeaders(reply->rawHeaderPairs()) });
    } else if (statusCode >= 300 && statusCode <= 399) {
        auto next = redirectTarget(call, reply, statusCode);
        if (!next) {
            deliver(next.error());
            return;
        }
        call->m_discardedBytes = 0;
        startHop(call, next.value(), completion);
    } else if (statusCode >= 400 && statusCode <= 499) {
        deliver(APIFailure(VelmoraError::clientError(statusCode)));
    } else {
        deliver(APIFailure(VelmoraError::serverError(statusCode)));
    }
}

} // namespace velmora
