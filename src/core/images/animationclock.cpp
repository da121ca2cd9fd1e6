#include "images/animationclock.h"

#include "images/animatedimagesource.h"
#include "images/frameselection.h"

#include <QElapsedTimer>

namespace velmora {

namespace {
std::chrono::nanoseconds steadyNow()
{
    static const QElapsedTimer origin = [] {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }();
    return std::chrono::nanoseconds(origin.nsecsElapsed());
}
} // namespace

AnimationClock::AnimationClock()
    : AnimationClock(steadyNow)
{ }

AnimationClock::AnimationClock(TimeSource now)
    : m_now(now ? std::move(now) : TimeSource(steadyNow))
{ }

void AnimationClock::start()
{
    if (!m_running)
        restart();
}

void AnimationClock::restart()
{
    m_startTime = m_now();
    m_lastFrameIndex = -1;
    m_running = true;
}

void AnimationClock::stop()
{
    m_running = false;
    m_lastFrameIndex = -1;
}

double AnimationClock::elapsed() const
{
    if (!m_running)
        return 0;
    return std::chrono::duration<double>(m_now() - m_startTime).count();
}

std::optional<qsizetype> AnimationClock::advance(const AnimatedImageSource &source)
{
    return advance(source.delays(), source.totalDuration());
}

std::optional<qsizetype> AnimationClock::advance(const QList<double> &delays, double totalDuration)
{
    if (!m_running)
        return std::nullopt;
    const qsizetype index = frameIndexForElapsed(delays, totalDuration, elapsed());
    if (index == m_lastFrameIndex)
        return std::nullopt;
    m_lastFrameIndex = index;
    return index;
}

} // namespace velmora
