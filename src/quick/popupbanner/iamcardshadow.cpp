#include "popupbanner/iamcardshadow.h"

#include "painting/cardshadow.h"

#include <QPainter>

namespace velmora::quick {

IAMCardShadow::IAMCardShadow(QQuickItem *parent)
    : QQuickPaintedItem(parent)
{
    restyle();
}

IAMCardShadow::~IAMCardShadow() = default;

void IAMCardShadow::setColor(const QColor &color)
{
    if (color == m_color)
        return;
    m_color = color;
    restyle();
}

void IAMCardShadow::setOffset(QPointF offset)
{
    if (offset == m_offset)
        return;
    m_offset = offset;
    restyle();
}

void IAMCardShadow::setBlurRadius(qreal radius)
{
    if (qFuzzyCompare(radius, m_blurRadius))
        return;
    m_blurRadius = radius;
    restyle();
}

void IAMCardShadow::setCornerRadius(qreal radius)
{
    if (qFuzzyCompare(radius, m_cornerRadius))
        return;
    m_cornerRadius = radius;
    restyle();
}

void IAMCardShadow::setCardRect(const QRectF &rect)
{
    if (rect == m_cardRect)
        return;
    m_cardRect = rect;
    Q_EMIT cardRectChanged();
    update();
}

qreal IAMCardShadow::extent() const
{
    return m_shadow->extent();
}

void IAMCardShadow::restyle()
{
    // The shadow caches its rendered template per style, so a new style needs a new one.
    m_shadow = std::make_unique<CardShadow>(m_color, m_offset, m_blurRadius, m_cornerRadius);
    Q_EMIT styleChanged();
    update();
}

void IAMCardShadow::paint(QPainter *painter)
{
    if (m_cardRect.isEmpty() || m_color.alpha() == 0)
        return;
    m_shadow->paint(*painter, m_cardRect);
}

} // namespace velmora::quick
