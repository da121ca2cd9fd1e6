#include "presentation/popupbannerstore.h"

#include "common/logging.h"

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
    for (auto it = m_popupBanners.begin(); it != m_popupBanners.end();) {
        if (incoming.contains(it->first)) {
            ++it;
            continue;
        }
        changed.insert(it->first);
        ++m_removalSerials[it->first];
        it = m_popupBanners.erase(it);
    }
    publish(changed, true);
}

void PopupBannerStore::dismissPopupBanner(DisplayPosition position)
{
    const bool removed = m_popupBanners.erase(position) > 0;
    if (m_dismissalMode == DismissalMode::AfterViewDisappears) {
        m_queueController.dismissingPositions.insert(position);
        if (removed) {
            ++m_removalSerials[position];
            publish({ position }, true);
        }
        return;
    }

    if (removed) {
        ++m_removalSerials[position];
        publish({ position }, true);
    }
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
    for (const auto &entry : m_popupBanners) {
        changed.insert(entry.first);
        ++m_removalSerials[entry.first];
    }
    m_popupBanners.clear();
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

void PopupBannerStore::publish(const std::set<DisplayPosition> &positions, bool animated)
{
    if (positions.empty())
        return;
    for (DisplayPosition position : positions)
        Q_EMIT popupBannerChanged(rawValue(position), animated);
    Q_EMIT popupBannersChanged();
}

} // namespace velmora
