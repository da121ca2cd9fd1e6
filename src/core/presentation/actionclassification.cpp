#include "presentation/actionclassification.h"

#include <set>

namespace velmora::classify {

std::optional<ClassifiedModal> firstModal(const QList<InAppMessageAction> &actions)
{
    for (const InAppMessageAction &action : actions) {
        if (const PopupModalAction *modal = action.contents.popupModalAction())
            return ClassifiedModal { action, *modal };
    }
    return std::nullopt;
}

QList<ClassifiedPopupBanner> popupBanners(const QList<InAppMessageAction> &actions)
{
    QList<ClassifiedPopupBanner> result;
    std::set<DisplayPosition> claimed;
    for (const InAppMessageAction &action : actions) {
        const PopupBannerAction *banner = action.contents.popupBannerAction();
        if (!banner || !banner->creative.isDisplayable())
            continue;
        if (claimed.insert(banner->position).second)
            result.append({ action, *banner });
    }
    return result;
}

QList<ClassifiedEmbeddedBanner> embeddedBanners(const QList<InAppMessageAction> &actions)
{
    QList<ClassifiedEmbeddedBanner> result;
    for (const InAppMessageAction &action : actions) {
        const EmbeddedBannerAction *banner = action.contents.embeddedBannerAction();
        if (banner && !banner->componentId.isEmpty() && banner->creative.isDisplayable())
            result.append({ action, *banner });
    }
    return result;
}

QList<ClassifiedUnsupported> unsupported(const QList<InAppMessageAction> &actions)
{
    QList<ClassifiedUnsupported> result;
    for (const InAppMessageAction &action : actions) {
        if (action.contents.type() == InAppMessage::Type::Unsupported)
            result.append({ action, action.contents.rawType() });
    }
    return result;
}

} // namespace velmora::classify
