#include "presentation/embeddedbannerstore.h"
#include "presentation/popupbannerstore.h"
#include "presentationfixtures.h"

#include <QElapsedTimer>
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
    readonly property string popup: (top ? [top.scenarioId, top.position, top.message.rawType,
            top.hasExplicitSize].join(" ") : "-") + " count=" + Object.keys(popupStore.popupBanners)
            .length + " screen=" + popupStore.currentScreenName
    readonly property var hero: embeddedStore.embeddedBanners.hero
    readonly property string embedded: (hero ? hero.scenarioId + " " + hero.message.rawType : "-")
            + " loading=" + embeddedStore.isLoading + " screen=" + embeddedStore.currentScreenName
            + " owned=" + (embeddedStore.currentOwner !== null)
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
        QCOMPARE(embedded(), u"E1 embedded_banner loading=true screen=undefined owned=false"_s);
        QVERIFY(QMetaObject::invokeMethod(root.get(), "startScreen", Q_ARG(QVariant, u"cart"_s)));
        QCOMPARE(embedded(), u"- loading=true screen=cart owned=true"_s);
    }
};

QTEST_GUILESS_MAIN(QmlBindingTest)
#include "tst_presentation_qml.moc"
