#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

namespace velmora {

/// An embedded banner: the creative for the host's slot named by its component id.
struct EmbeddedBannerAction
{
    /// Empty when the layout named none; such a banner matches no slot.
    QString componentId;
    SingleMessageCreative creative;
};

} // namespace velmora
