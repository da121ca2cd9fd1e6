#pragma once

#include "gifwriter/gifwriter.h"

#include <QImage>

namespace velmora::bench {

// The largest animation 100 frames may be: 600 x 500 pixels each, 30,000,000 in all. The
// pattern moves from frame to frame and uses a 64-colour palette, so it compresses like a
// typical banner animation rather than like a flat fill.
inline QByteArray hundredFrameGif()
{
    const QSize size(600, 500);
    QList<QRgb> palette;
    for (int i = 0; i < 64; ++i)
        palette.append(qRgb(i * 4, 255 - i * 4, (i * 37) % 256));
    QList<test::GifFrame> frames;
    for (int f = 0; f < 100; ++f) {
        QImage image(size, QImage::Format_RGB32);
        for (int y = 0; y < size.height(); ++y) {
            auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
            for (int x = 0; x < size.width(); ++x)
                line[x] = palette[((x + f * 6) / 12 + (y / 10) * 3 + (x * y) / 5000) % 64];
        }
        frames.append(test::GifFrame(image, 4 + f % 3));
    }
    return test::encodeGif(frames, size);
}

} // namespace velmora::bench
