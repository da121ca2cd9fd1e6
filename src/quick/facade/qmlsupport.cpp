#include "facade/qmlsupport.h"

#include "facade/velmorainappmessaging_p.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/popupbannerstore.h"

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

} // namespace velmora::quick
