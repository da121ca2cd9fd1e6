#include "images/animatedimagedecoder.h"

#include "common/logging.h"

#include <QBuffer>
#include <QImageReader>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

// Qt's allocation limit is process-wide (QImageReader::setAllocationLimit is static), so a
// library must not move it under its host. Instead no read is started that needs more than
// this budget for one bitmap: the animation budget at 4 bytes per pixel (114 MiB), which stays
// under Qt's default of 128 MiB, so our bounds are what refuses an image, not Qt's.
constexpr qint64 maxBitmapPixels = AnimatedImageDecoderPolicy::maxTotalPixels;

// One core stays free for the GUI thread, and at most two animations are decoded at a time,
// each of which may hold the full pixel budget while it runs.
class DecodingPool : public QThreadPool
{
public:
    DecodingPool()
    {
        setMaxThreadCount(std::clamp(QThread::idealThreadCount() - 1, 1, 2));
        setObjectName(u"velmora-image-decoding"_s);
    }
};
Q_GLOBAL_STATIC(DecodingPool, decodingPool)

struct PixelSize
{
    qint64 width = 0;
    qint64 height = 0;
};

// Qt's GIF scanner trusts the logical screen size only when a frame is of similar size, but
// its decoder always paints onto the whole screen, so QImageReader::size() can under-report
// the bitmaps a GIF will produce. The header is read directly for that reason.
std::optional<PixelSize> gifLogicalScreen(const QByteArray &data)
{
    if (data.size() < 10 || !(data.startsWith("GIF87a") || data.startsWith("GIF89a")))
        return std::nullopt;
    const auto byte = [&](int i) { return qint64(uchar(data[i])); };
    const PixelSize size { byte(6) | (byte(7) << 8), byte(8) | (byte(9) << 8) };
    if (size.width < 1 || size.height < 1)
        return std::nullopt;
    return size;
}

// Frames whose image data arrives complete, found by walking the block structure. Qt decodes a
// frame cut short by the end of the data as if it were whole (the rest stays from the previous
// frame), which would show as a glitch in every loop.
int completeGifFrames(const QByteArray &data)
{
    const qsizetype size = data.size();
    const auto at = [&](qsizetype i) { return uchar(data[i]); };
    const auto colourTableSize
        = [](uchar packed) { return (packed & 0x80) ? qsizetype(3) << ((packed & 0x07) + 1) : 0; };
    // Returns the position after the terminating empty sub-block, or -1 past the end.
    const auto skipSubBlocks = [&](qsizetype i) -> qsizetype {
        while (i < size) {
            const uchar length = at(i);
            i += 1 + length;
            if (length == 0)
                return i;
        }
        return -1;
    };

    if (size < 13)
        return 0;
    qsizetype i = 13 + colourTableSize(at(10));
    int frames = 0;
    while (i < size) {
        const uchar introducer = at(i);
        if (introducer == 0x21) {
            if (i + 2 > size)
                break;
            i = skipSubBlocks(i + 2);
        } else if (introducer == 0x2c) {
            if (i + 10 > size)
                break;
            i += 10 + colourTableSize(at(i + 9));
            i = i < size ? skipSubBlocks(i + 1) : -1; // after the LZW code size
            if (i >= 0)
                ++frames;
        } else {
            break; // the trailer, or data no decoder would read past
        }
        if (i < 0)
            break;
    }
    return frames;
}

std::optional<PixelSize> pixelDimensions(const QImageReader &reader, const QByteArray &data,
                                         bool isGif)
{
    if (isGif) {
        if (const auto screen = gifLogicalScreen(data))
            return screen;
    }
    const QSize size = reader.size();
    if (size.width() < 1 || size.height() < 1)
        return std::nullopt;
    return PixelSize { size.width(), size.height() };
}

QString sizeText(const PixelSize &size)
{
    return QString::number(size.width) + u'x' + QString::number(size.height);
}

// Views paint frames many times a second; premultiplied pixels are what the painter wants.
QImage forPainting(QImage image)
{
    if (image.format() == QImage::Format_ARGB32)
        image.convertTo(QImage::Format_ARGB32_Premultiplied);
    return image;
}

QSize downsampledSize(const PixelSize &size)
{
    const double scale
        = double(AnimatedImageDecoder::maxStillSide) / double(std::max(size.width, size.height));
    const auto side = [&](qint64 value) {
        return int(std::clamp<qint64>(std::llround(double(value) * scale), 1,
                                      AnimatedImageDecoder::maxStillSide));
    };
    return QSize(side(size.width), side(size.height));
}

// The bitmap a handler allocates on its way to `target`. Only Qt's JPEG handler decodes at a
// reduced size, by libjpeg's factors of 1/2, 1/4 or 1/8 with the result still at least the
// target; other handlers that accept a scaled size (PNG among them) decode at full size and
// scale afterwards.
qint64 decodedPixelsBeforeScaling(const QImageReader &reader, const PixelSize &size, QSize target)
{
    if (reader.format() != "jpeg")
        return size.width * size.height;
    const qint64 ratio = std::min(size.width / target.width(), size.height / target.height());
    const qint64 denominator = ratio < 2 ? 1 : ratio < 4 ? 2 : ratio < 8 ? 4 : 8;
    const auto scaled = [&](qint64 side) { return (side + denominator - 1) / denominator; };
    return scaled(size.width) * scaled(size.height);
}

std::optional<LoadedImage> decodeStill(QImageReader &reader, const std::optional<PixelSize> &size)
{
    QImage image;
    if (size && std::max(size->width, size->height) > AnimatedImageDecoder::maxStillSide) {
        const QSize target = downsampledSize(*size);
        if (decodedPixelsBeforeScaling(reader, *size, target) <= maxBitmapPixels) {
            reader.setScaledSize(target);
            reader.read(&image);
        }
        if (image.isNull()) {
            qCDebug(lcVelmoraImages).noquote()
                << u"AnimatedImageDecoder: downsample failed for oversized still (size="_s
                    + sizeText(*size) + u"), rejecting"_s;
            return std::nullopt;
        }
    } else {
        if (!size) {
            // Without a size up front nothing could be checked before decoding; still keep
            // the promise about what comes out.
            if (!reader.read(&image))
                return std::nullopt;
            if (std::max(image.width(), image.height()) > AnimatedImageDecoder::maxStillSide)
                image = image.scaled(downsampledSize(PixelSize { image.width(), image.height() }),
                                     Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        } else if (!reader.read(&image)) {
            return std::nullopt;
        }
        if (image.isNull())
            return std::nullopt;
    }
    return LoadedImage::still(StillImageSource(forPainting(std::move(image))));
}

std::optional<LoadedImage> decodeAnimatedFrames(QImageReader &reader, int frameCount,
                                                const PixelSize &size)
{
    const QSize expected(int(size.width), int(size.height));
    QList<QImage> frames;
    QList<double> delays;
    frames.reserve(frameCount);
    delays.reserve(frameCount);
    for (int i = 0; i < frameCount; ++i) {
        QImage frame;
        // A frame of another size than the one the policy approved would break the pixel
        // bound, so it ends the animation like a frame that fails to decode.
        if (!reader.read(&frame) || frame.size() != expected)
            break;
        // Qt reports delays in milliseconds and already reads 0 and a missing delay as 100.
        const double delay = reader.nextImageDelay() / 1000.0;
        frames.append(forPainting(std::move(frame)));
        delays.append(std::max(delay, AnimatedImageDecoder::minimumFrameDelay));
    }
    if (frames.size() < AnimatedImageDecoderPolicy::minFrameCount)
        return std::nullopt;
    return LoadedImage::animated(
        AnimatedImageSource(std::move(frames), std::move(delays), expected));
}

} // namespace

bool AnimatedImageDecoderPolicy::shouldAnimate(qint64 frameCount, qint64 pixelWidth,
                                               qint64 pixelHeight)
{
    if (frameCount < minFrameCount || frameCount > maxFrameCount)
        return false;
    if (pixelWidth < 1 || pixelWidth > maxPixelSide || pixelHeight < 1
        || pixelHeight > maxPixelSide)
        return false;
    return pixelWidth * pixelHeight <= qint64(maxTotalPixels / quint32(frameCount));
}

std::optional<LoadedImage> AnimatedImageDecoder::decode(const QByteArray &data)
{
    if (data.size() > maxDataSize) {
        qCDebug(lcVelmoraImages).noquote() << u"AnimatedImageDecoder: data size exceeds limit ("_s
                + QString::number(data.size()) + u" bytes), rejecting"_s;
        return std::nullopt;
    }

    QBuffer buffer;
    buffer.setData(data);
    if (!buffer.open(QIODevice::ReadOnly))
        return std::nullopt;
    QImageReader reader(&buffer);
    if (!reader.canRead())
        return std::nullopt;
    const int count = reader.imageCount();
    if (count < 1)
        return std::nullopt;

    const bool isGif = reader.format() == "gif";
    const std::optional<PixelSize> size = pixelDimensions(reader, data, isGif);
    if (count != 1 && isGif && size) {
        if (AnimatedImageDecoderPolicy::shouldAnimate(count, size->width, size->height)) {
            const int readable = std::min(count, completeGifFrames(data));
            if (auto animation = decodeAnimatedFrames(reader, readable, *size))
                return animation;
            // The reader has moved past the first frame; the still starts over.
            buffer.seek(0);
            QImageReader stillReader(&buffer, "gif");
            return decodeStill(stillReader, size);
        }
        qCDebug(lcVelmoraImages).noquote()
            << u"AnimatedImageDecoder: GIF exceeds limit; falling back to still (frames="_s
                + QString::number(count) + u", size="_s + sizeText(*size) + u")"_s;
    }
    return decodeStill(reader, size);
}

QFuture<std::optional<LoadedImage>> AnimatedImageDecoder::decodeAsync(QByteArray data)
{
    QThreadPool *pool = decodingPool();
    return QtConcurrent::run(pool, [data = std::move(data)]() -> std::optional<LoadedImage> {
        // Running out of memory on hostile input must end as "no image", not as an exception
        // waiting in a future that nobody reads.
        try {
            return decode(data);
        } catch (...) {
            return std::nullopt;
        }
    });
}

} // namespace velmora
