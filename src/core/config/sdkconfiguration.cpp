#include "config/sdkconfiguration.h"

#include "common/logging.h"

#include <QUrl>

using namespace Qt::StringLiterals;

namespace velmora {

QString SDKConfiguration::defaultAPIHost()
{
    return u"https://api.velmora.io/vorpex/v1"_s;
}

SDKConfiguration::SDKConfiguration(DeviceInfo deviceInfo)
    : m_deviceInfo(std::move(deviceInfo))
{ }

bool SDKConfiguration::isValidAPIHost(const QString &host)
{
    const QUrl url(host, QUrl::StrictMode);
    if (!url.isValid())
        return false;
    const QString scheme = url.scheme().toLower();
    if (scheme != u"http" && scheme != u"https")
        return false;
    return !url.host().isEmpty();
}

void SDKConfiguration::setup(const QString &newApiKey, const QString &newTenantId,
                             const QString &newApiHost)
{
    if (isValidAPIHost(newApiHost)) {
        invalidAPIHost.reset();
        apiKey = newApiKey;
        tenantId = newTenantId;
        apiHost = newApiHost;
        return;
    }
    detail::printWarning(u"setup: apiHost is invalid; the SDK will not be configured. "_s
                         u"apiHost must be a valid http or https URL, but was \""_s
                         + newApiHost + u"\"."_s);
    invalidAPIHost = newApiHost;
}

} // namespace velmora
