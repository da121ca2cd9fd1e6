#include "gifwriter/gifwriter.h"

#include <QHash>

#include <gif_lib.h>

#include <memory>
#include <vector>

namespace velmora::test {

namespace {

struct MapDeleter
{
    void operator()(ColorMapObject *map) const { GifFreeMapObject(map); }
};
using ColourMap = std::unique_ptr<ColorMapObject, MapDeleter>;

ColourMap makeColourMap(const QList<QRgb> &colours)
{
    if (colours.isEmpty())
        return nullptr;
    int size = 2;
    while (size < colours.size())
        size *= 2;
    ColourMap map(GifMakeMapObject(size, nullptr));
    for (int i = 0; i < size; ++i) {
        const QRgb c = i < colours.size() ? colours.at(i) : 0;
        map->Colors[i] = { GifByteType(qRed(c)), GifByteType(qGreen(c)), GifByteType(qBlue(c)) };
    }
    return map;
}

int appendOutput(GifFileType *gif, const GifByteType *bytes, int length)
{
    static_cast<QByteArray *>(gif->UserData)->append(reinterpret_cast<const char *>(bytes), length);
    return length;
}

// Rows in the order an interlaced image stores them: every 8th from 0, every 8th from 4,
// every 4th from 2, every 2nd from 1.
std::vector<int> rowOrder(int height, bool interlaced)
{
    std::vector<int> rows;
    if (!interlaced) {
        for (int y = 0; y < height; ++y)
            rows.push_back(y);
        return rows;
    }
    const int starts[] = { 0, 4, 2, 1 };
    const int steps[] = { 8, 8, 4, 2 };
    for (int pass = 0; pass < 4; ++pass) {
        for (int y = starts[pass]; y < height; y += steps[pass])
            rows.push_back(y);
    }
    return rows;
}

} // namespace

QByteArray writeIndexedGif(QSize screen, const QList<QRgb> &globalColours,
                           const QList<IndexedGifFrame> &frames, int backgroundIndex)
{
    QByteArray out;
    int error = 0;
    GifFileType *gif = EGifOpen(&out, appendOutput, &error);
    if (!gif)
        return {};
    EGifSetGifVersion(gif, true);
    const ColourMap global = makeColourMap(globalColours);
    bool ok
        = EGifPutScreenDesc(gif, screen.width(), screen.height(), 8, backgroundIndex, global.get())
        == GIF_OK;
    for (const IndexedGifFrame &frame : frames) {
        if (!ok)
            break;
        if (frame.graphicControl) {
            const GraphicsControlBlock control { frame.disposal, false, frame.delayCentiseconds,
                                                 frame.transparentIndex };
            GifByteType extension[4];
            EGifGCBToExtension(&control, extension);
            ok = EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, extension) == GIF_OK;
        }
        const ColourMap local = makeColourMap(frame.localColours);
        if (!local && gif->Image.ColorMap) {
            // giflib 5.2 drops its copy of the last local table without freeing it.
            GifFreeMapObject(gif->Image.ColorMap);
            gif->Image.ColorMap = nullptr;
        }
        const QRect r = frame.rect;
        ok = ok
            && EGifPutImageDesc(gif, r.x(), r.y(), r.width(), r.height(), frame.interlaced,
                                local.get())
                == GIF_OK;
        std::vector<GifPixelType> line(size_t(r.width()));
        for (int y : rowOrder(r.height(), frame.interlaced)) {
            if (!ok)
                break;
            const char *row = frame.pixels.constData() + qsizetype(y) * r.width();
            line.assign(row, row + r.width());
            ok = EGifPutLine(gif, line.data(), r.width()) == GIF_OK;
        }
    }
    if (EGifCloseFile(gif, &error) != GIF_OK || !ok)
        return {};
    return out;
}

QByteArray encodeGif(const QList<GifFrame> &frames, QSize screen)
{
    // Transparent pixels get a colour of their own, kept apart from every opaque one.
    constexpr QRgb transparentKey = 0;
    QList<QRgb> palette;
    QHash<QRgb, int> indexOf;
    QList<IndexedGifFrame> indexed;
    for (const GifFrame &frame : frames) {
        const QImage image = frame.image.convertToFormat(QImage::Format_ARGB32);
        IndexedGifFrame out;
        out.rect = QRect({}, image.size());
        out.graphicControl = frame.graphicControl;
        out.delayCentiseconds = frame.delayCentiseconds;
        out.pixels.resize(qsizetype(image.width()) * image.height());
        for (int y = 0; y < image.height(); ++y) {
            const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x) {
                const bool clear = frame.graphicControl && qAlpha(line[x]) < 128;
                const QRgb key = clear ? transparentKey : (line[x] | 0xff000000u);
                auto it = indexOf.constFind(key);
                if (it == indexOf.cend()) {
                    if (palette.size() == 256)
                        return {};
                    it = indexOf.insert(key, int(palette.size()));
                    palette.append(key);
                }
                out.pixels[qsizetype(y) * image.width() + x] = char(*it);
                if (clear)
                    out.transparentIndex = *it;
            }
        }
        indexed.append(out);
    }
    return writeIndexedGif(screen, palette, indexed);
}

} // namespace velmora::test
