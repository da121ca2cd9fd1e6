#pragma once

#include <VelmoraInAppMessaging/inappmessage.h>
#include <VelmoraInAppMessaging/velmora_export.h>
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QObject>

#include <optional>

namespace velmora {

/// The host's observer. Override what you need; every default does nothing. The library
/// holds it weakly (QPointer), so destroying it simply stops the callbacks. All calls arrive
/// on the GUI thread.
class VELMORA_EXPORT VelmoraInAppMessagingDelegate : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~VelmoraInAppMessagingDelegate() override;

    /// A shown message was closed.
    virtual void messageDismissed(const InAppMessage &message);
    /// The user tapped the message's image or button.
    virtual void messageClicked(const InAppMessage &message);
    /// A message arrived for the current screen and is about to be displayed.
    virtual void messageDetectedForDisplay(const InAppMessage &message);
    /// Something failed; `message` is absent when the failure is not tied to one message.
    virtual void messageError(const std::optional<InAppMessage> &message,
                              const VelmoraError &error);
    /// Asked after messageDetectedForDisplay(): false drops the message, with no display and
    /// no reaction. Every message is displayed by default.
    virtual bool shouldDisplay(const InAppMessage &message);
};

} // namespace velmora
