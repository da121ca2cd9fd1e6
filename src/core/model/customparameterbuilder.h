#pragma once

#include <VelmoraInAppMessaging/customvalue.h>

#include <QList>

#include <initializer_list>

namespace velmora {

/// Collects a screen view's custom parameters.
///
/// \code
/// using namespace Qt::StringLiterals;
/// const auto params = CustomParameterBuilder::buildBlock({
///     putString(u"plan"_s, u"gold"_s),
///     putInteger(u"age"_s, 42),
///     putStringArray(u"tags"_s, { u"new"_s, u"beta"_s }),
/// });
/// \endcode
class VELMORA_EXPORT CustomParameterBuilder
{
public:
    /// A repeated key keeps its first position and takes the last value; keys are compared
    /// exactly, so "Plan" and "plan" are two entries.
    static QList<CustomParameterEntry>
    buildBlock(std::initializer_list<CustomParameterEntry> entries);
    static QList<CustomParameterEntry> buildBlock(const QList<CustomParameterEntry> &entries);
};

VELMORA_EXPORT CustomParameterEntry putString(const QString &key, const QString &value);
VELMORA_EXPORT CustomParameterEntry putInteger(const QString &key, qint64 value);
VELMORA_EXPORT CustomParameterEntry putDouble(const QString &key, double value);
VELMORA_EXPORT CustomParameterEntry putBoolean(const QString &key, bool value);
VELMORA_EXPORT CustomParameterEntry putStringArray(const QString &key, const QStringList &value);
VELMORA_EXPORT CustomParameterEntry putIntegerArray(const QString &key, const QList<qint64> &value);
VELMORA_EXPORT CustomParameterEntry putDoubleArray(const QString &key, const QList<double> &value);
VELMORA_EXPORT CustomParameterEntry putBooleanArray(const QString &key, const QList<bool> &value);

} // namespace velmora
