#pragma once

#include "images/animationclock.h"
#include "images/loadedimage.h"

#include <QAbstractAnimation>
#include <QImage>
#include <QQuickItem>
#include <QSize>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace velmora::quick {

class IAMAnimatedImage;

namespace detail {

// An endless animation whose only job is to tick once per frame of the Qt Quick animation
// system, so playback follows the window's frames (and a test's animation driver).
class FrameTicker : public QAbstractAnimation
{
public:
    explicit FrameTicker(IAMAnimatedImage *image);
    int duration() const override { return -1; }

protected:
    void updateCurrentTime(int currentTime) override;

private:
    IAMAnimatedImage *m_image;
};

} // namespace detail

/// A creative image loaded from an https URL through the library's image loader: a still as
/// it is, an animation played in a loop, each frame for its own delay. Playback runs only while
/// the item is visible in a window and starts over at the first frame each time it comes back;
/// a frame reaches the scene graph only when the frame on show changes.
///
///     IAMAnimatedImage {
///         source: creative.imageUrl
///         fillMode: IAMAnimatedImage.Fill
///         height: status === IAMAnimatedImage.Ready
///                 ? width * sourceSize.height / sourceSize.width : 0
///     }
class IAMAnimatedImage : public QQuickItem
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString source READ source WRITE setSource NOTIFY sourceChanged)
    Q_PROPERTY(FillMode fillMode READ fillMode WRITE setFillMode NOTIFY fillModeChanged)
    Q_PROPERTY(Status status READ status NOTIFY statusChanged)
    /// Size of the loaded image (its first frame), 0x0 until one is loaded.
    Q_PROPERTY(QSize sourceSize READ sourceSize NOTIFY sourceSizeChanged)
    /// The frame of the animation on show; -1 for a still or no image.
    Q_PROPERTY(int currentFrame READ currentFrame NOTIFY currentFrameChanged)
    /// Whether an animation is advancing (loaded, visible and in a window).
    Q_PROPERTY(bool playing READ isPlaying NOTIFY playingChanged)
    /// Rounds the top corners of the drawn picture, for a picture at the top of a rounded card
    /// (clipping cannot round them: the software renderer clips to rectangles only).
    Q_PROPERTY(qreal topCornerRadius READ topCornerRadius WRITE setTopCornerRadius NOTIFY
                   topCornerRadiusChanged)
    /// Textures made for the scene graph so far; a diagnostic of the one-upload-per-frame rule.
    Q_PROPERTY(int textureUploads READ textureUploads)

public:
    enum FillMode {
        Fit, ///< all of the image, centred
        Fill, ///< covers the item, cropping the overflow evenly on both sides
    };
    Q_ENUM(FillMode)
    enum Status { Null, Loading, Ready, Error };
    Q_ENUM(Status)

    explicit IAMAnimatedImage(QQuickItem *parent = nullptr);
    ~IAMAnimatedImage() override;

    QString source() const { return m_source; }
    /// Loads `source` (https only); a failed load sets Error and keeps the image on show, an
    /// empty source clears it.
    void setSource(const QString &source);
    FillMode fillMode() const { return m_fillMode; }
    void setFillMode(FillMode mode);
    Status status() const { return m_status; }
    QSize sourceSize() const { return m_image ? m_image->size() : QSize(); }
    int currentFrame() const { return int(m_shownIndex); }
    bool isPlaying() const { return m_ticker.state() == QAbstractAnimation::Running; }
    int textureUploads() const { return m_textureUploads; }
    qreal topCornerRadius() const { return m_topCornerRadius; }
    void setTopCornerRadius(qreal radius);

Q_SIGNALS:
    void sourceChanged();
    void fillModeChanged();
    void statusChanged();
    void sourceSizeChanged();
    void currentFrameChanged();
    void playingChanged();
    void topCornerRadiusChanged();

protected:
    QSGNode *updatePaintNode(QSGNode *oldNode, UpdatePaintNodeData *data) override;
    void itemChange(ItemChange change, const ItemChangeData &value) override;
    void geometryChange(const QRectF &newGeometry, const QRectF &oldGeometry) override;

private:
    friend class detail::FrameTicker;

    const AnimatedImageSource *animatedSource() const;
    void setImage(std::optional<LoadedImage> image);
    void setStatus(Status status);
    void updatePlayback(const QQuickWindow *window);
    void advance();
    void showFrame(qsizetype index);
    QImage textureImage(const QRectF &sourceRect, qreal imagePixelsPerPoint);

    QString m_source;
    FillMode m_fillMode = Fit;
    Status m_status = Null;
    std::optional<LoadedImage> m_image;
    // The bitmap on show, ready for upload; the texture is remade only when it changes.
    QImage m_frame;
    qsizetype m_shownIndex = -1;
    bool m_textureDirty = false;
    qreal m_topCornerRadius = 0;
    // The source rectangle the corners of the current texture were cut for.
    QRectF m_cornersCutFor;
    int m_textureUploads = 0;
    quint64 m_generation = 0;
    detail::FrameTicker m_ticker;
    AnimationClock m_clock;
};

} // namespace velmora::quick
