// Decode throughput of a 100-frame GIF: the library's decoder (Qt's GIF reader) against
// giflib on the same bytes in the same run, with the same composited output checked
// frame by frame.
#include "benchgif.h"
#include "images/animatedimagedecoder.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QImageReader>

#include <gif_lib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

using namespace velmora;

namespace {

struct Input
{
    const QByteArray *data;
    qsizetype position = 0;
};

int readInput(GifFileType *gif, GifByteType *buffer, int length)
{
    auto *input = static_cast<Input *>(gif->UserData);
    const qsizetype n = std::min<qsizetype>(length, input->data->size() - input->position);
    std::memcpy(buffer, input->data->constData() + input->position, size_t(n));
    input->position += n;
    return int(n);
}

// Frames composited onto the logical screen the way GIF viewers (and Qt) do, decoded line by
// line straight into the canvas, in the formats the library keeps.
QList<QImage> decodeWithGiflib(const QByteArray &data)
{
    Input input { &data };
    int error = 0;
    GifFileType *gif = DGifOpen(&input, readInput, &error);
    if (!gif)
        return {};
    QList<QImage> frames;
    QImage canvas(gif->SWidth, gif->SHeight, QImage::Format_RGB32);
    canvas.fill(0xff000000);
    GraphicsControlBlock control {};
    control.TransparentColor = NO_TRANSPARENT_COLOR;
    std::vector<GifPixelType> line;
    for (bool done = false; !done;) {
        GifRecordType record;
        if (DGifGetRecordType(gif, &record) == GIF_ERROR)
            break;
        switch (record) {
        case EXTENSION_RECORD_TYPE: {
            int code = 0;
            GifByteType *extension = nullptr;
            if (DGifGetExtension(gif, &code, &extension) == GIF_ERROR)
                done = true;
            if (code == GRAPHICS_EXT_FUNC_CODE && extension)
                DGifExtensionToGCB(extension[0], extension + 1, &control);
            while (!done && extension) {
                if (DGifGetExtensionNext(gif, &extension) == GIF_ERROR)
                    done = true;
            }
            break;
        }
        case IMAGE_DESC_RECORD_TYPE: {
            if (DGifGetImageDesc(gif) == GIF_ERROR) {
                done = true;
                break;
            }
            const GifImageDesc &desc = gif->Image;
            const ColorMapObject *map = desc.ColorMap ? desc.ColorMap : gif->SColorMap;
            QRgb colours[256];
            for (int i = 0; i < 256; ++i) {
                colours[i] = map && i < map->ColorCount
                    ? qRgb(map->Colors[i].Red, map->Colors[i].Green, map->Colors[i].Blue)
                    : 0xff000000;
            }
            line.resize(size_t(std::max(desc.Width, 0)));
            const int right = std::min(desc.Left + desc.Width, canvas.width());
            for (int y = 0; y < desc.Height; ++y) {
                if (DGifGetLine(gif, line.data(), desc.Width) == GIF_ERROR) {
                    done = true;
                    break;
                }
                const int row = desc.Top + y;
                if (row >= canvas.height())
                    continue;
                auto *out = reinterpret_cast<QRgb *>(canvas.scanLine(row));
                for (int x = desc.Left; x < right; ++x) {
                    const int index = line[size_t(x - desc.Left)];
                    if (index != control.TransparentColor)
                        out[x] = colours[index];
                }
            }
            if (!done) {
                frames.append(canvas);
                canvas.detach();
            }
            control = {};
            control.TransparentColor = NO_TRANSPARENT_COLOR;
            break;
        }
        case TERMINATE_RECORD_TYPE:
        default:
            done = true;
        }
    }
    DGifCloseFile(gif, &error);
    return frames;
}

// Qt's reader with nothing around it, to show what the library's checks cost on top.
QList<QImage> decodeWithQtAlone(const QByteArray &data)
{
    QBuffer buffer;
    buffer.setData(data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "gif");
    QList<QImage> frames;
    QImage frame;
    while (reader.read(&frame))
        frames.append(frame);
    return frames;
}

double timeMs(const std::function<void()> &run)
{
    QElapsedTimer timer;
    timer.start();
    run();
    return double(timer.nsecsElapsed()) / 1e6;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QByteArray gif = bench::hundredFrameGif();

    const auto decoded = AnimatedImageDecoder::decode(gif);
    const QList<QImage> reference = decodeWithGiflib(gif);
    if (!decoded || !decoded->isAnimated()) {
        std::printf("the library did not decode the benchmark GIF as an animation\n");
        return 1;
    }
    const QList<QImage> &frames = decoded->animatedSource()->frames();
    bool same = frames.size() == reference.size();
    for (qsizetype i = 0; same && i < frames.size(); ++i)
        same = frames[i].convertToFormat(QImage::Format_ARGB32)
            == reference[i].convertToFormat(QImage::Format_ARGB32);
    if (!same) {
        std::printf("giflib and the library disagree on the pixels; the comparison is void\n");
        return 1;
    }

    // The decoders take turns within each round, so that load from other processes falls on
    // all of them alike; the ratio is the median of the per-round ratios.
    constexpr int rounds = 9;
    std::vector<double> library, giflib, qtAlone, ratios;
    for (int round = 0; round < rounds; ++round) {
        library.push_back(timeMs([&] { (void)AnimatedImageDecoder::decode(gif); }));
        giflib.push_back(timeMs([&] { (void)decodeWithGiflib(gif); }));
        qtAlone.push_back(timeMs([&] { (void)decodeWithQtAlone(gif); }));
        ratios.push_back(library.back() / giflib.back());
    }
    const double megapixels = 100 * 600 * 500 / 1e6;
    const auto row = [&](const char *name, const std::vector<double> &times) {
        const double ms = median(times);
        std::printf("  %-24s %8.1f ms  %6.1f Mpixel/s\n", name, ms, megapixels / (ms / 1000));
    };
    std::printf("GIF decode, 100 frames of 600x500 (%.1f MB file), identical output, median of "
                "%d rounds:\n",
                double(gif.size()) / 1e6, rounds);
    row("library (QImageReader):", library);
    row("giflib:", giflib);
    row("QImageReader alone:", qtAlone);
    std::printf("  library/giflib time ratio: %.2f (above 1: giflib faster)\n", median(ratios));
    return 0;
}
