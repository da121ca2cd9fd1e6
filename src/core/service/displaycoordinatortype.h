#pragma once

#include "model/inappmessageaction.h"
#include "service/callbacks.h"

#include <QList>
#include <QPointer>
#include <QString>

class QObject;

namespace velmora {

class VelmoraInAppMessagingDelegate;

/// A vertical edge of a widget that bounds the banner area, read in the target's coordinates
/// at layout time. Core never sees widget types, so the widget is held as a QObject and the
/// Widgets front-end casts it back.
struct VerticalAnchor
{
    enum class Edge { Top, Bottom };
    QPointer<QObject> widget;
    Edge edge = Edge::Top;

    bool isSet() const { return !widget.isNull(); }
};

/// The seam between the message service and whatever shows messages. All calls arrive on the
/// GUI thread; implementations return promptly and never call back into the service
/// synchronously.
class DisplayCoordinatorType
{
public:
    virtual ~DisplayCoordinatorType() = default;

    virtual VelmoraInAppMessagingDelegate *delegate() const = 0;
    /// Held weakly; setting it rebuilds the callbacks handed to presenters and stores.
    virtual void setDelegate(VelmoraInAppMessagingDelegate *delegate) = 0;

    virtual ReactionHandler reactionHandler() const = 0;
    virtual void setReactionHandler(ReactionHandler handler) = 0;

    /// A new screen begins, before its fetch starts: reset the previous screen's banners and
    /// start loading. `owner` is the target widget, or null for QML screens.
    virtual void startNewScreen(const QString &screenName, QObject *owner) = 0;
    /// The fetch ended, with or without messages; ends the loading state.
    virtual void finishLoading() = 0;
    /// Shows sorted actions on a target (a widget, opaque to core; null once destroyed); the
    /// anchors, when set, bound the banner area.
    virtual void displayMessage(const QList<InAppMessageAction> &actions, const QString &screenName,
                                QObject *target, const VerticalAnchor &topAnchor,
                                const VerticalAnchor &bottomAnchor)
        = 0;
    /// Shows sorted actions on a QML screen (no target widget).
    virtual void displayMessageForQuick(const QList<InAppMessageAction> &actions,
                                        const QString &screenName)
        = 0;
};

} // namespace velmora
