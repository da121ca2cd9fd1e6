#include "network/apirequest.h"
#include <VelmoraInAppMessaging/customparameterbuilder.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace velmora;

namespace {
QByteArray bytes(const EncodedBody &body)
{
    return body ? body.value() : "error: " + body.error().toUtf8();
}
} // namespace

class tst_EventRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bodies_data();
    void bodies();
    void customValueDecoding_data();
    void customValueDecoding();
    void builderMerges_data();
    void builderMerges();
};

void tst_EventRequests::bodies_data()
{
    QTest::addColumn<QByteArray>("body");
    // The exact compact bytes on the wire; "error": refused, naming the parameter.
    QTest::addColumn<QByteArray>("expected");

    const auto view = [](const std::optional<QString> &customer,
                         const QList<CustomParameterEntry> &custom) {
        return bytes(
            EventsViewRequest { { customer, true, u"home"_s, 1714550400123 }, custom }.encode());
    };
    const auto viewJson = [](const QByteArray &custom, const QByteArray &customer) -> QByteArray {
        return R"({"custom":)" + custom + R"(,"meta":{"customer_id":)" + customer
            + R"(,"screen_name":"home","strict_login":true,"timestamp":1714550400123}})";
    };
    QTest::newRow("no customer, no params") << view({}, {}) << viewJson("[]", "null");
    QTest::newRow("empty customer is sent as empty")
        << view(QString(), {}) << viewJson("[]", R"("")");
    QTest::newRow("params in order")
        << view(u"c-1"_s,
                { putString(u"plan"_s, u"gold"_s), putInteger(u"age"_s, 42),
                  putBooleanArray(u"flags"_s, {}), putDoubleArray(u"scores"_s, { 1.5, -2 }) })
        << viewJson(R"([{"key":"plan","value":"gold"},{"key":"age","value":42},)"
                    R"({"key":"flags","value":[]},{"key":"scores","value":[1.5,-2]}])",
                    R"("c-1")");

    for (auto type :
         { EventsReactionType::Open, EventsReactionType::Click, EventsReactionType::Close }) {
        const QByteArray wire = rawValue(type).toUtf8();
        // customer_id is null, not left out.
        QTest::newRow(wire.constData())
            << bytes(EventsReactionRequest {
                   { std::nullopt, false, u"cart"_s, 5 }, type, u"scenario-9"_s }
                         .encode())
            << R"({"meta":{"customer_id":null,"screen_name":"cart","strict_login":false,)"
               R"("timestamp":5},"reaction":")"
                + wire + R"(","scenario_id":"scenario-9"})";
    }

    for (double bad :
         { std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity() }) {
        QTest::addRow("%g alone", bad)
            << bytes(EventsViewRequest { {}, { putDouble(u"x"_s, bad) } }.encode())
            << QByteArray("error");
        QTest::addRow("%g in an array", bad)
            << bytes(EventsViewRequest { {}, { putDoubleArray(u"x"_s, { 1, bad }) } }.encode())
            << QByteArray("error");
    }
}

void tst_EventRequests::bodies()
{
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, expected);
    if (expected == "error")
        QVERIFY2(body.startsWith("error: ") && body.contains("\"x\""), body.constData());
    else
        QCOMPARE(body, expected);
}

void tst_EventRequests::customValueDecoding_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("type"); // -1: unsupported

    using T = CustomValue::Type;
    // A whole double is an integer; int64's ends keep their precision.
    const std::pair<T, QList<QByteArray>> types[]
        = { { T::Integer, { "3", "9223372036854775807", "-9223372036854775808", "3.0" } },
            { T::Double, { "3.25", "1e20" } },
            { T::Bool, { "false" } },
            { T::String, { R"("3")" } },
            { T::BoolArray, { "[]", "[true, false]" } },
            { T::IntegerArray, { "[1, 2]" } },
            { T::DoubleArray, { "[1, 2.5]" } },
            { T::StringArray, { R"(["a", "b"])" } } };
    for (const auto &[type, values] : types) {
        for (const QByteArray &json : values)
            QTest::addRow("%s", json.constData()) << json << int(type);
    }
    for (const char *json : { R"([1, "a"])", "null", R"({"a": 1})", "[[1]]" })
        QTest::addRow("unsupported %s", json) << QByteArray(json) << -1;
}

void tst_EventRequests::customValueDecoding()
{
    QFETCH(QByteArray, json);
    QFETCH(int, type);
    QString error;
    const auto decoded
        = CustomValue::fromJson(QJsonDocument::fromJson("[" + json + "]").array().first(), &error);
    QCOMPARE(decoded ? int(decoded->type()) : -1, type);
    if (!decoded)
        QCOMPARE(error, u"CustomValue: unsupported type"_s);
}

void tst_EventRequests::builderMerges_data()
{
    using Entries = QList<CustomParameterEntry>;
    QTest::addColumn<Entries>("entries");
    QTest::addColumn<Entries>("expected");

    QTest::newRow("empty") << Entries {} << Entries {};
    QTest::newRow("later value may change type")
        << Entries { putString(u"x"_s, u"a"_s), putBoolean(u"x"_s, true) }
        << Entries { putBoolean(u"x"_s, true) };
    QTest::newRow("keys are case-sensitive")
        << Entries { putString(u"Plan"_s, u"a"_s), putString(u"plan"_s, u"b"_s) }
        << Entries { putString(u"Plan"_s, u"a"_s), putString(u"plan"_s, u"b"_s) };
    QTest::newRow("first position, last value")
        << Entries { putInteger(u"a"_s, 1), putInteger(u"b"_s, 2), putInteger(u"a"_s, 3),
                     putInteger(u"c"_s, 4), putInteger(u"a"_s, 5) }
        << Entries { putInteger(u"a"_s, 5), putInteger(u"b"_s, 2), putInteger(u"c"_s, 4) };
}

void tst_EventRequests::builderMerges()
{
    QFETCH(QList<CustomParameterEntry>, entries);
    QFETCH(QList<CustomParameterEntry>, expected);
    QCOMPARE(CustomParameterBuilder::buildBlock(entries), expected);
}

QTEST_GUILESS_MAIN(tst_EventRequests)
#include "tst_eventrequests.moc"
