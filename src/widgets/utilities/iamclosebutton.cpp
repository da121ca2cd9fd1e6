#include "utilities/iamclosebutton.h"

#include "presentation/colors.h"
#include "painting/closeglyph.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

// A plain QWidget is announced as a pane; this makes it a pressable button.
class CloseButtonAccessible : public QAccessibleWidget
{
public:
    explicit CloseButtonAccessible(QWidget *widget)
        : QAccessibleWidget(widget, QAccessible::Button)
    { }

    QStringList actionNames() const override
    {
        return QStringList(pressAction()) + QAccessibleWidget::actionNames();
    }

    void doAction(const QString &actionName) override
    {
        if (actionName == pressAction())
            static_cast<IAMCloseButton *>(widget())->click();
        else
            QAccessibleWidget::doAction(actionName);
    }
};

QAccessibleInterface *closeButtonAccessibleFactory(const QString &, QObject *object)
{
    if (auto *button = qobject_cast<IAMCloseButton *>(object))
        return new CloseButtonAccessible(button);
    return nullptr;
}

// Snaps a logical coordinate to the nearest device pixel boundary, so that the disc, whose
// diameter is a whole number of pixels at every integer ratio, has symmetric edges.
qreal snapped(qreal logical, qreal devicePixelRatio)
{
    return std::round(logical * devicePixelRatio) / devicePixelRatio;
}

} // namespace

IAMCloseButton::IAMCloseButton(QWidget *parent)
    : QWidget(parent)
{
    static const bool accessibleFactoryInstalled = [] {
        QAccessible::installFactory(closeButtonAccessibleFactory);
        return true;
    }();
    Q_UNUSED(accessibleFactoryInstalled)

    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Close"));
    setCursor(Qt::PointingHandCursor);
}

QSize IAMCloseButton::sizeHint() const
{
    return { 44, 44 };
}

QSize IAMCloseButton::minimumSizeHint() const
{
    return { int(discDiameter), int(discDiameter) };
}

void IAMCloseButton::click()
{
    Q_EMIT clicked();
}

void IAMCloseButton::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // The ratio of the device actually painted on: grab() and render() into a high-density
    // image report the widget's own ratio through devicePixelRatio().
    const qreal ratio = std::max<qreal>(1, painter.deviceTransform().m11());
    const QPointF centre(snapped(width() / 2.0, ratio), snapped(height() / 2.0, ratio));

    painter.setPen(Qt::NoPen);
    painter.setBrush(palette::closeButtonBackgroundColor());
    painter.drawEllipse(centre, discDiameter / 2, discDiameter / 2);
    paintCloseGlyph(painter, centre, glyphSize, palette::closeButtonIconColor());

    // Keyboard users need to see where focus is; a mouse tap does not show the ring.
    if (hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
        // Edges on whole pixels along the axes, 2 clear of the disc.
        const qreal ringWidth = 2;
        const qreal radius = discDiameter / 2 + 2 + ringWidth / 2;
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(QWidget::palette().color(QPalette::Highlight), ringWidth));
        painter.drawEllipse(centre, radius, radius);
    }
}

void IAMCloseButton::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    m_pressed = true;
}

void IAMCloseButton::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_pressed)
        event->ignore();
}

void IAMCloseButton::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !m_pressed) {
        event->ignore();
        return;
    }
    m_pressed = false;
    // Like a touch-up inside: sliding off before letting go cancels.
    if (rect().contains(event->position().toPoint()))
        click();
}

void IAMCloseButton::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Space:
    case Qt::Key_Enter:
    case Qt::Key_Return:
    case Qt::Key_Select:
        if (!event->isAutoRepeat())
            click();
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

void IAMCloseButton::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    update();
}

void IAMCloseButton::focusOutEvent(QFocusEvent *event)
{
    m_pressed = false;
    QWidget::focusOutEvent(event);
    update();
}

} // namespace velmora
