#pragma once

#include "service/callbacks.h"
#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QString>

namespace velmora {

/// Shows one popup modal at a time above the application's content, replacing any modal on
/// show. Implemented by the front-ends; core talks to it only through this.
class PopupModalPresenterType
{
public:
    virtual ~PopupModalPresenterType() = default;

    virtual void present(const QString &screenName, const QString &scenarioId,
                         const PopupModalAction &content, ReactionHandler reactionHandler)
        = 0;

    /// Removes the modal on show at once, silently: no reaction, no callback.
    virtual void dismissAll() { }

    virtual void setOnClicked(MessageHandler handler) = 0;
    virtual void setOnDismissed(MessageHandler handler) = 0;
    virtual void setOnError(MessageErrorHandler handler) = 0;
};

} // namespace velmora
