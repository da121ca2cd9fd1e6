#include "network/apiresponse.h"

#include "common/logging.h"
#include "network/iso8601.h"
#include <VelmoraInAppMessaging/embeddedbanneraction.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>
#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QTextBoundaryFinder>

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <span>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

// Two read-only views of a parsed JSON value with one interface, so that one decoder serves the
// simdjson document and, for what only Qt accepts, the QJsonDocument. Numbers follow Qt's rules
// in both, which is what the decoder's results were defined against.
enum class JsonType { Null, Bool, Number, String, Array, Object };

// Qt's rule for reading a number as an integer: whole and within the range of qint64.
std::optional<qint64> wholeNumber(double value)
{
    if (value >= -0x1p63 && value < 0x1p63 && std::trunc(value) == value)
        return qint64(value);
    return std::nullopt;
}

// An element of a simdjson DOM document; valid while the parser that made it is untouched.
class SimdjsonValue
{
public:
    SimdjsonValue() = default;
    explicit SimdjsonValue(simdjson::dom::element element)
        : m_element(element)
    { }

    JsonType type() const
    {
        using simdjson::dom::element_type;
        switch (m_element.type()) {
        case element_type::ARRAY:
            return JsonType::Array;
        case element_type::OBJECT:
            return JsonType::Object;
        case element_type::INT64:
        case element_type::UINT64:
        case element_type::DOUBLE:
            return JsonType::Number;
        case element_type::STRING:
            return JsonType::String;
        case element_type::BOOL:
            return JsonType::Bool;
        case element_type::NULL_VALUE:
            break;
        }
        return JsonType::Null;
    }

    QString toString() const
    {
        const std::string_view text = m_element.get_string().value_unsafe();
        return QString::fromUtf8(text.data(), qsizetype(text.size()));
    }

    // simdjson keeps integer literals above INT64_MAX as uint64, where Qt has a double that is
    // no qint64.
    std::optional<qint64> toInteger() const
    {
        using simdjson::dom::element_type;
        if (m_element.type() == element_type::INT64)
            return m_element.get_int64().value_unsafe();
        return m_element.type() == element_type::DOUBLE ? wholeNumber(toDouble()) : std::nullopt;
    }
    // Qt reads -0.0 as 0.
    double toDouble() const
    {
        const double value = m_element.get_double().value_unsafe(); // integers convert
        return value == 0 ? 0.0 : value;
    }

    // The readers below expect a value of their type: callers check type() first.
    qsizetype size() const { return qsizetype(m_element.get_array().value_unsafe().size()); }
    template<typename F> void forEachElement(F &&visit) const
    {
        const simdjson::dom::array array = m_element.get_array().value_unsafe();
        for (simdjson::dom::element element : array)
            visit(SimdjsonValue(element));
    }
    template<typename F> void forEachField(F &&visit) const
    {
        const simdjson::dom::object object = m_element.get_object().value_unsafe();
        for (const simdjson::dom::key_value_pair field : object)
            visit(field.key, SimdjsonValue(field.value));
    }

private:
    simdjson::dom::element m_element;
};

// A value of a QJsonDocument.
class QtJsonValue
{
public:
    QtJsonValue() = default;
    explicit QtJsonValue(QJsonValue value)
        : m_value(std::move(value))
    { }

    JsonType type() const
    {
        switch (m_value.type()) {
        case QJsonValue::Bool:
            return JsonType::Bool;
        case QJsonValue::Double:
            return JsonType::Number;
        case QJsonValue::String:
            return JsonType::String;
        case QJsonValue::Array:
            return JsonType::Array;
        case QJsonValue::Object:
            return JsonType::Object;
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            break;
        }
        return JsonType::Null;
    }

    QString toString() const { return m_value.toString(); }
    // Two different fallbacks tell a whole number from any other without going through double.
    std::optional<qint64> toInteger() const
    {
        if (m_value.toInteger(0) != m_value.toInteger(1))
            return std::nullopt;
        return m_value.toInteger();
    }
    double toDouble() const { return m_value.toDouble(); }

    qsizetype size() const { return m_value.toArray().size(); }
    template<typename F> void forEachElement(F &&visit) const
    {
        const QJsonArray array = m_value.toArray();
        for (const QJsonValue &element : array)
            visit(QtJsonValue(element));
    }
    template<typename F> void forEachField(F &&visit) const
    {
        const QJsonObject object = m_value.toObject();
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            const QByteArray key = it.key().toUtf8();
            visit(std::string_view(key.constData(), size_t(key.size())), QtJsonValue(it.value()));
        }
    }

private:
    QJsonValue m_value;
};

// A response that lists thousands of broken actions would otherwise flood the host's output.
constexpr int maxSkipWarnings = 100;

// At most the first `count` user-perceived characters, so that a cut never splits one.
QString leftGraphemes(const QString &text, int count)
{
    if (text.size() <= count)
        return text;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int seen = 0;
    while (seen < count && finder.toNextBoundary() != -1)
        ++seen;
    return finder.position() > 0 ? text.left(finder.position()) : text;
}

QLatin1StringView typeName(JsonType type)
{
    switch (type) {
    case JsonType::Null:
        return "null"_L1;
    case JsonType::Bool:
        return "a boolean"_L1;
    case JsonType::Number:
        return "a number"_L1;
    case JsonType::String:
        return "a string"_L1;
    case JsonType::Array:
        return "an array"_L1;
    case JsonType::Object:
        break;
    }
    return "an object"_L1;
}

// Where in the document something failed, such as actions[3].layout.size.width.length. Only
// pointers to key literals: the text is built when a warning is actually printed.
class JsonPath
{
public:
    static JsonPath action(qsizetype index)
    {
        JsonPath path;
        path.m_index = index;
        return path;
    }
    bool isEmpty() const { return m_index < 0 && m_depth == 0; }
    JsonPath operator/(std::string_view key) const
    {
        Q_ASSERT(m_depth < int(m_keys.size()));
        JsonPath path = *this;
        path.m_keys[path.m_depth++] = key;
        return path;
    }
    QString toString() const
    {
        QString text = m_index < 0 ? QString() : u"actions["_s + QString::number(m_index) + u']';
        for (int i = 0; i < m_depth; ++i) {
            if (!text.isEmpty())
                text += u'.';
            text += QLatin1StringView(m_keys[i].data(), qsizetype(m_keys[i].size()));
        }
        return text;
    }

private:
    qsizetype m_index = -1;
    std::array<std::string_view, 4> m_keys {};
    int m_depth = 0;
};

// The keys each kind of object is read for; a layout is read for the union of both layouts.
namespace keys {
enum Envelope { Actions, Status };
constexpr std::array<std::string_view, 2> envelope { "actions", "status" };
enum Action { Meta, Creative, Layout };
constexpr std::array<std::string_view, 3> action { "meta", "creative", "layout" };
enum Meta { ScenarioId, UpdatedAt, Priority, ActionType };
constexpr std::array<std::string_view, 4> meta { "scenario_id", "updated_at", "priority",
                                                 "action_type" };
enum Creative { Image, Title, Body, Button, CreativeBackground };
constexpr std::array<std::string_view, 5> creative { "image", "title", "body", "button",
                                                     "background_color" };
enum Image { Url, ImageLink };
constexpr std::array<std::string_view, 2> image { "url", "link_url" };
enum Text { TextText, TextColor, TextBackground };
constexpr std::array<std::string_view, 3> text { "text", "text_color", "background_color" };
enum Button { ButtonText, ButtonLink, ButtonColor, ButtonBackground };
constexpr std::array<std::string_view, 4> button { "text", "link_url", "text_color",
                                                   "background_color" };
enum Layout { Location, Margin, Size, ComponentId };
constexpr std::array<std::string_view, 4> layout { "location", "margin", "size", "component_id" };
enum Margin { Top, Bottom, Left, Right };
constexpr std::array<std::string_view, 4> margin { "top", "bottom", "left", "right" };
enum Size { Width, Height };
constexpr std::array<std::string_view, 2> size { "width", "height" };
enum Length { LengthValue, Unit };
constexpr std::array<std::string_view, 2> length { "length", "unit" };
} // namespace keys

template<typename Json> class ResponseDecoder
{
public:
    Expected<APIResponse, DecodingError> decode(const Json &root);

private:
    // The known fields of one object, found in a single pass over it. A repeated key keeps its
    // last value, as QJsonObject does. Absent is nullopt; null is a value of type Null.
    struct Object
    {
        JsonPath path;
        std::span<const std::string_view> keys;
        std::array<std::optional<Json>, 5> fields;

        JsonPath pathOf(int key) const { return path / keys[key]; }
        bool has(int key) const { return fields[key] && fields[key]->type() != JsonType::Null; }
    };

    struct Failure
    {
        enum Kind { NotAnObject, KeyNotFound, TypeMismatch, UnknownUnit, LengthOutOfBounds };

        Failure() = default;
        Failure(Kind kind, const JsonPath &path, const char *expected = "", const Json &found = {})
            : kind(kind)
            , path(path)
            , expected(expected)
            , found(found)
        { }

        Kind kind = KeyNotFound;
        JsonPath path;
        const char *expected = "";
        Json found; // for its type, or the unknown unit's text
        qint64 length = 0;
        ContentsLength::Unit unit = ContentsLength::Unit::Px;

        QString description() const;
    };

    static Object read(const Json &object, const JsonPath &path,
                       std::span<const std::string_view> keys);

    bool fail(Failure failure)
    {
        m_failure = std::move(failure);
        return false;
    }
    bool require(const Object &object, int key, JsonType type, const char *expected);
    bool readObject(const Object &parent, int key, std::span<const std::string_view> keys,
                    Object &out);
    bool readString(const Object &object, int key, QString &out);
    bool readString(const Object &object, int key, std::optional<QString> &out);
    bool readInteger(const Object &object, int key, qint64 &out);
    bool readDouble(const Object &object, int key, double &out);

    bool decodeAction(const Json &value, qsizetype index, InAppMessageAction &out);
    bool decodeMeta(const Object &meta, InAppMessageActionMeta &out);
    bool decodeCreative(const Object &action, SingleMessageCreative &out);
    bool decodeText(const Object &parent, int key, std::optional<TextContent> &out);
    bool decodePopupBanner(const Object &action, PopupBannerAction &out);
    bool decodeLength(const Object &size, int key, ContentsLength &out);
    void skipped(qsizetype index);

    Failure m_failure;
    int m_skipped = 0;
};

template<typename Json> QString ResponseDecoder<Json>::Failure::description() const
{
    switch (kind) {
    case NotAnObject:
        return u"expected an object at "_s + (path.isEmpty() ? u"top level"_s : path.toString())
            + u", found "_s + typeName(found.type());
    case KeyNotFound:
        return u"key not found: "_s + path.toString();
    case TypeMismatch:
        return u"type mismatch at "_s + path.toString() + u": expected "_s
            + QLatin1StringView(expected) + u", found "_s + typeName(found.type());
    case UnknownUnit:
        return u"data corrupted at "_s + path.toString() + u": unknown unit \""_s + found.toString()
            + u'"';
    case LengthOutOfBounds:
        break;
    }
    return u"data corrupted at "_s + path.toString() + u": "_s
        + ContentsLength::boundsError(length, unit).value_or(QString());
}

template<typename Json>
auto ResponseDecoder<Json>::read(const Json &object, const JsonPath &path,
                                 std::span<const std::string_view> keys) -> Object
{
    Object result { path, keys, {} };
    object.forEachField([&](std::string_view key, const Json &value) {
        const auto it = std::find(keys.begin(), keys.end(), key);
        if (it != keys.end())
            result.fields[it - keys.begin()] = value;
    });
    return result;
}

template<typename Json>
bool ResponseDecoder<Json>::require(const Object &object, int key, JsonType type,
                                    const char *expected)
{
    const std::optional<Json> &field = object.fields[key];
    if (!field)
        return fail({ Failure::KeyNotFound, object.pathOf(key) });
    if (field->type() != type)
        return fail({ Failure::TypeMismatch, object.pathOf(key), expected, *field });
    return true;
}

template<typename Json>
bool ResponseDecoder<Json>::readObject(const Object &parent, int key,
                                       std::span<const std::string_view> keys, Object &out)
{
    if (!require(parent, key, JsonType::Object, "an object"))
        return false;
    out = read(*parent.fields[key], parent.pathOf(key), keys);
    return true;
}

template<typename Json>
bool ResponseDecoder<Json>::readString(const Object &object, int key, QString &out)
{
    if (!require(object, key, JsonType::String, "a string"))
        return false;
    out = object.fields[key]->toString();
    return true;
}

template<typename Json>
bool ResponseDecoder<Json>::readString(const Object &object, int key, std::optional<QString> &out)
{
    if (!object.has(key))
        return true;
    out.emplace();
    return readString(object, key, *out);
}

template<typename Json>
bool ResponseDecoder<Json>::readInteger(const Object &object, int key, qint64 &out)
{
    const std::optional<Json> &field = object.fields[key];
    if (!field)
        return fail({ Failure::KeyNotFound, object.pathOf(key) });
    const auto value = field->type() == JsonType::Number ? field->toInteger() : std::nullopt;
    if (!value)
        return fail({ Failure::TypeMismatch, object.pathOf(key), "an integer", *field });
    out = *value;
    return true;
}

// Leaves `out` as it is when the key is absent or null.
template<typename Json>
bool ResponseDecoder<Json>::readDouble(const Object &object, int key, double &out)
{
    if (!object.has(key))
        return true;
    if (!require(object, key, JsonType::Number, "a number"))
        return false;
    out = object.fields[key]->toDouble();
    return true;
}

template<typename Json>
bool ResponseDecoder<Json>::decodeMeta(const Object &meta, InAppMessageActionMeta &out)
{
    if (!readString(meta, keys::ScenarioId, out.scenarioId)
        || !readString(meta, keys::UpdatedAt, out.updatedAt))
        return false;
    out.updatedDate = detail::parseUpdatedDate(out.updatedAt);
    if (meta.has(keys::Priority) && !readInteger(meta, keys::Priority, out.priority))
        return false;
    return readString(meta, keys::ActionType, out.actionType);
}

template<typename Json>
bool ResponseDecoder<Json>::decodeText(const Object &parent, int key,
                                       std::optional<TextContent> &out)
{
    if (!parent.has(key))
        return true;
    Object text;
    out.emplace();
    return readObject(parent, key, keys::text, text) && readString(text, keys::TextText, out->text)
        && readString(text, keys::TextColor, out->textColor)
        && readString(text, keys::TextBackground, out->backgroundColor);
}

template<typename Json>
bool ResponseDecoder<Json>::decodeCreative(const Object &action, SingleMessageCreative &out)
{
    Object creative, image;
    if (!readObject(action, keys::Creative, keys::creative, creative)
        || !readObject(creative, keys::Image, keys::image, image)
        || !readString(image, keys::Url, out.image.url)
        || !readString(image, keys::ImageLink, out.image.linkUrl)
        || !decodeText(creative, keys::Title, out.title)
        || !decodeText(creative, keys::Body, out.body))
        return false;
    if (creative.has(keys::Button)) {
        Object button;
        out.button.emplace();
        if (!readObject(creative, keys::Button, keys::button, button)
            || !readString(button, keys::ButtonText, out.button->text)
            || !readString(button, keys::ButtonLink, out.button->linkUrl)
            || !readString(button, keys::ButtonColor, out.button->textColor)
            || !readString(button, keys::ButtonBackground, out.button->backgroundColor))
            return false;
    }
    return readString(creative, keys::CreativeBackground, out.backgroundColor);
}

template<typename Json>
bool ResponseDecoder<Json>::decodeLength(const Object &size, int key, ContentsLength &out)
{
    Object length;
    qint64 value = 0;
    QString unit;
    if (!readObject(size, key, keys::length, length)
        || !readInteger(length, keys::LengthValue, value) || !readString(length, keys::Unit, unit))
        return false;
    if (unit == u"px")
        out.unit = ContentsLength::Unit::Px;
    else if (unit == u"percentage")
        out.unit = ContentsLength::Unit::Percentage;
    else
        return fail(
            { Failure::UnknownUnit, length.pathOf(keys::Unit), "", *length.fields[keys::Unit] });
    if (ContentsLength::boundsError(value, out.unit)) {
        Failure failure { Failure::LengthOutOfBounds, length.pathOf(keys::LengthValue) };
        failure.length = value;
        failure.unit = out.unit;
        return fail(std::move(failure));
    }
    out.length = int(value);
    return true;
}

template<typename Json>
bool ResponseDecoder<Json>::decodePopupBanner(const Object &action, PopupBannerAction &out)
{
    if (!action.has(keys::Layout))
        return true;
    Object layout;
    std::optional<QString> location;
    if (!readObject(action, keys::Layout, keys::layout, layout)
        || !readString(layout, keys::Location, location))
        return false;
    if (location)
        out.position = displayPositionFromRawValue(*location).value_or(DisplayPosition::Top);
    if (layout.has(keys::Margin)) {
        Object margin;
        if (!readObject(layout, keys::Margin, keys::margin, margin)
            || !readDouble(margin, keys::Top, out.margin.top)
            || !readDouble(margin, keys::Bottom, out.margin.bottom)
            || !readDouble(margin, keys::Left, out.margin.left)
            || !readDouble(margin, keys::Right, out.margin.right))
            return false;
    }
    if (layout.has(keys::Size)) {
        Object size;
        ContentsSize contentsSize;
        if (!readObject(layout, keys::Size, keys::size, size)
            || !decodeLength(size, keys::Width, contentsSize.width))
            return false;
        if (size.has(keys::Height)
            && !decodeLength(size, keys::Height, contentsSize.height.emplace()))
            return false;
        out.size = contentsSize;
    }
    return true;
}

template<typename Json>
bool ResponseDecoder<Json>::decodeAction(const Json &value, qsizetype index,
                                         InAppMessageAction &out)
{
    const JsonPath path = JsonPath::action(index);
    if (value.type() != JsonType::Object)
        return fail({ Failure::NotAnObject, path, "", value });
    const Object action = read(value, path, keys::action);
    Object meta;
    if (!readObject(action, keys::Meta, keys::meta, meta) || !decodeMeta(meta, out.meta))
        return false;
    // "creative_type" is deliberately not read: every supported message is a single-message
    // creative, and a missing or unknown creative type must not cost the message.

    const QString &type = out.meta.actionType;
    if (type == u"popup_modal") {
        PopupModalAction modal;
        if (!decodeCreative(action, modal.creative))
            return false;
        out.contents = InAppMessage::fromPopupModal(modal);
    } else if (type == u"popup_banner") {
        PopupBannerAction banner;
        if (!decodeCreative(action, banner.creative) || !decodePopupBanner(action, banner))
            return false;
        out.contents = InAppMessage::fromPopupBanner(banner);
    } else if (type == u"embedded_banner") {
        EmbeddedBannerAction embedded;
        if (!decodeCreative(action, embedded.creative))
            return false;
        if (action.has(keys::Layout)) {
            Object layout;
            std::optional<QString> componentId;
            if (!readObject(action, keys::Layout, keys::layout, layout)
                || !readString(layout, keys::ComponentId, componentId))
                return false;
            embedded.componentId = componentId.value_or(QString());
        }
        out.contents = InAppMessage::fromEmbeddedBanner(embedded);
    } else {
        // Unknown types are kept without reading creative or layout, so that a newer back end
        // never breaks an older library however its new creatives look.
        out.contents = InAppMessage::unsupported(type);
    }
    return true;
}

template<typename Json> void ResponseDecoder<Json>::skipped(qsizetype index)
{
    if (++m_skipped <= maxSkipWarnings) {
        detail::printWarning(u"Skipping malformed action at index "_s + QString::number(index)
                             + u": "_s + m_failure.description());
    }
}

template<typename Json>
Expected<APIResponse, DecodingError> ResponseDecoder<Json>::decode(const Json &root)
{
    if (root.type() != JsonType::Object)
        return DecodingError { u"expected an object at top level, found "_s
                               + typeName(root.type()) };
    const Object envelope = read(root, JsonPath(), keys::envelope);
    if (!envelope.has(keys::Actions))
        return DecodingError { u"key not found or null: actions"_s };
    const Json &actions = *envelope.fields[keys::Actions];
    if (actions.type() != JsonType::Array) {
        return DecodingError { u"type mismatch at actions: expected an array, found "_s
                               + typeName(actions.type()) };
    }

    APIResponse response;
    response.actions.reserve(actions.size());
    qsizetype index = 0;
    actions.forEachElement([&](const Json &element) {
        InAppMessageAction action;
        if (decodeAction(element, index, action))
            response.actions.append(std::move(action));
        else
            skipped(index);
        ++index;
    });
    if (m_skipped > maxSkipWarnings) {
        detail::printWarning(u"Skipped "_s + QString::number(m_skipped - maxSkipWarnings)
                             + u" more malformed actions in this response."_s);
    }
    // Read after the actions, so their warnings are printed even when "status" fails.
    if (envelope.has(keys::Status) && !readString(envelope, keys::Status, response.status))
        return DecodingError { m_failure.description() };
    return response;
}

// True when a number anywhere in the document reads as zero, the only value a literal that
// underflows (1e-400) can take; Qt rejects such a document, simdjson does not.
bool hasZeroDouble(simdjson::dom::element element)
{
    using simdjson::dom::element_type;
    switch (element.type()) {
    case element_type::DOUBLE:
        return element.get_double().value_unsafe() == 0;
    case element_type::ARRAY: {
        const simdjson::dom::array array = element.get_array().value_unsafe();
        return std::any_of(array.begin(), array.end(), hasZeroDouble);
    }
    case element_type::OBJECT: {
        const simdjson::dom::object object = element.get_object().value_unsafe();
        return std::any_of(object.begin(), object.end(),
                           [](const auto &field) { return hasZeroDouble(field.value); });
    }
    default:
        return false;
    }
}

// A literal can only underflow with a negative exponent or with hundreds of zeros after the
// point. Checked on the bytes only when the document holds a zero, so 0.0 stays on the fast path.
bool mayHoldUnderflow(const QByteArray &body)
{
    for (qsizetype i = body.indexOf('-', 2); i != -1; i = body.indexOf('-', i + 1)) {
        const char exponent = body[i - 1], digit = body[i - 2];
        if ((exponent == 'e' || exponent == 'E') && digit >= '0' && digit <= '9')
            return true;
    }
    return body.contains(QByteArray(300, '0'));
}

// A parser keeps its buffers, about fifteen times the largest document it has read. One per
// thread is kept for the usual small responses; a large one, or a decode that starts while the
// thread's parser is in use (from a warning sink), gets a parser of its own.
constexpr qsizetype maxKeptParserInput = 1 << 20;
thread_local simdjson::dom::parser threadParser;
thread_local bool threadParserInUse = false;

class ParserLease
{
public:
    explicit ParserLease(qsizetype inputSize)
    {
        if (inputSize <= maxKeptParserInput && !threadParserInUse)
            m_shared = threadParserInUse = true;
        else
            m_own.emplace();
    }
    ~ParserLease()
    {
        if (m_shared)
            threadParserInUse = false;
    }
    Q_DISABLE_COPY_MOVE(ParserLease)

    simdjson::dom::parser &parser() { return m_shared ? threadParser : *m_own; }

private:
    bool m_shared = false;
    std::optional<simdjson::dom::parser> m_own;
};

} // namespace

QDateTime detail::parseUpdatedDate(const QString &updatedAt)
{
    if (auto date = parseInternetDateTime(updatedAt, FractionalSeconds::Required))
        return *date;
    if (auto date = parseInternetDateTime(updatedAt, FractionalSeconds::Forbidden))
        return *date;
    detail::printWarning(
        u"Failed to parse updated_at as ISO8601; falling back to the current time. updatedAt=\""_s
        + leftGraphemes(updatedAt, 200) + u'"');
    return QDateTime::currentDateTimeUtc();
}

Expected<APIResponse, DecodingError> detail::decodeWithQJsonDocument(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        return DecodingError { u"the data is not valid JSON: "_s + parseError.errorString()
                               + u" at offset "_s + QString::number(parseError.offset) };
    }
    const QJsonValue root
        = document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
    return ResponseDecoder<QtJsonValue>().decode(QtJsonValue(root));
}

Expected<APIResponse, DecodingError> decodeAPIResponse(const QByteArray &body)
{
    // simdjson reads a little past the end of what it parses, so the body is copied into the
    // parser's padded buffer. Parsing in place when the allocation happens to have room after
    // the bytes saved about 1.5% and would depend on how the body was allocated.
    ParserLease lease(body.size());
    simdjson::dom::element root;
    const bool parsed = lease.parser().parse(body.constData(), size_t(body.size())).get(root)
        == simdjson::SUCCESS;

    // Qt is the reference: it accepts a few things simdjson does not (a byte-order mark, raw
    // control characters and lone surrogates in strings, "1." and ".5", integers beyond 64
    // bits), rejects underflowing numbers, and its error text is what callers see. Such
    // documents, and every invalid one, take the QJsonDocument path.
    if (!parsed || !(root.is_object() || root.is_array())
        || (hasZeroDouble(root) && mayHoldUnderflow(body)))
        return detail::decodeWithQJsonDocument(body);
    return ResponseDecoder<SimdjsonValue>().decode(SimdjsonValue(root));
}

} // namespace velmora
