#include "painting/closeglyph.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace velmora {

namespace {
// Proportions of a medium-weight cross set at 12 points: the strokes are 1.5 wide and the
// glyph covers 9 x 9 with its caps, about the cap height of text at that size.
constexpr qreal strokePerPoint = 1.5 / 12.0;
constexpr qreal extentPerPoint = 9.0 / 12.0;
} // namespace

void paintCloseGlyph(QPainter &painter, QPointF centre, qreal size, const QColor &color)
{
    if (size <= 0)
        return;
    const qreal stroke = size * strokePerPoint;
    const qreal arm = (size * extentPerPoint - stroke) / 2; // centre to the end of a stroke
    // Both strokes in one path, so the antialiased pixels where they cross are blended once.
    QPainterPath cross;
    cross.moveTo(centre + QPointF(-arm, -arm));
    cross.lineTo(centre + QPointF(arm, arm));
    cross.moveTo(centre + QPointF(arm, -arm));
    cross.lineTo(centre + QPointF(-arm, arm));

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(color, stroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPath(cross);
    painter.restore();
}

QImage closeGlyph(const QColor &color, qreal size, qreal devicePixelRatio)
{
    if (size <= 0 || devicePixelRatio <= 0)
        return {};
    const int side = int(std::ceil(size * devicePixelRatio));
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    const qreal logicalSide = side / devicePixelRatio;
    paintCloseGlyph(painter, QPointF(logicalSide / 2, logicalSide / 2), size, color);
    return image;
}

} // namespace velmora
