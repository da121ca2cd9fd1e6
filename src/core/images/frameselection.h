#pragma once

#include <QList>

namespace velmora {

/// The frame of a looping animation on show `elapsed` seconds after it started: each frame is
/// shown for exactly its own delay, then the loop repeats. Frame 0 when there is nothing to
/// loop over (no delays, a total duration that is not positive, or an elapsed time that is
/// negative or not a number).
qsizetype frameIndexForElapsed(const QList<double> &delays, double totalDuration, double elapsed);

} // namespace velmora
