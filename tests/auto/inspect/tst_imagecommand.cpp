#include "gifwriter/gifwriter.h"

#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using velmora::test::GifFrame;

class tst_InspectImage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void image_data();
    void image();
};

void tst_InspectImage::image_data()
{
    QTest::addColumn<QByteArray>("contents"); // empty: no file at all
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("lastLine"); // of the output, on success

    QImage red(30, 20, QImage::Format_RGB32);
    red.fill(Qt::red);
    QImage blue = red;
    blue.fill(Qt::blue);
    // The last frame has no delay of its own: 0.1 s, not the 0.4 before it. Each frame holds
    // 8-bit rows of 32 bytes.
    QTest::newRow("animation") << velmora::test::encodeGif(
        { GifFrame(red, 0), GifFrame(blue, 40), GifFrame(red, 40, false) }, red.size())
                               << 0
                               << QByteArray(R"({"kind":"animated","width":30,"height":20,)"
                                             R"("frames":3,"delays":[0.1,0.4,0.1],)"
                                             R"("total_duration":0.6,"resident_bytes":1920})");
    QTest::newRow("still") << velmora::test::encodeGif({ GifFrame(red) }, red.size()) << 0
                           << QByteArray(
                                  R"({"kind":"still","width":30,"height":20,"frames":1,)"
                                  R"("delays":[],"total_duration":0,"resident_bytes":2400})");
    QTest::newRow("not an image") << QByteArray("plain text") << 1 << QByteArray();
    QTest::newRow("missing file") << QByteArray() << 2 << QByteArray();
}

void tst_InspectImage::image()
{
    QFETCH(QByteArray, contents);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, lastLine);

    QTemporaryDir dir;
    const QString path = dir.filePath(u"image.bin"_s);
    QFile file(path);
    QVERIFY(contents.isEmpty() || (file.open(QIODevice::WriteOnly) && file.write(contents) > 0));
    file.close();
    QProcess process;
    process.start(QStringLiteral(VELMORA_INSPECT_PATH), { u"image"_s, path });
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), exitCode);
    if (exitCode == 0) {
        QCOMPARE(process.readAllStandardOutput().trimmed().split('\n').constLast(), lastLine);
    } else {
        // One line that says why.
        const QByteArray errors = process.readAllStandardError().trimmed();
        QVERIFY(!errors.isEmpty() && !errors.contains('\n'));
    }
}

QTEST_GUILESS_MAIN(tst_InspectImage)
#include "tst_imagecommand.moc"
