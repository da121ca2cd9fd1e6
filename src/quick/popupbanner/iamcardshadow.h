#pragma once

#include <QColor>
#include <QPointF>
#include <QQuickPaintedItem>
#include <QRectF>
#include <QtQml/qqmlregistration.h>

#include <memory>

namespace velmora {
class CardShadow;
}

namespace velmora::quick {

/// The soft drop shadow of a card, drawn around `cardRect` (in the item's own coordinates).
/// The item must reach `extent` beyond the card on every side for the whole shadow to show:
/// \code
/// IAMCardShadow {
///     x: card.x - extent; y: card.y - extent
///     width: card.width + 2 * extent; height: card.height + 2 * extent
///     cardRect: Qt.rect(extent, extent, card.width, card.height)
///     color: Qt.rgba(0, 0, 0, 0.15); offset: Qt.point(0, 2); blurRadius: 8
/// }
/// \endcode
class IAMCardShadow : public QQuickPaintedItem
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY styleChanged)
    Q_PROPERTY(QPointF offset READ offset WRITE setOffset NOTIFY styleChanged)
    Q_PROPERTY(qreal blurRadius READ blurRadius WRITE setBlurRadius NOTIFY styleChanged)
    Q_PROPERTY(qreal cornerRadius READ cornerRadius WRITE setCornerRadius NOTIFY styleChanged)
    Q_PROPERTY(QRectF cardRect READ cardRect WRITE setCardRect NOTIFY cardRectChanged)
    /// How far the shadow reaches beyond the card on each side.
    Q_PROPERTY(qreal extent READ extent NOTIFY styleChanged)

public:
    explicit IAMCardShadow(QQuickItem *parent = nullptr);
    ~IAMCardShadow() override;

    QColor color() const { return m_color; }
    void setColor(const QColor &color);
    QPointF offset() const { return m_offset; }
    void setOffset(QPointF offset);
    qreal blurRadius() const { return m_blurRadius; }
    void setBlurRadius(qreal radius);
    qreal cornerRadius() const { return m_cornerRadius; }
    void setCornerRadius(qreal radius);
    QRectF cardRect() const { return m_cardRect; }
    void setCardRect(const QRectF &rect);
    qreal extent() const;

    void paint(QPainter *painter) override;

Q_SIGNALS:
    void styleChanged();
    void cardRectChanged();

private:
    void restyle();

    QColor m_color = QColor::fromRgbF(0, 0, 0, 0.15);
    QPointF m_offset { 0, 2 };
    qreal m_blurRadius = 8;
    qreal m_cornerRadius = 0;
    QRectF m_cardRect;
    std::unique_ptr<CardShadow> m_shadow;
};

} // namespace velmora::quick
