// VelmoraScreen and its popup banners as a QML host meets them, against loopback back ends.
#include "../quicktestsupport.h"

#include <QAccessible>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::png;

namespace {

// A popup banner action; `creative` and `layout` are JSON members without braces.
QByteArray banner(const QByteArray &id, const QByteArray &creative, const QByteArray &layout)
{
    return R"({"meta": {"scenario_id": ")" + id
        + R"(", "updated_at": "2026-01-01T00:00:00Z", "priority": 50, "action_type": "popup_banner"}, "creative_type": "single_message", "creative": {)"
        + creative + R"(}, "layout": {)" + layout + "}}";
}

QByteArray response(const QList<QByteArray> &actions)
{
    return R"({"status": "ok", "actions": [)" + actions.join(',') + "]}";
}

} // namespace

class tst_QuickScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void fetchesOnEachAppearanceAndClearsOnHide_data();
    void fetchesOnEachAppearanceAndClearsOnHide();
    void customParametersFollowTheBuilder_data();
    void customParametersFollowTheBuilder();
    void lateAnswerOfAGoneScreenStaysOut();
    void placement_data();
    void placement();
    void innermostScreenNameAndOneOverlay();
    void openAndImageFailure_data();
    void openAndImageFailure();
    void clickAndCloseReachTheServerInOrder();

private:
    QQuickWindow *load(const QByteArray &screenBody, const QByteArray &customParameter = "[]");
    QList<QQuickItem *> views() const;
    QQuickItem *view() const;
    QStringList requests(const QString &kind) const;
    QJsonArray lastViewCustom() const;
    QString imageUrl(const QString &path) const { return m_images.url(path).toString(); }

    HttpServer m_api;
    HttpServer m_images;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QObject> m_root;
    QStringList m_log;
    velmora::test::LinkRecorder m_links { &m_log };
};

void tst_QuickScreen::initTestCase()
{
    QVERIFY(velmora::test::listenLoopback(m_api, m_images));
    m_images.setResponse(u"/wide.png"_s, Response::withStatus(200, png({ 400, 100 }, Qt::red)));
    m_images.setResponse(u"/missing.png"_s, Response::withStatus(404));
    velmora::test::setUpFacade(m_api);
    velmora::test::logFacadeSignals(this, &m_log, u"error:"_s);
}

void tst_QuickScreen::init()
{
    m_api.clear();
    m_api.setDefaultResponse(Response::json(response({})));
    m_log.clear();
    m_engine = std::make_unique<QQmlEngine>();
}

void tst_QuickScreen::cleanup()
{
    m_root.reset();
    m_engine.reset();
}

QQuickWindow *tst_QuickScreen::load(const QByteArray &screenBody, const QByteArray &customParameter)
{
    const QByteArray qml = R"(
        import QtQuick
        import QtQuick.Controls
        import Velmora.InAppMessaging
        Window {
            width: 390; height: 844; visible: true; color: "#eeeeee"
            property bool screenVisible: true
            property bool parentVisible: true
            property int evaluations: 0
            property string plan: "gold"
            property int contentClicks: 0
            property alias screen: screen
            function storeBanners() { return Object.keys(IAMSupport.popupBannerStore.popupBanners).join(",") }
            // Another page pushed over the screen's page, popped again.
            property bool covered: false
            onCoveredChanged: covered ? stack.push(cover) : stack.pop()
            Component { id: cover; Rectangle { color: "white" } }
            StackView {
                id: stack
                anchors.fill: parent
                initialItem: Item {
                    Item {
                        anchors.fill: parent
                        visible: parentVisible
                        VelmoraScreen {
                            id: screen
                            objectName: "screen"
                            anchors.fill: parent
                            visible: screenVisible
                            screenName: "home"
                            customParameter: function () { evaluations++; return )"
        + customParameter + R"( }
                            MouseArea { anchors.fill: parent; onClicked: contentClicks++ }
                            )"
        + screenBody + R"(
                        }
                    }
                }
            }
        })";
    m_root = velmora::test::createQml(*m_engine, qml);
    auto *window = qobject_cast<QQuickWindow *>(m_root.get());
    return window && QTest::qWaitForWindowExposed(window) ? window : nullptr;
}

QList<QQuickItem *> tst_QuickScreen::views() const
{
    // Repeater delegates have no QObject parent: walk the items.
    QList<QQuickItem *> found;
    QList<QQuickItem *> pending { qobject_cast<QQuickWindow *>(m_root.get())->contentItem() };
    while (!pending.isEmpty()) {
        QQuickItem *item = pending.takeLast();
        if (item->objectName() == u"popupBanner")
            found << item;
        pending << item->childItems();
    }
    return found;
}

QQuickItem *tst_QuickScreen::view() const
{
    const QList<QQuickItem *> all = views();
    return all.size() == 1 ? all.first() : nullptr;
}

QStringList tst_QuickScreen::requests(const QString &kind) const
{
    QStringList out;
    for (const auto &request : m_api.requests()) {
        if (!request.path().endsWith(kind))
            continue;
        const QJsonObject json = request.json().object();
        out << (kind == u"/view"
                    ? json[u"meta"_s][u"screen_name"_s].toString()
                    : json[u"reaction"_s].toString() + u':' + json[u"scenario_id"_s].toString());
    }
    return out;
}

QJsonArray tst_QuickScreen::lastViewCustom() const
{
    const auto all = m_api.requests();
    const auto view = std::find_if(all.crbegin(), all.crend(), [](const auto &request) {
        return request.path().endsWith(u"/view");
    });
    return view == all.crend() ? QJsonArray() : view->json()[u"custom"_s].toArray();
}

void tst_QuickScreen::fetchesOnEachAppearanceAndClearsOnHide_data()
{
    QTest::addColumn<QByteArray>("hidden"); // set to false to hide, true to show again
    QTest::newRow("screen hidden") << QByteArray("screenVisible");
    QTest::newRow("page covered") << QByteArray("!covered");
    QTest::newRow("ancestor hidden") << QByteArray("parentVisible");
    QTest::newRow("window hidden") << QByteArray("visible");
}

void tst_QuickScreen::fetchesOnEachAppearanceAndClearsOnHide()
{
    QFETCH(QByteArray, hidden);
    m_api.setDefaultResponse(Response::json(response({ banner(
        "s1", R"("image": {"url": ""}, "title": {"text": "Hello"})", R"("location": "top")") })));
    QQuickWindow *window = load("", R"([CustomParameter.string("plan", plan)])");
    QVERIFY(window);
    QTRY_VERIFY(view() && view()->property("shown").toBool());
    QCOMPARE(requests(u"/view"_s), QStringList { u"home"_s });
    QCOMPARE(m_root->property("evaluations").toInt(), 1);

    // Gone at once, silently: no dismissal, no close.
    const bool inverted = hidden.startsWith('!');
    if (inverted)
        hidden.remove(0, 1);
    window->setProperty(hidden.constData(), inverted);
    QTRY_VERIFY(views().isEmpty());
    QVariant keys;
    QMetaObject::invokeMethod(m_root.get(), "storeBanners", Q_RETURN_ARG(QVariant, keys));
    QCOMPARE(keys.toString(), QString());
    QVERIFY(!m_log.contains(u"dismissed"_s));

    // Back again: a new screen view, with the parameters of that moment.
    m_root->setProperty("plan", u"platinum"_s);
    window->setProperty(hidden.constData(), !inverted);
    QTRY_COMPARE(requests(u"/view"_s).size(), 2);
    QCOMPARE(m_root->property("evaluations").toInt(), 2);
    QCOMPARE(lastViewCustom().first()[u"value"_s], u"platinum"_s);
    QTRY_VERIFY(view() && view()->property("shown").toBool());
    QVERIFY(!requests(u"/reaction"_s).contains(u"close:s1"_s));
}

void tst_QuickScreen::customParametersFollowTheBuilder_data()
{
    QTest::addColumn<QByteArray>("entries");
    QTest::addColumn<QByteArray>("custom"); // the request's "custom" member
    QTest::addColumn<QString>("warning");

    QTest::newRow("every type")
        << QByteArray(R"([CustomParameter.string("s", "a"), CustomParameter.integer("i", -42),
            CustomParameter.double("d", 0.5), CustomParameter.boolean("b", true),
            CustomParameter.stringArray("sa", ["x", "y"]), CustomParameter.integerArray("ia", [1, 2]),
            CustomParameter.doubleArray("da", [1.5]), CustomParameter.booleanArray("ba", [])])")
        << QByteArray(R"([{"key":"s","value":"a"},{"key":"i","value":-42},{"key":"d","value":0.5},
            {"key":"b","value":true},{"key":"sa","value":["x","y"]},{"key":"ia","value":[1,2]},
            {"key":"da","value":[1.5]},{"key":"ba","value":[]}])")
        << QString();
    QTest::newRow("repeated key keeps its place, takes the last value")
        << QByteArray(R"([CustomParameter.string("plan", "a"), CustomParameter.integer("n", 1),
            CustomParameter.string("plan", "b"), CustomParameter.string("", "empty key")])")
        << QByteArray(
               R"([{"key":"plan","value":"b"},{"key":"n","value":1},{"key":"","value":"empty key"}])")
        << QString();
    QTest::newRow("not an entry is left out")
        << QByteArray(R"([{ key: "x", value: 1 }, CustomParameter.boolean("b", false)])")
        << QByteArray(R"([{"key":"b","value":false}])") << u"element 0 is not"_s;
    QTest::newRow("fractional integer throws")
        << QByteArray(R"([CustomParameter.integer("age", 1.5)])") << QByteArray("[]")
        << u"must be a whole number"_s;
    QTest::newRow("number as string throws") << QByteArray(R"([CustomParameter.string("plan", 3)])")
                                             << QByteArray("[]") << u"must be a string"_s;
    QTest::newRow("mixed array throws")
        << QByteArray(R"([CustomParameter.booleanArray("flags", [true, 1])])") << QByteArray("[]")
        << u"array of booleans"_s;
    QTest::newRow("key must be text") << QByteArray(R"([CustomParameter.string(7, "x")])")
                                      << QByteArray("[]") << u"key must be a string"_s;
    // As with the C++ builder, a non-finite number is an entry; the request cannot carry it.
    QTest::newRow("non-finite double")
        << QByteArray(R"([CustomParameter.double("ratio", NaN)])") << QByteArray() << QString();
}

void tst_QuickScreen::customParametersFollowTheBuilder()
{
    QFETCH(QByteArray, entries);
    QFETCH(QByteArray, custom);
    QFETCH(QString, warning);
    if (!warning.isEmpty())
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QRegularExpression::escape(warning)));
    QVERIFY(load("", entries));
    if (custom.isEmpty()) {
        QTRY_VERIFY(m_log.size() == 1 && m_log.first().contains(u"floating-point"_s));
        QCOMPARE(requests(u"/view"_s), QStringList());
        return;
    }
    QTRY_COMPARE(requests(u"/view"_s).size(), 1);
    QCOMPARE(lastViewCustom(), QJsonDocument::fromJson(custom).array());
}

void tst_QuickScreen::lateAnswerOfAGoneScreenStaysOut()
{
    m_api.setDefaultResponse(
        Response::json(
            response({ banner("late", R"("image": {"url": ""}, "title": {"text": "Late"})",
                              R"("location": "bottom")") }))
            .delayed(300));
    QQuickWindow *window = load("");
    QVERIFY(window);
    QTRY_COMPARE(requests(u"/view"_s).size(), 1);
    window->setProperty("screenVisible", false);
    QTest::qWait(600);
    QVariant keys;
    QMetaObject::invokeMethod(m_root.get(), "storeBanners", Q_RETURN_ARG(QVariant, keys));
    QCOMPARE(keys.toString(), QString());
    QVERIFY(views().isEmpty());
    QCOMPARE(requests(u"/reaction"_s), QStringList());
}

void tst_QuickScreen::placement_data()
{
    QTest::addColumn<QByteArray>("layout");
    QTest::addColumn<QRect>("root"); // in the 390 x 844 overlay; -1 for "not checked"
    QTest::addColumn<int>("cardWidth");

    // Side banners without a size take three quarters of the width at their edge.
    QTest::newRow("top left") << QByteArray(R"("location": "top_left")") << QRect(0, 0, 293, -1)
                              << 293;
    QTest::newRow("top right") << QByteArray(R"("location": "top_right")") << QRect(98, 0, 292, -1)
                               << 292;
    QTest::newRow("sized side is not limited") << QByteArray(
        R"("location": "center_left", "size": {"width": {"length": 350, "unit": "px"}})")
                                               << QRect(0, -1, 390, -1) << 350;
    QTest::newRow("percentage of the window") << QByteArray(
        R"("location": "bottom", "size": {"width": {"length": 50, "unit": "percentage"}})")
                                              << QRect(0, -1, 390, -1) << 195;
    QTest::newRow("margins") << QByteArray(
        R"("location": "bottom_right", "margin": {"top": 4, "bottom": 10, "left": 6, "right": 12})")
                             << QRect(98, -1, 292, -1) << 274;
}

void tst_QuickScreen::placement()
{
    QFETCH(QByteArray, layout);
    QFETCH(QRect, root);
    QFETCH(int, cardWidth);
    m_api.setDefaultResponse(Response::json(
        response({ banner("p", R"("image": {"url": ""}, "title": {"text": "Placed"})", layout) })));
    QQuickWindow *window = load("");
    QVERIFY(window);
    QTRY_VERIFY(view() && view()->property("shown").toBool());
    QQuickItem *banner = view();
    const QRectF frame(banner->position(), banner->size());
    const QString location = QJsonDocument::fromJson("{" + layout + "}")[u"location"_s].toString();
    QCOMPARE(frame.x(), root.x());
    QCOMPARE(frame.width(), root.width());
    if (location.startsWith(u"top"))
        QCOMPARE(frame.top(), 0);
    else if (location.startsWith(u"bottom"))
        QCOMPARE(frame.bottom(), 844);
    else
        QVERIFY(qAbs(frame.center().y() - 422) <= 1);
    auto *card = banner->findChild<QQuickItem *>(u"card"_s);
    QCOMPARE(card->width(), cardWidth);
    QVERIFY(card->height() > 0);

    // The overlay lets a tap beside the card through to the screen's content.
    const QPointF beside = location.startsWith(u"top") ? QPointF(195, 600) : QPointF(195, 60);
    QTest::mouseClick(window, Qt::LeftButton, {}, beside.toPoint());
    QCOMPARE(m_root->property("contentClicks").toInt(), 1);
}

void tst_QuickScreen::innermostScreenNameAndOneOverlay()
{
    m_api.setDefaultResponse(Response::json(
        response({ banner("n", R"("image": {"url": ""}, "title": {"text": "Nested"})",
                          R"("location": "center")") })));
    QVERIFY(load(R"(VelmoraScreen {
                        anchors.fill: parent
                        screenName: "inner"
                        Item { Item { objectName: "deep" } }
                    })"));
    auto *deep = m_root->findChild<QQuickItem *>(u"deep"_s);
    QVERIFY(deep);
    QString resolved;
    for (QQuickItem *item = deep; item; item = item->parentItem()) {
        if (item->metaObject()->indexOfProperty("iamScreenName") >= 0) {
            resolved = item->property("iamScreenName").toString();
            break;
        }
    }
    QCOMPARE(resolved, u"inner"_s);
    // Both screens fetch (the later cancels the earlier); the banner shows once, on the screen
    // it was fetched for.
    QTRY_VERIFY(view() && view()->property("shown").toBool());
    QTest::qWait(100);
    QCOMPARE(views().size(), 1);
}

void tst_QuickScreen::openAndImageFailure_data()
{
    QTest::addColumn<QByteArray>("creative");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<bool>("imageShown");
    QTest::addColumn<QStringList>("log");

    const QString missing = imageUrl(u"/missing.png"_s);
    QTest::newRow("image and title") << (R"("image": {"url": ")" + imageUrl(u"/wide.png"_s).toUtf8()
                                         + R"("}, "title": {"text": "Sale"})")
                                     << true << true << QStringList();
    QTest::newRow("image only") << (R"("image": {"url": ")" + imageUrl(u"/wide.png"_s).toUtf8()
                                    + R"("})")
                                << true << true << QStringList();
    QTest::newRow("failed image, body stays")
        << (R"("image": {"url": ")" + missing.toUtf8() + R"("}, "body": {"text": "Text"})") << true
        << false << QStringList();
    QTest::newRow("failed image, a button is text here")
        << (R"("image": {"url": ")" + missing.toUtf8() + R"("}, "button": {"text": "Go"})") << true
        << false << QStringList();
    QTest::newRow("failed image, nothing else")
        << (R"("image": {"url": ")" + missing.toUtf8() + R"("}, "title": {"text": ""})") << false
        << false << QStringList { u"error:"_s };
}

void tst_QuickScreen::openAndImageFailure()
{
    QFETCH(QByteArray, creative);
    QFETCH(bool, shown);
    QFETCH(bool, imageShown);
    QFETCH(QStringList, log);
    m_api.setDefaultResponse(
        Response::json(response({ banner("o", creative, R"("location": "top")") })));
    QVERIFY(load(""));
    if (shown) {
        QTRY_COMPARE(requests(u"/reaction"_s), QStringList { u"open:o"_s });
        QVERIFY(view() && view()->property("shown").toBool());
        QCOMPARE(view()->findChild<QQuickItem *>(u"coverImage"_s)->isVisible(), imageShown);
    } else {
        QTRY_VERIFY(!m_log.isEmpty());
        QTRY_VERIFY(views().isEmpty());
    }
    QTest::qWait(200);
    QCOMPARE(requests(u"/reaction"_s).size(), shown ? 1 : 0);
    QCOMPARE(m_log.size(), log.size());
    for (qsizetype i = 0; i < log.size(); ++i)
        QVERIFY2(m_log.at(i).startsWith(log.at(i)), qPrintable(m_log.at(i)));
}

void tst_QuickScreen::clickAndCloseReachTheServerInOrder()
{
    m_api.setDefaultResponse(Response::json(response(
        { banner("c",
                 R"("image": {"url": ")" + imageUrl(u"/wide.png"_s).toUtf8()
                     + R"(", "link_url": "https://example.com/image"}, "title": {"text": "Tap"},
            "button": {"text": "Buy", "link_url": "https://example.com/button"})",
                 R"("location": "center")") })));
    QQuickWindow *window = load("");
    QVERIFY(window);
    QTRY_COMPARE(requests(u"/reaction"_s), QStringList { u"open:c"_s });
    QTRY_VERIFY(view()->property("opacity").toReal() == 1);
    auto *card = view()->findChild<QQuickItem *>(u"card"_s);
    auto *image = view()->findChild<QQuickItem *>(u"coverImage"_s);
    auto *button = view()->findChild<QQuickItem *>(u"button"_s);
    auto *close = view()->findChild<QQuickItem *>(u"closeButton"_s);
    const auto tap = [window](QQuickItem *item, QPointF at) {
        QTest::mouseClick(window, Qt::LeftButton, {}, item->mapToScene(at).toPoint());
    };

    const auto accessible = [](QQuickItem *item) {
        QAccessibleInterface *interface = QAccessible::queryAccessibleInterface(item);
        return interface ? std::pair(interface->role(), interface->text(QAccessible::Name))
                         : std::pair(QAccessible::NoRole, QString());
    };
    QCOMPARE(accessible(card), std::pair(QAccessible::Grouping, u"Tap"_s));
    QCOMPARE(accessible(image), std::pair(QAccessible::Link, u"Open link"_s));
    QCOMPARE(accessible(button), std::pair(QAccessible::Button, u"Buy"_s));

    tap(image, QPointF(image->width() / 2, image->height() / 2));
    QCOMPARE(m_log, (QStringList { u"clicked"_s, u"link:https://example.com/image"_s }));
    tap(button, QPointF(button->width() / 2, 20));
    QCOMPARE(m_log.mid(2), (QStringList { u"clicked"_s, u"link:https://example.com/button"_s }));
    QTRY_COMPARE(requests(u"/reaction"_s).size(), 3);

    tap(close, QPointF(22, 22));
    QCOMPARE(m_log.mid(4), QStringList { u"dismissed"_s });
    QTRY_VERIFY(views().isEmpty());
    QTRY_COMPARE(requests(u"/reaction"_s),
                 (QStringList { u"open:c"_s, u"click:c"_s, u"click:c"_s, u"close:c"_s }));
    QVERIFY(card); // the banner stayed through both clicks
    QCOMPARE(m_root->property("contentClicks").toInt(), 0);
}

VELMORA_QUICK_TEST_MAIN(tst_QuickScreen)

#include "tst_quick_screen.moc"
