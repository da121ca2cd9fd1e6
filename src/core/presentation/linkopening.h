#pragma once

#include "service/callbacks.h"

#include <QString>
#include <QUrl>

namespace velmora {

/// What opening a creative's link would do.
struct LinkDecision
{
    enum class Kind {
        Ignore, ///< empty link: nothing happens, nothing is reported
        Open, ///< http or https, any letter case: opened externally
        InvalidURL, ///< not a URL at all
        UnsupportedScheme, ///< any other scheme, or none: custom schemes are never opened
    };
    Kind kind = Kind::Ignore;
    QUrl url;

    static LinkDecision of(const QString &urlString);
};

/// Opens http and https links through QDesktopServices (hosts can intercept them with
/// QDesktopServices::setUrlHandler); reports anything else to `onError` as a precondition
/// error quoting the whole link.
void openLinkIfNeeded(const QString &urlString, const InAppMessage &message,
                      const MessageErrorHandler &onError);

} // namespace velmora
