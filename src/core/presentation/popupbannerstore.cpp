#include "presentation/popupbannerstore.h"

#include "common/logging.h"
#include "presentation/linkopening.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QPointer>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace velmora {

void PopupBannerQueueController::reset()
{
    queues.clear();
    dismissingPositions.clear();
}

void PopupBannerQueueController::enqueue(const PopupBannerComponentData &banner)
{
    QList<PopupBannerComponentData> &queue = queues[banner.position()];
    for (const PopupBannerComponentData &waiting : std::as_const(queue)) {
        if (waiting.scenarioId == banner.scenarioId)
            return;
    }
    queue.append(banner);
}

std::optional<PopupBannerComponentData>
PopupBannerQueueController::popNext(DisplayPosition position)
{
    const auto it = queues.find(position);
    if (it == queues.end() || it->second.isEmpty())
        return std::nullopt;
    return it->second.takeFirst();
}

PopupBannerStore::PopupBannerStore(QObject *parent)
    : QObject(parent)
{
    setScheduler({});
}

PopupBannerStore::~PopupBannerStore() = default;

std::optional<PopupBannerComponentData>
PopupBannerStore::popupBanner(DisplayPosition position) const
{
    const auto it = m_popupBanners.find(position);
    if (it == m_popupBanners.end())
        return std::nullopt;
    return it->second;
}

QVariantMap PopupBannerStore::popupBannersMap() const
{
    QVariantMap map;
    for (const auto &[position, banner] : m_popupBanners) {
        map.insert(rawValue(position),
                   QVariantMap {
                       { u"scenarioId"_s, banner.scenarioId },
                       { u"screenName"_s, banner.screenName },
                       { u"position"_s, rawValue(position) },
                       { u"hasExplicitSize"_s, banner.content.size.has_value() },
                       { u"message"_s, QVariant::fromValue(banner.message()) },
                   });
    }
    return map;
}

void PopupBannerStore::setDismissalMode(DismissalMode mode)
{
    if (m_dismissalMode == mode)
        return;
    m_dismissalMode = mode;
    Q_EMIT dismissalModeChanged();
}

void PopupBannerStore::setScheduler(Scheduler scheduler)
{
    if (!scheduler) {
        scheduler = [this](std::chrono::milliseconds delay, std::function<void()> callback) {
            QTimer::singleShot(delay, this, std::move(callback));
        };
    }
    m_scheduler = std::move(scheduler);
}

void PopupBannerStore::apply(const QList<ClassifiedPopupBanner> &popupBanners,
                             const QString &screenName)
{
    setCurrentScreenName(screenName);

    m_queueController.reset();
    std::set<DisplayPosition> received;
    std::set<DisplayPosition> incoming;
    for (const ClassifiedPopupBanner &pair : popupBanners) {
        const DisplayPosition position = pair.content.position;
        incoming.insert(position);
        const auto visible = m_popupBanners.find(position);
        // The banner on show stays as it is: no new entry, no change reported for it.
        if (visible != m_popupBanners.end()
            && visible->second.scenarioId == pair.action.meta.scenarioId)
            continue;
        m_queueController.enqueue({ pair.content, pair.action.meta.scenarioId, screenName });
        received.insert(position);
    }

    std::set<DisplayPosition> changed;
    for (DisplayPosition position : received) {
        if (showNext(position))
            changed.insert(position);
    }
    // Banners at positions the new screen does not use vanish without any callback.
    std::set<DisplayPosition> stale;
    for (const auto &entry : m_popupBanners) {
        if (!incoming.contains(entry.first))
            stale.insert(entry.first);
    }
    for (DisplayPosition position : stale)
        removeVisible(position);
    changed.merge(stale);
    publish(changed, true);
}

void PopupBannerStore::dismissPopupBanner(DisplayPosition position)
{
    const bool byView = m_dismissalMode == DismissalMode::AfterViewDisappears;
    const bool removed = m_popupBanners.contains(position);
    if (removed)
        removeVisible(position);
    // Marked before the change is published: a view may report its disappearance at once.
    if (byView)
        m_queueController.dismissingPositions.insert(position);
    if (removed)
        publish({ position }, true);
    if (byView)
        return;

    // Dismissing an empty position still pulls what waits there once the delay has passed.
    const quint64 serial = m_removalSerials[position];
    m_scheduler(removalDuration, [self = QPointer(this), position, serial] {
        if (!self || self->m_removalSerials[position] != serial)
            return;
        if (self->showNext(position))
            self->publish({ position }, true);
    });
}

void PopupBannerStore::dismissPopupBanner(const QString &position)
{
    if (const auto parsed = displayPositionFromRawValue(position))
        dismissPopupBanner(*parsed);
    else
        qCDebug(lcVelmoraPresentation) << "dismissPopupBanner: unknown position" << position;
}

void PopupBannerStore::clearAllPopupBanners()
{
    m_queueController.reset();
    std::set<DisplayPosition> changed;
    for (const auto &entry : m_popupBanners)
        changed.insert(entry.first);
    for (DisplayPosition position : changed)
        removeVisible(position);
    publish(changed, false);
    setCurrentScreenName(std::nullopt);
}

void PopupBannerStore::bannerDidDisappear(DisplayPosition position)
{
    if (m_queueController.dismissingPositions.erase(position) == 0)
        return;
    if (showNext(position))
        publish({ position }, true);
}

void PopupBannerStore::bannerDidDisappear(const QString &position)
{
    if (const auto parsed = displayPositionFromRawValue(position))
        bannerDidDisappear(*parsed);
    else
        qCDebug(lcVelmoraPresentation) << "bannerDidDisappear: unknown position" << position;
}

void PopupBannerStore::sendOpenReactionIfNeeded(const QString &position, const QString &scenarioId)
{
    const auto banner = shownBanner(position, scenarioId);
    if (!banner || !m_openReported.insert(banner->position()).second)
        return;
    if (m_reactionHandler)
        m_reactionHandler(EventsReactionType::Open, banner->screenName, banner->scenarioId);
}

void PopupBannerStore::handleClick(const QString &position, const QString &scenarioId,
                                   const QString &linkUrl)
{
    const auto banner = shownBanner(position, scenarioId);
    if (!banner)
        return;
    const InAppMessage message = banner->message();
    if (m_reactionHandler)
        m_reactionHandler(EventsReactionType::Click, banner->screenName, banner->scenarioId);
    if (m_messageClickedHandler)
        m_messageClickedHandler(message);
    openLinkIfNeeded(linkUrl, message, m_messageErrorHandler);
}

void PopupBannerStore::handleClose(const QString &position, const QString &scenarioId)
{
    const auto banner = shownBanner(position, scenarioId);
    if (!banner)
        return;
    if (m_reactionHandler)
        m_reactionHandler(EventsReactionType::Close, banner->screenName, banner->scenarioId);
    if (m_messageDismissedHandler)
        m_messageDismissedHandler(banner->message());
    // The host's callback may have moved on to another screen; its banners must stay.
    if (shownBanner(position, scenarioId))
        dismissPopupBanner(banner->position());
}

bool PopupBannerStore::handleImageLoadFailure(const QString &position, const QString &scenarioId)
{
    const auto banner = shownBanner(position, scenarioId);
    if (!banner)
        return false;
    const SingleMessageCreative &creative = banner->content.creative;
    const bool hasText = (creative.title && !creative.title->text.isEmpty())
        || (creative.body && !creative.body->text.isEmpty())
        || (creative.button && !creative.button->text.isEmpty());
    if (hasText)
        return false;
    if (m_messageErrorHandler) {
        m_messageErrorHandler(banner->message(),
                              VelmoraError::networkError(UnderlyingError::imageLoad(
                                  ImageLoadError { creative.image.url })));
    }
    if (shownBanner(position, scenarioId))
        dismissPopupBanner(banner->position());
    return true;
}

QVariant PopupBannerStore::currentScreenNameValue() const
{
    return m_currentScreenName ? QVariant(*m_currentScreenName) : QVariant();
}

void PopupBannerStore::setCurrentScreenName(const std::optional<QString> &name)
{
    if (m_currentScreenName == name)
        return;
    m_currentScreenName = name;
    Q_EMIT currentScreenNameChanged();
}

bool PopupBannerStore::showNext(DisplayPosition position)
{
    if (m_popupBanners.contains(position))
        return false;
    std::optional<PopupBannerComponentData> next = m_queueController.popNext(position);
    if (!next)
        return false;
    m_popupBanners.emplace(position, std::move(*next));
    return true;
}

void PopupBannerStore::removeVisible(DisplayPosition position)
{
    m_popupBanners.erase(position);
    m_openReported.erase(position);
    ++m_removalSerials[position];
}

std::optional<PopupBannerComponentData>
PopupBannerStore::shownBanner(const QString &position, const QString &scenarioId) const
{
    const auto parsed = displayPositionFromRawValue(position);
    if (!parsed) {
        qCDebug(lcVelmoraPresentation) << "report for an unknown position" << position;
        return std::nullopt;
    }
    auto banner = popupBanner(*parsed);
    if (!banner || banner->scenarioId != scenarioId)
        return std::nullopt;
    return banner;
}

void PopupBannerStore::publish(const std::set<DisplayPosition> &positions, bool animated)
{
    if (positions.empty())
        return;
    for (DisplayPosition position : positions)
        Q_EMIT popupBannerChanged(rawValue(position), animated);
    Q_EMIT popupBannersChanged();
}

} // namespace velmora
