#pragma once

#include <QColor>
#include <QStringView>

#include <optional>

namespace velmora {

/// Parses a creative's colour text: the whole text as a signed 64-bit hexadecimal integer
/// (optional single "+" or "-", then hex digits), red in bits 16-23, green 8-15, blue 0-7.
///
/// The limits are deliberate and hosts rely on them: a leading "#" or blank is rejected (the
/// caller falls back to its default), higher bits are ignored ("FF0000FF" is blue), "F00" is
/// (0, 15, 0), "-1" is white, and overflow or non-ASCII text is rejected.
std::optional<QColor> hexColor(QStringView hex, qreal alpha = 1.0);

/// The library's fixed palette.
namespace palette {
QColor defaultTitleTextColor(); ///< #1D2635
QColor defaultBodyTextColor(); ///< #333333
QColor coverImagePlaceholderColor(); ///< #586976 at alpha 0.1
QColor closeButtonIconColor(); ///< #44464B
QColor closeButtonBackgroundColor(); ///< #D3D4DB
} // namespace palette

} // namespace velmora
