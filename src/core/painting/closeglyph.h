#pragma once

#include <QColor>
#include <QImage>
#include <QPointF>

class QPainter;

namespace velmora {

/// Paints the close cross centred on `centre`, sized like a `size`-point glyph of medium
/// weight: round caps, a stroke of 1.5 at 12 points, scaled with `size`. Antialiased,
/// whatever the painter's render hints.
void paintCloseGlyph(QPainter &painter, QPointF centre, qreal size, const QColor &color);

/// The close cross alone on a transparent `size` x `size` image (logical pixels) rendered
/// at `devicePixelRatio`, for image-based views. Null when `size` is not positive.
QImage closeGlyph(const QColor &color, qreal size, qreal devicePixelRatio = 1.0);

} // namespace velmora
