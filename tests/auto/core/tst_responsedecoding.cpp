#include "common/logging.h"
#include "network/apiresponse.h"
#include <VelmoraInAppMessaging/embeddedbanneraction.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>
#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QDirIterator>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QRandomGenerator>
#include <QTest>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace velmora;

namespace {

// Collects the library's warning lines for the lifetime of the object.
class WarningCollector
{
public:
    WarningCollector()
    {
        m_previous = detail::setWarningSink([this](const QString &line) { lines.append(line); });
    }
    ~WarningCollector() { detail::setWarningSink(m_previous); }
    QStringList lines;

private:
    detail::WarningSink m_previous;
};

const QByteArray meta
    = R"("meta": {"scenario_id": "s1", "updated_at": "2024-05-01T09:30:00Z", "action_type": )";

QByteArray wrapActions(const QByteArray &actions)
{
    return R"({"status": "ok", "actions": [)" + actions + "]}";
}

QByteArray action(const QByteArray &type, const QByteArray &rest = {})
{
    QByteArray json = "{" + meta + '"' + type + '"' + "}";
    if (!rest.isEmpty())
        json += ", " + rest;
    return "{" + json.mid(1) + "}";
}

const QByteArray creative = R"("creative": {"image": {"url": "https://x/i.png"}})";

const QString prefix = u"[VelmoraInAppMessaging][WARNING] "_s;

// How decodeAndDump() prints action(type, ...): its meta and type, then `rest`, which starts
// with the component id.
QString dumped(const QString &type, const char *kind, const QString &rest = {})
{
    return u"s1|2024-05-01T09:30:00Z|50|"_s + type + u"|2024-05-01T09:30:00.000Z|"_s + type + u'|'
        + QLatin1StringView(kind) + u'|' + rest;
}
const QString creativeDump = u"|https://x/i.png|-|-|-|-"_s; // `creative`, without component id

QString dump(const std::optional<QString> &text)
{
    return text ? u'"' + *text + u'"' : u"-"_s;
}
QString dump(const std::optional<TextContent> &t)
{
    return t ? u'{' + t->text + u',' + dump(t->textColor) + u',' + dump(t->backgroundColor) + u'}'
             : u"-"_s;
}
QString dump(const std::optional<ContentsLength> &length)
{
    return length ? QString::number(length->length) + rawValue(length->unit) : u"-"_s;
}

// The warnings, then the error or every field of the result, one action a line. A date that
// fell back to the clock reads "now": two decodes never share the instant.
QStringList decodeAndDump(Expected<APIResponse, DecodingError> (*decode)(const QByteArray &),
                          const QByteArray &body)
{
    QStringList lines;
    // Each warning decodes another document meanwhile, as a host's sink may; that must not
    // disturb the decode that warned.
    const auto previous = detail::setWarningSink([&lines](const QString &line) {
        lines << line;
        QVERIFY(decodeAPIResponse(R"({"actions": [{"meta": {"scenario_id": "inner",
            "updated_at": "2024-05-01T09:30:00Z", "action_type": "x"}}]})"));
    });
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const auto decoded = decode(body);
    const QDateTime after = QDateTime::currentDateTimeUtc();
    detail::setWarningSink(previous);
    if (!decoded)
        return lines << u"error: "_s + decoded.error().description;
    lines << u"status: "_s + decoded->status;
    for (const InAppMessageAction &action : decoded->actions) {
        const InAppMessageActionMeta &m = action.meta;
        const bool now = m.updatedDate >= before && m.updatedDate <= after;
        QStringList f { m.scenarioId, m.updatedAt, QString::number(m.priority), m.actionType };
        f << (now ? u"now"_s : m.updatedDate.toString(Qt::ISODateWithMs))
          << action.contents.rawType()
          << QString::fromLatin1(
                 QMetaEnum::fromType<InAppMessage::Type>().valueToKey(int(action.contents.type())))
          << action.contents.componentId();
        if (const SingleMessageCreative *c = action.contents.creative()) {
            f << c->image.url << dump(c->image.linkUrl) << dump(c->title) << dump(c->body)
              << dump(c->backgroundColor);
            if (const std::optional<ButtonContent> &button = c->button)
                f << button->text << dump(button->linkUrl) << dump(button->textColor)
                  << dump(button->backgroundColor);
        }
        if (const PopupBannerAction *b = action.contents.popupBannerAction()) {
            f << rawValue(b->position);
            for (double side : { b->margin.top, b->margin.bottom, b->margin.left, b->margin.right })
                f << (std::signbit(side) ? u"-"_s : QString()) // number() drops the sign of -0
                        + QString::number(std::abs(side), 'g', 17);
            if (b->size)
                f << dump(b->size->width) << dump(b->size->height);
        }
        lines << f.join(u'|');
    }
    return lines;
}

// Response-shaped documents from a schema whose leaves list the values a key usually gets (JSON
// with ' for ", or "" for texts); any key may be dropped, repeated or given any value, and some
// documents are damaged. The odd values are read differently by the two parsers.
class DocumentGenerator
{
public:
    QByteArray document()
    {
        const int shape = pick(40); // rarely an array or a scalar instead of an object
        QByteArray json = shape > 1 ? generate(m_schema)
            : shape                 ? '[' + generate(m_schema) + ']'
                                    : any();
        if (!pick(40))
            json.prepend("\xEF\xBB\xBF"); // a byte-order mark, which only Qt accepts
        if (!pick(10))
            json[pick(int(json.size()))] = char(pick(256));
        if (!pick(20))
            json.truncate(pick(int(json.size())));
        return json;
    }

private:
    int pick(int n) { return int(m_random.bounded(n)); }
    QByteArray pickFrom(const QList<QByteArray> &values) { return values.at(pick(values.size())); }
    static QList<QByteArray> split(const QByteArray &values) { return values.split('|'); }
    QByteArray any()
    {
        if (!pick(2000)) {
            return pickFrom(
                split("1e-400|-0e-5|1.|.5|01|\"\\ud800\"|\"a\tb\"|\"\xFF\"|\"\xED\xA0\x80\"|"
                      "18446744073709551616")
                << QByteArray(1020, '[') + QByteArray(1020, ']'));
        }
        return pickFrom(
            split("null|true|0|-0|-0.0|7.0|7.5|1e2|1e19|9223372036854775807|"
                  "9223372036854775808|18446744073709551615|\"\"|\"10\"|\"px\"|\"top\"|"
                  "\"\xC3\xA9\xF0\x9F\x98\x80\"|\"\\u00e9\\ud83d\\ude00\\n\\u0001\"|[]|{}"));
    }
    QByteArray generate(const QJsonValue &schema)
    {
        if (schema.isString()) {
            const QByteArray values = schema.toString().toUtf8().replace('\'', '"');
            return !pick(20)
                ? any()
                : pickFrom(split(values.isEmpty() ? "\"https://x/i.png\"|\"FF0000\"|\"\"|"
                                                    "\"\xE3\x81\x93\""
                                                  : values));
        }
        if (schema.isArray()) {
            QList<QByteArray> actions;
            for (int i = pick(10) ? pick(8) : 120 + pick(20); i > 0; --i)
                actions << (pick(12) ? generate(schema[0]) : any());
            return '[' + actions.join(',') + ']';
        }
        QList<QByteArray> members;
        const QJsonObject object = schema.toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            const QByteArray key = '"' + it.key().toUtf8() + "\": ";
            if (pick(16))
                members << key + (pick(40) ? generate(*it) : any());
            if (!pick(40)) // a repeated key: the last one counts
                members << key + any();
        }
        for (qsizetype i = members.size() - 1; i > 0; --i)
            members.swapItemsAt(i, pick(int(i + 1)));
        return '{' + members.join(", ") + '}';
    }

    QRandomGenerator m_random { 20240501 };
    const QJsonValue m_schema = QJsonDocument::fromJson(R"({"status": "'ok'", "actions": [{
        "meta": {"scenario_id": "", "priority": "3|-1|50.0",
            "updated_at": "'2024-05-01T09:30:00Z'|'2024-05-01T09:30:00.5-02:30'|'2023-02-29T00:00:00Z'|'a\\r\\n\\u001b[31m'",
            "action_type": "'popup_modal'|'popup_banner'|'embedded_banner'|'x'"},
        "creative": {"image": {"url": "", "link_url": ""},
            "title": {"text": "", "text_color": "", "background_color": ""},
            "body": {"text": "", "text_color": "", "background_color": ""},
            "button": {"text": "", "link_url": "", "text_color": "", "background_color": ""},
            "background_color": ""},
        "layout": {"location": "'top'|'bottom_right'|'BOTTOM'", "component_id": "",
            "margin": {"top": "8|-0.0", "bottom": "-4", "left": "1.5|-0", "right": "0|1e2"},
            "size": {"width": {"length": "0|1|100|101|999|1000", "unit": "'px'|'percentage'|'p\\nt'"},
                     "height": {"length": "1|100|50.0", "unit": "'px'|'percentage'"}}}}]})")
                                    .object();
};

} // namespace

class tst_ResponseDecoding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decoded_data();
    void decoded();
    void updatedAt_data();
    void updatedAt();
    void displayOrder();
    void sameAsQtPath_data();
    void sameAsQtPath();
};

void tst_ResponseDecoding::decoded_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("expected"); // as decodeAndDump() prints it

    const auto row = [](const char *name, const QByteArray &body, const QStringList &expected) {
        QTest::newRow(name) << body << expected;
    };
    // The envelope alone: no warnings, whatever fails.
    const QString noActions = u"error: key not found or null: actions"_s;
    row("empty actions", R"({"actions": []})", { u"status: "_s });
    row("status kept", R"({"actions": [], "status": "ok"})", { u"status: ok"_s });
    row("status null", R"({"actions": [], "status": null})", { u"status: "_s });
    row("status number", R"({"actions": [], "status": 1})",
        { u"error: type mismatch at status: expected a string, found a number"_s });
    row("actions missing", R"({"status": "ok"})", { noActions });
    row("actions null", R"({"actions": null})", { noActions });
    row("actions object", R"({"actions": {}})",
        { u"error: type mismatch at actions: expected an array, found an object"_s });
    row("top-level array", R"([{"actions": []}])",
        { u"error: expected an object at top level, found an array"_s });
    row("not json", "<html>502</html>",
        { u"error: the data is not valid JSON: illegal value at offset 1"_s });
    row("empty body", {}, { u"error: the data is not valid JSON: illegal value at offset 0"_s });
    row("truncated", R"({"actions": [)",
        { u"error: the data is not valid JSON: unterminated array at offset 13"_s });

    // Every creative field; empty texts are kept, not treated as absent.
    row("creative fields", wrapActions(action("embedded_banner", R"("creative": {
        "image": {"url": "https://x/i.png", "link_url": null},
        "title": {"text": "", "text_color": "FF0000", "background_color": null},
        "button": {"text": "Go", "link_url": "https://x", "background_color": ""},
        "background_color": "FFFFFF"}, "layout": null)")),
        { u"status: ok"_s,
          dumped(u"embedded_banner"_s, "EmbeddedBanner",
                 u"|https://x/i.png|-|{,\"FF0000\",-}|-|\"FFFFFF\"|Go|\"https://x\"|-|\"\""_s) });

    // A popup banner's layout: position, margins (top, bottom, left, right), width, height.
    const auto banner = [&row](const char *name, const QByteArray &layout, const QString &fields) {
        row(name,
            wrapActions(
                action("popup_banner", layout.isEmpty() ? creative : creative + ", " + layout)),
            { u"status: ok"_s,
              dumped(u"popup_banner"_s, "PopupBanner", creativeDump + u'|' + fields) });
    };
    const QString top = u"top|0|0|0|0"_s;
    banner("no layout", {}, top);
    banner("null layout", R"("layout": null)", top);
    banner("empty layout", R"("layout": {})", top);
    banner("unknown location", R"("layout": {"location": "middle"})", top);
    banner("upper-case location", R"("layout": {"location": "BOTTOM"})", top);
    banner("bottom_right", R"("layout": {"location": "bottom_right"})", u"bottom_right|0|0|0|0"_s);
    banner("margin top only", R"("layout": {"margin": {"top": 8}})", u"top|8|0|0|0"_s);
    banner("negative margins kept",
           R"("layout": {"margin": {"top": -4, "bottom": 1e4, "left": 1.5, "right": null}})",
           u"top|-4|10000|1.5|0"_s);
    banner("width only", R"("layout": {"size": {"width": {"length": 999, "unit": "px"}}})",
           top + u"|999px|-"_s);
    banner(
        "width and height",
        R"("layout": {"location": "center", "size": {"width": {"length": 100, "unit": "percentage"}, "height": {"length": 1, "unit": "px"}}})",
        u"center|0|0|0|0|100percentage|1px"_s);
    banner("null height",
           R"("layout": {"size": {"width": {"length": 1, "unit": "percentage"}, "height": null}})",
           top + u"|1percentage|-"_s);

    // Between two good actions: a skipped one takes nothing else with it and is named by its
    // index in the response.
    const auto between = [&row](const char *name, const QByteArray &json, const QString &line) {
        QStringList lines { u"status: ok"_s, dumped(u"popup_modal"_s, "PopupModal", creativeDump),
                            dumped(u"last"_s, "Unsupported") };
        if (line.startsWith(u"Skipping"_s))
            lines.prepend(prefix + line);
        else
            lines.insert(2, line);
        row(name, wrapActions(action("popup_modal", creative) + ',' + json + ',' + action("last")),
            lines);
    };
    const QString skip = u"Skipping malformed action at index 1: "_s;
    const auto missing = [&skip](const char *path) -> QString {
        return skip + u"key not found: actions[1]."_s + QLatin1StringView(path);
    };
    const auto mismatch
        = [&skip](const char *path, const char *expected, const char *found) -> QString {
        return skip + u"type mismatch at actions[1]."_s + QLatin1StringView(path) + u": expected "_s
            + QLatin1StringView(expected) + u", found "_s + QLatin1StringView(found);
    };
    const auto modal = [](const QByteArray &rest) { return action("popup_modal", rest); };
    const auto bannerLayout = [](const QByteArray &layout) {
        return action("popup_banner", creative + R"(, "layout": )" + layout);
    };
    const QByteArray date = R"("updated_at": "2024-05-01T09:30:00Z")";
    const QString keptModal = dumped(u"popup_modal"_s, "PopupModal", creativeDump);
    between("modal", modal(creative), keptModal);
    between("banner", action("popup_banner", creative),
            dumped(u"popup_banner"_s, "PopupBanner", creativeDump + u"|top|0|0|0|0"_s));
    between("embedded", action("embedded_banner", creative),
            dumped(u"embedded_banner"_s, "EmbeddedBanner", creativeDump));
    between("upper-case type is unsupported", action("POPUP_MODAL", creative),
            dumped(u"POPUP_MODAL"_s, "Unsupported"));
    between("unknown type without creative", action("carousel"),
            dumped(u"carousel"_s, "Unsupported"));
    between("unknown type with broken creative and layout",
            action("carousel",
                   R"("creative": 5, "layout": {"size": {"width": {"length": 0, "unit": "px"}}})"),
            dumped(u"carousel"_s, "Unsupported"));
    between("modal ignores a broken layout", modal(creative + R"(, "layout": {"location": 3})"),
            keptModal);
    between("creative_type unknown is ignored",
            modal(creative + R"(, "creative_type": "carousel")"), keptModal);
    between("creative_type malformed is ignored",
            modal(creative + R"(, "creative_type": {"x": 1})"), keptModal);
    between("supported without creative", modal({}), missing("creative"));
    between("creative without image", modal(R"("creative": {"title": {"text": "t"}})"),
            missing("creative.image"));
    between("image url not a string", modal(R"("creative": {"image": {"url": 3}})"),
            mismatch("creative.image.url", "a string", "a number"));
    between("title without text",
            modal(R"("creative": {"image": {"url": ""}, "title": {"text_color": "FFFFFF"}})"),
            missing("creative.title.text"));
    between("element not an object", "42",
            skip + u"expected an object at actions[1], found a number"_s);
    between("meta missing", R"({"creative": {}})", missing("meta"));
    between("scenario_id missing", R"({"meta": {)" + date + R"(, "action_type": "x"}})",
            missing("meta.scenario_id"));
    between("updated_at null",
            R"({"meta": {"scenario_id": "a", "updated_at": null, "action_type": "x"}})",
            mismatch("meta.updated_at", "a string", "null"));
    between("action_type number",
            R"({"meta": {"scenario_id": "a", )" + date + R"(, "action_type": 1}})",
            mismatch("meta.action_type", "a string", "a number"));
    between("embedded layout component_id number",
            action("embedded_banner", creative + R"(, "layout": {"component_id": 7})"),
            mismatch("layout.component_id", "a string", "a number"));
    between("banner location not a string", bannerLayout(R"({"location": 7})"),
            mismatch("layout.location", "a string", "a number"));
    between("banner margin malformed", bannerLayout(R"({"margin": {"top": "8"}})"),
            mismatch("layout.margin.top", "a number", "a string"));
    between("size with only height",
            bannerLayout(R"({"size": {"height": {"length": 10, "unit": "px"}}})"),
            missing("layout.size.width"));
    between("size with unknown unit",
            bannerLayout(R"({"size": {"width": {"length": 10, "unit": "pt"}}})"),
            skip + u"data corrupted at actions[1].layout.size.width.unit: unknown unit \"pt\""_s);
    between("size with fractional length",
            bannerLayout(R"({"size": {"width": {"length": 10.5, "unit": "px"}}})"),
            mismatch("layout.size.width.length", "an integer", "a number"));

    // Priority: 50 when absent; anything but a whole number in int64's range skips the action.
    const auto priority = [&row](const char *name, const QByteArray &json, const QString &kept) {
        const QString skipped = prefix
            + u"Skipping malformed action at index 0: type mismatch at "_s
              u"actions[0].meta.priority: expected an integer, found "_s;
        row(name,
            wrapActions(
                R"({"meta": {"scenario_id": "s", "updated_at": "2024-05-01T09:30:00Z", "action_type": "x")"
                + (json.isEmpty() ? QByteArray() : R"(, "priority": )" + json) + "}}"),
            kept.startsWith(u"a "_s)
                ? QStringList { skipped + kept, u"status: ok"_s }
                : QStringList { u"status: ok"_s,
                                u"s|2024-05-01T09:30:00Z|"_s + kept
                                    + u"|x|2024-05-01T09:30:00.000Z|x|Unsupported|"_s });
    };
    priority("absent", {}, u"50"_s);
    priority("null", "null", u"50"_s);
    priority("zero", "0", u"0"_s);
    priority("negative", "-3", u"-3"_s);
    priority("large", "9007199254740993", u"9007199254740993"_s);
    priority("whole double", "7.0", u"7"_s);
    priority("fraction", "7.5", u"a number"_s);
    priority("digit string", R"("10")", u"a string"_s);
    priority("bool", "true", u"a boolean"_s);
    priority("beyond int64", "1e19", u"a number"_s);

    // An unparsable date is kept as text and warned about, cut to 200 characters; the emoji
    // counts as one and is not split.
    const QString garbage = QString(199, u'x') + u"\U0001F600"_s + QString(50, u'y');
    row("unparsable updated_at is cut and kept",
        wrapActions(R"({"meta": {"scenario_id": "s", "updated_at": ")" + garbage.toUtf8()
                    + R"(", "action_type": "popup_modal"}, )" + creative + "}"),
        { prefix
              + u"Failed to parse updated_at as ISO8601; falling back to the current time. "_s
                u"updatedAt=\""_s
              + garbage.left(201) + u'"',
          u"status: ok"_s,
          u"s|"_s + garbage + u"|50|popup_modal|now|popup_modal|PopupModal|"_s + creativeDump });
}

void tst_ResponseDecoding::decoded()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, expected);
    const QStringList lines = decodeAndDump(decodeAPIResponse, body);
    QCOMPARE(lines, expected);
}

void tst_ResponseDecoding::updatedAt_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("utc"); // empty: unparsable

    QTest::newRow("Z") << u"2024-05-01T09:30:00Z"_s << u"2024-05-01T09:30:00.000Z"_s;
    QTest::newRow("fraction and offset")
        << u"2024-05-01T09:30:00.250+09:00"_s << u"2024-05-01T00:30:00.250Z"_s;
    QTest::newRow("negative offset")
        << u"2024-05-01T23:30:00-02:30"_s << u"2024-05-02T02:00:00.000Z"_s;
    QTest::newRow("one fraction digit")
        << u"2024-05-01T09:30:00.5Z"_s << u"2024-05-01T09:30:00.500Z"_s;
    QTest::newRow("microseconds truncated")
        << u"2024-05-01T09:30:00.123456Z"_s << u"2024-05-01T09:30:00.123Z"_s;
    QTest::newRow("leap day") << u"2024-02-29T00:00:00Z"_s << u"2024-02-29T00:00:00.000Z"_s;
    for (const QString &text :
         { u"2023-02-29T00:00:00Z"_s /* not a leap year */, u"2024-05-01T09:30:00"_s,
           u"2024-05-01T09:30:00+0900"_s, u"2024-05-01 09:30:00Z"_s, u"2024-05-01"_s,
           u"2024-05-01T24:00:00Z"_s, u"2024-05-01T09:30:00.Z"_s, u"2024-05-01T09:30:00Zx"_s,
           QString() })
        QTest::addRow("unparsable '%s'", qPrintable(text)) << text << QString();
}

void tst_ResponseDecoding::updatedAt()
{
    QFETCH(QString, text);
    QFETCH(QString, utc);
    WarningCollector warnings;
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const QDateTime parsed = detail::parseUpdatedDate(text);
    QCOMPARE(warnings.lines.size(), utc.isEmpty() ? 1 : 0);
    if (utc.isEmpty())
        QVERIFY(parsed >= before && parsed <= QDateTime::currentDateTimeUtc());
    else
        QCOMPARE(parsed.toUTC().toString(Qt::ISODateWithMs), utc);
}

void tst_ResponseDecoding::displayOrder()
{
    const auto item = [](const char *id, const char *date, const char *priority) -> QByteArray {
        return QByteArray(R"({"meta": {"scenario_id": ")") + id + R"(", "updated_at": ")" + date
            + '"' + (priority ? QByteArray(R"(, "priority": )") + priority : QByteArray())
            + R"(, "action_type": "x"}})";
    };
    const QByteArray body = wrapActions(item("one", "2024-05-01T00:00:00Z", "1") + ','
                                        + item("five-early", "2024-05-01T00:00:00Z", "5") + ','
                                        + item("default", "2024-01-01T00:00:00Z", nullptr) + ','
                                        + item("five-late", "2024-05-01T00:00:00.001Z", "5") + ','
                                        + item("tie-a", "2024-01-01T00:00:00Z", "50") + ','
                                        + item("tie-b", "2024-01-01T09:00:00+09:00", "50"));
    auto decoded = decodeAPIResponse(body);
    QVERIFY(decoded.hasValue());
    QList<InAppMessageAction> actions = decoded.value().actions;
    sortForDisplay(actions);
    QStringList order;
    for (const auto &a : actions)
        order.append(a.meta.scenarioId);
    // Equal instants written differently are a tie and keep the server's order.
    QCOMPARE(order,
             (QStringList { u"default"_s, u"tie-a"_s, u"tie-b"_s, u"five-late"_s, u"five-early"_s,
                            u"one"_s }));
}

void tst_ResponseDecoding::sameAsQtPath_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("warnings"); // -1: not checked beyond being the Qt path's
    QTest::addColumn<QString>("lastWarning");

    const QByteArray lateDate
        = R"({"meta": {"scenario_id": "s", "updated_at": "late", "action_type": "x"}})";
    QList<QByteArray> actions(150, "7");
    actions[120] = lateDate;
    // First, so that a count kept across responses would fail the rows after it.
    QTest::newRow("150 skipped, other warnings not capped, summary after the last action")
        << R"({"actions": [)" + actions.join(',') + R"(], "status": 1})" << 102
        << u"Skipped 49 more malformed actions in this response."_s;
    QTest::newRow("100 skipped") << wrapActions(QByteArray("7,").repeated(99) + "7") << 100
                                 << u"Skipping malformed action at index 99: expected an object at "
                                    u"actions[99], found a number"_s;
    QTest::newRow("101 skipped") << wrapActions(QByteArray("7,").repeated(100) + "7") << 101
                                 << u"Skipped 1 more malformed actions in this response."_s;
    QTest::newRow("updated_at escaped")
        << wrapActions(QByteArray(lateDate).replace(
               "late", R"(a\nb\r\tc\u0001\u001b[31m\u007f\u0085\u2028d)"))
        << 1
        << u"Failed to parse updated_at as ISO8601; falling back to the current time. "
           u"updatedAt=\"a\\nb\\r\\tc\\x01\\x1B[31m\\x7F\\x85\\u2028d\""_s;
    const QByteArray unit = R"("layout": {"size": {"width": {"length": 5, "unit": "p\nx\u0000"}}})";
    QTest::newRow("unit escaped")
        << wrapActions(action("popup_banner", creative + ", " + unit)) << 1
        << u"Skipping malformed action at index 0: data corrupted at "
           u"actions[0].layout.size.width.unit: unknown unit \"p\\nx\\x00\""_s;

    const QString examples = QFINDTESTDATA("../../../examples");
    for (QDirIterator it(examples, { u"*.json"_s }, QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        QFile file(it.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        QTest::addRow("%s", qPrintable(QDir(examples).relativeFilePath(file.fileName())))
            << file.readAll() << -1 << QString();
    }
    // What only one of the parsers accepts comes from the generated documents below.
    QTest::newRow("100000 levels in an action") << wrapActions(
        action("x", "\"creative_type\": " + QByteArray(100000, '[') + QByteArray(100000, ']')))
                                                << -1 << QString();
    QTest::newRow("a zero and an underflow without exponent")
        << R"({"actions": [], "a": 0.0, "b": 0.)" + QByteArray(400, '0') + "1}" << -1 << QString();
    QTest::newRow("non-ASCII") << wrapActions(action(
        "embedded_banner",
        R"("creative": {"image": {"url": "https://x/画像.png"}, "\u0074itle": {"text": "Grüße 😀 \u00e9\ud83d\ude00"}}, "layout": {"component_id": "스롯"})"))
                               << 0 << QString();
    const QByteArray banner
        = action("popup_banner", creative + R"(, "layout": {"location": "bottom",
        "size": {"width": {"length": 90, "unit": "percentage"}}})");
    QTest::newRow("over 1 MiB") << wrapActions(QByteArray(banner + ',').repeated(6000) + banner)
                                << 0 << QString();

    DocumentGenerator generator; // fixed seed: a failing row can be replayed by its number
    for (int i = 0; i < 4000; ++i)
        QTest::addRow("generated %d", i) << generator.document() << -1 << QString();
}

void tst_ResponseDecoding::sameAsQtPath()
{
    QFETCH(QByteArray, body);
    QFETCH(int, warnings);
    QFETCH(QString, lastWarning);
    const QStringList decoded = decodeAndDump(decodeAPIResponse, body);
    QCOMPARE(decoded, decodeAndDump(detail::decodeWithQJsonDocument, body));
    if (warnings >= 0) {
        const QStringList lines = decoded.filter(prefix);
        QCOMPARE(lines.size(), warnings);
        if (warnings > 0)
            QCOMPARE(lines.last(), prefix + lastWarning);
    }
}

QTEST_GUILESS_MAIN(tst_ResponseDecoding)
#include "tst_responsedecoding.moc"
