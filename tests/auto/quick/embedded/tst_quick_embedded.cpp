// IAMEmbeddedBanner in a QML host: screens fetched from a loopback back end, images from a
// loopback HTTPS server, reactions read back from the requests the back end received.
#include "../quicktestsupport.h"

#include <QAccessible>
#include <QJsonDocument>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

QByteArray embedded(const QString &component, const QString &imageUrl, const QString &title)
{
    const QByteArray titleJson
        = title.isEmpty() ? QByteArray() : R"(, "title": {"text": ")" + title.toUtf8() + R"("})";
    return R"({"status": "ok", "actions": [{"meta": {"scenario_id": "s-)" + component.toUtf8()
        + R"(", "updated_at": "2026-01-01T00:00:00Z", "priority": 10, "action_type": "embedded_banner"}, "creative_type": "single_message", "creative": {"image": {"url": ")"
        + imageUrl.toUtf8()
        + R"(", "link_url": "https://shop.example/sale"}, "button": {"text": "Shop"})" + titleJson
        + R"(}, "layout": {"component_id": ")" + component.toUtf8() + R"("}}]})";
}

// Standard output into a file for as long as it lives.
class StdoutCapture
{
public:
    StdoutCapture()
    {
        m_file.open();
        std::fflush(stdout);
        m_saved = ::dup(STDOUT_FILENO);
        ::dup2(m_file.handle(), STDOUT_FILENO);
    }
    ~StdoutCapture() { release(); }
    QByteArray release()
    {
        if (m_saved >= 0) {
            std::fflush(stdout);
            ::dup2(m_saved, STDOUT_FILENO);
            ::close(m_saved);
            m_saved = -1;
        }
        m_file.seek(0);
        return m_file.readAll();
    }

private:
    QTemporaryFile m_file;
    int m_saved = -1;
};

} // namespace

class tst_QuickEmbedded : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    // Links the banner opens, instead of a browser.
    void openUrl(const QUrl &url) { m_opened.append(url); }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void warnsOncePerComponentId();
    void innermostScreenNameWins_data();
    void innermostScreenNameWins();
    void shimmerWhileLoading_data();
    void shimmerWhileLoading();
    void showsItsBanner_data();
    void showsItsBanner();

private:
    QQuickItem *show(const QByteArray &body);
    // Slots named "slot" and "twin" for `component` under VelmoraScreen "home".
    QQuickItem *showScreen(const QByteArray &slotProperties);
    QQuickItem *slot(const char *name = "slot") const;
    QStringList reactions() const;

    HttpServer m_api;
    HttpServer m_images;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickWindow> m_window;
    std::unique_ptr<QQuickItem> m_root;
    QList<QUrl> m_opened;
};

void tst_QuickEmbedded::initTestCase()
{
    QVERIFY(velmora::test::listenLoopback(m_api, m_images));
    m_images.setResponse(u"/ok.png"_s, Response::withStatus(200, velmora::test::png({ 40, 20 })));
    QDesktopServices::setUrlHandler(u"https"_s, this, "openUrl");
    velmora::test::setUpFacade(m_api);
}

void tst_QuickEmbedded::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(u"https"_s);
}

void tst_QuickEmbedded::init()
{
    // No banner of an earlier test may show before this test's screen starts.
    velmora::test::createQml(
        m_engine,
        "import QtQml\nimport Velmora.InAppMessaging\n"
        "QtObject { Component.onCompleted: IAMSupport.embeddedBannerStore.clearAll(\"\") }");

    m_api.clearRoutes();
    m_api.clear();
    m_opened.clear();
    m_api.setDefaultResponse(Response::json(R"({"status": "ok", "actions": []})"));
    m_window = velmora::test::exposedWindow({ 300, 600 });
    QVERIFY(m_window);
}

void tst_QuickEmbedded::cleanup()
{
    m_root.reset();
    m_window.reset();
}

QQuickItem *tst_QuickEmbedded::show(const QByteArray &body)
{
    m_root = velmora::test::createItem(
        m_engine,
        "import QtQuick\nimport Velmora.InAppMessaging\nItem { width: 300; height: 600\n" + body
            + "\n}",
        m_window.get());
    return m_root.get();
}

QQuickItem *tst_QuickEmbedded::showScreen(const QByteArray &slotProperties)
{
    return show(R"(VelmoraScreen { screenName: "home"; anchors.fill: parent; Column { width: 300
            IAMEmbeddedBanner { objectName: "slot"; componentId: "hero"; width: 300; )"
                + slotProperties + R"( }
            IAMEmbeddedBanner { objectName: "twin"; componentId: "hero"; width: 300; )"
                + slotProperties + " } } }");
}

QQuickItem *tst_QuickEmbedded::slot(const char *name) const
{
    return m_root->findChild<QQuickItem *>(QString::fromLatin1(name));
}

QStringList tst_QuickEmbedded::reactions() const
{
    QStringList out;
    for (const auto &request : m_api.requests()) {
        if (request.path().endsWith(u"/reaction"))
            out << request.json()[u"reaction"_s].toString();
    }
    return out;
}

void tst_QuickEmbedded::warnsOncePerComponentId()
{
    StdoutCapture capture;
    // Neither the explicit name nor a second slot of the same id adds a line.
    QQuickItem *root = show(R"(
        Column {
            IAMEmbeddedBanner { componentId: "orphan" }
            IAMEmbeddedBanner { componentId: "orphan" }
            IAMEmbeddedBanner { componentId: "named"; screenName: "home" }
        })");
    QVERIFY(root);
    QCoreApplication::processEvents();
    show(R"(IAMEmbeddedBanner { componentId: "orphan" })");
    QCoreApplication::processEvents();
    const QByteArray out = capture.release();
    QCOMPARE(out,
             "[VelmoraInAppMessaging][WARNING] IAMEmbeddedBanner { componentId: \"orphan\" } could "
             "not resolve a screenName and will never display. Place it under VelmoraScreen, or "
             "pass the screenName argument explicitly.\n");
}

void tst_QuickEmbedded::innermostScreenNameWins_data()
{
    QTest::addColumn<QByteArray>("explicitName");
    QTest::addColumn<bool>("moveOut");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("innermost") << QByteArray("undefined") << false << QVariant(u"inner"_s);
    QTest::newRow("moved to the outer screen")
        << QByteArray("undefined") << true << QVariant(u"outer"_s);
    QTest::newRow("explicit") << QByteArray("\"mine\"") << false << QVariant(u"mine"_s);
}

void tst_QuickEmbedded::innermostScreenNameWins()
{
    QFETCH(QByteArray, explicitName);
    QFETCH(bool, moveOut);
    QFETCH(QVariant, expected);

    // Any item declaring iamScreenName is a screen to the banners inside it.
    QVERIFY(show(R"(
        Item {
            objectName: "outer"
            property string iamScreenName: "outer"
            Item {
                Item {
                    property string iamScreenName: "inner"
                    Item { IAMEmbeddedBanner { objectName: "slot"; componentId: "c"; screenName: )"
                 + explicitName + " } }\n}\n}\n}"));
    if (moveOut)
        slot()->setParentItem(slot("outer"));
    QCOMPARE(slot()->property("resolvedScreenName"), expected);
}

void tst_QuickEmbedded::shimmerWhileLoading_data()
{
    QTest::addColumn<bool>("placeholder");

    QTest::newRow("with placeholder") << true;
    QTest::newRow("without") << false;
}

void tst_QuickEmbedded::shimmerWhileLoading()
{
    QFETCH(bool, placeholder);

    m_api.setResponse(u"/vorpex/v1/app_events/view"_s,
                      Response::json(embedded(u"hero"_s, QString(), u"Sale"_s)).delayed(500));
    QVERIFY(showScreen("showsLoadingPlaceholder: " + QByteArray(placeholder ? "true" : "false")));
    QQuickItem *shimmer = slot("iamEmbeddedShimmer");
    QTRY_VERIFY(m_api.requestCount() >= 1);
    QTRY_COMPARE(shimmer->isVisible(), placeholder);
    QCOMPARE(shimmer->property("sweeping").toBool(), placeholder);
    QCOMPARE(slot()->implicitHeight(), placeholder ? 150.0 : 0.0);

    QTRY_VERIFY(slot()->property("revealed").toBool());
    QVERIFY(!shimmer->isVisible());
    QVERIFY(!shimmer->property("sweeping").toBool());
    QTRY_COMPARE(reactions(), QStringList { u"open"_s });
}

void tst_QuickEmbedded::showsItsBanner_data()
{
    QTest::addColumn<QString>("image"); // a path on the image server, or nothing
    QTest::addColumn<QString>("title");
    QTest::addColumn<QByteArray>("screen"); // of the slots
    QTest::addColumn<bool>("revealed");
    QTest::addColumn<bool>("imageShown");
    QTest::addColumn<QString>("accessibleName");

    const QByteArray inherited = "undefined";
    QTest::newRow("image") << u"/ok.png"_s << QString() << inherited << true << true << u"Banner"_s;
    QTest::newRow("image and text, screen named")
        << u"/ok.png"_s << u"Sale"_s << QByteArray("\"home\"") << true << true << u"Sale"_s;
    QTest::newRow("text only") << QString() << u"Sale"_s << inherited << true << false << u"Sale"_s;
    QTest::newRow("failed image with text")
        << u"/missing.png"_s << u"Sale"_s << inherited << true << false << u"Sale"_s;
    // Every creative here has a button, which does not count as text.
    QTest::newRow("failed image without text")
        << u"/missing.png"_s << QString() << inherited << false << false << QString();
    QTest::newRow("another screen")
        << QString() << u"Sale"_s << QByteArray("\"cart\"") << false << false << QString();
}

void tst_QuickEmbedded::showsItsBanner()
{
    QFETCH(QString, image);
    QFETCH(QString, title);
    QFETCH(QByteArray, screen);
    QFETCH(bool, revealed);
    QFETCH(bool, imageShown);
    QFETCH(QString, accessibleName);

    const QString url = image.isEmpty() ? QString() : m_images.url(image).toString();
    m_api.setResponse(u"/vorpex/v1/app_events/view"_s,
                      Response::json(embedded(u"hero"_s, url, title)));
    // Two slots of one component report one open between them.
    QVERIFY(showScreen("screenName: " + screen));
    QTRY_VERIFY(slot()->property("banner").isValid());
    QTRY_COMPARE(slot("twin")->property("revealed").toBool(), revealed);
    QTest::qWait(100);
    QCOMPARE(slot()->property("revealed").toBool(), revealed);
    QCOMPARE(slot()->implicitHeight() > 0, revealed);
    QCOMPARE(reactions(), revealed ? QStringList { u"open"_s } : QStringList());
    QQuickItem *picture = slot("iamEmbeddedImage");
    QCOMPARE(picture && picture->isVisible(), imageShown);
    if (!revealed)
        return;

    QAccessibleInterface *accessible
        = QAccessible::queryAccessibleInterface(slot("iamEmbeddedContent"));
    QCOMPARE(accessible->role(), QAccessible::Button);
    QCOMPARE(accessible->text(QAccessible::Name), accessibleName);
    if (imageShown) {
        accessible = QAccessible::queryAccessibleInterface(picture);
        QCOMPARE(accessible->role(), QAccessible::Link);
        QCOMPARE(accessible->text(QAccessible::Name), u"Open link"_s);
    }
    QTest::mouseClick(m_window.get(), Qt::LeftButton, {},
                      slot()->mapToScene(QPointF(150, slot()->height() / 2)).toPoint());
    QTRY_COMPARE(reactions(), (QStringList { u"open"_s, u"click"_s }));
    QCOMPARE(m_opened, QList { QUrl(u"https://shop.example/sale"_s) });
}

VELMORA_QUICK_TEST_MAIN(tst_QuickEmbedded)

#include "tst_quick_embedded.moc"
