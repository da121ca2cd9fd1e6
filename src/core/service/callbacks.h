#pragma once

#include "network/apirequest.h"
#include <VelmoraInAppMessaging/inappmessage.h>
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QString>

#include <functional>
#include <optional>

namespace velmora {

/// Reports that the user saw, tapped or closed a message; an empty handler drops reactions.
using ReactionHandler = std::function<void(EventsReactionType type, const QString &screenName,
                                           const QString &scenarioId)>;
/// The host's clicked and dismissed callbacks.
using MessageHandler = std::function<void(const InAppMessage &message)>;
/// The host's error callback; the message is absent when the failure is not tied to one.
using MessageErrorHandler
    = std::function<void(const std::optional<InAppMessage> &message, const VelmoraError &error)>;

} // namespace velmora
