#pragma once

#include <QString>

#include <optional>

namespace velmora {

struct ContentsLength
{
    enum class Unit {
        Px, ///< points on screen, 1 to 999
        Percentage, ///< per cent of the safe extent in the same direction, 1 to 100
    };

    int length = 0;
    Unit unit = Unit::Px;

    /// The description of why the length is out of bounds, or nullopt when it is valid.
    static std::optional<QString> boundsError(qint64 length, Unit unit);
};

QString rawValue(ContentsLength::Unit unit);

/// An explicit popup banner size as received; layout resolves it against the screen.
struct ContentsSize
{
    ContentsLength width;
    std::optional<ContentsLength> height;
};

} // namespace velmora
