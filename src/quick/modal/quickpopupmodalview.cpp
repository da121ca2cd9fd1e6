#include "modal/quickpopupmodalview.h"

#include "common/logging.h"
#include "layout/modallayout.h"
#include "layout/style.h"
#include "presentation/linkopening.h"

#include <VelmoraInAppMessaging/inappmessage.h>

#include <QQmlEngine>
#include <QSurfaceFormat>
#include <QVariantAnimation>

#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora::quick {

namespace style = layout::modalstyle;

namespace {

bool hasText(const std::optional<TextContent> &text)
{
    return text && !text->text.isEmpty();
}

} // namespace

QuickPopupModalView::QuickPopupModalView(PopupModalAction content, QQmlEngine *engine)
    : QQuickView(engine, nullptr)
    , PopupModalInteraction(std::move(content))
    , m_animation(new QVariantAnimation(this))
{
    setObjectName(u"popupModal"_s);
    setFlags(Qt::Dialog | Qt::FramelessWindowHint);
    // The dim is drawn by the card's scene; the window itself is see-through.
    QSurfaceFormat surface = requestedFormat();
    surface.setAlphaBufferSize(8);
    setFormat(surface);
    setColor(Qt::transparent);
    setTitle(accessibleName());
    setResizeMode(QQuickView::SizeRootObjectToView);

    m_animation->setDuration(int(layout::fadeDuration.count()));
    connect(m_animation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant &value) { setPresentation(value.toReal()); });
    connect(m_animation, &QVariantAnimation::finished, this, [this] {
        if (m_presentation > 0)
            return;
        // Each tap that closed the modal runs its own completion, as the Widgets modal does.
        const auto completions = std::exchange(m_fadeOutCompletions, {});
        for (const auto &completion : completions)
            completion();
    });

    setInitialProperties({ { u"modal"_s, QVariant::fromValue<QObject *>(this) } });
    setSource(QUrl(u"qrc:/qt-project.org/imports/Velmora/InAppMessaging/IAMPopupModal.qml"_s));
    if (status() != QQuickView::Ready) {
        const auto problems = errors();
        for (const QQmlError &error : problems)
            qCDebug(lcVelmoraPresentation).noquote() << error.toString();
    }
}

QuickPopupModalView::~QuickPopupModalView()
{
    // The scene reads this object while it is torn down; let it go first.
    setSource(QUrl());
}

QString QuickPopupModalView::accessibleName() const
{
    const SingleMessageCreative &creative = modalContent().creative;
    return hasText(creative.title) ? creative.title->text
        : hasText(creative.body)   ? creative.body->text
                                   : tr("Message");
}

QVariantMap QuickPopupModalView::style()
{
    return {
        { u"fadeDuration"_s, qint64(layout::fadeDuration.count()) },
        { u"closeButtonArea"_s, layout::closebutton::area },
        { u"contentInsets"_s, style::contentInsets },
        { u"stackSpacing"_s, style::stackSpacing },
        { u"buttonHeight"_s, style::buttonHeight },
        { u"cornerRadius"_s, style::cornerRadius },
        { u"titlePixelSize"_s, style::titlePixelSize },
        { u"bodyPixelSize"_s, style::bodyPixelSize },
        { u"textBackgroundPadding"_s, style::textBackgroundPadding },
        { u"shadowOpacity"_s, style::shadowOpacity },
        { u"shadowOffset"_s, style::shadowOffset },
        { u"shadowRadius"_s, style::shadowRadius },
        { u"dimAlpha"_s, style::dimAlpha },
    };
}

void QuickPopupModalView::showOver(QWindow *host)
{
    Q_ASSERT(host);
    m_host = host;
    // Transient: it stays above the host and goes with it, without being a child window.
    setTransientParent(host);
    for (auto signal : { &QWindow::xChanged, &QWindow::yChanged, &QWindow::widthChanged,
                         &QWindow::heightChanged })
        connect(host, signal, this, &QuickPopupModalView::followHost);
    followHost();
    show();
    requestActivate();
    animatePresentation(1);
}

void QuickPopupModalView::followHost()
{
    if (m_host)
        setGeometry(m_host->geometry());
}

QRectF QuickPopupModalView::cardFrame(const QSizeF &rootSize, qreal contentHeight) const
{
    const QRectF frame = layout::modalCardFrame(rootSize, contentHeight);
    return { std::round(frame.x()), std::round(frame.y()), cardWidth(rootSize.width()),
             std::round(frame.height()) };
}

qreal QuickPopupModalView::cardWidth(qreal rootWidth) const
{
    return std::round(layout::modalCardWidth(rootWidth));
}

qreal QuickPopupModalView::imageHeight(qreal cardWidth, const QSizeF &sourceSize,
                                       qreal rootHeight) const
{
    const qreal ratio = layout::modalImageRatio(sourceSize);
    return std::round(layout::modalImageHeight(cardWidth, ratio, rootHeight));
}

void QuickPopupModalView::setPresentation(qreal presentation)
{
    if (qFuzzyCompare(presentation, m_presentation))
        return;
    m_presentation = presentation;
    Q_EMIT presentationChanged();
}

void QuickPopupModalView::animatePresentation(qreal to)
{
    m_animation->stop();
    m_animation->setStartValue(m_presentation);
    m_animation->setEndValue(to);
    m_animation->start();
}

void QuickPopupModalView::showEvent(QShowEvent *event)
{
    QQuickView::showEvent(event);
    reportOpenIfNeeded();
}

void QuickPopupModalView::dismissWithAnimation(std::function<void()> completion)
{
    const bool fading = !m_fadeOutCompletions.isEmpty();
    m_fadeOutCompletions << std::move(completion);
    if (!fading)
        animatePresentation(0);
}

} // namespace velmora::quick
