#pragma once

#include <QImage>
#include <QList>
#include <QSize>

namespace velmora {

/// A decoded animation: every frame up front, so playback does no decoding. Frames are kept in
/// 8 bits where their colours allow and expanded to 32 bits only when shown.
class AnimatedImageSource
{
public:
    AnimatedImageSource() = default;
    /// `delays` holds one entry per frame, in seconds.
    AnimatedImageSource(QList<QImage> frames, QList<double> delays, QSize size);

    /// The frames as decoded: each may be 8-bit indexed, so views ask for frameImage().
    const QList<QImage> &frames() const { return m_frames; }
    /// Frame `index` ready to paint (32-bit premultiplied ARGB); converted on request, so a
    /// view asks only when the frame on show changes. Null for an index out of range.
    QImage frameImage(qsizetype index) const;
    const QList<double> &delays() const { return m_delays; }
    /// Pixel size of the first frame; every frame has it.
    QSize size() const { return m_size; }
    /// The sum of `delays`, in seconds.
    double totalDuration() const { return m_totalDuration; }
    qsizetype frameCount() const { return m_frames.size(); }
    /// Bytes the frames hold.
    qint64 residentBytes() const;

    /// The frame on show `elapsedSeconds` after the loop started.
    qsizetype frameIndexAt(double elapsedSeconds) const;

private:
    QList<QImage> m_frames;
    QList<double> m_delays;
    QSize m_size;
    double m_totalDuration = 0;
};

/// One decoded bitmap; `size` is that of the bitmap itself, so after downsampling it is the
/// downsampled size.
class StillImageSource
{
public:
    StillImageSource() = default;
    explicit StillImageSource(QImage image)
        : m_image(std::move(image))
    { }

    const QImage &image() const { return m_image; }
    QSize size() const { return m_image.size(); }

private:
    QImage m_image;
};

} // namespace velmora
