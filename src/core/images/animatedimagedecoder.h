#pragma once

#include "images/loadedimage.h"

#include <QByteArray>
#include <QFuture>

#include <memory>
#include <optional>

namespace velmora {

/// Whether a multi-frame GIF may play, from its frame count and first-frame pixel size. Both
/// limits together bound an animation to 30,000,000 decoded pixels across all frames.
class AnimatedImageDecoderPolicy
{
public:
    static constexpr int minFrameCount = 2;
    static constexpr int maxFrameCount = 200;
    static constexpr int maxPixelSide = 8192;
    static constexpr quint32 maxTotalPixels = 30'000'000;

    static bool shouldAnimate(qint64 frameCount, qint64 pixelWidth, qint64 pixelHeight);
};

/// Turns downloaded bytes into a LoadedImage: a GIF within the policy becomes an animation,
/// anything else the still of its first image, downsampled when very large. Stateless and
/// safe to call from any thread; failures yield nothing (details go to the images debug log).
class AnimatedImageDecoder
{
public:
    static constexpr qsizetype maxDataSize = 20 * 1024 * 1024;
    static constexpr int maxStillSide = 4096;
    static constexpr double minimumFrameDelay = 0.1;

    static std::optional<LoadedImage> decode(const QByteArray &data);

    /// decode() on the library's decoding threads, which are few on purpose (see the .cpp).
    static QFuture<std::optional<LoadedImage>> decodeAsync(QByteArray data);
    /// As above for `data` that does not own its bytes (QByteArray::fromRawData): `owner` holds
    /// them and is kept until the decoding is over.
    static QFuture<std::optional<LoadedImage>> decodeAsync(QByteArray data,
                                                           std::shared_ptr<const void> owner);
};

} // namespace velmora
