#include "presentation/embeddedbannerstore.h"

#include "presentation/linkopening.h"

using namespace Qt::StringLiterals;

namespace velmora {

EmbeddedBannerStore::EmbeddedBannerStore(QObject *parent)
    : QObject(parent)
{ }

EmbeddedBannerStore::~EmbeddedBannerStore() = default;

std::optional<EmbeddedBannerComponentData>
EmbeddedBannerStore::embeddedBanner(const QString &componentId) const
{
    const EmbeddedBannerComponentData *entry = find(componentId);
    return entry ? std::optional(*entry) : std::nullopt;
}

QVariantMap EmbeddedBannerStore::embeddedBannersMap() const
{
    QVariantMap map;
    for (const auto &[componentId, banner] : m_embeddedBanners) {
        map.insert(componentId,
                   QVariantMap {
                       { u"componentId"_s, componentId },
                       { u"scenarioId"_s, banner.scenarioId },
                       { u"screenName"_s, banner.screenName },
                       { u"message"_s, QVariant::fromValue(banner.message()) },
                   });
    }
    return map;
}

void EmbeddedBannerStore::setLoading(bool loading)
{
    if (m_isLoading == loading)
        return;
    m_isLoading = loading;
    Q_EMIT isLoadingChanged();
}

void EmbeddedBannerStore::clearAll(const QString &screenName, QObject *owner)
{
    if (m_currentOwner != owner) {
        disconnect(m_ownerDestroyedConnection);
        m_currentOwner = owner;
        // A destroyed owner reads as null from here on; tell the views so they hide.
        if (owner) {
            m_ownerDestroyedConnection = connect(owner, &QObject::destroyed, this,
                                                 &EmbeddedBannerStore::currentOwnerChanged);
        }
        Q_EMIT currentOwnerChanged();
    }

    if (!m_embeddedBanners.empty()) {
        const auto removed = std::exchange(m_embeddedBanners, {});
        for (const auto &entry : removed)
            Q_EMIT embeddedBannerChanged(entry.first);
        Q_EMIT embeddedBannersChanged();
    }

    m_reportedImageUrls.clear();

    if (m_currentScreenName != screenName) {
        m_currentScreenName = screenName;
        Q_EMIT currentScreenNameChanged();
    }
}

void EmbeddedBannerStore::apply(const QList<EmbeddedComponentUpdate> &updates)
{
    for (const EmbeddedComponentUpdate &update : updates) {
        m_embeddedBanners.insert_or_assign(
            update.id,
            EmbeddedBannerComponentData { update.content, update.scenarioId, update.screenName });
        Q_EMIT embeddedBannerChanged(update.id);
        Q_EMIT embeddedBannersChanged();
    }
}

void EmbeddedBannerStore::sendOpenReactionIfNeeded(const QString &componentId,
                                                   const QString &imageUrl)
{
    if (!find(componentId))
        return;
    const auto reported = m_reportedImageUrls.constFind(componentId);
    if (reported != m_reportedImageUrls.cend() && *reported == imageUrl)
        return;
    m_reportedImageUrls.insert(componentId, imageUrl);
    sendReaction(EventsReactionType::Open, componentId);
}

void EmbeddedBannerStore::sendReaction(EventsReactionType type, const QString &componentId)
{
    const EmbeddedBannerComponentData *entry = find(componentId);
    if (entry && m_reactionHandler)
        m_reactionHandler(type, entry->screenName, entry->scenarioId);
}

void EmbeddedBannerStore::handleClick(const QString &componentId)
{
    const EmbeddedBannerComponentData *found = find(componentId);
    if (!found)
        return;
    // A copy: the handlers below may re-enter the store and replace the entry.
    const EmbeddedBannerComponentData entry = *found;
    const InAppMessage message = entry.message();
    if (m_reactionHandler)
        m_reactionHandler(EventsReactionType::Click, entry.screenName, entry.scenarioId);
    if (m_messageClickedHandler)
        m_messageClickedHandler(message);
    if (const auto &link = entry.content.creative.image.linkUrl)
        openLinkIfNeeded(*link, message, m_messageErrorHandler);
}

QVariant EmbeddedBannerStore::currentScreenNameValue() const
{
    return m_currentScreenName ? QVariant(*m_currentScreenName) : QVariant();
}

const EmbeddedBannerComponentData *EmbeddedBannerStore::find(const QString &componentId) const
{
    const auto it = m_embeddedBanners.find(componentId);
    return it == m_embeddedBanners.end() ? nullptr : &it->second;
}

} // namespace velmora
