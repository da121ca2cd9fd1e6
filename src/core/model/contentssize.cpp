#include <VelmoraInAppMessaging/contentssize.h>

using namespace Qt::StringLiterals;

namespace velmora {

std::optional<QString> ContentsLength::boundsError(qint64 length, Unit unit)
{
    const bool px = unit == Unit::Px;
    const qint64 upper = px ? 999 : 100;
    if (length >= 1 && length <= upper)
        return std::nullopt;
    return (px ? u"px"_s : u"percentage"_s) + u" length must be between 1 and "_s
        + QString::number(upper) + u", got "_s + QString::number(length);
}

QString rawValue(ContentsLength::Unit unit)
{
    return unit == ContentsLength::Unit::Px ? u"px"_s : u"percentage"_s;
}

} // namespace velmora
