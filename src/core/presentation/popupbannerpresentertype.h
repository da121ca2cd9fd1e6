#pragma once

#include "service/callbacks.h"
#include "service/displaycoordinatortype.h"
#include <VelmoraInAppMessaging/popupbanneraction.h>

#include <QPointer>
#include <QString>

namespace velmora {

/// One popup banner to show on a Widgets target.
struct PopupBannerRequest
{
    QString screenName;
    QString scenarioId;
    PopupBannerAction content;
    /// The target widget, opaque to core; held weakly, so that a waiting banner never keeps a
    /// screen alive. The Widgets front-end casts it back.
    QPointer<QObject> target;
    VerticalAnchor topAnchor;
    VerticalAnchor bottomAnchor;
    ReactionHandler reactionHandler;
};

/// Shows popup banners inside Widgets targets: one per position, the rest queued. The
/// implementation lives in the Widgets front-end; core talks to it only through this.
class PopupBannerPresenterType
{
public:
    virtual ~PopupBannerPresenterType() = default;

    /// Shows the banner if its position is free on the target, else queues it.
    virtual void present(const PopupBannerRequest &request) = 0;
    /// Removes every banner and forgets every queue, silently: no callback, no reaction.
    virtual void dismissAll() = 0;

    virtual void setOnClicked(MessageHandler handler) = 0;
    virtual void setOnDismissed(MessageHandler handler) = 0;
    virtual void setOnError(MessageErrorHandler handler) = 0;
};

} // namespace velmora
