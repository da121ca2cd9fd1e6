#pragma once

#include "model/inappmessageaction.h"
#include <VelmoraInAppMessaging/embeddedbanneraction.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>
#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <QList>
#include <QString>

#include <optional>

namespace velmora {

struct ClassifiedModal
{
    InAppMessageAction action;
    PopupModalAction content;
};

struct ClassifiedPopupBanner
{
    InAppMessageAction action;
    PopupBannerAction content;
};

struct ClassifiedEmbeddedBanner
{
    InAppMessageAction action;
    EmbeddedBannerAction content;
};

struct ClassifiedUnsupported
{
    InAppMessageAction action;
    QString rawType;
};

/// Splits a sorted action list by what shows each message. Every function keeps the list's
/// order, which is the display ranking.
namespace classify {

/// The highest-ranked modal; modals are not tested for content.
std::optional<ClassifiedModal> firstModal(const QList<InAppMessageAction> &actions);
/// At most one banner per position: the first displayable one. A banner with nothing to draw
/// does not claim its position, so a lower-ranked banner there can still be shown.
QList<ClassifiedPopupBanner> popupBanners(const QList<InAppMessageAction> &actions);
/// Every displayable embedded banner that names a component; the others match no slot.
QList<ClassifiedEmbeddedBanner> embeddedBanners(const QList<InAppMessageAction> &actions);
/// Every message of a type this library does not know, with the type as received.
QList<ClassifiedUnsupported> unsupported(const QList<InAppMessageAction> &actions);

} // namespace classify

} // namespace velmora
