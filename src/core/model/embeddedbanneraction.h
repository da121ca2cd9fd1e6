#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

namespace velmora {

struct EmbeddedBannerAction
{
    /// Empty when the layout named none; such a banner matches no slot.
    QString componentId;
    SingleMessageCreative creative;
};

} // namespace velmora
