#pragma once

#include <QString>

#include <memory>
#include <optional>

class QSettings;

namespace velmora {

/// A persistent string-keyed preference store.
class UserDefaultsType
{
public:
    virtual ~UserDefaultsType() = default;
    virtual std::optional<QString> string(const QString &key) const = 0;
    /// An absent value removes the key.
    virtual void set(const std::optional<QString> &value, const QString &key) = 0;
};

/// The production store: QSettings, either the application's own (organisation and
/// application name) or a given file.
class SettingsUserDefaults final : public UserDefaultsType
{
public:
    /// The application's default QSettings.
    SettingsUserDefaults();
    /// An INI file at `path`, for tools that keep state in a folder of their own.
    explicit SettingsUserDefaults(const QString &path);
    ~SettingsUserDefaults() override;

    std::optional<QString> string(const QString &key) const override;
    void set(const std::optional<QString> &value, const QString &key) override;

private:
    std::unique_ptr<QSettings> m_settings;
};

/// The library's two persisted keys over a preference store.
class SDKUserDefaults
{
public:
    enum class Key { VisitorId, HashedCustomerId };

    explicit SDKUserDefaults(std::shared_ptr<UserDefaultsType> defaults);

    /// "VelmoraInAppMessaging." followed by the key's raw value.
    static QString fullKey(Key key);

    std::optional<QString> string(Key key) const;
    void set(const std::optional<QString> &value, Key key);

    UserDefaultsType &defaults() const { return *m_defaults; }

private:
    std::shared_ptr<UserDefaultsType> m_defaults;
};

} // namespace velmora
