#pragma once

#include "singlemessagecreative.h"

namespace velmora {

struct PopupModalAction
{
    SingleMessageCreative creative;
};

} // namespace velmora
