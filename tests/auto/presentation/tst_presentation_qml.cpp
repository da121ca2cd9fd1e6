#include "embeddedbannerstore.h"
#include "popupbannerstore.h"
#include "presentationfixtures.h"

#include <QQmlComponent>
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
    readonly property string topScenario: top ? top.scenarioId : ""
    readonly property string topType: top ? top.position + " " + top.message.rawType : ""
    readonly property bool topUnsized: top ? top.hasExplicitSize === false : false
    readonly property int bannerCount: Object.keys(popupStore.popupBanners).length
    readonly property var popupScreen: popupStore.currentScreenName
    readonly property string heroScenario:
        embeddedStore.embeddedBanners.hero ? embeddedStore.embeddedBanners.hero.scenarioId : ""
    readonly property bool loading: embeddedStore.isLoading
    readonly property var embeddedScreen: embeddedStore.currentScreenName
    readonly property bool owned: embeddedStore.currentOwner !== null
    function dismissTop() { popupStore.dismissPopupBanner("top") }
    function clearPopups() { popupStore.clearAllPopupBanners() }
    function startScreen(name) { embeddedStore.clearAll(name, popupStore) }
}
)";

class QmlBindingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void storesAreBindable()
    {
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData(bindings, QUrl::fromLocalFile(u"/bindings.qml"_s));
        QVERIFY2(component.isReady(), qPrintable(component.errorString()));

        QList<std::function<void()>> pending;
        PopupBannerStore popupStore;
        popupStore.setScheduler([&](std::chrono::milliseconds, std::function<void()> callback) {
            pending.append(std::move(callback));
        });
        EmbeddedBannerStore embeddedStore;
        std::unique_ptr<QObject> root(component.createWithInitialProperties(
            { { u"popupStore"_s, QVariant::fromValue(&popupStore) },
              { u"embeddedStore"_s, QVariant::fromValue(&embeddedStore) } }));
        QVERIFY2(root, qPrintable(component.errorString()));
        QCOMPARE(root->property("topScenario").toString(), u""_s);
        QVERIFY(!root->property("popupScreen").isValid());

        popupStore.apply({ fixtures::popupPair(u"top:A"_s), fixtures::popupPair(u"top:B"_s),
                           fixtures::popupPair(u"bottom:C"_s) },
                         u"home"_s);
        QCOMPARE(root->property("topScenario").toString(), u"A"_s);
        QCOMPARE(root->property("topType").toString(), u"top popup_banner"_s);
        QCOMPARE(root->property("topUnsized").toBool(), true);
        QCOMPARE(root->property("bannerCount").toInt(), 2);
        QCOMPARE(root->property("popupScreen").toString(), u"home"_s);

        QVERIFY(QMetaObject::invokeMethod(root.get(), "dismissTop"));
        QCOMPARE(root->property("topScenario").toString(), u""_s);
        for (const auto &callback : std::as_const(pending))
            callback();
        QCOMPARE(root->property("topScenario").toString(), u"B"_s);

        QVERIFY(QMetaObject::invokeMethod(root.get(), "clearPopups"));
        QCOMPARE(root->property("bannerCount").toInt(), 0);
        QVERIFY(!root->property("popupScreen").isValid());

        embeddedStore.setLoading(true);
        QCOMPARE(root->property("loading").toBool(), true);
        embeddedStore.apply(
            { { u"hero"_s,
                *fixtures::embeddedBanner(u"E1"_s, u"hero"_s).contents.embeddedBannerAction(),
                u"E1"_s, u"home"_s } });
        QCOMPARE(root->property("heroScenario").toString(), u"E1"_s);

        QVERIFY(QMetaObject::invokeMethod(root.get(), "startScreen", Q_ARG(QVariant, u"cart"_s)));
        QCOMPARE(root->property("heroScenario").toString(), u""_s);
        QCOMPARE(root->property("embeddedScreen").toString(), u"cart"_s);
        QCOMPARE(root->property("owned").toBool(), true);
    }
};

QTEST_GUILESS_MAIN(QmlBindingTest)
#include "tst_presentation_qml.moc"
