// The command-line contract of velmora-inspect that integrators' scripts rely on: the last
// line of standard output is one JSON object, and exit statuses mean what they say.
#include "httpserver/httpserver.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;

namespace {

struct Run
{
    int exitCode = -1;
    QStringList out;
    QString err;
    QJsonObject last() const
    {
        return QJsonDocument::fromJson(out.value(out.size() - 1).toUtf8()).object();
    }
};

// The tool runs in its own process, so the server must keep serving while we wait for it.
Run inspect(const QStringList &args)
{
    QProcess process;
    process.start(QStringLiteral(VELMORA_INSPECT_PATH), args);
    Run run;
    if (!process.waitForStarted())
        return run;
    while (process.state() != QProcess::NotRunning)
        QTest::qWait(10);
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

QString example(const QString &name)
{
    return QStringLiteral(VELMORA_EXAMPLES_DIR) + u"/responses/"_s + name;
}

// "fetch" or "react" against the host with key "k" and tenant "t", then the given words.
QStringList command(const QString &verb, const QString &host, const QString &words)
{
    return QStringList {
        verb, u"--api-host"_s, host, u"--api-key"_s, u"k"_s, u"--tenant"_s, u"t"_s
    }
    + words.split(u' ', Qt::SkipEmptyParts);
}

} // namespace

class tst_CommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void responseOrderAndLint();
    void responseExitStatus_data();
    void responseExitStatus();
    void fetchShowsWhatWouldDisplay();
    void fetchReportsErrors_data();
    void fetchReportsErrors();
    void fetchKeepsVisitorInState();
    void reactExitStatus_data();
    void reactExitStatus();
};

void tst_CommandLine::responseOrderAndLint()
{
    const Run run = inspect({ u"response"_s, example(u"home.json"_s) });
    QCOMPARE(run.exitCode, 0);
    // The library's own warning for the out-of-bounds banner comes before the JSON line.
    QVERIFY(run.out.first().startsWith(
        u"[VelmoraInAppMessaging][WARNING] Skipping malformed action at index 4: "_s));
    const QJsonObject result = run.last();
    QCOMPARE(result[u"status"_s].toString(), u"ok"_s);
    const QJsonArray actions = result[u"actions"_s].toArray();
    QStringList order;
    for (const auto &a : actions)
        order.append(a[u"scenario_id"_s].toString());
    QCOMPARE(order,
             (QStringList { u"spring-sale-modal"_s, u"loyalty-card"_s, u"welcome-banner"_s,
                            u"carousel-test"_s }));
    QCOMPARE(actions[0][u"updated_date"_s].toString(), u"2026-04-01T00:30:00.250Z"_s);
    QCOMPARE(actions[2][u"priority"_s].toInt(), 50);
    QCOMPARE(actions[2][u"size"_s][u"width"_s][u"unit"_s].toString(), u"percentage"_s);
    QVERIFY(actions[2][u"size"_s][u"height"_s].isNull());
    QCOMPARE(actions[2][u"margin"_s][u"bottom"_s].toDouble(), 16.0);
    QCOMPARE(actions[3][u"type"_s].toString(), u"unsupported"_s);
    QCOMPARE(actions[3][u"raw_type"_s].toString(), u"carousel"_s);
    QVERIFY(!actions[3].toObject().contains(u"creative"_s));
    QVERIFY(actions[2][u"lint"_s][0].toString().contains(u"#1D2635"_s));
    QVERIFY(actions[1][u"lint"_s][0].toString().contains(u"myapp://loyalty"_s));
    QCOMPARE(actions[0][u"lint"_s].toArray().size(), 0);
}

void tst_CommandLine::responseExitStatus_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("empty") << example(u"empty.json"_s) << 0;
    QTest::newRow("broken envelope") << example(u"broken-envelope.json"_s) << 1;
    QTest::newRow("missing file") << u"/nonexistent/response.json"_s << 2;
}

void tst_CommandLine::responseExitStatus()
{
    QFETCH(QString, file);
    QFETCH(int, exitCode);
    const Run run = inspect({ u"response"_s, file });
    QCOMPARE(run.exitCode, exitCode);
    if (exitCode == 0) {
        QCOMPARE(run.last()[u"actions"_s].toArray().size(), 0);
    } else {
        QCOMPARE(run.err.trimmed().count(u'\n'), 0); // one line saying why
        QVERIFY(!run.err.trimmed().isEmpty());
        QVERIFY(run.out.isEmpty()); // and no JSON line
    }
}

void tst_CommandLine::fetchShowsWhatWouldDisplay()
{
    HttpServer server;
    QVERIFY(server.listen());
    QFile file(example(u"positions.json"_s));
    QVERIFY(file.open(QIODevice::ReadOnly));
    server.setResponse(u"/app_events/view"_s, Response::json(file.readAll()));
    const Run run = inspect(command(u"fetch"_s, server.baseUrl().toString(),
                                    u"--screen cart --customer-id c9 --strict-login "
                                    "--param plan=string:gold --param ids=integer[]:1,2 "
                                    "--param plan=string:silver --param flags=bool[]:"_s));
    QCOMPARE(run.exitCode, 0);
    const QJsonObject result = run.last();
    QCOMPARE(result[u"errors"_s].toArray().size(), 0);
    const QJsonArray displayed = result[u"displayed"_s].toArray();
    // One banner per position in display order; the empty one at "top" claims nothing, and the
    // upper-case location falls back to "top".
    QStringList ids;
    for (const auto &action : displayed)
        ids.append(action[u"scenario_id"_s].toString());
    QCOMPARE(ids, (QStringList { u"br"_s, u"upper"_s, u"c"_s, u"tl"_s }));
    QVERIFY(run.out.contains(u"banner: upper at top"_s));

    const QJsonObject body = server.lastRequest().json().object();
    QCOMPARE(body[u"meta"_s][u"screen_name"_s].toString(), u"cart"_s);
    QCOMPARE(body[u"meta"_s][u"customer_id"_s].toString(), u"c9"_s);
    QCOMPARE(body[u"meta"_s][u"strict_login"_s].toBool(), true);
    QCOMPARE(QJsonDocument(body[u"custom"_s].toArray()).toJson(QJsonDocument::Compact),
             QByteArray(R"([{"key":"plan","value":"silver"},{"key":"ids","value":[1,2]},)"
                        R"({"key":"flags","value":[]}])"));
    QCOMPARE(server.lastRequest().header("x-api-key"), QByteArray("k"));
}

void tst_CommandLine::fetchReportsErrors_data()
{
    QTest::addColumn<QString>("host"); // empty: the server's
    QTest::addColumn<QString>("words");
    QTest::addColumn<Response>("response");
    QTest::addColumn<QString>("error"); // empty: exits with 64 for bad usage

    QTest::newRow("server error") << QString() << QString() << Response::withStatus(503)
                                  << u"serverError: 503"_s;
    QTest::newRow("invalid host")
        << u"ftp://x"_s << QString() << Response::json("{}")
        << u"precondition: apiHost is invalid: \"ftp://x\". Call VelmoraInAppMessaging::shared().setup() "_s
           u"with a valid http or https apiHost."_s;
    QTest::newRow("unsupported type")
        << QString() << QString()
        << Response::json(
               R"({"actions": [{"meta": {"scenario_id": "s", "updated_at": "2024-05-01T00:00:00Z", "action_type": "x"}}]})")
        << u"precondition: Received an unsupported message type: 'x'. Please update the SDK."_s;
    QTest::newRow("bad param") << QString() << u"--param a=float:1"_s << Response::json("{}")
                               << QString();
}

void tst_CommandLine::fetchReportsErrors()
{
    QFETCH(QString, host);
    QFETCH(QString, words);
    QFETCH(Response, response);
    QFETCH(QString, error);
    HttpServer server;
    QVERIFY(server.listen());
    server.setDefaultResponse(response);
    const Run run = inspect(command(u"fetch"_s, host.isEmpty() ? server.baseUrl().toString() : host,
                                    u"--screen s "_s + words));
    QCOMPARE(run.exitCode, error.isEmpty() ? 64 : 1);
    if (!error.isEmpty())
        QCOMPARE(run.last()[u"errors"_s].toArray(), QJsonArray { error });
}

void tst_CommandLine::fetchKeepsVisitorInState()
{
    HttpServer server;
    QVERIFY(server.listen());
    server.enqueueResponse(
        u"/app_events/view"_s,
        Response::json(R"({"actions": []})").header("x-vorpex-visitor-id", "v-77"));
    server.setDefaultResponse(Response::json(R"({"actions": []})"));
    QTemporaryDir state;
    const QStringList args
        = command(u"fetch"_s, server.baseUrl().toString(), u"--screen s --state "_s + state.path());
    QCOMPARE(inspect(args).exitCode, 0);
    QCOMPARE(inspect(args).exitCode, 0);
    QCOMPARE(server.requestCount(), 2);
    QVERIFY(!server.requests()[0].hasHeader("x-vorpex-visitor-id"));
    QCOMPARE(server.requests()[1].header("x-vorpex-visitor-id"), QByteArray("v-77"));
}

void tst_CommandLine::reactExitStatus_data()
{
    QTest::addColumn<Response>("response");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("delivered") << Response::json("{}") << 0;
    QTest::newRow("client error gives up at once") << Response::withStatus(404) << 1;
}

void tst_CommandLine::reactExitStatus()
{
    QFETCH(Response, response);
    QFETCH(int, exitCode);
    HttpServer server;
    QVERIFY(server.listen());
    server.enqueueResponse(u"/app_events/reaction"_s, response);
    const Run run = inspect(command(u"react"_s, server.baseUrl().toString(),
                                    u"--screen home --scenario sc --type close"_s));
    QCOMPARE(run.exitCode, exitCode);
    QCOMPARE(server.requestCount(), 1);
    QCOMPARE(server.lastRequest().json()[u"reaction"_s].toString(), u"close"_s);
}

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
