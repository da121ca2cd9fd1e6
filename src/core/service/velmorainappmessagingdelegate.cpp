#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

namespace velmora {

VelmoraInAppMessagingDelegate::~VelmoraInAppMessagingDelegate() = default;

void VelmoraInAppMessagingDelegate::messageDismissed(const InAppMessage &) { }

void VelmoraInAppMessagingDelegate::messageClicked(const InAppMessage &) { }

void VelmoraInAppMessagingDelegate::messageDetectedForDisplay(const InAppMessage &) { }

void VelmoraInAppMessagingDelegate::messageError(const std::optional<InAppMessage> &,
                                                 const VelmoraError &)
{ }

bool VelmoraInAppMessagingDelegate::shouldDisplay(const InAppMessage &)
{
    return true;
}

} // namespace velmora
