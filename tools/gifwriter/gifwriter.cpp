#include "gifwriter/gifwriter.h"

#include <QHash>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace velmora::test {

namespace {

// Key for a transparent pixel in colour sets; real colours are stored fully opaque, so
// it cannot collide with one.
constexpr QRgb TransparentKey = 0x00000000;
constexpr int MaxColours = 256;
constexpr int CubeLevels = 6;

struct IndexedFrame
{
    QList<QRgb> localPalette; // empty: uses the global table
    std::vector<quint8> pixels;
    int transparentIndex = -1;
    int width = 0;
    int height = 0;
};

QRgb colourKey(QRgb pixel, bool allowTransparency)
{
    if (allowTransparency && qAlpha(pixel) < 128)
        return TransparentKey;
    return pixel | 0xff000000u;
}

// The distinct colours of a frame in first-seen order, or nullopt past 256.
std::optional<QList<QRgb>> exactColours(const QImage &image, bool allowTransparency)
{
    QList<QRgb> colours;
    QHash<QRgb, int> seen;
    QRgb last = 0;
    bool haveLast = false;
    for (int y = 0; y < image.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb key = colourKey(line[x], allowTransparency);
            if (haveLast && key == last)
                continue;
            last = key;
            haveLast = true;
            if (seen.contains(key))
                continue;
            if (colours.size() == MaxColours)
                return std::nullopt;
            seen.insert(key, int(colours.size()));
            colours.append(key);
        }
    }
    return colours;
}

void indexExact(const QImage &image, bool allowTransparency, const QList<QRgb> &palette,
                IndexedFrame &frame)
{
    QHash<QRgb, quint8> index;
    for (qsizetype i = 0; i < palette.size(); ++i)
        index.insert(palette.at(i), quint8(i));
    frame.transparentIndex = -1;
    QRgb last = 0;
    quint8 lastIndex = 0;
    bool haveLast = false;
    auto out = frame.pixels.begin();
    for (int y = 0; y < image.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb key = colourKey(line[x], allowTransparency);
            if (!haveLast || key != last) {
                last = key;
                lastIndex = index.value(key);
                haveLast = true;
                if (key == TransparentKey)
                    frame.transparentIndex = lastIndex;
            }
            *out++ = lastIndex;
        }
    }
}

int cubeLevel(int component)
{
    return (component * (CubeLevels - 1) + 127) / 255;
}

QList<QRgb> cubePalette()
{
    QList<QRgb> palette;
    for (int r = 0; r < CubeLevels; ++r) {
        for (int g = 0; g < CubeLevels; ++g) {
            for (int b = 0; b < CubeLevels; ++b)
                palette.append(qRgb(r * 51, g * 51, b * 51));
        }
    }
    return palette;
}

void indexCube(const QImage &image, bool allowTransparency, int transparentSlot,
               IndexedFrame &frame)
{
    frame.transparentIndex = -1;
    auto out = frame.pixels.begin();
    for (int y = 0; y < image.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = line[x];
            if (allowTransparency && qAlpha(pixel) < 128) {
                frame.transparentIndex = transparentSlot;
                *out++ = quint8(transparentSlot);
                continue;
            }
            *out++ = quint8(cubeLevel(qRed(pixel)) * CubeLevels * CubeLevels
                            + cubeLevel(qGreen(pixel)) * CubeLevels + cubeLevel(qBlue(pixel)));
        }
    }
}

// Smallest N with 2^(N+1) >= entries: the size field of a colour table.
int tableSizeField(qsizetype entries)
{
    int field = 0;
    while ((qsizetype(2) << field) < entries)
        ++field;
    return field;
}

void appendLe16(QByteArray &out, int value)
{
    out.append(char(value & 0xff));
    out.append(char((value >> 8) & 0xff));
}

void appendColourTable(QByteArray &out, const QList<QRgb> &palette)
{
    const qsizetype entries = qsizetype(2) << tableSizeField(palette.size());
    for (qsizetype i = 0; i < entries; ++i) {
        const QRgb colour = i < palette.size() ? palette.at(i) : 0;
        out.append(char(qRed(colour)));
        out.append(char(qGreen(colour)));
        out.append(char(qBlue(colour)));
    }
}

// Variable-width LZW as GIF uses it: codes are packed least significant bit first, the
// width grows when the next free code no longer fits, and the table is reset with a
// clear code once all 4096 codes are taken.
class LzwEncoder
{
public:
    explicit LzwEncoder(int minimumCodeSize)
        : m_minimumCodeSize(minimumCodeSize)
        , m_clearCode(1 << minimumCodeSize)
        , m_endCode(m_clearCode + 1)
    { }

    QByteArray encode(const std::vector<quint8> &pixels)
    {
        m_output.clear();
        m_output.reserve(qsizetype(pixels.size() / 2) + 16);
        reset();
        putCode(m_clearCode);
        if (pixels.empty()) {
            putCode(m_endCode);
            flushBits();
            return m_output;
        }
        int prefix = pixels.front();
        for (size_t i = 1; i < pixels.size(); ++i) {
            const int symbol = pixels[i];
            const quint32 key = (quint32(prefix) << 8) | quint32(symbol);
            if (const int code = lookup(key); code >= 0) {
                prefix = code;
                continue;
            }
            putCodeAndGrow(prefix);
            if (m_nextCode < MaxCodes) {
                insert(key, m_nextCode++);
            } else {
                putCode(m_clearCode);
                reset();
            }
            prefix = symbol;
        }
        putCodeAndGrow(prefix);
        putCode(m_endCode);
        flushBits();
        return m_output;
    }

private:
    static constexpr int MaxCodes = 4096;
    static constexpr int HashBits = 13;
    static constexpr int HashSize = 1 << HashBits;

    void reset()
    {
        m_keys.fill(EmptySlot);
        m_codeSize = m_minimumCodeSize + 1;
        m_nextCode = m_endCode + 1;
    }

    // The decoder adds its table entry one code later than the encoder, so the width
    // changes after emitting the code at which the decoder's next entry would need the
    // extra bit, not when the encoder's own entry does.
    void putCodeAndGrow(int code)
    {
        putCode(code);
        if (m_nextCode == (1 << m_codeSize) && m_codeSize < 12)
            ++m_codeSize;
    }

    void putCode(int code)
    {
        m_bits |= quint64(code) << m_bitCount;
        m_bitCount += m_codeSize;
        while (m_bitCount >= 8) {
            m_output.append(char(m_bits & 0xff));
            m_bits >>= 8;
            m_bitCount -= 8;
        }
    }

    void flushBits()
    {
        if (m_bitCount > 0)
            m_output.append(char(m_bits & 0xff));
        m_bits = 0;
        m_bitCount = 0;
    }

    static quint32 slotFor(quint32 key) { return (key * 2654435761u) >> (32 - HashBits); }

    int lookup(quint32 key) const
    {
        for (quint32 slot = slotFor(key);; slot = (slot + 1) & (HashSize - 1)) {
            if (m_keys[slot] == EmptySlot)
                return -1;
            if (m_keys[slot] == key)
                return m_codes[slot];
        }
    }

    void insert(quint32 key, int code)
    {
        quint32 slot = slotFor(key);
        while (m_keys[slot] != EmptySlot)
            slot = (slot + 1) & (HashSize - 1);
        m_keys[slot] = key;
        m_codes[slot] = quint16(code);
    }

    static constexpr quint32 EmptySlot = 0xffffffffu;

    const int m_minimumCodeSize;
    const int m_clearCode;
    const int m_endCode;
    int m_codeSize = 0;
    int m_nextCode = 0;
    quint64 m_bits = 0;
    int m_bitCount = 0;
    QByteArray m_output;
    std::array<quint32, HashSize> m_keys {};
    std::array<quint16, HashSize> m_codes {};
};

void appendImageData(QByteArray &out, const IndexedFrame &frame, qsizetype paletteSize)
{
    // GIF does not allow a minimum code size below 2, even for two-colour images.
    const int minimumCodeSize = std::max(2, tableSizeField(paletteSize) + 1);
    out.append(char(minimumCodeSize));
    const QByteArray data = LzwEncoder(minimumCodeSize).encode(frame.pixels);
    for (qsizetype pos = 0; pos < data.size(); pos += 255) {
        const qsizetype length = std::min<qsizetype>(255, data.size() - pos);
        out.append(char(length));
        out.append(data.constData() + pos, length);
    }
    out.append('\0');
}

struct FrameSpan
{
    qsizetype start = 0; // first byte of the frame's control extension or descriptor
    qsizetype dataStart = 0; // first sub-block of LZW data
    qsizetype end = 0; // one past the block terminator
    GifFrameInfo info;
};

int le16At(const QByteArray &data, qsizetype pos)
{
    return quint8(data.at(pos)) | (quint8(data.at(pos + 1)) << 8);
}

// Walks the block structure. Also returns the frames complete so far when the data
// stops early, so truncation can be reasoned about; `complete` says whether the trailer
// was reached with everything before it well-formed.
QList<FrameSpan> frameSpans(const QByteArray &gif, bool *complete)
{
    *complete = false;
    QList<FrameSpan> spans;
    const auto byteAt = [&gif](qsizetype pos) { return quint8(gif.at(pos)); };
    if (gif.size() < 13 || !gif.startsWith("GIF8"))
        return spans;
    qsizetype pos = 13;
    if (byteAt(10) & 0x80)
        pos += 3 * (qsizetype(2) << (byteAt(10) & 0x07));

    // Returns one past the terminator, or -1 when the data ends first.
    const auto skipSubBlocks = [&](qsizetype from) -> qsizetype {
        while (from < gif.size()) {
            const int length = byteAt(from);
            from += 1 + length;
            if (length == 0)
                return from <= gif.size() ? from : -1;
        }
        return -1;
    };

    FrameSpan pending;
    bool havePending = false;
    while (pos >= 0 && pos < gif.size()) {
        const quint8 introducer = byteAt(pos);
        if (introducer == 0x3b) {
            *complete = true;
            return spans;
        }
        if (introducer == 0x21) {
            if (pos + 2 > gif.size())
                return spans;
            if (byteAt(pos + 1) == 0xf9 && pos + 8 <= gif.size() && byteAt(pos + 2) == 4) {
                pending = {};
                havePending = true;
                pending.start = pos;
                pending.info.hasGraphicControl = true;
                pending.info.delayCentiseconds = le16At(gif, pos + 4);
                if (byteAt(pos + 3) & 0x01)
                    pending.info.transparentIndex = byteAt(pos + 6);
            }
            pos = skipSubBlocks(pos + 2);
        } else if (introducer == 0x2c) {
            if (pos + 10 > gif.size())
                return spans;
            FrameSpan span = havePending ? pending : FrameSpan {};
            if (!havePending)
                span.start = pos;
            havePending = false;
            span.info.rect = QRect(le16At(gif, pos + 1), le16At(gif, pos + 3), le16At(gif, pos + 5),
                                   le16At(gif, pos + 7));
            const quint8 flags = byteAt(pos + 9);
            span.info.hasLocalColourTable = flags & 0x80;
            pos += 10;
            if (flags & 0x80)
                pos += 3 * (qsizetype(2) << (flags & 0x07));
            span.dataStart = pos + 1;
            pos = pos < gif.size() ? skipSubBlocks(pos + 1) : -1;
            span.end = pos;
            if (pos >= 0)
                spans.append(span);
        } else {
            return spans;
        }
    }
    return spans;
}

} // namespace

QByteArray encodeGif(const QList<GifFrame> &frames, QSize logicalScreen, int loopCount)
{
    if (!logicalScreen.isValid()) {
        QRect bounds;
        for (const GifFrame &frame : frames)
            bounds |= QRect(frame.offset, frame.image.size());
        logicalScreen = QSize(std::max(1, bounds.right() + 1), std::max(1, bounds.bottom() + 1));
    }

    QList<QImage> images;
    QList<std::optional<QList<QRgb>>> colourSets;
    images.reserve(frames.size());
    colourSets.reserve(frames.size());
    bool allExact = true;
    for (const GifFrame &frame : frames) {
        images.append(frame.image.convertToFormat(QImage::Format_ARGB32));
        colourSets.append(exactColours(images.last(), frame.graphicControl));
        allExact = allExact && colourSets.last().has_value();
    }

    // One shared table when it fits keeps files small and is what most encoders emit.
    QList<QRgb> globalPalette;
    bool useCube = !allExact;
    if (allExact) {
        QHash<QRgb, bool> seen;
        for (const auto &colours : std::as_const(colourSets)) {
            for (QRgb colour : *colours) {
                if (seen.contains(colour))
                    continue;
                seen.insert(colour, true);
                globalPalette.append(colour);
            }
        }
        useCube = globalPalette.size() > MaxColours;
    }
    int cubeTransparentSlot = -1;
    if (useCube) {
        globalPalette = cubePalette();
        cubeTransparentSlot = int(globalPalette.size());
        globalPalette.append(TransparentKey);
    }

    QList<IndexedFrame> indexed(frames.size());
    for (qsizetype i = 0; i < frames.size(); ++i) {
        const QImage &image = images.at(i);
        IndexedFrame &frame = indexed[i];
        frame.width = image.width();
        frame.height = image.height();
        frame.pixels.resize(size_t(image.width()) * size_t(image.height()));
        const bool transparency = frames.at(i).graphicControl;
        if (!useCube) {
            indexExact(image, transparency, globalPalette, frame);
        } else if (colourSets.at(i)) {
            frame.localPalette = *colourSets.at(i);
            if (frame.localPalette.isEmpty())
                frame.localPalette.append(qRgb(0, 0, 0));
            indexExact(image, transparency, frame.localPalette, frame);
        } else {
            indexCube(image, transparency, cubeTransparentSlot, frame);
        }
    }

    QByteArray out;
    out.reserve(1024);
    out.append("GIF89a");
    appendLe16(out, logicalScreen.width());
    appendLe16(out, logicalScreen.height());
    if (globalPalette.isEmpty())
        globalPalette.append(qRgb(0, 0, 0));
    // Global table present, 8 bits of colour resolution, unsorted.
    out.append(char(0x80 | 0x70 | tableSizeField(globalPalette.size())));
    out.append('\0'); // background colour index
    out.append('\0'); // square pixels
    appendColourTable(out, globalPalette);

    if (loopCount >= 0) {
        out.append("\x21\xff\x0b", 3);
        out.append("NETSCAPE2.0");
        out.append("\x03\x01", 2);
        appendLe16(out, std::min(loopCount, 0xffff));
        out.append('\0');
    }

    for (qsizetype i = 0; i < frames.size(); ++i) {
        const GifFrame &frame = frames.at(i);
        const IndexedFrame &data = indexed.at(i);
        if (frame.graphicControl) {
            out.append("\x21\xf9\x04", 3);
            const bool transparent = data.transparentIndex >= 0;
            out.append(char((quint8(frame.disposal) << 2) | (transparent ? 1 : 0)));
            appendLe16(out, std::clamp(frame.delayCentiseconds, 0, 0xffff));
            out.append(char(transparent ? data.transparentIndex : 0));
            out.append('\0');
        }
        out.append(char(0x2c));
        appendLe16(out, frame.offset.x());
        appendLe16(out, frame.offset.y());
        appendLe16(out, data.width);
        appendLe16(out, data.height);
        if (data.localPalette.isEmpty()) {
            out.append('\0');
            appendImageData(out, data, globalPalette.size());
        } else {
            out.append(char(0x80 | tableSizeField(data.localPalette.size())));
            appendColourTable(out, data.localPalette);
            appendImageData(out, data, data.localPalette.size());
        }
    }
    out.append(char(0x3b));
    return out;
}

QByteArray truncatedGif(const QByteArray &gif, int completeFrames)
{
    bool complete = false;
    const QList<FrameSpan> spans = frameSpans(gif, &complete);
    if (completeFrames >= spans.size())
        return gif.endsWith(char(0x3b)) ? gif.chopped(1) : gif;
    const FrameSpan &cut = spans.at(std::max(0, completeFrames));
    return gif.left(cut.dataStart + (cut.end - cut.dataStart) / 2);
}

std::optional<QList<GifFrameInfo>> inspectGif(const QByteArray &gif)
{
    bool complete = false;
    const QList<FrameSpan> spans = frameSpans(gif, &complete);
    if (!complete)
        return std::nullopt;
    QList<GifFrameInfo> frames;
    frames.reserve(spans.size());
    for (const FrameSpan &span : spans)
        frames.append(span.info);
    return frames;
}

} // namespace velmora::test
