#include "facade/velmorainappmessaging_p.h"

#include "common/logging.h"
#include "common/threading.h"
#include "config/sdkconfiguration.h"
#include "config/userdefaults.h"
#include "config/useridentityrepository.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/messagedisplaycoordinator.h"
#include "presentation/popupbannerpresentertype.h"
#include "presentation/popupbannerstore.h"
#include "presentation/popupmodalpresentertype.h"
#include "service/messageservice.h"

#include <QCoreApplication>

#if VELMORA_WITH_WIDGETS
#include "frontend/widgetsfrontend.h"

#include <QWidget>
#endif
#if VELMORA_WITH_QUICK
#include "frontend/quickfrontend.h"
#include "modal/quickpopupmodalpresenter.h"
#endif

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

// The front-ends compiled in, in the order the host's application object allows.
FrontEnd defaultFrontEnd()
{
    FrontEnd frontEnd;
#if VELMORA_WITH_WIDGETS
    if (widgets::isWidgetsHost()) {
        frontEnd.makeModalPresenter = &widgets::makeModalPresenter;
        frontEnd.makeBannerPresenter = &widgets::makeBannerPresenter;
        frontEnd.findTopTarget = [] { return static_cast<QObject *>(widgets::findTopWidget()); };
    }
#endif
#if VELMORA_WITH_QUICK
    if (quick::isQuickHost())
        frontEnd.makeModalPresenter
            = [] { return std::make_unique<quick::QuickPopupModalPresenter>(); };
#endif
    return frontEnd;
}

#if VELMORA_WITH_WIDGETS
VerticalAnchor toVerticalAnchor(const WidgetAnchor &anchor)
{
    return { anchor.widget,
             anchor.edge == WidgetAnchor::Edge::Top ? VerticalAnchor::Edge::Top
                                                    : VerticalAnchor::Edge::Bottom };
}
#endif

// Without a front-end that can draw them, popups cannot be shown; a modal says so, as it does
// when there is no window to show it over.
class UnavailableModalPresenter final : public PopupModalPresenterType
{
public:
    void present(const QString &, const QString &, const PopupModalAction &content,
                 ReactionHandler) override
    {
        if (m_onError)
            m_onError(
                InAppMessage::fromPopupModal(content),
                VelmoraError::precondition(
                    u"Could not find a foreground window scene to display the popup modal."_s));
    }
    void setOnClicked(MessageHandler) override { }
    void setOnDismissed(MessageHandler) override { }
    void setOnError(MessageErrorHandler handler) override { m_onError = std::move(handler); }

private:
    MessageErrorHandler m_onError;
};

class UnavailableBannerPresenter final : public PopupBannerPresenterType
{
public:
    void present(const PopupBannerRequest &) override { }
    void dismissAll() override { }
    void setOnClicked(MessageHandler) override { }
    void setOnDismissed(MessageHandler) override { }
    void setOnError(MessageErrorHandler) override { }
};

QList<CustomParameterEntry> evaluate(const VelmoraInAppMessaging::CustomParameters &parameters)
{
    return parameters ? parameters() : QList<CustomParameterEntry>();
}

bool isPopup(const InAppMessage &message)
{
    return message.type() == InAppMessage::Type::PopupModal
        || message.type() == InAppMessage::Type::PopupBanner;
}

} // namespace

void DelegateRelay::messageDismissed(const InAppMessage &message)
{
    if (host)
        host->messageDismissed(message);
    Q_EMIT m_facade->messageDismissed(message);
}

void DelegateRelay::messageClicked(const InAppMessage &message)
{
    if (host)
        host->messageClicked(message);
    Q_EMIT m_facade->messageClicked(message);
}

void DelegateRelay::messageDetectedForDisplay(const InAppMessage &message)
{
    if (host)
        host->messageDetectedForDisplay(message);
    Q_EMIT m_facade->messageDetectedForDisplay(message);
}

void DelegateRelay::messageError(const std::optional<InAppMessage> &message,
                                 const VelmoraError &error)
{
    if (host)
        host->messageError(message, error);
    Q_EMIT m_facade->messageError(message, error);
}

bool DelegateRelay::shouldDisplay(const InAppMessage &message)
{
    const auto *d = VelmoraInAppMessagingPrivate::get(*m_facade);
    if (d->messagesSuppressed && isPopup(message))
        return false;
    return !host || host->shouldDisplay(message);
}

// The object graph, in the order the library's parts depend on each other: the stores, the
// configuration and identity, the presenters inside the coordinator, then the service.
VelmoraInAppMessagingPrivate::VelmoraInAppMessagingPrivate(VelmoraInAppMessaging *q)
    : q(q)
    , embeddedBannerStore(std::make_unique<EmbeddedBannerStore>())
    , popupBannerStore(std::make_unique<PopupBannerStore>())
    , config(std::make_shared<SDKConfiguration>())
    , repository(std::make_shared<UserIdentityRepository>(
          SDKUserDefaults(std::make_shared<SettingsUserDefaults>())))
    , relay(q)
    , frontEnd(defaultFrontEnd())
{
    std::unique_ptr<PopupModalPresenterType> modal;
    std::unique_ptr<PopupBannerPresenterType> banner;
    if (frontEnd.makeModalPresenter)
        modal = frontEnd.makeModalPresenter();
    if (frontEnd.makeBannerPresenter)
        banner = frontEnd.makeBannerPresenter();
    if (!modal)
        modal = std::make_unique<UnavailableModalPresenter>();
    if (!banner)
        banner = std::make_unique<UnavailableBannerPresenter>();
    coordinator = std::make_unique<MessageDisplayCoordinator>(
        std::move(modal), std::move(banner), embeddedBannerStore.get(), popupBannerStore.get());
    messageService = std::make_unique<MessageService>(config, repository, coordinator.get());
#if VELMORA_WITH_WIDGETS
    widgets::useEmbeddedBannerStore(embeddedBannerStore.get());
#endif
    messageService->setDelegate(&relay);
    messageService->setDisplayFilter(
        [this](const InAppMessageAction &action) { return relay.shouldDisplay(action.contents); });
}

VelmoraInAppMessagingPrivate::~VelmoraInAppMessagingPrivate()
{
    messageService.reset();
    coordinator.reset();
}

void VelmoraInAppMessagingPrivate::runOnMain(std::function<void()> fn) const
{
    detail::runOnGuiThread([facade = QPointer<VelmoraInAppMessaging>(q), fn = std::move(fn)] {
        if (facade)
            fn();
    });
}

void VelmoraInAppMessagingPrivate::screenViewOnTarget(const QString &screenName, QObject *target,
                                                      const VerticalAnchor &topAnchor,
                                                      const VerticalAnchor &bottomAnchor,
                                                      const QList<CustomParameterEntry> &parameters)
{
    // The new screen's state is reset before its request goes out.
    messageService->noteScreenStart();
    coordinator->startNewScreen(screenName, target);
    messageService->setDelegate(&relay);
    messageService->fetchMessages(screenName, target, topAnchor, bottomAnchor, parameters);
}

void VelmoraInAppMessagingPrivate::screenViewForQuick(const QString &screenName,
                                                      const QList<CustomParameterEntry> &parameters,
                                                      std::function<void()> finished)
{
    messageService->setDelegate(&relay);
    messageService->noteScreenStart();
    coordinator->startNewScreen(screenName, nullptr);
    messageService->fetchMessagesForQuick(screenName, parameters, std::move(finished));
}

VelmoraInAppMessaging::VelmoraInAppMessaging()
    : d(std::make_unique<VelmoraInAppMessagingPrivate>(this))
{ }

VelmoraInAppMessaging::~VelmoraInAppMessaging() = default;

VelmoraInAppMessaging &VelmoraInAppMessaging::shared()
{
    // Lives for the process: hosts may report screens until the very end.
    static VelmoraInAppMessaging *instance = [] {
        auto *facade = new VelmoraInAppMessaging;
        if (QCoreApplication *app = QCoreApplication::instance())
            facade->moveToThread(app->thread());
        return facade;
    }();
    return *instance;
}

void VelmoraInAppMessaging::setup(const QString &apiKey, const QString &tenantId)
{
    setup(apiKey, tenantId, SDKConfiguration::defaultAPIHost());
}

void VelmoraInAppMessaging::setup(const QString &apiKey, const QString &tenantId,
                                  const QString &apiHost)
{
    d->config->setup(apiKey, tenantId, apiHost);
}

VelmoraInAppMessagingDelegate *VelmoraInAppMessaging::delegate() const
{
    return d->relay.host;
}

void VelmoraInAppMessaging::setDelegate(VelmoraInAppMessagingDelegate *delegate)
{
    d->relay.host = delegate;
}

std::optional<QString> VelmoraInAppMessaging::customerId() const
{
    return d->config->customerId;
}

void VelmoraInAppMessaging::setCustomerId(const std::optional<QString> &customerId)
{
    d->config->customerId = customerId;
}

bool VelmoraInAppMessaging::isStrictLogin() const
{
    return d->config->isStrictLogin;
}

void VelmoraInAppMessaging::setStrictLogin(bool strictLogin)
{
    d->config->isStrictLogin = strictLogin;
}

void VelmoraInAppMessaging::screenView(const QString &screenName,
                                       const CustomParameters &customParameter)
{
    const QList<CustomParameterEntry> parameters = evaluate(customParameter);
    d->runOnMain([d = d.get(), screenName, parameters] {
        QObject *target = d->frontEnd.findTopTarget ? d->frontEnd.findTopTarget() : nullptr;
        if (!target) {
            // Reported from the event loop, like every other callback, and only to the
            // delegate: no screen starts and nothing is sent.
            detail::postTo(d->q, [d] {
                d->relay.messageError(
                    std::nullopt,
                    VelmoraError::precondition(
                        u"Could not find a top widget to display messages. Use screenView(screenName, target) to specify the target widget."_s));
            });
            return;
        }
        d->screenViewOnTarget(screenName, target, {}, {}, parameters);
    });
}

#if VELMORA_WITH_WIDGETS
void VelmoraInAppMessaging::screenView(const QString &screenName, QWidget *target,
                                       const WidgetAnchor &topAnchor,
                                       const WidgetAnchor &bottomAnchor,
                                       const CustomParameters &customParameter)
{
    const QList<CustomParameterEntry> parameters = evaluate(customParameter);
    d->runOnMain([d = d.get(), screenName, target = QPointer<QWidget>(target),
                  top = toVerticalAnchor(topAnchor), bottom = toVerticalAnchor(bottomAnchor),
                  parameters] {
        if (target)
            d->screenViewOnTarget(screenName, target, top, bottom, parameters);
    });
}
#endif

void VelmoraInAppMessaging::setMessagesSuppressed(bool suppressed)
{
    d->runOnMain([d = d.get(), suppressed] { d->messagesSuppressed = suppressed; });
}

bool VelmoraInAppMessaging::messagesSuppressed() const
{
    return d->messagesSuppressed;
}

void VelmoraInAppMessaging::dismissAll()
{
    d->runOnMain([d = d.get()] {
        d->popupBannerStore->clearAllPopupBanners();
        if (auto *banners = d->coordinator->bannerPresenter())
            banners->dismissAll();
        if (auto *modal = d->coordinator->modalPresenter())
            modal->dismissAll();
    });
}

} // namespace velmora
