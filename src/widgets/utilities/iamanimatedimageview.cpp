#include "utilities/iamanimatedimageview.h"

#include "images/imageloader.h"

#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QWindow>

#include <cmath>

namespace velmora {

namespace {

// A refresh for every frame of the screen the view is on.
int refreshInterval(const QWidget *widget)
{
    const QScreen *screen = widget->screen();
    const qreal rate = screen && screen->refreshRate() > 1 ? screen->refreshRate() : 60.0;
    return std::clamp(int(std::lround(1000.0 / rate)), 4, 50);
}

QPainterPath roundedShape(const QRectF &rect, qreal radius, IAMAnimatedImageView::Corners corners)
{
    QPainterPath path;
    radius = std::min({ radius, rect.width() / 2, rect.height() / 2 });
    if (radius <= 0 || !corners) {
        path.addRect(rect);
        return path;
    }
    const qreal d = 2 * radius;
    const auto has
        = [corners](IAMAnimatedImageView::Corner corner) { return corners.testFlag(corner); };
    if (has(IAMAnimatedImageView::TopLeftCorner)) {
        path.moveTo(rect.left(), rect.top() + radius);
        path.arcTo(rect.left(), rect.top(), d, d, 180, -90);
    } else {
        path.moveTo(rect.topLeft());
    }
    if (has(IAMAnimatedImageView::TopRightCorner))
        path.arcTo(rect.right() - d, rect.top(), d, d, 90, -90);
    else
        path.lineTo(rect.topRight());
    if (has(IAMAnimatedImageView::BottomRightCorner))
        path.arcTo(rect.right() - d, rect.bottom() - d, d, d, 0, -90);
    else
        path.lineTo(rect.bottomRight());
    if (has(IAMAnimatedImageView::BottomLeftCorner))
        path.arcTo(rect.left(), rect.bottom() - d, d, d, 270, -90);
    else
        path.lineTo(rect.bottomLeft());
    path.closeSubpath();
    return path;
}

} // namespace

IAMAnimatedImageView::IAMAnimatedImageView(QWidget *parent)
    : QWidget(parent)
{
    m_refreshTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_refreshTimer, &QTimer::timeout, this, &IAMAnimatedImageView::advanceAnimation);
}

IAMAnimatedImageView::~IAMAnimatedImageView() = default;

const AnimatedImageSource *IAMAnimatedImageView::animatedSource() const
{
    return m_image ? m_image->animatedSource() : nullptr;
}

void IAMAnimatedImageView::setLoadedImage(std::optional<LoadedImage> image)
{
    ++m_generation;
    stopAnimating();
    m_shownIndex = -1;
    m_image = std::move(image);
    if (!m_image) {
        setFrame({});
    } else if (const StillImageSource *still = m_image->stillSource()) {
        setFrame(still->image());
    } else {
        showFrame(0);
        startAnimatingIfNeeded();
    }
}

void IAMAnimatedImageView::loadFromUrl(const QString &url, LoadCompletion completion)
{
    const quint64 generation = ++m_generation;
    ImageLoader *loader = m_loader ? m_loader.data() : ImageLoader::shared();
    loader->load(
        url, this,
        [this, generation, completion = std::move(completion)](std::optional<LoadedImage> image) {
            QSize size;
            if (image && generation == m_generation) {
                size = image->size();
                setLoadedImage(std::move(image));
            }
            Q_EMIT loadFinished(size);
            if (completion)
                completion(size);
        });
}

void IAMAnimatedImageView::setImageLoader(ImageLoader *loader)
{
    m_loader = loader;
}

void IAMAnimatedImageView::setContentMode(ContentMode mode)
{
    if (mode == m_contentMode)
        return;
    m_contentMode = mode;
    m_rendered = {};
    update();
}

void IAMAnimatedImageView::setPlaceholderColor(const QColor &color)
{
    if (color == m_placeholderColor)
        return;
    m_placeholderColor = color;
    update();
}

void IAMAnimatedImageView::setCornerRadius(qreal radius, Corners corners)
{
    m_cornerRadius = std::max<qreal>(0, radius);
    m_roundedCorners = corners;
    update();
}

void IAMAnimatedImageView::setTimeSource(AnimationClock::TimeSource now)
{
    const bool running = m_clock.isRunning();
    m_clock = AnimationClock(std::move(now));
    if (running)
        m_clock.start();
}

void IAMAnimatedImageView::startAnimatingIfNeeded()
{
    if (!animatedSource() || m_refreshTimer.isActive() || !isVisible())
        return;
    m_clock.restart();
    m_refreshTimer.start(refreshInterval(this));
    // Show the first frame now rather than at the first refresh, so the frame that was on
    // show when the view left its window is never painted again.
    showFrameOnTime();
}

void IAMAnimatedImageView::stopAnimating()
{
    m_refreshTimer.stop();
    m_clock.stop();
}

void IAMAnimatedImageView::advanceAnimation()
{
    // A minimised or covered window has nothing to repaint; the loop goes on meanwhile.
    if (const QWindow *window = this->window()->windowHandle(); window && !window->isExposed())
        return;
    showFrameOnTime();
}

void IAMAnimatedImageView::showFrameOnTime()
{
    const AnimatedImageSource *source = animatedSource();
    if (!source)
        return;
    const std::optional<qsizetype> index = m_clock.advance(*source);
    if (index && *index != m_shownIndex)
        showFrame(*index);
}

void IAMAnimatedImageView::showFrame(qsizetype index)
{
    m_shownIndex = index;
    setFrame(animatedSource()->frameImage(index));
    Q_EMIT frameChanged(int(index));
}

void IAMAnimatedImageView::setFrame(QImage frame)
{
    m_frame = std::move(frame);
    m_rendered = {};
    update();
}

const IAMAnimatedImageView::Rendered &IAMAnimatedImageView::rendered(qreal ratio)
{
    const QSize deviceSize(int(std::lround(width() * ratio)), int(std::lround(height() * ratio)));
    if (!m_rendered.image.isNull() && m_rendered.deviceSize == deviceSize
        && m_rendered.ratio == ratio)
        return m_rendered;

    m_rendered = { {}, {}, deviceSize, ratio };
    if (m_frame.isNull() || deviceSize.isEmpty())
        return m_rendered;

    const QSize source = m_frame.size();
    const qreal scaleX = qreal(deviceSize.width()) / source.width();
    const qreal scaleY = qreal(deviceSize.height()) / source.height();
    const qreal scale = m_contentMode == ContentMode::AspectFill ? std::max(scaleX, scaleY)
                                                                 : std::min(scaleX, scaleY);
    const QSize scaled(std::max(1, int(std::lround(source.width() * scale))),
                       std::max(1, int(std::lround(source.height() * scale))));
    const QPoint offset((deviceSize.width() - scaled.width()) / 2,
                        (deviceSize.height() - scaled.height()) / 2);

    if (scaled == source) {
        m_rendered.image = m_frame;
        m_rendered.offset = offset;
    } else if (qint64(scaled.width()) * scaled.height()
               <= 4 * qint64(deviceSize.width()) * deviceSize.height()) {
        // One resampling from the source pixels (area-averaged when shrinking), then only
        // the visible part is kept.
        const QImage image
            = m_frame.scaled(scaled, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        const QRect visible = QRect(offset, scaled).intersected(QRect(QPoint(), deviceSize));
        m_rendered.image = image.copy(visible.translated(-offset));
        m_rendered.offset = visible.topLeft();
    } else {
        // A sliver of a much larger scaled image: draw only what shows, rather than scale
        // the whole of it.
        QImage image(deviceSize, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRectF(offset, scaled), m_frame);
        painter.end();
        m_rendered.image = std::move(image);
    }
    return m_rendered;
}

void IAMAnimatedImageView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const bool rounded = m_cornerRadius > 0 && m_roundedCorners;
    const QPainterPath shape = roundedShape(rect(), m_cornerRadius, m_roundedCorners);
    if (rounded)
        painter.setRenderHint(QPainter::Antialiasing);

    if (m_frame.isNull()) {
        if (m_placeholderColor.isValid() && m_placeholderColor.alpha() > 0)
            painter.fillPath(shape, m_placeholderColor);
        return;
    }

    // The ratio of the device actually painted on, which for grab() and render() into a
    // high-density image differs from the screen's.
    const qreal ratio = std::max<qreal>(0.1, painter.deviceTransform().m11());
    const Rendered &image = rendered(ratio);
    if (image.image.isNull())
        return;
    const QRectF target(QPointF(image.offset) / ratio, QSizeF(image.image.size()) / ratio);
    if (!rounded) {
        painter.drawImage(target, image.image);
        return;
    }
    // Texture fill instead of a clip path: a clip path has jagged edges.
    QBrush texture(image.image);
    texture.setTransform(
        QTransform::fromTranslate(target.x(), target.y()).scale(1 / ratio, 1 / ratio));
    QPainterPath imageArea;
    imageArea.addRect(target);
    painter.fillPath(shape.intersected(imageArea), texture);
}

void IAMAnimatedImageView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_rendered = {};
}

void IAMAnimatedImageView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    startAnimatingIfNeeded();
}

void IAMAnimatedImageView::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    stopAnimating();
}

} // namespace velmora
