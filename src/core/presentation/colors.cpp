#include "presentation/colors.h"

namespace velmora {

std::optional<QColor> hexColor(QStringView hex, qreal alpha)
{
    if (hex.isEmpty())
        return std::nullopt;
    qsizetype i = 0;
    bool negative = false;
    if (hex[0] == u'+' || hex[0] == u'-') {
        negative = hex[0] == u'-';
        i = 1;
    }
    if (i == hex.size())
        return std::nullopt;

    // Accumulate the magnitude in 64 unsigned bits and check the signed range at the end, so
    // "-8000000000000000" is accepted and "8000000000000000" is not.
    quint64 magnitude = 0;
    for (; i < hex.size(); ++i) {
        const char16_t c = hex[i].unicode();
        int digit;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        else
            return std::nullopt;
        if (magnitude > (~quint64(0) >> 4))
            return std::nullopt;
        magnitude = (magnitude << 4) | quint64(digit);
    }
    constexpr quint64 maxPositive = quint64(1) << 63; // exclusive for +, inclusive for -
    if (negative ? magnitude > maxPositive : magnitude >= maxPositive)
        return std::nullopt;
    const quint64 bits = negative ? (~magnitude + 1) : magnitude; // two's complement

    const int red = int((bits >> 16) & 0xff);
    const int green = int((bits >> 8) & 0xff);
    const int blue = int(bits & 0xff);
    return QColor::fromRgbF(float(red / 255.0), float(green / 255.0), float(blue / 255.0),
                            float(alpha));
}

namespace palette {

QColor defaultTitleTextColor()
{
    return QColor(29, 38, 53);
}

QColor defaultBodyTextColor()
{
    return QColor(51, 51, 51);
}

QColor coverImagePlaceholderColor()
{
    QColor color(88, 105, 118);
    color.setAlphaF(0.1f);
    return color;
}

QColor closeButtonIconColor()
{
    return QColor(68, 70, 75);
}

QColor closeButtonBackgroundColor()
{
    return QColor(211, 212, 219);
}

} // namespace palette

Colors::Colors(QObject *parent)
    : QObject(parent)
{ }

QVariant Colors::hexColor(const QString &text, qreal alpha) const
{
    const std::optional<QColor> color = velmora::hexColor(text, alpha);
    return color ? QVariant(*color) : QVariant();
}

} // namespace velmora
