#include "common/logging.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include "httpserver/httpserver.h"
#include "recordingcoordinator.h"
#include "service/messageservice.h"
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::RecordingCoordinator;
using velmora::test::RecordingDelegate;

namespace {

// An action of type `id` with that scenario id.
QByteArray actionJson(const QByteArray &id, int priority = 1,
                      const QByteArray &date = "2024-05-01T00:00:00Z")
{
    return R"({"meta": {"scenario_id": ")" + id + R"(", "updated_at": ")" + date
        + R"(", "priority": )" + QByteArray::number(priority) + R"(, "action_type": ")" + id
        + R"("}})";
}

Response responseJson(const QList<QByteArray> &actions = {})
{
    return Response::json(R"({"status": "ok", "actions": [)" + actions.join(',') + "]}");
}

// A fetch step the test completes by hand; a cancellation is only noted, like one reaching a
// request that had already received its answer when the newer screen came.
struct ManualFetch
{
    std::function<void(MessageService::FetchResult)> done;
    bool cancelled = false;

    MessageService::FetchStep step()
    {
        return [this](std::function<void(MessageService::FetchResult)> d) -> CancelFunction {
            done = std::move(d);
            return [this] { cancelled = true; };
        };
    }
};

InAppMessageAction unsupportedAction(const QString &id)
{
    return { { id, u"2024-01-01T00:00:00Z"_s, 50, id, QDateTime::currentDateTimeUtc() },
             InAppMessage::unsupported(id) };
}

} // namespace

class tst_MessageService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_server.isListening() || m_server.listen());
        m_server.clear();
        m_server.clearRoutes();
        m_log.clear();
        m_warnings.clear();
        m_finished = 0;
        m_previousSink
            = detail::setWarningSink([this](const QString &line) { m_warnings.append(line); });
        m_config
            = std::make_shared<SDKConfiguration>(DeviceInfo { u"12.0.0"_s, u"0.1.0"_s, u"box"_s });
        m_repository = std::make_shared<UserIdentityRepository>(
            SDKUserDefaults(std::make_shared<SettingsUserDefaults>(
                m_dir.filePath(QString::fromLatin1(QTest::currentTestFunction()) + u".ini"_s))));
        m_coordinator = std::make_unique<RecordingCoordinator>(&m_log);
        m_delegate = std::make_unique<RecordingDelegate>(&m_log);
        m_service = std::make_unique<MessageService>(m_config, m_repository, m_coordinator.get());
        m_service->setDelegate(m_delegate.get());
    }

    void cleanup()
    {
        m_service.reset();
        detail::setWarningSink(m_previousSink);
    }

    void warnsWithoutScreenStart()
    {
        configure();
        m_server.setDefaultResponse(responseJson());
        m_service->fetchMessagesForQuick(u"cart"_s, {});
        QCOMPARE(
            m_warnings,
            QStringList {
                u"[VelmoraInAppMessaging][WARNING] fetchCore(screenName: \"cart\") was called "_s
                u"without a preceding startNewScreen(). Call startNewScreen() synchronously "_s
                u"before invoking fetchCore, or the previous screen's embedded banner cache "_s
                u"may flash."_s });
        // The count never goes below zero: one start now covers exactly one fetch.
        m_service->noteScreenStart();
        m_service->fetchMessagesForQuick(u"cart"_s, {});
        QCOMPARE(m_warnings.size(), 1);
        QCOMPARE(m_service->pendingScreenStartCount(), 0);
    }

    void answers_data()
    {
        QTest::addColumn<QStringList>("setups"); // key|tenant|host, SERVER is the loopback server
        QTest::addColumn<Response>("response");
        QTest::addColumn<QStringList>("log"); // an entry ending in '*' is a prefix

        const QString done = u"finishLoading"_s;
        const auto row = [](const char *name, const Response &response, const QStringList &log,
                            const QStringList &setups = { u"key|tenant|SERVER/vorpex/v1"_s }) {
            QTest::newRow(name) << setups << response << log;
        };
        // The delegate hears of every message first, in display order, then they are shown.
        row("actions",
            responseJson({ actionJson("one"), actionJson("five-early", 5),
                           actionJson("five-late", 5, "2024-05-02T00:00:00Z") }),
            { u"detected:five-late"_s, u"detected:five-early"_s, u"detected:one"_s,
              u"displayQuick:home:five-late,five-early,one"_s, done });
        row("empty", responseJson(), { done });
        row("server error", Response::withStatus(503), { done, u"error:-:serverError: 503*"_s });
        row("client error", Response::withStatus(401), { done, u"error:-:clientError: 401*"_s });
        row("undecodable", Response::json("<html/>"),
            { done, u"error:-:networkError: decoding error*"_s });
        row("dropped", Response::drop(),
            { done, u"error:-:networkError: RemoteHostClosedError*"_s });
        // Refused without a request.
        row("never set up", responseJson(),
            { done,
              u"error:-:precondition: SDK is not configured. Call "_s
              u"VelmoraInAppMessaging::shared().setup() before fetching messages."_s },
            {});
        row("invalid host only", responseJson(),
            { done,
              u"error:-:precondition: apiHost is invalid: \"ftp://x\". Call "_s
              u"VelmoraInAppMessaging::shared().setup() with a valid http or https apiHost."_s },
            { u"k|t|ftp://x"_s });
        row("invalid host after a valid setup", responseJson(),
            { done,
              u"error:-:precondition: apiHost is invalid: \"nohost\". Call "_s
              u"VelmoraInAppMessaging::shared().setup() with a valid http or https apiHost."_s },
            { u"k|t|SERVER"_s, u"k|t|nohost"_s });
    }

    void answers()
    {
        QFETCH(QStringList, setups);
        QFETCH(Response, response);
        QFETCH(QStringList, log);
        for (const QString &setup : setups) {
            const QStringList parts = setup.split(u'|');
            m_config->setup(parts[0], parts[1],
                            QString(parts[2]).replace(u"SERVER"_s, m_server.baseUrl().toString()));
        }
        m_server.setDefaultResponse(response);
        screen(u"home"_s);
        // A refusal ends the fetch at once, before it counts as one.
        const bool refused = log.last().startsWith(u"error:-:precondition"_s);
        if (refused) {
            QCOMPARE(m_finished, 1);
            QCOMPARE(m_service->fetchGeneration(), quint64(0));
        }
        QTRY_COMPARE(m_finished, 1);
        QCOMPARE(m_log.size(), log.size());
        for (qsizetype i = 0; i < log.size(); ++i) {
            QVERIFY2(log[i].endsWith(u'*') ? m_log[i].startsWith(log[i].chopped(1))
                                           : m_log[i] == log[i],
                     qPrintable(m_log[i]));
        }
        if (refused)
            QTest::qWait(50); // a request sent anyway would arrive now
        QCOMPARE(m_server.requestCount() == 0, refused);
        if (!refused)
            QCOMPARE(m_server.lastRequest().target, u"/vorpex/v1/app_events/view"_s);
    }

    void newerScreenCancelsOlder()
    {
        configure();
        m_server.setHandler(
            u"/vorpex/v1/app_events/view"_s, [](const loopback::RecordedRequest &request) {
                const bool first
                    = request.json()[u"meta"_s][u"screen_name"_s].toString() == u"first";
                return first ? responseJson({ actionJson("a") }).delayed(3000)
                             : responseJson({ actionJson("b") });
            });
        screen(u"first"_s);
        QTRY_COMPARE(m_server.requestCount(), 1);
        screen(u"second"_s);
        QTRY_COMPARE(m_finished, 2);
        // The cancelled first fetch tells nobody; only the second screen is shown and finished.
        QCOMPARE(m_log,
                 (QStringList { u"detected:b"_s, u"displayQuick:second:b"_s, u"finishLoading"_s }));
    }

    void staleResultsAreDropped_data()
    {
        QTest::addColumn<bool>("failures"); // the older fetch fails, the newer one is cancelled
        QTest::addColumn<QStringList>("log");
        QTest::newRow("answers") << false
                                 << QStringList { u"detected:new"_s, u"displayQuick:second:new"_s,
                                                  u"finishLoading"_s };
        // A cancellation of the current fetch still ends its loading state, silently.
        QTest::newRow("failures") << true << QStringList { u"finishLoading"_s };
    }

    void staleResultsAreDropped()
    {
        QFETCH(bool, failures);
        configure();
        ManualFetch older, newer;
        const auto display = [this](const QList<InAppMessageAction> &actions, const QString &name) {
            m_coordinator->displayMessageForQuick(actions, name);
        };
        m_service->noteScreenStart();
        m_service->fetchCore(u"first"_s, older.step(), display);
        m_service->noteScreenStart();
        m_service->fetchCore(u"second"_s, newer.step(), display);
        QVERIFY(older.cancelled);

        if (failures)
            older.done(APIFailure(VelmoraError::serverError(500)));
        else
            older.done(QList<InAppMessageAction> { unsupportedAction(u"old"_s) });
        QVERIFY(m_log.isEmpty());
        if (failures)
            newer.done(APIFailure(VelmoraError::networkError(UnderlyingError::wrapping(
                VelmoraError::networkError(UnderlyingError::cancellation())))));
        else
            newer.done(QList<InAppMessageAction> { unsupportedAction(u"new"_s) });
        QTEST(m_log, "log");
    }

    void requestsCarryIdentityAndParameters()
    {
        configure();
        int sinkCalls = 0;
        m_service->setReactionHandlerSink([&](const ReactionHandler &handler) {
            ++sinkCalls;
            QVERIFY(handler);
        });
        m_server.enqueueResponse(u"/vorpex/v1/app_events/view"_s,
                                 responseJson()
                                     .header("X-Vorpex-Visitor-Id", "visitor-1")
                                     .header("x-vorpex-customer-id", "hashed-1"));
        m_server.setDefaultResponse(responseJson());
        screen(u"home"_s);
        QTRY_COMPARE(m_finished, 1);
        m_config->customerId = u"customer-7"_s;
        m_config->isStrictLogin = true;
        screen(u"cart"_s, { { u"plan"_s, { u"gold"_s } } });
        QTRY_COMPARE(m_finished, 2);
        const auto requests = m_server.requests();
        QCOMPARE(requests.size(), 2);
        QVERIFY(!requests[0].hasHeader("x-vorpex-visitor-id"));
        QVERIFY(!requests[0].hasHeader("x-vorpex-customer-id"));
        const QJsonObject first = requests[0].json().object();
        QVERIFY(first[u"meta"_s][u"customer_id"_s].isNull());
        QCOMPARE(first[u"custom"_s].toArray().size(), 0);

        // The ids the server issued come back, whatever case it wrote their names in.
        for (const auto &[name, value] :
             loopback::HeaderList { { "x-vorpex-visitor-id", "visitor-1" },
                                    { "x-vorpex-customer-id", "hashed-1" },
                                    { "tenant-id", "tenant" },
                                    { "x-api-key", "key" },
                                    { "x-os-version", "12.0.0" },
                                    { "content-type", "application/json" } })
            QCOMPARE(requests[1].header(name), value);
        const QJsonObject second = requests[1].json().object();
        QCOMPARE(second[u"meta"_s][u"customer_id"_s].toString(), u"customer-7"_s);
        QCOMPARE(second[u"meta"_s][u"strict_login"_s].toBool(), true);
        QCOMPARE(second[u"meta"_s][u"screen_name"_s].toString(), u"cart"_s);
        QCOMPARE(second[u"custom"_s][0][u"value"_s].toString(), u"gold"_s);
        // The views' reaction handler is installed by the first fetch only.
        QCOMPARE(m_coordinator->reactionHandlerInstalls, 1);
        QCOMPARE(sinkCalls, 1);
    }

    void callsFromOtherThreadsMoveToGuiThread()
    {
        configure();
        m_server.setDefaultResponse(responseJson({ actionJson("x") }));
        m_service->noteScreenStart();
        std::thread worker(
            [this] { m_service->fetchMessagesForQuick(u"bg"_s, {}, [this] { ++m_finished; }); });
        worker.join();
        QTRY_COMPARE(m_finished, 1);
        QVERIFY(!m_coordinator->calledOffGuiThread);
        QCOMPARE(m_log.last(), u"finishLoading"_s);
    }

private:
    void configure()
    {
        m_config->setup(u"key"_s, u"tenant"_s, m_server.baseUrl().toString() + u"/vorpex/v1"_s);
    }
    void screen(const QString &name, QList<ViewEventCustomParam> params = {})
    {
        m_service->noteScreenStart();
        m_service->fetchMessagesForQuick(name, params, [this] { ++m_finished; });
    }

    QTemporaryDir m_dir;
    HttpServer m_server;
    QStringList m_log;
    QStringList m_warnings;
    detail::WarningSink m_previousSink;
    std::shared_ptr<SDKConfiguration> m_config;
    std::shared_ptr<UserIdentityRepository> m_repository;
    std::unique_ptr<RecordingCoordinator> m_coordinator;
    std::unique_ptr<RecordingDelegate> m_delegate;
    std::unique_ptr<MessageService> m_service;
    int m_finished = 0;
};

QTEST_GUILESS_MAIN(tst_MessageService)
#include "tst_messageservice.moc"
