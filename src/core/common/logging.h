#pragma once

#include <QLoggingCategory>
#include <QString>

#include <functional>

// Diagnostics are debug-level and off by default; enable with
// QT_LOGGING_RULES="velmora.*.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcVelmoraNetwork)
Q_DECLARE_LOGGING_CATEGORY(lcVelmoraService)
Q_DECLARE_LOGGING_CATEGORY(lcVelmoraPresentation)
Q_DECLARE_LOGGING_CATEGORY(lcVelmoraImages)

namespace velmora::detail {

// The library's warnings are single lines on standard output, not log records, so hosts see
// them in release builds without configuring Qt logging.
void printWarning(const QString &text);

using WarningSink = std::function<void(const QString &line)>;
// Replaces where warnings go (the full line, prefix included); an empty sink restores stdout.
// Returns the previous sink. Meant for tests and tools that collect warnings.
WarningSink setWarningSink(WarningSink sink);

} // namespace velmora::detail
