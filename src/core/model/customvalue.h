#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

namespace velmora {

/// A typed custom parameter value, sent as a bare JSON value; the back end infers the type.
struct VELMORA_EXPORT CustomValue
{
    /// In the order decoding tries them.
    enum class Type {
        String,
        Integer,
        Double,
        Bool,
        StringArray,
        IntegerArray,
        DoubleArray,
        BoolArray,
    };
    using Storage = std::variant<QString, qint64, double, bool, QStringList, QList<qint64>,
                                 QList<double>, QList<bool>>;

    Storage value;

    Type type() const { return Type(value.index()); }

    /// The JSON form; nullopt when a floating-point value is not finite, which JSON cannot carry.
    std::optional<QJsonValue> toJson() const;

    /// Tries integer, floating point, Boolean, text, then arrays of Boolean, integer, floating
    /// point and text: a whole number such as 3 is an integer, and an empty array is a Boolean
    /// array. Anything else fails with "CustomValue: unsupported type".
    static std::optional<CustomValue> fromJson(const QJsonValue &json, QString *error = nullptr);

    friend bool operator==(const CustomValue &, const CustomValue &) = default;
};

/// One host-supplied parameter of a screen view.
struct VELMORA_EXPORT CustomParameterEntry
{
    QString key;
    CustomValue value;

    friend bool operator==(const CustomParameterEntry &, const CustomParameterEntry &) = default;
};

} // namespace velmora
