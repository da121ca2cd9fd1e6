#include "embedded/iamuiembeddedbanner.h"

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

void styleLabel(PaddedLabel *label, const QFont &base, const std::optional<TextContent> &text,
                bool title)
{
    QFont font(base);
    font.setPixelSize(14);
    font.setWeight(title ? QFont::Bold : QFont::Medium);
    label->setFont(font);
    const QColor fallback
        = title ? palette::defaultTitleTextColor() : palette::defaultBodyTextColor();
    label->setTextColor(text ? hexColor(text->textColor.value_or(QString())).value_or(fallback)
                             : fallback);
    const std::optional<QColor> background
        = text ? hexColor(text->backgroundColor.value_or(QString())) : std::nullopt;
    const int padding = background ? IAMUIEmbeddedBanner::textBackgroundPadding : 0;
    label->setBackgroundColor(background.value_or(QColor()));
    label->setTextInsets(QMargins(padding, padding, padding, padding));
    label->setText(text ? text->text : QString());
    label->setVisible(hasText(text));
}

} // namespace

IAMUIEmbeddedBanner::IAMUIEmbeddedBanner(QWidget *parent)
    : IAMUIEmbeddedBanner(defaultStore(), parent)
{ }

IAMUIEmbeddedBanner::IAMUIEmbeddedBanner(EmbeddedBannerStore *store, QWidget *parent)
    : QWidget(parent)
    , m_store(store)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);

    m_image = new IAMAnimatedImageView(this);
    m_image->setObjectName(u"bannerImage"_s);
    m_image->setContentMode(IAMAnimatedImageView::ContentMode::AspectFill);
    m_image->setAttribute(Qt::WA_TransparentForMouseEvents);
    for (PaddedLabel **label : { &m_title, &m_body }) {
        *label = new PaddedLabel(this);
        (*label)->setAlignment(Qt::AlignCenter);
        (*label)->setWordWrap(true);
        (*label)->setAttribute(Qt::WA_TransparentForMouseEvents);
    }
    m_title->setObjectName(u"bannerTitle"_s);
    m_body->setObjectName(u"bannerBody"_s);
    m_shimmer = new IAMShimmerUIView(this);
    m_shimmer->setObjectName(u"shimmer"_s);

    m_image->hide();
    m_title->hide();
    m_body->hide();
    m_shimmer->hide();
    setVisible(false);

    subscribeStore();
    updateContent();
}

IAMUIEmbeddedBanner::~IAMUIEmbeddedBanner() = default;

void IAMUIEmbeddedBanner::setDefaultStore(EmbeddedBannerStore *store)
{
    defaultStoreSlot() = store;
}

EmbeddedBannerStore *IAMUIEmbeddedBanner::defaultStore()
{
    return defaultStoreSlot().data();
}

EmbeddedBannerStore *IAMUIEmbeddedBanner::store() const
{
    return m_store.data();
}

void IAMUIEmbeddedBanner::setComponentId(const QString &componentId)
{
    if (m_componentId == componentId)
        return;
    m_componentId = componentId;
    // A load for the previous slot must not show up in this one, even with the same picture.
    cancelImageLoad();
    updateContent();
    Q_EMIT componentIdChanged();
}

void IAMUIEmbeddedBanner::setShowsLoadingPlaceholder(bool shows)
{
    if (m_showsLoadingPlaceholder == shows)
        return;
    m_showsLoadingPlaceholder = shows;
    updateContent();
    Q_EMIT showsLoadingPlaceholderChanged();
}

void IAMUIEmbeddedBanner::setImageLoader(ImageLoader *loader)
{
    m_loader = loader;
}

void IAMUIEmbeddedBanner::subscribeStore()
{
    if (!m_store)
        return;
    connect(m_store, &EmbeddedBannerStore::embeddedBannersChanged, this,
            &IAMUIEmbeddedBanner::updateContent);
    connect(m_store, &EmbeddedBannerStore::isLoadingChanged, this,
            &IAMUIEmbeddedBanner::updateContent);
    connect(m_store, &EmbeddedBannerStore::currentScreenNameChanged, this,
            &IAMUIEmbeddedBanner::updateContent);
    connect(m_store, &EmbeddedBannerStore::currentOwnerChanged, this,
            &IAMUIEmbeddedBanner::updateContent);
}

bool IAMUIEmbeddedBanner::isInsideOwner() const
{
    const QObject *owner = m_store ? m_store->currentOwner() : nullptr;
    if (!owner)
        return false;
    for (const QObject *object = this; object; object = object->parent()) {
        if (object == owner)
            return true;
    }
    return false;
}

void IAMUIEmbeddedBanner::updateContent()
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

void IAMUIEmbeddedBanner::startImageLoad(const QString &url, const QString &componentId)
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

void IAMUIEmbeddedBanner::cancelImageLoad()
{
    m_imageLoadContext.reset();
    m_inFlightImageUrl.reset();
}

void IAMUIEmbeddedBanner::hideContent(bool showPlaceholder)
{
    m_image->hide();
    m_title->hide();
    m_body->hide();
    m_shimmer->setVisible(showPlaceholder);
    unsetCursor();
    setState(showPlaceholder ? State::Placeholder : State::Hidden);
}

void IAMUIEmbeddedBanner::revealContent(const EmbeddedBannerComponentData &banner,
                                        bool imageVisible)
{
    const SingleMessageCreative &creative = banner.content.creative;
    m_shimmer->hide();
    m_background = hexColor(creative.backgroundColor.value_or(QString())).value_or(Qt::white);
    styleLabel(m_title, font(), creative.title, true);
    styleLabel(m_body, font(), creative.body, false);
    m_imagePixelSize = imageVisible && m_imageLoadResult && m_imageLoadResult->image
        ? m_imageLoadResult->image->size()
        : QSize();
    m_image->setVisible(imageVisible);
    setCursor(Qt::PointingHandCursor);
    setAccessibleName(hasText(creative.title)      ? creative.title->text
                          : hasText(creative.body) ? creative.body->text
                                                   : tr("Banner"));
    setState(State::Revealed);
}

void IAMUIEmbeddedBanner::setState(State state)
{
    const bool changed = m_state != state;
    m_state = state;
    // A widget without a parent would become a window of its own; it shows once placed.
    setVisible(state != State::Hidden && parentWidget());
    updateGeometry();
    layoutContent();
    update();
    if (changed)
        Q_EMIT stateChanged(state);
}

int IAMUIEmbeddedBanner::imageHeight(int width) const
{
    if (m_imagePixelSize.width() <= 0 || m_imagePixelSize.height() <= 0)
        return std::min(int(std::round(width * placeholderRatio)), maximumPlaceholderHeight);
    const qreal height = qreal(width) * m_imagePixelSize.height() / m_imagePixelSize.width();
    return std::min(int(std::round(height)), maximumImageHeight);
}

bool IAMUIEmbeddedBanner::hasHeightForWidth() const
{
    return true;
}

int IAMUIEmbeddedBanner::heightForWidth(int width) const
{
    switch (m_state) {
    case State::Hidden:
        return 0;
    case State::Placeholder:
        return std::min(int(std::round(width * placeholderRatio)), maximumPlaceholderHeight);
    case State::Revealed:
        break;
    }
    int height = 0;
    bool first = true;
    const auto add = [&](int itemHeight) {
        height += (first ? 0 : stackSpacing) + itemHeight;
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

void IAMUIEmbeddedBanner::layoutContent()
{
    const int width = this->width();
    m_shimmer->setGeometry(rect());
    int y = 0;
    bool first = true;
    const auto place = [&](QWidget *item, int itemHeight) {
        y += first ? 0 : stackSpacing;
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
        updateContent();
    return result;
}

void IAMUIEmbeddedBanner::paintEvent(QPaintEvent *)
{
    if (m_state != State::Revealed)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), m_background);
}

void IAMUIEmbeddedBanner::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutContent();
}

void IAMUIEmbeddedBanner::mousePressEvent(QMouseEvent *event)
{
    if (m_state == State::Revealed && event->button() == Qt::LeftButton)
        event->accept();
    else
        QWidget::mousePressEvent(event);
}

void IAMUIEmbeddedBanner::mouseReleaseEvent(QMouseEvent *event)
{
    if (m_state == State::Revealed && event->button() == Qt::LeftButton
        && rect().contains(event->position().toPoint()) && m_store && m_componentId) {
        event->accept();
        m_store->handleClick(*m_componentId);
        return;
    }
    QWidget::mouseReleaseEvent(event);
}

} // namespace velmora
