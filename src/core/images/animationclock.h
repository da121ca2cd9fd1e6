#pragma once

#include <QList>

#include <chrono>
#include <functional>
#include <optional>

namespace velmora {

class AnimatedImageSource;

/// The playback clock of an animation on screen, driven by the view's refresh callback: it
/// measures monotonic time since the loop (re)started and says which frame to show, and only
/// when that frame changes, so a refresh that keeps the frame costs nothing.
///
///     clock.start();                       // view entered a window
///     if (auto frame = clock.advance(source))  // on every display refresh
///         show(source.frames()[*frame]);
///     clock.stop();                        // view left its window
class AnimationClock
{
public:
    /// Monotonic time; only differences are used.
    using TimeSource = std::function<std::chrono::nanoseconds()>;

    AnimationClock();
    explicit AnimationClock(TimeSource now);

    /// Starts the loop at frame 0 now; does nothing while already running.
    void start();
    /// Starts the loop at frame 0 now, running or not.
    void restart();
    /// Stops the clock; the next start begins at frame 0 again.
    void stop();

    bool isRunning() const { return m_running; }
    /// Seconds since the loop started; 0 while stopped.
    double elapsed() const;

    /// The frame to show now when it differs from the one last reported since the start;
    /// nothing while stopped or when the frame on show is still current.
    std::optional<qsizetype> advance(const AnimatedImageSource &source);
    std::optional<qsizetype> advance(const QList<double> &delays, double totalDuration);
    /// The frame last reported by advance(); -1 before the first report after a start.
    qsizetype lastFrameIndex() const { return m_lastFrameIndex; }

private:
    TimeSource m_now;
    std::chrono::nanoseconds m_startTime { 0 };
    qsizetype m_lastFrameIndex = -1;
    bool m_running = false;
};

} // namespace velmora
