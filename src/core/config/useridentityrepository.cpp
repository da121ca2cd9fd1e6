#include "config/useridentityrepository.h"

using namespace Qt::StringLiterals;

namespace velmora {

UserIdentityRepository::UserIdentityRepository(SDKUserDefaults userDefaults)
    : m_userDefaults(std::move(userDefaults))
{ }

void UserIdentityRepository::saveResponseHeaders(const QHash<QString, QString> &headers)
{
    QHash<QString, QString> lowered;
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        lowered.insert(it.key().toLower(), it.value());
    if (lowered.isEmpty())
        return;
    if (const auto it = lowered.constFind(u"x-vorpex-visitor-id"_s); it != lowered.cend())
        m_userDefaults.set(*it, SDKUserDefaults::Key::VisitorId);
    if (const auto it = lowered.constFind(u"x-vorpex-customer-id"_s); it != lowered.cend())
        m_userDefaults.set(*it, SDKUserDefaults::Key::HashedCustomerId);
}

std::optional<QString> UserIdentityRepository::visitorId() const
{
    return m_userDefaults.string(SDKUserDefaults::Key::VisitorId);
}

std::optional<QString> UserIdentityRepository::hashedCustomerId() const
{
    return m_userDefaults.string(SDKUserDefaults::Key::HashedCustomerId);
}

} // namespace velmora
