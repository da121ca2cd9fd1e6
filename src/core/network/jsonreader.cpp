#include "network/jsonreader.h"

using namespace Qt::StringLiterals;

namespace velmora::detail {

JsonReader::JsonReader(const QJsonValue &value, QString path)
    : m_path(std::move(path))
{
    if (!value.isObject()) {
        throw DecodingFailure(u"expected an object at "_s
                              + (m_path.isEmpty() ? u"top level"_s : m_path) + u", found "_s
                              + typeName(value));
    }
    m_object = value.toObject();
}

QString JsonReader::pathOf(QStringView key) const
{
    return m_path.isEmpty() ? key.toString() : m_path + u'.' + key;
}

QString JsonReader::typeName(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return u"null"_s;
    case QJsonValue::Bool:
        return u"a boolean"_s;
    case QJsonValue::Double:
        return u"a number"_s;
    case QJsonValue::String:
        return u"a string"_s;
    case QJsonValue::Array:
        return u"an array"_s;
    case QJsonValue::Object:
        return u"an object"_s;
    case QJsonValue::Undefined:
        break;
    }
    return u"nothing"_s;
}

bool JsonReader::has(QStringView key) const
{
    const auto it = m_object.constFind(key);
    return it != m_object.constEnd() && !it->isNull();
}

QJsonValue JsonReader::required(QStringView key) const
{
    const auto it = m_object.constFind(key);
    if (it == m_object.constEnd())
        throw DecodingFailure(u"key not found: "_s + pathOf(key));
    return *it;
}

void JsonReader::failType(QStringView key, const char *expected, const QJsonValue &found) const
{
    throw DecodingFailure(u"type mismatch at "_s + pathOf(key) + u": expected "_s
                          + QLatin1StringView(expected) + u", found "_s + typeName(found));
}

void JsonReader::failDataCorrupted(QStringView key, const QString &reason) const
{
    throw DecodingFailure(u"data corrupted at "_s + pathOf(key) + u": "_s + reason);
}

QString JsonReader::requiredString(QStringView key) const
{
    const QJsonValue value = required(key);
    if (!value.isString())
        failType(key, "a string", value);
    return value.toString();
}

std::optional<QString> JsonReader::optionalString(QStringView key) const
{
    if (!has(key))
        return std::nullopt;
    return requiredString(key);
}

qint64 JsonReader::requiredInteger(QStringView key) const
{
    const QJsonValue value = required(key);
    // A whole number written as 3.0 is still an integer; 3.5 or 1e300 is not. Two different
    // fallbacks tell them apart without losing 64-bit precision through double.
    if (value.isDouble() && value.toInteger(0) == value.toInteger(1))
        return value.toInteger();
    failType(key, "an integer", value);
}

std::optional<qint64> JsonReader::optionalInteger(QStringView key) const
{
    if (!has(key))
        return std::nullopt;
    return requiredInteger(key);
}

std::optional<double> JsonReader::optionalDouble(QStringView key) const
{
    if (!has(key))
        return std::nullopt;
    const QJsonValue value = m_object.value(key);
    if (!value.isDouble())
        failType(key, "a number", value);
    return value.toDouble();
}

JsonReader JsonReader::requiredObject(QStringView key) const
{
    const QJsonValue value = required(key);
    if (!value.isObject())
        failType(key, "an object", value);
    return JsonReader(value, pathOf(key));
}

std::optional<JsonReader> JsonReader::optionalObject(QStringView key) const
{
    if (!has(key))
        return std::nullopt;
    return requiredObject(key);
}

} // namespace velmora::detail
