#pragma once

// Builds messages from short tokens so that test tables stay readable:
//   "banner:A@top"          popup banner, scenario A, at the top position
//   "banner:B@top:blank"    the same with nothing to draw (see creative() for variants)
//   "modal:M1"              popup modal
//   "embedded:E1#hero"      embedded banner for component "hero" ("embedded:E2#" has none)
//   "unsupported:U1=carousel"

#include "actionclassification.h"
#include "displayposition.h"
#include "inappmessageaction.h"

#include <QStringList>

namespace fixtures {

using namespace velmora;
using namespace Qt::StringLiterals;

inline SingleMessageCreative creative(QStringView variant)
{
    SingleMessageCreative creative;
    if (variant.isEmpty()) {
        creative.image.url = u"https://img.example.com/banner.png"_s;
    } else if (variant == u"title") {
        creative.title = TextContent { u"Hello"_s, {}, {} };
    } else if (variant == u"body") {
        creative.body = TextContent { u"Body"_s, {}, {} };
    } else if (variant == u"emptytexts") {
        creative.title = TextContent {};
        creative.body = TextContent {};
    } else {
        Q_ASSERT(variant == u"blank");
    }
    return creative;
}

inline InAppMessageAction action(const QString &scenarioId, const InAppMessage &contents)
{
    InAppMessageAction action;
    action.meta.scenarioId = scenarioId;
    action.meta.actionType = contents.rawType();
    action.contents = contents;
    return action;
}

inline InAppMessageAction popupBanner(const QString &scenarioId, DisplayPosition position,
                                      QStringView variant = {})
{
    PopupBannerAction banner;
    banner.position = position;
    banner.creative = creative(variant);
    return action(scenarioId, InAppMessage::fromPopupBanner(banner));
}

inline InAppMessageAction embeddedBanner(const QString &scenarioId, const QString &componentId,
                                         QStringView variant = {})
{
    EmbeddedBannerAction banner;
    banner.componentId = componentId;
    banner.creative = creative(variant);
    return action(scenarioId, InAppMessage::fromEmbeddedBanner(banner));
}

inline InAppMessageAction parse(const QString &token)
{
    const QString kind = token.section(u':', 0, 0);
    const QString body = token.section(u':', 1, 1);
    const QString variant = token.section(u':', 2, 2);
    if (kind == u"banner") {
        const auto position = displayPositionFromRawValue(body.section(u'@', 1));
        Q_ASSERT(position);
        return popupBanner(body.section(u'@', 0, 0), *position, variant);
    }
    if (kind == u"modal")
        return action(body, InAppMessage::fromPopupModal(PopupModalAction { creative(variant) }));
    if (kind == u"embedded")
        return embeddedBanner(body.section(u'#', 0, 0), body.section(u'#', 1), variant);
    Q_ASSERT(kind == u"unsupported");
    return action(body.section(u'=', 0, 0), InAppMessage::unsupported(body.section(u'=', 1)));
}

inline QList<InAppMessageAction> parseAll(const QStringList &tokens)
{
    QList<InAppMessageAction> actions;
    for (const QString &token : tokens)
        actions.append(parse(token));
    return actions;
}

/// "top:A" → a popup banner pair as the coordinator hands it to the store.
inline ClassifiedPopupBanner popupPair(const QString &token)
{
    const auto position = displayPositionFromRawValue(token.section(u':', 0, 0));
    Q_ASSERT(position);
    const InAppMessageAction banner = popupBanner(token.section(u':', 1), *position);
    return { banner, *banner.contents.popupBannerAction() };
}

} // namespace fixtures
