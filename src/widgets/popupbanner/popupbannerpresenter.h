#pragma once

#include "presentation/popupbannerpresentertype.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QWidget>

namespace velmora {

class BannerKeyboardAvoider;
class IAMPopupBannerViewController;

namespace layout {
class KeyboardSource;
}

/// Shows popup banners inside Widgets targets: one per position, the rest waiting in a queue
/// per position. Waiting banners hold their targets weakly, so a screen that closes takes its
/// banners with it: they are skipped when their turn comes and pruned on the next present().
class PopupBannerPresenter final : public QObject, public PopupBannerPresenterType
{
    Q_OBJECT

public:
    /// Follows `keyboard`, or the input method's keyboard when none is given.
    explicit PopupBannerPresenter(layout::KeyboardSource *keyboard = nullptr,
                                  QObject *parent = nullptr);
    ~PopupBannerPresenter() override;

    void present(const PopupBannerRequest &request) override;
    void dismissAll() override;

    void setOnClicked(MessageHandler handler) override { m_onClicked = std::move(handler); }
    void setOnDismissed(MessageHandler handler) override { m_onDismissed = std::move(handler); }
    void setOnError(MessageErrorHandler handler) override { m_onError = std::move(handler); }

    /// The banner on show at `position`, if any.
    IAMPopupBannerViewController *bannerAt(DisplayPosition position) const;
    qsizetype queuedCount(DisplayPosition position) const;

private:
    struct QueuedBanner
    {
        QString screenName;
        QString scenarioId;
        PopupBannerAction content;
        QPointer<QWidget> target;
        VerticalAnchor topAnchor;
        VerticalAnchor bottomAnchor;
        ReactionHandler reactionHandler;
    };

    void showNext(DisplayPosition position);
    IAMPopupBannerViewController *makeBanner(const QueuedBanner &queued);
    void clearBanner(IAMPopupBannerViewController *banner, DisplayPosition position);

    QHash<DisplayPosition, QPointer<IAMPopupBannerViewController>> m_banners;
    QHash<DisplayPosition, QList<QueuedBanner>> m_queues;
    BannerKeyboardAvoider *m_keyboardAvoider;
    MessageHandler m_onClicked;
    MessageHandler m_onDismissed;
    MessageErrorHandler m_onError;
};

} // namespace velmora
