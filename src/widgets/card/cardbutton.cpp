#include "card/cardbutton.h"

#include "presentation/colors.h"

#include <QFocusEvent>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>

using namespace Qt::StringLiterals;

namespace velmora {

CardButton::CardButton(QWidget *parent)
    : QAbstractButton(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setFontPixelSize(14);
}

CardButton::CardButton(const ButtonContent &content, qreal cornerRadius, QWidget *parent)
    : CardButton(parent)
{
    setObjectName(u"button"_s);
    setText(content.text);
    setAccessibleName(content.text);
    setCornerRadius(cornerRadius);
    setColors(hexColor(content.textColor.value_or(QString())).value_or(Qt::white),
              hexColor(content.backgroundColor.value_or(QString()))
                  .value_or(QGuiApplication::palette().color(QPalette::Highlight)));
}

void CardButton::setColors(const QColor &foreground, const QColor &background)
{
    m_foreground = foreground;
    m_background = background;
    update();
}

void CardButton::setCornerRadius(qreal radius)
{
    m_cornerRadius = radius;
    update();
}

void CardButton::setFontPixelSize(int pixelSize)
{
    QFont f = font();
    f.setPixelSize(pixelSize);
    f.setBold(true);
    setFont(f);
    updateGeometry();
}

QSize CardButton::sizeHint() const
{
    const QFontMetrics metrics(font());
    return { metrics.horizontalAdvance(text()) + 32, 40 };
}

QSize CardButton::minimumSizeHint() const
{
    return { 0, 40 };
}

// The ring marks keyboard navigation only; focus that arrives with a click or a window's
// activation is not worth a ring around a call to action.
void CardButton::focusInEvent(QFocusEvent *event)
{
    const Qt::FocusReason reason = event->reason();
    m_showFocusRing = reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason
        || reason == Qt::ShortcutFocusReason;
    QAbstractButton::focusInEvent(event);
}

void CardButton::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect());
    QColor fill = m_background.isValid() ? m_background : palette().color(QPalette::Highlight);
    // Pressed and hovered states shade the creative's colour instead of replacing it.
    if (isDown())
        fill = fill.darker(115);
    else if (underMouse())
        fill = fill.lighter(105);
    QPainterPath shape;
    shape.addRoundedRect(area, m_cornerRadius, m_cornerRadius);
    painter.fillPath(shape, fill);
    if (hasFocus() && m_showFocusRing) {
        QPen ring(palette().color(QPalette::Highlight).darker(130), 2);
        painter.setPen(ring);
        painter.drawRoundedRect(area.adjusted(1, 1, -1, -1), m_cornerRadius - 1,
                                m_cornerRadius - 1);
    }
    painter.setPen(m_foreground);
    painter.setFont(font());
    const QFontMetrics metrics(font());
    painter.drawText(rect().adjusted(8, 0, -8, 0), Qt::AlignCenter,
                     metrics.elidedText(text(), Qt::ElideRight, width() - 16));
}

} // namespace velmora
