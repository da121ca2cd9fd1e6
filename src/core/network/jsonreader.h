#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <exception>
#include <optional>

namespace velmora::detail {

/// Why a value could not be decoded; carries a readable description with the JSON path.
class DecodingFailure : public std::exception
{
public:
    explicit DecodingFailure(QString description)
        : m_description(std::move(description))
    { }
    const QString &description() const { return m_description; }
    const char *what() const noexcept override { return "velmora decoding failure"; }

private:
    QString m_description;
};

/// A strict reader over one JSON object that tells an absent key from null, rejects type
/// mismatches and names the path of what failed. Failures throw DecodingFailure; the decoders
/// catch it at the boundary of what one failure may cost (an action, or the whole document).
class JsonReader
{
public:
    JsonReader(const QJsonValue &value, QString path);

    const QString &path() const { return m_path; }
    QString pathOf(QStringView key) const;

    /// True when the key exists with a non-null value.
    bool has(QStringView key) const;

    QString requiredString(QStringView key) const;
    std::optional<QString> optionalString(QStringView key) const;
    qint64 requiredInteger(QStringView key) const;
    std::optional<qint64> optionalInteger(QStringView key) const;
    std::optional<double> optionalDouble(QStringView key) const;
    JsonReader requiredObject(QStringView key) const;
    std::optional<JsonReader> optionalObject(QStringView key) const;

    [[noreturn]] void failDataCorrupted(QStringView key, const QString &reason) const;

    static QString typeName(const QJsonValue &value);

private:
    QJsonValue required(QStringView key) const;
    [[noreturn]] void failType(QStringView key, const char *expected,
                               const QJsonValue &found) const;

    QJsonObject m_object;
    QString m_path;
};

} // namespace velmora::detail
