// IAMAnimatedImage as a QML host uses it: images from a loopback HTTPS server, time from an
// animation driver the test advances by hand, pixels from the software renderer.
#include "../quicktestsupport.h"
#include "gifwriter/gifwriter.h"

#include <QAnimationDriver>
#include <QPainter>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>

using namespace Qt::StringLiterals;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::png;

namespace {

// Animation time moves only when the test says so.
class ManualDriver : public QAnimationDriver
{
public:
    qint64 elapsed() const override { return m_elapsed; }
    void start() override
    {
        m_elapsed = 0;
        QAnimationDriver::start();
    }
    void advanceTo(qint64 ms)
    {
        m_elapsed = ms;
        advance();
    }
    void step(qint64 ms) { advanceTo(m_elapsed + ms); }

private:
    qint64 m_elapsed = 0;
};

QImage solid(QSize size, QColor colour)
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

// Three bands, so a crop and a letterbox show up as different colours at the item's edges.
QImage bands()
{
    QImage image(400, 200, QImage::Format_ARGB32);
    image.fill(Qt::green);
    QPainter painter(&image);
    painter.fillRect(0, 0, 100, 200, Qt::red);
    painter.fillRect(300, 0, 100, 200, Qt::blue);
    return image;
}

const QList<QColor> frameColours { Qt::red, Qt::green, Qt::blue };

} // namespace

class tst_QuickImage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void framesFollowTheClock_data();
    void framesFollowTheClock();
    void playsOnlyInAVisibleWindow_data();
    void playsOnlyInAVisibleWindow();
    void sourceChange_data();
    void sourceChange();
    void fitAndFill_data();
    void fitAndFill();

private:
    QQuickItem *load(const QString &path, const QByteArray &fillMode = "Fit");
    QColor pixel(QPoint at);
    void expectFrame(int frame);

    HttpServer m_server;
    QQmlEngine m_engine;
    ManualDriver m_driver;
    std::unique_ptr<QQuickWindow> m_window;
    std::unique_ptr<QQuickItem> m_item;
};

void tst_QuickImage::initTestCase()
{
    // A QML host uses the library; without a call into it the linker may drop it, module and all.
    velmora::VelmoraInAppMessaging::shared();
    QStandardPaths::setTestModeEnabled(true);
    QVERIFY(Certificate::shared());
    QSslConfiguration::setDefaultConfiguration(Certificate::shared()->clientConfiguration());
    QVERIFY(m_server.listen(HttpServer::Mode::Https));
    QList<velmora::test::GifFrame> frames;
    const QList<int> delays { 10, 50, 10 };
    for (int i = 0; i < 3; ++i)
        frames.append({ solid({ 8, 8 }, frameColours[i]), delays[i] });
    m_server.setResponse(u"/anim.gif"_s,
                         Response::withStatus(200, velmora::test::encodeGif(frames, { 8, 8 })));
    m_server.setResponse(u"/still.png"_s,
                         Response::withStatus(200, png(solid({ 8, 8 }, Qt::cyan))));
    m_server.setResponse(u"/bands.png"_s, Response::withStatus(200, png(bands())));
    m_driver.install();
}

void tst_QuickImage::init()
{
    m_window = velmora::test::exposedWindow({ 100, 100 });
    QVERIFY(m_window);
}

void tst_QuickImage::cleanup()
{
    m_item.reset();
    m_window.reset();
}

QQuickItem *tst_QuickImage::load(const QString &path, const QByteArray &fillMode)
{
    m_item = velmora::test::createItem(m_engine,
                                       "import QtQuick\nimport Velmora.InAppMessaging\n"
                                       "IAMAnimatedImage { width: 100; height: 100; fillMode: "
                                       "IAMAnimatedImage."
                                           + fillMode + " }",
                                       m_window.get());
    if (!m_item)
        return nullptr;
    m_item->setProperty("source", m_server.url(path).toString());
    return m_item.get();
}

QColor tst_QuickImage::pixel(QPoint at)
{
    return m_window->grabWindow().pixelColor(at);
}

void tst_QuickImage::expectFrame(int frame)
{
    QCOMPARE(m_item->property("currentFrame").toInt(), frame);
    QCOMPARE(pixel({ 50, 50 }), frameColours[frame]);
}

void tst_QuickImage::framesFollowTheClock_data()
{
    QTest::addColumn<QList<int>>("times"); // ms since the item entered the window
    QTest::addColumn<QList<int>>("frames");
    QTest::addColumn<int>("uploads");

    // Frame 0 is uploaded once when the image arrives; afterwards only changes upload.
    QTest::newRow("same frame keeps its texture") << QList { 20, 60, 90 } << QList { 0, 0, 0 } << 1;
    QTest::newRow("each change uploads once")
        << QList { 300, 400, 650, 750 } << QList { 1, 1, 2, 0 } << 4;
    QTest::newRow("whole loops skipped upload nothing") << QList { 1420 } << QList { 0 } << 1;
}

void tst_QuickImage::framesFollowTheClock()
{
    QFETCH(QList<int>, times);
    QFETCH(QList<int>, frames);
    QFETCH(int, uploads);

    QQuickItem *item = load(u"/anim.gif"_s);
    QVERIFY(item);
    QTRY_COMPARE(item->property("status").toInt(), 2);
    QVERIFY(item->property("playing").toBool());
    QCOMPARE(item->property("sourceSize").toSize(), QSize(8, 8));
    expectFrame(0);
    // The clock starts when the ticker is registered with the animation timer.
    QCoreApplication::processEvents();
    const qint64 start = m_driver.elapsed();
    for (int i = 0; i < times.size(); ++i) {
        m_driver.advanceTo(start + times[i]);
        expectFrame(frames[i]);
    }
    QCOMPARE(item->property("textureUploads").toInt(), uploads);
}

void tst_QuickImage::playsOnlyInAVisibleWindow_data()
{
    QTest::addColumn<bool>("hide"); // else: leave the window

    QTest::newRow("hidden") << true;
    QTest::newRow("out of the window") << false;
}

void tst_QuickImage::playsOnlyInAVisibleWindow()
{
    QFETCH(bool, hide);

    QQuickItem *item = load(u"/anim.gif"_s);
    QVERIFY(item);
    QTRY_COMPARE(item->property("status").toInt(), 2);
    QCoreApplication::processEvents();
    m_driver.step(300);
    expectFrame(1);

    hide ? item->setVisible(false) : item->setParentItem(nullptr);
    QVERIFY(!item->property("playing").toBool());
    m_driver.step(300);
    hide ? item->setVisible(true) : item->setParentItem(m_window->contentItem());
    QVERIFY(item->property("playing").toBool());
    expectFrame(0);

    // The loop starts over from the return, not from where it left.
    QCoreApplication::processEvents();
    m_driver.step(90);
    expectFrame(0);
    m_driver.step(210);
    expectFrame(1);
}

void tst_QuickImage::sourceChange_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("url");
    QTest::addColumn<int>("status"); // once the new source has settled

    // A still image ends the animation; a failed load keeps the image shown before.
    QTest::newRow("still replaces animation")
        << u"/anim.gif"_s << m_server.url(u"/still.png"_s).toString() << 2;
    QTest::newRow("not found") << u"/still.png"_s << m_server.url(u"/missing.png"_s).toString()
                               << 3;
    QTest::newRow("plain http") << u"/still.png"_s
                                << u"http://127.0.0.1:%1/still.png"_s.arg(m_server.port()) << 3;
}

void tst_QuickImage::sourceChange()
{
    QFETCH(QString, first);
    QFETCH(QString, url);
    QFETCH(int, status);

    QQuickItem *item = load(first);
    QVERIFY(item);
    QTRY_COMPARE(item->property("status").toInt(), 2);
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

void tst_QuickImage::fitAndFill_data()
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

void tst_QuickImage::fitAndFill()
{
    QFETCH(QByteArray, fillMode);
    QFETCH(QColor, top);
    QFETCH(QColor, left);
    QFETCH(qreal, topCornerRadius);
    QFETCH(QColor, topLeftCorner);

    QQuickItem *item = load(u"/bands.png"_s, fillMode);
    QVERIFY(item);
    item->setProperty("topCornerRadius", topCornerRadius);
    QTRY_COMPARE(item->property("status").toInt(), 2);
    const QImage shot = m_window->grabWindow();
    QCOMPARE(shot.pixelColor(50, 5), top);
    QCOMPARE(shot.pixelColor(2, 50), left);
    QCOMPARE(shot.pixelColor(50, 50), QColor(Qt::green));
    QCOMPARE(shot.pixelColor(0, 0), topLeftCorner);
    QCOMPARE(shot.pixelColor(99, 0), topLeftCorner);
    // The bottom corners stay square: letterbox in fit, picture in fill, as at the top edge.
    QCOMPARE(shot.pixelColor(0, 99), top);
}

VELMORA_QUICK_TEST_MAIN(tst_QuickImage)

#include "tst_quick_image.moc"
