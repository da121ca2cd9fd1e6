// The QML module as a QML-only host meets it: the facade singleton and the text block.
#include "quicktestsupport.h"

#include <QAccessible>
#include <QQuickItem>
#include <QQuickWindow>

using namespace Qt::StringLiterals;
using velmora::test::createQml;

class tst_QuickModule : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void facadeSingletonActsOnTheSharedFacade();
    void bannerTextPadsOnlyAValidBackground_data();
    void bannerTextPadsOnlyAValidBackground();
    void closeButtonClicksByPointerAndKey_data();
    void closeButtonClicksByPointerAndKey();
};

void tst_QuickModule::facadeSingletonActsOnTheSharedFacade()
{
    QQmlEngine engine;
    auto root = createQml(engine, R"(
        import QtQml
        import Velmora.InAppMessaging
        QtObject {
            property var idBefore: null
            Component.onCompleted: {
                idBefore = VelmoraInAppMessaging.customerId
                VelmoraInAppMessaging.customerId = "c-42"
                VelmoraInAppMessaging.strictLogin = true
            }
            function signOut() { VelmoraInAppMessaging.customerId = undefined }
        })");
    QVERIFY(root);
    auto &facade = velmora::VelmoraInAppMessaging::shared();
    QCOMPARE(root->property("idBefore"), QVariant());
    QCOMPARE(facade.customerId(), u"c-42"_s);
    QVERIFY(facade.isStrictLogin());
    QMetaObject::invokeMethod(root.get(), "signOut");
    QCOMPARE(facade.customerId(), std::nullopt);
    facade.setStrictLogin(false);
}

void tst_QuickModule::bannerTextPadsOnlyAValidBackground_data()
{
    QTest::addColumn<QString>("background");
    QTest::addColumn<QString>("textColor");
    QTest::addColumn<qreal>("padding");
    QTest::addColumn<QColor>("fill");
    QTest::addColumn<QColor>("ink");

    QTest::newRow("valid colours")
        << u"FF0000"_s << u"0000FF"_s << 8.0 << QColor(Qt::red) << QColor(Qt::blue);
    // The creative's rule, not QML's: a leading "#" is no colour, so no padding.
    QTest::newRow("hash-prefixed") << u"#FF0000"_s << u"#0000FF"_s << 0.0 << QColor(Qt::transparent)
                                   << QColor(0x12, 0x34, 0x56);
    QTest::newRow("empty") << QString() << QString() << 0.0 << QColor(Qt::transparent)
                           << QColor(0x12, 0x34, 0x56);
}

void tst_QuickModule::bannerTextPadsOnlyAValidBackground()
{
    QFETCH(QString, background);
    QFETCH(QString, textColor);
    QFETCH(qreal, padding);
    QFETCH(QColor, fill);
    QFETCH(QColor, ink);

    QQmlEngine engine;
    auto root = createQml(engine, R"(
        import QtQuick
        import Velmora.InAppMessaging
        IAMBannerText { text: "Spring sale"; fontSize: 14; defaultTextColor: "#123456" })");
    QVERIFY(root);
    root->setProperty("backgroundColorHex", background);
    root->setProperty("textColorHex", textColor);
    auto *label = root->findChild<QQuickItem *>();
    QVERIFY(label);
    QCOMPARE(root->property("padding").toReal(), padding);
    QCOMPARE(root->property("implicitHeight").toReal(),
             label->property("implicitHeight").toReal() + 2 * padding);
    QCOMPARE(root->property("color").value<QColor>(), fill);
    QCOMPARE(label->property("color").value<QColor>(), ink);
}

void tst_QuickModule::closeButtonClicksByPointerAndKey_data()
{
    QTest::addColumn<int>("key"); // 0: a tap in the middle
    QTest::addColumn<int>("clicks");

    QTest::newRow("tap") << 0 << 1;
    QTest::newRow("space") << int(Qt::Key_Space) << 1;
    QTest::newRow("return") << int(Qt::Key_Return) << 1;
    QTest::newRow("other key") << int(Qt::Key_A) << 0;
}

void tst_QuickModule::closeButtonClicksByPointerAndKey()
{
    QFETCH(int, key);
    QFETCH(int, clicks);

    QQmlEngine engine;
    auto root = createQml(engine, R"(
        import QtQuick
        import Velmora.InAppMessaging
        Window {
            width: 100; height: 100; visible: true
            property int clicks: 0
            property alias button: button
            IAMCloseButton { id: button; focus: true; onClicked: clicks++ }
        })");
    QVERIFY(root);
    auto *window = qobject_cast<QQuickWindow *>(root.get());
    QVERIFY(QTest::qWaitForWindowExposed(window));
    auto *button = root->property("button").value<QQuickItem *>();
    QCOMPARE(button->size(), QSizeF(44, 44));
    QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(button);
    QVERIFY(accessible);
    QCOMPARE(accessible->role(), QAccessible::Button);
    QCOMPARE(accessible->text(QAccessible::Name), u"Close"_s);
    if (key == 0) {
        QTest::mouseClick(window, Qt::LeftButton, {}, QPoint(22, 22));
    } else {
        window->requestActivate();
        QTRY_VERIFY(button->hasActiveFocus());
        QTest::keyClick(window, Qt::Key(key));
    }
    QCOMPARE(root->property("clicks").toInt(), clicks);
}

VELMORA_QUICK_TEST_MAIN(tst_QuickModule)

#include "tst_quick_module.moc"
