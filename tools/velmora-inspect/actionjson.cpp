#include "actionjson.h"

#include "network/httpsredirectguarddelegate.h"
#include "presentation/colors.h"
#include "presentation/linkopening.h"
#include <VelmoraInAppMessaging/embeddedbanneraction.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>

#include <QJsonValue>

using namespace Qt::StringLiterals;

namespace velmora::inspect {

namespace {

QJsonValue optionalText(const std::optional<QString> &text)
{
    return text ? QJsonValue(*text) : QJsonValue(QJsonValue::Null);
}

QJsonValue textToJson(const std::optional<TextContent> &text)
{
    if (!text)
        return QJsonValue::Null;
    return QJsonObject { { u"text"_s, text->text },
                         { u"text_color"_s, optionalText(text->textColor) },
                         { u"background_color"_s, optionalText(text->backgroundColor) } };
}

QJsonObject creativeToJson(const SingleMessageCreative &creative)
{
    QJsonValue button = QJsonValue::Null;
    if (creative.button) {
        button = QJsonObject { { u"text"_s, creative.button->text },
                               { u"link_url"_s, optionalText(creative.button->linkUrl) },
                               { u"text_color"_s, optionalText(creative.button->textColor) },
                               { u"background_color"_s,
                                 optionalText(creative.button->backgroundColor) } };
    }
    return {
        { u"image"_s,
          QJsonObject { { u"url"_s, creative.image.url },
                        { u"link_url"_s, optionalText(creative.image.linkUrl) } } },
        { u"title"_s, textToJson(creative.title) },
        { u"body"_s, textToJson(creative.body) },
        { u"button"_s, button },
        { u"background_color"_s, optionalText(creative.backgroundColor) },
    };
}

QJsonValue lengthToJson(const std::optional<ContentsLength> &length)
{
    if (!length)
        return QJsonValue::Null;
    return QJsonObject { { u"length"_s, length->length }, { u"unit"_s, rawValue(length->unit) } };
}

void lintColour(QStringList &findings, const QString &field, const std::optional<QString> &text)
{
    if (!text || text->isEmpty())
        return;
    const QString quoted = u'"' + *text + u'"';
    if (!hexColor(*text)) {
        QString hint;
        if (text->startsWith(u'#'))
            hint = u" (write the hex digits without \"#\")"_s;
        else if (text->trimmed() != *text)
            hint = u" (remove the surrounding blanks)"_s;
        findings.append(field + u": colour "_s + quoted + u" is rejected by the colour parser"_s
                        + hint + u"; the default colour is used"_s);
        return;
    }
    const qsizetype digits
        = text->size() - ((text->startsWith(u'+') || text->startsWith(u'-')) ? 1 : 0);
    if (digits != 6) {
        const QColor colour = *hexColor(*text);
        findings.append(field + u": colour "_s + quoted + u" is not six hex digits and shows as "_s
                        + colour.name(QColor::HexRgb).toUpper());
    }
}

void lintLink(QStringList &findings, const QString &field, const std::optional<QString> &link)
{
    if (!link)
        return;
    switch (LinkDecision::of(*link).kind) {
    case LinkDecision::Kind::Ignore:
    case LinkDecision::Kind::Open:
        return;
    case LinkDecision::Kind::InvalidURL:
        findings.append(field + u": \""_s + *link
                        + u"\" is not a valid URL; tapping reports an error"_s);
        return;
    case LinkDecision::Kind::UnsupportedScheme:
        findings.append(field + u": \""_s + *link
                        + u"\" will not open: only http and https links are opened"_s);
        return;
    }
}

void lintText(QStringList &findings, const QString &field, const std::optional<TextContent> &text)
{
    if (!text)
        return;
    lintColour(findings, field + u".text_color"_s, text->textColor);
    lintColour(findings, field + u".background_color"_s, text->backgroundColor);
}

} // namespace

QStringList lintAction(const InAppMessageAction &action)
{
    QStringList findings;
    const SingleMessageCreative *creative = action.contents.creative();
    if (!creative)
        return findings;

    const QString &url = creative->image.url;
    if (!url.isEmpty() && HTTPSRedirectGuardDelegate::rawScheme(url) != u"https")
        findings.append(u"image.url: \""_s + url + u"\" is not https; the image will not load"_s);
    lintLink(findings, u"image.link_url"_s, creative->image.linkUrl);
    lintText(findings, u"title"_s, creative->title);
    lintText(findings, u"body"_s, creative->body);
    if (creative->button) {
        lintColour(findings, u"button.text_color"_s, creative->button->textColor);
        lintColour(findings, u"button.background_color"_s, creative->button->backgroundColor);
        lintLink(findings, u"button.link_url"_s, creative->button->linkUrl);
    }
    lintColour(findings, u"background_color"_s, creative->backgroundColor);

    const auto type = action.contents.type();
    if (type != InAppMessage::Type::PopupModal && !creative->isDisplayable()) {
        findings.append(
            u"creative has no image URL, title text or body text; it is not displayed"_s);
    }
    if (type == InAppMessage::Type::EmbeddedBanner && action.contents.componentId().isEmpty())
        findings.append(u"layout.component_id is empty; the banner matches no embedded slot"_s);
    return findings;
}

QJsonObject actionToJson(const InAppMessageAction &action)
{
    const InAppMessage &message = action.contents;
    QJsonObject json {
        { u"scenario_id"_s, action.meta.scenarioId },
        { u"updated_at"_s, action.meta.updatedAt },
        { u"updated_date"_s, action.meta.updatedDate.toUTC().toString(Qt::ISODateWithMs) },
        { u"priority"_s, action.meta.priority },
    };
    switch (message.type()) {
    case InAppMessage::Type::PopupModal:
        json.insert(u"type"_s, u"popup_modal"_s);
        break;
    case InAppMessage::Type::PopupBanner: {
        const PopupBannerAction &banner = *message.popupBannerAction();
        json.insert(u"type"_s, u"popup_banner"_s);
        json.insert(u"position"_s, rawValue(banner.position));
        json.insert(u"margin"_s,
                    QJsonObject { { u"top"_s, banner.margin.top },
                                  { u"bottom"_s, banner.margin.bottom },
                                  { u"left"_s, banner.margin.left },
                                  { u"right"_s, banner.margin.right } });
        QJsonValue size = QJsonValue::Null;
        if (banner.size) {
            size = QJsonObject { { u"width"_s, lengthToJson(banner.size->width) },
                                 { u"height"_s, lengthToJson(banner.size->height) } };
        }
        json.insert(u"size"_s, size);
        break;
    }
    case InAppMessage::Type::EmbeddedBanner:
        json.insert(u"type"_s, u"embedded_banner"_s);
        json.insert(u"component_id"_s, message.componentId());
        break;
    case InAppMessage::Type::Unsupported:
        json.insert(u"type"_s, u"unsupported"_s);
        json.insert(u"raw_type"_s, message.rawType());
        break;
    }
    if (const SingleMessageCreative *creative = message.creative()) {
        json.insert(u"creative"_s, creativeToJson(*creative));
        json.insert(u"lint"_s, QJsonArray::fromStringList(lintAction(action)));
    }
    return json;
}

QJsonArray actionsToJson(const QList<InAppMessageAction> &actions)
{
    QJsonArray array;
    for (const InAppMessageAction &action : actions)
        array.append(actionToJson(action));
    return array;
}

} // namespace velmora::inspect
