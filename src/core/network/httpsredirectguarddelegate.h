#pragma once

#include <QString>
#include <QUrl>

namespace velmora {

/// The redirect rule of image loads: only a hop to a URL whose scheme is exactly "https" is
/// followed. A refused redirect becomes the final response.
class HTTPSRedirectGuardDelegate
{
public:
    /// The scheme as written in `urlText`, or an empty string for a relative reference. QUrl
    /// lower-cases schemes, which would let "HTTPS:" slip through an exact comparison.
    static QString rawScheme(QStringView urlText);

    /// `target` is the redirect's location as sent; a relative location keeps the scheme of
    /// `current`.
    static bool shouldAllowRedirect(QStringView target, const QUrl &current);
};

} // namespace velmora
