#include "common/threading.h"

#include <QCoreApplication>
#include <QThread>

namespace velmora::detail {

bool isGuiThread()
{
    const QCoreApplication *app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void runOnGuiThread(std::function<void()> fn)
{
    if (isGuiThread() || !QCoreApplication::instance())
        fn();
    else
        postTo(QCoreApplication::instance(), std::move(fn));
}

QTimer *startDeadline(QObject *owner, std::chrono::milliseconds timeout,
                      std::function<void()> onExpiry)
{
    auto *timer = new QTimer(owner);
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, owner, std::move(onExpiry));
    timer->start(timeout);
    return timer;
}

} // namespace velmora::detail
