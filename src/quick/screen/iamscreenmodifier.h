#pragma once

#include <QJSValue>
#include <QMetaObject>
#include <QPointer>
#include <QQuickItem>
#include <QtQml/qqmlregistration.h>

#include <memory>

namespace velmora::quick {

/// What VelmoraScreen does with its screen's life: a screen view each time the item becomes
/// visible in a visible window, and the popup banners cleared when it stops being visible.
///
/// Visibility is settled once per pass of the event loop, so that a screen that is hidden and
/// shown again within one change (a reparenting, a replace) neither clears nor fetches.
class IAMScreenModifier : public QQuickItem
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString screenName READ screenName WRITE setScreenName NOTIFY screenNameChanged)
    /// A function returning CustomParameter entries, called at each fetch.
    Q_PROPERTY(QJSValue customParameter READ customParameter WRITE setCustomParameter NOTIFY
                   customParameterChanged)
    /// True from the screen view of an appearance until the screen disappears.
    Q_PROPERTY(bool shown READ isShown NOTIFY shownChanged)

public:
    explicit IAMScreenModifier(QQuickItem *parent = nullptr);
    ~IAMScreenModifier() override;

    QString screenName() const { return m_screenName; }
    void setScreenName(const QString &name);
    QJSValue customParameter() const { return m_customParameter; }
    void setCustomParameter(const QJSValue &function);
    bool isShown() const { return m_shown; }

Q_SIGNALS:
    void screenNameChanged();
    void customParameterChanged();
    void shownChanged();

protected:
    void componentComplete() override;
    void itemChange(ItemChange change, const ItemChangeData &value) override;

private:
    struct Fetch;

    void scheduleSync();
    void sync();
    void appear();
    void disappear();
    void watchWindow(QQuickWindow *window);

    QString m_screenName;
    QJSValue m_customParameter;
    bool m_shown = false;
    bool m_syncScheduled = false;
    QPointer<QQuickWindow> m_window;
    QMetaObject::Connection m_windowVisibility;
    std::shared_ptr<Fetch> m_fetch;
};

} // namespace velmora::quick
