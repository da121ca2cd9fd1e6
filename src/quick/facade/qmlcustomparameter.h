#pragma once

#include <VelmoraInAppMessaging/customvalue.h>

#include <QJSValue>
#include <QList>
#include <QString>
#include <QVariant>

#include <optional>

class QJSEngine;

namespace velmora::quick {

/// Custom parameters as QML writes them: entries made by the `CustomParameter` singleton.
namespace customparameter {

/// The entry of `type` ("string", "integer", "double", "boolean" or an array of one of these,
/// "stringArray" ...), or a message saying why the value does not have that type. Values of the
/// right type are taken as the C++ builder takes them: empty keys and non-finite numbers
/// included.
std::optional<CustomParameterEntry> make(const QString &type, const QJSValue &key,
                                         const QJSValue &value, QString *error);

/// A JS array of entries as the builder collects them (a repeated key keeps its first place
/// and takes the last value). Elements that are not entries are left out and named in
/// `warnings`.
QList<CustomParameterEntry> collect(const QJSValue &entries, QStringList *warnings);

} // namespace customparameter

} // namespace velmora::quick
