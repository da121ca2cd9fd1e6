#pragma once

#include <QtGlobal>

#include <chrono>
#include <functional>

class QWidget;

namespace velmora {

/// Fades a widget in or out with its children, through a QGraphicsOpacityEffect on it.
///
/// A widget holds one graphics effect, so the fade owns that slot for as long as the widget
/// is not fully opaque: a widget that fades draws its own shadow (or sits in a wrapper that
/// fades). A widget that already holds another effect is not animated: it jumps to the end
/// state and the completion still runs.
///
/// The completion runs once per fade, from the event loop: when the fade ends, or when it is
/// interrupted by another fade of the same widget or by stop(). It does not run once the
/// widget is destroyed.
///
///     WidgetFade::hide(card, [this] { reportClose(); });
class WidgetFade
{
public:
    using Completion = std::function<void()>;
    static constexpr std::chrono::milliseconds duration { 300 };
    /// Where show() starts: one step of 8-bit alpha, invisible, yet painted at once.
    static constexpr qreal faintestOpacity = 1.0 / 255;

    /// Makes the widget visible at faintestOpacity and fades it to 1; a widget that ends fully
    /// opaque loses the effect again, so it paints as if never faded.
    static void show(QWidget *widget, Completion completion = {});
    /// Makes the widget visible at opacity 1 and fades it to 0, then hides it. Interrupted,
    /// it stays visible at opacity 0.
    static void hide(QWidget *widget, Completion completion = {});
    /// Interrupts a running fade: the widget takes the fade's final opacity but keeps its
    /// visibility, and the fade's completion runs.
    static void stop(QWidget *widget);

    static bool isFading(const QWidget *widget);
    /// The opacity the fade gives the widget now; 1 when it has no fade.
    static qreal opacity(const QWidget *widget);
};

} // namespace velmora
