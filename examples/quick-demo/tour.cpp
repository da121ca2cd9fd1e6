#include "tour.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

#include <QDir>
#include <QGuiApplication>
#include <QPainter>
#include <QQuickItem>
#include <QQuickWindow>
#include <QtCore/qtestsupport_core.h>

#include <algorithm>
#include <cstdio>
#include <tuple>

using namespace Qt::StringLiterals;
using velmora::InAppMessage;

namespace quickdemo {

namespace {

// The modal is a translucent window of its own; the library names it "popupModal".
QQuickWindow *visibleModal()
{
    const auto windows = QGuiApplication::topLevelWindows();
    for (QWindow *window : windows) {
        if (window->objectName() == u"popupModal" && window->isVisible())
            return qobject_cast<QQuickWindow *>(window);
    }
    return nullptr;
}

// A window grab has no alpha. The scene drawn over black and over white tells each pixel's
// alpha and colour apart, so the modal's dim can be laid over the shop as a screen shows it.
QImage grabTranslucent(QQuickWindow *window)
{
    const QColor color = window->color();
    window->setColor(Qt::black);
    const QImage overBlack = window->grabWindow().convertToFormat(QImage::Format_ARGB32);
    window->setColor(Qt::white);
    const QImage overWhite = window->grabWindow().convertToFormat(QImage::Format_ARGB32);
    window->setColor(color);
    QImage out(overBlack.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < out.height(); ++y) {
        const auto *black = reinterpret_cast<const QRgb *>(overBlack.constScanLine(y));
        const auto *white = reinterpret_cast<const QRgb *>(overWhite.constScanLine(y));
        auto *pixel = reinterpret_cast<QRgb *>(out.scanLine(y));
        for (int x = 0; x < out.width(); ++x) {
            const int alpha = std::clamp(255 - (qGreen(white[x]) - qGreen(black[x])), 0, 255);
            pixel[x] = qRgba(std::min(qRed(black[x]), alpha), std::min(qGreen(black[x]), alpha),
                             std::min(qBlue(black[x]), alpha), alpha);
        }
    }
    return out;
}

// Items of a screen that the library puts there, found by what they declare.
QList<QQuickItem *> itemsWith(QQuickItem *root, const char *property)
{
    QList<QQuickItem *> found;
    if (!root)
        return found;
    if (root->isVisible() && root->metaObject()->indexOfProperty(property) >= 0)
        found << root;
    const auto children = root->childItems();
    for (QQuickItem *child : children)
        found << itemsWith(child, property);
    return found;
}

// QML functions take their arguments as variants.
void call(QObject *object, const char *function, const QVariant &argument)
{
    QMetaObject::invokeMethod(object, function, Q_ARG(QVariant, argument));
}

} // namespace

Tour::Tour(QQuickWindow *window, const QString &outputDir)
    : m_window(window)
    , m_outputDir(outputDir)
{ }

int Tour::run()
{
    QDir().mkpath(m_outputDir);
    m_window->resize(400, 760);
    visit([this] {
        m_window->show();
        m_window->requestActivate();
    });
    save(u"01-home-modal"_s);
    if (QQuickWindow *modal = visibleModal()) {
        tap(modal, u"closeButton"_s);
        std::ignore = QTest::qWaitFor([] { return !visibleModal(); }, 3000);
        QTest::qWait(400);
    }
    save(u"02-home"_s);

    visit([this] { call(m_window, "showTab", 1); });
    save(u"03-catalogue"_s);

    visit([this] { call(m_window, "openProduct", 2); });
    save(u"04-product"_s);
    // Tap the banner's button: the click is reported and the banner goes away.
    if (tap(m_window, u"button"_s))
        QTest::qWait(600);
    call(m_window, "addToCart", 2);
    call(m_window, "addToCart", 0);

    visit([this] { call(m_window, "showTab", 2); });
    if (QObject *page = m_window->property("currentPage").value<QObject *>())
        QMetaObject::invokeMethod(page, "fillOrderForm", Q_ARG(QVariant, u"Alex Morgan"_s),
                                  Q_ARG(QVariant, u"alex@example.com"_s),
                                  Q_ARG(QVariant, u"12 Harbour Street"_s));
    QTest::qWait(200);
    save(u"05-cart"_s);
    if (tap(m_window, u"closeButton"_s))
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
    const QString screen = m_window->property("currentScreen").toString();
    // The first answer for the screen arrives, then the pictures load.
    QTest::qWait(400);
    const bool ready = QTest::qWaitFor(
        [this] {
            QQuickItem *content = m_window->contentItem();
            const auto slots = itemsWith(content, "revealed");
            const auto revealed = std::count_if(slots.cbegin(), slots.cend(), [](QQuickItem *slot) {
                return slot->property("revealed").toBool();
            });
            const auto banners = itemsWith(content, "imageSettled");
            const auto shown = std::count_if(banners.cbegin(), banners.cend(), [](QQuickItem *b) {
                return b->property("shown").toBool() && b->property("imageSettled").toBool();
            });
            bool modalReady = m_tally.modals == 0;
            if (QQuickWindow *modal = visibleModal()) {
                const QQuickItem *image = find(modal->contentItem(), u"coverImage"_s);
                const int status = image ? image->property("status").toInt() : 0;
                modalReady = !image || image->property("source").toString().isEmpty() || status == 2
                    || status == 3;
            }
            return revealed >= std::min<qsizetype>(m_tally.embeddedBanners, slots.size())
                && shown >= m_tally.popupBanners && modalReady;
        },
        10000);
    if (!ready)
        std::fprintf(stderr, "tour: %s: not every message showed in time\n", qPrintable(screen));
    // The fade-ins and the stack's transition.
    QTest::qWait(700);
}

QQuickItem *Tour::find(QQuickItem *root, const QString &objectName) const
{
    if (!root)
        return nullptr;
    if (root->objectName() == objectName && root->isVisible())
        return root;
    const auto children = root->childItems();
    for (QQuickItem *child : children) {
        if (QQuickItem *found = find(child, objectName))
            return found;
    }
    return nullptr;
}

bool Tour::tap(QQuickWindow *window, const QString &objectName)
{
    QQuickItem *item = find(window->contentItem(), objectName);
    if (!item)
        return false;
    // What a tap on the control does: its clicked() signal, as its mouse area would emit it.
    const bool tapped = QMetaObject::invokeMethod(item, "clicked");
    QTest::qWait(50);
    return tapped;
}

void Tour::save(const QString &name)
{
    QImage image = m_window->grabWindow().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (QQuickWindow *modal = visibleModal()) {
        QPainter painter(&image);
        painter.drawImage((modal->position() - m_window->position()) * m_window->devicePixelRatio(),
                          grabTranslucent(modal));
    }
    const QString path = QDir(m_outputDir).absoluteFilePath(name + u".png"_s);
    if (!image.save(path)) {
        std::fprintf(stderr, "tour: cannot write %s\n", qPrintable(path));
        ++m_failures;
        return;
    }
    std::printf("%s\n", qPrintable(path));
    std::fflush(stdout);
}

} // namespace quickdemo
