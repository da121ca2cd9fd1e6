// The popup modal of a QML-only host, reached as such a host reaches it: screens of a QML window
// viewed through VelmoraScreen, a loopback back end, the facade's signals.
#include "../quicktestsupport.h"

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::RecordedRequest;
using velmora::loopback::Response;

namespace {

const char hostQml[] = R"(
    import QtQuick
    import Velmora.InAppMessaging
    Window {
        property string screen
        width: 400; height: 800; visible: true
        VelmoraScreen { anchors.fill: parent; screenName: "a"; visible: screen === "a" }
        VelmoraScreen { anchors.fill: parent; screenName: "b"; visible: screen === "b" }
    })";

// The library's modal windows, or only the visible ones.
QList<QQuickWindow *> modalWindows(bool visibleOnly = false)
{
    QList<QQuickWindow *> modals;
    for (QWindow *window : QGuiApplication::allWindows()) {
        if (window->objectName() == u"popupModal" && (!visibleOnly || window->isVisible()))
            modals << qobject_cast<QQuickWindow *>(window);
    }
    return modals;
}

QQuickWindow *visibleModal()
{
    return modalWindows(true).value(0);
}

QQuickItem *item(QQuickWindow *window, const QString &name)
{
    return window->contentItem()->findChild<QQuickItem *>(name);
}

} // namespace

class tst_QuickModal : public QObject
{
    Q_OBJECT

    void serve(const QString &screen, const QString &imageLink = {}, const QString &buttonLink = {},
               int delayMs = 0)
    {
        const QString body = uR"({"status": "ok", "actions": [{"meta": {"scenario_id": "%1",
            "updated_at": "2026-01-01T00:00:00Z", "action_type": "popup_modal"},
            "creative_type": "single_message", "creative": {"image": {"url": "%2",
            "link_url": "%3"}, "title": {"text": "%4"}, "button": {"text": "Go",
            "link_url": "%5"}}}]})"_s.arg(screen, m_images.url(u"/p.png"_s).toString(), imageLink,
                                          screen.toUpper(), buttonLink);
        m_responses.insert(screen, Response::json(body.toUtf8()).delayed(delayMs));
    }

    QQuickWindow *showScreen(const QString &screen)
    {
        m_host->setProperty("screen", screen);
        if (!QTest::qWaitFor([] { return visibleModal(); }, 5000))
            return nullptr;
        QQuickWindow *modal = visibleModal();
        // Its picture is in once the card has the picture's 2:1 shape (170 of a 340-wide card).
        if (!QTest::qWaitFor([modal] { return item(modal, u"coverImage"_s)->height() == 170; },
                             5000))
            return nullptr;
        finishFades();
        return modal;
    }

    QStringList reactions() const { return test::reactions(m_api); }
    void finishFades() { m_animations.step(350); }

    test::ManualAnimationDriver m_animations;
    HttpServer m_api;
    HttpServer m_images;
    QHash<QString, Response> m_responses;
    QQmlEngine m_engine;
    std::unique_ptr<QWindow> m_host;
    QStringList m_log;
    test::LinkRecorder m_links { &m_log };

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(test::listenLoopback(m_api, m_images));
        m_images.setDefaultResponse(Response::withStatus(200, test::png({ 200, 100 })));
        m_api.setDefaultHandler([this](const RecordedRequest &request) {
            const QString screen = request.json()[u"meta"_s][u"screen_name"_s].toString();
            return request.path().endsWith(u"/view") && m_responses.contains(screen)
                ? m_responses.value(screen)
                : Response::json(R"({"status": "ok", "actions": []})");
        });
        test::setUpFacade(m_api);
        test::logFacadeSignals(this, &m_log);
        m_animations.install();
    }

    void init()
    {
        m_host.reset(qobject_cast<QWindow *>(test::createQml(m_engine, hostQml).release()));
        QVERIFY(m_host);
        m_host->requestActivate();
        QVERIFY(QTest::qWaitForWindowActive(m_host.get()));
    }

    void cleanup()
    {
        VelmoraInAppMessaging::shared().dismissAll();
        m_host.reset();
        QTRY_VERIFY(modalWindows().isEmpty());
        m_responses.clear();
        m_api.clear();
        m_log.clear();
    }

    void coversTheFocusWindow()
    {
        serve(u"a"_s, u"https://example.com/image"_s);
        QQuickWindow *modal = showScreen(u"a"_s);
        QVERIFY(modal);
        QCOMPARE(modal->transientParent(), m_host.get());
        QVERIFY(modal->flags().testFlag(Qt::FramelessWindowHint));
        QCOMPARE(modal->geometry(), m_host->geometry());
        QCOMPARE(modal->title(), u"A"_s);
        QCOMPARE(item(modal, u"dim"_s)->property("color").value<QColor>().alpha(),
                 qRound(0.4 * 255));
        const QQuickItem *card = item(modal, u"card"_s);
        QCOMPARE(card->opacity(), 1.0);
        QCOMPARE(QRectF(card->x(), card->y(), card->width(), card->height()).toRect(),
                 QRect(30, 400 - int(card->height()) / 2, 340, int(card->height())));
        QTRY_COMPARE(reactions(), QStringList { u"open:a"_s });

        // The keyboard starts on the way out and cycles through what can be activated.
        QTRY_COMPARE(modal->activeFocusItem(), item(modal, u"closeButton"_s));
        for (const QString &next : { u"coverImage"_s, u"button"_s, u"closeButton"_s }) {
            QTest::keyClick(modal, Qt::Key_Tab);
            QCOMPARE(modal->activeFocusItem(), item(modal, next));
        }

        // It goes with its host and lays the card out again.
        m_host->setGeometry(QRect(m_host->position() + QPoint(30, 20), QSize(360, 700)));
        QTRY_COMPARE(modal->geometry(), m_host->geometry());
        QTRY_COMPARE(card->width(), 306.0);
    }

    void actions_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("imageLink");
        QTest::addColumn<QString>("buttonLink");
        QTest::addColumn<QString>("expectedReactions"); // space-separated
        QTest::addColumn<QString>("expectedLog"); // comma-separated

        const QString link = u"https://example.com/x"_s, closed = u"open:a close:a"_s,
                      clicked = u"open:a click:a"_s, linkLog = u"link:"_s + link;
        QTest::newRow("close button")
            << u"closeButton"_s << link << link << closed << u"dismissed"_s;
        QTest::newRow("escape") << u"Escape"_s << link << link << closed << u"dismissed"_s;
        QTest::newRow("button with link") << u"button"_s << QString() << link << clicked
                                          << u"clicked,"_s + linkLog + u",dismissed"_s;
        QTest::newRow("button without link")
            << u"button"_s << link << QString() << clicked << u"clicked,dismissed"_s;
        QTest::newRow("button with custom scheme")
            << u"button"_s << QString() << u"shop://cart"_s << clicked
            << u"clicked,precondition: Unsupported URL scheme: shop://cart,dismissed"_s;
        // The image keeps the modal open.
        QTest::newRow("linked image")
            << u"coverImage"_s << link << QString() << clicked << u"clicked,"_s + linkLog;
        QTest::newRow("image without link")
            << u"coverImage"_s << QString() << link << u"open:a"_s << QString();
    }

    void actions()
    {
        QFETCH(QString, control);
        QFETCH(QString, imageLink);
        QFETCH(QString, buttonLink);
        QFETCH(QString, expectedReactions);
        QFETCH(QString, expectedLog);

        serve(u"a"_s, imageLink, buttonLink);
        QQuickWindow *modal = showScreen(u"a"_s);
        QVERIFY(modal);
        QTRY_COMPARE(reactions().size(), 1);
        if (control == u"Escape") {
            QTest::keyClick(modal, Qt::Key_Escape);
        } else {
            const QQuickItem *target = item(modal, control);
            QTest::mouseClick(
                modal, Qt::LeftButton, {},
                target->mapToScene(QPointF(target->width() / 2, target->height() / 2)).toPoint());
        }
        const bool closes = expectedLog.endsWith(u"dismissed"_s);
        if (closes) {
            // Dismissed, and close, only once the fade-out has run.
            QVERIFY(!m_log.contains(u"dismissed"_s));
            QCOMPARE(visibleModal(), modal);
            finishFades();
        }
        QTRY_COMPARE(reactions().join(u' '), expectedReactions);
        QCOMPARE(m_log.join(u','), expectedLog);
        if (closes) {
            // Nothing is left of it, and the host has the keyboard again.
            QTRY_VERIFY(modalWindows().isEmpty());
            QTRY_COMPARE(QGuiApplication::focusWindow(), m_host.get());
        } else {
            QTest::qWait(50);
            QCOMPARE(reactions().join(u' '), expectedReactions);
            QCOMPARE(visibleModal(), modal);
        }
    }

    void replacementIsSilentAndLateDismissalHarmless()
    {
        serve(u"a"_s);
        serve(u"b"_s);
        QQuickWindow *first = showScreen(u"a"_s);
        QVERIFY(first);
        // The first modal is closing when the second one arrives; its fade-out ends afterwards.
        QTest::keyClick(first, Qt::Key_Escape);
        m_host->setProperty("screen", u"b"_s);
        QTRY_VERIFY(visibleModal() && visibleModal()->title() == u"B");
        QQuickWindow *second = visibleModal();
        QCOMPARE(second->transientParent(), m_host.get());
        finishFades();
        QTest::qWait(50);
        QTRY_COMPARE(modalWindows(), QList<QQuickWindow *> { second });
        QVERIFY(second->isVisible());
        QCOMPARE(m_log, QStringList());
        QTRY_COMPARE(reactions(), (QStringList { u"open:a"_s, u"open:b"_s }));
    }

    void screenGoneBeforeItsAnswerShowsNothing()
    {
        // The window goes while the answer is on its way: its screen's fetch is abandoned, so the
        // modal neither shows nor complains that there is no window to show it over.
        serve(u"a"_s, {}, {}, 300);
        m_host->setProperty("screen", u"a"_s);
        QTRY_COMPARE(m_api.requestCount(), 1);
        m_host->hide();
        QTest::qWait(600);
        QVERIFY(modalWindows().isEmpty());
        QCOMPARE(m_log, QStringList());
        QCOMPARE(reactions(), QStringList());
    }
};

VELMORA_QUICK_TEST_MAIN(tst_QuickModal)

#include "tst_quick_modal.moc"
