#pragma once

#include "layout/screensnapshot.h"
#include "layout/style.h"

#include <VelmoraInAppMessaging/contentssize.h>
#include <VelmoraInAppMessaging/displayposition.h>
#include <VelmoraInAppMessaging/margin.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>

#include <QMarginsF>
#include <QRectF>
#include <QSizeF>

#include <optional>

// Where a popup banner goes, for both front-ends. A banner is a root frame laid over its
// target (a widget, or the item a screen's overlay fills) holding the card; margins and size
// place the card inside the root. On every layout pass of the target:
//
//     layout::BannerTarget target;
//     target.size = targetSize;                           // target-local from here on
//     target.safeAreaInsets = layout::safeAreaInsetsWithin(targetRectInWindow, windowSize,
//                                                          layout::safeAreaInsets(window));
//     target.bottomAnchorY = ...;                         // the host's anchors, when given
//     target.keyboardOffset = animatedOffset;             // see keyboardOffset()
//     const layout::BannerLayout banner(target, action, layout::currentScreenSnapshot());
//     const qreal contentHeight = measureCardContent(banner.cardWidth());
//     const layout::BannerFrames frames = banner.frames(contentHeight);
//     root->setGeometry(frames.root.toRect());            // in the target
//     card->setGeometry(frames.card.toRect());            // in the root
//
// The content height is the card's content (image, texts, button) laid out at cardWidth();
// the image's height comes from bannerImageRatio().
namespace velmora::layout {

enum class Row { Top, Center, Bottom };
enum class Column { Left, Center, Right };

Row rowOf(DisplayPosition position);
Column columnOf(DisplayPosition position);

/// An explicit banner size in points.
struct ResolvedSize
{
    qreal width = 0;
    /// Absent: the card is as tall as its content.
    std::optional<qreal> height;
};

/// Percentages are of the whole safe extent, while the clamp uses the extent left between the
/// margins, so 100% with margins always resolves to the space between them. Never negative.
ResolvedSize resolveSize(const ContentsSize &size, const ScreenSnapshot &snapshot,
                         const Margin &margin);

/// How far a banner in `row` moves for the keyboard: a bottom-row banner rises by the part of
/// the keyboard above the bottom safe inset; the others stay put. `keyboardHeight` is absent
/// while the keyboard is hidden. Deliberately unclamped: a keyboard lower than the inset moves
/// the banner down by the difference.
qreal keyboardOffset(Row row, std::optional<qreal> keyboardHeight, qreal bottomSafeInset);

/// What a banner is placed against, in the target's own coordinates.
struct BannerTarget
{
    QSizeF size;
    QMarginsF safeAreaInsets;
    /// The y of the host's top anchor: replaces the safe-area top for the top row.
    std::optional<qreal> topAnchorY;
    /// The y of the host's bottom anchor: replaces the safe-area bottom for the bottom row.
    std::optional<qreal> bottomAnchorY;
    /// Added to the bottom row's bottom edge; the other rows never follow the keyboard.
    qreal keyboardOffset = 0;
};

/// The banner's root frame in the target, `height` tall. A side column without an explicit
/// size takes three quarters of the target's width at its edge; everything else spans it.
QRectF bannerRootFrame(const BannerTarget &target, DisplayPosition position, bool hasExplicitSize,
                       qreal height);

/// The card's frame in the root. Without a size it fills the root less the margins. With one
/// it is the resolved width, placed by column against the root's safe area: the centre column
/// centres on it and ignores the side margins, a side column uses only its own side's margin.
/// It is the resolved height tall when there is one, else `contentHeight`.
QRectF bannerCardFrame(qreal rootWidth, const QMarginsF &rootSafeAreaInsets, Column column,
                       const Margin &margin, const std::optional<ResolvedSize> &size,
                       qreal contentHeight);

struct BannerFrames
{
    QRectF root; ///< in the target
    QRectF card; ///< in the root
};

/// One banner's placement in one target: the card width to measure the content at, then both
/// frames for the measured content.
class BannerLayout
{
public:
    BannerLayout(const BannerTarget &target, DisplayPosition position, const Margin &margin,
                 const std::optional<ResolvedSize> &size);
    /// Resolves the action's size, if it has one, against `snapshot`.
    BannerLayout(const BannerTarget &target, const PopupBannerAction &action,
                 const ScreenSnapshot &snapshot);

    qreal cardWidth() const;
    /// The root is the card plus the top and bottom margins tall (never negative).
    BannerFrames frames(qreal contentHeight) const;

private:
    BannerTarget m_target;
    DisplayPosition m_position;
    Margin m_margin;
    std::optional<ResolvedSize> m_size;
    QRectF m_rootSpan; // x and width; the height follows the card
};

/// The banner image's height over width for a picture of `imageSize`, capped so a tall
/// picture is cropped instead of making the banner tall. A picture without a positive width
/// keeps `currentRatio`.
qreal bannerImageRatio(const QSizeF &imageSize,
                       qreal currentRatio = bannerstyle::placeholderImageRatio);

} // namespace velmora::layout
