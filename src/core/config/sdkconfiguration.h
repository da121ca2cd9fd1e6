#pragma once

#include "config/deviceinfo.h"

#include <QString>

#include <optional>

namespace velmora {

/// Everything needed to talk to the back end. One instance, shared by the facade and the
/// message service; written from the GUI thread.
class SDKConfiguration
{
public:
    static QString defaultAPIHost();

    explicit SDKConfiguration(DeviceInfo deviceInfo = DeviceInfo::collect());

    std::optional<QString> apiKey;
    std::optional<QString> tenantId;
    QString apiHost = defaultAPIHost();
    bool isStrictLogin = false;
    /// Sent as given by the host; the back end hashes it, never the library.
    std::optional<QString> customerId;
    /// The host of the latest rejected setup; while set, the library refuses to fetch.
    std::optional<QString> invalidAPIHost;

    const DeviceInfo &deviceInfo() const { return m_deviceInfo; }

    /// A rejected host keeps the previous key, tenant and host in place, but the invalid
    /// state takes precedence until a later valid setup. A key or tenant with a control
    /// character is refused with a warning and changes nothing at all.
    void setup(const QString &apiKey, const QString &tenantId, const QString &apiHost);

    /// True when the invalid-host state is clear and both key and tenant are present.
    bool isConfigured() const { return !invalidAPIHost && apiKey && tenantId; }

    static bool isValidAPIHost(const QString &host);

private:
    DeviceInfo m_deviceInfo;
};

} // namespace velmora
