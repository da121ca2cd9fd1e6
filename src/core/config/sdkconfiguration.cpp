#include "config/sdkconfiguration.h"

#include "common/logging.h"

#include <QUrl>

#include <algorithm>

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

namespace {
bool hasControlCharacter(const QString &text)
{
    return std::any_of(text.cbegin(), text.cend(),
                       [](QChar c) { return c.category() == QChar::Other_Control; });
}
} // namespace

void SDKConfiguration::setup(const QString &newApiKey, const QString &newTenantId,
                             const QString &newApiHost)
{
    // Key and tenant are sent as headers: a newline (as from a key read out of a file) would
    // end the header early or add headers of its own. Such a call is refused before its host is
    // looked at, so nothing of it is kept, not even a rejected host: the configuration stays
    // as it was, and so does a refusal an earlier invalid host caused.
    if (hasControlCharacter(newApiKey) || hasControlCharacter(newTenantId)) {
        detail::printWarning(u"setup: apiKey and tenantId must not contain control characters; "_s
                             u"the SDK will not be configured."_s);
        return;
    }
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
