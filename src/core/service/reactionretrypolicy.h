#pragma once

#include "network/apiclient.h"

#include <QObject>
#include <QPointer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace velmora {

/// Which reaction failures are worth another attempt, and how long to wait before it.
namespace ReactionRetryPolicy {

enum class RetryCategory { ConnectionFailure, ServerError };

/// The waits before each retry; their count is the number of retries. Kept per category, so a
/// reaction that first cannot connect and then meets a server error can make two connection
/// retries and one server retry: four attempts at most.
QList<std::chrono::milliseconds> waits(RetryCategory category);

/// Server errors (any status) and failures to reach the host are retried. Time-outs are
/// deliberately not, nor are client errors, preconditions or anything else.
std::optional<RetryCategory> classify(const APIFailure &failure);
bool isCancellation(const APIFailure &failure);

} // namespace ReactionRetryPolicy

/// Cancels whatever it was returned for; calling it after the work ended does nothing.
using CancelFunction = std::function<void()>;

/// The wait between attempts; tests replace it so retries run instantly. `wake` runs on the
/// caller's thread once the duration has passed, unless the returned function cancelled it.
using Sleeper
    = std::function<CancelFunction(std::chrono::milliseconds duration, std::function<void()> wake)>;
/// A timer on the calling thread's event loop.
Sleeper defaultSleeper();

/// Runs one send with the retry policy. Everything happens on the thread that starts it; the
/// transfer itself runs in Qt's network thread.
class ReactionSendRunner : public QObject
{
    Q_OBJECT

public:
    using Result = Expected<ResponseHeaders, APIFailure>;
    using Send = std::function<CancelFunction(std::function<void(Result)> done)>;

    /// Starts at once; `done` runs exactly once, with the first success, the last failure, or
    /// a cancellation. The runner deletes itself afterwards.
    static QPointer<ReactionSendRunner>
    run(Send send, Sleeper sleep, std::function<void(Result)> done, QObject *parent = nullptr);

    /// Stops the send or the wait in progress; `done` then reports a cancellation.
    void cancel();

private:
    ReactionSendRunner(Send send, Sleeper sleep, std::function<void(Result)> done, QObject *parent);
    void attempt();
    void onResult(Result result);
    void finish(Result result);

    Send m_send;
    Sleeper m_sleep;
    std::function<void(Result)> m_done;
    CancelFunction m_cancelCurrent;
    int m_connectionRetries = 0;
    int m_serverRetries = 0;
    bool m_finished = false;
};

} // namespace velmora
