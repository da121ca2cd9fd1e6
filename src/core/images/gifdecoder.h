#pragma once

#include <QByteArrayView>
#include <QImage>
#include <QList>
#include <QSize>

#include <optional>

namespace velmora::detail {

/// What a GIF's block structure says, read without decoding any pixels.
struct GifInfo
{
    /// Image blocks found, complete or cut short; counting stops one past the limit given.
    int frameCount = 0;
    /// The logical screen, which is the size of every decoded frame.
    QSize size;
};

/// Reads the header and walks the blocks, skipping the compressed data. Nothing unless the
/// data starts with a GIF header and a complete screen descriptor.
std::optional<GifInfo> probeGif(QByteArrayView data, int frameLimit);

/// A GIF animation, composited frame by frame onto its logical screen.
struct DecodedGif
{
    /// Format_Indexed8, whose colour table holds every colour of the frame (a transparent pixel
    /// is an entry with alpha 0); Format_ARGB32_Premultiplied for a frame that needs more than
    /// 256 colours. The 8-bit frames of a large animation share one FrameArena block.
    QList<QImage> frames;
    /// Seconds, one per frame: the frame's own delay, or 0.1 when it is below 0.1 or missing.
    QList<double> delays;
};

/// Decodes up to `info.frameCount` frames (255 at most) of the GIF that `info` was probed from,
/// each of `info.size`; the caller has judged that many frames of that size acceptable. Decoding
/// stops at the first frame that is cut short or corrupt, or whose image would take the pixels the
/// images declare past `pixelBudget`; the frames before it are returned. Running out of memory
/// throws std::bad_alloc, as the lists do.
DecodedGif decodeGifFrames(QByteArrayView data, const GifInfo &info, qint64 pixelBudget);

} // namespace velmora::detail
