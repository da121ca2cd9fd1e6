#pragma once

#include "service/callbacks.h"
#include "service/displaycoordinatortype.h"

#include <VelmoraInAppMessaging/popupbanneraction.h>

#include <QEasingCurve>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>

class QPropertyAnimation;
class QScreen;

namespace velmora {

class CardButton;
class CardShadow;
class IAMAnimatedImageView;
class IAMCloseButton;
class PaddedLabel;

/// One popup banner on a Widgets target: a card at one of nine positions of the target, with
/// its margins and optional size, holding the cover image, title, body, button and close
/// button. It is a child widget of the target, kept above its siblings and placed again on
/// every resize of the target and every change of its screen.
///
/// It stays hidden (and so transparent to the mouse) until its image has loaded, reports
/// "open" the moment it shows, and removes itself when closed or when it cannot be shown.
/// The presenter sets the callbacks and installs it with attach().
class IAMPopupBannerViewController : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(qreal keyboardOffset READ keyboardOffset WRITE setKeyboardOffset)

public:
    explicit IAMPopupBannerViewController(PopupBannerAction content, QWidget *parent = nullptr);
    ~IAMPopupBannerViewController() override;

    std::function<void(EventsReactionType)> onReaction;
    /// The banner has detached itself; the presenter forgets it.
    std::function<void()> onClose;
    MessageHandler onClicked;
    MessageHandler onDismissed;
    MessageErrorHandler onError;

    const PopupBannerAction &bannerContent() const { return m_content; }
    InAppMessage message() const;
    bool hasTextContent() const;

    /// Becomes a child of `target` and starts loading the image; shown once it has loaded.
    void attach(QWidget *target, const VerticalAnchor &topAnchor,
                const VerticalAnchor &bottomAnchor);
    /// Leaves the target at once, silently: no callback, no reaction.
    void detach();
    bool isAttached() const { return !m_target.isNull(); }
    bool hasReportedOpen() const { return m_hasReportedOpen; }

    /// Follows the keyboard: `keyboardHeight` is absent once it hides. Only bottom-row
    /// banners move; they animate with the keyboard's own duration and curve.
    void followKeyboard(std::optional<qreal> keyboardHeight, int durationMs = 0,
                        const QEasingCurve &easing = QEasingCurve::Linear);
    qreal keyboardOffset() const { return m_keyboardOffset; }
    void setKeyboardOffset(qreal offset);

    /// The card's rectangle in this widget, which also leaves room for the card's shadow.
    QRect cardGeometry() const;

    /// Places the banner in its target now.
    void relayout();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void buildContent();
    void watchScreen();
    qreal bottomSafeInset() const;
    qreal contentHeight(qreal cardWidth) const;
    void layoutContent(const QSize &cardSize);

    void imageLoaded(QSize size);
    void showBannerAndReportOpen();
    void handleClick(const QString &linkUrl);
    void dismissBanner();
    void removeForImageLoadFailure();

    PopupBannerAction m_content;
    QPointer<QWidget> m_target;
    VerticalAnchor m_topAnchor;
    VerticalAnchor m_bottomAnchor;
    QPointer<QScreen> m_screen;
    QMetaObject::Connection m_screenChanged;
    QList<QMetaObject::Connection> m_screenConnections;

    QWidget *m_card = nullptr;
    IAMAnimatedImageView *m_image = nullptr;
    PaddedLabel *m_title = nullptr;
    PaddedLabel *m_body = nullptr;
    CardButton *m_button = nullptr;
    IAMCloseButton *m_closeButton = nullptr;
    std::unique_ptr<CardShadow> m_shadow;
    QColor m_cardColor;
    QRect m_cardRect;

    qreal m_imageRatio;
    bool m_imageCollapsed = false;
    std::optional<qreal> m_keyboardHeight;
    qreal m_keyboardOffset = 0;
    QPropertyAnimation *m_keyboardAnimation = nullptr;

    bool m_hasReportedOpen = false;
    bool m_hasFiredDismissed = false;
    bool m_inRelayout = false;
};

} // namespace velmora
