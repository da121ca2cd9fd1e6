#include "network/apirequest.h"
#include <VelmoraInAppMessaging/customparameterbuilder.h>

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace velmora;

namespace {
QJsonObject parse(const QByteArray &bytes)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        qWarning() << "not JSON:" << bytes;
    return document.object();
}
} // namespace

class tst_EventRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void viewBody_data();
    void viewBody();
    void reactionBody_data();
    void reactionBody();
    void nonFiniteFailsEncoding();
    void customValueDecoding_data();
    void customValueDecoding();
    void builderMerges_data();
    void builderMerges();
};

void tst_EventRequests::viewBody_data()
{
    QTest::addColumn<std::optional<QString>>("customerId");
    QTest::addColumn<QList<CustomParameterEntry>>("custom");
    QTest::addColumn<QByteArray>("expectedCustom");

    QTest::newRow("no customer, no params")
        << std::optional<QString>() << QList<CustomParameterEntry> {} << QByteArray("[]");
    QTest::newRow("empty customer is sent as empty")
        << std::optional(QString()) << QList<CustomParameterEntry> {} << QByteArray("[]");
    QTest::newRow("params in order")
        << std::optional(u"c-1"_s)
        << QList<CustomParameterEntry> { putString(u"plan"_s, u"gold"_s), putInteger(u"age"_s, 42),
                                         putBooleanArray(u"flags"_s, {}),
                                         putDoubleArray(u"scores"_s, { 1.5, -2 }) }
        << QByteArray(R"([{"key":"plan","value":"gold"},{"key":"age","value":42},)"
                      R"({"key":"flags","value":[]},{"key":"scores","value":[1.5,-2]}])");
}

void tst_EventRequests::viewBody()
{
    QFETCH(std::optional<QString>, customerId);
    QFETCH(QList<CustomParameterEntry>, custom);
    QFETCH(QByteArray, expectedCustom);

    EventsViewRequest request { { customerId, true, u"home"_s, 1714550400123 }, custom };
    const auto body = request.encode();
    QVERIFY(body.hasValue());
    const QJsonObject json = parse(body.value());
    QCOMPARE(json.keys(), (QStringList { u"custom"_s, u"meta"_s }));
    const QJsonObject meta = json.value(u"meta").toObject();
    QCOMPARE(
        meta.keys(),
        (QStringList { u"customer_id"_s, u"screen_name"_s, u"strict_login"_s, u"timestamp"_s }));
    if (customerId)
        QCOMPARE(meta.value(u"customer_id"), QJsonValue(*customerId));
    else
        QVERIFY(meta.value(u"customer_id").isNull());
    QCOMPARE(meta.value(u"strict_login"), QJsonValue(true));
    QCOMPARE(meta.value(u"screen_name"), QJsonValue(u"home"_s));
    QCOMPARE(meta.value(u"timestamp").toInteger(), 1714550400123);
    QCOMPARE(QJsonDocument(json.value(u"custom").toArray()).toJson(QJsonDocument::Compact),
             expectedCustom);
    // Compact: no pretty printing on the wire.
    QVERIFY(!body.value().contains('\n'));
}

void tst_EventRequests::reactionBody_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("wire");
    QTest::newRow("open") << int(EventsReactionType::Open) << u"open"_s;
    QTest::newRow("click") << int(EventsReactionType::Click) << u"click"_s;
    QTest::newRow("close") << int(EventsReactionType::Close) << u"close"_s;
}

void tst_EventRequests::reactionBody()
{
    QFETCH(int, type);
    QFETCH(QString, wire);
    EventsReactionRequest request { { std::nullopt, false, u"cart"_s, 5 },
                                    EventsReactionType(type),
                                    u"scenario-9"_s };
    const QJsonObject json = parse(request.encode().value());
    QCOMPARE(json.value(u"reaction"), QJsonValue(wire));
    QCOMPARE(json.value(u"scenario_id"), QJsonValue(u"scenario-9"_s));
    // Null, not left out: isNull() is false for a missing key.
    QVERIFY(json.value(u"meta").toObject().value(u"customer_id").isNull());
    QCOMPARE(json.value(u"meta").toObject().value(u"strict_login"), QJsonValue(false));
}

void tst_EventRequests::nonFiniteFailsEncoding()
{
    for (double bad :
         { std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity() }) {
        EventsViewRequest single { {}, { putDouble(u"x"_s, bad) } };
        QVERIFY(!single.encode().hasValue());
        EventsViewRequest array { {}, { putDoubleArray(u"x"_s, { 1, bad }) } };
        QVERIFY(array.encode().error().contains(u"\"x\""_s));
    }
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
    const QJsonValue value = QJsonDocument::fromJson("[" + json + "]").array().first();
    QString error;
    const auto decoded = CustomValue::fromJson(value, &error);
    if (type < 0) {
        QVERIFY(!decoded);
        QCOMPARE(error, u"CustomValue: unsupported type"_s);
    } else {
        QVERIFY(decoded);
        QCOMPARE(int(decoded->type()), type);
    }
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
