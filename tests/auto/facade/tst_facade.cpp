#include "../widgets/widgetstestsupport.h"
#include "embedded/iamuiembeddedbanner.h"
#include "frontend/widgetsfrontend.h"
#include "modal/iampopupmodalviewcontroller.h"
#include "popupbanner/iampopupbannerviewcontroller.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QApplication>
#include <QDialog>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTest>
#include <QVBoxLayout>

#include <thread>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

QByteArray banner(const QByteArray &id, const QByteArray &location, const QString &imageUrl,
                  int priority = 50)
{
    return R"({"meta": {"scenario_id": ")" + id
        + R"(", "updated_at": "2026-01-01T00:00:00Z", "priority": )" + QByteArray::number(priority)
        + R"(, "action_type": "popup_banner"}, "creative_type": "single_message", "creative": {"image": {"url": ")"
        + imageUrl.toUtf8() + R"("}, "title": {"text": "Hi"}}, "layout": {"location": ")" + location
        + R"("}})";
}

QByteArray modal(const QByteArray &id)
{
    return R"({"meta": {"scenario_id": ")" + id
        + R"(", "updated_at": "2026-01-01T00:00:00Z", "priority": 90, "action_type": "popup_modal"}, "creative_type": "single_message", "creative": {"image": {"url": ""}, "title": {"text": "Modal"}}})";
}

QByteArray embedded(const QByteArray &id, const QByteArray &component)
{
    return R"({"meta": {"scenario_id": ")" + id
        + R"(", "updated_at": "2026-01-01T00:00:00Z", "priority": 10, "action_type": "embedded_banner"}, "creative_type": "single_message", "creative": {"image": {"url": ""}, "title": {"text": "Slot"}}, "layout": {"component_id": ")"
        + component + R"("}})";
}

QByteArray response(const QList<QByteArray> &actions)
{
    return R"({"status": "ok", "actions": [)" + actions.join(',') + "]}";
}

class Observer : public VelmoraInAppMessagingDelegate
{
public:
    void messageDetectedForDisplay(const InAppMessage &message) override
    {
        log << u"detected:"_s + message.rawType();
    }
    void messageError(const std::optional<InAppMessage> &, const VelmoraError &error) override
    {
        log << u"error:"_s + error.description();
    }
    bool shouldDisplay(const InAppMessage &message) override
    {
        return !vetoed.contains(message.rawType());
    }
    QStringList log;
    QStringList vetoed;
};

qsizetype visibleModals()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    return std::count_if(windows.cbegin(), windows.cend(), [](QWidget *window) {
        return qobject_cast<IAMPopupModalViewController *>(window) && window->isVisible();
    });
}

QList<IAMPopupBannerViewController *> banners(QWidget *target)
{
    return target->findChildren<IAMPopupBannerViewController *>();
}

} // namespace

class tst_Facade : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void screenViewShowsAndReacts();
    void hostControls_data();
    void hostControls();
    void workerThreadCallsArriveInOrder();
    void noActiveWindow();
    void topWidget_data();
    void topWidget();

private:
    QStringList reactions() const;
    QStringList viewedScreens() const;

    HttpServer m_api;
    HttpServer m_images;
    std::unique_ptr<Observer> m_observer;
    std::unique_ptr<QWidget> m_window;
};

void tst_Facade::initTestCase()
{
    QVERIFY(m_api.listen(HttpServer::Mode::Http));
    QVERIFY(test::listenForImages(m_images));
    m_images.setDefaultResponse(Response::withStatus(200, test::png({ 200, 100 }, Qt::red)));
    VelmoraInAppMessaging::shared().setup(u"key"_s, u"tenant"_s,
                                          m_api.url(u"/vorpex/v1"_s).toString());
}

void tst_Facade::init()
{
    m_api.clear();
    m_api.setDefaultResponse(Response::json(response({})));
    m_observer = std::make_unique<Observer>();
    VelmoraInAppMessaging::shared().setDelegate(m_observer.get());
    VelmoraInAppMessaging::shared().setMessagesSuppressed(false);
    m_window = std::make_unique<QWidget>();
    m_window->resize(400, 800);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

QStringList tst_Facade::reactions() const
{
    QStringList out;
    for (const auto &request : m_api.requests()) {
        if (request.path().endsWith(u"/reaction"))
            out << request.json()[u"reaction"_s].toString() + u":"_s
                    + request.json()[u"scenario_id"_s].toString();
    }
    return out;
}

QStringList tst_Facade::viewedScreens() const
{
    QStringList out;
    for (const auto &request : m_api.requests()) {
        if (request.path().endsWith(u"/view"))
            out << request.json()[u"meta"_s][u"screen_name"_s].toString();
    }
    return out;
}

void tst_Facade::screenViewShowsAndReacts()
{
    const QString image = m_images.url(u"/a.png"_s).toString();
    m_api.setDefaultResponse(Response::json(
        response({ banner("top-one", "top", image), banner("bottom-one", "bottom", image),
                   banner("bottom-two", "bottom", image, 10), embedded("slot", "home_slot"),
                   modal("modal") })));
    auto *slot = new IAMUIEmbeddedBanner(m_window.get());
    slot->setComponentId(u"home_slot"_s);
    QSignalSpy detected(&VelmoraInAppMessaging::shared(),
                        &VelmoraInAppMessaging::messageDetectedForDisplay);
    VelmoraInAppMessaging::shared().screenView(u"home"_s, m_window.get(), {}, {}, [] {
        return CustomParameterBuilder::buildBlock({ putString(u"plan"_s, u"gold"_s) });
    });
    QTRY_COMPARE(banners(m_window.get()).size(), 2);
    QTRY_COMPARE(slot->state(), IAMUIEmbeddedBanner::State::Revealed);
    QTRY_COMPARE(reactions().size(), 4);
    const QStringList opened = reactions();
    QCOMPARE(QSet<QString>(opened.cbegin(), opened.cend()),
             QSet<QString>(
                 { u"open:top-one"_s, u"open:bottom-one"_s, u"open:slot"_s, u"open:modal"_s }));
    QCOMPARE(detected.size(), 5);
    QCOMPARE(m_observer->log.size(), 5);
    QCOMPARE(visibleModals(), 1);
    QCOMPARE(m_api.requests().first().json()[u"custom"_s].toArray().size(), 1);

    // A new screen removes the banners silently.
    m_api.setDefaultResponse(Response::json(response({})));
    VelmoraInAppMessaging::shared().screenView(u"next"_s, m_window.get());
    QTRY_COMPARE(banners(m_window.get()).size(), 0);
    QTRY_COMPARE(slot->state(), IAMUIEmbeddedBanner::State::Hidden);
    QTest::qWait(50);
    QCOMPARE(reactions().size(), 4);
    // A new screen leaves the modal alone; the host's dismissAll() removes it silently.
    VelmoraInAppMessaging::shared().dismissAll();
    QTRY_COMPARE(visibleModals(), 0);
}

void tst_Facade::hostControls_data()
{
    QTest::addColumn<bool>("suppressed");
    QTest::addColumn<QStringList>("vetoed");
    QTest::addColumn<int>("shown");
    QTest::newRow("every banner") << false << QStringList() << 1;
    QTest::newRow("vetoed by the delegate") << false << QStringList { u"popup_banner"_s } << 0;
    QTest::newRow("suppressed") << true << QStringList() << 0;
}

void tst_Facade::hostControls()
{
    QFETCH(bool, suppressed);
    QFETCH(QStringList, vetoed);
    QFETCH(int, shown);
    m_observer->vetoed = vetoed;
    VelmoraInAppMessaging::shared().setMessagesSuppressed(suppressed);
    m_api.setDefaultResponse(
        Response::json(response({ banner("b", "center", m_images.url(u"/b.png"_s).toString()) })));
    VelmoraInAppMessaging::shared().screenView(u"controls"_s, m_window.get());
    QTRY_VERIFY(m_observer->log.contains(u"detected:popup_banner"_s));
    QTest::qWait(300);
    QCOMPARE(banners(m_window.get()).size(), shown);
    QCOMPARE(reactions().size(), shown);
    if (shown) {
        QTRY_COMPARE(reactions().size(), 1);
        VelmoraInAppMessaging::shared().dismissAll();
        QTRY_COMPARE(banners(m_window.get()).size(), 0);
        QCOMPARE(reactions().size(), 1);
    }
}

void tst_Facade::workerThreadCallsArriveInOrder()
{
    std::thread worker([window = m_window.get()] {
        for (const QString &name : { u"one"_s, u"two"_s, u"three"_s })
            VelmoraInAppMessaging::shared().screenView(name, window);
    });
    worker.join();
    // Each newer screen cancels the older request; the server still sees them in order.
    QTRY_COMPARE(viewedScreens().size() >= 1, true);
    QTRY_COMPARE(viewedScreens().last(), u"three"_s);
    const QStringList seen = viewedScreens();
    QStringList expected = { u"one"_s, u"two"_s, u"three"_s };
    QVERIFY(std::is_sorted(seen.cbegin(), seen.cend(), [&](const QString &a, const QString &b) {
        return expected.indexOf(a) < expected.indexOf(b);
    }));
}

void tst_Facade::noActiveWindow()
{
    m_window.reset();
    QApplication::setActiveWindow(nullptr);
    QSignalSpy errors(&VelmoraInAppMessaging::shared(), &VelmoraInAppMessaging::messageError);
    VelmoraInAppMessaging::shared().screenView(u"nowhere"_s);
    QTRY_COMPARE(errors.size(), 1);
    QCOMPARE(
        m_observer->log,
        QStringList {
            u"error:precondition: Could not find a top widget to display messages. Use screenView(screenName, target) to specify the target widget."_s });
    QTest::qWait(50);
    QCOMPARE(viewedScreens(), QStringList());
}

void tst_Facade::topWidget_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain window") << u"window"_s << u"window"_s;
    QTest::newRow("stack page") << u"stack"_s << u"stack page 1"_s;
    QTest::newRow("tab inside a stack page") << u"stack+tabs"_s << u"tab 2"_s;
    QTest::newRow("empty stack ends at the stack") << u"empty stack"_s << u"stack"_s;
    QTest::newRow("modal dialog comes first") << u"dialog"_s << u"dialog page"_s;
}

void tst_Facade::topWidget()
{
    QFETCH(QString, layout);
    QFETCH(QString, expected);
    m_window->setObjectName(u"window"_s);
    auto *column = new QVBoxLayout(m_window.get());
    std::unique_ptr<QDialog> dialog;
    if (layout.contains(u"stack")) {
        auto *stack = new QStackedWidget;
        stack->setObjectName(u"stack"_s);
        column->addWidget(stack);
        if (layout != u"empty stack") {
            auto *first = new QWidget;
            first->setObjectName(u"stack page 0"_s);
            auto *second = new QWidget;
            second->setObjectName(u"stack page 1"_s);
            stack->addWidget(first);
            stack->addWidget(second);
            stack->setCurrentIndex(1);
            if (layout.contains(u"tabs")) {
                auto *tabs = new QTabWidget(second);
                new QVBoxLayout(second);
                second->layout()->addWidget(tabs);
                for (int i = 0; i < 3; ++i) {
                    auto *tab = new QWidget;
                    tab->setObjectName(u"tab %1"_s.arg(i));
                    tabs->addTab(tab, tab->objectName());
                }
                tabs->setCurrentIndex(2);
            }
        }
    }
    m_window->show();
    if (layout == u"dialog") {
        dialog = std::make_unique<QDialog>(m_window.get());
        dialog->setObjectName(u"dialog"_s);
        auto *stack = new QStackedWidget(dialog.get());
        auto *page = new QWidget;
        page->setObjectName(u"dialog page"_s);
        stack->addWidget(page);
        dialog->setModal(true);
        dialog->show();
        QTRY_VERIFY(QApplication::activeModalWidget() == dialog.get());
    } else {
        QApplication::setActiveWindow(m_window.get());
        QTRY_VERIFY(QApplication::activeWindow() == m_window.get());
    }
    // Widgets added to a shown window appear from the event loop.
    if (auto *stack = m_window->findChild<QStackedWidget *>())
        QTRY_VERIFY(stack->isVisible());
    QWidget *top = widgets::findTopWidget();
    QVERIFY(top);
    QCOMPARE(top->objectName(), expected);
}

QTEST_MAIN(tst_Facade)
#include "tst_facade.moc"
