#pragma once

// Builds messages from short tokens so that test tables stay readable:
//   "banner:A@top"          popup banner, scenario A, at the top position
//   "banner:B@top:blank"    the same with nothing to draw (see creative() for variants)
//   "modal:M1"              popup modal
//   "embedded:E1#hero"      embedded banner for component "hero" ("embedded:E2#" has none)
//   "unsupported:U1=carousel"

#include "model/inappmessageaction.h"
#include "presentation/actionclassification.h"
#include <VelmoraInAppMessaging/displayposition.h>

#include <QObject>
#include <QStringList>
#include <QUrl>

namespace fixtures {

using namespace velmora;
using namespace Qt::StringLiterals;

// "" has an image only, "title", "body" and "button" that text only, "emptytexts" empty
// texts and "blank" nothing at all.
inline SingleMessageCreative creative(QStringView variant = {})
{
    SingleMessageCreative creative;
    if (variant.isEmpty())
        creative.image.url = u"https://img.example.com/banner.png"_s;
    if (variant == u"title" || variant == u"emptytexts")
        creative.title = TextContent { variant == u"title" ? u"Hello"_s : QString(), {}, {} };
    if (variant == u"body" || variant == u"emptytexts")
        creative.body = TextContent { variant == u"body" ? u"Body"_s : QString(), {}, {} };
    if (variant == u"button")
        creative.button = ButtonContent { u"Buy"_s, {}, {}, {} };
    return creative;
}

inline QList<InAppMessageAction> parseAll(const QStringList &tokens)
{
    QList<InAppMessageAction> actions;
    for (const QString &token : tokens) {
        const QString kind = token.section(u':', 0, 0);
        const QString body = token.section(u':', 1, 1);
        const SingleMessageCreative look = creative(token.section(u':', 2, 2));
        InAppMessageAction action;
        action.meta.scenarioId = body.section(u'@', 0, 0).section(u'#', 0, 0).section(u'=', 0, 0);
        if (kind == u"banner") {
            const auto position = displayPositionFromRawValue(body.section(u'@', 1));
            action.contents = InAppMessage::fromPopupBanner({ *position, {}, {}, look });
        } else if (kind == u"modal") {
            action.contents = InAppMessage::fromPopupModal(PopupModalAction { look });
        } else if (kind == u"embedded") {
            action.contents = InAppMessage::fromEmbeddedBanner({ body.section(u'#', 1), look });
        } else {
            action.contents = InAppMessage::unsupported(body.section(u'=', 1));
        }
        action.meta.actionType = action.contents.rawType();
        actions.append(action);
    }
    return actions;
}

/// "top:A" → a popup banner pair as the coordinator hands it to the store; "top:A:title"
/// with another creative().
inline QList<ClassifiedPopupBanner> popupPairs(const QStringList &tokens)
{
    QList<ClassifiedPopupBanner> pairs;
    for (const QString &token : tokens) {
        const InAppMessageAction banner
            = parseAll({ u"banner:"_s + token.section(u':', 1, 1) + u'@' + token.section(u':', 0, 0)
                         + u':' + token.section(u':', 2) })[0];
        pairs.append({ banner, *banner.contents.popupBannerAction() });
    }
    return pairs;
}

// Stands in for the system's URL opener, as a host intercepting links would.
class UrlRecorder : public QObject
{
    Q_OBJECT

public:
    QStringList *log = nullptr;

public Q_SLOTS:
    void open(const QUrl &url) { log->append(u"open "_s + url.toString()); }
};

} // namespace fixtures
