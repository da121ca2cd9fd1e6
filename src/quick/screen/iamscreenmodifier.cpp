#include "screen/iamscreenmodifier.h"

#include "facade/qmlcustomparameter.h"
#include "facade/velmorainappmessaging_p.h"
#include "presentation/popupbannerstore.h"
#include "service/messageservice.h"

#include <QQmlEngine>
#include <QQmlInfo>
#include <QQuickWindow>

namespace velmora::quick {

namespace {
VelmoraInAppMessagingPrivate *facade()
{
    return VelmoraInAppMessagingPrivate::get(VelmoraInAppMessaging::shared());
}
} // namespace

// One appearance's screen view.
struct IAMScreenModifier::Fetch
{
    quint64 generation = 0;
    bool finished = false;
};

IAMScreenModifier::IAMScreenModifier(QQuickItem *parent)
    : QQuickItem(parent)
{ }

IAMScreenModifier::~IAMScreenModifier()
{
    if (m_shown)
        disappear();
}

void IAMScreenModifier::setScreenName(const QString &name)
{
    if (name == m_screenName)
        return;
    m_screenName = name;
    Q_EMIT screenNameChanged();
}

void IAMScreenModifier::setCustomParameter(const QJSValue &function)
{
    m_customParameter = function;
    Q_EMIT customParameterChanged();
}

void IAMScreenModifier::componentComplete()
{
    QQuickItem::componentComplete();
    watchWindow(window());
    scheduleSync();
}

void IAMScreenModifier::itemChange(ItemChange change, const ItemChangeData &value)
{
    QQuickItem::itemChange(change, value);
    switch (change) {
    case ItemSceneChange:
        watchWindow(value.window);
        scheduleSync();
        break;
    case ItemVisibleHasChanged:
        scheduleSync();
        break;
    default:
        break;
    }
}

void IAMScreenModifier::watchWindow(QQuickWindow *window)
{
    if (window == m_window)
        return;
    disconnect(m_windowVisibility);
    m_window = window;
    if (window)
        m_windowVisibility
            = connect(window, &QWindow::visibleChanged, this, &IAMScreenModifier::scheduleSync);
}

void IAMScreenModifier::scheduleSync()
{
    if (m_syncScheduled || !isComponentComplete())
        return;
    m_syncScheduled = true;
    QMetaObject::invokeMethod(this, &IAMScreenModifier::sync, Qt::QueuedConnection);
}

void IAMScreenModifier::sync()
{
    m_syncScheduled = false;
    // isVisible() is the effective visibility: hidden ancestors hide the screen too.
    const bool visible = isVisible() && m_window && m_window->isVisible();
    if (visible == m_shown)
        return;
    m_shown = visible;
    if (visible)
        appear();
    else
        disappear();
    Q_EMIT shownChanged();
}

void IAMScreenModifier::appear()
{
    QList<CustomParameterEntry> parameters;
    if (m_customParameter.isCallable()) {
        const QJSValue result = m_customParameter.call();
        if (result.isError()) {
            qmlWarning(this) << "customParameter of \"" << m_screenName
                             << "\" failed: " << result.toString();
        } else {
            QStringList warnings;
            parameters = customparameter::collect(result, &warnings);
            for (const QString &warning : std::as_const(warnings))
                qmlWarning(this) << warning;
        }
    } else if (!m_customParameter.isUndefined() && !m_customParameter.isNull()) {
        qmlWarning(this) << "customParameter must be a function";
    }

    VelmoraInAppMessagingPrivate *d = facade();
    auto fetch = std::make_shared<Fetch>();
    m_fetch = fetch;
    d->screenViewForQuick(m_screenName, parameters, [fetch] { fetch->finished = true; });
    // The fetch has taken its generation by now, unless it has already ended.
    fetch->generation = d->messageService->fetchGeneration();
}

void IAMScreenModifier::disappear()
{
    VelmoraInAppMessagingPrivate *d = facade();
    std::shared_ptr<Fetch> fetch = std::exchange(m_fetch, {});
    // A screen that started since owns the store now; its start has cleared this one's banners.
    if (fetch && d->messageService->fetchGeneration() != fetch->generation)
        return;
    // Its answer must not reach a screen that is gone: no late modal, banners or slots.
    if (fetch && !fetch->finished)
        d->messageService->cancelFetch(fetch->generation);
    d->popupBannerStore->clearAllPopupBanners();
}

} // namespace velmora::quick
