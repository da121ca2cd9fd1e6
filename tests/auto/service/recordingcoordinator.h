#pragma once

#include "service/displaycoordinatortype.h"
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QCoreApplication>
#include <QStringList>
#include <QThread>

namespace velmora::test {

// Records what the service asks of the display side, in one log shared with the delegate, so
// tests can check the order across both.
class RecordingCoordinator : public DisplayCoordinatorType
{
public:
    explicit RecordingCoordinator(QStringList *log)
        : m_log(log)
    { }

    VelmoraInAppMessagingDelegate *delegate() const override { return m_delegate; }
    void setDelegate(VelmoraInAppMessagingDelegate *delegate) override { m_delegate = delegate; }
    ReactionHandler reactionHandler() const override { return m_reactionHandler; }
    void setReactionHandler(ReactionHandler handler) override
    {
        ++reactionHandlerInstalls;
        m_reactionHandler = std::move(handler);
    }
    void startNewScreen(const QString &screenName, QObject *) override
    {
        record(QStringLiteral("start:") + screenName);
    }
    void finishLoading() override { record(QStringLiteral("finishLoading")); }
    void displayMessage(const QList<InAppMessageAction> &actions, const QString &screenName,
                        QObject *, const VerticalAnchor &, const VerticalAnchor &) override
    {
        record(QStringLiteral("display:") + screenName + u':' + ids(actions));
    }
    void displayMessageForQuick(const QList<InAppMessageAction> &actions,
                                const QString &screenName) override
    {
        record(QStringLiteral("displayQuick:") + screenName + u':' + ids(actions));
    }

    static QString ids(const QList<InAppMessageAction> &actions)
    {
        QStringList list;
        for (const auto &action : actions)
            list.append(action.meta.scenarioId);
        return list.join(u',');
    }

    int reactionHandlerInstalls = 0;
    bool calledOffGuiThread = false;

private:
    void record(const QString &entry)
    {
        if (QThread::currentThread() != QCoreApplication::instance()->thread())
            calledOffGuiThread = true;
        m_log->append(entry);
    }

    QStringList *m_log;
    VelmoraInAppMessagingDelegate *m_delegate = nullptr;
    ReactionHandler m_reactionHandler;
};

class RecordingDelegate : public VelmoraInAppMessagingDelegate
{
public:
    explicit RecordingDelegate(QStringList *log)
        : m_log(log)
    { }
    void messageDetectedForDisplay(const InAppMessage &message) override
    {
        m_log->append(QStringLiteral("detected:") + message.rawType());
    }
    void messageError(const std::optional<InAppMessage> &message,
                      const VelmoraError &error) override
    {
        m_log->append(QStringLiteral("error:")
                      + (message ? message->rawType() : QStringLiteral("-")) + u':'
                      + error.description());
    }

private:
    QStringList *m_log;
};

} // namespace velmora::test
