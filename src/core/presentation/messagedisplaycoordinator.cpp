#include "presentation/messagedisplaycoordinator.h"

#include "common/logging.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/popupbannerpresentertype.h"
#include "presentation/popupbannerstore.h"
#include "presentation/popupmodalpresentertype.h"
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

using namespace Qt::StringLiterals;

namespace velmora {

MessageDisplayCoordinator::MessageDisplayCoordinator(
    std::unique_ptr<PopupModalPresenterType> modalPresenter,
    std::unique_ptr<PopupBannerPresenterType> bannerPresenter,
    EmbeddedBannerStore *embeddedBannerStore, PopupBannerStore *popupBannerStore)
    : m_modalPresenter(std::move(modalPresenter))
    , m_bannerPresenter(std::move(bannerPresenter))
    , m_embeddedBannerStore(embeddedBannerStore)
    , m_popupBannerStore(popupBannerStore)
{
    Q_ASSERT(m_modalPresenter && m_bannerPresenter);
}

MessageDisplayCoordinator::~MessageDisplayCoordinator() = default;

VelmoraInAppMessagingDelegate *MessageDisplayCoordinator::delegate() const
{
    return m_delegate.data();
}

void MessageDisplayCoordinator::setDelegate(VelmoraInAppMessagingDelegate *delegate)
{
    m_delegate = delegate;
    makeHandlers(delegate);
}

void MessageDisplayCoordinator::setReactionHandler(ReactionHandler handler)
{
    m_reactionHandler = std::move(handler);
    if (m_embeddedBannerStore)
        m_embeddedBannerStore->setReactionHandler(m_reactionHandler);
    if (m_popupBannerStore)
        m_popupBannerStore->setReactionHandler(m_reactionHandler);
}

void MessageDisplayCoordinator::startNewScreen(const QString &screenName, QObject *owner)
{
    if (m_embeddedBannerStore)
        m_embeddedBannerStore->clearAll(screenName, owner);
    if (m_popupBannerStore)
        m_popupBannerStore->clearAllPopupBanners();
    m_bannerPresenter->dismissAll();
    if (m_embeddedBannerStore)
        m_embeddedBannerStore->setLoading(true);
}

void MessageDisplayCoordinator::finishLoading()
{
    if (m_embeddedBannerStore)
        m_embeddedBannerStore->setLoading(false);
}

void MessageDisplayCoordinator::displayMessage(const QList<InAppMessageAction> &actions,
                                               const QString &screenName, QObject *target,
                                               const VerticalAnchor &topAnchor,
                                               const VerticalAnchor &bottomAnchor)
{
    notifyUnsupportedIfNeeded(actions);
    if (m_reactionHandler) {
        for (const ClassifiedPopupBanner &banner : classify::popupBanners(actions)) {
            m_bannerPresenter->present({ screenName, banner.action.meta.scenarioId, banner.content,
                                         target, topAnchor, bottomAnchor, m_reactionHandler });
        }
    }
    displayPopupModal(classify::firstModal(actions), screenName);
    displayEmbeddedBanner(classify::embeddedBanners(actions), screenName);
}

void MessageDisplayCoordinator::displayMessageForQuick(const QList<InAppMessageAction> &actions,
                                                       const QString &screenName)
{
    notifyUnsupportedIfNeeded(actions);
    if (m_popupBannerStore)
        m_popupBannerStore->apply(classify::popupBanners(actions), screenName);
    displayPopupModal(classify::firstModal(actions), screenName);
    displayEmbeddedBanner(classify::embeddedBanners(actions), screenName);
}

void MessageDisplayCoordinator::makeHandlers(VelmoraInAppMessagingDelegate *delegate)
{
    const QPointer<VelmoraInAppMessagingDelegate> weak(delegate);
    const MessageHandler clicked = [weak](const InAppMessage &message) {
        if (weak)
            weak->messageClicked(message);
    };
    const MessageHandler dismissed = [weak](const InAppMessage &message) {
        if (weak)
            weak->messageDismissed(message);
    };
    const MessageErrorHandler error
        = [weak](const std::optional<InAppMessage> &message, const VelmoraError &error) {
              if (weak)
                  weak->messageError(message, error);
          };

    m_modalPresenter->setOnClicked(clicked);
    m_modalPresenter->setOnDismissed(dismissed);
    m_modalPresenter->setOnError(error);
    m_bannerPresenter->setOnClicked(clicked);
    m_bannerPresenter->setOnDismissed(dismissed);
    m_bannerPresenter->setOnError(error);
    if (m_popupBannerStore) {
        m_popupBannerStore->setMessageClickedHandler(clicked);
        m_popupBannerStore->setMessageDismissedHandler(dismissed);
        m_popupBannerStore->setMessageErrorHandler(error);
    }
    // Embedded banners cannot be dismissed.
    if (m_embeddedBannerStore) {
        m_embeddedBannerStore->setMessageClickedHandler(clicked);
        m_embeddedBannerStore->setMessageErrorHandler(error);
    }
}

void MessageDisplayCoordinator::notifyUnsupportedIfNeeded(const QList<InAppMessageAction> &actions)
{
    for (const ClassifiedUnsupported &message : classify::unsupported(actions)) {
        qCDebug(lcVelmoraPresentation) << "unsupported message type" << message.rawType;
        if (m_delegate) {
            m_delegate->messageError(
                message.action.contents,
                VelmoraError::precondition(u"Received an unsupported message type: '"_s
                                           + message.rawType + u"'. Please update the SDK."_s));
        }
    }
}

void MessageDisplayCoordinator::displayPopupModal(const std::optional<ClassifiedModal> &modal,
                                                  const QString &screenName)
{
    if (!modal || !m_reactionHandler)
        return;
    m_modalPresenter->present(screenName, modal->action.meta.scenarioId, modal->content,
                              m_reactionHandler);
}

void MessageDisplayCoordinator::displayEmbeddedBanner(
    const QList<ClassifiedEmbeddedBanner> &banners, const QString &screenName)
{
    if (!m_embeddedBannerStore)
        return;
    QList<EmbeddedComponentUpdate> updates;
    updates.reserve(banners.size());
    for (const ClassifiedEmbeddedBanner &banner : banners) {
        updates.append({ banner.content.componentId, banner.content, banner.action.meta.scenarioId,
                         screenName });
    }
    m_embeddedBannerStore->apply(updates);
}

} // namespace velmora
