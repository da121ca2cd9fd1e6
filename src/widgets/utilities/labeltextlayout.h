#pragma once

#include <QFont>
#include <QString>
#include <QTextLayout>

#include <limits>
#include <memory>
#include <vector>

class QPaintDevice;
class QPainter;

namespace velmora::detail {

/// Plain text laid out the way a label shows it: lines wrapped at word boundaries (within a
/// word when it alone is too wide) or not at all, at most `maxLines` lines (0 for no limit)
/// and as many as fit in `maxHeight`, the last shown line ending in an ellipsis when text is
/// left over. Without wrapping, a line too wide for `width` is elided as well.
class LabelTextLayout
{
public:
    struct Options
    {
        /// Available width; negative for no limit (natural size).
        qreal width = -1;
        qreal maxHeight = std::numeric_limits<qreal>::infinity();
        int maxLines = 0;
        bool wordWrap = true;
        Qt::Alignment horizontalAlignment = Qt::AlignLeft;
    };

    LabelTextLayout(const QString &text, const QFont &font, QPaintDevice *device,
                    const Options &options);
    ~LabelTextLayout();

    qsizetype lineCount() const { return qsizetype(m_lines.size()); }
    /// The text of a shown line as drawn, ellipsis included.
    QString lineText(qsizetype index) const;
    bool isElided() const { return m_elided; }
    /// The widest shown line.
    qreal naturalWidth() const { return m_naturalWidth; }
    qreal height() const { return m_height; }

    /// Draws the lines with the painter's pen; `topLeft` is the corner of the text box of
    /// `width` given at construction.
    void draw(QPainter &painter, QPointF topLeft) const;

private:
    struct Line
    {
        QTextLine line; // from m_layout, unless replaced
        std::unique_ptr<QTextLayout> elided; // the replacement single-line layout
        qreal y = 0;
    };

    std::unique_ptr<QTextLayout> singleLine(const QString &text, qreal width) const;

    QTextLayout m_layout;
    QFont m_font;
    QPaintDevice *m_device;
    Options m_options;
    std::vector<Line> m_lines;
    qreal m_naturalWidth = 0;
    qreal m_height = 0;
    bool m_elided = false;
};

} // namespace velmora::detail
