#include "service/messageservice.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include "common/logging.h"
#include "common/threading.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QCoreApplication>
#include <QThread>

using namespace Qt::StringLiterals;

namespace velmora {

MessageService::MessageService(std::shared_ptr<SDKConfiguration> config,
                               std::shared_ptr<UserIdentityRepository> repository,
                               DisplayCoordinatorType *coordinator, QObject *parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_repository(std::move(repository))
    , m_coordinator(coordinator)
    , m_client(new APIClient(this))
    , m_sleeper(defaultSleeper())
    , m_backgroundTasks(std::make_shared<QtBackgroundTaskProvider>())
{ }

MessageService::~MessageService()
{
    if (auto cancel = std::exchange(m_inFlightFetch, {}))
        cancel();
}

VelmoraInAppMessagingDelegate *MessageService::delegate() const
{
    return m_delegate;
}

void MessageService::setDelegate(VelmoraInAppMessagingDelegate *delegate)
{
    m_delegate = delegate;
    if (m_coordinator)
        m_coordinator->setDelegate(delegate);
}

void MessageService::setSleeper(Sleeper sleeper)
{
    m_sleeper = sleeper ? std::move(sleeper) : defaultSleeper();
}

void MessageService::setBackgroundTaskProvider(std::shared_ptr<BackgroundTaskProvider> provider)
{
    m_backgroundTasks = std::move(provider);
}

void MessageService::setReactionHandlerSink(std::function<void(const ReactionHandler &)> sink)
{
    m_reactionHandlerSink = std::move(sink);
}

void MessageService::noteScreenStart()
{
    Q_ASSERT(m_pendingScreenStartCount < std::numeric_limits<int>::max());
    ++m_pendingScreenStartCount;
}

bool MessageService::runOnOwnThread(std::function<void()> fn)
{
    if (QThread::currentThread() == thread())
        return false;
    detail::postTo(this, std::move(fn));
    return true;
}

AppEventsMeta MessageService::makeAppEventsMeta(const QString &screenName) const
{
    return { m_config->customerId, m_config->isStrictLogin, screenName,
             AppEventsMeta::currentTimestamp() };
}

RequestHeaders MessageService::buildHeaders() const
{
    return buildRequestHeaders(*m_config, *m_repository);
}

void MessageService::setupReactionHandler()
{
    QPointer<MessageService> self(this);
    const ReactionHandler handler
        = [self](EventsReactionType type, const QString &screenName, const QString &scenarioId) {
              if (self)
                  self->sendReaction(type, screenName, scenarioId);
          };
    if (m_coordinator)
        m_coordinator->setReactionHandler(handler);
    if (m_reactionHandlerSink)
        m_reactionHandlerSink(handler);
}

void MessageService::fetchCore(const QString &screenName, FetchStep fetch, DisplayStep display,
                               std::function<void()> finished)
{
    if (runOnOwnThread([=, this] { fetchCore(screenName, fetch, display, finished); }))
        return;
    const auto done = [finished] {
        if (finished)
            finished();
    };

    if (!m_isReactionHandlerConfigured) {
        setupReactionHandler();
        m_isReactionHandlerConfigured = true;
    }

    if (m_pendingScreenStartCount < 1) {
        detail::printWarning(
            u"fetchCore(screenName: \""_s + screenName
            + u"\") was called without a preceding startNewScreen(). Call startNewScreen() "_s
              u"synchronously before invoking fetchCore, or the previous screen's embedded "_s
              u"banner cache may flash."_s);
    } else {
        --m_pendingScreenStartCount;
    }

    // The invalid host is checked first: it wins over a key and tenant stored by an earlier
    // valid setup.
    if (m_config->invalidAPIHost) {
        const QString host = *m_config->invalidAPIHost;
        qCDebug(lcVelmoraService).noquote()
            << u"Error fetchCore(screenName:fetch:display:): apiHost is invalid: \""_s + host
                + u"\"."_s;
        m_coordinator->finishLoading();
        if (m_delegate) {
            m_delegate->messageError(
                std::nullopt,
                VelmoraError::precondition(u"apiHost is invalid: \""_s + host
                                           + u"\". Call VelmoraInAppMessaging::shared().setup() "_s
                                             u"with a valid http or https apiHost."_s));
        }
        done();
        return;
    }
    if (!m_config->apiKey || !m_config->tenantId) {
        qCDebug(lcVelmoraService).noquote()
            << u"Error fetchCore(screenName:fetch:display:): SDK is not configured. Call setup() first."_s;
        m_coordinator->finishLoading();
        if (m_delegate) {
            m_delegate->messageError(
                std::nullopt,
                VelmoraError::precondition(u"SDK is not configured. Call "_s
                                           u"VelmoraInAppMessaging::shared().setup() before "_s
                                           u"fetching messages."_s));
        }
        done();
        return;
    }

    const quint64 generation = ++m_fetchGeneration;
    // The older fetch ends later as a cancellation (or, if its request ignored the abort, as a
    // stale answer); either way its generation is no longer current.
    if (auto cancel = std::exchange(m_inFlightFetch, {}))
        cancel();

    QPointer<MessageService> self(this);
    m_inFlightFetch = fetch([self, generation, screenName, display, done](FetchResult result) {
        if (!self) {
            done();
            return;
        }
        MessageService &service = *self;
        const bool current = generation == service.m_fetchGeneration;
        if (result) {
            QList<InAppMessageAction> actions = std::move(result).value();
            sortForDisplay(actions);
            if (current) {
                if (!actions.isEmpty()) {
                    for (const InAppMessageAction &action : std::as_const(actions)) {
                        if (service.m_delegate)
                            service.m_delegate->messageDetectedForDisplay(action.contents);
                    }
                    // The host's veto comes after detection and before routing: a vetoed
                    // message is neither shown nor reacted to.
                    if (service.m_displayFilter)
                        actions.removeIf([&](const InAppMessageAction &action) {
                            return !service.m_displayFilter(action);
                        });
                    if (!actions.isEmpty())
                        display(actions, screenName);
                }
                service.m_coordinator->finishLoading();
            }
        } else {
            service.handleFetchError(result.error(), generation, screenName);
        }
        if (generation == service.m_fetchGeneration)
            service.m_inFlightFetch = {};
        done();
    });
}

void MessageService::cancelFetch(quint64 generation)
{
    if (generation != m_fetchGeneration || !m_inFlightFetch)
        return;
    // A new generation makes the answer stale; the loading it started ends here, as nothing
    // current will end it.
    ++m_fetchGeneration;
    std::exchange(m_inFlightFetch, {})();
    m_coordinator->finishLoading();
}

void MessageService::handleFetchError(const APIFailure &failure, quint64 generation,
                                      const QString &screenName)
{
    const bool current = generation == m_fetchGeneration;
    if (isCancellation(failure)) {
        qCDebug(lcVelmoraService).noquote()
            << u"Fetch cancelled handleFetchError(_:generation:screenName:): screenName="_s
                + screenName;
        if (current)
            m_coordinator->finishLoading();
        return;
    }
    if (!current)
        return; // a superseded failure is neither logged nor reported
    const VelmoraError error = toVelmoraError(failure);
    qCDebug(lcVelmoraService).noquote()
        << u"Error handleFetchError(_:generation:screenName:): "_s + error.description();
    m_coordinator->finishLoading();
    if (m_delegate)
        m_delegate->messageError(std::nullopt, error);
}

MessageService::FetchStep
MessageService::viewEventsFetch(const QString &screenName,
                                const QList<ViewEventCustomParam> &customParameters)
{
    QPointer<MessageService> self(this);
    return [self, screenName,
            customParameters](std::function<void(FetchResult)> done) -> CancelFunction {
        if (!self) {
            done(QList<InAppMessageAction>());
            return {};
        }
        const EventsViewRequest request { self->makeAppEventsMeta(screenName), customParameters };
        QPointer<APICall> call = self->m_client->viewEvents(
            request, self->m_config->apiHost, self->buildHeaders(),
            [self, done](Expected<ViewEventsReply, APIFailure> reply) {
                if (!reply) {
                    done(reply.error());
                    return;
                }
                // Saved for every successful answer, also one that turns out superseded.
                if (self)
                    self->m_repository->saveResponseHeaders(reply.value().headers);
                done(std::move(reply).value().response.actions);
            });
        return [call] {
            if (call)
                call->cancel();
        };
    };
}

void MessageService::fetchMessages(const QString &screenName, QObject *target,
                                   const VerticalAnchor &topAnchor,
                                   const VerticalAnchor &bottomAnchor,
                                   const QList<ViewEventCustomParam> &customParameters,
                                   std::function<void()> finished)
{
    QPointer<MessageService> self(this);
    QPointer<QObject> weakTarget(target);
    fetchCore(
        screenName, viewEventsFetch(screenName, customParameters),
        [self, target = weakTarget, topAnchor,
         bottomAnchor](const QList<InAppMessageAction> &actions, const QString &name) {
            // The target may be gone by the time the answer arrives; the coordinator gets
            // null then.
            if (self && self->m_coordinator)
                self->m_coordinator->displayMessage(actions, name, target.data(), topAnchor,
                                                    bottomAnchor);
        },
        std::move(finished));
}

void MessageService::fetchMessagesForQuick(const QString &screenName,
                                           const QList<ViewEventCustomParam> &customParameters,
                                           std::function<void()> finished)
{
    QPointer<MessageService> self(this);
    fetchCore(
        screenName, viewEventsFetch(screenName, customParameters),
        [self](const QList<InAppMessageAction> &actions, const QString &name) {
            if (self && self->m_coordinator)
                self->m_coordinator->displayMessageForQuick(actions, name);
        },
        std::move(finished));
}

void MessageService::sendReaction(EventsReactionType type, const QString &screenName,
                                  const QString &scenarioId)
{
    if (runOnOwnThread([=, this] { sendReaction(type, screenName, scenarioId); }))
        return;

    const EventsReactionRequest request { makeAppEventsMeta(screenName), type, scenarioId };
    const RequestHeaders headers = buildHeaders();
    const QString apiHost = m_config->apiHost;
    const auto box = ReactionBackgroundTask::begin(m_backgroundTasks);

    QPointer<APIClient> client(m_client);
    ReactionSendRunner::Send send
        = [client, request, apiHost,
           headers](std::function<void(ReactionSendRunner::Result)> done) -> CancelFunction {
        if (!client) {
            done(APIFailure(VelmoraError::networkError(UnderlyingError::cancellation())));
            return {};
        }
        QPointer<APICall> call = client->reactionEvents(request, apiHost, headers, std::move(done));
        return [call] {
            if (call)
                call->cancel();
        };
    };

    QPointer<MessageService> self(this);
    const QString kind = rawValue(type);
    const auto runner = ReactionSendRunner::run(
        std::move(send), m_sleeper,
        [self, box, kind, type, scenarioId](ReactionSendRunner::Result result) {
            if (result) {
                if (self)
                    self->m_repository->saveResponseHeaders(result.value());
                qCDebug(lcVelmoraService).noquote()
                    << u"Send reaction success: type="_s + kind + u" scenarioId="_s + scenarioId;
                box->end();
                if (self)
                    Q_EMIT self->reactionFinished(type, scenarioId, ReactionOutcome::Delivered);
                return;
            }
            if (ReactionRetryPolicy::isCancellation(result.error())) {
                box->end();
                if (self)
                    Q_EMIT self->reactionFinished(type, scenarioId, ReactionOutcome::Cancelled);
                return;
            }
            qCDebug(lcVelmoraService).noquote() << u"Send reaction error: type="_s + kind
                    + u" scenarioId="_s + scenarioId + u" error="_s
                    + toVelmoraError(result.error()).description();
            box->end();
            if (self)
                Q_EMIT self->reactionFinished(type, scenarioId, ReactionOutcome::GivenUp);
        },
        this);

    QPointer<ReactionSendRunner> weakRunner = runner;
    box->setOnExpiration([weakRunner] {
        // Expiry may be signalled from any thread; the runner lives on this one.
        if (weakRunner)
            QMetaObject::invokeMethod(weakRunner.data(), [weakRunner] {
                if (weakRunner)
                    weakRunner->cancel();
            });
    });
}

} // namespace velmora
