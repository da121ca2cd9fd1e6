#include "layout/keyboardsource.h"

#include <QGuiApplication>
#include <QInputMethod>
#include <QTransform>

namespace velmora::layout {

InputMethodKeyboardSource::InputMethodKeyboardSource(QObject *parent)
    : KeyboardSource(parent)
{
    QInputMethod *inputMethod = QGuiApplication::inputMethod();
    connect(inputMethod, &QInputMethod::keyboardRectangleChanged, this,
            &InputMethodKeyboardSource::update);
    connect(inputMethod, &QInputMethod::visibleChanged, this, &InputMethodKeyboardSource::update);
    m_visible = inputMethod->isVisible();
    m_rectangle = keyboardRectangle();
}

QRectF InputMethodKeyboardSource::keyboardRectangle() const
{
    const QInputMethod *inputMethod = QGuiApplication::inputMethod();
    if (!inputMethod->isVisible())
        return {};
    // QInputMethod reports the keyboard in the focused item's coordinates; its transform takes
    // them back to the window's.
    return inputMethod->inputItemTransform().mapRect(inputMethod->keyboardRectangle());
}

bool InputMethodKeyboardSource::isKeyboardVisible() const
{
    return QGuiApplication::inputMethod()->isVisible();
}

void InputMethodKeyboardSource::update()
{
    // A show usually arrives as two signals (rectangle, then visibility); report it once.
    const bool visible = isKeyboardVisible();
    const QRectF rectangle = keyboardRectangle();
    if (visible == m_visible && rectangle == m_rectangle)
        return;
    m_visible = visible;
    m_rectangle = rectangle;
    Q_EMIT keyboardWillChange(visible, rectangle, int(animationDuration.count()),
                              QEasingCurve(animationEasing));
}

void ManualKeyboardSource::setKeyboard(bool visible, const QRectF &rectangle, int durationMs,
                                       const QEasingCurve &easing)
{
    m_visible = visible;
    m_rectangle = visible ? rectangle : QRectF();
    Q_EMIT keyboardWillChange(m_visible, m_rectangle, durationMs, easing);
}

} // namespace velmora::layout
