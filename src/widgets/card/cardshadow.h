#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QRectF>

class QPainter;

namespace velmora {

/// A soft drop shadow under a rectangular card, as a designer specifies it: colour with its
/// opacity, offset and blur radius. Rendered once per card size and pixel ratio, then reused,
/// so painting a card costs one image blit.
class CardShadow
{
public:
    CardShadow(QColor color, QPointF offset, qreal blurRadius, qreal cornerRadius = 0);

    /// How far the shadow reaches beyond the card on each side, so the widget that paints it
    /// can leave room.
    qreal extent() const;
    /// Paints the shadow of a card at `cardRect` (logical coordinates of `painter`).
    void paint(QPainter &painter, const QRectF &cardRect);

private:
    qreal reach() const;
    QImage render(const QSizeF &cardSize, qreal dpr) const;

    QColor m_color;
    QPointF m_offset;
    qreal m_blurRadius;
    qreal m_cornerRadius;
    QImage m_cache;
    QSizeF m_cacheSize;
};

} // namespace velmora
