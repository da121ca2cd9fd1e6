#pragma once

#include <QWidget>

namespace velmora {

/// The round close button of banners and modals: a 24-pixel disc with a 12-point cross,
/// centred in whatever size its owner gives it (44 x 44 on cards), the whole of which is the
/// hit target. Reachable by keyboard (Space, Enter or Return activate it) and announced to
/// assistive technology as the button "Close".
///
///     auto *close = new IAMCloseButton(card);
///     close->setGeometry(card->width() - 44, 0, 44, 44);
///     connect(close, &IAMCloseButton::clicked, this, &Banner::dismiss);
class IAMCloseButton : public QWidget
{
    Q_OBJECT

public:
    static constexpr qreal discDiameter = 24;
    static constexpr qreal glyphSize = 12;

    explicit IAMCloseButton(QWidget *parent = nullptr);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

public Q_SLOTS:
    /// Activates the button as a completed tap would.
    void click();

Q_SIGNALS:
    /// A press released inside the button, or a key activation.
    void clicked();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    bool m_pressed = false;
};

} // namespace velmora
