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

QByteArray actionJson(const QByteArray &type, const QByteArray &id, int priority,
                      const QByteArray &date)
{
    return R"({"meta": {"scenario_id": ")" + id + R"(", "updated_at": ")" + date
        + R"(", "priority": )" + QByteArray::number(priority) + R"(, "action_type": ")" + type
        + R"("}})";
}

QByteArray responseJson(const QList<QByteArray> &actions)
{
    QByteArray body = R"({"status": "ok", "actions": [)";
    for (qsizetype i = 0; i < actions.size(); ++i)
        body += (i ? "," : "") + actions[i];
    return body + "]}";
}

// A fetch step the test completes by hand, whose cancellation can be ignored, like a request
// that had already received its answer when the newer screen came.
struct ManualFetch
{
    std::function<void(MessageService::FetchResult)> done;
    bool cancelled = false;
    bool honourCancel = true;

    MessageService::FetchStep step()
    {
        return [this](std::function<void(MessageService::FetchResult)> d) -> CancelFunction {
            done = std::move(d);
            return [this] {
                cancelled = true;
                if (honourCancel && done)
                    QMetaObject::invokeMethod(
                        qApp,
                        [d = done] {
                            d(APIFailure(VelmoraError::networkError(UnderlyingError::network(
                                QNetworkReply::OperationCanceledError, u"cancelled"_s))));
                        },
                        Qt::QueuedConnection);
            };
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
    void init();
    void cleanup();
    void refusesWithoutConfiguration_data();
    void refusesWithoutConfiguration();
    void warnsWithoutScreenStart();
    void detectedThenDisplayedInOrder();
    void answersWithoutActions_data();
    void answersWithoutActions();
    void newerScreenCancelsOlder();
    void staleResultsAreDropped_data();
    void staleResultsAreDropped();
    void requestsCarryIdentityAndParameters();
    void callsFromOtherThreadsMoveToGuiThread();
    void reactionHandlerInstalledOnce();

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

void tst_MessageService::init()
{
    QVERIFY(m_server.isListening() || m_server.listen());
    m_server.clear();
    m_server.clearRoutes();
    m_log.clear();
    m_warnings.clear();
    m_finished = 0;
    m_previousSink
        = detail::setWarningSink([this](const QString &line) { m_warnings.append(line); });
    m_config = std::make_shared<SDKConfiguration>(DeviceInfo { u"12.0.0"_s, u"0.1.0"_s, u"box"_s });
    m_repository = std::make_shared<UserIdentityRepository>(
        SDKUserDefaults(std::make_shared<SettingsUserDefaults>(
            m_dir.filePath(QString::fromLatin1(QTest::currentTestFunction()) + u".ini"_s))));
    m_coordinator = std::make_unique<RecordingCoordinator>(&m_log);
    m_delegate = std::make_unique<RecordingDelegate>(&m_log);
    m_service = std::make_unique<MessageService>(m_config, m_repository, m_coordinator.get());
    m_service->setDelegate(m_delegate.get());
}

void tst_MessageService::cleanup()
{
    m_service.reset();
    detail::setWarningSink(m_previousSink);
}

void tst_MessageService::refusesWithoutConfiguration_data()
{
    QTest::addColumn<QStringList>("setups"); // key|tenant|host triples
    QTest::addColumn<QString>("error");

    const QString notConfigured
        = u"precondition: SDK is not configured. Call "_s
          u"VelmoraInAppMessaging::shared().setup() before fetching messages."_s;
    QTest::newRow("never set up") << QStringList {} << notConfigured;
    QTest::newRow("invalid host only")
        << QStringList { u"k|t|ftp://x"_s }
        << u"precondition: apiHost is invalid: \"ftp://x\". Call VelmoraInAppMessaging::shared()"_s
           u".setup() with a valid http or https apiHost."_s;
    QTest::newRow("invalid host after a valid setup")
        << QStringList { u"k|t|SERVER"_s, u"k|t|nohost"_s }
        << u"precondition: apiHost is invalid: \"nohost\". Call VelmoraInAppMessaging::shared()"_s
           u".setup() with a valid http or https apiHost."_s;
}

void tst_MessageService::refusesWithoutConfiguration()
{
    QFETCH(QStringList, setups);
    QFETCH(QString, error);
    for (const QString &setup : setups) {
        const QStringList parts = setup.split(u'|');
        const QString host = parts[2] == u"SERVER" ? m_server.baseUrl().toString() : parts[2];
        m_config->setup(parts[0], parts[1], host);
    }
    screen(u"home"_s);
    QCOMPARE(m_log, (QStringList { u"finishLoading"_s, u"error:-:"_s + error }));
    QCOMPARE(m_finished, 1);
    QCOMPARE(m_service->fetchGeneration(), quint64(0));
    QTest::qWait(50);
    QCOMPARE(m_server.requestCount(), 0);
}

void tst_MessageService::warnsWithoutScreenStart()
{
    configure();
    m_server.setDefaultResponse(Response::json(responseJson({})));
    m_service->fetchMessagesForQuick(u"cart"_s, {});
    QCOMPARE(m_warnings,
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

void tst_MessageService::detectedThenDisplayedInOrder()
{
    configure();
    m_server.setDefaultResponse(Response::json(responseJson({
        actionJson("one", "one", 1, "2024-05-01T00:00:00Z"),
        actionJson("five-early", "five-early", 5, "2024-05-01T00:00:00Z"),
        actionJson("five-late", "five-late", 5, "2024-05-02T00:00:00Z"),
    })));
    screen(u"home"_s);
    QTRY_COMPARE(m_finished, 1);
    QCOMPARE(m_log,
             (QStringList { u"detected:five-late"_s, u"detected:five-early"_s, u"detected:one"_s,
                            u"displayQuick:home:five-late,five-early,one"_s, u"finishLoading"_s }));
    QCOMPARE(m_server.lastRequest().target, u"/vorpex/v1/app_events/view"_s);
}

void tst_MessageService::answersWithoutActions_data()
{
    QTest::addColumn<Response>("response");
    QTest::addColumn<QString>("error"); // what the delegate hears first; empty: nothing
    QTest::newRow("empty") << Response::json(responseJson({})) << QString();
    QTest::newRow("server error") << Response::withStatus(503) << u"serverError: 503"_s;
    QTest::newRow("client error") << Response::withStatus(401) << u"clientError: 401"_s;
    QTest::newRow("undecodable") << Response::json("<html/>") << u"networkError: decoding error"_s;
    QTest::newRow("dropped") << Response::drop() << u"networkError: RemoteHostClosedError"_s;
}

void tst_MessageService::answersWithoutActions()
{
    QFETCH(Response, response);
    QFETCH(QString, error);
    configure();
    m_server.setDefaultResponse(response);
    screen(u"home"_s);
    QTRY_COMPARE(m_finished, 1);
    QCOMPARE(m_log.size(), error.isEmpty() ? 1 : 2);
    QCOMPARE(m_log[0], u"finishLoading"_s);
    if (!error.isEmpty())
        QVERIFY2(m_log[1].startsWith(u"error:-:"_s + error), qPrintable(m_log[1]));
}

void tst_MessageService::newerScreenCancelsOlder()
{
    configure();
    m_server.setHandler(
        u"/vorpex/v1/app_events/view"_s, [](const loopback::RecordedRequest &request) {
            const bool first = request.json()[u"meta"_s][u"screen_name"_s].toString() == u"first";
            return first
                ? Response::json(responseJson({ actionJson("a", "a", 1, "2024-05-01T00:00:00Z") }))
                      .delayed(3000)
                : Response::json(responseJson({ actionJson("b", "b", 1, "2024-05-01T00:00:00Z") }));
        });
    screen(u"first"_s);
    QTRY_COMPARE(m_server.requestCount(), 1);
    screen(u"second"_s);
    QTRY_COMPARE(m_finished, 2);
    // The cancelled first fetch tells nobody; only the second screen is shown and finished.
    QCOMPARE(m_log,
             (QStringList { u"detected:b"_s, u"displayQuick:second:b"_s, u"finishLoading"_s }));
}

void tst_MessageService::staleResultsAreDropped_data()
{
    QTest::addColumn<bool>("failures"); // the older fetch fails, the newer one is cancelled
    QTest::addColumn<QStringList>("log");
    QTest::newRow("answers") << false
                             << QStringList { u"detected:new"_s, u"displayQuick:second:new"_s,
                                              u"finishLoading"_s };
    // A cancellation of the current fetch still ends its loading state, silently.
    QTest::newRow("failures") << true << QStringList { u"finishLoading"_s };
}

void tst_MessageService::staleResultsAreDropped()
{
    QFETCH(bool, failures);
    configure();
    ManualFetch older, newer;
    older.honourCancel = false;
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

void tst_MessageService::requestsCarryIdentityAndParameters()
{
    configure();
    m_server.enqueueResponse(u"/vorpex/v1/app_events/view"_s,
                             Response::json(responseJson({}))
                                 .header("X-Vorpex-Visitor-Id", "visitor-1")
                                 .header("x-vorpex-customer-id", "hashed-1"));
    m_server.setDefaultResponse(Response::json(responseJson({})));
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
    QCOMPARE(requests[1].header("x-vorpex-visitor-id"), QByteArray("visitor-1"));
    QCOMPARE(requests[1].header("x-vorpex-customer-id"), QByteArray("hashed-1"));
    QCOMPARE(requests[1].header("tenant-id"), QByteArray("tenant"));
    QCOMPARE(requests[1].header("x-api-key"), QByteArray("key"));
    QCOMPARE(requests[1].header("x-os-version"), QByteArray("12.0.0"));
    QCOMPARE(requests[1].header("content-type"), QByteArray("application/json"));
    const QJsonObject second = requests[1].json().object();
    QCOMPARE(second[u"meta"_s][u"customer_id"_s].toString(), u"customer-7"_s);
    QCOMPARE(second[u"meta"_s][u"strict_login"_s].toBool(), true);
    QCOMPARE(second[u"meta"_s][u"screen_name"_s].toString(), u"cart"_s);
    QCOMPARE(second[u"custom"_s][0][u"value"_s].toString(), u"gold"_s);
}

void tst_MessageService::callsFromOtherThreadsMoveToGuiThread()
{
    configure();
    m_server.setDefaultResponse(
        Response::json(responseJson({ actionJson("x", "x", 1, "2024-05-01T00:00:00Z") })));
    m_service->noteScreenStart();
    std::thread worker(
        [this] { m_service->fetchMessagesForQuick(u"bg"_s, {}, [this] { ++m_finished; }); });
    worker.join();
    QTRY_COMPARE(m_finished, 1);
    QVERIFY(!m_coordinator->calledOffGuiThread);
    QCOMPARE(m_log.last(), u"finishLoading"_s);
}

void tst_MessageService::reactionHandlerInstalledOnce()
{
    configure();
    int sinkCalls = 0;
    m_service->setReactionHandlerSink([&](const ReactionHandler &handler) {
        ++sinkCalls;
        QVERIFY(handler);
    });
    m_server.setDefaultResponse(Response::json(responseJson({})));
    screen(u"a"_s);
    screen(u"b"_s);
    QTRY_COMPARE(m_finished, 2);
    QCOMPARE(m_coordinator->reactionHandlerInstalls, 1);
    QCOMPARE(sinkCalls, 1);
}

QTEST_GUILESS_MAIN(tst_MessageService)
#include "tst_messageservice.moc"
