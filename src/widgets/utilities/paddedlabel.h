#pragma once

#include <QColor>
#include <QLabel>
#include <QMargins>

namespace velmora {

/// The text label of message views: plain text (a creative's text is never read as markup)
/// kept `textInsets` away from its edges, the insets included in its size hints, so that a
/// background colour shows as padding around the text. It wraps at word boundaries, shows at
/// most maximumLineCount() lines, ending the last one with an ellipsis when text is left
/// over, and places the text by alignment() (vertically centred by default).
///
///     auto *title = new PaddedLabel(card);
///     title->setFont(boldFontOfPixelSize(14));
///     title->setAlignment(Qt::AlignCenter);
///     title->setMaximumLineCount(3);
///     title->setBackgroundColor(background);
///     title->setTextInsets(QMargins(8, 8, 8, 8));
///
/// Only the text, font, alignment, word wrap and the WindowText colour of QLabel apply;
/// pixmaps, movies, rich text, margin() and indent() are not shown.
class PaddedLabel : public QLabel
{
    Q_OBJECT
    Q_PROPERTY(QMargins textInsets READ textInsets WRITE setTextInsets)
    Q_PROPERTY(int maximumLineCount READ maximumLineCount WRITE setMaximumLineCount)
    Q_PROPERTY(QColor textColor READ textColor WRITE setTextColor)
    Q_PROPERTY(QColor backgroundColor READ backgroundColor WRITE setBackgroundColor)

public:
    explicit PaddedLabel(QWidget *parent = nullptr);
    explicit PaddedLabel(const QString &text, QWidget *parent = nullptr);

    QMargins textInsets() const { return m_textInsets; }
    void setTextInsets(const QMargins &insets);

    /// 0 (the default) for no limit.
    int maximumLineCount() const { return m_maximumLineCount; }
    void setMaximumLineCount(int lines);

    /// The palette's WindowText colour.
    QColor textColor() const;
    void setTextColor(const QColor &color);

    /// Painted behind the text and its insets; invalid (the default) for none.
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor &color);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QSize textSize(qreal textWidth) const;

    QMargins m_textInsets;
    QColor m_backgroundColor;
    int m_maximumLineCount = 0;
};

} // namespace velmora
