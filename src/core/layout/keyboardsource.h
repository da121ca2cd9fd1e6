#pragma once

#include <QEasingCurve>
#include <QObject>
#include <QRectF>

#include <chrono>

namespace velmora::layout {

/// Where the on-screen keyboard is, and when it is about to move, so bottom-row banners can
/// follow it with the keyboard's own animation.
class KeyboardSource : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// In the coordinates of the window the keyboard covers; empty while hidden.
    virtual QRectF keyboardRectangle() const = 0;
    virtual bool isKeyboardVisible() const = 0;

Q_SIGNALS:
    /// The keyboard is about to become `visible` at `endRectangle`, moving for `durationMs`
    /// along `easing`; animate with the same values to stay on top of it.
    void keyboardWillChange(bool visible, const QRectF &endRectangle, int durationMs,
                            const QEasingCurve &easing);
};

/// The keyboard of QGuiApplication::inputMethod(). Qt reports only where the keyboard ends
/// up, not how it gets there, so changes carry a platform-typical 250 ms OutCubic. Platforms
/// without a virtual keyboard (desktop, offscreen) never report a change.
class InputMethodKeyboardSource final : public KeyboardSource
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds animationDuration { 250 };
    static constexpr QEasingCurve::Type animationEasing = QEasingCurve::OutCubic;

    explicit InputMethodKeyboardSource(QObject *parent = nullptr);

    QRectF keyboardRectangle() const override;
    bool isKeyboardVisible() const override;

private:
    void update();

    bool m_visible = false;
    QRectF m_rectangle;
};

/// A keyboard moved by hand: tests, and platform layers that learn of the keyboard by other
/// means, set its state and it reports the change.
class ManualKeyboardSource final : public KeyboardSource
{
    Q_OBJECT

public:
    using KeyboardSource::KeyboardSource;

    QRectF keyboardRectangle() const override { return m_rectangle; }
    bool isKeyboardVisible() const override { return m_visible; }

    /// Shows the keyboard at `rectangle`, or hides it when `visible` is false, and emits
    /// keyboardWillChange with these animation values.
    void setKeyboard(bool visible, const QRectF &rectangle, int durationMs = 250,
                     const QEasingCurve &easing = QEasingCurve::OutCubic);

private:
    bool m_visible = false;
    QRectF m_rectangle;
};

} // namespace velmora::layout
