#pragma once

#include <QMarginsF>
#include <QRectF>
#include <QSizeF>

#include <functional>

QT_BEGIN_NAMESPACE
class QScreen;
class QWindow;
QT_END_NAMESPACE

namespace velmora::layout {

/// The area popup banner sizes are resolved against: bounds and the insets that are not safe.
struct ScreenSnapshot
{
    QRectF bounds;
    QMarginsF safeAreaInsets;

    /// Bounds less the insets, floored at 0 in each direction.
    QSizeF safeSize() const;

    /// The phone-sized stand-in used when there is no window or screen yet: 390 x 844, no
    /// insets, so that sizes still resolve before anything is on screen.
    static ScreenSnapshot fallback() { return { QRectF(0, 0, 390, 844), {} }; }
};

/// Where a host says which parts of a window are covered (notches, rounded corners, system
/// bars). Qt has no public safe-area API, so without a provider every window is fully safe.
using SafeAreaProvider = std::function<QMarginsF(const QWindow *window)>;

/// Installs the host's provider (GUI thread only); an empty one restores zero insets. Returns
/// the previous provider.
SafeAreaProvider setSafeAreaProvider(SafeAreaProvider provider);
/// The insets of `window` from the installed provider; zero without one or without a window.
QMarginsF safeAreaInsets(const QWindow *window);

/// The top-level window the user is working in: the top-level of the focus window when it is
/// visible, else the first visible top-level window; null when there is none.
QWindow *foregroundWindow();

/// The snapshot for these candidates, in order: the window gives bounds of its size (origin
/// 0, 0) and the provider's insets; else the screen gives its geometry's size and no insets;
/// else the fallback. Bounds are deliberately the window, not the monitor: a percentage of a
/// 1920-pixel monitor would overflow a 390-pixel window.
ScreenSnapshot screenSnapshot(const QWindow *window, const QScreen *screen);
/// screenSnapshot(foregroundWindow(), the primary screen).
ScreenSnapshot currentScreenSnapshot();

/// The insets of `parentInsets` that reach into `child` (a rectangle in the parent's
/// coordinates), in the child's coordinates: how a view inherits its container's safe area.
QMarginsF safeAreaInsetsWithin(const QRectF &child, const QSizeF &parentSize,
                               const QMarginsF &parentInsets);

} // namespace velmora::layout
