#include "network/apiresponse.h"

#include "common/logging.h"
#include "network/iso8601.h"
#include "network/jsonreader.h"
#include <VelmoraInAppMessaging/embeddedbanneraction.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>
#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QJsonDocument>
#include <QJsonParseError>
#include <QTextBoundaryFinder>

using namespace Qt::StringLiterals;

namespace velmora {

using detail::DecodingFailure;
using detail::JsonReader;

namespace {

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

TextContent decodeText(const JsonReader &reader)
{
    return { reader.requiredString(u"text"), reader.optionalString(u"text_color"),
             reader.optionalString(u"background_color") };
}

SingleMessageCreative decodeCreative(const JsonReader &reader)
{
    SingleMessageCreative creative;
    const JsonReader image = reader.requiredObject(u"image");
    creative.image = { image.requiredString(u"url"), image.optionalString(u"link_url") };
    if (const auto title = reader.optionalObject(u"title"))
        creative.title = decodeText(*title);
    if (const auto body = reader.optionalObject(u"body"))
        creative.body = decodeText(*body);
    if (const auto button = reader.optionalObject(u"button")) {
        creative.button
            = ButtonContent { button->requiredString(u"text"), button->optionalString(u"link_url"),
                              button->optionalString(u"text_color"),
                              button->optionalString(u"background_color") };
    }
    creative.backgroundColor = reader.optionalString(u"background_color");
    return creative;
}

ContentsLength decodeLength(const JsonReader &reader)
{
    ContentsLength length;
    const qint64 value = reader.requiredInteger(u"length");
    const QString unit = reader.requiredString(u"unit");
    if (unit == u"px")
        length.unit = ContentsLength::Unit::Px;
    else if (unit == u"percentage")
        length.unit = ContentsLength::Unit::Percentage;
    else
        reader.failDataCorrupted(u"unit", u"unknown unit \""_s + unit + u'"');
    if (const auto error = ContentsLength::boundsError(value, length.unit))
        reader.failDataCorrupted(u"length", *error);
    length.length = int(value);
    return length;
}

Margin decodeMargin(const JsonReader &reader)
{
    return { reader.optionalDouble(u"top").value_or(0),
             reader.optionalDouble(u"bottom").value_or(0),
             reader.optionalDouble(u"left").value_or(0),
             reader.optionalDouble(u"right").value_or(0) };
}

PopupBannerAction decodePopupBanner(const JsonReader &action, SingleMessageCreative creative)
{
    PopupBannerAction banner;
    banner.creative = std::move(creative);
    const auto layout = action.optionalObject(u"layout");
    if (!layout)
        return banner;
    if (const auto location = layout->optionalString(u"location"))
        banner.position = displayPositionFromRawValue(*location).value_or(DisplayPosition::Top);
    if (const auto margin = layout->optionalObject(u"margin"))
        banner.margin = decodeMargin(*margin);
    if (const auto size = layout->optionalObject(u"size")) {
        ContentsSize contentsSize;
        contentsSize.width = decodeLength(size->requiredObject(u"width"));
        if (const auto height = size->optionalObject(u"height"))
            contentsSize.height = decodeLength(*height);
        banner.size = contentsSize;
    }
    return banner;
}

InAppMessageActionMeta decodeMeta(const JsonReader &reader)
{
    InAppMessageActionMeta meta;
    meta.scenarioId = reader.requiredString(u"scenario_id");
    meta.updatedAt = reader.requiredString(u"updated_at");
    meta.updatedDate = detail::parseUpdatedDate(meta.updatedAt);
    meta.priority = reader.optionalInteger(u"priority").value_or(50);
    meta.actionType = reader.requiredString(u"action_type");
    return meta;
}

InAppMessageAction decodeAction(const QJsonValue &value, const QString &path)
{
    const JsonReader action(value, path);
    InAppMessageAction result;
    result.meta = decodeMeta(action.requiredObject(u"meta"));
    // "creative_type" is deliberately not read: every supported message is a single-message
    // creative, and a missing or unknown creative type must not cost the message.

    const QString &type = result.meta.actionType;
    if (type == u"popup_modal") {
        const SingleMessageCreative creative = decodeCreative(action.requiredObject(u"creative"));
        result.contents = InAppMessage::fromPopupModal(PopupModalAction { creative });
    } else if (type == u"popup_banner") {
        SingleMessageCreative creative = decodeCreative(action.requiredObject(u"creative"));
        result.contents
            = InAppMessage::fromPopupBanner(decodePopupBanner(action, std::move(creative)));
    } else if (type == u"embedded_banner") {
        EmbeddedBannerAction embedded;
        embedded.creative = decodeCreative(action.requiredObject(u"creative"));
        if (const auto layout = action.optionalObject(u"layout"))
            embedded.componentId = layout->optionalString(u"component_id").value_or(QString());
        result.contents = InAppMessage::fromEmbeddedBanner(embedded);
    } else {
        // Unknown types are kept without reading creative or layout, so that a newer back end
        // never breaks an older library however its new creatives look.
        result.contents = InAppMessage::unsupported(type);
    }
    return result;
}

} // namespace

QDateTime detail::parseUpdatedDate(const QString &updatedAt)
{
    if (auto date = parseInternetDateTime(updatedAt, FractionalSeconds::Required))
        return *date;
    if (auto date = parseInternetDateTime(updatedAt, FractionalSeconds::Forbidden))
        return *date;
    printWarning(
        u"Failed to parse updated_at as ISO8601; falling back to the current time. updatedAt=\""_s
        + leftGraphemes(updatedAt, 200) + u'"');
    return QDateTime::currentDateTimeUtc();
}

Expected<APIResponse, DecodingError> decodeAPIResponse(const QByteArray &body)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        return DecodingError { u"the data is not valid JSON: "_s + parseError.errorString()
                               + u" at offset "_s + QString::number(parseError.offset) };
    }
    try {
        const JsonReader envelope(document.isObject() ? QJsonValue(document.object())
                                                      : QJsonValue(document.array()),
                                  QString());
        if (!envelope.has(u"actions")) {
            throw DecodingFailure(u"key not found or null: actions"_s);
        }
        const QJsonValue actionsValue = document.object().value(u"actions");
        if (!actionsValue.isArray()) {
            throw DecodingFailure(u"type mismatch at actions: expected an array, found "_s
                                  + JsonReader::typeName(actionsValue));
        }
        APIResponse response;

        const QJsonArray actions = actionsValue.toArray();
        response.actions.reserve(actions.size());
        for (qsizetype index = 0; index < actions.size(); ++index) {
            const QString path = u"actions["_s + QString::number(index) + u']';
            try {
                response.actions.append(decodeAction(actions.at(index), path));
            } catch (const DecodingFailure &failure) {
                detail::printWarning(u"Skipping malformed action at index "_s
                                     + QString::number(index) + u": "_s + failure.description());
            }
        }
        // Read after the actions, so their warnings are printed even when "status" fails.
        response.status = envelope.optionalString(u"status").value_or(QString());
        return response;
    } catch (const DecodingFailure &failure) {
        return DecodingError { failure.description() };
    }
}

} // namespace velmora
