#include <VelmoraInAppMessaging/customvalue.h>

#include <QJsonArray>

#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

std::optional<qint64> asInteger(const QJsonValue &json)
{
    // Two different fallbacks tell a stored integer (or whole double in range) from anything
    // else, without a round trip through double that would lose 64-bit precision.
    if (!json.isDouble() || json.toInteger(0) != json.toInteger(1))
        return std::nullopt;
    return json.toInteger();
}

std::optional<double> asDouble(const QJsonValue &json)
{
    return json.isDouble() ? std::optional(json.toDouble()) : std::nullopt;
}

std::optional<bool> asBool(const QJsonValue &json)
{
    return json.isBool() ? std::optional(json.toBool()) : std::nullopt;
}

std::optional<QString> asString(const QJsonValue &json)
{
    return json.isString() ? std::optional(json.toString()) : std::nullopt;
}

template<typename List, typename Element>
std::optional<List> asArray(const QJsonValue &json,
                            std::optional<Element> (*element)(const QJsonValue &))
{
    if (!json.isArray())
        return std::nullopt;
    const QJsonArray array = json.toArray();
    List result;
    result.reserve(array.size());
    for (const QJsonValue &item : array) {
        const auto converted = element(item);
        if (!converted)
            return std::nullopt;
        result.append(*converted);
    }
    return result;
}

template<typename List> QJsonArray toArray(const List &list)
{
    QJsonArray array;
    for (const auto &item : list)
        array.append(QJsonValue(item));
    return array;
}

} // namespace

std::optional<QJsonValue> CustomValue::toJson() const
{
    return std::visit(
        [](const auto &v) -> std::optional<QJsonValue> {
            using V = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<V, double>) {
                if (!std::isfinite(v))
                    return std::nullopt;
                return QJsonValue(v);
            } else if constexpr (std::is_same_v<V, QList<double>>) {
                for (double d : v) {
                    if (!std::isfinite(d))
                        return std::nullopt;
                }
                return toArray(v);
            } else if constexpr (
                std::is_same_v<
                    V,
                    QStringList> || std::is_same_v<V, QList<qint64>> || std::is_same_v<V, QList<bool>>) {
                return toArray(v);
            } else {
                return QJsonValue(v);
            }
        },
        value);
}

std::optional<CustomValue> CustomValue::fromJson(const QJsonValue &json, QString *error)
{
    if (const auto v = asInteger(json))
        return CustomValue { *v };
    if (const auto v = asDouble(json))
        return CustomValue { *v };
    if (const auto v = asBool(json))
        return CustomValue { *v };
    if (const auto v = asString(json))
        return CustomValue { *v };
    if (const auto v = asArray<QList<bool>>(json, asBool))
        return CustomValue { *v };
    if (const auto v = asArray<QList<qint64>>(json, asInteger))
        return CustomValue { *v };
    if (const auto v = asArray<QList<double>>(json, asDouble))
        return CustomValue { *v };
    if (const auto v = asArray<QStringList>(json, asString))
        return CustomValue { *v };
    if (error)
        *error = u"CustomValue: unsupported type"_s;
    return std::nullopt;
}

} // namespace velmora
