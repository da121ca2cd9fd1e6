// IAMEmbeddedBanner in a QML host: screens fetched from a loopback back end, images from a
// loopback HTTPS server, reactions read back from the requests the back end received.
#include "../quicktestsupport.h"

#include <QAccessible>
#include <QTemporaryFile>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

// The answer to a view: one banner for component "hero", with a title unless it is empty.
QByteArray embedded(const QString &imageUrl, const QString &title)
{
    const QString titleJson
        = title.isEmpty() ? QString() : uR"(, "title": {"text": "%1"})"_s.arg(title);
    return uR"({"status": "ok", "actions": [{"meta": {"scenario_id": "s-hero", "updated_at": "2026-01-01T00:00:00Z", "priority": 10, "action_type": "embedded_banner"}, "creative_type": "single_message", "creative": {"image": {"url": "%1", "link_url": "https://shop.example/sale"}, "button": {"text": "Shop"}%2}, "layout": {"component_id": "hero"}}]})"_s
        .arg(imageUrl, titleJson)
        .toUtf8();
}

// What `run` writes to standard output.
QByteArray standardOutputOf(const std::function<void()> &run)
{
    QTemporaryFile file;
    file.open();
    std::fflush(stdout);
    const int saved = ::dup(STDOUT_FILENO);
    ::dup2(file.handle(), STDOUT_FILENO);
    run();
    std::fflush(stdout);
    ::dup2(saved, STDOUT_FILENO);
    ::close(saved);
    file.seek(0);
    return file.readAll();
}

} // namespace

class tst_QuickEmbedded : public QObject
{
    Q_OBJECT

    QQuickItem *show(const QByteArray &body)
    {
        m_root = velmora::test::createItem(
            m_engine,
            "import QtQuick\nimport Velmora.InAppMessaging\nItem { width: 300; height: 600\n" + body
                + "\n}",
            m_window.get());
        return m_root.get();
    }

    // Slots named "slot" and "twin" for component "hero" under VelmoraScreen "home".
    QQuickItem *showScreen(const QByteArray &slotProperties)
    {
        return show(R"(VelmoraScreen { screenName: "home"; anchors.fill: parent; Column { width: 300
                IAMEmbeddedBanner { objectName: "slot"; componentId: "hero"; width: 300; )"
                    + slotProperties + R"( }
                IAMEmbeddedBanner { objectName: "twin"; componentId: "hero"; width: 300; )"
                    + slotProperties + " } } }");
    }

    QQuickItem *slot(const char *name = "slot") const
    {
        return m_root->findChild<QQuickItem *>(QString::fromLatin1(name));
    }

    QStringList reactions() const { return velmora::test::reactions(m_api); }

    HttpServer m_api;
    HttpServer m_images;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickWindow> m_window;
    std::unique_ptr<QQuickItem> m_root;
    QStringList m_opened;
    velmora::test::LinkRecorder m_links { &m_opened };

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(velmora::test::listenLoopback(m_api, m_images));
        m_images.setResponse(u"/ok.png"_s,
                             Response::withStatus(200, velmora::test::png({ 40, 20 })));
        velmora::test::setUpFacade(m_api);
    }

    void init()
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

    void cleanup()
    {
        m_root.reset();
        m_window.reset();
    }

    void warnsOncePerComponentId()
    {
        // Neither the explicit name nor a second slot of the same id adds a line.
        bool created = false;
        const QByteArray out
            = standardOutputOf([this, &created] {
                  created = show(R"(
                Column {
                    IAMEmbeddedBanner { componentId: "orphan" }
                    IAMEmbeddedBanner { componentId: "orphan" }
                    IAMEmbeddedBanner { componentId: "named"; screenName: "home" }
                })") != nullptr;
                  QCoreApplication::processEvents();
                  show(R"(IAMEmbeddedBanner { componentId: "orphan" })");
                  QCoreApplication::processEvents();
              });
        QVERIFY(created && m_root);
        QCOMPARE(out,
                 "[VelmoraInAppMessaging][WARNING] IAMEmbeddedBanner { componentId: \"orphan\" } "
                 "could not resolve a screenName and will never display. Place it under "
                 "VelmoraScreen, or pass the screenName argument explicitly.\n");
    }

    void innermostScreenNameWins_data()
    {
        QTest::addColumn<QByteArray>("explicitName");
        QTest::addColumn<bool>("moveOut");
        QTest::addColumn<QString>("expected");

        QTest::newRow("innermost") << QByteArray("undefined") << false << u"inner"_s;
        QTest::newRow("moved to the outer screen") << QByteArray("undefined") << true << u"outer"_s;
        QTest::newRow("explicit") << QByteArray("\"mine\"") << false << u"mine"_s;
    }

    void innermostScreenNameWins()
    {
        QFETCH(QByteArray, explicitName);
        QFETCH(bool, moveOut);
        QFETCH(QString, expected);

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
        QCOMPARE(slot()->property("resolvedScreenName"), QVariant(expected));
    }

    void showsItsBanner_data()
    {
        QTest::addColumn<QString>("image"); // a path on the image server, or nothing
        QTest::addColumn<QString>("title");
        QTest::addColumn<QByteArray>("screen"); // of the slots
        QTest::addColumn<bool>("revealed");
        QTest::addColumn<bool>("imageShown");
        QTest::addColumn<QString>("accessibleName"); // the title, or "Banner" without one
        QTest::addColumn<QByteArray>("placeholder"); // set: the answer is slow, the slot shows it

        const auto row
            = [](const char *name, const QString &image, const char *screen, bool revealed,
                 bool imageShown, const char *title, const char *placeholder = "") {
                  QTest::newRow(name)
                      << image << QString::fromUtf8(title) << QByteArray(screen) << revealed
                      << imageShown << QString::fromUtf8(revealed && !*title ? "Banner" : title)
                      << QByteArray(placeholder);
              };
        const char *inherited = "undefined";
        row("image", u"/ok.png"_s, inherited, true, true, "");
        row("image and text, screen named", u"/ok.png"_s, "\"home\"", true, true, "Sale");
        row("text only", {}, inherited, true, false, "Sale");
        row("text only, shimmer while loading", {}, inherited, true, false, "Sale", "true");
        row("text only, nothing while loading", {}, inherited, true, false, "Sale", "false");
        row("failed image with text", u"/missing.png"_s, inherited, true, false, "Sale");
        // Every creative here has a button, which does not count as text.
        row("failed image without text", u"/missing.png"_s, inherited, false, false, "");
        row("another screen", {}, "\"cart\"", false, false, "Sale");
    }

    void showsItsBanner()
    {
        QFETCH(QString, image);
        QFETCH(QString, title);
        QFETCH(QByteArray, screen);
        QFETCH(bool, revealed);
        QFETCH(bool, imageShown);
        QFETCH(QString, accessibleName);
        QFETCH(QByteArray, placeholder);

        const QString url = image.isEmpty() ? QString() : m_images.url(image).toString();
        m_api.setResponse(
            u"/vorpex/v1/app_events/view"_s,
            Response::json(embedded(url, title)).delayed(placeholder.isEmpty() ? 0 : 500));
        // Two slots of one component report one open between them.
        QVERIFY(
            showScreen("screenName: " + screen
                       + (placeholder.isEmpty() ? QByteArray()
                                                : "; showsLoadingPlaceholder: " + placeholder)));
        QQuickItem *shimmer = slot("iamEmbeddedShimmer");
        if (!placeholder.isEmpty()) {
            QTRY_VERIFY(m_api.requestCount() >= 1);
            QTRY_COMPARE(shimmer->isVisible(), placeholder == "true");
            QCOMPARE(shimmer->property("sweeping").toBool(), placeholder == "true");
            QCOMPARE(slot()->implicitHeight(), placeholder == "true" ? 150.0 : 0.0);
        }
        QTRY_VERIFY(slot()->property("banner").isValid());
        QTRY_COMPARE(slot("twin")->property("revealed").toBool(), revealed);
        QTest::qWait(100);
        QCOMPARE(slot()->property("revealed").toBool(), revealed);
        QCOMPARE(slot()->implicitHeight() > 0, revealed);
        QCOMPARE(reactions(), revealed ? QStringList { u"open:s-hero"_s } : QStringList());
        QQuickItem *picture = slot("iamEmbeddedImage");
        QCOMPARE(picture && picture->isVisible(), imageShown);
        if (!revealed)
            return;
        QVERIFY(!shimmer->isVisible());
        QVERIFY(!shimmer->property("sweeping").toBool());

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
        QTRY_COMPARE(reactions(), (QStringList { u"open:s-hero"_s, u"click:s-hero"_s }));
        QCOMPARE(m_opened, QStringList { u"link:https://shop.example/sale"_s });
    }
};

VELMORA_QUICK_TEST_MAIN(tst_QuickEmbedded)

#include "tst_quick_embedded.moc"
