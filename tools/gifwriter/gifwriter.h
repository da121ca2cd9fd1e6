#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QRect>
#include <QRgb>

namespace velmora::test {

// One image block of a GIF, given in palette indices so that a test controls every byte a
// decoder sees: the index of each pixel, which colour table it refers to, and the graphic
// control block (or its absence).
struct IndexedGifFrame
{
    QRect rect; // position and size on the logical screen; may lie partly outside it
    QByteArray pixels; // rect.width() * rect.height() indices, row by row
    QList<QRgb> localColours; // empty: the frame uses the global table
    bool interlaced = false;
    bool graphicControl = true; // false leaves out the graphic control extension
    int disposal = 0; // 0 unspecified, 1 keep, 2 background, 3 previous
    int transparentIndex = -1;
    int delayCentiseconds = 10;
};

// Writes a GIF89a with giflib. Colour tables are padded with black to a power of two; pixel
// indices past a table's padded size are masked by the encoder to the code width, so a
// two-entry table still lets a frame use indices 2 and 3. An empty global table writes none.
QByteArray writeIndexedGif(QSize screen, const QList<QRgb> &globalColours,
                           const QList<IndexedGifFrame> &frames, int backgroundIndex = 0);

// A frame given as an image, for tests that care about colours rather than indices.
struct GifFrame
{
    GifFrame(QImage image, int delayCentiseconds = 10, bool graphicControl = true)
        : image(std::move(image))
        , delayCentiseconds(delayCentiseconds)
        , graphicControl(graphicControl)
    { }

    QImage image; // placed at the top left of the screen
    int delayCentiseconds = 10;
    bool graphicControl = true; // without it, alpha is ignored
};

// Frames sharing one exact global colour table; pixels with alpha below 128 are transparent.
// Empty when the frames use more than 256 colours in all.
QByteArray encodeGif(const QList<GifFrame> &frames, QSize screen);

} // namespace velmora::test
