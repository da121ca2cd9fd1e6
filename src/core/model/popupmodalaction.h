#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

namespace velmora {

struct PopupModalAction
{
    SingleMessageCreative creative;
};

} // namespace velmora
