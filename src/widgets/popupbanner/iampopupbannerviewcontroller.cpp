#include "popupbanner/iampopupbannerviewcontroller.h"

#include "card/cardbutton.h"
#include "card/cardtext.h"
#include "layout/bannerlayout.h"
#include "layout/screensnapshot.h"
#include "layout/style.h"
#include "painting/cardshadow.h"
#include "presentation/colors.h"
#include "presentation/linkopening.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/iamclosebutton.h"
#include "utilities/paddedlabel.h"
#include "utilities/widgetfade.h"

#include <VelmoraInAppMessaging/inappmessage.h>
#include <VelmoraInAppMessaging/underlyingerror.h>

#include <QEvent>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPropertyAnimation>
#include <QScreen>
#include <QWindow>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

namespace style = layout::bannerstyle;

namespace {

// The y of a host's anchor in the target, read at layout time; absent when the anchor is not
// set, has gone, or is not inside the target's window.
std::optional<qreal> anchorY(const VerticalAnchor &anchor, const QWidget *target)
{
    const auto *widget = qobject_cast<const QWidget *>(anchor.widget.data());
    if (!widget || widget->window() != target->window())
        return std::nullopt;
    const int edge = anchor.edge == VerticalAnchor::Edge::Top ? 0 : widget->height();
    return target->mapFrom(target->window(), widget->mapTo(widget->window(), QPoint(0, edge))).y();
}

} // namespace

IAMPopupBannerViewController::IAMPopupBannerViewController(PopupBannerAction content,
                                                           QWidget *parent)
    : QWidget(parent)
    , m_content(std::move(content))
    , m_shadow(std::make_unique<CardShadow>(QColor::fromRgbF(0, 0, 0, style::shadowOpacity),
                                            style::shadowOffset, style::shadowRadius))
    , m_imageRatio(style::placeholderImageRatio)
{
    setAttribute(Qt::WA_NoSystemBackground);
    buildContent();
    hide();
}

IAMPopupBannerViewController::~IAMPopupBannerViewController() = default;

InAppMessage IAMPopupBannerViewController::message() const
{
    return InAppMessage::fromPopupBanner(m_content);
}

bool IAMPopupBannerViewController::hasTextContent() const
{
    const SingleMessageCreative &creative = m_content.creative;
    return hasText(creative.title) || hasText(creative.body)
        || (creative.button && !creative.button->text.isEmpty());
}

void IAMPopupBannerViewController::buildContent()
{
    const SingleMessageCreative &creative = m_content.creative;
    m_cardColor = hexColor(creative.backgroundColor.value_or(QString())).value_or(Qt::white);

    m_card = new QWidget(this);
    m_card->setObjectName(u"card"_s);

    m_image = new IAMAnimatedImageView(m_card);
    m_image->setObjectName(u"coverImage"_s);
    m_image->setPlaceholderColor(palette::coverImagePlaceholderColor());
    m_image->setContentMode(IAMAnimatedImageView::ContentMode::AspectFill);
    m_image->installEventFilter(this);
    if (!creative.image.linkUrl.value_or(QString()).isEmpty()) {
        m_image->setCursor(Qt::PointingHandCursor);
        m_image->setAccessibleName(tr("Open link"));
        m_image->setAccessibleButton(true);
    }

    m_title = new PaddedLabel(m_card);
    m_title->setObjectName(u"title"_s);
    applyCardText(m_title, font(), creative.title,
                  { style::titlePixelSize, QFont::Bold, palette::defaultTitleTextColor(),
                    style::textBackgroundPadding, style::maximumLines });
    m_body = new PaddedLabel(m_card);
    m_body->setObjectName(u"body"_s);
    applyCardText(m_body, font(), creative.body,
                  { style::bodyPixelSize, QFont::Medium, palette::defaultBodyTextColor(),
                    style::textBackgroundPadding, style::maximumLines });

    if (creative.button && !creative.button->text.isEmpty()) {
        m_button = new CardButton(*creative.button, style::buttonCornerRadius, m_card);
        connect(m_button, &CardButton::clicked, this, [this] {
            handleClick(m_content.creative.button
                            ? m_content.creative.button->linkUrl.value_or(QString())
                            : QString());
        });
    }

    // Added last, so it is above everything on the card.
    m_closeButton = new IAMCloseButton(m_card);
    m_closeButton->setObjectName(u"closeButton"_s);
    connect(m_closeButton, &IAMCloseButton::clicked, this,
            &IAMPopupBannerViewController::dismissBanner);

    const QString name = hasText(creative.title) ? creative.title->text
        : hasText(creative.body)                 ? creative.body->text
                                                 : tr("Message");
    setAccessibleName(name);
    setAccessibleDescription(hasText(creative.body) ? creative.body->text : QString());
}

void IAMPopupBannerViewController::attach(QWidget *target, const VerticalAnchor &topAnchor,
                                          const VerticalAnchor &bottomAnchor)
{
    Q_ASSERT(target);
    m_target = target;
    m_topAnchor = topAnchor;
    m_bottomAnchor = bottomAnchor;
    setParent(target);
    hide();
    target->installEventFilter(this);
    watchScreen();
    raise();
    relayout();

    QPointer<IAMPopupBannerViewController> self(this);
    m_image->loadFromUrl(m_content.creative.image.url, [self](QSize size) {
        if (self)
            self->imageLoaded(size);
    });
}

void IAMPopupBannerViewController::detach()
{
    if (m_target)
        m_target->removeEventFilter(this);
    m_target = nullptr;
    hide();
    setParent(nullptr);
    deleteLater();
}

void IAMPopupBannerViewController::watchScreen()
{
    // The banner follows its window to other screens and through their changes of geometry
    // and orientation, like a rotation on a phone.
    QWindow *window = m_target && m_target->window() ? m_target->window()->windowHandle() : nullptr;
    if (!window)
        return;
    disconnect(m_screenChanged);
    m_screenChanged = connect(window, &QWindow::screenChanged, this, [this] {
        watchScreen();
        relayout();
    });
    for (const auto &connection : std::as_const(m_screenConnections))
        disconnect(connection);
    m_screenConnections.clear();
    m_screen = window->screen();
    if (!m_screen)
        return;
    m_screenConnections << connect(m_screen, &QScreen::geometryChanged, this,
                                   &IAMPopupBannerViewController::relayout)
                        << connect(m_screen, &QScreen::orientationChanged, this,
                                   &IAMPopupBannerViewController::relayout);
}

bool IAMPopupBannerViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_target) {
        switch (event->type()) {
        case QEvent::Resize:
        case QEvent::LayoutRequest:
            relayout();
            break;
        case QEvent::Show:
            watchScreen();
            relayout();
            break;
        case QEvent::ChildAdded:
            // A widget the host adds later would cover the banner.
            QMetaObject::invokeMethod(this, &QWidget::raise, Qt::QueuedConnection);
            break;
        default:
            break;
        }
    } else if (watched == m_image && event->type() == QEvent::MouseButtonRelease) {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() == Qt::LeftButton
            && m_image->rect().contains(mouse->position().toPoint()))
            handleClick(m_content.creative.image.linkUrl.value_or(QString()));
    } else if (watched == m_image && event->type() == QEvent::MouseButtonPress) {
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

qreal IAMPopupBannerViewController::bottomSafeInset() const
{
    if (!m_target)
        return 0;
    const QWidget *window = m_target->window();
    const QRectF targetInWindow(m_target->mapTo(window, QPoint(0, 0)), m_target->size());
    return layout::safeAreaInsetsWithin(targetInWindow, window->size(),
                                        layout::safeAreaInsets(window->windowHandle()))
        .bottom();
}

qreal IAMPopupBannerViewController::contentHeight(qreal cardWidth) const
{
    const SingleMessageCreative &creative = m_content.creative;
    const qreal imageHeight = m_imageCollapsed ? 0 : std::round(cardWidth * m_imageRatio);
    const int textWidth = std::max(0, int(cardWidth - 2 * style::textSides));
    qreal stack = 0;
    bool hasStackItem = false;
    for (const PaddedLabel *label : { m_title, m_body }) {
        if (label->isHidden())
            continue;
        stack += (hasStackItem ? style::stackSpacing : 0) + label->heightForWidth(textWidth);
        hasStackItem = true;
    }
    if (m_button)
        stack += (hasStackItem ? style::spacingBeforeButton : 0) + style::buttonHeight;
    const bool buttonOnly = m_button && !hasText(creative.title) && !hasText(creative.body);
    return imageHeight + (buttonOnly ? style::textTopButtonOnly : style::textTop) + stack
        + style::textBottom;
}

void IAMPopupBannerViewController::layoutContent(const QSize &cardSize)
{
    const int width = cardSize.width();
    const SingleMessageCreative &creative = m_content.creative;
    const int imageHeight = m_imageCollapsed ? 0 : int(std::round(width * m_imageRatio));
    m_image->setGeometry(0, 0, width, imageHeight);
    m_image->setVisible(!m_imageCollapsed);

    const bool buttonOnly = m_button && !hasText(creative.title) && !hasText(creative.body);
    qreal y = imageHeight + (buttonOnly ? style::textTopButtonOnly : style::textTop);
    const int x = int(style::textSides);
    const int textWidth = std::max(0, width - 2 * x);
    bool hasStackItem = false;
    for (PaddedLabel *label : { m_title, m_body }) {
        if (label->isHidden())
            continue;
        y += hasStackItem ? style::stackSpacing : 0;
        const int height = label->heightForWidth(textWidth);
        label->setGeometry(x, int(std::round(y)), textWidth, height);
        y += height;
        hasStackItem = true;
    }
    if (m_button) {
        y += hasStackItem ? style::spacingBeforeButton : 0;
        m_button->setGeometry(x, int(std::round(y)), textWidth, int(style::buttonHeight));
    }
    const int close = int(layout::closebutton::area);
    m_closeButton->setGeometry(width - close, 0, close, close);
    m_closeButton->raise();
}

void IAMPopupBannerViewController::relayout()
{
    if (!m_target || m_inRelayout)
        return;
    m_inRelayout = true;
    const QWidget *window = m_target->window();
    const QRectF targetInWindow(m_target->mapTo(window, QPoint(0, 0)), m_target->size());

    layout::BannerTarget target;
    target.size = m_target->size();
    target.safeAreaInsets = layout::safeAreaInsetsWithin(
        targetInWindow, window->size(), layout::safeAreaInsets(window->windowHandle()));
    target.topAnchorY = anchorY(m_topAnchor, m_target);
    target.bottomAnchorY = anchorY(m_bottomAnchor, m_target);
    target.keyboardOffset = m_keyboardOffset;

    const layout::BannerLayout banner(target, m_content, layout::currentScreenSnapshot());
    const qreal cardWidth = std::round(banner.cardWidth());
    const layout::BannerFrames frames = banner.frames(contentHeight(cardWidth));

    // Whole logical pixels keep text and edges crisp at every device pixel ratio.
    const QRectF card = frames.card.translated(frames.root.topLeft());
    const QRect cardRect(QPoint(int(std::round(card.x())), int(std::round(card.y()))),
                         QSize(int(cardWidth), int(std::round(card.height()))));
    const int extent = int(std::ceil(m_shadow->extent()));
    setGeometry(cardRect.adjusted(-extent, -extent, extent, extent));
    m_cardRect = QRect(QPoint(extent, extent), cardRect.size());
    m_card->setGeometry(m_cardRect);
    layoutContent(cardRect.size());
    update();
    m_inRelayout = false;
}

QRect IAMPopupBannerViewController::cardGeometry() const
{
    return m_cardRect;
}

void IAMPopupBannerViewController::paintEvent(QPaintEvent *)
{
    if (m_cardRect.isEmpty())
        return;
    QPainter painter(this);
    m_shadow->paint(painter, QRectF(m_cardRect));
    painter.fillRect(m_cardRect, m_cardColor);
}

void IAMPopupBannerViewController::followKeyboard(std::optional<qreal> keyboardHeight,
                                                  int durationMs, const QEasingCurve &easing)
{
    m_keyboardHeight = keyboardHeight;
    const qreal offset = layout::keyboardOffset(layout::rowOf(m_content.position), keyboardHeight,
                                                bottomSafeInset());
    if (!m_keyboardAnimation) {
        m_keyboardAnimation = new QPropertyAnimation(this, "keyboardOffset", this);
    }
    m_keyboardAnimation->stop();
    if (durationMs <= 0 || !isVisible()) {
        setKeyboardOffset(offset);
        return;
    }
    m_keyboardAnimation->setDuration(durationMs);
    m_keyboardAnimation->setEasingCurve(easing);
    m_keyboardAnimation->setStartValue(m_keyboardOffset);
    m_keyboardAnimation->setEndValue(offset);
    m_keyboardAnimation->start();
}

void IAMPopupBannerViewController::setKeyboardOffset(qreal offset)
{
    if (qFuzzyCompare(m_keyboardOffset + 1, offset + 1))
        return;
    m_keyboardOffset = offset;
    relayout();
}

void IAMPopupBannerViewController::imageLoaded(QSize size)
{
    if (size.width() > 0) {
        m_imageRatio = layout::bannerImageRatio(QSizeF(size), m_imageRatio);
        relayout();
        showBannerAndReportOpen();
    } else if (hasTextContent()) {
        m_imageCollapsed = true;
        relayout();
        showBannerAndReportOpen();
    } else {
        removeForImageLoadFailure();
    }
}

void IAMPopupBannerViewController::showBannerAndReportOpen()
{
    if (!m_target || m_hasFiredDismissed || m_hasReportedOpen)
        return;
    m_hasReportedOpen = true;
    raise();
    WidgetFade::show(this);
    // Open is reported as the banner appears, not after its fade.
    if (onReaction)
        onReaction(EventsReactionType::Open);
}

void IAMPopupBannerViewController::handleClick(const QString &linkUrl)
{
    if (onReaction)
        onReaction(EventsReactionType::Click);
    const InAppMessage msg = message();
    if (onClicked)
        onClicked(msg);
    openLinkIfNeeded(linkUrl, msg, onError);
}

void IAMPopupBannerViewController::dismissBanner()
{
    QPointer<IAMPopupBannerViewController> self(this);
    WidgetFade::hide(this, [self] {
        if (!self)
            return;
        if (self->onReaction)
            self->onReaction(EventsReactionType::Close);
        if (!self->m_hasFiredDismissed) {
            self->m_hasFiredDismissed = true;
            if (self->onDismissed)
                self->onDismissed(self->message());
        }
        if (self->onClose)
            self->onClose();
        self->detach();
    });
}

void IAMPopupBannerViewController::removeForImageLoadFailure()
{
    if (m_hasFiredDismissed)
        return;
    m_hasFiredDismissed = true;
    if (onError)
        onError(message(),
                VelmoraError::networkError(
                    UnderlyingError::imageLoad(ImageLoadError { m_content.creative.image.url })));
    if (onClose)
        onClose();
    detach();
}

} // namespace velmora
