#pragma once

#include <QString>

namespace velmora {

/// Platform facts sent with every request.
struct DeviceInfo
{
    /// major.minor.patch, a zero patch written out ("12.0.0").
    QString osVersion;
    /// The library's own version, not the host application's.
    QString sdkVersion;
    /// The hardware model identifier.
    QString deviceName;

    static DeviceInfo collect();

    /// "iOS" on iOS, else the running OS: "Android", "macOS", "Windows" or "Linux".
    static QString osName();

    /// Pads or cuts a dotted version to exactly three numbers; non-numeric parts become 0.
    static QString threePartVersion(QStringView version);
};

} // namespace velmora
