#pragma once

#include <QMutex>
#include <QString>

#include <functional>
#include <memory>

namespace velmora {

/// Keeps the application alive while a reaction is in flight. Platforms with real background
/// execution (iOS, Android) plug in their own; the default is QtBackgroundTaskProvider.
class BackgroundTaskProvider
{
public:
    using TaskId = quint64;
    static constexpr TaskId invalidTask = 0;

    virtual ~BackgroundTaskProvider() = default;
    /// Starts a task; `expirationHandler` runs on the GUI thread if the platform takes the
    /// time back before end() is called.
    virtual TaskId begin(const QString &name, std::function<void()> expirationHandler) = 0;
    /// Ends a task; called on the GUI thread, once per task.
    virtual void end(TaskId task) = 0;
};

/// The desktop stand-in: while a task runs, a QEventLoopLocker holds off quit-on-last-window-
/// closed, so closing the last window does not drop a reaction in flight. A task expires when
/// the application is about to quit (an explicit quit() is not held off by lockers), or once
/// its deadline has passed with the application out of the foreground (hidden or suspended):
/// the deadline starts when the application leaves the foreground, or at begin() when it is
/// already out, and stops when it comes back. In the foreground a task never expires.
class QtBackgroundTaskProvider final : public BackgroundTaskProvider
{
public:
    explicit QtBackgroundTaskProvider(std::chrono::milliseconds deadline
                                      = std::chrono::seconds(30));
    ~QtBackgroundTaskProvider() override;

    TaskId begin(const QString &name, std::function<void()> expirationHandler) override;
    void end(TaskId task) override;

    /// Number of tasks begun and not yet ended or expired.
    int activeTaskCount() const;

private:
    struct Private;
    std::unique_ptr<Private> d;
};

/// One reaction's claim on background time. end() may be called any number of times, from any
/// thread; only the first ends the task, always on the GUI thread.
class ExpirationBox
{
public:
    ExpirationBox(std::shared_ptr<BackgroundTaskProvider> provider,
                  BackgroundTaskProvider::TaskId id);

    void end();
    /// What expiry does before the task ends: cancel the send.
    void setOnExpiration(std::function<void()> onExpiration);
    /// Called by the provider's expiration handler.
    void expire();
    bool isEnded() const;

private:
    std::shared_ptr<BackgroundTaskProvider> m_provider;
    const BackgroundTaskProvider::TaskId m_id;
    mutable QMutex m_lock;
    bool m_ended = false;
    std::function<void()> m_onExpiration;
};

namespace ReactionBackgroundTask {
/// Begins a task named "VelmoraReactionSend" and returns its box (always present).
std::shared_ptr<ExpirationBox> begin(const std::shared_ptr<BackgroundTaskProvider> &provider);
} // namespace ReactionBackgroundTask

} // namespace velmora
