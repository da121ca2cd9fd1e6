#pragma once

#include "service/callbacks.h"

#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <functional>
#include <memory>

namespace velmora {

/// What a popup modal does when the user acts on it, whichever front-end draws it: the
/// reactions, host callbacks, link opening and dismissal, in the same order everywhere. A modal
/// view derives from it, calls it from its controls and says how it fades out.
class PopupModalInteraction
{
public:
    /// Told last, when the modal has finished closing.
    std::function<void()> onDismiss;
    std::function<void(EventsReactionType)> onReaction;
    MessageHandler onClicked;
    MessageHandler onDismissed;
    MessageErrorHandler onError;

    const PopupModalAction &modalContent() const { return m_content; }
    InAppMessage message() const;
    bool hasReportedOpen() const { return m_hasReportedOpen; }

    /// Reports "open" the first time the modal is shown only.
    void reportOpenIfNeeded();
    /// A tap on the cover image: reported and opened only when the image has a link; the
    /// modal stays.
    void coverImageActivated();
    /// Click, the host's onClicked, the link, then the fade-out, onDismissed and onDismiss.
    void positiveButtonActivated();
    /// The fade-out, then "close" (after the modal has gone, unlike a click), onDismissed and
    /// onDismiss.
    void closeButtonActivated();

    /// Hands the modal the host's callbacks, and routes its reactions to `handler` with its
    /// screen and scenario.
    void attach(MessageHandler clicked, MessageHandler dismissed, MessageErrorHandler error,
                ReactionHandler handler, const QString &screenName, const QString &scenarioId);
    /// Forgets every callback: a removed modal never calls back, even from a fade under way.
    void forgetCallbacks();

protected:
    explicit PopupModalInteraction(PopupModalAction content);
    virtual ~PopupModalInteraction();

    /// Fades the modal out, then runs `completion`.
    virtual void dismissWithAnimation(std::function<void()> completion) = 0;

private:
    void dismiss(bool reportClose);

    PopupModalAction m_content;
    bool m_hasReportedOpen = false;
    // Fade completions hold it weakly, so that they do nothing once the modal has gone.
    std::shared_ptr<PopupModalInteraction *> m_self;
};

/// The host's error when there is no window to show a modal over; nothing is shown.
void reportNoForegroundWindow(const PopupModalAction &content, const MessageErrorHandler &onError);
/// A new modal replaces the one on show at once, silently.
void noteModalReplaced();

} // namespace velmora
