#pragma once

#include "common/expected.h"
#include "network/apirequest.h"
#include "network/apiresponse.h"
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <optional>
#include <utility>
#include <variant>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

namespace velmora {

class SDKConfiguration;
class UserIdentityRepository;

/// Request headers in the order they are built; entries without a value are not sent.
using RequestHeaders = QList<std::pair<QString, std::optional<QString>>>;
/// Response headers with lower-case names.
using ResponseHeaders = QHash<QString, QString>;

/// The header set of every call, built afresh: tenant and key always (empty when unset), the
/// two identity headers only when something is stored, then the device facts.
RequestHeaders buildRequestHeaders(const SDKConfiguration &config,
                                   const UserIdentityRepository &repository);

/// Anything a call can fail with: the library's error, or a body the decoder rejected (kept
/// apart so the caller decides how to report it).
using APIFailure = std::variant<VelmoraError, DecodingError>;

/// The failure as the host sees it: a decoding failure becomes a network error wrapping it.
VelmoraError toVelmoraError(const APIFailure &failure);
/// True for a cancelled task or transfer, looking through network errors that wrap one.
bool isCancellation(const APIFailure &failure);
bool isCancellation(const VelmoraError &error);

struct ViewEventsReply
{
    APIResponse response;
    ResponseHeaders headers;
};

/// One request in flight. It deletes itself once its completion has run; hold it in a
/// QPointer.
class APICall : public QObject
{
    Q_OBJECT

public:
    /// Aborts the transfer; the completion then reports a cancelled network error. Does
    /// nothing once the response has arrived.
    void cancel();

private:
    friend class APIClient;
    explicit APICall(QObject *parent);

    enum class BodyUse {
        Keep, ///< a view event's answer, bounded by the client's limit
        Discard, ///< a reaction's answer: read as it arrives and dropped
    };

    QPointer<QNetworkReply> m_reply;
    QTimer *m_deadline = nullptr;
    // What each hop of a redirect sends again, and the origin that must not change.
    QNetworkRequest m_request;
    QByteArray m_requestBody;
    QUrl m_origin;
    int m_redirects = 0;
    BodyUse m_bodyUse = BodyUse::Keep;
    QByteArray m_received;
    qint64 m_discardedBytes = 0;
    // Set just before the client aborts a reply it refuses (too large).
    std::optional<VelmoraError> m_refusal;
    bool m_cancelled = false;
    bool m_timedOut = false;
    bool m_replyDone = false;
};

/// The one door to the messaging back end: POSTs a request body to the API host followed by
/// the request's path, and classifies the outcome. Use it from the thread it lives on; every
/// completion runs later on that thread, never inside the call that started it.
class APIClient : public QObject
{
    Q_OBJECT

public:
    struct Timeouts
    {
        /// Idle limit carried by each request.
        std::chrono::milliseconds request { 60000 };
        /// Idle limit of the session, for requests that carry none.
        std::chrono::milliseconds sessionRequest { 30000 };
        /// End-to-end limit of a call; this is the one that bounds a slow trickle.
        std::chrono::milliseconds resource { 30000 };
    };

    struct Limits
    {
        /// A view event's answer larger than this is abandoned as soon as its announced length
        /// or the bytes received pass it.
        qint64 maxResponseBytes = 10 * 1024 * 1024;
        /// Same-origin redirects followed within one call.
        int maxRedirects = 5;
    };

    /// What Qt may buffer for one reply before the client reads it.
    static constexpr qint64 readBufferBytes = 64 * 1024;

    explicit APIClient(QObject *parent = nullptr);
    ~APIClient() override;

    void setTimeouts(const Timeouts &timeouts);
    Timeouts timeouts() const { return m_timeouts; }
    void setLimits(const Limits &limits) { m_limits = limits; }
    Limits limits() const { return m_limits; }
    /// The most bytes of one response body this client has held at once, its own and those
    /// waiting in Qt's reply buffer; shows that bodies stay within the limits.
    qint64 peakBufferedBytes() const { return m_peakBufferedBytes; }
    /// For TLS settings (trusted CAs) and proxies.
    QNetworkAccessManager *networkAccessManager() const { return m_manager; }

    using ViewEventsCompletion = std::function<void(Expected<ViewEventsReply, APIFailure>)>;
    using ReactionEventsCompletion = std::function<void(Expected<ResponseHeaders, APIFailure>)>;

    /// Posts a view event and decodes the answer off the calling thread.
    APICall *viewEvents(const EventsViewRequest &request, const QString &apiHost,
                        const RequestHeaders &headers, ViewEventsCompletion completion);
    /// Posts a reaction; the body of the answer is not read.
    APICall *reactionEvents(const EventsReactionRequest &request, const QString &apiHost,
                            const RequestHeaders &headers, ReactionEventsCompletion completion);

    /// Lower-cases names; a later header wins over an earlier one differing only in case;
    /// names or values that are not valid UTF-8 are skipped.
    static ResponseHeaders normalizeHeaders(const QList<std::pair<QByteArray, QByteArray>> &raw);

private:
    struct Exchange
    {
        QByteArray body; // empty for a discarded body
        qint64 bodySize = 0;
        ResponseHeaders headers;
    };
    using ExchangeCompletion = std::function<void(APICall *, Expected<Exchange, APIFailure>)>;

    APICall *send(const QString &path, const EncodedBody &body, const QString &description,
                  const QString &apiHost, const RequestHeaders &headers, APICall::BodyUse bodyUse,
                  ExchangeCompletion completion);
    void startHop(APICall *call, const QUrl &url, const ExchangeCompletion &completion);
    void checkAnnouncedLength(APICall *call, QNetworkReply *reply);
    bool readBody(APICall *call, QNetworkReply *reply);
    void refuseOversized(APICall *call);
    void finishHop(APICall *call, QNetworkReply *reply, const ExchangeCompletion &completion);
    /// The next URL of a redirect that may be followed, or the failure that ends the call.
    Expected<QUrl, APIFailure> redirectTarget(APICall *call, QNetworkReply *reply, int status);

    QNetworkAccessManager *m_manager;
    Timeouts m_timeouts;
    Limits m_limits;
    qint64 m_peakBufferedBytes = 0;
};

} // namespace velmora
