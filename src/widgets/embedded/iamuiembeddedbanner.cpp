#include "embedded/iamuiembeddedbanner_p.h"

#include "card/cardtext.h"
#include "embedded/iamshimmeruiview.h"
#include "images/imageloader.h"
#include "presentation/colors.h"
#include "presentation/embeddedbannerstore.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/paddedlabel.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

QPointer<EmbeddedBannerStore> &defaultStoreSlot()
{
    static QPointer<EmbeddedBannerStore> store;
    return store;
}

} // namespace

IAMUIEmbeddedBanner::IAMUIEmbeddedBanner(QWidget *parent)
    : IAMUIEmbeddedBanner(IAMUIEmbeddedBannerPrivate::defaultStore(), parent)
{ }

IAMUIEmbeddedBanner::IAMUIEmbeddedBanner(EmbeddedBannerStore *store, QWidget *parent)
    : QWidget(parent)
    , d(std::make_unique<IAMUIEmbeddedBannerPrivate>(this, store))
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setVisible(false);
    d->subscribeStore();
    d->updateContent();
}

IAMUIEmbeddedBanner::~IAMUIEmbeddedBanner() = default;

IAMUIEmbeddedBannerPrivate::IAMUIEmbeddedBannerPrivate(IAMUIEmbeddedBanner *q,
                                                       EmbeddedBannerStore *store)
    : q(q)
    , m_store(store)
{
    m_image = new IAMAnimatedImageView(q);
    m_image->setObjectName(u"bannerImage"_s);
    m_image->setContentMode(IAMAnimatedImageView::ContentMode::AspectFill);
    m_image->setAttribute(Qt::WA_TransparentForMouseEvents);
    for (PaddedLabel **label : { &m_title, &m_body }) {
        *label = new PaddedLabel(q);
        (*label)->setAlignment(Qt::AlignCenter);
        (*label)->setWordWrap(true);
        (*label)->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    m_title->setObjectName(u"bannerTitle"_s);
    m_body->setObjectName(u"bannerBody"_s);
    m_shimmer = new IAMShimmerUIView(q);
    m_shimmer->setObjectName(u"shimmer"_s);

    m_image->hide();
    m_title->hide();
    m_body->hide();
    m_shimmer->hide();
}

IAMUIEmbeddedBanner *IAMUIEmbeddedBannerPrivate::create(EmbeddedBannerStore *store, QWidget *parent)
{
    return new IAMUIEmbeddedBanner(store, parent);
}

void IAMUIEmbeddedBannerPrivate::setDefaultStore(EmbeddedBannerStore *store)
{
    defaultStoreSlot() = store;
}

EmbeddedBannerStore *IAMUIEmbeddedBannerPrivate::defaultStore()
{
    return defaultStoreSlot().data();
}

QString IAMUIEmbeddedBanner::componentId() const
{
    return d->m_componentId.value_or(QString());
}

void IAMUIEmbeddedBanner::setComponentId(const QString &componentId)
{
    if (d->m_componentId == componentId)
        return;
    d->m_componentId = componentId;
    // A load for the previous slot must not show up in this one, even with the same picture.
    d->cancelImageLoad();
    d->updateContent();
    Q_EMIT componentIdChanged();
}

bool IAMUIEmbeddedBanner::showsLoadingPlaceholder() const
{
    return d->m_showsLoadingPlaceholder;
}

void IAMUIEmbeddedBanner::setShowsLoadingPlaceholder(bool shows)
{
    if (d->m_showsLoadingPlaceholder == shows)
        return;
    d->m_showsLoadingPlaceholder = shows;
    d->updateContent();
    Q_EMIT showsLoadingPlaceholderChanged();
}

IAMUIEmbeddedBanner::State IAMUIEmbeddedBanner::state() const
{
    return d->m_state;
}

void IAMUIEmbeddedBannerPrivate::subscribeStore()
{
    if (!m_store)
        return;
    const auto update = [this] { updateContent(); };
    QObject::connect(m_store, &EmbeddedBannerStore::embeddedBannersChanged, q, update);
    QObject::connect(m_store, &EmbeddedBannerStore::isLoadingChanged, q, update);
    QObject::connect(m_store, &EmbeddedBannerStore::currentScreenNameChanged, q, update);
    QObject::connect(m_store, &EmbeddedBannerStore::currentOwnerChanged, q, update);
}

bool IAMUIEmbeddedBannerPrivate::isInsideOwner() const
{
    const QObject *owner = m_store ? m_store->currentOwner() : nullptr;
    if (!owner)
        return false;
    for (const QObject *object = q; object; object = object->parent()) {
        if (object == owner)
            return true;
    }
    return false;
}
void IAMUIEmbeddedBannerPrivate::updateContent()
{
    // Deliberately strict: a slot outside the current screen's owner never shows a banner,
    // even one stored under its id, since that banner belongs to another screen.
    if (!isInsideOwner()) {
        cancelImageLoad();
        hideContent(m_componentId && m_showsLoadingPlaceholder);
        return;
    }
    const std::optional<EmbeddedBannerComponentData> banner
        = m_componentId ? m_store->embeddedBanner(*m_componentId) : std::nullopt;
    if (!banner) {
        cancelImageLoad();
        m_imageLoadResult.reset();
        m_image->setLoadedImage(std::nullopt);
        hideContent(m_store->isLoading() && m_showsLoadingPlaceholder);
        return;
    }

    const SingleMessageCreative &creative = banner->content.creative;
    const bool withText = velmora::hasText(creative.title) || velmora::hasText(creative.body);
    const QString url = creative.image.url;
    if (url.isEmpty()) {
        cancelImageLoad();
        if (!withText) {
            hideContent(false);
            return;
        }
        revealContent(*banner, false);
        m_store->sendOpenReactionIfNeeded(*m_componentId, url);
        return;
    }
    if (m_imageLoadResult && m_imageLoadResult->url == url) {
        // Back to the picture already at hand: a load for another one would replace it.
        if (m_inFlightImageUrl)
            cancelImageLoad();
        const bool loaded = m_imageLoadResult->image.has_value();
        if (!loaded && !withText) {
            hideContent(false);
            return;
        }
        revealContent(*banner, loaded);
        m_store->sendOpenReactionIfNeeded(*m_componentId, url);
        return;
    }
    hideContent(m_showsLoadingPlaceholder);
    if (m_inFlightImageUrl != url)
        startImageLoad(url, *m_componentId);
}

void IAMUIEmbeddedBannerPrivate::startImageLoad(const QString &url, const QString &componentId)
{
    cancelImageLoad();
    m_inFlightImageUrl = url;
    m_imageLoadContext = std::make_unique<QObject>();
    ImageLoader *loader = m_loader ? m_loader.data() : ImageLoader::shared();
    // The context is owned by this view, so the completion never runs after it is gone.
    loader->load(url, m_imageLoadContext.get(),
                 [this, url, componentId](std::optional<LoadedImage> image) {
                     if (m_componentId != componentId)
                         return;
                     m_imageLoadResult = ImageLoadResult { url, image };
                     m_inFlightImageUrl.reset();
                     m_imageLoadContext.release()->deleteLater();
                     if (image && image->size().width() > 0)
                         m_image->setLoadedImage(*image);
                     else
                         m_imageLoadResult->image.reset();
                     updateContent();
                 });
}

void IAMUIEmbeddedBannerPrivate::cancelImageLoad()
{
    m_imageLoadContext.reset();
    m_inFlightImageUrl.reset();
}

void IAMUIEmbeddedBannerPrivate::hideContent(bool showPlaceholder)
{
    m_image->hide();
    m_title->hide();
    m_body->hide();
    m_shimmer->setVisible(showPlaceholder);
    q->unsetCursor();
    setState(showPlaceholder ? IAMUIEmbeddedBanner::State::Placeholder
                             : IAMUIEmbeddedBanner::State::Hidden);
}

void IAMUIEmbeddedBannerPrivate::revealContent(const EmbeddedBannerComponentData &banner,
                                               bool imageVisible)
{
    const SingleMessageCreative &creative = banner.content.creative;
    m_shimmer->hide();
    m_background = hexColor(creative.backgroundColor.value_or(QString())).value_or(Qt::white);
    applyCardText(m_title, q->font(), creative.title,
                  { 14, QFont::Bold, palette::defaultTitleTextColor(),
                    IAMUIEmbeddedBanner::textBackgroundPadding });
    applyCardText(m_body, q->font(), creative.body,
                  { 14, QFont::Medium, palette::defaultBodyTextColor(),
                    IAMUIEmbeddedBanner::textBackgroundPadding });
    m_imagePixelSize = imageVisible && m_imageLoadResult && m_imageLoadResult->image
        ? m_imageLoadResult->image->size()
        : QSize();
    m_image->setVisible(imageVisible);
    q->setCursor(Qt::PointingHandCursor);
    q->setAccessibleName(hasText(creative.title)      ? creative.title->text
                             : hasText(creative.body) ? creative.body->text
                                                      : IAMUIEmbeddedBanner::tr("Banner"));
    setState(IAMUIEmbeddedBanner::State::Revealed);
}

void IAMUIEmbeddedBannerPrivate::setState(IAMUIEmbeddedBanner::State state)
{
    const bool changed = m_state != state;
    m_state = state;
    // A widget without a parent would become a window of its own; it shows once placed.
    q->setVisible(state != IAMUIEmbeddedBanner::State::Hidden && q->parentWidget());
    q->updateGeometry();
    layoutContent();
    q->update();
    if (changed)
        Q_EMIT q->stateChanged(state);
}

int IAMUIEmbeddedBannerPrivate::imageHeight(int width) const
{
    if (m_imagePixelSize.width() <= 0 || m_imagePixelSize.height() <= 0)
        return std::min(int(std::round(width * IAMUIEmbeddedBanner::placeholderRatio)),
                        IAMUIEmbeddedBanner::maximumPlaceholderHeight);
    const qreal height = qreal(width) * m_imagePixelSize.height() / m_imagePixelSize.width();
    return std::min(int(std::round(height)), IAMUIEmbeddedBanner::maximumImageHeight);
}

bool IAMUIEmbeddedBanner::hasHeightForWidth() const
{
    return true;
}

int IAMUIEmbeddedBanner::heightForWidth(int width) const
{
    return d->contentHeight(width);
}

int IAMUIEmbeddedBannerPrivate::contentHeight(int width) const
{
    switch (m_state) {
    case IAMUIEmbeddedBanner::State::Hidden:
        return 0;
    case IAMUIEmbeddedBanner::State::Placeholder:
        return std::min(int(std::round(width * IAMUIEmbeddedBanner::placeholderRatio)),
                        IAMUIEmbeddedBanner::maximumPlaceholderHeight);
    case IAMUIEmbeddedBanner::State::Revealed:
        break;
    }
    int height = 0;
    bool first = true;
    const auto add = [&](int itemHeight) {
        height += (first ? 0 : IAMUIEmbeddedBanner::stackSpacing) + itemHeight;
        first = false;
    };
    if (!m_image->isHidden())
        add(imageHeight(width));
    for (const PaddedLabel *label : { m_title, m_body }) {
        if (!label->isHidden())
            add(label->heightForWidth(width));
    }
    return height;
}

QSize IAMUIEmbeddedBanner::sizeHint() const
{
    const int width = this->width() > 0 ? this->width() : 360;
    return QSize(width, heightForWidth(width));
}

QSize IAMUIEmbeddedBanner::minimumSizeHint() const
{
    return QSize(0, 0);
}

void IAMUIEmbeddedBannerPrivate::layoutContent()
{
    const int width = q->width();
    m_shimmer->setGeometry(q->rect());
    int y = 0;
    bool first = true;
    const auto place = [&](QWidget *item, int itemHeight) {
        y += first ? 0 : IAMUIEmbeddedBanner::stackSpacing;
        item->setGeometry(0, y, width, itemHeight);
        y += itemHeight;
        first = false;
    };
    if (!m_image->isHidden())
        place(m_image, imageHeight(width));
    for (PaddedLabel *label : { m_title, m_body }) {
        if (!label->isHidden())
            place(label, label->heightForWidth(width));
    }
}

bool IAMUIEmbeddedBanner::event(QEvent *event)
{
    const bool result = QWidget::event(event);
    // Placed into (or moved out of) the host's widgets: the owner check may now differ, and a
    // widget that gets a parent while it has something to show must show itself again.
    if (event->type() == QEvent::ParentChange)
        d->updateContent();
    return result;
}

void IAMUIEmbeddedBanner::paintEvent(QPaintEvent *)
{
    if (d->m_state != State::Revealed)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), d->m_background);
}

void IAMUIEmbeddedBanner::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    d->layoutContent();
}

void IAMUIEmbeddedBanner::mousePressEvent(QMouseEvent *event)
{
    if (d->m_state == State::Revealed && event->button() == Qt::LeftButton)
        event->accept();
    else
        QWidget::mousePressEvent(event);
}

void IAMUIEmbeddedBanner::mouseReleaseEvent(QMouseEvent *event)
{
    if (d->m_state == State::Revealed && event->button() == Qt::LeftButton
        && rect().contains(event->position().toPoint()) && d->m_store && d->m_componentId) {
        event->accept();
        d->m_store->handleClick(*d->m_componentId);
        return;
    }
    QWidget::mouseReleaseEvent(event);
}

} // namespace velmora
