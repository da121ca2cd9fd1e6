#pragma once

#include "network/apiclient.h"
#include "service/callbacks.h"
#include "service/displaycoordinatortype.h"
#include "service/reactionbackgroundtask.h"
#include "service/reactionretrypolicy.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

namespace velmora {

class SDKConfiguration;
class UserIdentityRepository;
class VelmoraInAppMessagingDelegate;

/// Turns a screen view into one view-event request and its answer into messages on screen,
/// and sends reactions. Only the newest screen's answer is ever displayed: each fetch takes a
/// generation, a newer fetch cancels the older request, and a superseded answer is dropped.
///
/// Lives on the GUI thread; calls from other threads are moved there.
class MessageService : public QObject
{
    Q_OBJECT

public:
    using FetchResult = Expected<QList<InAppMessageAction>, APIFailure>;
    /// Starts the request and returns how to cancel it.
    using FetchStep = std::function<CancelFunction(std::function<void(FetchResult)> done)>;
    using DisplayStep
        = std::function<void(const QList<InAppMessageAction> &actions, const QString &screenName)>;

    MessageService(std::shared_ptr<SDKConfiguration> config,
                   std::shared_ptr<UserIdentityRepository> repository,
                   DisplayCoordinatorType *coordinator, QObject *parent = nullptr);
    ~MessageService() override;

    VelmoraInAppMessagingDelegate *delegate() const;
    /// Held weakly; also handed to the display coordinator.
    void setDelegate(VelmoraInAppMessagingDelegate *delegate);

    APIClient *apiClient() const { return m_client; }
    /// Seams: the wait between reaction attempts, and how reactions keep the application alive.
    void setSleeper(Sleeper sleeper);
    void setBackgroundTaskProvider(std::shared_ptr<BackgroundTaskProvider> provider);
    /// Called with the reaction handler when it is installed, so that stores outside the
    /// coordinator get the same one.
    void setReactionHandlerSink(std::function<void(const ReactionHandler &)> sink);

    /// Decides, after the delegate has heard of a fetched message, whether it is displayed;
    /// unset, every message is.
    void setDisplayFilter(std::function<bool(const InAppMessageAction &)> filter)
    {
        m_displayFilter = std::move(filter);
    }

    /// The facade announces each screen start before its fetch; a fetch without one warns.
    void noteScreenStart();
    int pendingScreenStartCount() const { return m_pendingScreenStartCount; }
    quint64 fetchGeneration() const { return m_fetchGeneration; }
    /// Abandons the fetch of `generation` if it is still the newest and in flight: its request
    /// is aborted and its answer, should it still arrive, is dropped. A screen that went away
    /// before its answer calls this; a newer fetch needs no cancel.
    void cancelFetch(quint64 generation);

    /// One fetch-and-display cycle; `finished` runs when it has ended, however it ended.
    void fetchCore(const QString &screenName, FetchStep fetch, DisplayStep display,
                   std::function<void()> finished = {});
    /// A screen with a target (a widget, opaque to core): the answer is displayed on it.
    void fetchMessages(const QString &screenName, QObject *target, const VerticalAnchor &topAnchor,
                       const VerticalAnchor &bottomAnchor,
                       const QList<ViewEventCustomParam> &customParameters,
                       std::function<void()> finished = {});
    /// A QML screen: the answer goes to the stores.
    void fetchMessagesForQuick(const QString &screenName,
                               const QList<ViewEventCustomParam> &customParameters,
                               std::function<void()> finished = {});

    /// Returns at once; the send, its retries and waits happen later. Failures are only logged.
    void sendReaction(EventsReactionType type, const QString &screenName,
                      const QString &scenarioId);

    AppEventsMeta makeAppEventsMeta(const QString &screenName) const;
    RequestHeaders buildHeaders() const;

    enum class ReactionOutcome {
        Delivered,
        GivenUp, ///< failed after the retries its failure allows
        Cancelled, ///< the background time expired; not a failure, so nothing is logged
    };
    Q_ENUM(ReactionOutcome)

Q_SIGNALS:
    /// How a reaction ended; for tools and tests, since the host is never told of reactions.
    void reactionFinished(velmora::EventsReactionType type, const QString &scenarioId,
                          velmora::MessageService::ReactionOutcome outcome);

private:
    void setupReactionHandler();
    FetchStep viewEventsFetch(const QString &screenName,
                              const QList<ViewEventCustomParam> &customParameters);
    void handleFetchError(const APIFailure &failure, quint64 generation, const QString &screenName);
    bool runOnOwnThread(std::function<void()> fn);

    std::shared_ptr<SDKConfiguration> m_config;
    std::shared_ptr<UserIdentityRepository> m_repository;
    DisplayCoordinatorType *m_coordinator;
    APIClient *m_client;
    QPointer<VelmoraInAppMessagingDelegate> m_delegate;
    Sleeper m_sleeper;
    std::shared_ptr<BackgroundTaskProvider> m_backgroundTasks;
    std::function<void(const ReactionHandler &)> m_reactionHandlerSink;
    std::function<bool(const InAppMessageAction &)> m_displayFilter;

    bool m_isReactionHandlerConfigured = false;
    quint64 m_fetchGeneration = 0;
    CancelFunction m_inFlightFetch;
    int m_pendingScreenStartCount = 0;
};

} // namespace velmora
