#pragma once

#include "contentssize.h"
#include "displayposition.h"
#include "margin.h"
#include "singlemessagecreative.h"

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
