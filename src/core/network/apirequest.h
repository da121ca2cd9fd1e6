#pragma once

#include "common/expected.h"
#include <VelmoraInAppMessaging/customvalue.h>

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

namespace velmora {

enum class EventsReactionType { Open, Click, Close };

/// "open", "click" or "close".
QString rawValue(EventsReactionType type);

/// The "meta" block of every request body.
struct AppEventsMeta
{
    std::optional<QString> customerId;
    bool strictLogin = false;
    QString screenName;
    /// Milliseconds since the Unix epoch, truncated.
    qint64 timestamp = 0;

    /// "customer_id" is always written, as null when there is no customer.
    QJsonObject toJson() const;
    static qint64 currentTimestamp();
};

using ViewEventCustomParam = CustomParameterEntry;

/// A request body is JSON bytes, or the reason it could not be written.
using EncodedBody = Expected<QByteArray, QString>;

struct EventsViewRequest
{
    AppEventsMeta meta;
    QList<ViewEventCustomParam> custom;

    static QString path() { return QStringLiteral("/app_events/view"); }
    /// Fails only for a floating-point parameter that is not finite.
    EncodedBody encode() const;
    QString describe() const;
};

struct EventsReactionRequest
{
    AppEventsMeta meta;
    EventsReactionType reaction = EventsReactionType::Open;
    QString scenarioId;

    static QString path() { return QStringLiteral("/app_events/reaction"); }
    EncodedBody encode() const;
    QString describe() const;
};

} // namespace velmora
