#pragma once

#include "presentation/popupmodalinteraction.h"

#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QPointer>
#include <QWidget>

#include <functional>
#include <memory>

class QPropertyAnimation;
class QScrollArea;

namespace velmora {

class CardButton;
class CardShadow;
class IAMAnimatedImageView;
class IAMCloseButton;
class PaddedLabel;

/// One popup modal: a frameless, translucent window of its own over a host window, dimming it
/// and holding a centred card with the cover image, title, body, button and close button.
///
/// The window stays above its host (it is transient for it) and covers it through its moves
/// and resizes. It is not application-modal: it takes the host's clicks only by covering it,
/// so the host is usable again the moment it closes. Esc acts as the close button.
///
///     auto *modal = new IAMPopupModalViewController(content);
///     modal->onDismiss = [modal] { modal->deleteLater(); };
///     modal->showOver(hostWindow);
class IAMPopupModalViewController : public QWidget, public PopupModalInteraction
{
    Q_OBJECT
    Q_PROPERTY(qreal dimOpacity READ dimOpacity WRITE setDimOpacity)

public:
    explicit IAMPopupModalViewController(PopupModalAction content);
    ~IAMPopupModalViewController() override;

    /// Covers `hostWindow` (a top-level widget), fades in and starts loading the image.
    void showOver(QWidget *hostWindow);
    QWidget *hostWindow() const { return m_host; }

    /// 0 before the fade-in, 1 once the dim has reached its full alpha.
    qreal dimOpacity() const { return m_dimOpacity; }
    void setDimOpacity(qreal opacity);

    /// The card's rectangle in this window.
    QRect cardGeometry() const { return m_cardRect; }

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    class CardFrame;

    void buildContent();
    void followHost();
    void relayout();
    void imageLoaded(QSize size);
    void animateDim(qreal to);
    void dismissWithAnimation(std::function<void()> completion) override;

    QPointer<QWidget> m_host;

    CardFrame *m_frame = nullptr;
    IAMAnimatedImageView *m_image = nullptr;
    QScrollArea *m_scroll = nullptr;
    QWidget *m_stack = nullptr;
    PaddedLabel *m_title = nullptr;
    PaddedLabel *m_body = nullptr;
    CardButton *m_button = nullptr;
    IAMCloseButton *m_closeButton = nullptr;
    QPropertyAnimation *m_dimAnimation = nullptr;
    QRect m_cardRect;

    qreal m_imageRatio;
    qreal m_dimOpacity = 0;
};

} // namespace velmora
