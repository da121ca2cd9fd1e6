#include "service/reactionbackgroundtask.h"

#include "common/logging.h"
#include "common/threading.h"

#include <QCoreApplication>
#include <QEventLoopLocker>
#include <QGuiApplication>
#include <QHash>
#include <QPointer>
#include <QThread>
#include <QTimer>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

using detail::runOnGuiThread;

// A locker only matters where closing the last window would quit the application. Without a
// visible window nothing is about to close, and releasing a locker in such an application would
// itself quit it.
bool needsLocker()
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance())
        || !QGuiApplication::quitOnLastWindowClosed())
        return false;
    const auto windows = QGuiApplication::topLevelWindows();
    return std::any_of(windows.cbegin(), windows.cend(),
                       [](const QWindow *window) { return window->isVisible(); });
}

bool isBackground(Qt::ApplicationState state)
{
    return state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended;
}

} // namespace

struct QtBackgroundTaskProvider::Private
{
    // A task can end from inside its own deadline's timeout, so the timer goes later.
    struct DeleteLater
    {
        void operator()(QObject *object) const { object->deleteLater(); }
    };
    struct Task
    {
        std::unique_ptr<QEventLoopLocker> locker;
        std::function<void()> expirationHandler;
        std::unique_ptr<QTimer, DeleteLater> deadline;
    };

    std::chrono::milliseconds deadline;
    QHash<TaskId, std::shared_ptr<Task>> tasks;
    TaskId nextId = 1;
    bool inBackground = false;
    QMetaObject::Connection aboutToQuit;
    QMetaObject::Connection stateChanged;

    void expire(TaskId id)
    {
        const auto task = tasks.value(id);
        if (!task)
            return;
        qCDebug(lcVelmoraService) << "background task" << id << "expired";
        // The handler ends the task through end(), which forgets it.
        if (task->expirationHandler)
            task->expirationHandler();
        tasks.remove(id);
    }

    // The platform takes background time back only from an application that has left the
    // foreground; in the foreground a reaction runs all its attempts, however long they take.
    void setInBackground(bool background)
    {
        if (background == inBackground)
            return;
        inBackground = background;
        for (const auto &task : std::as_const(tasks)) {
            if (background)
                task->deadline->start(deadline);
            else
                task->deadline->stop();
        }
    }
};

QtBackgroundTaskProvider::QtBackgroundTaskProvider(std::chrono::milliseconds deadline)
    : d(std::make_unique<Private>())
{
    d->deadline = deadline;
    if (auto *app = QCoreApplication::instance()) {
        d->aboutToQuit = QObject::connect(app, &QCoreApplication::aboutToQuit, app, [this] {
            const auto ids = d->tasks.keys();
            for (TaskId id : ids)
                d->expire(id);
        });
    }
    // Without a GUI application there is no foreground to leave: only quitting expires tasks.
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        d->inBackground = isBackground(QGuiApplication::applicationState());
        d->stateChanged = QObject::connect(
            app, &QGuiApplication::applicationStateChanged, app,
            [this](Qt::ApplicationState state) { d->setInBackground(isBackground(state)); });
    }
}

QtBackgroundTaskProvider::~QtBackgroundTaskProvider()
{
    QObject::disconnect(d->aboutToQuit);
    QObject::disconnect(d->stateChanged);
}

BackgroundTaskProvider::TaskId
QtBackgroundTaskProvider::begin(const QString &name, std::function<void()> expirationHandler)
{
    Q_ASSERT(detail::isGuiThread());
    const TaskId id = d->nextId++;
    auto task = std::make_shared<Private::Task>();
    if (needsLocker())
        task->locker = std::make_unique<QEventLoopLocker>();
    task->expirationHandler = std::move(expirationHandler);
    task->deadline.reset(new QTimer);
    task->deadline->setSingleShot(true);
    QObject::connect(task->deadline.get(), &QTimer::timeout, task->deadline.get(),
                     [this, id] { d->expire(id); });
    if (d->inBackground)
        task->deadline->start(d->deadline);
    d->tasks.insert(id, task);
    qCDebug(lcVelmoraService).noquote()
        << u"background task "_s + QString::number(id) + u" begun: "_s + name;
    return id;
}

void QtBackgroundTaskProvider::end(TaskId task)
{
    d->tasks.remove(task);
}

int QtBackgroundTaskProvider::activeTaskCount() const
{
    return int(d->tasks.size());
}

ExpirationBox::ExpirationBox(std::shared_ptr<BackgroundTaskProvider> provider,
                             BackgroundTaskProvider::TaskId id)
    : m_provider(std::move(provider))
    , m_id(id)
{ }

void ExpirationBox::end()
{
    {
        QMutexLocker locker(&m_lock);
        if (m_ended)
            return;
        m_ended = true;
        m_onExpiration = {};
    }
    if (m_id == BackgroundTaskProvider::invalidTask || !m_provider)
        return;
    runOnGuiThread([provider = m_provider, id = m_id] { provider->end(id); });
}

void ExpirationBox::setOnExpiration(std::function<void()> onExpiration)
{
    QMutexLocker locker(&m_lock);
    if (!m_ended)
        m_onExpiration = std::move(onExpiration);
}

void ExpirationBox::expire()
{
    std::function<void()> onExpiration;
    {
        QMutexLocker locker(&m_lock);
        onExpiration = m_onExpiration;
    }
    // Called outside the lock: cancelling the send may end the box from the same thread.
    if (onExpiration)
        onExpiration();
    end();
}

bool ExpirationBox::isEnded() const
{
    QMutexLocker locker(&m_lock);
    return m_ended;
}

std::shared_ptr<ExpirationBox>
ReactionBackgroundTask::begin(const std::shared_ptr<BackgroundTaskProvider> &provider)
{
    // The handler reaches the box through a slot that is filled only after begin() returns the
    // identifier, so an expiry that raced ahead finds it empty and does nothing.
    auto slot = std::make_shared<std::weak_ptr<ExpirationBox>>();
    const auto id = provider ? provider->begin(u"VelmoraReactionSend"_s,
                                               [slot] {
                                                   if (const auto box = slot->lock())
                                                       box->expire();
                                               })
                             : BackgroundTaskProvider::invalidTask;
    auto box = std::make_shared<ExpirationBox>(provider, id);
    *slot = box;
    return box;
}

} // namespace velmora
