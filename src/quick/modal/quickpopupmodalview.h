#pragma once

#include "presentation/popupmodalinteraction.h"

#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QPointer>
#include <QQuickView>
#include <QVariantMap>

#include <functional>

class QVariantAnimation;

namespace velmora::quick {

/// One popup modal for a QML host: a frameless, translucent window of its own over a host
/// window, dimming it and holding the card of IAMPopupModal.qml, which reads this object as
/// `modal`.
///
/// The window stays above its host (it is transient for it) and covers it through its moves
/// and resizes. It is not application-modal: it takes the host's clicks only by covering it,
/// so the host is usable again the moment it closes. Esc acts as the close button.
///
///     auto *modal = new QuickPopupModalView(content, engine);
///     modal->onDismiss = [modal] { modal->deleteLater(); };
///     modal->showOver(hostWindow);
class QuickPopupModalView : public QQuickView, public PopupModalInteraction
{
    Q_OBJECT
    Q_PROPERTY(velmora::SingleMessageCreative creative READ creative CONSTANT)
    /// The modal's measurements, shared with the Widgets modal: `style.contentInsets` ...
    Q_PROPERTY(QVariantMap style READ style CONSTANT)
    /// The text a screen reader announces for the card: the title, else the body.
    Q_PROPERTY(QString accessibleName READ accessibleName CONSTANT)
    /// 0 before the fade-in and after the fade-out, 1 while on show: the card's opacity and
    /// the share of the dim's full alpha.
    Q_PROPERTY(qreal presentation READ presentation NOTIFY presentationChanged)

public:
    QuickPopupModalView(PopupModalAction content, QQmlEngine *engine);
    ~QuickPopupModalView() override;

    SingleMessageCreative creative() const { return modalContent().creative; }
    QString accessibleName() const;
    static QVariantMap style();

    /// Covers `host` (a top-level window), fades in; the card starts loading its image.
    void showOver(QWindow *host);
    QWindow *hostWindow() const { return m_host; }
    qreal presentation() const { return m_presentation; }

    /// The user's actions on the card, by pointer or keyboard.
    Q_INVOKABLE void closeButtonActivated() { PopupModalInteraction::closeButtonActivated(); }
    Q_INVOKABLE void coverImageActivated() { PopupModalInteraction::coverImageActivated(); }
    Q_INVOKABLE void positiveButtonActivated() { PopupModalInteraction::positiveButtonActivated(); }

    /// The card's frame in a window of `rootSize` for content of `contentHeight`, in whole
    /// pixels so that text and edges stay crisp.
    Q_INVOKABLE QRectF cardFrame(const QSizeF &rootSize, qreal contentHeight) const;
    Q_INVOKABLE qreal cardWidth(qreal rootWidth) const;
    /// The image's height in a card `cardWidth` wide, for a picture of `sourceSize` (the
    /// placeholder's 16:9 until a picture with a width is known).
    Q_INVOKABLE qreal imageHeight(qreal cardWidth, const QSizeF &sourceSize,
                                  qreal rootHeight) const;

Q_SIGNALS:
    void presentationChanged();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void followHost();
    void animatePresentation(qreal to);
    void setPresentation(qreal presentation);
    void dismissWithAnimation(std::function<void()> completion) override;

    QPointer<QWindow> m_host;
    QVariantAnimation *m_animation;
    // The completions of the fade-outs under way, run together when it ends.
    QList<std::function<void()>> m_fadeOutCompletions;
    qreal m_presentation = 0;
};

} // namespace velmora::quick
