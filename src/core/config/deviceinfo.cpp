#include "config/deviceinfo.h"

#include <VelmoraInAppMessaging/velmora_version.h>

#include <QFile>
#include <QOperatingSystemVersion>
#include <QStringList>
#include <QSysInfo>

#if defined(Q_OS_DARWIN) || defined(Q_OS_FREEBSD) || defined(Q_OS_OPENBSD) || defined(Q_OS_NETBSD)
#include <sys/sysctl.h>
#include <sys/types.h>
#define VELMORA_HAVE_HW_MACHINE 1
#endif

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

QString osVersionText()
{
    const QOperatingSystemVersion current = QOperatingSystemVersion::current();
    if (current.type() != QOperatingSystemVersion::Unknown && current.majorVersion() >= 0) {
        return QString::number(current.majorVersion()) + u'.'
            + QString::number(std::max(0, current.minorVersion())) + u'.'
            + QString::number(std::max(0, current.microVersion()));
    }
    return DeviceInfo::threePartVersion(QSysInfo::productVersion());
}

QString hardwareModel()
{
#ifdef VELMORA_HAVE_HW_MACHINE
    size_t size = 0;
    if (sysctlbyname("hw.machine", nullptr, &size, nullptr, 0) == 0 && size > 0) {
        QByteArray buffer(qsizetype(size), '\0');
        if (sysctlbyname("hw.machine", buffer.data(), &size, nullptr, 0) == 0)
            return QString::fromUtf8(buffer.constData()); // up to the first NUL
    }
#endif
#ifdef Q_OS_LINUX
    QFile dmi(u"/sys/devices/virtual/dmi/id/product_name"_s);
    if (dmi.open(QIODevice::ReadOnly)) {
        const QString name = QString::fromUtf8(dmi.readAll()).trimmed();
        if (!name.isEmpty())
            return name;
    }
#endif
    return QSysInfo::currentCpuArchitecture();
}

} // namespace

QString DeviceInfo::threePartVersion(QStringView version)
{
    QStringList parts;
    for (QStringView part : version.split(u'.')) {
        if (parts.size() == 3)
            break;
        bool ok = false;
        const uint number = part.toUInt(&ok);
        parts.append(QString::number(ok ? number : 0));
    }
    while (parts.size() < 3)
        parts.append(u"0"_s);
    return parts.join(u'.');
}

QString DeviceInfo::osName()
{
#if defined(Q_OS_IOS)
    return u"iOS"_s;
#elif defined(Q_OS_ANDROID)
    return u"Android"_s;
#elif defined(Q_OS_MACOS)
    return u"macOS"_s;
#elif defined(Q_OS_WIN)
    return u"Windows"_s;
#else
    return u"Linux"_s;
#endif
}

DeviceInfo DeviceInfo::collect()
{
    return { osVersionText(), QStringLiteral(VELMORA_VERSION_STRING), hardwareModel() };
}

} // namespace velmora
