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
// them in release builds without configuring Qt logging. Control characters in `text` are
// escaped, so a warning stays one line whatever it quotes. A standard output that nobody reads
// delays the caller by 100 ms at most; lines that find no room are dropped.
void printWarning(const QString &text);

// CR, LF and tab as \r, \n and \t; other C0 and C1 controls and DEL as \xHH; the Unicode line
// and paragraph separators as \uHHHH.
QString escapeControlCharacters(QStringView text);

using WarningSink = std::function<void(const QString &line)>;
// Replaces where warnings go (the full line, prefix included); an empty sink restores stdout.
// Returns the previous sink. Meant for tests and tools that collect warnings.
WarningSink setWarningSink(WarningSink sink);

} // namespace velmora::detail
