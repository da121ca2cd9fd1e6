#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

namespace velmora {

/// A popup modal: the creative shown in a card above the application.
struct PopupModalAction
{
    SingleMessageCreative creative;
};

} // namespace velmora
