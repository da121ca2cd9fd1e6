#include "utilities/labeltextlayout.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextOption>

using namespace Qt::StringLiterals;

namespace velmora::detail {

namespace {

// Line breaks as QTextLayout understands them.
QString withLineSeparators(QString text)
{
    text.replace(u"\r\n"_s, u"\n"_s);
    text.replace(u'\r', u'\n');
    text.replace(u'\n', QChar::LineSeparator);
    return text;
}

// For a width that is "unlimited": big enough for any label, small enough for QFixed.
constexpr qreal unboundedWidth = 1e6;

} // namespace

LabelTextLayout::LabelTextLayout(const QString &text, const QFont &font, QPaintDevice *device,
                                 const Options &options)
    : m_layout(withLineSeparators(text), font, device)
    , m_font(font)
    , m_device(device)
    , m_options(options)
{
    const bool bounded = options.width >= 0;
    const qreal width = bounded ? options.width : unboundedWidth;
    QTextOption textOption(options.horizontalAlignment);
    textOption.setWrapMode(options.wordWrap && bounded ? QTextOption::WrapAtWordBoundaryOrAnywhere
                                                       : QTextOption::NoWrap);
    m_layout.setTextOption(textOption);
    m_layout.setCacheEnabled(true);

    const qreal leading = std::max<qreal>(0, QFontMetricsF(font, device).leading());
    qreal y = 0;
    bool textLeftOver = false;
    m_layout.beginLayout();
    for (QTextLine line = m_layout.createLine(); line.isValid(); line = m_layout.createLine()) {
        line.setLineWidth(width);
        const qreal top = m_lines.empty() ? 0 : y + leading;
        const bool overLineLimit
            = options.maxLines > 0 && qsizetype(m_lines.size()) >= options.maxLines;
        const bool overHeight = !m_lines.empty() && top + line.height() > options.maxHeight;
        if (overLineLimit || overHeight) {
            textLeftOver = true;
            break;
        }
        line.setPosition(QPointF(0, top));
        y = top + line.height();
        m_lines.push_back(Line { line, nullptr, top });
    }
    m_layout.endLayout();
    m_height = y;

    const QString &laidOut = m_layout.text();
    for (size_t i = 0; i < m_lines.size(); ++i) {
        Line &entry = m_lines[i];
        const bool last = i + 1 == m_lines.size();
        const bool tooWide = bounded && entry.line.naturalTextWidth() > width + 0.01;
        if (last && textLeftOver) {
            // What the last line cannot hold is cut with an ellipsis; later paragraphs run on
            // after a space, as a tail-truncating label does.
            QString rest = laidOut.mid(entry.line.textStart());
            rest.replace(QChar::LineSeparator, u' ');
            QFontMetricsF metrics(font, device);
            const QString shown = metrics.elidedText(rest, Qt::ElideRight, width);
            entry.elided = singleLine(shown, width);
            m_elided = m_elided || shown != rest;
        } else if (tooWide) {
            const QString lineText = laidOut.mid(entry.line.textStart(), entry.line.textLength())
                                         .remove(QChar::LineSeparator);
            const QString shown
                = QFontMetricsF(font, device).elidedText(lineText, Qt::ElideRight, width);
            entry.elided = singleLine(shown, width);
            m_elided = true;
        }
        const qreal lineWidth = entry.elided ? entry.elided->lineAt(0).naturalTextWidth()
                                             : entry.line.naturalTextWidth();
        m_naturalWidth = std::max(m_naturalWidth, lineWidth);
    }
}

LabelTextLayout::~LabelTextLayout() = default;

std::unique_ptr<QTextLayout> LabelTextLayout::singleLine(const QString &text, qreal width) const
{
    auto layout = std::make_unique<QTextLayout>(text, m_font, m_device);
    QTextOption textOption(m_options.horizontalAlignment);
    textOption.setWrapMode(QTextOption::NoWrap);
    layout->setTextOption(textOption);
    layout->beginLayout();
    QTextLine line = layout->createLine();
    line.setLineWidth(width);
    line.setPosition(QPointF(0, 0));
    layout->endLayout();
    return layout;
}

QString LabelTextLayout::lineText(qsizetype index) const
{
    if (index < 0 || index >= lineCount())
        return {};
    const Line &entry = m_lines[size_t(index)];
    if (entry.elided)
        return entry.elided->text();
    return m_layout.text()
        .mid(entry.line.textStart(), entry.line.textLength())
        .remove(QChar::LineSeparator);
}

void LabelTextLayout::draw(QPainter &painter, QPointF topLeft) const
{
    for (const Line &entry : m_lines) {
        if (entry.elided)
            entry.elided->draw(&painter, topLeft + QPointF(0, entry.y));
        else
            entry.line.draw(&painter, topLeft);
    }
}

} // namespace velmora::detail
