#include "gifwriter/gifwriter.h"
#include "images/animatedimagedecoder.h"

#include <QBuffer>
#include <QTest>

#include <numeric>

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
    still("100 frames of 800x600", gif(100, QSize(800, 600)), QSize(800, 600), true);
    {
        QList<GifFrame> frames = solidFrames(4, small);
        frames[0].delayCentiseconds = 100;
        frames[1].delayCentiseconds = 0;
        frames[2].delayCentiseconds = 5;
        frames[3].delayCentiseconds = 37;
        animated("zero and short delays", encodeGif(frames, small), small, { 1.0, 0.1, 0.1, 0.37 });
    }
    animated("missing delays", gif(3, small, 50, false), small, QList<double>(3, 0.1));
    animated("truncated after three of five", truncatedGif(gif(5, small), 3), small,
             QList<double>(3, 0.1));
    none("cut inside the header", gif(5, small).left(11));
    // Qt's size() believes the frames over the screen here, but every decoded bitmap would be
    // the full 3000x3000 screen: 200 of them are far over the pixel bound.
    still("large screen behind small frames",
          encodeGif(solidFrames(200, QSize(10, 10)), QSize(3000, 3000)), QSize(3000, 3000), true);
    // A still of a codec that cannot decode at a reduced size is decoded whole first, so the
    // whole bitmap has to fit the budget of 30,000,000 pixels.
    still("still at the pixel budget", encodeGif(solidFrames(1, QSize(10, 10)), QSize(6000, 5000)),
          QSize(4096, 3413), true);
    none("still over the pixel budget",
         encodeGif(solidFrames(1, QSize(10, 10)), QSize(6001, 5000)));
    still("5000x3000 jpeg", gradient(QSize(5000, 3000), "jpeg"), QSize(4096, 2458), false);
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
            const QImage &frame = animation->frames()[i];
            QCOMPARE(frame.size(), size);
            if (exactColours)
                QCOMPARE(QColor(frame.pixel(0, 0)), QColor(palette[i % palette.size()]));
        }
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
