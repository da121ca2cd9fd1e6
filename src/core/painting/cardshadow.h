#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>
#include <QRectF>

class QPainter;

namespace velmora {

/// A soft drop shadow under a rectangular card, as a designer specifies it:
/// colour with its opacity, offset and blur radius. A small template of the
/// shadow is rendered once per style and pixel ratio and drawn as nine slices,
/// so a card of a new size costs no blurring.
class CardShadow
{
public:
    CardShadow(QColor color, QPointF offset, qreal blurRadius, qreal cornerRadius = 0);

    /// How far the shadow reaches beyond the card on each side, so the widget
    /// that paints it can leave room.
    qreal extent() const;
    /// Paints the shadow of a card at `cardRect` (logical coordinates of
    /// `painter`).
    void paint(QPainter &painter, const QRectF &cardRect);

private:
    qreal reach() const;
    // Device pixels the blurred corner takes in from the card's edge; a card at
    // least twice that plus one pixel wide and high has straight edges whose
    // shadow does not vary along.
    int cornerSpan(qreal dpr) const;
    QImage render(const QSizeF &deviceCardSize, qreal dpr) const;
    const QImage &nineSliceTemplate(qreal dpr);

    QColor m_color;
    QPointF m_offset;
    qreal m_blurRadius;
    qreal m_cornerRadius;
    QImage m_template;
    // Cards too small for the template, rendered whole.
    QImage m_cache;
    QSizeF m_cacheSize;
};

} // namespace velmora
