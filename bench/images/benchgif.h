#pragma once

#include "gifwriter/gifwriter.h"

namespace velmora::bench {

// The largest animation 100 frames may be: 600 x 500 pixels each, 30,000,000 in all. The
// pattern moves from frame to frame and uses a 64-colour palette, so it compresses like a
// typical banner animation rather than like a flat fill. With `holes`, pixels that do not
// change are transparent after the first frame, as optimising encoders write them, so that
// every frame is composited onto the one before.
inline QByteArray hundredFrameGif(bool holes = false)
{
    const QSize size(600, 500);
    QList<QRgb> palette;
    for (int i = 0; i < 64; ++i)
        palette.append(qRgb(i * 4, 255 - i * 4, (i * 37) % 256));
    if (holes)
        palette.append(qRgb(0, 0, 0)); // the transparent index needs a slot in the table
    QList<test::IndexedGifFrame> frames;
    for (int f = 0; f < 100; ++f) {
        test::IndexedGifFrame frame;
        frame.rect = QRect({}, size);
        frame.pixels.resize(qsizetype(size.width()) * size.height());
        for (int y = 0; y < size.height(); ++y) {
            for (int x = 0; x < size.width(); ++x) {
                const auto index = [&](int frame) {
                    return char(((x + frame * 6) / 12 + (y / 10) * 3 + (x * y) / 5000) % 64);
                };
                const bool same = holes && f > 0 && index(f) == index(f - 1);
                frame.pixels[y * size.width() + x] = same ? char(64) : index(f);
            }
        }
        if (holes && f > 0)
            frame.transparentIndex = 64;
        frame.delayCentiseconds = 4 + f % 3;
        frames.append(frame);
    }
    return test::writeIndexedGif(size, palette, frames);
}

} // namespace velmora::bench
