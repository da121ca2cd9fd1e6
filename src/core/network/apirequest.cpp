#include "network/apirequest.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

QString rawValue(EventsReactionType type)
{
    switch (type) {
    case EventsReactionType::Open:
        return u"open"_s;
    case EventsReactionType::Click:
        return u"click"_s;
    case EventsReactionType::Close:
        return u"close"_s;
    }
    return {};
}

QJsonObject AppEventsMeta::toJson() const
{
    return {
        { u"customer_id"_s, customerId ? QJsonValue(*customerId) : QJsonValue(QJsonValue::Null) },
        { u"strict_login"_s, strictLogin },
        { u"screen_name"_s, screenName },
        { u"timestamp"_s, timestamp },
    };
}

qint64 AppEventsMeta::currentTimestamp()
{
    // The clock's milliseconds are already whole; truncation toward zero is what the back end
    // expects for instants before the epoch, too.
    return QDateTime::currentMSecsSinceEpoch();
}

namespace {
QString describeMeta(const AppEventsMeta &meta)
{
    return u"meta: {customer_id: "_s + meta.customerId.value_or(u"nil"_s) + u", strict_login: "_s
        + (meta.strictLogin ? u"true"_s : u"false"_s) + u", screen_name: "_s + meta.screenName
        + u", timestamp: "_s + QString::number(meta.timestamp) + u'}';
}
} // namespace

EncodedBody EventsViewRequest::encode() const
{
    QJsonArray params;
    for (const ViewEventCustomParam &param : custom) {
        const auto value = param.value.toJson();
        if (!value) {
            return QString(u"the custom parameter \""_s + param.key
                           + u"\" is a floating-point value that JSON cannot represent"_s);
        }
        params.append(QJsonObject { { u"key"_s, param.key }, { u"value"_s, *value } });
    }
    const QJsonObject body { { u"meta"_s, meta.toJson() }, { u"custom"_s, params } };
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QString EventsViewRequest::describe() const
{
    QStringList keys;
    for (const ViewEventCustomParam &param : custom)
        keys.append(param.key);
    return u"EventsViewRequest("_s + describeMeta(meta) + u", custom keys: ["_s + keys.join(u", "_s)
        + u"])"_s;
}

EncodedBody EventsReactionRequest::encode() const
{
    const QJsonObject body {
        { u"meta"_s, meta.toJson() },
        { u"reaction"_s, rawValue(reaction) },
        { u"scenario_id"_s, scenarioId },
    };
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

QString EventsReactionRequest::describe() const
{
    return u"EventsReactionRequest("_s + describeMeta(meta) + u", reaction: "_s + rawValue(reaction)
        + u", scenario_id: "_s + scenarioId + u')';
}

} // namespace velmora
