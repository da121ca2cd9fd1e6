#pragma once

#include <QColor>
#include <QVariantAnimation>
#include <QWidget>

namespace velmora {

/// The loading placeholder of an embedded banner: a light grey block with a soft white band
/// sweeping across it from left to right, once every 1.5 s, for as long as it is on screen.
///
/// The sweep runs only while the view is visible in a window and wider than 0; hiding it,
/// or taking it out of its window, stops the animation, and showing it starts the sweep over.
class IAMShimmerUIView : public QWidget
{
    Q_OBJECT

public:
    /// Duration of one sweep.
    static constexpr int sweepMs = 1500;
    /// Width of the white band as a share of the view's width.
    static constexpr qreal bandWidthFactor = 0.6;

    explicit IAMShimmerUIView(QWidget *parent = nullptr);
    ~IAMShimmerUIView() override;

    /// The grey behind the band: #E5E5EA, the fifth system grey of a light appearance.
    static QColor baseColor();

    bool isAnimating() const { return m_sweep.state() == QAbstractAnimation::Running; }
    /// The band's left edge in this view's coordinates, from -0.6 × width to width.
    qreal bandX() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void restartAnimation();

    QVariantAnimation m_sweep;
    QSize m_lastAnimatedSize;
};

} // namespace velmora
