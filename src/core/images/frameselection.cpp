#include "images/frameselection.h"

#include <cmath>

namespace velmora {

qsizetype frameIndexForElapsed(const QList<double> &delays, double totalDuration, double elapsed)
{
    // Written as negations so that NaN lands on frame 0 as well.
    if (delays.isEmpty() || !(totalDuration > 0))
        return 0;
    const double t = std::fmod(elapsed, totalDuration);
    if (!(t > 0))
        return 0;
    double accumulated = 0;
    for (qsizetype i = 0; i < delays.size(); ++i) {
        accumulated += delays[i];
        if (t < accumulated)
            return i;
    }
    // The running sum can fall a rounding error short of totalDuration.
    return delays.size() - 1;
}

} // namespace velmora
