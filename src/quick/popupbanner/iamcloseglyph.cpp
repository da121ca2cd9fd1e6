#include "popupbanner/iamcloseglyph.h"

#include "layout/style.h"
#include "painting/closeglyph.h"
#include "presentation/colors.h"

#include <QPainter>
#include <QQuickWindow>

#include <algorithm>
#include <cmath>

namespace velmora::quick {

namespace {
// The disc's diameter is a whole number of pixels at every integer ratio; centred on a pixel
// boundary, its edges are symmetric.
qreal snapped(qreal logical, qreal devicePixelRatio)
{
    return std::round(logical * devicePixelRatio) / devicePixelRatio;
}
} // namespace

IAMCloseGlyph::IAMCloseGlyph(QQuickItem *parent)
    : QQuickPaintedItem(parent)
{
    setAntialiasing(true);
}

qreal IAMCloseGlyph::discDiameter()
{
    return layout::closebutton::discDiameter;
}

qreal IAMCloseGlyph::glyphSize()
{
    return layout::closebutton::glyphSize;
}

void IAMCloseGlyph::setRingColor(const QColor &color)
{
    if (color == m_ringColor)
        return;
    m_ringColor = color;
    Q_EMIT ringColorChanged();
    update();
}

void IAMCloseGlyph::paint(QPainter *painter)
{
    painter->setRenderHint(QPainter::Antialiasing);
    const qreal ratio = std::max<qreal>(1, window() ? window()->effectiveDevicePixelRatio() : 1);
    const QPointF centre(snapped(width() / 2.0, ratio), snapped(height() / 2.0, ratio));
    const qreal radius = discDiameter() / 2;

    painter->setPen(Qt::NoPen);
    painter->setBrush(palette::closeButtonBackgroundColor());
    painter->drawEllipse(centre, radius, radius);
    paintCloseGlyph(*painter, centre, glyphSize(), palette::closeButtonIconColor());

    if (m_ringColor.isValid() && m_ringColor.alpha() > 0) {
        const qreal ringWidth = 2;
        const qreal ringRadius = radius + 2 + ringWidth / 2;
        painter->setBrush(Qt::NoBrush);
        painter->setPen(QPen(m_ringColor, ringWidth));
        painter->drawEllipse(centre, ringRadius, ringRadius);
    }
}

} // namespace velmora::quick
