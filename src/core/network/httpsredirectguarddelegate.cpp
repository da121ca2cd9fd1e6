#include "network/httpsredirectguarddelegate.h"

namespace velmora {

namespace {
bool isAsciiAlpha(QChar c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}
} // namespace

QString HTTPSRedirectGuardDelegate::rawScheme(QStringView urlText)
{
    for (qsizetype i = 0; i < urlText.size(); ++i) {
        const QChar c = urlText[i];
        if (c == u':')
            return i > 0 ? urlText.left(i).toString() : QString();
        const bool allowed
            = isAsciiAlpha(c) || (i > 0 && (c.isDigit() || c == u'+' || c == u'-' || c == u'.'));
        if (!allowed || c.unicode() > 0x7f)
            return {};
    }
    return {};
}

bool HTTPSRedirectGuardDelegate::shouldAllowRedirect(QStringView target, const QUrl &current)
{
    const QString scheme = rawScheme(target.trimmed());
    if (!scheme.isEmpty())
        return scheme == u"https";
    return !target.trimmed().isEmpty() && current.isValid() && current.scheme() == u"https";
}

} // namespace velmora
