#include "popupbanner/iambannerplacement.h"

#include "layout/bannerlayout.h"
#include "layout/screensnapshot.h"

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QQuickItem>
#include <QQuickWindow>

#include <cmath>

namespace velmora::quick {

IAMBannerPlacement::IAMBannerPlacement(QObject *parent)
    : QObject(parent)
{ }

void IAMBannerPlacement::setTarget(QQuickItem *target)
{
    if (target == m_target)
        return;
    if (m_target)
        m_target->disconnect(this);
    m_target = target;
    if (target) {
        connect(target, &QQuickItem::widthChanged, this, &IAMBannerPlacement::relayout);
        connect(target, &QQuickItem::heightChanged, this, &IAMBannerPlacement::relayout);
        connect(target, &QQuickItem::windowChanged, this, &IAMBannerPlacement::watchWindow);
    }
    watchWindow();
    Q_EMIT targetChanged();
}

void IAMBannerPlacement::setMessage(const QVariant &message)
{
    m_message = message;
    const InAppMessage value = message.value<InAppMessage>();
    const PopupBannerAction *action = value.popupBannerAction();
    m_action = action ? std::optional(*action) : std::nullopt;
    Q_EMIT messageChanged();
    relayout();
}

void IAMBannerPlacement::setContentHeight(qreal height)
{
    if (qFuzzyCompare(height + 1, m_contentHeight + 1))
        return;
    m_contentHeight = height;
    Q_EMIT contentHeightChanged();
    relayout();
}

QVariantMap IAMBannerPlacement::style()
{
    namespace style = layout::bannerstyle;
    using namespace Qt::StringLiterals;
    static const QVariantMap map {
        { u"shadowOpacity"_s, style::shadowOpacity },
        { u"shadowOffset"_s, style::shadowOffset },
        { u"shadowRadius"_s, style::shadowRadius },
        { u"stackSpacing"_s, style::stackSpacing },
        { u"textTop"_s, style::textTop },
        { u"textTopButtonOnly"_s, style::textTopButtonOnly },
        { u"textSides"_s, style::textSides },
        { u"textBottom"_s, style::textBottom },
        { u"spacingBeforeButton"_s, style::spacingBeforeButton },
        { u"buttonHeight"_s, style::buttonHeight },
        { u"buttonCornerRadius"_s, style::buttonCornerRadius },
        { u"titlePixelSize"_s, style::titlePixelSize },
        { u"bodyPixelSize"_s, style::bodyPixelSize },
        { u"maximumLines"_s, style::maximumLines },
        { u"textBackgroundPadding"_s, style::textBackgroundPadding },
        { u"placeholderImageRatio"_s, style::placeholderImageRatio },
        { u"closeButtonArea"_s, layout::closebutton::area },
        { u"fadeDuration"_s, qint64(layout::fadeDuration.count()) },
    };
    return map;
}

qreal IAMBannerPlacement::imageRatio(const QSizeF &sourceSize) const
{
    return layout::bannerImageRatio(sourceSize);
}

void IAMBannerPlacement::watchWindow()
{
    QQuickWindow *window = m_target ? m_target->window() : nullptr;
    if (window != m_window) {
        if (m_window)
            m_window->disconnect(this);
        m_window = window;
        // Percentage sizes are of the window, which a phone turns and a desktop resizes.
        if (window) {
            connect(window, &QWindow::widthChanged, this, &IAMBannerPlacement::relayout);
            connect(window, &QWindow::heightChanged, this, &IAMBannerPlacement::relayout);
        }
    }
    relayout();
}

void IAMBannerPlacement::relayout()
{
    if (!m_target || !m_action)
        return;
    layout::BannerTarget target;
    target.size = m_target->size();
    if (m_window) {
        const QRectF inWindow(m_target->mapToScene(QPointF(0, 0)), target.size);
        target.safeAreaInsets = layout::safeAreaInsetsWithin(inWindow, m_window->size(),
                                                             layout::safeAreaInsets(m_window));
    }
    const layout::BannerLayout banner(
        target, *m_action,
        layout::screenSnapshot(m_window, m_window ? m_window->screen() : nullptr));
    const layout::BannerFrames frames = banner.frames(m_contentHeight);
    // Edges are snapped, not sizes, so that a banner at the right edge ends exactly there.
    const auto snapped = [](const QRectF &rect) {
        const QPointF topLeft(std::round(rect.left()), std::round(rect.top()));
        return QRectF(topLeft, QPointF(std::round(rect.right()), std::round(rect.bottom())));
    };
    const QRectF root = snapped(frames.root);
    const QRectF card
        = snapped(frames.card.translated(frames.root.topLeft())).translated(-root.topLeft());
    const qreal cardWidth = card.width();
    if (cardWidth == m_cardWidth && root == m_rootRect && card == m_cardRect)
        return;
    m_cardWidth = cardWidth;
    m_rootRect = root;
    m_cardRect = card;
    Q_EMIT placementChanged();
}

} // namespace velmora::quick
