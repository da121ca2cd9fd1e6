#pragma once

#include "common/expected.h"
#include "network/apirequest.h"
#include "network/apiresponse.h"
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

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

    QPointer<QNetworkReply> m_reply;
    QTimer *m_deadline = nullptr;
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

    explicit APIClient(QObject *parent = nullptr);
    ~APIClient() override;

    void setTimeouts(const Timeouts &timeouts);
    Timeouts timeouts() const { return m_timeouts; }
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
        QByteArray body;
        ResponseHeaders headers;
    };
    using ExchangeCompletion = std::function<void(APICall *, Expected<Exchange, APIFailure>)>;

    APICall *send(const QString &path, const EncodedBody &body, const QString &description,
                  const QString &apiHost, const RequestHeaders &headers,
                  ExchangeCompletion completion);
    void finishExchange(APICall *call, QNetworkReply *reply, const ExchangeCompletion &completion);

    QNetworkAccessManager *m_manager;
    Timeouts m_timeouts;
};

} // namespace velmora
