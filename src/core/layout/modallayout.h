#pragma once

#include "layout/style.h"

#include <QRectF>
#include <QSizeF>

// Where a popup modal's card goes in the window it covers ("root" below, its own
// coordinates). On every layout pass:
//
//     const qreal width = layout::modalCardWidth(root.width());
//     const qreal imageHeight = layout::modalImageHeight(width, ratio, root.height());
//     const qreal contentHeight = measureCardContent(width, imageHeight);
//     card->setGeometry(layout::modalCardFrame(root, contentHeight).toRect());
//
// where `ratio` starts at the placeholder and follows modalImageRatio() once the picture's
// size is known.
namespace velmora::layout {

/// 85% of the root's width, at most 400.
qreal modalCardWidth(qreal rootWidth);

/// The card centred in the root, modalCardWidth() wide and as tall as its content, keeping 30
/// from the top and bottom. Content taller than that is not allowed to push the card off the
/// window: the card is capped at the root's height less 60 (never negative) and the front-end
/// scrolls or clips the content inside it, so the close button stays reachable.
QRectF modalCardFrame(const QSizeF &root, qreal contentHeight);

/// The modal image's height over width for a picture of `imageSize`, capped so a very tall
/// picture is cropped to 1:2. A picture without a positive width keeps `currentRatio`.
qreal modalImageRatio(const QSizeF &imageSize,
                      qreal currentRatio = modalstyle::placeholderImageRatio);

/// `ratio` times the image's width, never more than half the root's height.
qreal modalImageHeight(qreal imageWidth, qreal ratio, qreal rootHeight);

} // namespace velmora::layout
