// The largest animation 100 frames may be (600 x 500 each), decoded by the library:
//  (a) decode time against merely allocating and writing the 100 RGBA frames a 32-bit decoder
//      must produce (the floor), and against the previous path (Qt's reader, every frame
//      composited to 32 bits and made ready to paint);
//  (b) the bytes the decoded animation holds against its size in RGBA, with the process's
//      resident growth as a check that nothing else is held;
//  (c) the cost of making one shown frame ready to paint, against copying a 32-bit frame.
// The contestants take turns in every round so that load from other processes falls on all of
// them alike; ratios are medians of the per-round ratios.
#include "benchgif.h"
#include "images/animatedimagedecoder.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QImageReader>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <malloc.h>
#include <vector>

using namespace velmora;

namespace {

constexpr int frameCount = 100;
constexpr QSize frameSize(600, 500);

QList<QImage> previousPath(const QByteArray &gif)
{
    QBuffer buffer;
    buffer.setData(gif);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "gif");
    QList<QImage> frames;
    for (QImage frame; reader.read(&frame);) {
        if (frame.format() == QImage::Format_ARGB32)
            frame.convertTo(QImage::Format_ARGB32_Premultiplied);
        frames.append(frame);
    }
    return frames;
}

QList<QImage> writeRgbaFrames()
{
    QList<QImage> frames;
    for (int i = 0; i < frameCount; ++i) {
        QImage frame(frameSize, QImage::Format_ARGB32_Premultiplied);
        frame.fill(qRgba(i, 2 * i, 3 * i, 255));
        frames.append(frame);
    }
    return frames;
}

// Times `make` alone, not the release of what it made.
template<typename F> double timeMs(F &&make)
{
    QElapsedTimer timer;
    timer.start();
    auto result = make();
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    (void)result;
    return ms;
}

double threadCpuMs()
{
    timespec now {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double percentile(std::vector<double> values, double p)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size())))];
}

// Kilobytes of "VmRSS" in /proc/self/status; -1 where unavailable.
qint64 residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

const char *verdict(bool ok)
{
    return ok ? "met" : "MISSED";
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QByteArray gif = bench::hundredFrameGif(), gifWithHoles = bench::hundredFrameGif(true);

    // The comparison is void unless the library shows what Qt shows, in 8 bits.
    for (const QByteArray &data : { gif, gifWithHoles }) {
        const std::optional<LoadedImage> image = AnimatedImageDecoder::decode(data);
        const QList<QImage> reference = previousPath(data);
        const AnimatedImageSource *animation = image ? image->animatedSource() : nullptr;
        if (!animation || animation->frameCount() != frameCount || reference.size() != frameCount) {
            std::printf("a benchmark GIF did not decode as a %d-frame animation\n", frameCount);
            return 1;
        }
        for (int i = 0; i < frameCount; ++i) {
            if (animation->frames()[i].format() != QImage::Format_Indexed8
                || animation->frameImage(i).convertToFormat(QImage::Format_ARGB32)
                    != reference[i].convertToFormat(QImage::Format_ARGB32)) {
                std::printf("frame %d differs from Qt's or is not 8-bit\n", i);
                return 1;
            }
        }
    }

    // (a)
    constexpr int rounds = 11;
    std::vector<double> library, holes, previous, floor, libraryRatio, holesRatio, previousRatio;
    for (int round = 0; round < rounds; ++round) {
        library.push_back(timeMs([&] { return AnimatedImageDecoder::decode(gif); }));
        holes.push_back(timeMs([&] { return AnimatedImageDecoder::decode(gifWithHoles); }));
        previous.push_back(timeMs([&] { return previousPath(gif); }));
        floor.push_back(timeMs([&] { return writeRgbaFrames(); }));
        libraryRatio.push_back(library.back() / floor.back());
        holesRatio.push_back(holes.back() / floor.back());
        previousRatio.push_back(previous.back() / floor.back());
    }

    // (b)
    malloc_trim(0);
    const qint64 beforeKb = residentKb();
    const std::optional<LoadedImage> image = AnimatedImageDecoder::decode(gif);
    malloc_trim(0);
    const qint64 heldBytes = (residentKb() - beforeKb) * 1024;
    const AnimatedImageSource &animation = *image->animatedSource();
    const qint64 rgba = qint64(frameCount) * frameSize.width() * frameSize.height() * 4;

    // (c) A view converts the frame on show, one after the other; copying a 32-bit frame is
    // what showing a frame kept in 32 bits would cost at the least.
    std::vector<double> convertWall, convertCpu, copyWall, convertRatio;
    const QImage frame32 = animation.frameImage(0);
    for (int i = 1; i <= 2000; ++i) {
        const double cpuStart = threadCpuMs();
        convertWall.push_back(timeMs([&] { return animation.frameImage(i % frameCount); }));
        convertCpu.push_back(threadCpuMs() - cpuStart);
        copyWall.push_back(timeMs([&] { return frame32.copy(); }));
        convertRatio.push_back(convertWall.back() / copyWall.back());
    }

    const double decodeRatio = percentile(libraryRatio, 0.5);
    const double residentRatio = double(animation.residentBytes()) / double(rgba);
    const double conversionP99 = percentile(convertCpu, 0.99);
    std::printf(
        "GIF decode, %d frames of %dx%d (%.1f MB file), medians of %d interleaved rounds:\n",
        frameCount, frameSize.width(), frameSize.height(), double(gif.size()) / 1e6, rounds);
    std::printf("  library (giflib, 8-bit frames):  %7.1f ms = %.2f x floor  (goal <= 0.75: %s)\n",
                percentile(library, 0.5), decodeRatio, verdict(decodeRatio <= 0.75));
    std::printf("  same, unchanged pixels transparent (%.1f MB): %.1f ms = %.2f x floor\n",
                double(gifWithHoles.size()) / 1e6, percentile(holes, 0.5),
                percentile(holesRatio, 0.5));
    std::printf("  previous path (QImageReader):    %7.1f ms = %.2f x floor\n",
                percentile(previous, 0.5), percentile(previousRatio, 0.5));
    std::printf("  floor (allocate + write RGBA):   %7.1f ms\n", percentile(floor, 0.5));
    std::printf("Decoded animation: %.1f MB held in its frames vs %.1f MB as RGBA = %.2f x "
                "(goal <= 0.3: %s); resident growth %.1f MB\n",
                double(animation.residentBytes()) / 1e6, double(rgba) / 1e6, residentRatio,
                verdict(residentRatio <= 0.3), double(heldBytes) / 1e6);
    std::printf("Making a shown 600x500 frame ready to paint, 2000 in a row (goal p99 <= 0.5 ms "
                "of CPU: %s):\n",
                verdict(conversionP99 <= 0.5));
    std::printf("  thread CPU: median %.3f ms, p99 %.3f ms\n", percentile(convertCpu, 0.5),
                conversionP99);
    std::printf("  wall:       median %.3f ms, p99 %.3f ms = %.2f x a 32-bit frame copy (median "
                "%.3f ms)\n",
                percentile(convertWall, 0.5), percentile(convertWall, 0.99),
                percentile(convertRatio, 0.5), percentile(copyWall, 0.5));
    return 0;
}
