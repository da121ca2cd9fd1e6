#include "layout/bannerlayout.h"

#include <algorithm>

namespace velmora::layout {

Row rowOf(DisplayPosition position)
{
    switch (position) {
    case DisplayPosition::TopLeft:
    case DisplayPosition::Top:
    case DisplayPosition::TopRight:
        return Row::Top;
    case DisplayPosition::CenterLeft:
    case DisplayPosition::Center:
    case DisplayPosition::CenterRight:
        return Row::Center;
    case DisplayPosition::BottomLeft:
    case DisplayPosition::Bottom:
    case DisplayPosition::BottomRight:
        return Row::Bottom;
    }
    return Row::Top;
}

Column columnOf(DisplayPosition position)
{
    switch (position) {
    case DisplayPosition::TopLeft:
    case DisplayPosition::CenterLeft:
    case DisplayPosition::BottomLeft:
        return Column::Left;
    case DisplayPosition::Top:
    case DisplayPosition::Center:
    case DisplayPosition::Bottom:
        return Column::Center;
    case DisplayPosition::TopRight:
    case DisplayPosition::CenterRight:
    case DisplayPosition::BottomRight:
        return Column::Right;
    }
    return Column::Center;
}

namespace {
qreal resolveLength(const ContentsLength &length, qreal safeExtent, qreal marginSum)
{
    const qreal available = std::max(0.0, safeExtent - marginSum);
    const qreal requested = length.unit == ContentsLength::Unit::Px
        ? qreal(length.length)
        : qreal(length.length) * safeExtent / 100.0;
    return std::max(0.0, std::min(available, requested));
}
} // namespace

ResolvedSize resolveSize(const ContentsSize &size, const ScreenSnapshot &snapshot,
                         const Margin &margin)
{
    const QSizeF safe = snapshot.safeSize();
    ResolvedSize resolved;
    resolved.width = resolveLength(size.width, safe.width(), margin.left + margin.right);
    if (size.height)
        resolved.height = resolveLength(*size.height, safe.height(), margin.top + margin.bottom);
    return resolved;
}

qreal keyboardOffset(Row row, std::optional<qreal> keyboardHeight, qreal bottomSafeInset)
{
    if (row != Row::Bottom || !keyboardHeight)
        return 0;
    return -(*keyboardHeight - bottomSafeInset);
}

QRectF bannerRootFrame(const BannerTarget &target, DisplayPosition position, bool hasExplicitSize,
                       qreal height)
{
    const qreal targetWidth = target.size.width();
    const Column column = columnOf(position);
    const bool narrowed = column != Column::Center && !hasExplicitSize;
    const qreal width = narrowed ? bannerstyle::sideWidthFactor * targetWidth : targetWidth;
    const qreal x = narrowed && column == Column::Right ? targetWidth - width : 0;

    const QMarginsF &insets = target.safeAreaInsets;
    qreal y = 0;
    switch (rowOf(position)) {
    case Row::Top:
        y = target.topAnchorY.value_or(insets.top());
        break;
    case Row::Center: {
        const qreal safeTop = insets.top();
        const qreal safeBottom = target.size.height() - insets.bottom();
        y = (safeTop + safeBottom) / 2 - height / 2;
        break;
    }
    case Row::Bottom: {
        const qreal bottom = target.bottomAnchorY.value_or(target.size.height() - insets.bottom());
        y = bottom + target.keyboardOffset - height;
        break;
    }
    }
    return { x, y, width, height };
}

QRectF bannerCardFrame(qreal rootWidth, const QMarginsF &rootSafeAreaInsets, Column column,
                       const Margin &margin, const std::optional<ResolvedSize> &size,
                       qreal contentHeight)
{
    if (!size) {
        const qreal width = std::max(0.0, rootWidth - margin.left - margin.right);
        return { margin.left, margin.top, width, contentHeight };
    }

    const qreal width = size->width;
    const qreal safeLeft = rootSafeAreaInsets.left();
    const qreal safeRight = rootWidth - rootSafeAreaInsets.right();
    qreal x = 0;
    switch (column) {
    case Column::Left:
        x = safeLeft + margin.left;
        break;
    case Column::Center:
        x = (safeLeft + safeRight) / 2 - width / 2;
        break;
    case Column::Right:
        x = safeRight - margin.right - width;
        break;
    }
    return { x, margin.top, width, size->height.value_or(contentHeight) };
}

BannerLayout::BannerLayout(const BannerTarget &target, DisplayPosition position,
                           const Margin &margin, const std::optional<ResolvedSize> &size)
    : m_target(target)
    , m_position(position)
    , m_margin(margin)
    , m_size(size)
    , m_rootSpan(bannerRootFrame(target, position, size.has_value(), 0))
{ }

BannerLayout::BannerLayout(const BannerTarget &target, const PopupBannerAction &action,
                           const ScreenSnapshot &snapshot)
    : BannerLayout(target, action.position, action.margin,
                   action.size ? std::optional(resolveSize(*action.size, snapshot, action.margin))
                               : std::nullopt)
{ }

qreal BannerLayout::cardWidth() const
{
    return frames(0).card.width();
}

BannerFrames BannerLayout::frames(qreal contentHeight) const
{
    // Only a sized card uses the root's safe area, and a sized root spans its target, so the
    // root's safe area is the target's.
    const QRectF card = bannerCardFrame(m_rootSpan.width(), m_target.safeAreaInsets,
                                        columnOf(m_position), m_margin, m_size, contentHeight);
    const qreal rootHeight = std::max(0.0, m_margin.top + card.height() + m_margin.bottom);
    return { bannerRootFrame(m_target, m_position, m_size.has_value(), rootHeight), card };
}

qreal bannerImageRatio(const QSizeF &imageSize, qreal currentRatio)
{
    if (!(imageSize.width() > 0))
        return currentRatio;
    return std::min(imageSize.height() / imageSize.width(), bannerstyle::maximumImageRatio);
}

} // namespace velmora::layout
