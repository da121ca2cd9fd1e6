// IAMAnimatedImage as a QML host uses it: images from a loopback HTTPS server, time from an
// animation driver the test advances by hand, pixels from the software renderer.
#include "../quicktestsupport.h"
#include "gifwriter/gifwriter.h"

#include <QPainter>

using namespace Qt::StringLiterals;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::png;

namespace {

QImage solid(QSize size, QColor colour)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

const QList<QColor> frameColours { Qt::red, Qt::green, Qt::blue };

} // namespace

class tst_QuickImage : public QObject
{
    Q_OBJECT

    QQuickItem *load(const QString &path, const QByteArray &fillMode = "Fit")
    {
        m_item = velmora::test::createItem(m_engine,
                                           "import QtQuick\nimport Velmora.InAppMessaging\n"
                                           "IAMAnimatedImage { width: 100; height: 100; "
                                           "fillMode: IAMAnimatedImage."
                                               + fillMode + " }",
                                           m_window.get());
        if (m_item)
            m_item->setProperty("source", m_server.url(path).toString());
        return m_item.get();
    }

    // Loaded and playing (or shown, for a still image), with the ticker registered.
    QQuickItem *loadReady(const QString &path, const QByteArray &fillMode = "Fit")
    {
        QQuickItem *item = load(path, fillMode);
        if (!item || !QTest::qWaitFor([item] { return item->property("status").toInt() == 2; }))
            return nullptr;
        QCoreApplication::processEvents();
        return item;
    }

    QColor pixel(QPoint at) { return m_window->grabWindow().pixelColor(at); }

    void expectFrame(int frame)
    {
        QCOMPARE(m_item->property("currentFrame").toInt(), frame);
        QCOMPARE(pixel({ 50, 50 }), frameColours[frame]);
    }

    HttpServer m_server;
    QQmlEngine m_engine;
    velmora::test::ManualAnimationDriver m_driver;
    std::unique_ptr<QQuickWindow> m_window;
    std::unique_ptr<QQuickItem> m_item;

private Q_SLOTS:
    void initTestCase()
    {
        // A QML host uses the library; without a call into it the linker may drop it, module and
        // all.
        velmora::VelmoraInAppMessaging::shared();
        QVERIFY(velmora::test::listenHttps(m_server));
        QList<velmora::test::GifFrame> frames;
        const QList<int> delays { 10, 50, 10 };
        for (int i = 0; i < 3; ++i)
            frames.append({ solid({ 8, 8 }, frameColours[i]), delays[i] });
        m_server.setResponse(u"/anim.gif"_s,
                             Response::withStatus(200, velmora::test::encodeGif(frames, { 8, 8 })));
        m_server.setResponse(u"/still.png"_s,
                             Response::withStatus(200, png(solid({ 8, 8 }, Qt::cyan))));
        // Three bands, so a crop and a letterbox show up as different colours at the item's edges.
        QImage bands = solid({ 400, 200 }, Qt::green);
        QPainter painter(&bands);
        painter.fillRect(0, 0, 100, 200, Qt::red);
        painter.fillRect(300, 0, 100, 200, Qt::blue);
        painter.end();
        m_server.setResponse(u"/bands.png"_s, Response::withStatus(200, png(bands)));
        m_driver.install();
    }

    void init()
    {
        m_window = velmora::test::exposedWindow({ 100, 100 });
        QVERIFY(m_window);
    }

    void cleanup()
    {
        m_item.reset();
        m_window.reset();
    }

    void framesFollowTheClock_data()
    {
        // Space-separated steps: "<ms>[:<frame>]" moves the clock on and checks the frame shown;
        // "hide"/"show" and "leave"/"return" take the item out of the window's play and back.
        QTest::addColumn<QString>("steps");
        QTest::addColumn<int>("uploads"); // -1: not counted

        // Frame 0 is uploaded once when the image arrives; afterwards only changes upload.
        QTest::newRow("same frame keeps its texture") << u"20:0 40:0 30:0"_s << 1;
        QTest::newRow("each change uploads once") << u"300:1 100:1 250:2 100:0"_s << 4;
        QTest::newRow("whole loops skipped upload nothing") << u"1420:0"_s << 1;
        // The loop starts over from the return, not from where it left.
        QTest::newRow("hidden") << u"300:1 hide 300 show:0 90:0 210:1"_s << -1;
        QTest::newRow("out of the window") << u"300:1 leave 300 return:0 90:0 210:1"_s << -1;
    }

    void framesFollowTheClock()
    {
        QFETCH(QString, steps);
        QFETCH(int, uploads);

        QQuickItem *item = loadReady(u"/anim.gif"_s);
        QVERIFY(item);
        QVERIFY(item->property("playing").toBool());
        QCOMPARE(item->property("sourceSize").toSize(), QSize(8, 8));
        expectFrame(0);
        for (const QString &step : steps.split(u' ')) {
            const QStringList parts = step.split(u':');
            if (parts[0] == u"hide" || parts[0] == u"leave") {
                parts[0] == u"hide" ? item->setVisible(false) : item->setParentItem(nullptr);
                QVERIFY(!item->property("playing").toBool());
            } else if (parts[0] == u"show" || parts[0] == u"return") {
                parts[0] == u"show" ? item->setVisible(true)
                                    : item->setParentItem(m_window->contentItem());
                QVERIFY(item->property("playing").toBool());
            } else {
                m_driver.step(parts[0].toInt());
            }
            if (parts.size() > 1)
                expectFrame(parts[1].toInt());
        }
        if (uploads >= 0)
            QCOMPARE(item->property("textureUploads").toInt(), uploads);
    }

    void sourceChange_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("status"); // once the new source has settled

        // A still image ends the animation; a failed load keeps the image shown before.
        QTest::newRow("still replaces animation")
            << u"/anim.gif"_s << m_server.url(u"/still.png"_s).toString() << 2;
        QTest::newRow("not found")
            << u"/still.png"_s << m_server.url(u"/missing.png"_s).toString() << 3;
        QTest::newRow("plain http")
            << u"/still.png"_s << u"http://127.0.0.1:%1/still.png"_s.arg(m_server.port()) << 3;
    }

    void sourceChange()
    {
        QFETCH(QString, first);
        QFETCH(QString, url);
        QFETCH(int, status);

        QQuickItem *item = loadReady(first);
        QVERIFY(item);
        item->setProperty("source", url);
        QCOMPARE(item->property("status").toInt(), 1);
        QTRY_COMPARE(item->property("status").toInt(), status);
        QTRY_COMPARE(pixel({ 50, 50 }), QColor(Qt::cyan));
        QCOMPARE(item->property("sourceSize").toSize(), QSize(8, 8));
        QVERIFY(!item->property("playing").toBool());
        QCOMPARE(item->property("currentFrame").toInt(), -1);
        m_driver.step(300);
        QCOMPARE(pixel({ 50, 50 }), QColor(Qt::cyan));
    }

    void fitAndFill_data()
    {
        QTest::addColumn<QByteArray>("fillMode");
        QTest::addColumn<QColor>("top");
        QTest::addColumn<QColor>("left");
        QTest::addColumn<qreal>("topCornerRadius");
        QTest::addColumn<QColor>("topLeftCorner");

        // 400x200 bands in 100x100: fit letterboxes above and below, fill crops the outer bands.
        QTest::newRow("fit") << QByteArray("Fit") << QColor(Qt::white) << QColor(Qt::red) << 0.0
                             << QColor(Qt::white);
        QTest::newRow("fill") << QByteArray("Fill") << QColor(Qt::green) << QColor(Qt::green) << 0.0
                              << QColor(Qt::green);
        // Rounded top corners let the window through there, and only there.
        QTest::newRow("fill, rounded top") << QByteArray("Fill") << QColor(Qt::green)
                                           << QColor(Qt::green) << 10.0 << QColor(Qt::white);
    }

    void fitAndFill()
    {
        QFETCH(QByteArray, fillMode);
        QFETCH(QColor, top);
        QFETCH(QColor, left);
        QFETCH(qreal, topCornerRadius);
        QFETCH(QColor, topLeftCorner);

        QQuickItem *item = loadReady(u"/bands.png"_s, fillMode);
        QVERIFY(item);
        item->setProperty("topCornerRadius", topCornerRadius);
        const QImage shot = m_window->grabWindow();
        QCOMPARE(shot.pixelColor(50, 5), top);
        QCOMPARE(shot.pixelColor(2, 50), left);
        QCOMPARE(shot.pixelColor(50, 50), QColor(Qt::green));
        QCOMPARE(shot.pixelColor(0, 0), topLeftCorner);
        QCOMPARE(shot.pixelColor(99, 0), topLeftCorner);
        // The bottom corners stay square: letterbox in fit, picture in fill, as at the top edge.
        QCOMPARE(shot.pixelColor(0, 99), top);
    }
};

VELMORA_QUICK_TEST_MAIN(tst_QuickImage)

#include "tst_quick_image.moc"
