#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

#include <QAbstractButton>
#include <QColor>

namespace velmora {

/// The filled call-to-action button of a card: a rounded rectangle in the creative's
/// background colour (the palette's highlight when it gives none) with a bold centred label.
class CardButton : public QAbstractButton
{
    Q_OBJECT

public:
    explicit CardButton(QWidget *parent = nullptr);
    /// The button of a creative: its text, its colours or the fallbacks (white on the
    /// application's highlight), named "button".
    CardButton(const ButtonContent &content, qreal cornerRadius, QWidget *parent);

    void setColors(const QColor &foreground, const QColor &background);
    void setCornerRadius(qreal radius);
    void setFontPixelSize(int pixelSize);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;

private:
    QColor m_foreground = Qt::white;
    QColor m_background;
    qreal m_cornerRadius = 8;
    bool m_showFocusRing = false;
};

} // namespace velmora
