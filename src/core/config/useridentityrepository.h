#pragma once

#include "config/userdefaults.h"

#include <QHash>
#include <QString>

#include <optional>

namespace velmora {

/// Keeps the visitor and hashed customer ids the back end hands out, and nothing else. The
/// library never makes up, hashes or clears either id.
class UserIdentityRepository
{
public:
    explicit UserIdentityRepository(SDKUserDefaults userDefaults);

    /// Stores the identity headers present in a response (names matched case-insensitively);
    /// an absent header leaves its stored value alone, an empty one is stored as empty.
    void saveResponseHeaders(const QHash<QString, QString> &headers);

    std::optional<QString> visitorId() const;
    std::optional<QString> hashedCustomerId() const;

private:
    SDKUserDefaults m_userDefaults;
};

} // namespace velmora
