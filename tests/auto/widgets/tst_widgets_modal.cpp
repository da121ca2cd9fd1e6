#include "layout/style.h"
#include "modal/iampopupmodalviewcontroller.h"
#include "modal/popupmodalpresenter.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/iamclosebutton.h"
#include "widgetstestsupport.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDesktopServices>
#include <QPainter>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

bool modalWindowLeft()
{
    const auto topLevels = QApplication::topLevelWidgets();
    return std::any_of(topLevels.begin(), topLevels.end(), [](const QWidget *widget) {
        return qobject_cast<const IAMPopupModalViewController *>(widget) != nullptr;
    });
}

} // namespace

// Records the links the modal opens, as a host's URL handler would see them.
class LinkRecorder : public QObject
{
    Q_OBJECT
public:
    QStringList *log = nullptr;
public Q_SLOTS:
    void open(const QUrl &url) { *log << u"link:"_s + url.toString(); }
};

class tst_PopupModal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_animations = std::make_unique<test::ManualAnimationDriver>();
        m_animations->install();
        QVERIFY(test::listenForImages(m_server));
        m_server.setDefaultResponse(Response::withStatus(200, test::png({ 160, 90 }, Qt::red)));
        m_links.log = &m_log;
        QDesktopServices::setUrlHandler(u"https"_s, &m_links, "open");
    }

    void cleanupTestCase()
    {
        QDesktopServices::unsetUrlHandler(u"https"_s);
        m_animations->uninstall();
    }

    void init()
    {
        m_log.clear();
        m_error.reset();
        m_presenter = std::make_unique<PopupModalPresenter>();
        m_presenter->setOnClicked([this](const InAppMessage &) { m_log << u"clicked"_s; });
        m_presenter->setOnDismissed([this](const InAppMessage &) { m_log << u"dismissed"_s; });
        m_presenter->setOnError([this](const std::optional<InAppMessage> &, const VelmoraError &e) {
            m_log << u"error"_s;
            m_error = e;
        });
    }

    void cleanup()
    {
        m_presenter.reset();
        m_host.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void noForegroundWindow()
    {
        QVERIFY(present(action({}, {})) == nullptr);
        QCOMPARE(m_log, QStringList { u"error"_s });
        QVERIFY(m_error);
        QCOMPARE(m_error->message(),
                 u"Could not find a foreground window scene to display the popup modal."_s);
        QVERIFY(!modalWindowLeft());
    }

    void replacementIsSilent()
    {
        showHost({ 390, 844 });
        QPointer<IAMPopupModalViewController> a = present(action({}, {}), u"a"_s);
        QVERIFY(a);
        const std::function<void()> lateDismissOfA = a->onDismiss;
        QPointer<IAMPopupModalViewController> b = present(action({}, {}), u"b"_s);
        QVERIFY(b && b != a);
        QCOMPARE(b->hostWindow(), m_host.get());
        QTRY_VERIFY(a.isNull());

        lateDismissOfA();
        finishFades();
        QCOMPARE(m_presenter->currentModal(), b.data());
        QVERIFY(b->isVisible());
        QCOMPARE(m_log, (QStringList { u"open:home/a"_s, u"open:home/b"_s }));
    }

    void actions_data()
    {
        QTest::addColumn<QString>("imageLink");
        QTest::addColumn<QString>("buttonLink");
        QTest::addColumn<QString>("control"); // clicked in its middle; none: Escape is pressed
        QTest::addColumn<QStringList>("beforeFade");
        QTest::addColumn<QStringList>("afterFade");

        const QString link = u"https://example.com/offer"_s, image = u"coverImage"_s;
        const QStringList click { u"click:home/s1"_s, u"clicked"_s };
        const QStringList dismissed { u"dismissed"_s },
            closed { u"close:home/s1"_s, u"dismissed"_s };
        QTest::newRow("image without link")
            << QString() << QString() << image << QStringList() << QStringList();
        QTest::newRow("image with link")
            << link << QString() << image << click + QStringList { u"link:"_s + link }
            << QStringList();
        QTest::newRow("button without link")
            << QString() << QString() << u"button"_s << click << dismissed;
        QTest::newRow("button with link") << QString() << link << u"button"_s
                                          << click + QStringList { u"link:"_s + link } << dismissed;
        QTest::newRow("close button")
            << link << link << u"closeButton"_s << QStringList() << closed;
        QTest::newRow("escape") << QString() << QString() << QString() << QStringList() << closed;
    }

    void actions()
    {
        QFETCH(QString, imageLink);
        QFETCH(QString, buttonLink);
        QFETCH(QString, control);
        QFETCH(QStringList, beforeFade);
        QFETCH(QStringList, afterFade);

        showHost({ 390, 844 });
        QPointer<IAMPopupModalViewController> modal = present(action(imageLink, buttonLink));
        QVERIFY(modal);
        QVERIFY(QTest::qWaitForWindowExposed(modal));
        finishFades();
        m_log.clear();

        if (control.isEmpty()) {
            QTest::keyClick(modal, Qt::Key_Escape);
        } else {
            auto *widget = modal->findChild<QWidget *>(control);
            QVERIFY(widget);
            QTest::mouseClick(widget, Qt::LeftButton, {}, widget->rect().center());
        }
        QCOMPARE(m_log, beforeFade);

        finishFades();
        QCOMPARE(m_log, beforeFade + afterFade);
        if (afterFade.isEmpty()) { // it stays
            QCOMPARE(m_presenter->currentModal(), modal.data());
            QVERIFY(modal->isVisible());
            return;
        }
        QCOMPARE(m_presenter->currentModal(), nullptr);
        QTRY_VERIFY(modal.isNull());
        QVERIFY(!modalWindowLeft());
        // The host takes input again.
        QVERIFY(QApplication::activeModalWidget() == nullptr);
    }

    void cardAndDim_data()
    {
        QTest::addColumn<QSize>("window");
        QTest::addColumn<int>("width");
        QTest::newRow("phone") << QSize(360, 740) << 306;
        QTest::newRow("desktop") << QSize(1280, 800) << 400;
    }

    void cardAndDim()
    {
        QFETCH(QSize, window);
        QFETCH(int, width);
        showHost(window);
        IAMPopupModalViewController *modal = present(action({}, {}));
        QVERIFY(QTest::qWaitForWindowExposed(modal));
        QCOMPARE(modal->dimOpacity(), 0.0);
        finishFades();
        QCOMPARE(modal->dimOpacity(), 1.0);
        QCOMPARE(modal->geometry(), m_host->geometry());
        QCOMPARE(modal->cardGeometry().width(), width);
        QVERIFY(std::abs(modal->cardGeometry().center().x() - window.width() / 2) <= 1);

        // The card is drawn where it is placed: white inside, dim just outside.
        const QImage image = modal->grab().toImage();
        const QRect card = modal->cardGeometry();
        const int y = card.bottom() - 4;
        QCOMPARE(QColor(image.pixel(card.left() + 2, y)).rgb(), QColor(Qt::white).rgb());
        QCOMPARE(QColor(image.pixel(card.right() - 2, y)).rgb(), QColor(Qt::white).rgb());
        QVERIFY(qAlpha(image.pixel(card.left() - 12, y)) < 150);
        QVERIFY(std::abs(image.pixelColor(5, 5).alphaF() - 0.4) < 0.02);
        // The dim over the white host, as a compositor would show it.
        QImage screen = m_host->grab().toImage().convertToFormat(QImage::Format_ARGB32);
        QPainter(&screen).drawImage(0, 0, image);
        const QColor dimmed = screen.pixelColor(5, 5);
        QVERIFY2(std::abs(dimmed.red() - 153) <= 3, qPrintable(dimmed.name()));
        QCOMPARE(dimmed.red(), dimmed.blue());

        // The modal keeps covering its host through moves and resizes.
        m_host->setGeometry(m_host->geometry().adjusted(20, 10, 80, 0));
        QCOMPARE(modal->geometry(), m_host->geometry());
        QCOMPARE(modal->cardGeometry().width(),
                 std::min(400, int(std::round(0.85 * m_host->width()))));
    }

    void keyboardFocus()
    {
        showHost({ 390, 844 });
        IAMPopupModalViewController *modal = present(action(u"https://example.com/i"_s, {}));
        QVERIFY(QTest::qWaitForWindowExposed(modal));
        auto *close = modal->findChild<IAMCloseButton *>(u"closeButton"_s);
        auto *image = modal->findChild<IAMAnimatedImageView *>(u"coverImage"_s);
        auto *button = modal->findChild<QAbstractButton *>(u"button"_s);
        QCOMPARE(modal->focusWidget(), close);
        // The offscreen platform does not hand activation to a second window by itself.
        QApplication::setActiveWindow(modal);
        QCOMPARE(modal->windowTitle(), u"Title"_s);
        QCOMPARE(modal->accessibleName(), u"Title"_s);
        QVERIFY(!button->accessibleName().isEmpty() && !image->accessibleName().isEmpty());

        for (QWidget *expected : QWidgetList { image, button, close, image }) {
            QTest::keyClick(modal->focusWidget(), Qt::Key_Tab);
            QCOMPARE(modal->focusWidget(), expected);
        }
        QTest::keyClick(image, Qt::Key_Return);
        QCOMPARE(
            m_log.mid(1),
            (QStringList { u"click:home/s1"_s, u"clicked"_s, u"link:https://example.com/i"_s }));
    }

private:
    void showHost(QSize size)
    {
        m_host = std::make_unique<QWidget>();
        m_host->setAutoFillBackground(true);
        QPalette palette = m_host->palette();
        palette.setColor(QPalette::Window, Qt::white);
        m_host->setPalette(palette);
        m_host->resize(size);
        m_host->show();
        QVERIFY(QTest::qWaitForWindowActive(m_host.get()));
    }
    PopupModalAction action(const QString &imageLink, const QString &buttonLink) const
    {
        PopupModalAction content;
        content.creative.image.url = m_server.url(u"/cover.png"_s).toString();
        if (!imageLink.isEmpty())
            content.creative.image.linkUrl = imageLink;
        content.creative.title = TextContent { u"Title"_s, {}, {} };
        content.creative.body = TextContent { u"Body text"_s, {}, {} };
        ButtonContent button;
        button.text = u"Go"_s;
        if (!buttonLink.isEmpty())
            button.linkUrl = buttonLink;
        content.creative.button = button;
        return content;
    }
    IAMPopupModalViewController *present(const PopupModalAction &content,
                                         const QString &scenario = u"s1"_s)
    {
        m_presenter->present(
            u"home"_s, scenario, content,
            [this](EventsReactionType type, const QString &screen, const QString &id) {
                m_log << rawValue(type) + u":"_s + screen + u"/"_s + id;
            });
        return m_presenter->currentModal();
    }
    void finishFades() { m_animations->advanceBy(layout::fadeDuration.count() + 20); }

    std::unique_ptr<test::ManualAnimationDriver> m_animations;
    HttpServer m_server;
    LinkRecorder m_links;
    std::unique_ptr<QWidget> m_host;
    std::unique_ptr<PopupModalPresenter> m_presenter;
    QStringList m_log;
    std::optional<VelmoraError> m_error;
};

QTEST_MAIN(tst_PopupModal)
#include "tst_widgets_modal.moc"
