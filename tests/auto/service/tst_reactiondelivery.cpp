#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include "httpserver/httpserver.h"
#include "recordingcoordinator.h"
#include "service/messageservice.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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
    QList<std::chrono::milliseconds> waits;
    bool hold = false;

    Sleeper sleeper()
    {
        return [this](std::chrono::milliseconds duration,
                      std::function<void()> wake) -> CancelFunction {
            waits.append(duration);
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
    void initTestCase();
    void init();
    void retriesPerCategory_data();
    void retriesPerCategory();
    void connectionFailureRetriesTwice();
    void mixedCategoriesCountSeparately();
    void successSavesIdentity();
    void expiryDuringWaitCancels();
    void boxEndsOnce();
    void handlerReachesService();
    void desktopProviderExpires();

private:
    void send() { m_service->sendReaction(EventsReactionType::Click, u"home"_s, u"sc-1"_s); }

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

void tst_ReactionDelivery::initTestCase()
{
    QVERIFY(m_server.listen());
}

void tst_ReactionDelivery::init()
{
    m_server.clear();
    m_server.clearRoutes();
    m_sleeper = {};
    m_tasks = std::make_shared<FakeBackgroundTasks>();
    m_config = std::make_shared<SDKConfiguration>(DeviceInfo { u"1.0.0"_s, u"0.1.0"_s, u"box"_s });
    m_config->setup(u"key"_s, u"tenant"_s, m_server.baseUrl().toString());
    m_repository = std::make_shared<UserIdentityRepository>(
        SDKUserDefaults(std::make_shared<SettingsUserDefaults>(
            m_dir.filePath(QString::fromLatin1(QTest::currentTestFunction()) + u".ini"_s))));
    m_coordinator = std::make_unique<test::RecordingCoordinator>(&m_log);
    m_service = std::make_unique<MessageService>(m_config, m_repository, m_coordinator.get());
    m_service->setSleeper(m_sleeper.sleeper());
    m_service->setBackgroundTaskProvider(m_tasks);
}

void tst_ReactionDelivery::retriesPerCategory_data()
{
    QTest::addColumn<QList<Response>>("responses");
    QTest::addColumn<int>("sends");
    QTest::addColumn<QList<int>>("waits");
    QTest::addColumn<bool>("delivered");

    QTest::newRow("success") << QList<Response> { Response::json("{}") } << 1 << QList<int> {}
                             << true;
    QTest::newRow("server error twice")
        << QList<Response> { Response::withStatus(503), Response::withStatus(500) } << 2
        << QList<int> { 1000 } << false;
    QTest::newRow("server error then success")
        << QList<Response> { Response::withStatus(502), Response::json("{}") } << 2
        << QList<int> { 1000 } << true;
    QTest::newRow("3xx is a server error")
        << QList<Response> { Response::withStatus(304), Response::withStatus(304) } << 2
        << QList<int> { 1000 } << false;
    QTest::newRow("client error") << QList<Response> { Response::withStatus(400) } << 1
                                  << QList<int> {} << false;
    // Qt itself resends once on a connection closed without an answer, so the server may see
    // two requests; the policy adds no retry of its own (no wait).
    QTest::newRow("dropped connection is not retried")
        << QList<Response> { Response::drop(), Response::drop() } << 0 << QList<int> {} << false;
}

void tst_ReactionDelivery::retriesPerCategory()
{
    QFETCH(QList<Response>, responses);
    QFETCH(int, sends);
    QFETCH(QList<int>, waits);
    QFETCH(bool, delivered);
    for (const Response &response : responses)
        m_server.enqueueResponse(u"/app_events/reaction"_s, response);
    QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
    send();
    QVERIFY(finished.wait());
    QCOMPARE(finished.first().at(2).value<MessageService::ReactionOutcome>(),
             delivered ? MessageService::ReactionOutcome::Delivered
                       : MessageService::ReactionOutcome::GivenUp);
    if (sends > 0)
        QCOMPARE(m_server.requestCount(), sends);
    QList<int> actualWaits;
    for (auto wait : m_sleeper.waits)
        actualWaits.append(int(wait.count()));
    QCOMPARE(actualWaits, waits);
    QCOMPARE(m_tasks->names, QStringList { u"VelmoraReactionSend"_s });
    QCOMPARE(m_tasks->ended, QList<BackgroundTaskProvider::TaskId> { 1 });

    const auto body = m_server.lastRequest().json().object();
    QCOMPARE(m_server.lastRequest().target, u"/app_events/reaction"_s);
    QCOMPARE(body[u"reaction"_s].toString(), u"click"_s);
    QCOMPARE(body[u"scenario_id"_s].toString(), u"sc-1"_s);
    QCOMPARE(body[u"meta"_s][u"screen_name"_s].toString(), u"home"_s);
}

void tst_ReactionDelivery::connectionFailureRetriesTwice()
{
    HttpServer closed;
    QVERIFY(closed.listen());
    m_config->setup(u"key"_s, u"tenant"_s, closed.baseUrl().toString());
    closed.close();
    QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
    send();
    QVERIFY(finished.wait());
    QCOMPARE(finished.first().at(2).value<MessageService::ReactionOutcome>(),
             MessageService::ReactionOutcome::GivenUp);
    QCOMPARE(m_sleeper.waits, (QList<std::chrono::milliseconds> { 1000ms, 2000ms }));
}

void tst_ReactionDelivery::mixedCategoriesCountSeparately()
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
    QCOMPARE(m_sleeper.waits, (QList<std::chrono::milliseconds> { 1000ms, 2000ms, 1000ms }));
    QVERIFY(!result->hasValue());
}

void tst_ReactionDelivery::successSavesIdentity()
{
    m_server.setDefaultResponse(
        Response::json("{}").header("X-VORPEX-VISITOR-ID", "from-reaction"));
    QSignalSpy finished(m_service.get(), &MessageService::reactionFinished);
    send();
    QVERIFY(finished.wait());
    QCOMPARE(m_repository->visitorId(), std::optional(u"from-reaction"_s));
}

void tst_ReactionDelivery::expiryDuringWaitCancels()
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
    QCOMPARE(finished.first().at(2).value<MessageService::ReactionOutcome>(),
             MessageService::ReactionOutcome::Cancelled);
    QCOMPARE(m_tasks->ended, QList<BackgroundTaskProvider::TaskId> { 1 });
}

void tst_ReactionDelivery::boxEndsOnce()
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

void tst_ReactionDelivery::handlerReachesService()
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

void tst_ReactionDelivery::desktopProviderExpires()
{
    QtBackgroundTaskProvider provider(50ms);
    QWindow window;
    window.show();
    int expired = 0;
    const auto first = provider.begin(u"VelmoraReactionSend"_s, [&] { ++expired; });
    provider.begin(u"VelmoraReactionSend"_s, [&] { ++expired; });
    QCOMPARE(provider.activeTaskCount(), 2);
    provider.end(first);
    QTRY_COMPARE(expired, 1); // only the task still running hits its deadline
    QCOMPARE(provider.activeTaskCount(), 0);
}

QTEST_MAIN(tst_ReactionDelivery)
#include "tst_reactiondelivery.moc"
