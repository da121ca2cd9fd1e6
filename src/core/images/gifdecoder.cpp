#include "images/gifdecoder.h"

#include "images/blockmemory.h"

#include <QHash>
#include <QRect>

#include <gif_lib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace velmora::detail {

namespace {

constexpr double minimumDelay = 0.1;
// Colours from a colour table always get alpha 255, so this never stands for one of them.
constexpr QRgb transparent = 0;
// Outside the range of a pixel index: what a frame without a transparent index compares to.
constexpr int noTransparency = 256;

struct MemoryInput
{
    QByteArrayView data;
    qsizetype position = 0;
};

int readFromMemory(GifFileType *gif, GifByteType *buffer, int length)
{
    auto *input = static_cast<MemoryInput *>(gif->UserData);
    const qsizetype n
        = std::clamp<qsizetype>(input->data.size() - input->position, 0, std::max(length, 0));
    if (n > 0)
        std::memcpy(buffer, input->data.data() + input->position, size_t(n));
    input->position += n;
    return int(n);
}

struct GifCloser
{
    void operator()(GifFileType *gif) const
    {
        int error = 0;
        DGifCloseFile(gif, &error);
    }
};
using GifHandle = std::unique_ptr<GifFileType, GifCloser>;

GifHandle openGif(MemoryInput &input)
{
    int error = 0;
    return GifHandle(DGifOpen(&input, readFromMemory, &error));
}

// Reads one extension, keeping it in `control` when it is a graphic control block.
bool readExtension(GifFileType *gif, std::optional<GraphicsControlBlock> &control)
{
    int code = 0;
    GifByteType *block = nullptr;
    if (DGifGetExtension(gif, &code, &block) == GIF_ERROR)
        return false;
    GraphicsControlBlock gcb;
    if (code == GRAPHICS_EXT_FUNC_CODE && block
        && DGifExtensionToGCB(block[0], block + 1, &gcb) == GIF_OK)
        control = gcb;
    while (block) {
        if (DGifGetExtensionNext(gif, &block) == GIF_ERROR)
            return false;
    }
    return true;
}

// Reads past an image's compressed data without decoding it; false if the data ends first.
bool skipImageData(GifFileType *gif)
{
    int codeSize = 0;
    GifByteType *block = nullptr;
    if (DGifGetCode(gif, &codeSize, &block) == GIF_ERROR)
        return false;
    while (block) {
        if (DGifGetCodeNext(gif, &block) == GIF_ERROR)
            return false;
    }
    return true;
}

// Which row of an interlaced image its `line`-th stored line is: every 8th row from 0, every
// 8th from 4, every 4th from 2, then every 2nd from 1.
int interlacedRow(int line, int height)
{
    const int pass1 = (height + 7) / 8, pass2 = (height + 3) / 8, pass3 = (height + 1) / 4;
    if (line < pass1)
        return line * 8;
    if ((line -= pass1) < pass2)
        return 4 + line * 8;
    if ((line -= pass2) < pass3)
        return 2 + line * 4;
    return 1 + (line - pass3) * 2;
}

// Eight indices at a time: compilers do not vectorise a byte loop at -O2.
int bitwiseOrOfIndices(const QImage &image)
{
    quint64 word = 0;
    uchar bits = 0;
    const int width = image.width();
    for (int y = 0; y < image.height(); ++y) {
        const uchar *row = image.constScanLine(y);
        int x = 0;
        for (quint64 chunk; x + 8 <= width; x += 8) {
            std::memcpy(&chunk, row + x, sizeof chunk);
            word |= chunk;
        }
        for (; x < width; ++x)
            bits |= row[x];
    }
    for (int shift = 0; shift < 64; shift += 8)
        bits |= uchar(word >> shift);
    return bits;
}

// Allocation failure is reported the way the containers beside these images report it.
QImage checked(QImage image)
{
    if (image.isNull())
        throw std::bad_alloc();
    return image;
}

QImage newImage(QSize size, QImage::Format format)
{
    return checked(QImage(size, format));
}

// Turns the images of a GIF into full frames. The canvas holds palette slots rather than
// colours: 8 bits while the colours on it fit one 256-entry table, which is then the frame's
// colour table as it is; 16 bits into a longer palette after that, each frame then getting a
// table of the colours it shows (or 32 bits past 256 of them), until a frame that paints every
// pixel lets the canvas start over with 8 bits. The canvas is never shared: each frame is a
// copy of it in the animation's arena.
class GifAnimationDecoder
{
public:
    GifAnimationDecoder(GifFileType *gif, QSize size, int frameCount, qint64 pixelBudget)
        : m_gif(gif)
        , m_size(size)
        , m_canvas8(newImage(size, QImage::Format_Indexed8))
        , m_arena(m_canvas8.sizeInBytes(), frameCount)
        , m_palette { transparent }
        , m_pixelBudget(pixelBudget)
    {
        m_canvas8.fill(0);
    }

    bool readFrame(DecodedGif &out);

private:
    bool decodeImage(const std::optional<GraphicsControlBlock> &control, DecodedGif &out);
    bool decodeStraightIntoCanvas(const ColorMapObject *map);
    bool decodeClipped(QRect visible);
    void compose(QRect rect, const ColorMapObject *map, int transparentIndex, int disposal);
    QImage currentFrame();

    // Calls `f` with a function giving a canvas row, as uchar* or quint16*.
    template<typename F> void withRows(F &&f)
    {
        if (m_wide)
            f([this](int y) { return m_canvas16.data() + qsizetype(y) * m_size.width(); });
        else
            f([this](int y) { return m_canvas8.scanLine(y); });
    }
    int slotFor(QRgb colour);
    void widen();
    void startOver();

    GifFileType *m_gif;
    const QSize m_size;
    QImage m_canvas8;
    FrameArena m_arena;
    std::vector<quint16> m_canvas16;
    bool m_wide = false;
    QList<QRgb> m_palette;
    QHash<QRgb, int> m_slots;
    bool m_slotsStale = true;
    // The disposal the frame on the canvas asked for, and for "restore previous" what its area
    // held before it.
    int m_disposal = DISPOSAL_UNSPECIFIED;
    QRect m_disposalRect;
    std::vector<quint16> m_saved;
    std::vector<uchar> m_pixels, m_line;
    // Pixels the images may still declare. The animation limits bound the memory; this bounds
    // the work, as an image larger than the screen is decoded in full to keep its visible part.
    qint64 m_pixelBudget;
};

bool GifAnimationDecoder::readFrame(DecodedGif &out)
{
    std::optional<GraphicsControlBlock> control;
    GifRecordType record;
    while (DGifGetRecordType(m_gif, &record) == GIF_OK) {
        if (record == IMAGE_DESC_RECORD_TYPE)
            return decodeImage(control, out);
        if (record != EXTENSION_RECORD_TYPE || !readExtension(m_gif, control))
            return false;
    }
    return false;
}

bool GifAnimationDecoder::decodeImage(const std::optional<GraphicsControlBlock> &control,
                                      DecodedGif &out)
{
    if (DGifGetImageDesc(m_gif) == GIF_ERROR)
        return false;
    const GifImageDesc &desc = m_gif->Image;
    if ((m_pixelBudget -= qint64(desc.Width) * desc.Height) < 0)
        return false;
    const ColorMapObject *map = desc.ColorMap ? desc.ColorMap : m_gif->SColorMap;
    const int transparentIndex
        = control && control->TransparentColor >= 0 ? control->TransparentColor : noTransparency;
    const int disposal = control ? control->DisposalMode : DISPOSAL_UNSPECIFIED;
    const QRect visible = QRect(desc.Left, desc.Top, desc.Width, desc.Height) & QRect({}, m_size);

    // The most common frame paints the whole screen opaquely: it needs no compositing.
    if (desc.Left == 0 && desc.Top == 0 && desc.Width == m_size.width()
        && desc.Height == m_size.height() && transparentIndex == noTransparency
        && disposal != DISPOSE_PREVIOUS) {
        if (!decodeStraightIntoCanvas(map))
            return false;
    } else {
        if (!decodeClipped(visible))
            return false;
        compose(visible, map, transparentIndex, disposal);
    }
    m_disposal = disposal;
    m_disposalRect = visible;
    out.frames.append(currentFrame());
    out.delays.append(control ? std::max(control->DelayTime / 100.0, minimumDelay) : minimumDelay);
    return true;
}

bool GifAnimationDecoder::decodeStraightIntoCanvas(const ColorMapObject *map)
{
    // A frame cut short ends the decoding, so what it leaves on the canvas is never shown.
    const int height = m_size.height();
    for (int line = 0; line < height; ++line) {
        const int y = m_gif->Image.Interlace ? interlacedRow(line, height) : line;
        if (DGifGetLine(m_gif, m_canvas8.scanLine(y), m_size.width()) == GIF_ERROR)
            return false;
    }
    // Indices past the colour table read as transparent. The table needs entries for them,
    // up to a power of two above the OR of all indices, which is at least the largest index.
    const int allBits = bitwiseOrOfIndices(m_canvas8);
    int entries = std::max(map ? map->ColorCount : 0, 1);
    while (entries <= allBits)
        entries *= 2;
    m_wide = false;
    m_canvas16 = {};
    m_palette.resize(entries);
    for (int i = 0; i < entries; ++i) {
        const GifColorType *c = map && i < map->ColorCount ? &map->Colors[i] : nullptr;
        m_palette[i] = c ? qRgb(c->Red, c->Green, c->Blue) : transparent;
    }
    m_slotsStale = true;
    return true;
}

// Decodes the image's indices into m_pixels, keeping only the part on the screen.
bool GifAnimationDecoder::decodeClipped(QRect visible)
{
    const GifImageDesc &desc = m_gif->Image;
    if (visible.isEmpty()) {
        m_pixels.clear();
        return skipImageData(m_gif);
    }
    m_pixels.resize(size_t(visible.width()) * size_t(visible.height()));
    m_line.resize(size_t(desc.Width));
    for (int line = 0; line < desc.Height; ++line) {
        const int y = desc.Top + (desc.Interlace ? interlacedRow(line, desc.Height) : line);
        if (DGifGetLine(m_gif, m_line.data(), desc.Width) == GIF_ERROR)
            return false;
        if (y <= visible.bottom())
            std::memcpy(m_pixels.data() + qsizetype(y - visible.top()) * visible.width(),
                        m_line.data(), size_t(visible.width()));
    }
    return true;
}

void GifAnimationDecoder::compose(QRect rect, const ColorMapObject *map, int transparentIndex,
                                  int disposal)
{
    std::array<bool, 256> used {};
    for (uchar index : m_pixels)
        used[index] = true;
    const bool transparentUsed = transparentIndex < 256 && used[size_t(transparentIndex)];

    if (rect == QRect({}, m_size) && !transparentUsed && disposal != DISPOSE_PREVIOUS) {
        startOver(); // every pixel is about to be painted
    } else if (m_disposal == DISPOSE_BACKGROUND) {
        const int slot = slotFor(transparent);
        const QRect r = m_disposalRect;
        withRows([&](auto rowAt) {
            for (int y = r.top(); y <= r.bottom(); ++y)
                std::fill_n(rowAt(y) + r.left(), r.width(), slot);
        });
    } else if (m_disposal == DISPOSE_PREVIOUS) {
        const QRect r = m_disposalRect;
        withRows([&](auto rowAt) {
            for (int y = 0; y < r.height(); ++y)
                std::copy_n(m_saved.data() + qsizetype(y) * r.width(), r.width(),
                            rowAt(r.top() + y) + r.left());
        });
    }
    if (disposal == DISPOSE_PREVIOUS) {
        m_saved.resize(size_t(rect.width()) * size_t(rect.height()));
        withRows([&](auto rowAt) {
            for (int y = 0; y < rect.height(); ++y)
                std::copy_n(rowAt(rect.top() + y) + rect.left(), rect.width(),
                            m_saved.data() + qsizetype(y) * rect.width());
        });
    }

    // Indices past the colour table read as transparent, as they do in Qt's reader.
    std::array<int, 256> slotOf {};
    for (int i = 0; i < 256; ++i) {
        if (!used[size_t(i)] || i == transparentIndex)
            continue;
        const GifColorType *c = map && i < map->ColorCount ? &map->Colors[i] : nullptr;
        slotOf[size_t(i)] = slotFor(c ? qRgb(c->Red, c->Green, c->Blue) : transparent);
    }
    withRows([&](auto rowAt) {
        for (int y = 0; y < rect.height(); ++y) {
            const uchar *in = m_pixels.data() + qsizetype(y) * rect.width();
            auto *out = rowAt(rect.top() + y) + rect.left();
            for (int x = 0; x < rect.width(); ++x) {
                if (in[x] != transparentIndex)
                    out[x] = slotOf[in[x]];
            }
        }
    });
}

QImage GifAnimationDecoder::currentFrame()
{
    if (!m_wide) {
        m_canvas8.setColorTable(m_palette);
        return checked(m_arena.copyOf(m_canvas8));
    }
    // Number the slots in use; past 256 of them only 32 bits hold the frame.
    std::vector<int> index(size_t(m_palette.size()), -1);
    QList<QRgb> colours;
    bool indexed = true;
    for (quint16 slot : m_canvas16) {
        if (index[slot] < 0) {
            if (colours.size() == 256) {
                indexed = false;
                break;
            }
            index[slot] = int(colours.size());
            colours.append(m_palette.at(slot));
        }
    }
    const quint16 *in = m_canvas16.data();
    if (!indexed) {
        // Rare enough to take ordinary memory: the arena was sized for 8-bit frames.
        QImage frame = newImage(m_size, QImage::Format_ARGB32_Premultiplied);
        // Every colour is opaque or fully transparent, so it is premultiplied already.
        for (int y = 0; y < m_size.height(); ++y, in += m_size.width())
            std::transform(in, in + m_size.width(), reinterpret_cast<QRgb *>(frame.scanLine(y)),
                           [&](quint16 slot) { return m_palette.at(slot); });
        return frame;
    }
    // While the canvas is wide its 8-bit image is unused, so it can hold the frame.
    for (int y = 0; y < m_size.height(); ++y, in += m_size.width())
        std::transform(in, in + m_size.width(), m_canvas8.scanLine(y),
                       [&](quint16 slot) { return uchar(index[slot]); });
    m_canvas8.setColorTable(colours);
    QImage frame = checked(m_arena.copyOf(m_canvas8));
    // Back to 8 bits, unless a saved area still refers to the long palette.
    if (m_disposal != DISPOSE_PREVIOUS) {
        m_palette = colours;
        m_slotsStale = true;
        m_wide = false;
        m_canvas16 = {};
    }
    return frame;
}

int GifAnimationDecoder::slotFor(QRgb colour)
{
    if (m_slotsStale) {
        m_slots.clear();
        for (qsizetype i = m_palette.size() - 1; i >= 0; --i) // the first of equal colours wins
            m_slots.insert(m_palette.at(i), int(i));
        m_slotsStale = false;
    }
    if (const auto it = m_slots.constFind(colour); it != m_slots.cend())
        return *it;
    if (!m_wide && m_palette.size() == 256)
        widen();
    m_palette.append(colour);
    m_slots.insert(colour, int(m_palette.size() - 1));
    return int(m_palette.size() - 1);
}

void GifAnimationDecoder::widen()
{
    m_canvas16.resize(size_t(m_size.width()) * size_t(m_size.height()));
    for (int y = 0; y < m_size.height(); ++y)
        std::copy_n(m_canvas8.constScanLine(y), m_size.width(),
                    m_canvas16.data() + qsizetype(y) * m_size.width());
    m_wide = true;
}

void GifAnimationDecoder::startOver()
{
    m_wide = false;
    m_canvas16 = {};
    m_palette.clear();
    m_slotsStale = true;
}

} // namespace

std::optional<GifInfo> probeGif(QByteArrayView data, int frameLimit)
{
    MemoryInput input { data };
    const GifHandle gif = openGif(input);
    if (!gif)
        return std::nullopt;
    GifInfo info { 0, QSize(gif->SWidth, gif->SHeight) };
    std::optional<GraphicsControlBlock> control;
    GifRecordType record;
    while (info.frameCount <= frameLimit && DGifGetRecordType(gif.get(), &record) == GIF_OK) {
        if (record == IMAGE_DESC_RECORD_TYPE) {
            if (DGifGetImageDesc(gif.get()) == GIF_ERROR)
                break;
            // A screen without a width or height takes it from the first image, as Qt does.
            const GifImageDesc &desc = gif->Image;
            if (info.frameCount++ == 0) {
                if (info.size.width() < 1)
                    info.size.setWidth(desc.Left + desc.Width);
                if (info.size.height() < 1)
                    info.size.setHeight(desc.Top + desc.Height);
            }
            if (!skipImageData(gif.get()))
                break;
        } else if (record != EXTENSION_RECORD_TYPE || !readExtension(gif.get(), control)) {
            break;
        }
    }
    return info;
}

DecodedGif decodeGifFrames(QByteArrayView data, const GifInfo &info, qint64 pixelBudget)
{
    DecodedGif out;
    MemoryInput input { data };
    const GifHandle gif = openGif(input);
    if (!gif || info.size.isEmpty())
        return out;
    out.frames.reserve(info.frameCount);
    out.delays.reserve(info.frameCount);
    // Each frame adds at most 256 colours to the canvas, whose colours are numbered in 16 bits.
    const int frames = std::min(info.frameCount, 255);
    GifAnimationDecoder decoder(gif.get(), info.size, frames, pixelBudget);
    while (out.frames.size() < frames && decoder.readFrame(out)) { }
    return out;
}

} // namespace velmora::detail
