#pragma once

#include <QString>

#include <array>
#include <optional>

namespace velmora {

/// The nine places a popup banner can sit, in declaration order.
enum class DisplayPosition {
    TopLeft,
    Top,
    TopRight,
    CenterLeft,
    Center,
    CenterRight,
    BottomLeft,
    Bottom,
    BottomRight,
};

inline constexpr std::array<DisplayPosition, 9> allDisplayPositions = {
    DisplayPosition::TopLeft,    DisplayPosition::Top,    DisplayPosition::TopRight,
    DisplayPosition::CenterLeft, DisplayPosition::Center, DisplayPosition::CenterRight,
    DisplayPosition::BottomLeft, DisplayPosition::Bottom, DisplayPosition::BottomRight,
};

/// The wire form, such as "top_left".
QString rawValue(DisplayPosition position);
/// Exact, case-sensitive match of the wire form; nullopt for anything else.
std::optional<DisplayPosition> displayPositionFromRawValue(QStringView raw);

} // namespace velmora
