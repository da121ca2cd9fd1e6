#include "popupbanner/popupbannerpresenter.h"

#include "layout/keyboardsource.h"
#include "popupbanner/bannerkeyboardavoider.h"
#include "popupbanner/iampopupbannerviewcontroller.h"

#include <algorithm>

namespace velmora {

PopupBannerPresenter::PopupBannerPresenter(layout::KeyboardSource *keyboard, QObject *parent)
    : QObject(parent)
{
    if (!keyboard)
        keyboard = new layout::InputMethodKeyboardSource(this);
    m_keyboardAvoider = new BannerKeyboardAvoider(keyboard, this);
}

PopupBannerPresenter::~PopupBannerPresenter()
{
    dismissAll();
}

IAMPopupBannerViewController *PopupBannerPresenter::bannerAt(DisplayPosition position) const
{
    return m_banners.value(position);
}

qsizetype PopupBannerPresenter::queuedCount(DisplayPosition position) const
{
    return m_queues.value(position).size();
}

void PopupBannerPresenter::present(const PopupBannerRequest &request)
{
    const DisplayPosition position = request.content.position;
    QueuedBanner queued { request.screenName,     request.scenarioId,
                          request.content,        qobject_cast<QWidget *>(request.target.data()),
                          request.topAnchor,      request.bottomAnchor,
                          request.reactionHandler };

    QList<QueuedBanner> &queue = m_queues[position];
    queue.erase(std::remove_if(queue.begin(), queue.end(),
                               [](const QueuedBanner &banner) { return banner.target.isNull(); }),
                queue.end());
    queue.append(std::move(queued));

    // A banner whose host screen has gone no longer holds its position.
    const QPointer<IAMPopupBannerViewController> shown = m_banners.value(position);
    if (m_banners.contains(position) && (!shown || !shown->isAttached())) {
        m_banners.remove(position);
        m_keyboardAvoider->forget(position);
    }
    if (!m_banners.contains(position))
        showNext(position);
}

void PopupBannerPresenter::showNext(DisplayPosition position)
{
    auto it = m_queues.find(position);
    while (it != m_queues.end() && !it->isEmpty()) {
        const QueuedBanner next = it->takeFirst();
        if (!next.target)
            continue;
        IAMPopupBannerViewController *banner = makeBanner(next);
        m_banners.insert(position, banner);
        banner->attach(next.target, next.topAnchor, next.bottomAnchor);
        m_keyboardAvoider->track(position, banner);
        return;
    }
}

IAMPopupBannerViewController *PopupBannerPresenter::makeBanner(const QueuedBanner &queued)
{
    auto *banner = new IAMPopupBannerViewController(queued.content);
    banner->onClicked = m_onClicked;
    banner->onDismissed = m_onDismissed;
    banner->onError = m_onError;
    banner->onReaction = [handler = queued.reactionHandler, screenName = queued.screenName,
                          scenarioId = queued.scenarioId](EventsReactionType type) {
        if (handler)
            handler(type, screenName, scenarioId);
    };
    const DisplayPosition position = queued.content.position;
    banner->onClose = [self = QPointer<PopupBannerPresenter>(this),
                       weakBanner = QPointer<IAMPopupBannerViewController>(banner), position] {
        if (self && weakBanner)
            self->clearBanner(weakBanner, position);
    };
    return banner;
}

void PopupBannerPresenter::clearBanner(IAMPopupBannerViewController *banner,
                                       DisplayPosition position)
{
    // A close from a banner that has been replaced or removed changes nothing.
    if (m_banners.value(position) != banner)
        return;
    m_banners.remove(position);
    m_keyboardAvoider->forget(position);
    showNext(position);
}

void PopupBannerPresenter::dismissAll()
{
    m_queues.clear();
    m_keyboardAvoider->forgetAll();
    const auto banners = std::exchange(m_banners, {});
    for (const QPointer<IAMPopupBannerViewController> &banner : banners) {
        if (banner)
            banner->detach();
    }
}

} // namespace velmora
