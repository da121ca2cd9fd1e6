#include "utilities/paddedlabel.h"

#include "utilities/labeltextlayout.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QStyle>

#include <cmath>

namespace velmora {

using detail::LabelTextLayout;

PaddedLabel::PaddedLabel(QWidget *parent)
    : PaddedLabel(QString(), parent)
{ }

PaddedLabel::PaddedLabel(const QString &text, QWidget *parent)
    : QLabel(text, parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void PaddedLabel::setTextInsets(const QMargins &insets)
{
    if (insets == m_textInsets)
        return;
    m_textInsets = insets;
    updateGeometry();
    update();
}

void PaddedLabel::setMaximumLineCount(int lines)
{
    lines = std::max(0, lines);
    if (lines == m_maximumLineCount)
        return;
    m_maximumLineCount = lines;
    updateGeometry();
    update();
}

QColor PaddedLabel::textColor() const
{
    return palette().color(QPalette::WindowText);
}

void PaddedLabel::setTextColor(const QColor &color)
{
    QPalette p = palette();
    p.setColor(QPalette::WindowText, color);
    setPalette(p);
}

void PaddedLabel::setBackgroundColor(const QColor &color)
{
    if (color == m_backgroundColor)
        return;
    m_backgroundColor = color;
    update();
}

QSize PaddedLabel::textSize(qreal textWidth) const
{
    if (text().isEmpty())
        return { 0, 0 };
    LabelTextLayout::Options options;
    options.width = textWidth;
    options.maxLines = m_maximumLineCount;
    options.wordWrap = wordWrap();
    const LabelTextLayout layout(text(), font(), const_cast<PaddedLabel *>(this), options);
    return { int(std::ceil(layout.naturalWidth())), int(std::ceil(layout.height())) };
}

QSize PaddedLabel::sizeHint() const
{
    // Each paragraph on one line, as wide as it needs; layouts narrow it by heightForWidth().
    return textSize(-1).grownBy(m_textInsets);
}

QSize PaddedLabel::minimumSizeHint() const
{
    // Any width down to one character: the text wraps or is elided to fit.
    const QFontMetricsF metrics(font(), const_cast<PaddedLabel *>(this));
    const QSize oneLine(int(std::ceil(metrics.horizontalAdvance(u'M'))),
                        text().isEmpty() ? 0 : int(std::ceil(metrics.height())));
    return oneLine.grownBy(m_textInsets);
}

bool PaddedLabel::hasHeightForWidth() const
{
    return wordWrap();
}

int PaddedLabel::heightForWidth(int width) const
{
    const int textWidth = std::max(0, width - m_textInsets.left() - m_textInsets.right());
    return textSize(textWidth).height() + m_textInsets.top() + m_textInsets.bottom();
}

void PaddedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    if (m_backgroundColor.isValid() && m_backgroundColor.alpha() > 0)
        painter.fillRect(rect(), m_backgroundColor);
    if (text().isEmpty())
        return;

    const QRectF box = QRectF(rect()).marginsRemoved(m_textInsets.toMarginsF());
    LabelTextLayout::Options options;
    options.width = std::max<qreal>(0, box.width());
    options.maxHeight = box.height();
    options.maxLines = m_maximumLineCount;
    options.wordWrap = wordWrap();
    options.horizontalAlignment
        = QStyle::visualAlignment(layoutDirection(), alignment()) & Qt::AlignHorizontal_Mask;
    const LabelTextLayout layout(text(), font(), this, options);

    qreal top = box.top() + (box.height() - layout.height()) / 2;
    if (alignment() & Qt::AlignTop)
        top = box.top();
    else if (alignment() & Qt::AlignBottom)
        top = box.bottom() - layout.height();
    // Baselines on whole device pixels keep the glyphs sharp.
    const qreal ratio = std::max<qreal>(1, painter.deviceTransform().m11());
    top = std::round(top * ratio) / ratio;

    painter.setPen(palette().color(QPalette::WindowText));
    layout.draw(painter, QPointF(box.left(), top));
}

} // namespace velmora
