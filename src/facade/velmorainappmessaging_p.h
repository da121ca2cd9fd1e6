#pragma once

#include "facade/velmorainappmessaging.h"
#include "service/displaycoordinatortype.h"

#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QPointer>

#include <memory>

namespace velmora {

class EmbeddedBannerStore;
class MessageDisplayCoordinator;
class MessageService;
class PopupBannerPresenterType;
class PopupBannerStore;
class PopupModalPresenterType;
class SDKConfiguration;
class UserIdentityRepository;

/// What the front-ends contribute to the object graph: the presenters they draw with, and how
/// they find the screen to show messages on. The Widgets front-end provides them in a
/// QApplication host; without them, popups are shown only through the QML stores.
struct FrontEnd
{
    std::function<std::unique_ptr<PopupModalPresenterType>()> makeModalPresenter;
    std::function<std::unique_ptr<PopupBannerPresenterType>()> makeBannerPresenter;
    /// The widget messages go on when the host names none; null when there is none.
    std::function<QObject *()> findTopTarget;
};

/// Relays the service's delegate calls to the host's delegate and as the facade's signals.
class DelegateRelay final : public VelmoraInAppMessagingDelegate
{
public:
    explicit DelegateRelay(VelmoraInAppMessaging *facade)
        : m_facade(facade)
    { }

    void messageDismissed(const InAppMessage &message) override;
    void messageClicked(const InAppMessage &message) override;
    void messageDetectedForDisplay(const InAppMessage &message) override;
    void messageError(const std::optional<InAppMessage> &message,
                      const VelmoraError &error) override;
    bool shouldDisplay(const InAppMessage &message) override;

    QPointer<VelmoraInAppMessagingDelegate> host;

private:
    VelmoraInAppMessaging *m_facade;
};

class VelmoraInAppMessagingPrivate
{
public:
    explicit VelmoraInAppMessagingPrivate(VelmoraInAppMessaging *q);
    ~VelmoraInAppMessagingPrivate();

    static VelmoraInAppMessagingPrivate *get(VelmoraInAppMessaging &facade)
    {
        return facade.d.get();
    }
    /// The explicit screen view, already on the GUI thread with converted parameters.
    void screenViewOnTarget(const QString &screenName, QObject *target,
                            const VerticalAnchor &topAnchor, const VerticalAnchor &bottomAnchor,
                            const QList<CustomParameterEntry> &parameters);
    /// A QML screen's view; `finished` runs when its fetch-and-display cycle has ended.
    void screenViewForQuick(const QString &screenName,
                            const QList<CustomParameterEntry> &parameters,
                            std::function<void()> finished = {});
    /// Runs `fn` on the GUI thread while the facade exists, in call order.
    void runOnMain(std::function<void()> fn) const;

    VelmoraInAppMessaging *q;
    std::unique_ptr<EmbeddedBannerStore> embeddedBannerStore;
    std::unique_ptr<PopupBannerStore> popupBannerStore;
    std::shared_ptr<SDKConfiguration> config;
    std::shared_ptr<UserIdentityRepository> repository;
    std::unique_ptr<MessageDisplayCoordinator> coordinator;
    std::unique_ptr<MessageService> messageService;
    DelegateRelay relay;
    FrontEnd frontEnd;
    bool messagesSuppressed = false;
};

} // namespace velmora
