#include "presentation/linkopening.h"

#include <QDesktopServices>

using namespace Qt::StringLiterals;

namespace velmora {

LinkDecision LinkDecision::of(const QString &urlString)
{
    if (urlString.isEmpty())
        return { Kind::Ignore, {} };
    const QUrl url(urlString, QUrl::StrictMode);
    if (!url.isValid())
        return { Kind::InvalidURL, {} };
    const QString scheme = url.scheme().toLower();
    if (scheme == u"http" || scheme == u"https")
        return { Kind::Open, url };
    return { Kind::UnsupportedScheme, url };
}

void openLinkIfNeeded(const QString &urlString, const InAppMessage &message,
                      const MessageErrorHandler &onError)
{
    const LinkDecision decision = LinkDecision::of(urlString);
    switch (decision.kind) {
    case LinkDecision::Kind::Ignore:
        return;
    case LinkDecision::Kind::Open:
        // The outcome is deliberately not observed: the system decides how to open it.
        QDesktopServices::openUrl(decision.url);
        return;
    case LinkDecision::Kind::InvalidURL:
        if (onError)
            onError(message, VelmoraError::precondition(u"Invalid URL: "_s + urlString));
        return;
    case LinkDecision::Kind::UnsupportedScheme:
        if (onError)
            onError(message, VelmoraError::precondition(u"Unsupported URL scheme: "_s + urlString));
        return;
    }
}

} // namespace velmora
