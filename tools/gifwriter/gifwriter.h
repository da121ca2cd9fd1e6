#pragma once

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QMetaType>
#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>
#include <utility>

namespace velmora::test {

struct GifFrame
{
    enum class Disposal : quint8 {
        None = 0, // no disposal given; decoders treat it like Keep
        Keep = 1,
        RestoreBackground = 2,
        RestorePrevious = 3,
    };

    GifFrame() = default;
    GifFrame(QImage image, int delayCentiseconds = 10, bool graphicControl = true)
        : image(std::move(image))
        , delayCentiseconds(delayCentiseconds)
        , graphicControl(graphicControl)
    { }

    QImage image;
    int delayCentiseconds = 10; // 0 is written as 0; clamped to 0..65535
    // false leaves out the Graphic Control Extension, so the frame has no delay, no
    // disposal and no transparency at all, as in files from old encoders.
    bool graphicControl = true;
    QPoint offset; // position on the logical screen
    Disposal disposal = Disposal::None;
};

// Encodes a GIF89a. Pixels with alpha below 128 become transparent (only in frames with
// a Graphic Control Extension). When all frames together use at most 256 colours they
// share an exact global colour table; otherwise the global table is a 6x6x6 colour cube,
// frames with at most 256 colours of their own get an exact local table and the rest are
// snapped to the cube. loopCount: 0 loops forever, N > 0 repeats N times, negative
// leaves out the looping (NETSCAPE2.0) extension. An invalid logicalScreen means the
// bounding box of all frames.
QByteArray encodeGif(const QList<GifFrame> &frames, QSize logicalScreen, int loopCount = 0);

// A copy of a GIF written by encodeGif() cut off halfway through the image data of frame
// number completeFrames, so exactly that many frames are intact. With completeFrames at
// or past the frame count only the trailer byte is removed.
QByteArray truncatedGif(const QByteArray &gif, int completeFrames);

// What the block structure says about one frame, read without decoding any pixels, so
// tests can check what was written independently of how a decoder interprets it.
struct GifFrameInfo
{
    QRect rect; // from the image descriptor
    bool hasGraphicControl = false;
    int delayCentiseconds = -1; // -1 without a Graphic Control Extension
    int transparentIndex = -1;
    bool hasLocalColourTable = false;
};

// nullopt unless the data is a well-formed GIF up to and including its trailer.
std::optional<QList<GifFrameInfo>> inspectGif(const QByteArray &gif);

} // namespace velmora::test

Q_DECLARE_METATYPE(velmora::test::GifFrame)
