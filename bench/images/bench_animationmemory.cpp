// Peak memory while decoding the largest animation 100 frames may be, against the pixel bound
// of 30,000,000 pixels at 4 bytes (the most an accepted animation may hold) and against the
// bytes the decoded frames actually occupy, both in the same run.
#include "benchgif.h"
#include "images/animatedimagedecoder.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>
#include <malloc.h>

using namespace velmora;

namespace {

// Kilobytes from /proc/self/status ("VmRSS", "VmHWM"); -1 where unavailable.
qint64 statusKb(const char *field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith(field) && line.at(qsizetype(qstrlen(field))) == ':')
            return line.mid(qsizetype(qstrlen(field)) + 1)
                .trimmed()
                .split(' ')
                .first()
                .toLongLong();
    }
    return -1;
}

// Lets VmHWM start again from the current resident size.
bool resetPeak()
{
    QFile clearRefs(QStringLiteral("/proc/self/clear_refs"));
    return clearRefs.open(QIODevice::WriteOnly) && clearRefs.write("5") == 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QByteArray gif = bench::hundredFrameGif();
    // Warm up the plugin loading and the allocator outside the measurement.
    (void)AnimatedImageDecoder::decode(gif.left(gif.size() / 10));
    malloc_trim(0);

    if (!resetPeak()) {
        std::printf("cannot reset the peak resident size (/proc/self/clear_refs)\n");
        return 1;
    }
    const qint64 baselineKb = statusKb("VmRSS");
    std::optional<LoadedImage> image = AnimatedImageDecoder::decode(gif);
    const qint64 peakKb = statusKb("VmHWM");
    const qint64 heldKb = statusKb("VmRSS");
    if (!image || !image->isAnimated() || baselineKb < 0 || peakKb < 0) {
        std::printf("measurement failed\n");
        return 1;
    }

    qint64 frameBytes = 0;
    for (const QImage &frame : image->animatedSource()->frames())
        frameBytes += frame.sizeInBytes();
    const double bound = double(AnimatedImageDecoderPolicy::maxTotalPixels) * 4;
    const double peak = double(peakKb - baselineKb) * 1024;
    const double held = double(heldKb - baselineKb) * 1024;
    std::printf("Decoding 100 frames of 600x500 (%.1f MB GIF):\n", double(gif.size()) / 1e6);
    std::printf("  pixel bound (30,000,000 px x 4 B): %7.1f MB\n", bound / 1e6);
    std::printf("  decoded frames:                    %7.1f MB\n", double(frameBytes) / 1e6);
    std::printf("  peak resident growth:              %7.1f MB  = %.2f x bound, %.2f x frames\n",
                peak / 1e6, peak / bound, peak / double(frameBytes));
    std::printf("  held after decoding:               %7.1f MB  = %.2f x bound\n", held / 1e6,
                held / bound);
    return 0;
}
