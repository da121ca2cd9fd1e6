#include "iamanimatedimage.h"

#include "images/imageloader.h"

#include <QPainter>
#include <QPainterPath>
#include <QQuickWindow>
#include <QSGImageNode>
#include <QSGTexture>

#include <algorithm>
#include <chrono>

namespace velmora::quick {

namespace detail {

FrameTicker::FrameTicker(IAMAnimatedImage *image)
    : m_image(image)
{ }

void FrameTicker::updateCurrentTime(int)
{
    m_image->advance();
}

} // namespace detail

IAMAnimatedImage::IAMAnimatedImage(QQuickItem *parent)
    : QQuickItem(parent)
    , m_ticker(this)
    // The animation system's time rather than the wall clock: it advances with the window's
    // frames, and an installed animation driver controls it completely.
    , m_clock([this] { return std::chrono::milliseconds(m_ticker.currentTime()); })
{
    setFlag(ItemHasContents);
}

IAMAnimatedImage::~IAMAnimatedImage()
{
    m_ticker.stop();
}

const AnimatedImageSource *IAMAnimatedImage::animatedSource() const
{
    return m_image ? m_image->animatedSource() : nullptr;
}

void IAMAnimatedImage::setSource(const QString &source)
{
    if (source == m_source)
        return;
    m_source = source;
    Q_EMIT sourceChanged();

    const quint64 generation = ++m_generation;
    if (m_source.isEmpty()) {
        setImage(std::nullopt);
        setStatus(Null);
        return;
    }
    setStatus(Loading);
    ImageLoader::shared()->load(m_source, this,
                                [this, generation](std::optional<LoadedImage> image) {
                                    if (generation != m_generation)
                                        return;
                                    if (!image) {
                                        setStatus(Error);
                                        return;
                                    }
                                    setImage(std::move(image));
                                    setStatus(Ready);
                                });
}

void IAMAnimatedImage::setFillMode(FillMode mode)
{
    if (mode == m_fillMode)
        return;
    m_fillMode = mode;
    update();
    Q_EMIT fillModeChanged();
}

void IAMAnimatedImage::setStatus(Status status)
{
    if (status == m_status)
        return;
    m_status = status;
    Q_EMIT statusChanged();
}

void IAMAnimatedImage::setImage(std::optional<LoadedImage> image)
{
    const QSize oldSize = sourceSize();
    if (m_ticker.state() != QAbstractAnimation::Stopped) {
        m_ticker.stop();
        m_clock.stop();
        Q_EMIT playingChanged();
    }
    m_image = std::move(image);
    if (animatedSource()) {
        m_shownIndex = -1;
        showFrame(0);
        updatePlayback(window());
    } else {
        m_frame = m_image ? m_image->firstFrame() : QImage();
        m_textureDirty = true;
        update();
        if (m_shownIndex != -1) {
            m_shownIndex = -1;
            Q_EMIT currentFrameChanged();
        }
    }
    if (sourceSize() != oldSize)
        Q_EMIT sourceSizeChanged();
}

void IAMAnimatedImage::updatePlayback(const QQuickWindow *window)
{
    const AnimatedImageSource *source = animatedSource();
    // One frame, or no time to spread frames over, never changes: nothing to tick for.
    const bool moving = source && source->frameCount() > 1 && source->totalDuration() > 0;
    const bool play = moving && window && isVisible();
    if (play == isPlaying())
        return;
    if (play) {
        m_ticker.start();
        m_clock.restart();
        advance();
    } else {
        m_ticker.stop();
        m_clock.stop();
    }
    Q_EMIT playingChanged();
}

void IAMAnimatedImage::advance()
{
    const AnimatedImageSource *source = animatedSource();
    if (!source)
        return;
    const std::optional<qsizetype> index = m_clock.advance(*source);
    if (index && *index != m_shownIndex)
        showFrame(*index);
}

void IAMAnimatedImage::showFrame(qsizetype index)
{
    m_frame = animatedSource()->frameImage(index);
    m_shownIndex = index;
    m_textureDirty = true;
    update();
    Q_EMIT currentFrameChanged();
}

void IAMAnimatedImage::itemChange(ItemChange change, const ItemChangeData &value)
{
    QQuickItem::itemChange(change, value);
    if (change == ItemSceneChange || change == ItemVisibleHasChanged) {
        // Coming back, to this window or another, starts the loop over from the first frame.
        if (change == ItemSceneChange && isPlaying()) {
            m_ticker.stop();
            m_clock.stop();
            Q_EMIT playingChanged();
        }
        if (!isPlaying() && animatedSource() && m_shownIndex != 0)
            showFrame(0);
        updatePlayback(change == ItemSceneChange ? value.window : window());
    }
}

void IAMAnimatedImage::geometryChange(const QRectF &newGeometry, const QRectF &oldGeometry)
{
    QQuickItem::geometryChange(newGeometry, oldGeometry);
    if (newGeometry.size() != oldGeometry.size())
        update();
}

void IAMAnimatedImage::setTopCornerRadius(qreal radius)
{
    if (radius == m_topCornerRadius)
        return;
    m_topCornerRadius = radius;
    m_textureDirty = true;
    update();
    Q_EMIT topCornerRadiusChanged();
}

QImage IAMAnimatedImage::textureImage(const QRectF &sourceRect, qreal imagePixelsPerPoint)
{
    m_cornersCutFor = sourceRect;
    if (m_topCornerRadius <= 0)
        return m_frame;
    QImage image = m_frame.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const qreal r = m_topCornerRadius * imagePixelsPerPoint;
    // What lies outside the quarter circles in the two top corners of the part on show.
    QPainterPath outside;
    outside.addRect(QRectF(sourceRect.topLeft(), QSizeF(sourceRect.width(), r)));
    QPainterPath rounded;
    rounded.addRoundedRect(QRectF(sourceRect.topLeft(), QSizeF(sourceRect.width(), 2 * r)), r, r);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.fillPath(outside.subtracted(rounded), Qt::transparent);
    return image;
}

QSGNode *IAMAnimatedImage::updatePaintNode(QSGNode *oldNode, UpdatePaintNodeData *)
{
    auto *node = static_cast<QSGImageNode *>(oldNode);
    if (m_frame.isNull() || width() <= 0 || height() <= 0) {
        delete node;
        return nullptr;
    }
    if (!node) {
        node = window()->createImageNode();
        node->setOwnsTexture(true);
        node->setFiltering(QSGTexture::Linear);
        m_textureDirty = true;
    }

    const QSizeF image = m_frame.size();
    const QSizeF item = size();
    const qreal scaleX = item.width() / image.width();
    const qreal scaleY = item.height() / image.height();
    QRectF rect;
    QRectF sourceRect;
    if (m_fillMode == Fill) {
        // The part of the image that covers the item, so the overflow is never drawn.
        const qreal scale = std::max(scaleX, scaleY);
        const QSizeF shown(item.width() / scale, item.height() / scale);
        rect = QRectF(QPointF(), item);
        sourceRect = QRectF(
            QPointF((image.width() - shown.width()) / 2, (image.height() - shown.height()) / 2),
            shown);
    } else {
        const qreal scale = std::min(scaleX, scaleY);
        const QSizeF shown = image * scale;
        rect = QRectF(
            QPointF((item.width() - shown.width()) / 2, (item.height() - shown.height()) / 2),
            shown);
        sourceRect = QRectF(QPointF(), image);
    }
    // Rounded corners are cut into the texture, so a new crop needs a new texture.
    if (m_topCornerRadius > 0 && sourceRect != m_cornersCutFor)
        m_textureDirty = true;
    if (m_textureDirty) {
        node->setTexture(window()->createTextureFromImage(
            textureImage(sourceRect, sourceRect.width() / rect.width())));
        m_textureDirty = false;
        ++m_textureUploads;
    }
    node->setRect(rect);
    node->setSourceRect(sourceRect);
    return node;
}

} // namespace velmora::quick
