#pragma once

#include "service/callbacks.h"
#include <VelmoraInAppMessaging/embeddedbanneraction.h>

#include <QHash>
#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <map>
#include <optional>

namespace velmora {

/// One embedded banner, shown by the views bound to its component id.
struct EmbeddedBannerComponentData
{
    EmbeddedBannerAction content;
    QString scenarioId;
    QString screenName;

    InAppMessage message() const { return InAppMessage::fromEmbeddedBanner(content); }
};

/// One entry routed to the store after a fetch; `id` is the component id it is stored under.
struct EmbeddedComponentUpdate
{
    QString id;
    EmbeddedBannerAction content;
    QString scenarioId;
    QString screenName;
};

/// The current screen's embedded banners by component id, its loading flag and its owner.
///
/// `embeddedBanners` maps a component id to a map with `componentId`, `scenarioId`,
/// `screenName` and `message` (an InAppMessage), so `store.embeddedBanners["home_hero"]` is
/// undefined in QML until a banner arrives for that slot. Every change of an entry emits
/// embeddedBannerChanged() for its id, then embeddedBannersChanged(). All calls belong on the
/// GUI thread.
class EmbeddedBannerStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariantMap embeddedBanners READ embeddedBannersMap NOTIFY embeddedBannersChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(
        QVariant currentScreenName READ currentScreenNameValue NOTIFY currentScreenNameChanged)
    Q_PROPERTY(QObject *currentOwner READ currentOwner NOTIFY currentOwnerChanged)

public:
    explicit EmbeddedBannerStore(QObject *parent = nullptr);
    ~EmbeddedBannerStore() override;

    const std::map<QString, EmbeddedBannerComponentData> &embeddedBanners() const
    {
        return m_embeddedBanners;
    }
    std::optional<EmbeddedBannerComponentData> embeddedBanner(const QString &componentId) const;
    QVariantMap embeddedBannersMap() const;
    bool isLoading() const { return m_isLoading; }
    void setLoading(bool loading);
    std::optional<QString> currentScreenName() const { return m_currentScreenName; }
    /// The widget whose screen the banners belong to, or null for QML screens or once it has
    /// been destroyed. A Widgets banner view shows content only inside this owner.
    QObject *currentOwner() const { return m_currentOwner.data(); }

    /// Starts a new screen: owner, then banners emptied, then open reports forgotten, then the
    /// screen name.
    Q_INVOKABLE void clearAll(const QString &screenName, QObject *owner = nullptr);
    /// Inserts or replaces one entry per update, in order, each its own change; entries not
    /// named are kept.
    void apply(const QList<EmbeddedComponentUpdate> &updates);
    /// Reports "open" at most once per component and image URL between two clearAll() calls.
    Q_INVOKABLE void sendOpenReactionIfNeeded(const QString &componentId, const QString &imageUrl);
    void sendReaction(EventsReactionType type, const QString &componentId);
    /// Reports "click", tells the host, then opens the image's link, in that order.
    Q_INVOKABLE void handleClick(const QString &componentId);

    ReactionHandler reactionHandler() const { return m_reactionHandler; }
    void setReactionHandler(ReactionHandler handler) { m_reactionHandler = std::move(handler); }
    MessageHandler messageClickedHandler() const { return m_messageClickedHandler; }
    void setMessageClickedHandler(MessageHandler handler)
    {
        m_messageClickedHandler = std::move(handler);
    }
    MessageErrorHandler messageErrorHandler() const { return m_messageErrorHandler; }
    void setMessageErrorHandler(MessageErrorHandler handler)
    {
        m_messageErrorHandler = std::move(handler);
    }

Q_SIGNALS:
    void embeddedBannersChanged();
    void embeddedBannerChanged(const QString &componentId);
    void isLoadingChanged();
    void currentScreenNameChanged();
    void currentOwnerChanged();

private:
    QVariant currentScreenNameValue() const;
    const EmbeddedBannerComponentData *find(const QString &componentId) const;

    std::map<QString, EmbeddedBannerComponentData> m_embeddedBanners;
    bool m_isLoading = false;
    std::optional<QString> m_currentScreenName;
    QPointer<QObject> m_currentOwner;
    QMetaObject::Connection m_ownerDestroyedConnection;
    // Component id -> the image URL whose "open" was last reported for it on this screen.
    QHash<QString, QString> m_reportedImageUrls;

    ReactionHandler m_reactionHandler;
    MessageHandler m_messageClickedHandler;
    MessageErrorHandler m_messageErrorHandler;
};

} // namespace velmora
