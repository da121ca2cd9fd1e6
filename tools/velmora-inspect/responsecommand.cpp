#include "actionjson.h"
#include "command.h"
#include "network/apiresponse.h"

#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {

int runResponse(const QStringList &args)
{
    QByteArray body;
    if (const auto status = readFileArgument(args, u"response FILE"_s, &body))
        return *status;
    // The library prints its own warnings to standard output as it decodes.
    auto decoded = decodeAPIResponse(body);
    if (!decoded) {
        printErr(u"the response is rejected as a whole: "_s + decoded.error().description);
        return Failed;
    }
    QList<InAppMessageAction> actions = decoded.value().actions;
    sortForDisplay(actions);
    const QJsonObject result { { u"status"_s, decoded.value().status },
                               { u"actions"_s, actionsToJson(actions) } };
    printOut(QString::fromUtf8(QJsonDocument(result).toJson(QJsonDocument::Compact)));
    return Success;
}

const bool registered = registerCommand(
    { u"response"_s, u"response FILE    decode a view-event response as the library does"_s,
      runResponse });

} // namespace

} // namespace velmora::inspect
