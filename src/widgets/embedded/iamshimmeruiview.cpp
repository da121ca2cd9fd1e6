#include "embedded/iamshimmeruiview.h"

#include <QLinearGradient>
#include <QPainter>

namespace velmora {

IAMShimmerUIView::IAMShimmerUIView(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    m_sweep.setStartValue(0.0);
    m_sweep.setEndValue(1.0);
    m_sweep.setDuration(sweepMs);
    m_sweep.setLoopCount(-1);
    m_sweep.setEasingCurve(QEasingCurve::Linear);
    connect(&m_sweep, &QVariantAnimation::valueChanged, this, [this] { update(); });
}

IAMShimmerUIView::~IAMShimmerUIView() = default;

QColor IAMShimmerUIView::baseColor()
{
    return QColor(0xE5, 0xE5, 0xEA);
}

qreal IAMShimmerUIView::bandX() const
{
    const qreal band = bandWidthFactor * width();
    const qreal phase = isAnimating() ? m_sweep.currentValue().toReal() : 0.0;
    return -band + phase * (width() + band);
}

void IAMShimmerUIView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), baseColor());
    const qreal band = bandWidthFactor * width();
    if (band <= 0)
        return;
    const qreal x = bandX();
    QLinearGradient gradient(x, 0, x + band, 0);
    gradient.setColorAt(0, QColor::fromRgbF(1, 1, 1, 0));
    gradient.setColorAt(0.5, QColor::fromRgbF(1, 1, 1, 0.4));
    gradient.setColorAt(1, QColor::fromRgbF(1, 1, 1, 0));
    painter.fillRect(QRectF(x, 0, band, height()), gradient);
}

void IAMShimmerUIView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (size() != m_lastAnimatedSize) {
        m_lastAnimatedSize = size();
        restartAnimation();
    }
}

void IAMShimmerUIView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    restartAnimation();
}

void IAMShimmerUIView::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    m_sweep.stop();
}

void IAMShimmerUIView::restartAnimation()
{
    m_sweep.stop();
    if (!isVisible() || !window()->windowHandle() || width() <= 0)
        return;
    m_sweep.start();
}

} // namespace velmora
