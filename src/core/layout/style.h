#pragma once

#include <QPointF>
#include <QtGlobal>

#include <chrono>

// The measurements both front-ends draw with, so that a banner or modal looks the same in
// Widgets and in Qt Quick. Lengths are device-independent pixels; font sizes are pixel sizes.
namespace velmora::layout {

/// Fade-in and fade-out of banners, modals and the modal's dim.
inline constexpr std::chrono::milliseconds fadeDuration { 300 };

/// The close button shared by banners and modals: a square hit area with a disc and a cross.
namespace closebutton {
inline constexpr qreal area = 44;
inline constexpr qreal discDiameter = 24;
inline constexpr qreal glyphSize = 12;
} // namespace closebutton

namespace bannerstyle {
/// Width of a side-column banner without an explicit size, as a share of its target's width.
inline constexpr qreal sideWidthFactor = 0.75;

inline constexpr qreal stackSpacing = 4;
/// Between the image and the first text.
inline constexpr qreal textTop = 12;
/// Between the image and the button when there is neither title nor body.
inline constexpr qreal textTopButtonOnly = 16;
inline constexpr qreal textSides = 16;
inline constexpr qreal textBottom = 12;
inline constexpr qreal spacingBeforeButton = 8;
inline constexpr qreal buttonHeight = 40;
inline constexpr qreal buttonCornerRadius = 8;

inline constexpr int titlePixelSize = 14; // bold
inline constexpr int bodyPixelSize = 14; // medium
inline constexpr int maximumLines = 3;
/// Around a title or body that has a background colour.
inline constexpr qreal textBackgroundPadding = 8;

inline constexpr qreal shadowOpacity = 0.15;
inline constexpr QPointF shadowOffset { 0, 2 };
inline constexpr qreal shadowRadius = 8;

/// Image height over width until the picture's size is known: a 4:1 strip.
inline constexpr qreal placeholderImageRatio = 0.25;
/// Taller pictures are cropped rather than making the banner tall.
inline constexpr qreal maximumImageRatio = 0.5;
} // namespace bannerstyle

namespace modalstyle {
inline constexpr qreal widthFactor = 0.85;
inline constexpr qreal maximumWidth = 400;
/// The least distance between the card and the top or bottom of the window.
inline constexpr qreal verticalGap = 30;

inline constexpr qreal contentInsets = 24;
inline constexpr qreal stackSpacing = 16;
inline constexpr qreal buttonHeight = 40;
inline constexpr qreal cornerRadius = 8;

inline constexpr int titlePixelSize = 16; // bold
inline constexpr int bodyPixelSize = 14; // regular
inline constexpr qreal textBackgroundPadding = 8;

inline constexpr qreal shadowOpacity = 0.1;
inline constexpr QPointF shadowOffset { 0, 1 };
inline constexpr qreal shadowRadius = 8;
/// Alpha of the black dim behind the card once faded in.
inline constexpr qreal dimAlpha = 0.4;

/// Image height over width until the picture's size is known: 16:9.
inline constexpr qreal placeholderImageRatio = 0.5625;
inline constexpr qreal maximumImageRatio = 2.0;
/// The image never takes more than this share of the window's height.
inline constexpr qreal maximumImageHeightFactor = 0.5;
} // namespace modalstyle

} // namespace velmora::layout
