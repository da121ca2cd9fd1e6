#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include "httpserver/httpserver.h"
#include "recordingcoordinator.h"
#include "service/messageservice.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QWindow>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

// Records every wait; fires it on the next turn of the event loop unless told to hold it.
struct RecordingSleeper
{
    QList<int> waits; // in ms
    bool hold = false;

    Sleeper sleeper()
    {
        return [this](std::chrono::milliseconds duration,
                      std::function<void()> wake) -> CancelFunction {
            waits.append(int(duration.count()));
            auto cancelled = std::make_shared<bool>(false);
            if (!hold) {
                QMetaObject::invokeMethod(
                    qApp,
                    [wake, cancelled] {
                        if (!*cancelled)
                            wake();
                    },
                    Qt::QueuedConnection);
            }
            return [cancelled] { *cancelled = true; };
        };
    }
};

// A provider whose expiry the test triggers, counting how tasks begin and end.
struct FakeBackgroundTasks : BackgroundTaskProvider
{
    TaskId begin(const QString &name, std::function<void()> handler) override
    {
        names.append(name);
        handlers.insert(next, std::move(handler));
        return next++;
    }
    void end(TaskId task) override
    {
        ended.append(task);
        QVERIFY(QThread::currentThread() == qApp->thread());
    }
    QStringList names;
    QHash<TaskId, std::function<void()>> handlers;
    QList<TaskId> ended;
    TaskId next = 1;
};

} // namespace

class tst_ReactionDelivery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_server.listen()); }

    void init()
    {
        m_server.clear();
        m_server.clearRoutes();
        m_sleeper = {};
        m_tasks = std::make_shared<FakeBackgroundTasks>();
        m_config
            = std::make_shared<SDKConfiguration>(DeviceInfo { u"1.0.0"_s, u"0.1.0"_s, u"box"_s });
        m_config->setup(u"key"_s, u"tenant"_s, m_server.baseUrl().toString());
        m_repository = std::make_shared<UserIdentityRepository>(
            SDKUserDefaults(std::make_shared<SettingsUserDefaults>(
                m_dir.filePath(QString::fromLatin1(QTest::currentTestFunction())
                               + QString::fromLatin1(QTest::currentDataTag()) + u".ini"_s))));
        m_coordinator = std::make_unique<test::RecordingCoordinator>(&m_log);
        m_service = std::make_unique<MessageService>(m_config, m_repository, m_coordinator.get());
        m_service->setSleeper(m_sleeper.sleeper());
        m_service->setBackgroundTaskProvider(m_tasks);
    }

    void retriesPerCategory_data()
    {
        // The loopback server when empty; "closed" is a port nothing listens on.
        QTest::addColumn<QString>("host");
        QTest::addColumn<QList<Response>>("responses");
        QTest::addColumn<int>("sends");
        QTest::addColumn<QList<int>>("waits");
        QTest::addColumn<bool>("delivered");

        const auto row = [](const char *name, const QList<Response> &responses, int sends,
                            const QList<int> &waits, bool delivered, const QString &host = {}) {
            QTest::newRow(name) << host << responses << sends << waits << delivered;
        };
        // A delivered reaction stores the identity its answer carries; a failed one stores nothing.
        const Response ok = Response::json("{}").header("X-VORPEX-VISITOR-ID", "from-reaction");
        row("success", { ok }, 1, {}, true);
        row("server error twice", { Response::withStatus(503), Response::withStatus(500) }, 2,
            { 1000 }, false);
        row("server error then success", { Response::withStatus(502), ok }, 2, { 1000 }, true);
        row("3xx is a server error", { Response::withStatus(304), Response::withStatus(304) }, 2,
            { 1000 }, false);
        row("client error", { Response::withStatus(400), ok }, 1, {}, false);
        // The server may have acted on a request whose connection closed before the answer, so
        // neither Qt nor the policy sends it again.
        row("dropped connection is sent once", { Response::drop(), Response::drop(), ok }, 1, {},
            false);
        row("reset connection is sent once", { Response::reset(), Response::reset(), ok }, 1, {},
            false);
        row("refused", {}, 0, { 1000, 2000 }, false, u"closed"_s);
        // These two need the routes unreachableInPrivateNetwork() sets up.
        row("host unreachable", {}, 0, { 1000, 2000 }, false, u"http://127.0.0.5:9"_s);
        row("network unreachable", {}, 0, { 1000, 2000 }, false, u"http://127.0.0.6:9"_s);
    }

    void retriesPerCategory()
    {
        QFETCH(QString, host);
        QFETCH(QList<Response>, responses);
        QFETCH(int, sends);
        QFETCH(QList<int>, waits);
        QFETCH(bool, delivered);
        if (host == u"closed") {
            HttpServer closed;
            QVERIFY(closed.listen());
            host = closed.baseUrl().toString();
        } else if (!host.isEmpty() && qEnvironmentVariable("VELMORA_PRIVATE_NETWORK") != u"1") {
            QSKIP("runs inside unreachableInPrivateNetwork()");
        }
        if (!host.isEmpty())
            m_config->setup(u"key"_s, u"tenant"_s, host);
        for (const Response &response : responses)
            m_server.enqueueResponse(u"/app_events/reaction"_s, response);
        QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
        send();
        QVERIFY(finished.wait());
        QCOMPARE(outcome(finished),
                 delivered ? MessageService::ReactionOutcome::Delivered
                           : MessageService::ReactionOutcome::GivenUp);
        QTest::qWait(50); // a re-send by Qt itself would arrive now
        QCOMPARE(m_server.requestCount(), sends);
        QCOMPARE(m_sleeper.waits, waits);
        QCOMPARE(m_tasks->names, QStringList { u"VelmoraReactionSend"_s });
        QCOMPARE(m_tasks->ended, QList<BackgroundTaskProvider::TaskId> { 1 });
        QCOMPARE(m_repository->visitorId(),
                 delivered ? std::optional(u"from-reaction"_s) : std::nullopt);

        if (sends == 0)
            return;
        const auto body = m_server.lastRequest().json().object();
        QCOMPARE(m_server.lastRequest().target, u"/app_events/reaction"_s);
        QCOMPARE(body[u"reaction"_s].toString(), u"click"_s);
        QCOMPARE(body[u"scenario_id"_s].toString(), u"sc-1"_s);
        QCOMPARE(body[u"meta"_s][u"screen_name"_s].toString(), u"home"_s);
    }

    void mixedCategoriesCountSeparately()
    {
        // Three attempts fail to connect, then the server answers 503 twice: two connection
        // retries and one server retry, four sends at most.
        int attempts = 0;
        ReactionSendRunner::Send send
            = [&](std::function<void(ReactionSendRunner::Result)> done) -> CancelFunction {
            ++attempts;
            const auto error = attempts <= 2 ? VelmoraError::networkError(
                                   UnderlyingError::network(QNetworkReply::HostNotFoundError, {}))
                                             : VelmoraError::serverError(503);
            QMetaObject::invokeMethod(
                qApp, [done, error] { done(APIFailure(error)); }, Qt::QueuedConnection);
            return {};
        };
        std::optional<ReactionSendRunner::Result> result;
        ReactionSendRunner::run(send, m_sleeper.sleeper(),
                                [&](ReactionSendRunner::Result r) { result = r; });
        QTRY_VERIFY(result.has_value());
        QCOMPARE(attempts, 4);
        QCOMPARE(m_sleeper.waits, (QList<int> { 1000, 2000, 1000 }));
        QVERIFY(!result->hasValue());
    }

    void expiryDuringWaitCancels()
    {
        m_sleeper.hold = true;
        m_server.setDefaultResponse(Response::withStatus(503));
        QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
        send();
        QTRY_COMPARE(m_sleeper.waits.size(), 1);
        QCOMPARE(m_server.requestCount(), 1);
        m_tasks->handlers.value(1)();
        QTRY_COMPARE(m_tasks->ended.size(), 1);
        QTest::qWait(100);
        QCOMPARE(m_server.requestCount(), 1); // no further send
        QCOMPARE(finished.size(), 1);
        QCOMPARE(outcome(finished), MessageService::ReactionOutcome::Cancelled);
        QCOMPARE(m_tasks->ended, QList<BackgroundTaskProvider::TaskId> { 1 });
    }

    void boxEndsOnce()
    {
        const auto box = ReactionBackgroundTask::begin(m_tasks);
        std::atomic<int> cancelled = 0;
        box->setOnExpiration([&] { ++cancelled; });
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([box] { box->end(); });
        box->end();
        for (auto &thread : threads)
            thread.join();
        QTRY_COMPARE(m_tasks->ended.size(), 1);
        QTest::qWait(20);
        QCOMPARE(m_tasks->ended.size(), 1);
        // Expiry after the end does nothing more.
        m_tasks->handlers.value(1)();
        QCOMPARE(cancelled.load(), 0);
        QCOMPARE(m_tasks->ended.size(), 1);
    }

    void handlerReachesService()
    {
        // The reaction handler the views get is installed by the first fetch.
        m_server.setDefaultResponse(Response::json(R"({"actions": []})"));
        m_service->noteScreenStart();
        bool fetched = false;
        m_service->fetchMessagesForQuick(u"home"_s, {}, [&] { fetched = true; });
        QTRY_VERIFY(fetched);
        const ReactionHandler handler = m_coordinator->reactionHandler();
        QVERIFY(handler);
        QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
        std::thread([handler] { handler(EventsReactionType::Open, u"home"_s, u"sc-2"_s); }).join();
        QVERIFY(finished.wait());
        QCOMPARE(m_server.lastRequest().json()[u"reaction"_s].toString(), u"open"_s);
    }

    void foregroundReactionRunsToItsEnd_data()
    {
        QTest::addColumn<Response>("response");
        QTest::addColumn<MessageService::ReactionOutcome>("outcome");
        QTest::addColumn<QString>("log");
        // Both outlast the background deadline, which must not start while in the foreground.
        QTest::newRow("slow answer")
            << Response::json("{}").delayed(300) << MessageService::ReactionOutcome::Delivered
            << u"^Send reaction success: type=click scenarioId=sc-1$"_s;
        QTest::newRow("time-out")
            << Response::hang() << MessageService::ReactionOutcome::GivenUp
            << u"^Send reaction error: type=click scenarioId=sc-1 "_s
               u"error=networkError: TimeoutError: The request timed out\\.$"_s;
    }

    void foregroundReactionRunsToItsEnd()
    {
        QFETCH(Response, response);
        QFETCH(QString, log);
        QCOMPARE(QGuiApplication::applicationState(), Qt::ApplicationInactive); // offscreen
        const auto provider = std::make_shared<QtBackgroundTaskProvider>(50ms);
        m_service->setBackgroundTaskProvider(provider);
        m_service->apiClient()->setTimeouts({ 400ms, 400ms, 400ms });
        m_server.setDefaultResponse(response);
        QLoggingCategory::setFilterRules(u"velmora.service.debug=true"_s);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression(log));
        QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
        send();
        QVERIFY(finished.wait(3000));
        QLoggingCategory::setFilterRules(QString());
        QTEST(outcome(finished), "outcome");
        QCOMPARE(provider->activeTaskCount(), 0);
    }

    void expiryStartsWhenTheApplicationLeaves()
    {
        auto *app = qobject_cast<QGuiApplication *>(qApp);
        QtBackgroundTaskProvider provider(50ms);
        QWindow window;
        window.show();
        int expired = 0;
        const auto first = provider.begin(u"VelmoraReactionSend"_s, [&] { ++expired; });
        provider.begin(u"VelmoraReactionSend"_s, [&] { ++expired; });
        QTest::qWait(150);
        QCOMPARE(expired, 0); // in the foreground, however long it takes
        provider.end(first);

        QElapsedTimer left;
        left.start();
        Q_EMIT app->applicationStateChanged(Qt::ApplicationHidden);
        QTRY_COMPARE(expired, 1); // only the task still running, and only after its deadline
        QVERIFY(left.elapsed() >= 45);
        QCOMPARE(provider.activeTaskCount(), 0);

        // Back in the foreground the clock stops; leaving again gives each task a fresh deadline.
        Q_EMIT app->applicationStateChanged(Qt::ApplicationActive);
        provider.begin(u"VelmoraReactionSend"_s, [&] { ++expired; });
        Q_EMIT app->applicationStateChanged(Qt::ApplicationSuspended);
        Q_EMIT app->applicationStateChanged(Qt::ApplicationInactive);
        QTest::qWait(150);
        QCOMPARE(expired, 1);
        Q_EMIT app->applicationStateChanged(Qt::ApplicationSuspended);
        QTRY_COMPARE(expired, 2);

        // Begun while in the background: the deadline runs from the start.
        provider.begin(u"VelmoraReactionSend"_s, [&] { ++expired; });
        QTRY_COMPARE(expired, 3);
        Q_EMIT app->applicationStateChanged(QGuiApplication::applicationState());
    }

    void unreachableIsAConnectionFailure_data()
    {
        QTest::addColumn<QNetworkReply::NetworkError>("code");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("retried");
        // How Qt reports what the socket layer calls network and host unreachable.
        QTest::newRow("network unreachable")
            << QNetworkReply::UnknownNetworkError << u"Network unreachable"_s << true;
        QTest::newRow("host unreachable")
            << QNetworkReply::UnknownNetworkError << u"Host unreachable"_s << true;
        QTest::newRow("other unknown")
            << QNetworkReply::UnknownNetworkError << u"Unknown error"_s << false;
        QTest::newRow("text alone")
            << QNetworkReply::ProtocolFailure << u"Network unreachable"_s << false;
    }

    void unreachableIsAConnectionFailure()
    {
        QFETCH(QNetworkReply::NetworkError, code);
        QFETCH(QString, text);
        QFETCH(bool, retried);
        const auto error = VelmoraError::networkError(UnderlyingError::network(code, text));
        QCOMPARE(ReactionRetryPolicy::classify(error),
                 retried ? std::optional(ReactionRetryPolicy::RetryCategory::ConnectionFailure)
                         : std::nullopt);
    }

    void unreachableInPrivateNetwork()
    {
        // The real socket errors need a network without routes; a private network namespace of
        // this process's own gives one without touching the machine's.
        const QString script
            = u"ip link set lo up && ip route add unreachable 127.0.0.5/32 table local "_s
              u"&& ip route add throw 127.0.0.6/32 table local && exec \"$0\" \"$@\""_s;
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"VELMORA_PRIVATE_NETWORK"_s, u"1"_s);
        child.setProcessEnvironment(environment);
        child.setProcessChannelMode(QProcess::MergedChannels);
        child.start(u"unshare"_s,
                    { u"-rn"_s, u"sh"_s, u"-c"_s, script, QCoreApplication::applicationFilePath(),
                      u"retriesPerCategory"_s });
        const bool finished = child.waitForFinished(60000);
        const QByteArray output = child.readAll();
        // Without the namespace or the routes the script stops before the tests start.
        if (!output.contains("Start testing of tst_ReactionDelivery"))
            QSKIP("no private network namespace here (unshare -rn and ip are needed)");
        QVERIFY2(finished && child.exitCode() == 0, output.constData());
        for (const char *row : { "host unreachable", "network unreachable" })
            QVERIFY2(output.contains(QByteArray("PASS   : tst_ReactionDelivery::retriesPerCategory("
                                                + QByteArray(row) + ')')),
                     output.constData());
    }

private:
    void send() { m_service->sendReaction(EventsReactionType::Click, u"home"_s, u"sc-1"_s); }
    static MessageService::ReactionOutcome outcome(const QSignalSpy &finished)
    {
        return finished.first().at(2).value<MessageService::ReactionOutcome>();
    }

    QTemporaryDir m_dir;
    HttpServer m_server;
    QStringList m_log;
    RecordingSleeper m_sleeper;
    std::shared_ptr<FakeBackgroundTasks> m_tasks;
    std::shared_ptr<SDKConfiguration> m_config;
    std::shared_ptr<UserIdentityRepository> m_repository;
    std::unique_ptr<test::RecordingCoordinator> m_coordinator;
    std::unique_ptr<MessageService> m_service;
};

QTEST_MAIN(tst_ReactionDelivery)
#include "tst_reactiondelivery.moc"
