#include "layout/screensnapshot.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <algorithm>

namespace velmora::layout {

namespace {
SafeAreaProvider &installedProvider()
{
    static SafeAreaProvider provider;
    return provider;
}
} // namespace

QSizeF ScreenSnapshot::safeSize() const
{
    return { std::max(0.0, bounds.width() - safeAreaInsets.left() - safeAreaInsets.right()),
             std::max(0.0, bounds.height() - safeAreaInsets.top() - safeAreaInsets.bottom()) };
}

SafeAreaProvider setSafeAreaProvider(SafeAreaProvider provider)
{
    return std::exchange(installedProvider(), std::move(provider));
}

QMarginsF safeAreaInsets(const QWindow *window)
{
    const SafeAreaProvider &provider = installedProvider();
    return window && provider ? provider(window) : QMarginsF();
}

QWindow *foregroundWindow()
{
    if (QWindow *window = QGuiApplication::focusWindow()) {
        while (QWindow *parent = window->parent())
            window = parent;
        // Some platforms (offscreen among them) leave focus on a window after hiding it.
        if (window->isVisible())
            return window;
    }
    const QWindowList windows = QGuiApplication::topLevelWindows();
    const auto visible = std::find_if(windows.cbegin(), windows.cend(),
                                      [](const QWindow *window) { return window->isVisible(); });
    return visible != windows.cend() ? *visible : nullptr;
}

ScreenSnapshot screenSnapshot(const QWindow *window, const QScreen *screen)
{
    if (window)
        return { QRectF(QPointF(), window->size()), safeAreaInsets(window) };
    if (screen)
        return { QRectF(QPointF(), screen->geometry().size()), {} };
    return ScreenSnapshot::fallback();
}

ScreenSnapshot currentScreenSnapshot()
{
    return screenSnapshot(foregroundWindow(), QGuiApplication::primaryScreen());
}

QMarginsF safeAreaInsetsWithin(const QRectF &child, const QSizeF &parentSize,
                               const QMarginsF &parentInsets)
{
    return { std::max(0.0, parentInsets.left() - child.left()),
             std::max(0.0, parentInsets.top() - child.top()),
             std::max(0.0, child.right() - (parentSize.width() - parentInsets.right())),
             std::max(0.0, child.bottom() - (parentSize.height() - parentInsets.bottom())) };
}

} // namespace velmora::layout
