// VelmoraScreen and its popup banners as a QML host meets them, against loopback back ends.
#include "../quicktestsupport.h"

#include <QAccessible>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::png;

namespace {

// An answer of one popup banner; `creative` and `layout` are JSON members without braces.
QByteArray response(const QByteArray &id, const QByteArray &creative, const QByteArray &layout)
{
    return R"({"status": "ok", "actions": [{"meta": {"scenario_id": ")" + id
        + R"(", "updated_at": "2026-01-01T00:00:00Z", "priority": 50, "action_type": "popup_banner"}, "creative_type": "single_message", "creative": {)"
        + creative + R"(}, "layout": {)" + layout + "}}]}";
}

// A creative of a title and an empty image, which shows without loading anything.
QByteArray titled(const QByteArray &title)
{
    return R"("image": {"url": ""}, "title": {"text": ")" + title + R"("})";
}

// A window whose VelmoraScreen "home" holds `screenBody`, under a page and an ancestor that can
// be hidden, with `customParameter` as its parameters.
QByteArray hostQml(const QByteArray &screenBody, const QByteArray &customParameter)
{
    return R"(
        import QtQuick
        import QtQuick.Controls
        import Velmora.InAppMessaging
        Window {
            width: 390; height: 844; visible: true; color: "#eeeeee"
            property bool screenVisible: true; property bool parentVisible: true
            property int evaluations: 0; property string plan: "gold"; property int contentClicks: 0
            readonly property string storeBanners: Object.keys(IAMSupport.popupBannerStore.popupBanners).join(",")
            // Another page pushed over the page that holds the screen, popped again.
            property bool covered: false
            onCoveredChanged: covered ? stack.push(cover) : stack.pop()
            Component { id: cover; Rectangle { color: "white" } }
            StackView {
                id: stack
                anchors.fill: parent
                initialItem: Item {
                    Item {
                        anchors.fill: parent; visible: parentVisible
                        VelmoraScreen {
                            anchors.fill: parent; visible: screenVisible; screenName: "home"
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
}

} // namespace

class tst_QuickScreen : public QObject
{
    Q_OBJECT

    QQuickWindow *load(const QByteArray &screenBody, const QByteArray &customParameter = "[]")
    {
        m_root = velmora::test::createQml(*m_engine, hostQml(screenBody, customParameter));
        auto *window = qobject_cast<QQuickWindow *>(m_root.get());
        return window && QTest::qWaitForWindowExposed(window) ? window : nullptr;
    }

    QList<QQuickItem *> views() const
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

    QQuickItem *view() const
    {
        const QList<QQuickItem *> all = views();
        return all.size() == 1 ? all.first() : nullptr;
    }

    // The screen views the back end received.
    QList<QJsonObject> viewRequests() const
    {
        QList<QJsonObject> out;
        for (const auto &request : m_api.requests()) {
            if (request.path().endsWith(u"/view"))
                out << request.json().object();
        }
        return out;
    }

    QStringList reactions() const { return velmora::test::reactions(m_api); }

    QString imageUrl(const QString &path) const { return m_images.url(path).toString(); }

    // The back end answers every screen view with this one banner.
    void serve(const QByteArray &id, const QByteArray &creative, const QByteArray &location,
               int delayMs = 0)
    {
        m_api.setDefaultResponse(
            Response::json(response(id, creative, R"("location": )" + location)).delayed(delayMs));
    }

    HttpServer m_api;
    HttpServer m_images;
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QObject> m_root;
    QStringList m_log;
    velmora::test::LinkRecorder m_links { &m_log };

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(velmora::test::listenLoopback(m_api, m_images));
        m_images.setResponse(u"/wide.png"_s, Response::withStatus(200, png({ 400, 100 }, Qt::red)));
        m_images.setResponse(u"/missing.png"_s, Response::withStatus(404));
        velmora::test::setUpFacade(m_api);
        velmora::test::logFacadeSignals(this, &m_log, u"error:"_s);
    }

    void init()
    {
        m_api.clear();
        m_api.setDefaultResponse(Response::json(R"({"status": "ok", "actions": []})"));
        m_log.clear();
        m_engine = std::make_unique<QQmlEngine>();
    }

    void cleanup()
    {
        m_root.reset();
        m_engine.reset();
    }

    void fetchesOnEachAppearanceAndClearsOnHide_data()
    {
        QTest::addColumn<QByteArray>("hidden"); // set to false to hide, true to show again
        QTest::newRow("screen hidden") << QByteArray("screenVisible");
        QTest::newRow("page covered") << QByteArray("!covered");
        QTest::newRow("ancestor hidden") << QByteArray("parentVisible");
        QTest::newRow("window hidden") << QByteArray("visible");
    }

    void fetchesOnEachAppearanceAndClearsOnHide()
    {
        QFETCH(QByteArray, hidden);
        serve("s1", titled("Hello"), R"("top")");
        QQuickWindow *window = load("", R"([CustomParameter.string("plan", plan)])");
        QVERIFY(window);
        QTRY_VERIFY(view() && view()->property("shown").toBool());
        QCOMPARE(viewRequests().size(), 1);
        QCOMPARE(viewRequests()[0][u"meta"_s][u"screen_name"_s], u"home"_s);
        QCOMPARE(m_root->property("evaluations").toInt(), 1);
        QCOMPARE(m_root->property("storeBanners").toString(), u"top"_s);

        // Gone at once, silently: no dismissal, no close.
        const bool inverted = hidden.startsWith('!');
        if (inverted)
            hidden.remove(0, 1);
        const auto show
            = [&](bool shown) { window->setProperty(hidden.constData(), inverted != shown); };
        show(false);
        QTRY_VERIFY(views().isEmpty());
        QCOMPARE(m_root->property("storeBanners").toString(), QString());
        QVERIFY(!m_log.contains(u"dismissed"_s));

        // Back again: a new screen view, with the parameters of that moment.
        m_root->setProperty("plan", u"platinum"_s);
        show(true);
        QTRY_COMPARE(viewRequests().size(), 2);
        QCOMPARE(m_root->property("evaluations").toInt(), 2);
        QCOMPARE(viewRequests().last()[u"custom"_s][0][u"value"_s], u"platinum"_s);
        QTRY_VERIFY(view() && view()->property("shown").toBool());

        // An answer that arrives after the screen went again stays out.
        serve("late", titled("Late"), R"("bottom")", 300);
        show(false);
        QTRY_VERIFY(views().isEmpty());
        show(true);
        QTRY_COMPARE(viewRequests().size(), 3);
        show(false);
        QTest::qWait(600);
        QCOMPARE(m_root->property("storeBanners").toString(), QString());
        QVERIFY(views().isEmpty());
        QCOMPARE(reactions(), (QStringList { u"open:s1"_s, u"open:s1"_s }));
    }

    void customParametersFollowTheBuilder_data()
    {
        QTest::addColumn<QByteArray>("entries");
        QTest::addColumn<QByteArray>("custom"); // the request's "custom" member
        QTest::addColumn<QString>("warning");

        const auto row = [](const char *name, const char *entries, const char *custom,
                            const char *warning = "") {
            QTest::newRow(name) << QByteArray(entries) << QByteArray(custom)
                                << QString::fromUtf8(warning);
        };
        row("every type", R"([CustomParameter.string("s", "a"), CustomParameter.integer("i", -42),
            CustomParameter.double("d", 0.5), CustomParameter.boolean("b", true),
            CustomParameter.stringArray("sa", ["x", "y"]), CustomParameter.integerArray("ia", [1, 2]),
            CustomParameter.doubleArray("da", [1.5]), CustomParameter.booleanArray("ba", [])])",
            R"([{"key":"s","value":"a"},{"key":"i","value":-42},{"key":"d","value":0.5},
            {"key":"b","value":true},{"key":"sa","value":["x","y"]},{"key":"ia","value":[1,2]},
            {"key":"da","value":[1.5]},{"key":"ba","value":[]}])");
        row("repeated key keeps its place, takes the last value",
            R"([CustomParameter.string("plan", "a"), CustomParameter.integer("n", 1),
            CustomParameter.string("plan", "b"), CustomParameter.string("", "empty key")])",
            R"([{"key":"plan","value":"b"},{"key":"n","value":1},{"key":"","value":"empty key"}])");
        row("not an entry is left out",
            R"([{ key: "x", value: 1 }, CustomParameter.boolean("b", false)])",
            R"([{"key":"b","value":false}])", "element 0 is not");
        row("fractional integer throws", R"([CustomParameter.integer("age", 1.5)])", "[]",
            "must be a whole number");
        row("number as string throws", R"([CustomParameter.string("plan", 3)])", "[]",
            "must be a string");
        row("mixed array throws", R"([CustomParameter.booleanArray("flags", [true, 1])])", "[]",
            "array of booleans");
        row("key must be text", R"([CustomParameter.string(7, "x")])", "[]",
            "key must be a string");
        // As with the C++ builder, a non-finite number is an entry; the request cannot carry it.
        row("non-finite double", R"([CustomParameter.double("ratio", NaN)])", "");
    }

    void customParametersFollowTheBuilder()
    {
        QFETCH(QByteArray, entries);
        QFETCH(QByteArray, custom);
        QFETCH(QString, warning);
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg,
                                 QRegularExpression(QRegularExpression::escape(warning)));
        QVERIFY(load("", entries));
        if (custom.isEmpty()) {
            QTRY_VERIFY(m_log.size() == 1 && m_log.first().contains(u"floating-point"_s));
            QCOMPARE(viewRequests().size(), 0);
            return;
        }
        QTRY_COMPARE(viewRequests().size(), 1);
        QCOMPARE(viewRequests().last()[u"custom"_s].toArray(),
                 QJsonDocument::fromJson(custom).array());
    }

    void placement_data()
    {
        QTest::addColumn<QByteArray>("layout"); // after "location":
        QTest::addColumn<int>("x"); // in the 390 x 844 overlay
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("cardWidth");

        const auto row = [](const char *name, const char *layout, int x, int width, int cardWidth) {
            QTest::newRow(name) << QByteArray(layout) << x << width << cardWidth;
        };
        // Side banners without a size take three quarters of the width at their edge.
        row("top left", R"("top_left")", 0, 293, 293);
        row("top right", R"("top_right")", 98, 292, 292);
        row("sized side is not limited",
            R"("center_left", "size": {"width": {"length": 350, "unit": "px"}})", 0, 390, 350);
        row("percentage of the window",
            R"("bottom", "size": {"width": {"length": 50, "unit": "percentage"}})", 0, 390, 195);
        row("margins",
            R"("bottom_right", "margin": {"top": 4, "bottom": 10, "left": 6, "right": 12})", 98,
            292, 274);
    }

    void placement()
    {
        QFETCH(QByteArray, layout);
        QFETCH(int, x);
        QFETCH(int, width);
        QFETCH(int, cardWidth);
        serve("p", titled("Placed"), layout);
        QQuickWindow *window = load("");
        QVERIFY(window);
        QTRY_VERIFY(view() && view()->property("shown").toBool());
        QQuickItem *banner = view();
        const QRectF frame(banner->position(), banner->size());
        const QString location
            = QJsonDocument::fromJson("{\"location\": " + layout + "}")[u"location"_s].toString();
        QCOMPARE(frame.x(), x);
        QCOMPARE(frame.width(), width);
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

    void innermostScreenNameAndOneOverlay()
    {
        serve("n", titled("Nested"), R"("center")");
        QVERIFY(load(R"(VelmoraScreen {
                        anchors.fill: parent
                        screenName: "inner"
                        Item { Item { objectName: "deep" } }
                    })"));
        auto *item = m_root->findChild<QQuickItem *>(u"deep"_s);
        while (item && item->metaObject()->indexOfProperty("iamScreenName") < 0)
            item = item->parentItem();
        QVERIFY(item);
        QCOMPARE(item->property("iamScreenName").toString(), u"inner"_s);
        // Both screens fetch (the later cancels the earlier); the banner shows once, on the screen
        // it was fetched for.
        QTRY_VERIFY(view() && view()->property("shown").toBool());
        QTest::qWait(100);
        QCOMPARE(views().size(), 1);
    }

    void openAndImageFailure_data()
    {
        QTest::addColumn<QByteArray>("creative");
        QTest::addColumn<bool>("shown");
        QTest::addColumn<bool>("imageShown");

        // A banner that does not show reports the failure as an error instead.
        const auto row = [this](const char *name, const char *image, const char *rest, bool shown,
                                bool imageShown) {
            QTest::newRow(name) << uR"("image": {"url": "%1"}%2)"_s
                                       .arg(imageUrl(QString::fromUtf8(image)),
                                            QString::fromUtf8(rest))
                                       .toUtf8()
                                << shown << imageShown;
        };
        row("image and title", "/wide.png", R"(, "title": {"text": "Sale"})", true, true);
        row("image only", "/wide.png", "", true, true);
        row("failed image, body stays", "/missing.png", R"(, "body": {"text": "Text"})", true,
            false);
        row("failed image, a button is text here", "/missing.png", R"(, "button": {"text": "Go"})",
            true, false);
        row("failed image, nothing else", "/missing.png", R"(, "title": {"text": ""})", false,
            false);
    }

    void openAndImageFailure()
    {
        QFETCH(QByteArray, creative);
        QFETCH(bool, shown);
        QFETCH(bool, imageShown);
        serve("o", creative, R"("top")");
        QVERIFY(load(""));
        if (shown) {
            QTRY_COMPARE(reactions(), QStringList { u"open:o"_s });
            QVERIFY(view() && view()->property("shown").toBool());
            QCOMPARE(view()->findChild<QQuickItem *>(u"coverImage"_s)->isVisible(), imageShown);
        } else {
            QTRY_VERIFY(!m_log.isEmpty());
            QTRY_VERIFY(views().isEmpty());
        }
        QTest::qWait(200);
        QCOMPARE(reactions().size(), shown ? 1 : 0);
        QCOMPARE(m_log.size(), shown ? 0 : 1);
        if (!shown)
            QVERIFY2(m_log.first().startsWith(u"error:"), qPrintable(m_log.first()));
    }

    void clickAndCloseReachTheServerInOrder()
    {
        // One line: a link on a continued raw string line would read as a comment to moc.
        QByteArray creative
            = R"("image": {"url": "%1", "link_url": "https://example.com/image"}, "title": {"text": "Tap"}, "button": {"text": "Buy", "link_url": "https://example.com/button"})";
        creative.replace("%1", imageUrl(u"/wide.png"_s).toUtf8());
        serve("c", creative, R"("center")");
        QQuickWindow *window = load("");
        QVERIFY(window);
        QTRY_COMPARE(reactions(), QStringList { u"open:c"_s });
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
        QCOMPARE(m_log.mid(2),
                 (QStringList { u"clicked"_s, u"link:https://example.com/button"_s }));
        QTRY_COMPARE(reactions().size(), 3);

        tap(close, QPointF(22, 22));
        QCOMPARE(m_log.mid(4), QStringList { u"dismissed"_s });
        QTRY_VERIFY(views().isEmpty());
        QTRY_COMPARE(reactions(),
                     (QStringList { u"open:c"_s, u"click:c"_s, u"click:c"_s, u"close:c"_s }));
        QVERIFY(card); // the banner stayed through both clicks
        QCOMPARE(m_root->property("contentClicks").toInt(), 0);
    }
};

VELMORA_QUICK_TEST_MAIN(tst_QuickScreen)

#include "tst_quick_screen.moc"
