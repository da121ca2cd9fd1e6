#pragma once

#include <QObject>
#include <QPointer>

class QWidget;

namespace velmora {

/// A Widgets target as core sees it. Core never includes Widgets, so it cannot turn a QWidget*
/// into a QObject* itself; the front-end builds this from a complete type, and core reads the
/// widget back only while the guard says it still exists.
struct WidgetRef
{
    WidgetRef() = default;
    WidgetRef(QWidget *widget, QObject *sameWidgetAsObject)
        : m_widget(widget)
        , m_guard(sameWidgetAsObject)
    { }

    /// The widget, or null once it has been destroyed.
    QWidget *get() const { return m_guard ? m_widget : nullptr; }
    QObject *object() const { return m_guard; }

private:
    QWidget *m_widget = nullptr;
    QPointer<QObject> m_guard;
};

} // namespace velmora
