#pragma once

#include "presentation/actionclassification.h"
#include "service/displaycoordinatortype.h"

#include <QPointer>

#include <memory>
#include <optional>

namespace velmora {

class EmbeddedBannerStore;
class PopupBannerPresenterType;
class PopupBannerStore;
class PopupModalPresenterType;

/// Routes a screen's messages to whatever shows them: the modal presenter, the banner presenter
/// (Widgets targets) or the popup banner store (QML screens), and the embedded banner store.
/// Owns the presenters; the stores are shared with the facade and held weakly.
class MessageDisplayCoordinator final : public DisplayCoordinatorType
{
public:
    MessageDisplayCoordinator(std::unique_ptr<PopupModalPresenterType> modalPresenter,
                              std::unique_ptr<PopupBannerPresenterType> bannerPresenter,
                              EmbeddedBannerStore *embeddedBannerStore,
                              PopupBannerStore *popupBannerStore);
    ~MessageDisplayCoordinator() override;

    VelmoraInAppMessagingDelegate *delegate() const override;
    void setDelegate(VelmoraInAppMessagingDelegate *delegate) override;

    ReactionHandler reactionHandler() const override { return m_reactionHandler; }
    /// Also installs the handler in both stores, whose views report reactions through it.
    void setReactionHandler(ReactionHandler handler) override;

    /// Clears the previous screen's banners; a modal on show is deliberately left alone.
    void startNewScreen(const QString &screenName, QObject *owner) override;
    void finishLoading() override;
    void displayMessage(const QList<InAppMessageAction> &actions, const QString &screenName,
                        QObject *target, const VerticalAnchor &topAnchor,
                        const VerticalAnchor &bottomAnchor) override;
    void displayMessageForQuick(const QList<InAppMessageAction> &actions,
                                const QString &screenName) override;

    PopupModalPresenterType *modalPresenter() const { return m_modalPresenter.get(); }
    PopupBannerPresenterType *bannerPresenter() const { return m_bannerPresenter.get(); }

private:
    void makeHandlers(VelmoraInAppMessagingDelegate *delegate);
    void notifyUnsupportedIfNeeded(const QList<InAppMessageAction> &actions);
    void displayPopupModal(const std::optional<ClassifiedModal> &modal, const QString &screenName);
    void displayEmbeddedBanner(const QList<ClassifiedEmbeddedBanner> &banners,
                               const QString &screenName);

    ReactionHandler m_reactionHandler;
    QPointer<VelmoraInAppMessagingDelegate> m_delegate;
    std::unique_ptr<PopupModalPresenterType> m_modalPresenter;
    std::unique_ptr<PopupBannerPresenterType> m_bannerPresenter;
    QPointer<EmbeddedBannerStore> m_embeddedBannerStore;
    QPointer<PopupBannerStore> m_popupBannerStore;
};

} // namespace velmora
