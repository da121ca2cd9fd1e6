#include "gifwriter/gifwriter.h"
#include "images/animatedimagedecoder.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QPainter>
#include <QRegion>
#include <QTest>

#include <numeric>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::test::IndexedGifFrame;
using velmora::test::writeIndexedGif;

namespace {

// Where a GIF frame deliberately differs from Qt's reader: the area shows `colour` instead.
struct Correction
{
    int frame;
    QRegion area;
    QRgb colour;
};

struct GifCase
{
    QByteArray gif;
    QList<Correction> corrections;
    QList<int> wideFrames; // kept in 32 bits; all others in 8
    QList<int> framesWithoutControl; // 0.1 s, where Qt repeats the delay before
};

} // namespace

Q_DECLARE_METATYPE(GifCase)

namespace {

QList<QRgb> colours(int count, int seed = 0)
{
    QList<QRgb> list;
    for (int i = 0; i < count; ++i)
        list.append(qRgb((i * 37 + seed) % 256, (i * 11 + seed * 3) % 256, (i + seed) % 256));
    return list;
}

const QList<QRgb> palette = colours(8);

// Indices that change along both axes, so that any misplaced row or column shows.
QByteArray pattern(QSize size, int colourCount, int seed = 0)
{
    QByteArray pixels(qsizetype(size.width()) * size.height(), Qt::Uninitialized);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            pixels[y * size.width() + x] = char((x * 3 + y * 5 + seed) % colourCount);
    }
    return pixels;
}

QByteArray solid(QSize size, int index)
{
    return QByteArray(qsizetype(size.width()) * size.height(), char(index));
}

// A pattern with holes of `transparentIndex` in every third pixel.
QByteArray holes(QSize size, int colourCount, int transparentIndex, int seed = 0)
{
    QByteArray pixels = pattern(size, colourCount, seed);
    for (qsizetype i = 0; i < pixels.size(); i += 3)
        pixels[i] = char(transparentIndex);
    return pixels;
}

IndexedGifFrame part(QRect rect, QByteArray pixels, int disposal = 0, int transparent = -1)
{
    IndexedGifFrame frame;
    frame.rect = rect;
    frame.pixels = std::move(pixels);
    frame.disposal = disposal;
    frame.transparentIndex = transparent;
    return frame;
}

IndexedGifFrame full(QSize screen, QByteArray pixels, int transparent = -1)
{
    return part(QRect({}, screen), std::move(pixels), 0, transparent);
}

// Frame i is filled with palette colour i % 8, so the order of decoded frames shows.
QList<IndexedGifFrame> solidFrames(int count, QSize size, int delay = 10, bool control = true)
{
    QList<IndexedGifFrame> frames;
    for (int i = 0; i < count; ++i) {
        frames.append(full(size, solid(size, i % 8)));
        frames.last().delayCentiseconds = delay;
        frames.last().graphicControl = control;
    }
    return frames;
}

QByteArray gif(int count, QSize size, QSize screen = {})
{
    return writeIndexedGif(screen.isValid() ? screen : size, palette, solidFrames(count, size));
}

// Cut halfway through the image data of frame `complete`.
QByteArray cutInFrame(QSize size, const QList<IndexedGifFrame> &frames, int complete)
{
    const qsizetype start = writeIndexedGif(size, palette, frames.first(complete)).size() - 1;
    const qsizetype end = writeIndexedGif(size, palette, frames.first(complete + 1)).size() - 1;
    return writeIndexedGif(size, palette, frames).left((start + end) / 2);
}

QByteArray gradient(QSize size, const char *format, qsizetype paddedTo = 0)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x)
            line[x] = qRgb(x % 256, y % 256, 128);
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return bytes.append(std::max<qsizetype>(0, paddedTo - bytes.size()), '\0');
}

// Transparent pixels compare equal whatever colour they carry.
QImage normalised(const QImage &image)
{
    QImage out = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < out.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(out.scanLine(y));
        std::replace_if(
            line, line + out.width(), [](QRgb p) { return qAlpha(p) == 0; }, 0);
    }
    return out;
}

} // namespace

class tst_AnimatedImageDecoder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shouldAnimate_data();
    void shouldAnimate();
    void decode_data();
    void decode();
    void gifFramesMatchQtReader_data();
    void gifFramesMatchQtReader();
    void decodeAsyncRunsOffTheCallingThread();
};

void tst_AnimatedImageDecoder::shouldAnimate_data()
{
    QTest::addColumn<qint64>("frames");
    QTest::addColumn<qint64>("width");
    QTest::addColumn<qint64>("height");
    QTest::addColumn<bool>("expected");

    QTest::newRow("200 frames of 30,000,000 pixels") << 200LL << 500LL << 300LL << true;
    QTest::newRow("one column too many") << 200LL << 501LL << 300LL << false;
    QTest::newRow("side 8192") << 2LL << 8192LL << 1LL << true;
    QTest::newRow("side 8193") << 2LL << 1LL << 8193LL << false;
    QTest::newRow("huge frame count") << (1LL << 40) << 1LL << 1LL << false;
}

void tst_AnimatedImageDecoder::shouldAnimate()
{
    QFETCH(qint64, frames);
    QFETCH(qint64, width);
    QFETCH(qint64, height);
    QFETCH(bool, expected);
    QCOMPARE(AnimatedImageDecoderPolicy::shouldAnimate(frames, width, height), expected);
}

void tst_AnimatedImageDecoder::decode_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QList<double>>("delays");
    // Whether the first pixel of each frame must be its palette colour (lossless input).
    QTest::addColumn<bool>("exactColours");

    const QSize small(40, 30);
    const auto still = [](const char *name, const QByteArray &data, QSize size, bool exact) {
        QTest::newRow(name) << data << u"still"_s << size << QList<double>() << exact;
    };
    const auto animated
        = [](const char *name, const QByteArray &data, QSize size, const QList<double> &delays) {
              QTest::newRow(name) << data << u"animated"_s << size << delays << true;
          };
    const auto none = [](const char *name, const QByteArray &data) {
        QTest::newRow(name) << data << u"none"_s << QSize() << QList<double>() << false;
    };
    still("one frame", gif(1, small), small, true);
    animated("200 frames", gif(200, QSize(8, 8)), QSize(8, 8), QList<double>(200, 0.1));
    still("201 frames", gif(201, QSize(8, 8)), QSize(8, 8), true);
    still("9000-pixel side", gif(2, QSize(9000, 4)), QSize(4096, 2), false);
    {
        QList<IndexedGifFrame> frames = solidFrames(4, small);
        frames[0].delayCentiseconds = 100;
        frames[1].delayCentiseconds = 0;
        frames[2].delayCentiseconds = 5;
        frames[3].delayCentiseconds = 37;
        animated("zero and short delays", writeIndexedGif(small, palette, frames), small,
                 { 1.0, 0.1, 0.1, 0.37 });
        frames = solidFrames(3, small, 50);
        frames[1].graphicControl = frames[2].graphicControl = false;
        animated("frames without a delay block", writeIndexedGif(small, palette, frames), small,
                 { 0.5, 0.1, 0.1 });
    }
    // Damage ends an animation at the last whole frame.
    const QList<IndexedGifFrame> three = solidFrames(3, small);
    const QByteArray whole = writeIndexedGif(small, palette, three);
    const auto third = [&](QByteArrayView blocks) -> QByteArray {
        return writeIndexedGif(small, palette, three.first(2)).chopped(1) + blocks + "\x3b";
    };
    const QList<double> two { 0.1, 0.1 };
    animated("no trailer", whole.chopped(1), small, { 0.1, 0.1, 0.1 });
    animated("third frame without its terminator", whole.chopped(2), small, two);
    animated("cut in the third frame", cutInFrame(small, three, 2), small, two);
    animated("third frame ends its data early",
             third(QByteArrayView("\x2c\0\0\0\0\x28\0\x1e\0\0\2\1\x2c\0", 14)), small, two);
    animated("third frame with a code size of 12",
             third(QByteArrayView("\x2c\0\0\0\0\x28\0\x1e\0\0\x0c\1\0\0", 14)), small, two);
    // The pixels an image declares bound the work even where the screen clips them.
    animated("third frame of 65535x65535",
             third(QByteArrayView("\x2c\0\0\0\0\xff\xff\xff\xff\0\2\1\x2c\0", 14)), small, two);
    still("second frame cut short", cutInFrame(small, three, 1), small, true);
    none("cut inside the header", gif(5, small).left(11));
    // Every frame is the logical screen, whatever the image blocks say: 200 of 3000x3000.
    still("large screen behind small frames", gif(200, QSize(10, 10), QSize(3000, 3000)),
          QSize(3000, 3000), true);
    // A still of a codec that cannot decode at a reduced size is decoded whole first, so the
    // whole bitmap has to fit the budget of 30,000,000 pixels.
    still("still at the pixel budget", gif(1, QSize(10, 10), QSize(6000, 5000)), QSize(4096, 3413),
          true);
    none("still over the pixel budget", gif(1, QSize(10, 10), QSize(6001, 5000)));
    const QByteArray jpeg = gradient(QSize(5000, 3000), "jpeg");
    still("5000x3000 jpeg", jpeg, QSize(4096, 2458), false);
    // libjpeg gives up at the second frame header, with 4375x2625 decoded at its own scale.
    none("5000x3000 jpeg cut short by a second frame header",
         jpeg.left(jpeg.size() / 2) + QByteArray("\xff\xc0\0\1\0\0", 6));
    still("png at the byte limit", gradient(small, "png", AnimatedImageDecoder::maxDataSize), small,
          false);
    none("png one byte over the limit",
         gradient(small, "png", AnimatedImageDecoder::maxDataSize + 1));
    none("not an image", QByteArray(4096, 'x'));
}

void tst_AnimatedImageDecoder::decode()
{
    QFETCH(QByteArray, data);
    QFETCH(QString, kind);
    QFETCH(QSize, size);
    QFETCH(QList<double>, delays);
    QFETCH(bool, exactColours);

    const std::optional<LoadedImage> image = AnimatedImageDecoder::decode(data);
    if (kind == u"none") {
        QVERIFY(!image);
        return;
    }
    QVERIFY(image);
    QCOMPARE(image->isAnimated(), kind == u"animated");
    QCOMPARE(image->size(), size);
    QCOMPARE(image->firstFrame().size(), size);
    if (exactColours)
        QCOMPARE(QColor(image->firstFrame().pixel(0, 0)), QColor(palette[0]));

    if (const AnimatedImageSource *animation = image->animatedSource()) {
        QCOMPARE(animation->delays(), delays);
        QCOMPARE(animation->frameCount(), delays.size());
        QCOMPARE(animation->totalDuration(), std::accumulate(delays.begin(), delays.end(), 0.0));
        for (qsizetype i = 0; i < animation->frameCount(); ++i) {
            QCOMPARE(animation->frames()[i].size(), size);
            QCOMPARE(animation->frameImage(i).format(), QImage::Format_ARGB32_Premultiplied);
            if (exactColours)
                QCOMPARE(QColor(animation->frameImage(i).pixel(0, 0)), QColor(palette[i % 8]));
        }
    }
}

void tst_AnimatedImageDecoder::gifFramesMatchQtReader_data()
{
    QTest::addColumn<GifCase>("testCase");
    const QSize s(17, 13);
    const QList<QRgb> table = colours(32);
    const auto add = [](const char *name, QByteArray gif, QList<Correction> corrections = {},
                        QList<int> wide = {}, QList<int> noControl = {}) {
        QVERIFY2(!gif.isEmpty(), name);
        QTest::newRow(name) << GifCase { gif, corrections, wide, noControl };
    };

    {
        IndexedGifFrame a = full(s, pattern(s, 8)), b = full(s, pattern(s, 64, 3));
        a.localColours = colours(8, 100);
        b.localColours = colours(64, 50);
        b.interlaced = true;
        add("local tables, one interlaced",
            writeIndexedGif(s, table, { a, b, full(s, pattern(s, 5)) }));
        add("local tables and no global one", writeIndexedGif(s, {}, { a, b }));
    }
    {
        IndexedGifFrame c = part(QRect(2, 2, 6, 9), holes({ 6, 9 }, 32, 5), 2, 5);
        c.interlaced = true;
        add("background disposal of transparent frames",
            writeIndexedGif(s, table,
                            { full(s, holes(s, 32, 0), 0),
                              part(QRect(1, 1, 9, 7), holes({ 9, 7 }, 32, 4, 1), 2, 4), c,
                              part(QRect(6, 6, 2, 2), solid({ 2, 2 }, 9)) }));
    }
    {
        IndexedGifFrame a = full(s, holes(s, 32, 3), 3);
        a.disposal = 3; // back to the empty screen
        add("restore previous, also after the first frame and twice in a row",
            writeIndexedGif(s, table,
                            { a, part(QRect(0, 0, 9, 9), pattern({ 9, 9 }, 32, 2), 3),
                              part(QRect(5, 5, 12, 8), holes({ 12, 8 }, 32, 1), 3, 1),
                              part(QRect(4, 4, 3, 3), solid({ 3, 3 }, 20), 1),
                              part(QRect(14, 0, 3, 3), solid({ 3, 3 }, 21)) }));
    }
    {
        // Qt fills the rows of an image 3 or 4 rows high in the wrong order; the passes of
        // the others split at 1, 2, 5, 8 and 9 rows.
        QList<IndexedGifFrame> frames { full(s, pattern(s, 32)) };
        for (int h : { 1, 2, 5, 6, 7, 9, 12 }) {
            frames.append(part(QRect(h, 0, 3, h), pattern({ 3, h }, 32, h)));
            frames.last().interlaced = true;
        }
        add("interlaced frames of many heights", writeIndexedGif(s, table, frames));
    }
    add("frames past the right and bottom edges are clipped",
        writeIndexedGif(s, table,
                        { full(s, pattern(s, 32)),
                          part(QRect(12, 3, 9, 4), pattern({ 9, 4 }, 32, 1)),
                          part(QRect(15, 11, 300, 200), pattern({ 300, 200 }, 32, 3)),
                          part(QRect(40, 40, 2, 2), solid({ 2, 2 }, 1)) }));
    {
        IndexedGifFrame b = part(QRect(4, 4, 6, 6), pattern({ 6, 6 }, 4));
        b.localColours = colours(2, 9); // indices 2 and 3 lie past the table
        add("indices past the colour table are transparent",
            writeIndexedGif(s, table, { full(s, holes(s, 32, 2), 2), b }));
    }
    {
        // A screen in 256 colours; 4 more make 260, so frames 1, 3 and 5 need 32 bits. Frame 2
        // paints them over and frame 3 restores them; frame 4 does the same, and frame 5 adds
        // them again until frame 6 restores the 256. Frame 7 covers everything.
        const auto moreThan256 = [](QSize screen, const QByteArray &all) {
            IndexedGifFrame other = part(QRect(0, 0, 2, 2), pattern({ 2, 2 }, 4));
            other.localColours = colours(4, 200);
            IndexedGifFrame otherSaved = other;
            otherSaved.disposal = 3;
            const int w = screen.width();
            const QByteArray original = all.left(2) + all.mid(w, 2); // what frame 0 has there
            return writeIndexedGif(screen, colours(256, 1),
                                   { full(screen, all), other,
                                     part(QRect(0, 0, 2, 2), original, 3),
                                     part(QRect(5, 5, 1, 1), solid({ 1, 1 }, 7)),
                                     part(QRect(0, 0, 2, 2), original), otherSaved,
                                     part(QRect(5, 5, 1, 1), solid({ 1, 1 }, 8)),
                                     full(screen, pattern(screen, 256)) });
        };
        const QSize big(20, 20);
        QByteArray all(400, Qt::Uninitialized);
        for (int i = 0; i < 400; ++i)
            all[i] = char(i % 256);
        add("more than 256 colours on the screen", moreThan256(big, all), {}, { 1, 3, 5 });
        // Over 2 MiB of 8-bit frames share one block of memory, which outlives the decoder.
        const QSize huge(700, 400);
        add("more than 256 colours on a screen of 280,000 pixels",
            moreThan256(huge, pattern(huge, 256)), {}, { 1, 3, 5 });
        // Qt's canvas has no alpha channel after an opaque first frame, so the cleared area
        // reads as white there.
        add("256 colours and then a background disposal",
            writeIndexedGif(big, colours(256, 1),
                            { full(big, all),
                              part(QRect(3, 3, 5, 5), holes({ 5, 5 }, 256, 255, 9), 2, 255),
                              part(QRect(0, 0, 1, 1), solid({ 1, 1 }, 3)) }),
            { { 2, QRect(3, 3, 5, 5), 0 } });
    }
    {
        IndexedGifFrame a = full(s, holes(s, 32, 6), 6);
        a.delayCentiseconds = 50;
        IndexedGifFrame b = part(QRect(2, 2, 3, 1), QByteArray("\6\7\6", 3));
        b.graphicControl = false;
        IndexedGifFrame c = part(QRect(0, 0, 1, 1), solid({ 1, 1 }, 8));
        c.delayCentiseconds = 25;
        // Qt lets a frame without a control block inherit the transparency and delay before it.
        const QRegion sixes = QRegion(2, 2, 1, 1) + QRect(4, 2, 1, 1);
        add("a frame without a control block has no transparency and no delay",
            writeIndexedGif(s, table, { a, b, c }),
            { { 1, sixes, table[6] }, { 2, sixes, table[6] } }, {}, { 1 });
    }
    {
        // Qt paints the background colour (index 4 here) where browsers leave the screen clear:
        // around an opaque first frame smaller than the screen, and where a frame is disposed.
        IndexedGifFrame b = full(s, pattern(s, 32, 1));
        b.disposal = 2;
        add("the screen starts clear and disposal clears it",
            writeIndexedGif(s, table,
                            { part(QRect(2, 3, 4, 4), pattern({ 4, 4 }, 32)), b,
                              part(QRect(0, 0, 1, 1), solid({ 1, 1 }, 2)) },
                            4),
            { { 0, QRegion(QRect({}, s)) - QRect(2, 3, 4, 4), 0 },
              { 2, QRect({}, s), 0 },
              { 2, QRect(0, 0, 1, 1), table[2] } });
    }
    QFile welcome(QStringLiteral(VELMORA_EXAMPLES_DIR "/campaigns/images/welcome.gif"));
    QVERIFY(welcome.open(QIODevice::ReadOnly));
    add("an example campaign's GIF", welcome.readAll());
}

// Frame by frame and pixel by pixel, on GIFs written in palette indices so that every feature
// of the format is exercised on purpose.
void tst_AnimatedImageDecoder::gifFramesMatchQtReader()
{
    QFETCH(GifCase, testCase);
    QBuffer buffer(&testCase.gif);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, "gif");
    QList<QImage> expected;
    QList<double> expectedDelays;
    for (QImage frame; reader.read(&frame);) {
        expected.append(normalised(frame));
        expectedDelays.append(std::max(reader.nextImageDelay() / 1000.0, 0.1));
    }
    for (const Correction &c : testCase.corrections) {
        QPainter painter(&expected[c.frame]);
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.setClipRegion(c.area);
        painter.fillRect(c.area.boundingRect(), QColor::fromRgba(c.colour));
    }
    for (int i : testCase.framesWithoutControl)
        expectedDelays[i] = 0.1;

    const std::optional<LoadedImage> image = AnimatedImageDecoder::decode(testCase.gif);
    QVERIFY(image && image->isAnimated());
    const AnimatedImageSource &animation = *image->animatedSource();
    QCOMPARE(animation.frameCount(), expected.size());
    QCOMPARE(animation.size(), expected.first().size());
    for (qsizetype i = 0; i < animation.frameCount(); ++i) {
        QCOMPARE(animation.frames()[i].format(),
                 testCase.wideFrames.contains(i) ? QImage::Format_ARGB32_Premultiplied
                                                 : QImage::Format_Indexed8);
        if (normalised(animation.frameImage(i)) != expected[i]) {
            expected[i].save(u"expected-%1.png"_s.arg(i));
            normalised(animation.frameImage(i)).save(u"actual-%1.png"_s.arg(i));
            QFAIL(qPrintable(u"frame %1 differs (see expected-%1.png and actual-%1.png)"_s.arg(i)));
        }
    }
    QCOMPARE(animation.delays(), expectedDelays);
}

void tst_AnimatedImageDecoder::decodeAsyncRunsOffTheCallingThread()
{
    QThread *decodingThread = nullptr;
    auto future = AnimatedImageDecoder::decodeAsync(gif(3, QSize(16, 16)))
                      .then([&](std::optional<LoadedImage> image) {
                          decodingThread = QThread::currentThread();
                          return image;
                      });
    const auto image = future.result();
    QVERIFY(image && image->isAnimated());
    QVERIFY(decodingThread && decodingThread != QThread::currentThread());
}

QTEST_GUILESS_MAIN(tst_AnimatedImageDecoder)
#include "tst_images_decoder.moc"
