#include "images/animatedimagesource.h"

#include "images/frameselection.h"

#include <numeric>

namespace velmora {

AnimatedImageSource::AnimatedImageSource(QList<QImage> frames, QList<double> delays, QSize size)
    : m_frames(std::move(frames))
    , m_delays(std::move(delays))
    , m_size(size)
    , m_totalDuration(std::accumulate(m_delays.cbegin(), m_delays.cend(), 0.0))
{ }

QImage AnimatedImageSource::frameImage(qsizetype index) const
{
    if (index < 0 || index >= m_frames.size())
        return {};
    const QImage &frame = m_frames.at(index);
    if (frame.format() == QImage::Format_ARGB32_Premultiplied)
        return frame;
    return frame.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

qint64 AnimatedImageSource::residentBytes() const
{
    qint64 bytes = 0;
    for (const QImage &frame : m_frames)
        bytes += frame.sizeInBytes();
    return bytes;
}

qsizetype AnimatedImageSource::frameIndexAt(double elapsedSeconds) const
{
    return frameIndexForElapsed(m_delays, m_totalDuration, elapsedSeconds);
}

} // namespace velmora
