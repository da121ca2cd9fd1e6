#pragma once

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QDateTime>
#include <QList>
#include <QString>

namespace velmora {

struct InAppMessageActionMeta
{
    QString scenarioId;
    /// Exactly as received, for logs and tools; ordering uses updatedDate.
    QString updatedAt;
    /// Absent on the wire means 50: an unranked message sits in the middle, not last.
    qint64 priority = 50;
    /// The wire "action_type" as received; contents carry what it was decoded into.
    QString actionType;
    QDateTime updatedDate;
};

/// One message the back end selected for the screen, with what is needed to rank it.
struct InAppMessageAction
{
    InAppMessageActionMeta meta;
    InAppMessage contents;
};

/// Display order: higher priority first, then the later update, ties in server order.
void sortForDisplay(QList<InAppMessageAction> &actions);

} // namespace velmora
