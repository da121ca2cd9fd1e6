#pragma once

#include <QMetaObject>
#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <utility>

namespace velmora::detail {

/// Whether the caller runs on the GUI thread (the thread of the application object).
bool isGuiThread();

/// Runs `fn` on the GUI thread: now when already there (or when there is no application
/// object yet), otherwise queued, in call order.
void runOnGuiThread(std::function<void()> fn);

/// Runs `fn` on `context`'s thread from its event loop, never inside the caller's stack, so a
/// completion cannot re-enter the code that produced it. Dropped when `context` dies first.
template<typename Fn> void postTo(QObject *context, Fn &&fn)
{
    QMetaObject::invokeMethod(context, std::forward<Fn>(fn), Qt::QueuedConnection);
}

/// postTo() for a completion that takes a result.
template<typename Result, typename Completion>
void deliverLater(QObject *context, Completion completion, Result result)
{
    postTo(context, [completion = std::move(completion), result = std::move(result)]() mutable {
        completion(std::move(result));
    });
}

/// A single-shot timer owned by `owner` that calls `onExpiry` once `timeout` has passed; the
/// caller stops it when the work finishes first.
QTimer *startDeadline(QObject *owner, std::chrono::milliseconds timeout,
                      std::function<void()> onExpiry);

} // namespace velmora::detail
