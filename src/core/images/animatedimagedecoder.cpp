#include "images/animatedimagedecoder.h"

#include "common/logging.h"
#include "images/gifdecoder.h"

#include <QBuffer>
#include <QImageReader>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>
#include <limits>

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

std::optional<PixelSize> pixelDimensions(const QImageReader &reader)
{
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
    const auto downsampleFailed = [](const PixelSize &size) {
        qCDebug(lcVelmoraImages).noquote()
            << u"AnimatedImageDecoder: downsample failed for oversized still (size="_s
                + sizeText(size) + u"), rejecting"_s;
        return std::nullopt;
    };
    QImage image;
    if (size && std::max(size->width, size->height) > AnimatedImageDecoder::maxStillSide) {
        const QSize target = downsampledSize(*size);
        if (decodedPixelsBeforeScaling(reader, *size, target) > maxBitmapPixels)
            return downsampleFailed(*size);
        reader.setScaledSize(target);
        // A JPEG that fails part-way comes back at libjpeg's intermediate scale, larger than
        // the target, so a failed read is a failed downsample whatever it left in `image`.
        if (!reader.read(&image) || image.isNull())
            return downsampleFailed(*size);
    } else if (!reader.read(&image) || image.isNull()) {
        return std::nullopt;
    }
    // What the reader returned counts, not what it announced or was asked for: a handler may
    // ignore the scaled size, and without a size up front nothing was checked before decoding.
    if (const PixelSize decoded { image.width(), image.height() };
        std::max(decoded.width, decoded.height) > AnimatedImageDecoder::maxStillSide) {
        image = image.scaled(downsampledSize(decoded), Qt::IgnoreAspectRatio,
                             Qt::SmoothTransformation);
        if (image.isNull())
            return downsampleFailed(decoded);
    }
    return LoadedImage::still(StillImageSource(forPainting(std::move(image))));
}

std::optional<LoadedImage> decodeAnimatedFrames(const QByteArray &data, const detail::GifInfo &info)
{
    detail::DecodedGif gif
        = detail::decodeGifFrames(data, info, AnimatedImageDecoderPolicy::maxTotalPixels);
    if (gif.frames.size() < AnimatedImageDecoderPolicy::minFrameCount)
        return std::nullopt;
    return LoadedImage::animated(
        AnimatedImageSource(std::move(gif.frames), std::move(gif.delays), info.size));
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

    // GIFs are sized and counted by their block structure: Qt's reader can under-report the
    // logical screen, which is the size of every frame it decodes.
    const std::optional<detail::GifInfo> gif
        = detail::probeGif(data, AnimatedImageDecoderPolicy::maxFrameCount);
    if (!gif) {
        QImageReader reader(&buffer);
        if (!reader.canRead() || reader.imageCount() < 1)
            return std::nullopt;
        return decodeStill(reader, pixelDimensions(reader));
    }

    if (gif->frameCount < 1)
        return std::nullopt;
    std::optional<PixelSize> size;
    if (!gif->size.isEmpty())
        size = PixelSize { gif->size.width(), gif->size.height() };
    if (gif->frameCount != 1 && size) {
        if (AnimatedImageDecoderPolicy::shouldAnimate(gif->frameCount, size->width, size->height)) {
            if (auto animation = decodeAnimatedFrames(data, *gif))
                return animation;
        } else if (lcVelmoraImages().isDebugEnabled()) {
            // The probe stops counting past the limit; the log names the real count.
            const int count = gif->frameCount > AnimatedImageDecoderPolicy::maxFrameCount
                ? detail::probeGif(data, std::numeric_limits<int>::max())->frameCount
                : gif->frameCount;
            qCDebug(lcVelmoraImages).noquote()
                << u"AnimatedImageDecoder: GIF exceeds limit; falling back to still (frames="_s
                    + QString::number(count) + u", size="_s + sizeText(*size) + u")"_s;
        }
    }
    QImageReader reader(&buffer, "gif");
    return decodeStill(reader, size);
}

QFuture<std::optional<LoadedImage>> AnimatedImageDecoder::decodeAsync(QByteArray data)
{
    return decodeAsync(std::move(data), {});
}

QFuture<std::optional<LoadedImage>>
AnimatedImageDecoder::decodeAsync(QByteArray data, std::shared_ptr<const void> owner)
{
    QThreadPool *pool = decodingPool();
    return QtConcurrent::run(
        pool, [data = std::move(data), owner = std::move(owner)]() -> std::optional<LoadedImage> {
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
