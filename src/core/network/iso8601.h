#pragma once

#include <QDateTime>
#include <QStringView>

#include <optional>

namespace velmora::detail {

enum class FractionalSeconds { Required, Forbidden };

/// Internet date-time (RFC 3339): 2024-05-01T09:30:00.250+09:00 or 2024-05-01T09:30:00Z.
/// Returns the instant in UTC, fractions kept to the millisecond.
std::optional<QDateTime> parseInternetDateTime(QStringView text, FractionalSeconds fraction);

} // namespace velmora::detail
