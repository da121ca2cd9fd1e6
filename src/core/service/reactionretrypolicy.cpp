#include "service/reactionretrypolicy.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QCoreApplication>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace velmora {

namespace {

std::optional<ReactionRetryPolicy::RetryCategory> classifyError(const VelmoraError &error);

// Qt reports an unreachable network or host as UnknownNetworkError, and only the socket's text
// tells them from other failures; the translated text counts too, for applications that load
// Qt's translations.
bool isUnreachable(const UnderlyingError &error)
{
    if (error.networkCode() != QNetworkReply::UnknownNetworkError)
        return false;
    const QString description = error.description();
    for (const char *text : { "Network unreachable", "Host unreachable" }) {
        if (description.endsWith(u": "_s + QLatin1StringView(text))
            || description.endsWith(u": "_s
                                    + QCoreApplication::translate("QNativeSocketEngine", text)))
            return true;
    }
    return false;
}

std::optional<ReactionRetryPolicy::RetryCategory> classifyUnderlying(const UnderlyingError &error)
{
    using C = ReactionRetryPolicy::RetryCategory;
    switch (error.domain()) {
    case UnderlyingError::Domain::Library:
        return error.wrappedError() ? classifyError(*error.wrappedError()) : std::nullopt;
    case UnderlyingError::Domain::Network:
        switch (error.networkCode()) {
        // The host could not be found or reached, or there is no network at all.
        case QNetworkReply::HostNotFoundError:
        case QNetworkReply::ConnectionRefusedError:
        case QNetworkReply::NetworkSessionFailedError:
        case QNetworkReply::TemporaryNetworkFailureError:
            return C::ConnectionFailure;
        default:
            return isUnreachable(error) ? std::optional(C::ConnectionFailure) : std::nullopt;
        }
    case UnderlyingError::Domain::Decoding:
    case UnderlyingError::Domain::Cancellation:
    case UnderlyingError::Domain::ImageLoad:
        return std::nullopt;
    }
    return std::nullopt;
}

std::optional<ReactionRetryPolicy::RetryCategory> classifyError(const VelmoraError &error)
{
    switch (error.kind()) {
    case VelmoraError::Kind::ServerError:
        return ReactionRetryPolicy::RetryCategory::ServerError;
    case VelmoraError::Kind::NetworkError:
        return error.underlyingError() ? classifyUnderlying(*error.underlyingError())
                                       : std::nullopt;
    case VelmoraError::Kind::Precondition:
    case VelmoraError::Kind::ClientError:
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace

QList<std::chrono::milliseconds> ReactionRetryPolicy::waits(RetryCategory category)
{
    switch (category) {
    case RetryCategory::ConnectionFailure:
        return { 1000ms, 2000ms };
    case RetryCategory::ServerError:
        return { 1000ms };
    }
    return {};
}

std::optional<ReactionRetryPolicy::RetryCategory>
ReactionRetryPolicy::classify(const APIFailure &failure)
{
    if (const auto *error = std::get_if<VelmoraError>(&failure))
        return classifyError(*error);
    return std::nullopt;
}

bool ReactionRetryPolicy::isCancellation(const APIFailure &failure)
{
    return velmora::isCancellation(failure);
}

Sleeper defaultSleeper()
{
    return [](std::chrono::milliseconds duration, std::function<void()> wake) -> CancelFunction {
        auto *timer = new QTimer;
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        QObject::connect(timer, &QTimer::timeout, timer, [timer, wake = std::move(wake)] {
            timer->deleteLater();
            wake();
        });
        timer->start(duration);
        QPointer<QTimer> guard(timer);
        return [guard] {
            if (guard) {
                guard->stop();
                guard->deleteLater();
            }
        };
    };
}

ReactionSendRunner::ReactionSendRunner(Send send, Sleeper sleep, std::function<void(Result)> done,
                                       QObject *parent)
    : QObject(parent)
    , m_send(std::move(send))
    , m_sleep(std::move(sleep))
    , m_done(std::move(done))
{ }

QPointer<ReactionSendRunner>
ReactionSendRunner::run(Send send, Sleeper sleep, std::function<void(Result)> done, QObject *parent)
{
    auto *runner
        = new ReactionSendRunner(std::move(send), std::move(sleep), std::move(done), parent);
    QPointer<ReactionSendRunner> handle(runner);
    runner->attempt();
    return handle;
}

void ReactionSendRunner::attempt()
{
    QPointer<ReactionSendRunner> self(this);
    m_cancelCurrent = m_send([self](Result result) {
        if (self)
            self->onResult(std::move(result));
    });
}

void ReactionSendRunner::onResult(Result result)
{
    if (m_finished)
        return;
    m_cancelCurrent = {};
    if (result || ReactionRetryPolicy::isCancellation(result.error())) {
        finish(std::move(result));
        return;
    }
    const auto category = ReactionRetryPolicy::classify(result.error());
    if (!category) {
        finish(std::move(result));
        return;
    }
    int &retries = *category == ReactionRetryPolicy::RetryCategory::ConnectionFailure
        ? m_connectionRetries
        : m_serverRetries;
    const auto waits = ReactionRetryPolicy::waits(*category);
    if (retries >= waits.size()) {
        finish(std::move(result));
        return;
    }
    const auto wait = waits.at(retries);
    ++retries;
    QPointer<ReactionSendRunner> self(this);
    m_cancelCurrent = m_sleep(wait, [self] {
        if (self && !self->m_finished)
            self->attempt();
    });
}

void ReactionSendRunner::cancel()
{
    if (m_finished)
        return;
    if (auto cancelCurrent = std::exchange(m_cancelCurrent, {}))
        cancelCurrent();
    // A send that honours the cancellation reports it itself; a wait does not, so report it
    // here. finish() ignores whichever comes second.
    finish(APIFailure(VelmoraError::networkError(UnderlyingError::cancellation())));
}

void ReactionSendRunner::finish(Result result)
{
    if (m_finished)
        return;
    m_finished = true;
    m_cancelCurrent = {};
    if (m_done)
        m_done(std::move(result));
    deleteLater();
}

} // namespace velmora
