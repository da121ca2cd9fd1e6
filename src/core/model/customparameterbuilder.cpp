#include <VelmoraInAppMessaging/customparameterbuilder.h>

#include <QHash>

namespace velmora {

QList<CustomParameterEntry>
CustomParameterBuilder::buildBlock(std::initializer_list<CustomParameterEntry> entries)
{
    return buildBlock(QList<CustomParameterEntry>(entries));
}

QList<CustomParameterEntry>
CustomParameterBuilder::buildBlock(const QList<CustomParameterEntry> &entries)
{
    QList<CustomParameterEntry> result;
    QHash<QString, qsizetype> positions;
    for (const CustomParameterEntry &entry : entries) {
        const auto it = positions.constFind(entry.key);
        if (it == positions.cend()) {
            positions.insert(entry.key, result.size());
            result.append(entry);
        } else {
            result[*it] = entry;
        }
    }
    return result;
}

CustomParameterEntry putString(const QString &key, const QString &value)
{
    return { key, { value } };
}

CustomParameterEntry putInteger(const QString &key, qint64 value)
{
    return { key, { value } };
}

CustomParameterEntry putDouble(const QString &key, double value)
{
    return { key, { value } };
}

CustomParameterEntry putBoolean(const QString &key, bool value)
{
    return { key, { value } };
}

CustomParameterEntry putStringArray(const QString &key, const QStringList &value)
{
    return { key, { value } };
}

CustomParameterEntry putIntegerArray(const QString &key, const QList<qint64> &value)
{
    return { key, { value } };
}

CustomParameterEntry putDoubleArray(const QString &key, const QList<double> &value)
{
    return { key, { value } };
}

CustomParameterEntry putBooleanArray(const QString &key, const QList<bool> &value)
{
    return { key, { value } };
}

} // namespace velmora
