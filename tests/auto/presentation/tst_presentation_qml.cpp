#include "presentation/colors.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/popupbannerstore.h"
#include "presentationfixtures.h"

#include <QDesktopServices>
#include <QElapsedTimer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

// QML hosts bind to the stores through plain properties; no QML module is involved.
static const QByteArray bindings = R"(
import QtQml
QtObject {
    required property QtObject popupStore
    required property QtObject embeddedStore
    readonly property var top: popupStore.popupBanners.top
    readonly property string popup: (top ? [top.scenarioId, top.position, top.message.rawType,
            top.hasExplicitSize].join(" ") : "-") + " count=" + Object.keys(popupStore.popupBanners)
            .length + " screen=" + popupStore.currentScreenName
    readonly property var hero: embeddedStore.embeddedBanners.hero
    readonly property string embedded: (hero ? [hero.scenarioId, hero.message.rawType,
            hero.message.componentId, hero.message.popupBanner].join(" ") : "-")
            + " loading=" + embeddedStore.isLoading + " screen=" + embeddedStore.currentScreenName
            + " owned=" + (embeddedStore.currentOwner !== null)
    function dismissTop() { popupStore.dismissPopupBanner("top") }
    function clearPopups() { popupStore.clearAllPopupBanners() }
    function startScreen(name) { embeddedStore.clearAll(name, popupStore) }
}
)";

// What a QML popup banner reads and reports, with the store and the colours as context
// properties.
static const QByteArray bannerView = R"(
import QtQml
QtObject {
    function describe(position) {
        const banner = popupStore.popupBanners[position].message.popupBanner
        const m = banner.margin, size = banner.size, c = banner.creative
        return [banner.position, [m.top, m.bottom, m.left, m.right].join(","),
                banner.hasSize, size.width.length + size.width.unit, size.hasHeight,
                size.height.length + size.height.unit, c.image.url, c.image.linkUrl,
                c.hasTitle, c.title.text, c.title.textColor, c.title.backgroundColor, c.hasBody,
                c.body.text, c.hasButton, c.button.text, c.button.linkUrl, c.button.textColor,
                c.button.backgroundColor, c.backgroundColor].join("|")
    }
    function report(op, position, scenarioId, link) {
        switch (op) {
        case "open": popupStore.sendOpenReactionIfNeeded(position, scenarioId); break
        case "click": popupStore.handleClick(position, scenarioId, link); break
        case "close": popupStore.handleClose(position, scenarioId); break
        case "fail": return popupStore.handleImageLoadFailure(position, scenarioId)
                ? "removed" : "kept"
        }
        return ""
    }
    readonly property string described: [describe("bottom_left"), describe("top")].join("\n")
    readonly property string colours: [colors.hexColor("#ffffff"), colors.hexColor("ffffff"),
            colors.hexColor("ff0000", 0.5), colors.defaultTitleTextColor,
            colors.coverImagePlaceholderColor].join(" ")
}
)";

class QmlBindingTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QObject> createBannerView(QQmlEngine &engine, PopupBannerStore &store,
                                              Colors &colors)
    {
        engine.rootContext()->setContextProperty(u"popupStore"_s, &store);
        engine.rootContext()->setContextProperty(u"colors"_s, &colors);
        QQmlComponent component(&engine);
        component.setData(bannerView, QUrl::fromLocalFile(u"/bannerview.qml"_s));
        std::unique_ptr<QObject> view(component.create());
        if (!view)
            qWarning() << component.errorString();
        return view;
    }

private Q_SLOTS:
    void storesAreBindable()
    {
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData(bindings, QUrl::fromLocalFile(u"/bindings.qml"_s));
        QVERIFY2(component.isReady(), qPrintable(component.errorString()));

        PopupBannerStore popupStore;
        EmbeddedBannerStore embeddedStore;
        std::unique_ptr<QObject> root(component.createWithInitialProperties(
            { { u"popupStore"_s, QVariant::fromValue(&popupStore) },
              { u"embeddedStore"_s, QVariant::fromValue(&embeddedStore) } }));
        QVERIFY2(root, qPrintable(component.errorString()));
        auto popup = [&] { return root->property("popup").toString(); };
        auto embedded = [&] { return root->property("embedded").toString(); };
        QCOMPARE(popup(), u"- count=0 screen=undefined"_s);
        QCOMPARE(embedded(), u"- loading=false screen=undefined owned=false"_s);

        popupStore.apply(fixtures::popupPairs({ u"top:A"_s, u"top:B"_s, u"bottom:C"_s }),
                         u"home"_s);
        QCOMPARE(popup(), u"A top popup_banner false count=2 screen=home"_s);
        QElapsedTimer elapsed;
        elapsed.start();
        QVERIFY(QMetaObject::invokeMethod(root.get(), "dismissTop"));
        QCOMPARE(popup(), u"- count=1 screen=home"_s);
        QTRY_COMPARE(popup(), u"B top popup_banner false count=2 screen=home"_s);
        QCOMPARE_GE(elapsed.elapsed(), 290); // the store's own clock waits for the removal
        QVERIFY(QMetaObject::invokeMethod(root.get(), "clearPopups"));
        QCOMPARE(popup(), u"- count=0 screen=undefined"_s);

        embeddedStore.setLoading(true);
        embeddedStore.apply({ { u"hero"_s, EmbeddedBannerAction { u"hero"_s, fixtures::creative() },
                                u"E1"_s, u"home"_s } });
        // Only a popup banner has a popupBanner; it is undefined (joined as "") for the rest.
        QCOMPARE(embedded(),
                 u"E1 embedded_banner hero  loading=true screen=undefined owned=false"_s);
        QVERIFY(QMetaObject::invokeMethod(root.get(), "startScreen", Q_ARG(QVariant, u"cart"_s)));
        QCOMPARE(embedded(), u"- loading=true screen=cart owned=true"_s);
    }

    void bannerReadsItsMessage()
    {
        PopupBannerAction full { DisplayPosition::BottomLeft,
                                 Margin { 1, 2, 3, -4.5 },
                                 ContentsSize { { 80, ContentsLength::Unit::Percentage },
                                                ContentsLength { 120, ContentsLength::Unit::Px } },
                                 {} };
        full.creative = { { u"https://img/a.png"_s, u"https://shop/a"_s },
                          TextContent { u"Sale"_s, u"FF0000"_s, u""_s },
                          std::nullopt,
                          ButtonContent { u"Buy"_s, u"https://shop/b"_s, u"000000"_s, u"#fff"_s },
                          u"FFFFFF"_s };
        // Absent parts read as empty values, so bindings on them never meet undefined.
        PopupBannerAction bare { DisplayPosition::Top, {}, ContentsSize { { 300, {} }, {} }, {} };
        bare.creative.body = TextContent { u"Body"_s, {}, {} };
        InAppMessageAction a, b;
        a.meta.scenarioId = u"A"_s;
        b.meta.scenarioId = u"B"_s;
        PopupBannerStore store;
        store.apply({ { a, full }, { b, bare } }, u"home"_s);

        QQmlEngine engine;
        Colors colors;
        const auto view = createBannerView(engine, store, colors);
        QVERIFY(view);
        QCOMPARE(view->property("described").toString(),
                 u"bottom_left|1,2,3,-4.5|true|80percentage|true|120px|https://img/a.png|"
                 "https://shop/a|true|Sale|FF0000||false||true|Buy|https://shop/b|000000|#fff|"
                 "FFFFFF\ntop|0,0,0,0|true|300px|false|0px|||false||||true|Body|false|||||"_s);

        // The library's colour rules, not QML's: "#ffffff" is no colour.
        QCOMPARE(view->property("colours").toString(), u" #ffffff #80ff0000 #1d2635 #1a586976"_s);
    }

    void bannerReports_data()
    {
        QTest::addColumn<QString>("ops");
        QTest::addColumn<QString>("expected"); // "<log> | <visible banners>"
        // Comma-separated ops: "apply <screen> <position:scenario[:creative]...>", "open",
        // "click", "close" or "fail" followed by "<position> <scenario> [link]", "tick" (the
        // removal delay elapses), "clear", "host-moves-on" (the host's dismissed callback
        // starts a screen with N at the top).
        QTest::newRow("open: once per showing, again once shown anew")
            << u"apply home top:A, open top A, open top A, apply home top:A, open top A, "
               "close top A, tick, apply home top:A, open top A"_s
            << u"open home A, close home A, dismissed top, open home A | top:A"_s;
        QTest::newRow("open: again after clear-all and after removal by another screen")
            << u"apply home top:A, open top A, clear, apply home top:A, open top A, "
               "apply cart bottom:B, apply home top:A, open top A"_s
            << u"open home A, open home A, open home A | top:A"_s;
        QTest::newRow("click: reported, told, link opened; the banner stays")
            << u"apply home top:A, click top A https://shop/a"_s
            << u"click home A, clicked top, open https://shop/a | top:A"_s;
        QTest::newRow("click: a link that cannot open reaches the error handler")
            << u"apply home top:A, click top A myapp://x"_s
            << u"click home A, clicked top, error top precondition: Unsupported URL scheme: "
               "myapp://x | top:A"_s;
        QTest::newRow("close: reported, told, removed, then the next shows")
            << u"apply home top:A top:B, close top A, tick"_s
            << u"close home A, dismissed top | top:B"_s;
        QTest::newRow("image failure without text: error, removed, no reaction")
            << u"apply home top:A top:B, fail top A, tick"_s
            << u"error top networkError: ImageLoadError(urlString: "
               "\"https://img.example.com/banner.png\"), removed | top:B"_s;
        QTest::newRow("image failure with a title or only a button: kept")
            << u"apply home top:A:title bottom:B:button, fail top A, fail bottom B, tick"_s
            << u"kept, kept | top:A bottom:B"_s;
        QTest::newRow("late reports of a replaced banner touch nothing")
            << u"apply home top:A top:B, close top A, tick, close top A, fail top A, "
               "click top A https://shop/a, open top A, open top B"_s
            << u"close home A, dismissed top, kept, open home B | top:B"_s;
        QTest::newRow("reports naming another position or none do nothing")
            << u"apply home top:A, open bottom A, close Top A, fail nowhere A"_s
            << u"kept | top:A"_s;
        QTest::newRow("close: the screen the host moved on to keeps its banner")
            << u"host-moves-on, apply home top:A, close top A, tick"_s
            << u"close home A, dismissed top | top:N"_s;
    }

    void bannerReports()
    {
        QFETCH(QString, ops);
        QStringList log;
        fixtures::UrlRecorder opener;
        opener.log = &log;
        QDesktopServices::setUrlHandler(u"https"_s, &opener, "open");
        auto unset = qScopeGuard([] { QDesktopServices::unsetUrlHandler(u"https"_s); });

        PopupBannerStore store;
        QList<std::function<void()>> pending;
        store.setScheduler([&](std::chrono::milliseconds, std::function<void()> callback) {
            pending.append(std::move(callback));
        });
        const auto positionOf = [](const InAppMessage &message) {
            return rawValue(message.popupBannerAction()->position);
        };
        store.setReactionHandler(
            [&](EventsReactionType type, const QString &screen, const QString &scenario) {
                log.append(rawValue(type) + u' ' + screen + u' ' + scenario);
            });
        store.setMessageClickedHandler(
            [&](const InAppMessage &message) { log.append(u"clicked "_s + positionOf(message)); });
        bool hostMovesOn = false;
        store.setMessageDismissedHandler([&](const InAppMessage &message) {
            log.append(u"dismissed "_s + positionOf(message));
            if (hostMovesOn) {
                store.clearAllPopupBanners();
                store.apply(fixtures::popupPairs({ u"top:N"_s }), u"next"_s);
            }
        });
        store.setMessageErrorHandler(
            [&](const std::optional<InAppMessage> &message, const VelmoraError &error) {
                log.append(u"error "_s + positionOf(*message) + u' ' + error.description());
            });

        QQmlEngine engine;
        Colors colors;
        const auto view = createBannerView(engine, store, colors);
        QVERIFY(view);
        for (const QString &op : ops.split(u", "_s)) {
            const QStringList words = op.split(u' ');
            if (words[0] == u"apply") {
                store.apply(fixtures::popupPairs(words.mid(2)), words[1]);
            } else if (words[0] == u"tick") {
                while (!pending.isEmpty())
                    pending.takeFirst()();
            } else if (words[0] == u"clear") {
                store.clearAllPopupBanners();
            } else if (words[0] == u"host-moves-on") {
                hostMovesOn = true;
            } else {
                QVariant result;
                QVERIFY(QMetaObject::invokeMethod(
                    view.get(), "report", Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, words[0]),
                    Q_ARG(QVariant, words[1]), Q_ARG(QVariant, words[2]),
                    Q_ARG(QVariant, words.value(3))));
                if (!result.toString().isEmpty())
                    log.append(result.toString());
            }
        }
        QStringList visible;
        for (const auto &[position, banner] : store.popupBanners())
            visible.append(rawValue(position) + u':' + banner.scenarioId);
        const QString actual = log.join(u", "_s) + u" | "_s + visible.join(u' ');
        QTEST(actual, "expected");
    }
};

QTEST_MAIN(QmlBindingTest)
#include "tst_presentation_qml.moc"
