#include "network/apiclient.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include "common/logging.h"
#include "common/threading.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"

#include <QFutureWatcher>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

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
        [completion = std::move(completion)](APICall *call, Expected<Exchange, APIFailure> result) {
            if (result) {
                qCDebug(lcVelmoraNetwork).noquote() << u"reactionEvents response: "_s
                        + QString::number(result.value().body.size()) + u" bytes"_s;
                completion(result.value().headers);
            } else {
                completion(result.error());
            }
            call->deleteLater();
        });
}

APICall *APIClient::send(const QString &path, const EncodedBody &body, const QString &description,
                         const QString &apiHost, const RequestHeaders &headers,
                         ExchangeCompletion completion)
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
    for (const auto &[name, value] : headers) {
        // A null value would make Qt drop the header, but an empty tenant or key must still be
        // sent, so the value is always a non-null array.
        if (value)
            request.setRawHeader(name.toUtf8(),
                                 value->isEmpty() ? QByteArray("") : value->toUtf8());
    }
    QNetworkReply *reply = m_manager->post(request, body.value());
    reply->setParent(call);
    call->m_reply = reply;

    call->m_deadline = detail::startDeadline(call, m_timeouts.resource, [call] {
        if (call->m_replyDone || !call->m_reply)
            return;
        call->m_timedOut = true;
        call->m_reply->abort();
    });

    // abort() emits finished() synchronously, so the handler must tolerate running inside
    // cancel() or the deadline; finishExchange defers the completion itself.
    connect(reply, &QNetworkReply::finished, call,
            [this, call, reply, completion] { finishExchange(call, reply, completion); });
    return call;
}

void APIClient::finishExchange(APICall *call, QNetworkReply *reply,
                               const ExchangeCompletion &completion)
{
    if (call->m_replyDone)
        return;
    call->m_replyDone = true;
    call->m_deadline->stop();

    const auto deliver = [call, completion](Expected<Exchange, APIFailure> result) {
        detail::deliverLater<Expected<Exchange, APIFailure>>(
            call, [call, completion](Expected<Exchange, APIFailure> r) { completion(call, r); },
            std::move(result));
    };

    const QNetworkReply::NetworkError code = reply->error();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    reply->deleteLater();

    if (code == QNetworkReply::OperationCanceledError && !call->m_cancelled) {
        // Either our end-to-end deadline or Qt's idle limit fired: both are time-outs, not
        // cancellations, so callers do not mistake them for a superseded request.
        deliver(APIFailure(VelmoraError::networkError(
            UnderlyingError::network(QNetworkReply::TimeoutError, u"The request timed out."_s))));
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
        deliver(Exchange { reply->readAll(), normalizeHeaders(reply->rawHeaderPairs()) });
    } else if (statusCode >= 400 && statusCode <= 499) {
        deliver(APIFailure(VelmoraError::clientError(statusCode)));
    } else {
        deliver(APIFailure(VelmoraError::serverError(statusCode)));
    }
}

} // namespace velmora
