#pragma once

#include <VelmoraInAppMessaging/popupbanneraction.h>

#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QVariant>
#include <QVariantMap>
#include <QtQml/qqmlregistration.h>

#include <optional>

class QQuickItem;
class QQuickWindow;

namespace velmora::quick {

/// Where a popup banner goes in a screen's overlay, by the rules the Widgets banner uses:
/// first the card width to lay the content out at, then, for the content's height, the
/// banner's frame in the overlay and the card's frame in the banner. Whole logical pixels,
/// so that text and edges stay crisp at every pixel ratio.
class IAMBannerPlacement : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    /// The item the banner is laid over (the overlay); its window gives the safe area and the
    /// extent that percentage sizes are of.
    Q_PROPERTY(QQuickItem *target READ target WRITE setTarget NOTIFY targetChanged)
    /// The popup banner's InAppMessage.
    Q_PROPERTY(QVariant message READ message WRITE setMessage NOTIFY messageChanged)
    Q_PROPERTY(
        qreal contentHeight READ contentHeight WRITE setContentHeight NOTIFY contentHeightChanged)
    Q_PROPERTY(qreal cardWidth READ cardWidth NOTIFY placementChanged)
    /// In the target.
    Q_PROPERTY(QRectF rootRect READ rootRect NOTIFY placementChanged)
    /// In the root.
    Q_PROPERTY(QRectF cardRect READ cardRect NOTIFY placementChanged)
    /// The banner's measurements, shared with the Widgets banner: `style.textSides` ...
    Q_PROPERTY(QVariantMap style READ style CONSTANT)

public:
    explicit IAMBannerPlacement(QObject *parent = nullptr);

    QQuickItem *target() const { return m_target; }
    void setTarget(QQuickItem *target);
    QVariant message() const { return m_message; }
    void setMessage(const QVariant &message);
    qreal contentHeight() const { return m_contentHeight; }
    void setContentHeight(qreal height);
    qreal cardWidth() const { return m_cardWidth; }
    QRectF rootRect() const { return m_rootRect; }
    QRectF cardRect() const { return m_cardRect; }
    static QVariantMap style();

    /// The image's height over width for a picture of `sourceSize`: the placeholder's until
    /// the size is known, capped for tall pictures.
    Q_INVOKABLE qreal imageRatio(const QSizeF &sourceSize) const;

Q_SIGNALS:
    void targetChanged();
    void messageChanged();
    void contentHeightChanged();
    void placementChanged();

private:
    void watchWindow();
    void relayout();

    QPointer<QQuickItem> m_target;
    QPointer<QQuickWindow> m_window;
    QVariant m_message;
    std::optional<PopupBannerAction> m_action;
    qreal m_contentHeight = 0;
    qreal m_cardWidth = 0;
    QRectF m_rootRect;
    QRectF m_cardRect;
};

} // namespace velmora::quick
