#pragma once

namespace velmora {

/// Distances in points from the banner's edges; taken as received, negative values included.
struct Margin
{
    double top = 0;
    double bottom = 0;
    double left = 0;
    double right = 0;
};

} // namespace velmora
