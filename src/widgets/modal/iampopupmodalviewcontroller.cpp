#include "modal/iampopupmodalviewcontroller.h"

#include "card/cardbutton.h"
#include "card/cardtext.h"
#include "layout/modallayout.h"
#include "layout/style.h"
#include "painting/cardshadow.h"
#include "presentation/colors.h"
#include "presentation/linkopening.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/iamclosebutton.h"
#include "utilities/paddedlabel.h"
#include "utilities/widgetfade.h"

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QScrollArea>
#include <QScrollBar>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

namespace style = layout::modalstyle;

// The card with its shadow. It fades as one widget with everything on it, while the dim is
// painted by the window underneath: the fade takes this widget's one graphics effect, so the
// shadow is painted rather than being an effect too.
class IAMPopupModalViewController::CardFrame : public QWidget
{
public:
    CardFrame(QColor color, QWidget *parent)
        : QWidget(parent)
        , m_color(color)
        , m_shadow(QColor::fromRgbF(0, 0, 0, style::shadowOpacity), style::shadowOffset,
                   style::shadowRadius, style::cornerRadius)
    {
        setAttribute(Qt::WA_NoSystemBackground);
    }

    int extent() const { return int(std::ceil(m_shadow.extent())); }
    QRect cardRect() const { return rect().adjusted(extent(), extent(), -extent(), -extent()); }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF card(cardRect());
        m_shadow.paint(painter, card);
        QPainterPath path;
        path.addRoundedRect(card, style::cornerRadius, style::cornerRadius);
        painter.fillPath(path, m_color);
    }

private:
    QColor m_color;
    CardShadow m_shadow;
};

IAMPopupModalViewController::IAMPopupModalViewController(PopupModalAction content)
    : QWidget(nullptr, Qt::Dialog | Qt::FramelessWindowHint)
    , PopupModalInteraction(std::move(content))
    , m_imageRatio(style::placeholderImageRatio)
{
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setObjectName(u"popupModal"_s);
    buildContent();
}

IAMPopupModalViewController::~IAMPopupModalViewController() = default;

void IAMPopupModalViewController::buildContent()
{
    const SingleMessageCreative &creative = modalContent().creative;
    m_frame = new CardFrame(
        hexColor(creative.backgroundColor.value_or(QString())).value_or(Qt::white), this);
    m_frame->setObjectName(u"card"_s);

    m_image = new IAMAnimatedImageView(m_frame);
    m_image->setObjectName(u"coverImage"_s);
    m_image->setPlaceholderColor(palette::coverImagePlaceholderColor());
    m_image->setContentMode(IAMAnimatedImageView::ContentMode::AspectFill);
    m_image->setCornerRadius(style::cornerRadius, IAMAnimatedImageView::TopCorners);
    m_image->installEventFilter(this);
    if (!creative.image.linkUrl.value_or(QString()).isEmpty()) {
        m_image->setCursor(Qt::PointingHandCursor);
        m_image->setFocusPolicy(Qt::StrongFocus);
        m_image->setAccessibleName(tr("Open link"));
        m_image->setAccessibleButton(true);
    } else {
        m_image->setFocusPolicy(Qt::NoFocus);
    }

    // Text taller than the window scrolls under the image, so the close button on the card
    // stays where the user can reach it.
    m_scroll = new QScrollArea(m_frame);
    m_scroll->setObjectName(u"contentScroll"_s);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setFocusPolicy(Qt::NoFocus);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setWidgetResizable(false);
    m_scroll->setAttribute(Qt::WA_TranslucentBackground);
    m_scroll->viewport()->setAutoFillBackground(false);
    // A slim bar inside the card's inset, clear of its rounded corner, not the desktop's.
    m_scroll->verticalScrollBar()->setStyleSheet(
        u"QScrollBar:vertical { width: 6px; background: transparent; margin: 8px 2px 12px 0; }"
        u"QScrollBar::handle:vertical { background: rgba(0, 0, 0, 64); border-radius: 2px;"
        u" min-height: 24px; }"
        u"QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
        u"QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }"_s);
    m_stack = new QWidget;
    m_stack->setObjectName(u"stack"_s);
    m_stack->setAutoFillBackground(false);
    m_scroll->setWidget(m_stack);
    // setWidget() makes the content opaque in the window colour; the card shows through.
    m_stack->setAutoFillBackground(false);

    m_title = new PaddedLabel(m_stack);
    m_title->setObjectName(u"title"_s);
    applyCardText(m_title, font(), creative.title,
                  { style::titlePixelSize, QFont::Bold, palette::defaultTitleTextColor(),
                    style::textBackgroundPadding });
    m_body = new PaddedLabel(m_stack);
    m_body->setObjectName(u"body"_s);
    applyCardText(m_body, font(), creative.body,
                  { style::bodyPixelSize, QFont::Normal, palette::defaultBodyTextColor(),
                    style::textBackgroundPadding });

    if (creative.button && !creative.button->text.isEmpty()) {
        m_button = new CardButton(*creative.button, style::cornerRadius, m_stack);
        connect(m_button, &CardButton::clicked, this, [this] { positiveButtonActivated(); });
    }

    // Created last, so it is above the image.
    m_closeButton = new IAMCloseButton(m_frame);
    m_closeButton->setObjectName(u"closeButton"_s);
    connect(m_closeButton, &IAMCloseButton::clicked, this, [this] { closeButtonActivated(); });

    setTabOrder(m_closeButton, m_image);
    if (m_button)
        setTabOrder(m_image, m_button);

    const QString name = hasText(creative.title) ? creative.title->text
        : hasText(creative.body)                 ? creative.body->text
                                                 : tr("Message");
    setWindowTitle(name);
    setAccessibleName(name);
    setAccessibleDescription(hasText(creative.body) ? creative.body->text : QString());
}

void IAMPopupModalViewController::showOver(QWidget *hostWindow)
{
    Q_ASSERT(hostWindow && hostWindow->isWindow());
    m_host = hostWindow;
    // A parent makes the window transient for the host: it stays above it and goes with it.
    setParent(hostWindow, windowFlags());
    hostWindow->installEventFilter(this);
    followHost();

    m_frame->hide();
    show();
    raise();
    activateWindow();
    WidgetFade::show(m_frame);
    m_closeButton->setFocus(Qt::OtherFocusReason);
    animateDim(1);

    QPointer<IAMPopupModalViewController> self(this);
    m_image->loadFromUrl(modalContent().creative.image.url, [self](QSize size) {
        if (self)
            self->imageLoaded(size);
    });
}

void IAMPopupModalViewController::followHost()
{
    if (m_host)
        setGeometry(m_host->geometry());
}

void IAMPopupModalViewController::setDimOpacity(qreal opacity)
{
    m_dimOpacity = opacity;
    update();
}

void IAMPopupModalViewController::animateDim(qreal to)
{
    if (!m_dimAnimation) {
        m_dimAnimation = new QPropertyAnimation(this, "dimOpacity", this);
        m_dimAnimation->setDuration(int(layout::fadeDuration.count()));
    }
    m_dimAnimation->stop();
    m_dimAnimation->setStartValue(m_dimOpacity);
    m_dimAnimation->setEndValue(to);
    m_dimAnimation->start();
}

void IAMPopupModalViewController::relayout()
{
    const QSizeF root = size();
    const qreal width = std::round(layout::modalCardWidth(root.width()));
    const int imageHeight
        = int(std::round(layout::modalImageHeight(width, m_imageRatio, root.height())));
    const int insets = int(style::contentInsets);
    const int textWidth = std::max(0, int(width) - 2 * insets);

    int y = insets;
    bool hasItem = false;
    for (PaddedLabel *label : { m_title, m_body }) {
        if (label->isHidden())
            continue;
        y += hasItem ? int(style::stackSpacing) : 0;
        const int height = label->heightForWidth(textWidth);
        label->setGeometry(insets, y, textWidth, height);
        y += height;
        hasItem = true;
    }
    if (m_button) {
        y += hasItem ? int(style::stackSpacing) : 0;
        m_button->setGeometry(insets, y, textWidth, int(style::buttonHeight));
        y += int(style::buttonHeight);
    }
    const int stackHeight = y + insets;

    const QRectF frame = layout::modalCardFrame(root, imageHeight + stackHeight);
    m_cardRect = QRect(int(std::round(frame.x())), int(std::round(frame.y())), int(width),
                       int(std::round(frame.height())));
    const int extent = m_frame->extent();
    m_frame->setGeometry(m_cardRect.adjusted(-extent, -extent, extent, extent));
    const QRect card = m_frame->cardRect();
    m_image->setGeometry(card.x(), card.y(), card.width(), imageHeight);

    const int visibleStack = std::max(0, card.height() - imageHeight);
    const bool scrolls = stackHeight > visibleStack;
    m_stack->resize(int(width) - (scrolls ? m_scroll->verticalScrollBar()->sizeHint().width() : 0),
                    stackHeight);
    m_scroll->setVerticalScrollBarPolicy(scrolls ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
    m_scroll->setGeometry(card.x(), card.y() + imageHeight, card.width(), visibleStack);

    const int close = int(layout::closebutton::area);
    m_closeButton->setGeometry(card.right() + 1 - close, card.y(), close, close);
    m_closeButton->raise();
    update();
}

void IAMPopupModalViewController::imageLoaded(QSize size)
{
    m_imageRatio = layout::modalImageRatio(QSizeF(size), m_imageRatio);
    relayout();
}

bool IAMPopupModalViewController::event(QEvent *event)
{
    // Hosts restyle at run time; the card's text measures with the new fonts.
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        relayout();
    // Keyboard users start on the way out; the window may activate after it is shown.
    if (event->type() == QEvent::WindowActivate && !focusWidget())
        m_closeButton->setFocus(Qt::ActiveWindowFocusReason);
    return QWidget::event(event);
}

bool IAMPopupModalViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_host) {
        if (event->type() == QEvent::Move || event->type() == QEvent::Resize)
            followHost();
    } else if (watched == m_image) {
        switch (event->type()) {
        case QEvent::MouseButtonPress:
            return true;
        case QEvent::MouseButtonRelease: {
            const auto *mouse = static_cast<QMouseEvent *>(event);
            if (mouse->button() == Qt::LeftButton
                && m_image->rect().contains(mouse->position().toPoint()))
                coverImageActivated();
            return true;
        }
        case QEvent::KeyPress: {
            const int key = static_cast<QKeyEvent *>(event)->key();
            if (key == Qt::Key_Space || key == Qt::Key_Return || key == Qt::Key_Enter) {
                coverImageActivated();
                return true;
            }
            break;
        }
        default:
            break;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void IAMPopupModalViewController::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        closeButtonActivated();
        return;
    }
    QWidget::keyPressEvent(event);
}

void IAMPopupModalViewController::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), QColor::fromRgbF(0, 0, 0, style::dimAlpha * m_dimOpacity));
}

void IAMPopupModalViewController::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    relayout();
}

void IAMPopupModalViewController::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    reportOpenIfNeeded();
}

void IAMPopupModalViewController::dismissWithAnimation(std::function<void()> completion)
{
    animateDim(0);
    WidgetFade::hide(m_frame, std::move(completion));
}

} // namespace velmora
