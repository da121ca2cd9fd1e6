#include "presentation/popupmodalinteraction.h"

#include "common/logging.h"
#include "presentation/linkopening.h"

using namespace Qt::StringLiterals;

namespace velmora {

PopupModalInteraction::PopupModalInteraction(PopupModalAction content)
    : m_content(std::move(content))
    , m_self(std::make_shared<PopupModalInteraction *>(this))
{ }

PopupModalInteraction::~PopupModalInteraction() = default;

InAppMessage PopupModalInteraction::message() const
{
    return InAppMessage::fromPopupModal(m_content);
}

void PopupModalInteraction::reportOpenIfNeeded()
{
    if (m_hasReportedOpen)
        return;
    m_hasReportedOpen = true;
    if (onReaction)
        onReaction(EventsReactionType::Open);
}

void PopupModalInteraction::coverImageActivated()
{
    const QString link = m_content.creative.image.linkUrl.value_or(QString());
    if (link.isEmpty())
        return;
    if (onReaction)
        onReaction(EventsReactionType::Click);
    const InAppMessage msg = message();
    if (onClicked)
        onClicked(msg);
    openLinkIfNeeded(link, msg, onError);
}

void PopupModalInteraction::positiveButtonActivated()
{
    if (onReaction)
        onReaction(EventsReactionType::Click);
    const InAppMessage msg = message();
    if (onClicked)
        onClicked(msg);
    const auto &button = m_content.creative.button;
    openLinkIfNeeded(button ? button->linkUrl.value_or(QString()) : QString(), msg, onError);
    dismiss(false);
}

void PopupModalInteraction::closeButtonActivated()
{
    dismiss(true);
}

void PopupModalInteraction::dismiss(bool reportClose)
{
    dismissWithAnimation([weak = std::weak_ptr(m_self), reportClose] {
        const auto self = weak.lock();
        if (!self)
            return;
        PopupModalInteraction &modal = **self;
        if (reportClose && modal.onReaction)
            modal.onReaction(EventsReactionType::Close);
        if (modal.onDismissed)
            modal.onDismissed(modal.message());
        // A copy: the presenter forgets this modal's callbacks from inside this one.
        if (const auto done = modal.onDismiss)
            done();
    });
}

void PopupModalInteraction::attach(MessageHandler clicked, MessageHandler dismissed,
                                   MessageErrorHandler error, ReactionHandler handler,
                                   const QString &screenName, const QString &scenarioId)
{
    onClicked = std::move(clicked);
    onDismissed = std::move(dismissed);
    onError = std::move(error);
    onReaction = [handler = std::move(handler), screenName, scenarioId](EventsReactionType type) {
        if (handler)
            handler(type, screenName, scenarioId);
    };
}

void PopupModalInteraction::forgetCallbacks()
{
    onDismiss = {};
    onReaction = {};
    onClicked = {};
    onDismissed = {};
    onError = {};
}

void reportNoForegroundWindow(const PopupModalAction &content, const MessageErrorHandler &onError)
{
    qCDebug(lcVelmoraPresentation).noquote()
        << u"Error present(screenName:scenarioId:content:reactionHandler:): "
           u"フォアグラウンドのWindowSceneが見つかりません"_s;
    if (onError)
        onError(InAppMessage::fromPopupModal(content),
                VelmoraError::precondition(
                    u"Could not find a foreground window scene to display the popup modal."_s));
}

void noteModalReplaced()
{
    qCDebug(lcVelmoraPresentation).noquote()
        << u"present(screenName:scenarioId:content:reactionHandler:): "
           u"表示中のモーダルを撤去して新しいモーダルを表示します"_s;
}

} // namespace velmora
