#include "facade/qmlcustomparameter.h"

#include <VelmoraInAppMessaging/customparameterbuilder.h>

#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora::quick::customparameter {

namespace {

// A JS number is an integer parameter only when it is whole and fits 64 bits; 2^63 itself
// does not, and is the first double that fails.
std::optional<qint64> wholeNumber(const QJSValue &value)
{
    if (!value.isNumber())
        return std::nullopt;
    const double number = value.toNumber();
    if (!std::isfinite(number) || std::trunc(number) != number || number < -0x1p63
        || number >= 0x1p63)
        return std::nullopt;
    return qint64(number);
}

template<typename List, typename Convert>
std::optional<List> arrayOf(const QJSValue &value, Convert convert)
{
    if (!value.isArray())
        return std::nullopt;
    const int length = value.property(u"length"_s).toInt();
    List list;
    list.reserve(length);
    for (int i = 0; i < length; ++i) {
        const auto element = convert(value.property(quint32(i)));
        if (!element)
            return std::nullopt;
        list.append(*element);
    }
    return list;
}

std::optional<QString> text(const QJSValue &value)
{
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

std::optional<double> number(const QJSValue &value)
{
    return value.isNumber() ? std::optional(value.toNumber()) : std::nullopt;
}

std::optional<bool> boolean(const QJSValue &value)
{
    return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<CustomValue> valueOf(const QString &type, const QJSValue &value, QString *expected)
{
    auto wrap = [](const auto &converted) -> std::optional<CustomValue> {
        if (!converted)
            return std::nullopt;
        return CustomValue { *converted };
    };
    if (type == u"string") {
        *expected = u"a string"_s;
        return wrap(text(value));
    }
    if (type == u"integer") {
        *expected = u"a whole number within 64 bits"_s;
        return wrap(wholeNumber(value));
    }
    if (type == u"double") {
        *expected = u"a number"_s;
        return wrap(number(value));
    }
    if (type == u"boolean") {
        *expected = u"a boolean"_s;
        return wrap(boolean(value));
    }
    if (type == u"stringArray") {
        *expected = u"an array of strings"_s;
        return wrap(arrayOf<QStringList>(value, text));
    }
    if (type == u"integerArray") {
        *expected = u"an array of whole numbers within 64 bits"_s;
        return wrap(arrayOf<QList<qint64>>(value, wholeNumber));
    }
    if (type == u"doubleArray") {
        *expected = u"an array of numbers"_s;
        return wrap(arrayOf<QList<double>>(value, number));
    }
    if (type == u"booleanArray") {
        *expected = u"an array of booleans"_s;
        return wrap(arrayOf<QList<bool>>(value, boolean));
    }
    *expected = QString();
    return std::nullopt;
}

} // namespace

std::optional<CustomParameterEntry> make(const QString &type, const QJSValue &key,
                                         const QJSValue &value, QString *error)
{
    if (!key.isString()) {
        *error = u"CustomParameter."_s + type + u"(): the key must be a string"_s;
        return std::nullopt;
    }
    QString expected;
    std::optional<CustomValue> converted = valueOf(type, value, &expected);
    if (!converted) {
        *error = expected.isEmpty() ? u"CustomParameter: unknown type "_s + type
                                    : u"CustomParameter."_s + type + u"(\""_s + key.toString()
                + u"\"): the value must be "_s + expected;
        return std::nullopt;
    }
    return CustomParameterEntry { key.toString(), std::move(*converted) };
}

QList<CustomParameterEntry> collect(const QJSValue &entries, QStringList *warnings)
{
    if (entries.isUndefined() || entries.isNull())
        return {};
    if (!entries.isArray()) {
        warnings->append(u"customParameter must return an array of CustomParameter entries"_s);
        return {};
    }
    QList<CustomParameterEntry> list;
    const int length = entries.property(u"length"_s).toInt();
    for (int i = 0; i < length; ++i) {
        const QVariant element = entries.property(quint32(i)).toVariant();
        if (element.metaType() == QMetaType::fromType<CustomParameterEntry>()) {
            list.append(element.value<CustomParameterEntry>());
        } else {
            warnings->append(u"customParameter: element "_s + QString::number(i)
                             + u" is not a CustomParameter entry and is left out"_s);
        }
    }
    return CustomParameterBuilder::buildBlock(list);
}

} // namespace velmora::quick::customparameter
