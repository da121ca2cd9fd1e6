#include <VelmoraInAppMessaging/contentssize.h>

#include <algorithm>

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

namespace {
double resolveLength(const ContentsLength &length, double safeExtent, double marginSum)
{
    const double available = std::max(0.0, safeExtent - marginSum);
    const double requested = length.unit == ContentsLength::Unit::Px
        ? double(length.length)
        : double(length.length) * safeExtent / 100.0;
    return std::min(available, requested);
}
} // namespace

ContentsSize::Resolved ContentsSize::resolve(const ScreenSnapshot &snapshot,
                                             const Margin &margin) const
{
    const QMarginsF &insets = snapshot.safeAreaInsets;
    const double safeWidth = snapshot.bounds.width() - insets.left() - insets.right();
    const double safeHeight = snapshot.bounds.height() - insets.top() - insets.bottom();

    Resolved resolved;
    resolved.width = resolveLength(width, safeWidth, margin.left + margin.right);
    if (height)
        resolved.height = resolveLength(*height, safeHeight, margin.top + margin.bottom);
    return resolved;
}

} // namespace velmora
