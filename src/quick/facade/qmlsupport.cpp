#include "facade/qmlsupport.h"

#include "facade/qmlcustomparameter.h"
#include "facade/velmorainappmessaging_p.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/popupbannerstore.h"

#include <QQmlEngine>

namespace velmora::quick {

namespace {
VelmoraInAppMessagingPrivate *facade()
{
    return VelmoraInAppMessagingPrivate::get(VelmoraInAppMessaging::shared());
}
} // namespace

QmlSupport::QmlSupport(QObject *parent)
    : QObject(parent)
    , m_colors(new Colors(this))
{ }

QObject *QmlSupport::popupBannerStore() const
{
    return facade()->popupBannerStore.get();
}

QObject *QmlSupport::embeddedBannerStore() const
{
    return facade()->embeddedBannerStore.get();
}

QObject *QmlSupport::colors() const
{
    return m_colors;
}

QVariant QmlSupport::customParameter(const QString &type, const QJSValue &key,
                                     const QJSValue &value)
{
    QString error;
    if (const auto entry = customparameter::make(type, key, value, &error))
        return QVariant::fromValue(*entry);
    if (QJSEngine *engine = qjsEngine(this))
        engine->throwError(QJSValue::TypeError, error);
    return {};
}

void QmlSupport::reportBannerDisappeared(const QString &position)
{
    PopupBannerStore *store = facade()->popupBannerStore.get();
    if (store->dismissalMode() == PopupBannerStore::DismissalMode::AfterViewDisappears)
        store->bannerDidDisappear(position);
}

} // namespace velmora::quick
