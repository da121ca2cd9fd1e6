#pragma once

#include "model/inappmessageaction.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QList>

namespace velmora::inspect {

/// What velmora-inspect prints for one action (shared by the "response" and "fetch" commands).
QJsonObject actionToJson(const InAppMessageAction &action);
QJsonArray actionsToJson(const QList<InAppMessageAction> &actions);

/// Findings about things that will not show as the author probably meant.
QStringList lintAction(const InAppMessageAction &action);

} // namespace velmora::inspect
