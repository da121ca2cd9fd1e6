#include "utilities/iamanimatedimageview.h"

#include "images/imageloader.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QPainter>
#include <QPainterPath>
#include <QWindow>
#include <QtEndian>

#include <array>
#include <cmath>
#include <optional>

namespace velmora {

namespace {

// Qt's raster engine splits a transformed fill of more rows than this across its thread pool.
constexpr int parallelFillRows = 64;

// Seconds from `elapsed` until the frame then on show has run its delay; nothing when the
// animation has no other frame to move on to. Mirrors the frame selection of the clock.
std::optional<double> secondsToNextFrame(const QList<double> &delays, double totalDuration,
                                         double elapsed)
{
    if (delays.size() < 2 || !(totalDuration > 0))
        return std::nullopt;
    const double t = elapsed > 0 ? std::fmod(elapsed, totalDuration) : 0.0;
    double end = 0;
    for (const double delay : delays) {
        end += delay;
        if (t < end)
            return end - t;
    }
    return std::max(0.0, totalDuration - t);
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

// A plain QWidget is announced as a pane.
class ImageViewAccessible : public QAccessibleWidget
{
public:
    explicit ImageViewAccessible(IAMAnimatedImageView *view)
        : QAccessibleWidget(view, QAccessible::Graphic)
    { }

    QAccessible::Role role() const override
    {
        const auto *view = static_cast<const IAMAnimatedImageView *>(widget());
        return view->isAccessibleButton() ? QAccessible::Button : QAccessible::Graphic;
    }
};

QAccessibleInterface *imageViewAccessibleFactory(const QString &, QObject *object)
{
    if (auto *view = qobject_cast<IAMAnimatedImageView *>(object))
        return new ImageViewAccessible(view);
    return nullptr;
}

} // namespace

IAMAnimatedImageView::IAMAnimatedImageView(QWidget *parent)
    : QWidget(parent)
{
    static const bool accessibleFactoryInstalled = [] {
        QAccessible::installFactory(imageViewAccessibleFactory);
        return true;
    }();
    Q_UNUSED(accessibleFactoryInstalled)

    // One wake-up per frame, at the moment the frame on show has run its delay: a coarse
    // timer could show a frame up to a twentieth of its delay late.
    m_frameTimer.setTimerType(Qt::PreciseTimer);
    m_frameTimer.setSingleShot(true);
    connect(&m_frameTimer, &QTimer::timeout, this, &IAMAnimatedImageView::advanceAnimation);
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
    m_canvasCurrent = false;
    updateOpacity();
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
    updateOpacity();
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
    if (!animatedSource() || m_frameTimer.isActive() || !isVisible())
        return;
    m_clock.restart();
    // Show the first frame now rather than at the first wake-up, so the frame that was on
    // show when the view left its window is never painted again.
    showFrameOnTime();
    scheduleNextFrame();
}

void IAMAnimatedImageView::stopAnimating()
{
    m_frameTimer.stop();
    m_clock.stop();
}

void IAMAnimatedImageView::advanceAnimation()
{
    // A minimised or covered window has nothing to repaint; the loop goes on meanwhile.
    const QWindow *window = this->window()->windowHandle();
    if (!window || window->isExposed())
        showFrameOnTime();
    scheduleNextFrame();
}

void IAMAnimatedImageView::scheduleNextFrame()
{
    const AnimatedImageSource *source = animatedSource();
    const std::optional<double> seconds = source && m_clock.isRunning()
        ? secondsToNextFrame(source->delays(), source->totalDuration(), m_clock.elapsed())
        : std::nullopt;
    if (!seconds) {
        m_frameTimer.stop();
        return;
    }
    // Rounded up, so that the frame has changed when the timer fires; a day at most, as a
    // guard against absurd delays.
    const double ms = std::clamp(std::ceil(*seconds * 1000.0), 1.0, 86'400'000.0);
    m_frameTimer.start(int(ms));
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
    const AnimatedImageSource *source = animatedSource();
    m_shownIndex = index;
    // The frame as decoded; it is expanded and resampled once, when it is first painted.
    setFrame(index >= 0 && index < source->frameCount() ? source->frames().at(index) : QImage());
    Q_EMIT frameChanged(int(index));
}

void IAMAnimatedImageView::setFrame(QImage frame)
{
    m_frame = std::move(frame);
    m_rendered = {};
    m_canvasCurrent = false;
    updateOpacity();
    update();
}

void IAMAnimatedImageView::updateOpacity()
{
    // An opaque frame that covers the whole view spares repainting what lies beneath it.
    const bool opaque = !m_frame.isNull() && !m_frame.hasAlphaChannel()
        && m_contentMode == ContentMode::AspectFill && !(m_cornerRadius > 0 && m_roundedCorners);
    setAttribute(Qt::WA_OpaquePaintEvent, opaque);
}

IAMAnimatedImageView::Placement IAMAnimatedImageView::placement(qreal ratio) const
{
    Placement place;
    place.deviceSize = QSize(int(std::lround(width() * ratio)), int(std::lround(height() * ratio)));
    place.ratio = ratio;
    if (m_frame.isNull() || place.deviceSize.isEmpty())
        return place;
    const QSize source = m_frame.size();
    const qreal scaleX = qreal(place.deviceSize.width()) / source.width();
    const qreal scaleY = qreal(place.deviceSize.height()) / source.height();
    const qreal scale = m_contentMode == ContentMode::AspectFill ? std::max(scaleX, scaleY)
                                                                 : std::min(scaleX, scaleY);
    const QSize scaled(std::max(1, int(std::lround(source.width() * scale))),
                       std::max(1, int(std::lround(source.height() * scale))));
    const QPoint offset((place.deviceSize.width() - scaled.width()) / 2,
                        (place.deviceSize.height() - scaled.height()) / 2);
    place.target = QRect(offset, scaled);
    return place;
}

const IAMAnimatedImageView::Rendered &IAMAnimatedImageView::rendered(qreal ratio)
{
    const Placement place = placement(ratio);
    if (!m_rendered.image.isNull() && m_rendered.deviceSize == place.deviceSize
        && m_rendered.ratio == ratio)
        return m_rendered;

    m_rendered = { {}, {}, place.deviceSize, ratio };
    if (place.target.isEmpty())
        return m_rendered;

    const QSize deviceSize = place.deviceSize;
    const QSize scaled = place.target.size();
    const QPoint offset = place.target.topLeft();
    if (scaled == m_frame.size()) {
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

const QImage &IAMAnimatedImageView::expandedFrame()
{
    // An animation may mix 8-bit frames with 32-bit ones, which need no expanding.
    if (m_frame.format() == QImage::Format_ARGB32_Premultiplied
        || m_frame.format() == QImage::Format_RGB32)
        return m_frame;
    if (m_frame.format() != QImage::Format_Indexed8) {
        m_expanded = m_frame.convertToFormat(QImage::Format_ARGB32_Premultiplied);
        return m_expanded;
    }
    // By hand rather than with convertToFormat(), which would allocate a new image per frame.
    const QImage::Format format
        = m_frame.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    if (m_expanded.size() != m_frame.size() || m_expanded.format() != format)
        m_expanded = QImage(m_frame.size(), format);
    std::array<QRgb, 256> table {};
    const QList<QRgb> colors = m_frame.colorTable();
    for (qsizetype i = 0; i < std::min<qsizetype>(colors.size(), 256); ++i)
        table[size_t(i)] = qPremultiply(colors.at(i));
    const int width = m_frame.width();
    for (int y = 0; y < m_frame.height(); ++y) {
        const uchar *in = m_frame.constScanLine(y);
        auto *out = reinterpret_cast<QRgb *>(m_expanded.scanLine(y));
        int x = 0;
        // Eight indices per load: about a quarter faster than a byte at a time.
        for (; x + 8 <= width; x += 8) {
            const quint64 indices = qFromLittleEndian<quint64>(in + x);
            out[x] = table[indices & 0xff];
            out[x + 1] = table[(indices >> 8) & 0xff];
            out[x + 2] = table[(indices >> 16) & 0xff];
            out[x + 3] = table[(indices >> 24) & 0xff];
            out[x + 4] = table[(indices >> 32) & 0xff];
            out[x + 5] = table[(indices >> 40) & 0xff];
            out[x + 6] = table[(indices >> 48) & 0xff];
            out[x + 7] = table[indices >> 56];
        }
        for (; x < width; ++x)
            out[x] = table[in[x]];
    }
    return m_expanded;
}

// The part of the current animation frame that shows, resampled to the device pixels it
// covers; made once per frame on show, into the same buffer every time.
const IAMAnimatedImageView::Rendered &IAMAnimatedImageView::animationCanvas(const Placement &place)
{
    const QRect visible = place.target.intersected(QRect(QPoint(), place.deviceSize));
    if (m_canvasCurrent && m_canvas.deviceSize == place.deviceSize && m_canvas.ratio == place.ratio
        && m_canvas.offset == visible.topLeft())
        return m_canvas;
    m_canvasCurrent = false;
    if (visible.isEmpty() || m_frame.isNull()) {
        m_canvas.image = {};
        return m_canvas;
    }
    const QImage &source = expandedFrame();
    const QImage::Format format = source.format();
    if (m_canvas.image.size() != visible.size() || m_canvas.image.format() != format)
        m_canvas.image = QImage(visible.size(), format);
    {
        QPainter painter(&m_canvas.image);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        const QRect target = place.target.translated(-visible.topLeft());
        if (target.size() == source.size()) {
            painter.drawImage(target.topLeft(), source);
        } else {
            painter.setRenderHint(QPainter::SmoothPixmapTransform);
            // In bands too short for Qt to hand them to its thread pool: at this size waking
            // the pool's threads costs more CPU than the resampling itself.
            const int width = m_canvas.image.width();
            for (int top = 0; top < m_canvas.image.height(); top += parallelFillRows) {
                painter.setClipRect(QRect(0, top, width, parallelFillRows));
                painter.drawImage(QRectF(target), source);
            }
        }
    }
    m_canvas.offset = visible.topLeft();
    m_canvas.deviceSize = place.deviceSize;
    m_canvas.ratio = place.ratio;
    m_canvasCurrent = true;
    return m_canvas;
}

void IAMAnimatedImageView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const bool rounded = m_cornerRadius > 0 && m_roundedCorners;
    if (rounded)
        painter.setRenderHint(QPainter::Antialiasing);
    const auto shape = [this] { return roundedShape(rect(), m_cornerRadius, m_roundedCorners); };

    if (m_frame.isNull()) {
        if (m_placeholderColor.isValid() && m_placeholderColor.alpha() > 0)
            painter.fillPath(shape(), m_placeholderColor);
        return;
    }

    // The ratio of the device actually painted on, which for grab() and render() into a
    // high-density image differs from the screen's.
    const qreal ratio = std::max<qreal>(0.1, painter.deviceTransform().m11());
    QImage image;
    QRectF target;
    if (animatedSource()) {
        const Rendered &canvas = animationCanvas(placement(ratio));
        if (canvas.image.isNull())
            return;
        image = canvas.image;
        target = QRectF(QPointF(canvas.offset) / ratio, QSizeF(image.size()) / ratio);
        if (!rounded) {
            // Device pixel for device pixel: at a ratio of 1, a plain copy.
            painter.drawImage(target, image);
            return;
        }
    } else {
        const Rendered &rendered = this->rendered(ratio);
        if (rendered.image.isNull())
            return;
        image = rendered.image;
        target = QRectF(QPointF(rendered.offset) / ratio, QSizeF(image.size()) / ratio);
    }
    if (!rounded) {
        // Only the part that shows: a cropped fill would otherwise sample the overflow too.
        const QRectF visible = target.intersected(QRectF(rect()));
        if (visible.isEmpty())
            return;
        const qreal sx = image.width() / target.width();
        const qreal sy = image.height() / target.height();
        painter.drawImage(visible, image,
                          QRectF((visible.x() - target.x()) * sx, (visible.y() - target.y()) * sy,
                                 visible.width() * sx, visible.height() * sy));
        return;
    }
    // Texture fill instead of a clip path: a clip path has jagged edges.
    QBrush texture(image);
    texture.setTransform(
        QTransform::fromTranslate(target.x(), target.y())
            .scale(target.width() / image.width(), target.height() / image.height()));
    QPainterPath imageArea;
    imageArea.addRect(target);
    painter.fillPath(shape().intersected(imageArea), texture);
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
    // Shown again, the loop starts over anyway; the buffers need not wait for it.
    m_expanded = {};
    m_canvas = {};
    m_canvasCurrent = false;
}

} // namespace velmora
