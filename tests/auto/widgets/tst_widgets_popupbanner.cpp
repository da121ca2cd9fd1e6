#include "layout/keyboardsource.h"
#include "layout/screensnapshot.h"
#include "popupbanner/iampopupbannerviewcontroller.h"
#include "popupbanner/popupbannerpresenter.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/iamclosebutton.h"
#include "widgetstestsupport.h"

#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QAccessible>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;

namespace {

ContentsSize pxWidth(int width)
{
    return ContentsSize { { width, ContentsLength::Unit::Px }, std::nullopt };
}

struct Events
{
    QStringList log;
    std::optional<VelmoraError> error;
};

} // namespace

class tst_PopupBanner : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(test::listenForImages(m_server)); }

    void init()
    {
        m_host = std::make_unique<QWidget>();
        m_host->resize(400, 800);
        m_host->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_host.get()));
        m_keyboard = std::make_unique<layout::ManualKeyboardSource>();
        m_presenter = std::make_unique<PopupBannerPresenter>(m_keyboard.get());
        m_events = std::make_shared<Events>();
        auto events = m_events;
        m_presenter->setOnClicked([events](const InAppMessage &) { events->log << u"clicked"_s; });
        m_presenter->setOnDismissed(
            [events](const InAppMessage &) { events->log << u"dismissed"_s; });
        m_presenter->setOnError(
            [events](const std::optional<InAppMessage> &, const VelmoraError &e) {
                events->log << u"error"_s;
                events->error = e;
            });
    }

    void cleanup()
    {
        layout::setSafeAreaProvider({});
        m_presenter.reset();
        m_host.reset();
    }

    void placement_data()
    {
        QTest::addColumn<DisplayPosition>("position");
        QTest::addColumn<std::optional<ContentsSize>>("size");
        QTest::addColumn<QMarginsF>("safeArea");
        QTest::addColumn<QRect>("card"); // in the host
        QTest::addColumn<int>("widthAt600"); // once the host is 600 wide

        const std::optional<ContentsSize> none;
        // Image-only banners: the 200 x 100 picture is half as tall as the card is wide, and the
        // empty text block adds its 12 + 12.
        QTest::newRow("top left, three quarters") << DisplayPosition::TopLeft << none << QMarginsF()
                                                  << QRect(10, 10, 280, 140 + 24) << 430;
        QTest::newRow("top right, three quarters")
            << DisplayPosition::TopRight << none << QMarginsF() << QRect(110, 10, 280, 164) << 430;
        QTest::newRow("top, full width")
            << DisplayPosition::Top << none << QMarginsF() << QRect(10, 10, 380, 190 + 24) << 580;
        QTest::newRow("bottom, safe area")
            << DisplayPosition::Bottom << none << QMarginsF(0, 40, 0, 34)
            << QRect(10, 800 - 34 - 10 - 214, 380, 214) << 580;
        QTest::newRow("center, centred on safe area")
            << DisplayPosition::Center << none << QMarginsF(0, 100, 0, 0)
            << QRect(10, 100 + (700 - 234) / 2 + 10, 380, 214) << 580;
        QTest::newRow("top with size ignores side margins")
            << DisplayPosition::Top << std::optional(pxWidth(200)) << QMarginsF()
            << QRect(100, 10, 200, 124) << 200;
        QTest::newRow("top right with size uses the right margin")
            << DisplayPosition::TopRight << std::optional(pxWidth(200)) << QMarginsF(0, 0, 20, 0)
            << QRect(400 - 20 - 10 - 200, 10, 200, 124) << 200;
        QTest::newRow("bottom left with size")
            << DisplayPosition::BottomLeft << std::optional(pxWidth(100)) << QMarginsF()
            << QRect(10, 800 - 10 - 74, 100, 74) << 100;
    }

    void placement()
    {
        QFETCH(DisplayPosition, position);
        QFETCH(std::optional<ContentsSize>, size);
        QFETCH(QMarginsF, safeArea);
        QFETCH(QRect, card);
        QFETCH(int, widthAt600);

        layout::setSafeAreaProvider([safeArea](const QWindow *) { return safeArea; });
        PopupBannerAction content = action(position);
        content.size = size;
        IAMPopupBannerViewController *banner = showAndWait(content);
        QVERIFY(banner);
        QCOMPARE(banner->parentWidget(), m_host.get());
        QCOMPARE(cardInHost(banner), card);

        // Placed again when the target changes size.
        m_host->resize(600, 800);
        QTRY_COMPARE(banner->cardGeometry().width(), widthAt600);
    }

    void keyboard_data()
    {
        QTest::addColumn<DisplayPosition>("position");
        QTest::addColumn<qreal>("keyboardHeight");
        QTest::addColumn<int>("expectedShift"); // of the card, positive is up

        QTest::newRow("bottom row rises above the keyboard")
            << DisplayPosition::Bottom << 300.0 << 266;
        QTest::newRow("bottom right too") << DisplayPosition::BottomRight << 300.0 << 266;
        QTest::newRow("a keyboard lower than the inset moves it down")
            << DisplayPosition::BottomLeft << 20.0 << -14;
        QTest::newRow("top row stays") << DisplayPosition::Top << 300.0 << 0;
        QTest::newRow("centre row stays") << DisplayPosition::CenterRight << 300.0 << 0;
    }

    void keyboard()
    {
        QFETCH(DisplayPosition, position);
        QFETCH(qreal, keyboardHeight);
        QFETCH(int, expectedShift);

        layout::setSafeAreaProvider([](const QWindow *) { return QMarginsF(0, 0, 0, 34); });
        IAMPopupBannerViewController *banner = showAndWait(action(position));
        QVERIFY(banner);
        const int before = cardInHost(banner).y();
        m_keyboard->setKeyboard(true, QRectF(0, 800 - keyboardHeight, 400, keyboardHeight), 0);
        QTRY_COMPARE(before - cardInHost(banner).y(), expectedShift);
        m_keyboard->setKeyboard(false, QRectF(), 0);
        QTRY_COMPARE(cardInHost(banner).y(), before);
    }

    // Waiting banners show one after the other; one whose screen went meanwhile is skipped.
    // Dismissing all drops the shown and the waiting ones without reporting them.
    void queue()
    {
        auto *otherScreen = new QWidget(m_host.get());
        otherScreen->resize(400, 800);
        otherScreen->show();
        m_presenter->present(request(action(DisplayPosition::Bottom), m_host.get(), u"first"_s));
        m_presenter->present(request(action(DisplayPosition::Bottom), otherScreen, u"orphan"_s));
        m_presenter->present(
            request(action(DisplayPosition::Bottom, u"/tall.png"_s), m_host.get(), u"second"_s));
        QPointer<IAMPopupBannerViewController> first
            = m_presenter->bannerAt(DisplayPosition::Bottom);
        QVERIFY(first);
        QCOMPARE(m_presenter->queuedCount(DisplayPosition::Bottom), 2);
        QTRY_VERIFY(first->hasReportedOpen());
        delete otherScreen;

        first->findChild<IAMCloseButton *>()->click();
        QTRY_VERIFY(!first);
        QPointer<IAMPopupBannerViewController> second
            = m_presenter->bannerAt(DisplayPosition::Bottom);
        QVERIFY(second);
        QTRY_VERIFY(second->hasReportedOpen());
        const QStringList log { u"open:home/first"_s, u"close:home/first"_s, u"dismissed"_s,
                                u"open:home/second"_s };
        QCOMPARE(m_events->log, log);

        m_presenter->present(request(action(DisplayPosition::Bottom), m_host.get(), u"queued"_s));
        m_presenter->dismissAll();
        QTRY_VERIFY(!second);
        QCOMPARE(m_presenter->queuedCount(DisplayPosition::Bottom), 0);
        QVERIFY(!m_presenter->bannerAt(DisplayPosition::Bottom));
        QCOMPARE(m_events->log, log);
    }

    void closeReportsAfterFade()
    {
        IAMPopupBannerViewController *banner = showAndWait(action(DisplayPosition::Center));
        QVERIFY(banner);
        QStringList expected { u"open:home/s1"_s };
        QCOMPARE(m_events->log, expected);

        // A tap on the image reports a click even without a link; the banner stays.
        QTest::mouseClick(banner->findChild<IAMAnimatedImageView *>(), Qt::LeftButton);
        expected << u"click:home/s1"_s << u"clicked"_s;
        QCOMPARE(m_events->log, expected);

        QPointer<IAMPopupBannerViewController> guard(banner);
        banner->findChild<IAMCloseButton *>()->click();
        QCOMPARE(m_events->log, expected); // nothing before the fade ends
        QTRY_VERIFY(!guard);
        QCOMPARE(m_events->log, expected << u"close:home/s1"_s << u"dismissed"_s);
        QVERIFY(!m_presenter->bannerAt(DisplayPosition::Center));
    }

    void imageFailure_data()
    {
        QTest::addColumn<bool>("withTitle");
        QTest::newRow("with text: shown without its image") << true;
        QTest::newRow("without text: never shown") << false;
    }

    void imageFailure()
    {
        QFETCH(bool, withTitle);
        const PopupBannerAction content
            = action(DisplayPosition::Top, u"/missing.png"_s, withTitle);
        m_presenter->present(request(content, m_host.get()));
        QPointer<IAMPopupBannerViewController> banner = m_presenter->bannerAt(DisplayPosition::Top);
        QVERIFY(banner);
        if (withTitle) {
            QTRY_VERIFY(banner->hasReportedOpen());
            QVERIFY(banner->findChild<IAMAnimatedImageView *>()->isHidden());
            QCOMPARE(m_events->log, QStringList { u"open:home/s1"_s });
            return;
        }
        QTRY_VERIFY(!banner);
        QCOMPARE(m_events->log, QStringList { u"error"_s });
        QVERIFY(m_events->error);
        QCOMPARE(m_events->error->kind(), VelmoraError::Kind::NetworkError);
        const ImageLoadError *imageError = m_events->error->underlyingError()->imageLoadError();
        QVERIFY(imageError);
        QCOMPARE(imageError->urlString, content.creative.image.url);
        QVERIFY(!m_presenter->bannerAt(DisplayPosition::Top));
    }

    void cardPixels()
    {
        PopupBannerAction content = action(DisplayPosition::Top, u"/wide.png"_s, true);
        content.creative.backgroundColor = u"00FF00"_s;
        IAMPopupBannerViewController *banner = showAndWait(content);
        QVERIFY(banner);
        QTest::qWait(400); // the fade-in
        const QRect card = cardInHost(banner);
        for (const qreal dpr : { 1.0, 2.0 }) {
            QImage image(m_host->size() * dpr, QImage::Format_ARGB32);
            image.setDevicePixelRatio(dpr);
            m_host->render(&image);
            const auto at = [&](QPoint p) { return image.pixelColor(p * dpr); };
            // The picture on top, the creative's background under it, a soft shadow below.
            QCOMPARE(at(card.topLeft() + QPoint(5, 60)), QColor(Qt::red));
            QCOMPARE(at(QPoint(card.left() + 4, card.bottom() - 2)), QColor(Qt::green));
            const QColor shadow = at(QPoint(card.center().x(), card.bottom() + 3));
            const QColor window = at(QPoint(card.center().x(), card.bottom() + 30));
            QVERIFY2(shadow.lightness() < window.lightness() && shadow.lightness() > 150,
                     qPrintable(shadow.name()));
        }
    }

    void accessibility_data()
    {
        QTest::addColumn<QString>("title"); // and the card's name
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("buttonText");
        QTest::addColumn<QString>("imageLink");

        QTest::newRow("title, button, linked image")
            << u"Sale"_s << u"Half price"_s << u"Shop"_s << u"https://example.com/"_s;
        QTest::newRow("body only, plain image")
            << QString() << u"Half price"_s << QString() << QString();
    }

    void accessibility()
    {
        QFETCH(QString, title);
        QFETCH(QString, body);
        QFETCH(QString, buttonText);
        QFETCH(QString, imageLink);

        PopupBannerAction content = action(DisplayPosition::Top);
        if (!title.isEmpty())
            content.creative.title = TextContent { title, {}, {} };
        content.creative.body = TextContent { body, {}, {} };
        if (!buttonText.isEmpty())
            content.creative.button = ButtonContent { buttonText, {}, {}, {} };
        if (!imageLink.isEmpty())
            content.creative.image.linkUrl = imageLink;
        IAMPopupBannerViewController *banner = showAndWait(content);
        QVERIFY(banner);

        const auto describe = [](QObject *object) {
            QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(object);
            return accessible ? std::pair(accessible->role(), accessible->text(QAccessible::Name))
                              : std::pair(QAccessible::NoRole, QString());
        };
        // Named after its title, or its body when it has none.
        QCOMPARE(describe(banner).second, title.isEmpty() ? body : title);
        QCOMPARE(describe(banner->findChild<IAMCloseButton *>()),
                 std::pair(QAccessible::Button, u"Close"_s));
        auto *button = banner->findChild<QWidget *>(u"button"_s);
        QCOMPARE(button != nullptr, !buttonText.isEmpty());
        if (button) {
            QCOMPARE(describe(button), std::pair(QAccessible::Button, buttonText));
            QCOMPARE(button->focusPolicy(), Qt::StrongFocus);
        }
        QCOMPARE(describe(banner->findChild<IAMAnimatedImageView *>()).first,
                 imageLink.isEmpty() ? QAccessible::Graphic : QAccessible::Button);
    }

private:
    PopupBannerAction action(DisplayPosition position, const QString &imagePath = u"/wide.png"_s,
                             bool withTitle = false) const
    {
        PopupBannerAction content;
        content.position = position;
        content.margin = { 10, 10, 10, 10 };
        content.creative.image.url = m_server.url(imagePath).toString();
        if (withTitle)
            content.creative.title = TextContent { u"Title"_s, {}, {} };
        return content;
    }
    PopupBannerRequest request(const PopupBannerAction &content, QWidget *target,
                               const QString &scenario = u"s1"_s)
    {
        PopupBannerRequest request;
        request.screenName = u"home"_s;
        request.scenarioId = scenario;
        request.content = content;
        request.target = target;
        request.reactionHandler = [events = m_events](EventsReactionType type,
                                                      const QString &screen, const QString &id) {
            events->log << rawValue(type) + u":"_s + screen + u"/"_s + id;
        };
        return request;
    }
    IAMPopupBannerViewController *showAndWait(const PopupBannerAction &content)
    {
        m_presenter->present(request(content, m_host.get()));
        IAMPopupBannerViewController *banner = m_presenter->bannerAt(content.position);
        if (banner && !QTest::qWaitFor([banner] { return banner->hasReportedOpen(); }, 5000))
            return nullptr;
        return banner;
    }
    // The card's geometry in the host's coordinates.
    QRect cardInHost(IAMPopupBannerViewController *banner) const
    {
        return QRect(banner->mapTo(m_host.get(), banner->cardGeometry().topLeft()),
                     banner->cardGeometry().size());
    }

    HttpServer m_server;
    std::unique_ptr<QWidget> m_host;
    std::unique_ptr<layout::ManualKeyboardSource> m_keyboard;
    std::unique_ptr<PopupBannerPresenter> m_presenter;
    std::shared_ptr<Events> m_events;
};

QTEST_MAIN(tst_PopupBanner)
#include "tst_widgets_popupbanner.moc"
