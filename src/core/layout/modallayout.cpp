#include "layout/modallayout.h"

#include <algorithm>

namespace velmora::layout {

qreal modalCardWidth(qreal rootWidth)
{
    return std::clamp(modalstyle::widthFactor * rootWidth, 0.0, modalstyle::maximumWidth);
}

QRectF modalCardFrame(const QSizeF &root, qreal contentHeight)
{
    const qreal width = modalCardWidth(root.width());
    const qreal tallest = std::max(0.0, root.height() - 2 * modalstyle::verticalGap);
    const qreal height = std::clamp(contentHeight, 0.0, tallest);
    return { (root.width() - width) / 2, (root.height() - height) / 2, width, height };
}

qreal modalImageRatio(const QSizeF &imageSize, qreal currentRatio)
{
    if (!(imageSize.width() > 0))
        return currentRatio;
    return std::min(imageSize.height() / imageSize.width(), modalstyle::maximumImageRatio);
}

qreal modalImageHeight(qreal imageWidth, qreal ratio, qreal rootHeight)
{
    return std::max(
        0.0, std::min(ratio * imageWidth, modalstyle::maximumImageHeightFactor * rootHeight));
}

} // namespace velmora::layout
