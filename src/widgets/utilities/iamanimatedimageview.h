#pragma once

#include "images/animationclock.h"
#include "images/loadedimage.h"

#include <QColor>
#include <QImage>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <optional>

namespace velmora {

class ImageLoader;

/// Shows a LoadedImage: a still as it is, an animation by playing its frames in a loop, each
/// for its own delay. Frames are drawn from their source pixels at the device pixel ratio of
/// the screen, scaled to fill (cropping) or to fit the view.
///
/// An animation plays only while the view is visible in a window: a timer then wakes the view
/// once per frame, when the frame on show has run its delay, and nothing happens in between.
/// Hidden, the timer stops; shown again, the loop starts over at the first frame.
///
///     auto *cover = new IAMAnimatedImageView(card);
///     cover->setPlaceholderColor(palette::coverImagePlaceholderColor());
///     cover->loadFromUrl(creative.image.url, [this](QSize size) {
///         size.isEmpty() ? reportImageError() : applyAspectRatio(size);
///     });
class IAMAnimatedImageView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(ContentMode contentMode READ contentMode WRITE setContentMode)
    Q_PROPERTY(QColor placeholderColor READ placeholderColor WRITE setPlaceholderColor)

public:
    enum class ContentMode {
        AspectFill, ///< covers the view, cropping the overflow evenly on both sides
        AspectFit, ///< shows all of the image, centred, leaving the rest of the view empty
    };
    Q_ENUM(ContentMode)

    enum Corner {
        TopLeftCorner = 0x1,
        TopRightCorner = 0x2,
        BottomLeftCorner = 0x4,
        BottomRightCorner = 0x8,
        TopCorners = TopLeftCorner | TopRightCorner,
        AllCorners = TopCorners | BottomLeftCorner | BottomRightCorner,
    };
    Q_DECLARE_FLAGS(Corners, Corner)
    Q_FLAG(Corners)

    using LoadCompletion = std::function<void(QSize)>;

    explicit IAMAnimatedImageView(QWidget *parent = nullptr);
    ~IAMAnimatedImageView() override;

    const std::optional<LoadedImage> &loadedImage() const { return m_image; }
    /// Shows `image`, or nothing; any animation on show stops first, and a new one starts at
    /// its first frame. A load still under way is superseded.
    void setLoadedImage(std::optional<LoadedImage> image);

    /// Loads `url` with the image loader and shows the result. The completion and
    /// loadFinished() get the image's pixel size, or an empty size when the load failed (the
    /// image on show stays) or was superseded by a later load or setLoadedImage(). Neither
    /// runs once the view is destroyed.
    void loadFromUrl(const QString &url, LoadCompletion completion = {});
    /// The loader of loadFromUrl(); ImageLoader::shared() when none is set.
    void setImageLoader(ImageLoader *loader);

    ContentMode contentMode() const { return m_contentMode; }
    void setContentMode(ContentMode mode);

    /// Fills the view while it has no image; invalid (the default) for none.
    QColor placeholderColor() const { return m_placeholderColor; }
    void setPlaceholderColor(const QColor &color);

    /// Rounds the chosen corners of the image and the placeholder, with antialiased edges.
    void setCornerRadius(qreal radius, Corners corners = AllCorners);
    qreal cornerRadius() const { return m_cornerRadius; }
    Corners roundedCorners() const { return m_roundedCorners; }

    /// Announces the view to assistive technology as a button, for an image that opens a
    /// link when tapped; otherwise it is a graphic.
    void setAccessibleButton(bool button) { m_accessibleButton = button; }
    bool isAccessibleButton() const { return m_accessibleButton; }

    /// Whether the frame timer of an animation is running.
    bool isAnimating() const { return m_frameTimer.isActive(); }
    /// The frame of the animation on show; -1 when no animation frame is shown.
    qsizetype currentFrameIndex() const { return m_shownIndex; }
    /// The bitmap on show: the still, or the current frame as decoded (possibly 8-bit indexed).
    QImage currentImage() const { return m_frame; }

    /// The monotonic clock of the animation; a steady clock by default. For tests.
    void setTimeSource(AnimationClock::TimeSource now);

Q_SIGNALS:
    void loadFinished(QSize pixelSize);
    /// The animation moved on to another frame; it is expanded and resampled once, when the
    /// view next paints.
    void frameChanged(int index);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    // Where the bitmap on show lands, in device pixels of the painted device.
    struct Placement
    {
        QRect target; // the whole scaled image, possibly larger than the view
        QSize deviceSize;
        qreal ratio = 0;
    };
    // A still resampled once to the device pixels it covers, so that painting (every step of a
    // fade, for one) is a plain copy.
    struct Rendered
    {
        QImage image;
        QPoint offset; // of the image's top left corner, in device pixels
        QSize deviceSize;
        qreal ratio = 0;
    };

    const AnimatedImageSource *animatedSource() const;
    void startAnimatingIfNeeded();
    void stopAnimating();
    void advanceAnimation();
    void showFrameOnTime();
    void scheduleNextFrame();
    void showFrame(qsizetype index);
    void setFrame(QImage frame);
    Placement placement(qreal ratio) const;
    const Rendered &rendered(qreal ratio);
    const Rendered &animationCanvas(const Placement &place);
    const QImage &expandedFrame();
    void updateOpacity();

    std::optional<LoadedImage> m_image;
    QImage m_frame;
    Rendered m_rendered;
    // Buffers an animation reuses from frame to frame, so that a frame change allocates
    // nothing: the frame at 32 bits, and the part of it that shows resampled to device pixels.
    QImage m_expanded;
    Rendered m_canvas;
    bool m_canvasCurrent = false;
    qsizetype m_shownIndex = -1;
    AnimationClock m_clock;
    QTimer m_frameTimer;
    QPointer<ImageLoader> m_loader;
    quint64 m_generation = 0;
    ContentMode m_contentMode = ContentMode::AspectFill;
    QColor m_placeholderColor;
    qreal m_cornerRadius = 0;
    Corners m_roundedCorners = AllCorners;
    bool m_accessibleButton = false;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(IAMAnimatedImageView::Corners)

} // namespace velmora
