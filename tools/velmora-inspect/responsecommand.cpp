#include "actionjson.h"
#include "apiresponse.h"
#include "command.h"

#include <QFile>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {

int runResponse(const QStringList &args)
{
    if (args.size() != 1) {
        printErr(u"usage: velmora-inspect response FILE"_s);
        return Usage;
    }
    QFile file(args.first());
    if (!file.open(QIODevice::ReadOnly)) {
        printErr(u"cannot read "_s + args.first() + u": "_s + file.errorString());
        return Unreadable;
    }
    // The library prints its own warnings to standard output as it decodes.
    auto decoded = decodeAPIResponse(file.readAll());
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
