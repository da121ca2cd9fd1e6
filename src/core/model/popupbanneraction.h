#pragma once

#include <VelmoraInAppMessaging/contentssize.h>
#include <VelmoraInAppMessaging/displayposition.h>
#include <VelmoraInAppMessaging/margin.h>
#include <VelmoraInAppMessaging/singlemessagecreative.h>

#include <optional>

namespace velmora {

struct PopupBannerAction
{
    DisplayPosition position = DisplayPosition::Top;
    Margin margin;
    /// Absent: the banner sizes itself from its content and position.
    std::optional<ContentsSize> size;
    SingleMessageCreative creative;
};

} // namespace velmora
