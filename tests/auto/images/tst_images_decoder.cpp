#include "animatedimagedecoder.h"
#include "gifwriter.h"

#include <QBuffer>
#include <QImageWriter>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::test::encodeGif;
using velmora::test::GifFrame;
using velmora::test::truncatedGif;

namespace {

const QList<QRgb> palette { 0xffff0000, 0xff00ff00, 0xff0000ff, 0xffffff00,
                            0xff00ffff, 0xffff00ff, 0xff808080, 0xff000000 };

// Frame i is filled with palette colour i % 8, so the order of decoded frames shows.
QList<GifFrame> solidFrames(int count, QSize size, int delayCentiseconds = 10,
                            bool graphicControl = true)
{
    QList<GifFrame> frames;
    for (int i = 0; i < count; ++i) {
        QImage image(size, QImage::Format_RGB32);
        image.fill(palette[i % palette.size()]);
        frames.append(GifFrame(image, delayCentiseconds, graphicControl));
    }
    return frames;
}

QByteArray gif(int count, QSize size, int delayCentiseconds = 10, bool graphicControl = true)
{
    return encodeGif(solidFrames(count, size, delayCentiseconds, graphicControl), size);
}

QByteArray encoded(const QImage &image, const char *format)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    writer.write(image);
    return bytes;
}

QByteArray gradient(QSize size, const char *format)
{
    QImage image(size, QImage::Format_RGB32);
    for (int y = 0; y < size.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x)
            line[x] = qRgb(x % 256, y % 256, 128);
    }
    return encoded(image, format);
}

QByteArray paddedTo(QByteArray bytes, qsizetype size)
{
    bytes.append(size - bytes.size(), '\0');
    return bytes;
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
    void decodeAsyncRunsOffTheCallingThread();
};

void tst_AnimatedImageDecoder::shouldAnimate_data()
{
    QTest::addColumn<qint64>("frames");
    QTest::addColumn<qint64>("width");
    QTest::addColumn<qint64>("height");
    QTest::addColumn<bool>("expected");

    QTest::newRow("two frames of one pixel") << 2LL << 1LL << 1LL << true;
    QTest::newRow("one frame") << 1LL << 1LL << 1LL << false;
    QTest::newRow("zero frames") << 0LL << 1LL << 1LL << false;
    QTest::newRow("negative frames") << -2LL << 1LL << 1LL << false;
    QTest::newRow("200 frames") << 200LL << 500LL << 300LL << true;
    QTest::newRow("200 frames, one column too many") << 200LL << 501LL << 300LL << false;
    QTest::newRow("201 frames") << 201LL << 1LL << 1LL << false;
    QTest::newRow("100 frames of 600x500") << 100LL << 600LL << 500LL << true;
    QTest::newRow("100 frames of 601x500") << 100LL << 601LL << 500LL << false;
    QTest::newRow("100 frames of 800x600") << 100LL << 800LL << 600LL << false;
    QTest::newRow("quotient is truncated") << 37LL << 2002LL << 405LL << true; // 810,810
    QTest::newRow("one past the truncated quotient") << 37LL << 2117LL << 383LL << false;
    QTest::newRow("side 8192") << 2LL << 8192LL << 1LL << true;
    QTest::newRow("side 8193") << 2LL << 1LL << 8193LL << false;
    QTest::newRow("zero width") << 2LL << 0LL << 10LL << false;
    QTest::newRow("negative height") << 2LL << 10LL << -10LL << false;
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
    QTest::newRow("one-frame gif")
        << gif(1, small) << u"still"_s << small << QList<double>() << true;
    QTest::newRow("two frames") << gif(2, small, 25) << u"animated"_s << small
                                << QList<double> { 0.25, 0.25 } << true;
    QTest::newRow("200 frames") << gif(200, QSize(8, 8)) << u"animated"_s << QSize(8, 8)
                                << QList<double>(200, 0.1) << true;
    QTest::newRow("201 frames") << gif(201, QSize(8, 8)) << u"still"_s << QSize(8, 8)
                                << QList<double>() << true;
    QTest::newRow("9000-pixel side")
        << gif(2, QSize(9000, 4)) << u"still"_s << QSize(4096, 2) << QList<double>() << false;
    QTest::newRow("100 frames of 800x600")
        << gif(100, QSize(800, 600)) << u"still"_s << QSize(800, 600) << QList<double>() << true;
    QTest::newRow("zero delays") << gif(3, small, 0) << u"animated"_s << small
                                 << QList<double>(3, 0.1) << true;
    QTest::newRow("short delays") << gif(3, small, 5) << u"animated"_s << small
                                  << QList<double>(3, 0.1) << true;
    QTest::newRow("missing delays")
        << gif(3, small, 50, false) << u"animated"_s << small << QList<double>(3, 0.1) << true;
    {
        QList<GifFrame> frames = solidFrames(3, small);
        frames[0].delayCentiseconds = 100;
        frames[1].delayCentiseconds = 0;
        frames[2].delayCentiseconds = 37;
        QTest::newRow("mixed delays") << encodeGif(frames, small) << u"animated"_s << small
                                      << QList<double> { 1.0, 0.1, 0.37 } << true;
    }
    QTest::newRow("truncated after three of five")
        << truncatedGif(gif(5, small), 3) << u"animated"_s << small << QList<double>(3, 0.1)
        << true;
    QTest::newRow("truncated after the first frame")
        << truncatedGif(gif(5, small), 1) << u"still"_s << small << QList<double>() << true;
    QTest::newRow("cut inside the header")
        << gif(5, small).left(11) << u"none"_s << QSize() << QList<double>() << false;
    {
        // Qt's size() believes the frames over the screen here, but every decoded bitmap
        // would be the full 3000x3000 screen: 200 of them are far over the pixel bound.
        QList<GifFrame> frames = solidFrames(200, QSize(10, 10));
        QTest::newRow("large screen behind small frames")
            << encodeGif(frames, QSize(3000, 3000)) << u"still"_s << QSize(3000, 3000)
            << QList<double>() << true;
    }
    {
        // A still of a codec that cannot decode at a reduced size is decoded whole first, so
        // the whole bitmap has to fit the pixel budget: 30,000,000 pixels, here behind a tiny
        // frame on a large screen.
        const QList<GifFrame> frame = solidFrames(1, QSize(10, 10));
        QTest::newRow("still at the pixel budget")
            << encodeGif(frame, QSize(6000, 5000)) << u"still"_s << QSize(4096, 3413)
            << QList<double>() << true;
        QTest::newRow("still over the pixel budget")
            << encodeGif(frame, QSize(6001, 5000)) << u"none"_s << QSize() << QList<double>()
            << false;
    }
    QTest::newRow("5000x3000 jpeg") << gradient(QSize(5000, 3000), "jpeg") << u"still"_s
                                    << QSize(4096, 2458) << QList<double>() << false;
    QTest::newRow("3000x5000 png") << gradient(QSize(3000, 5000), "png") << u"still"_s
                                   << QSize(2458, 4096) << QList<double>() << false;
    QTest::newRow("png at the byte limit")
        << paddedTo(gradient(small, "png"), AnimatedImageDecoder::maxDataSize) << u"still"_s
        << small << QList<double>() << false;
    QTest::newRow("png one byte over the limit")
        << paddedTo(gradient(small, "png"), AnimatedImageDecoder::maxDataSize + 1) << u"none"_s
        << QSize() << QList<double>() << false;
    QTest::newRow("empty") << QByteArray() << u"none"_s << QSize() << QList<double>() << false;
    QTest::newRow("not an image") << QByteArray(4096, 'x') << u"none"_s << QSize()
                                  << QList<double>() << false;
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
        double total = 0;
        for (qsizetype i = 0; i < animation->frameCount(); ++i) {
            total += delays[i];
            const QImage &frame = animation->frames()[i];
            QCOMPARE(frame.size(), size);
            if (exactColours)
                QCOMPARE(QColor(frame.pixel(0, 0)), QColor(palette[i % palette.size()]));
        }
        QCOMPARE(animation->totalDuration(), total);
    }
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
