#include "tour.h"

#include "shopwindow.h"

#include <VelmoraInAppMessaging/iamuiembeddedbanner.h>
#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QApplication>
#include <QDir>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollArea>
#include <QScrollBar>
#include <QWindow>
#include <QtCore/qtestsupport_core.h>

#include <cstdio>
#include <tuple>

using namespace Qt::StringLiterals;
using velmora::IAMUIEmbeddedBanner;
using velmora::InAppMessage;

namespace shopdemo {

namespace { } // namespace

Tour::Tour(ShopWindow *window, const QString &outputDir)
    : m_window(window)
    , m_outputDir(outputDir)
{ }

int Tour::run()
{
    QDir().mkpath(m_outputDir);
    m_window->resize(400, 760);
    m_window->show();
    QApplication::setActiveWindow(m_window);
    if (!QTest::qWaitFor([this] { return m_window->windowHandle()->isExposed(); }, 5000))
        return 1;

    visit([this] { m_window->start(); });
    save(u"01-home-modal"_s);
    if (QWidget *modal = visibleModal()) {
        // The close button sits on the card, in the modal's own window.
        const auto closeButtons = modal->findChildren<QWidget *>(u"closeButton"_s);
        if (!closeButtons.isEmpty()) {
            click(closeButtons.first());
            std::ignore = QTest::qWaitFor([this] { return !visibleModal(); }, 3000);
        }
        QTest::qWait(400);
    }
    save(u"02-home"_s);

    visit([this] { m_window->showScreen(ShopWindow::Screen::Catalogue); });
    save(u"03-catalogue"_s);

    visit([this] { m_window->openProduct(2); });
    save(u"04-product"_s);
    // Tap the banner's button: the click is reported and the banner goes away.
    for (QWidget *button : visibleBannerControls(u"button"_s))
        click(button);
    m_window->addToCart(2);
    m_window->addToCart(0);

    visit([this] { m_window->showScreen(ShopWindow::Screen::Cart); });
    m_window->fillOrderForm(u"Alex Morgan"_s, u"alex@example.com"_s, u"12 Harbour Street"_s);
    QTest::qWait(200);
    save(u"05-cart"_s);
    for (QWidget *close : visibleBannerControls(u"closeButton"_s))
        click(close);
    // Down to the slot at the end of the form.
    if (auto *scroll = m_window->screenWidget(ShopWindow::Screen::Cart)->findChild<QScrollArea *>())
        scroll->verticalScrollBar()->setValue(scroll->verticalScrollBar()->maximum());
    QTest::qWait(600);
    save(u"06-cart-closed"_s);

    // Let the reactions of the last taps leave before the process ends.
    QTest::qWait(1500);
    return m_failures == 0 && m_tally.shown > 0 ? 0 : 1;
}

void Tour::visit(const std::function<void()> &navigate)
{
    m_tally.startScreen();
    navigate();
    if (!waitForMessages()) {
        std::fprintf(stderr, "tour: %s: not every message showed in time\n",
                     qPrintable(ShopWindow::screenName(m_window->currentScreen())));
    }
    // The fade-in, and the pictures of a modal, which shows before they arrive.
    QTest::qWait(visibleModal() ? 1500 : 600);
}

bool Tour::waitForMessages()
{
    const ShopWindow::Screen screen = m_window->currentScreen();
    const auto ready = [this, screen] {
        for (const IAMUIEmbeddedBanner *slot : m_window->embeddedSlots(screen)) {
            if (slot->state() == IAMUIEmbeddedBanner::State::Placeholder)
                return false;
        }
        // A popup banner shows once its picture is in.
        return int(visibleBannerControls(u"closeButton"_s).size()) >= m_tally.popupBanners
            && (m_tally.modals == 0 || visibleModal());
    };
    // The first answer for the screen arrives, then the pictures load.
    QTest::qWait(300);
    return QTest::qWaitFor(ready, 10000);
}

QWidget *Tour::visibleModal() const
{
    const auto windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (window->objectName() == u"popupModal" && window->isVisible())
            return window;
    }
    return nullptr;
}

QList<QWidget *> Tour::visibleBannerControls(const QString &objectName) const
{
    QList<QWidget *> controls;
    QWidget *page = m_window->screenWidget(m_window->currentScreen());
    const auto children = page->findChildren<QWidget *>(objectName);
    for (QWidget *child : children) {
        if (child->isVisible())
            controls << child;
    }
    return controls;
}

void Tour::click(QWidget *widget)
{
    const QPointF local = QRectF(widget->rect()).center();
    const QPointF global = widget->mapToGlobal(local);
    QMouseEvent press(QEvent::MouseButtonPress, local, global, Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QMouseEvent release(QEvent::MouseButtonRelease, local, global, Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(widget, &press);
    QApplication::sendEvent(widget, &release);
    QTest::qWait(50);
}

void Tour::save(const QString &name)
{
    // The modal is a window of its own over the shop's window: draw both as the screen shows
    // them.
    QImage image(m_window->size() * m_window->devicePixelRatio(),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(m_window->devicePixelRatio());
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        m_window->render(&painter);
        if (QWidget *modal = visibleModal()) {
            // The modal paints its dim by replacing pixels, as a window of its own does: draw
            // it apart, then over the shop.
            QImage layer(modal->size() * m_window->devicePixelRatio(),
                         QImage::Format_ARGB32_Premultiplied);
            layer.setDevicePixelRatio(m_window->devicePixelRatio());
            layer.fill(Qt::transparent);
            modal->render(&layer, QPoint(), QRegion(), QWidget::DrawChildren);
            painter.drawImage(modal->mapToGlobal(QPoint()) - m_window->mapToGlobal(QPoint()),
                              layer);
        }
    }
    const QString path = QDir(m_outputDir).absoluteFilePath(name + u".png"_s);
    if (!image.save(path, "PNG", 0)) {
        std::fprintf(stderr, "tour: cannot write %s\n", qPrintable(path));
        ++m_failures;
        return;
    }
    std::printf("%s\n", qPrintable(path));
    std::fflush(stdout);
}

} // namespace shopdemo
