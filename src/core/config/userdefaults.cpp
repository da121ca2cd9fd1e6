#include "config/userdefaults.h"

#include <QSettings>

using namespace Qt::StringLiterals;

namespace velmora {

SettingsUserDefaults::SettingsUserDefaults()
    : m_settings(std::make_unique<QSettings>())
{ }

SettingsUserDefaults::SettingsUserDefaults(const QString &path)
    : m_settings(std::make_unique<QSettings>(path, QSettings::IniFormat))
{ }

SettingsUserDefaults::~SettingsUserDefaults() = default;

std::optional<QString> SettingsUserDefaults::string(const QString &key) const
{
    const QVariant value = m_settings->value(key);
    if (!value.isValid())
        return std::nullopt;
    return value.toString();
}

void SettingsUserDefaults::set(const std::optional<QString> &value, const QString &key)
{
    // The back end echoes the same ids on every answer; only a change is worth a disk write on
    // the GUI thread.
    if (string(key) == value)
        return;
    if (value)
        m_settings->setValue(key, *value);
    else
        m_settings->remove(key);
    m_settings->sync();
}

SDKUserDefaults::SDKUserDefaults(std::shared_ptr<UserDefaultsType> defaults)
    : m_defaults(std::move(defaults))
{ }

QString SDKUserDefaults::fullKey(Key key)
{
    const QString prefix = u"VelmoraInAppMessaging."_s;
    switch (key) {
    case Key::VisitorId:
        return prefix + u"vorpexVisitorId"_s;
    case Key::HashedCustomerId:
        return prefix + u"vorpexHashedCustomerId"_s;
    }
    return prefix;
}

std::optional<QString> SDKUserDefaults::string(Key key) const
{
    return m_defaults->string(fullKey(key));
}

void SDKUserDefaults::set(const std::optional<QString> &value, Key key)
{
    m_defaults->set(value, fullKey(key));
}

} // namespace velmora
