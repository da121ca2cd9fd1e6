#pragma once

#include "embedded/iamuiembeddedbanner.h"
#include "images/imageloader.h"
#include "images/loadedimage.h"
#include "presentation/embeddedbannerstore.h"

#include <QColor>
#include <QPointer>
#include <QSize>
#include <QString>

#include <memory>
#include <optional>

namespace velmora {

class IAMAnimatedImageView;
class IAMShimmerUIView;
class PaddedLabel;
struct EmbeddedBannerComponentData;

class IAMUIEmbeddedBannerPrivate
{
public:
    IAMUIEmbeddedBannerPrivate(IAMUIEmbeddedBanner *q, EmbeddedBannerStore *store);

    /// A slot showing the banners of `store` instead of the default store's.
    static IAMUIEmbeddedBanner *create(EmbeddedBannerStore *store, QWidget *parent = nullptr);
    static IAMUIEmbeddedBannerPrivate *get(IAMUIEmbeddedBanner *banner) { return banner->d.get(); }

    /// The store of slots created without one. The SDK installs its shared store here when it
    /// is set up.
    static void setDefaultStore(EmbeddedBannerStore *store);
    static EmbeddedBannerStore *defaultStore();

    EmbeddedBannerStore *store() const { return m_store.data(); }
    /// The loader of the banner's picture; ImageLoader::shared() when none is set.
    void setImageLoader(ImageLoader *loader) { m_loader = loader; }

    IAMShimmerUIView *shimmerView() const { return m_shimmer; }
    IAMAnimatedImageView *imageView() const { return m_image; }
    PaddedLabel *titleLabel() const { return m_title; }
    PaddedLabel *bodyLabel() const { return m_body; }

private:
    friend class IAMUIEmbeddedBanner;

    struct ImageLoadResult
    {
        QString url;
        std::optional<LoadedImage> image;
    };

    void subscribeStore();
    void updateContent();
    bool isInsideOwner() const;
    void startImageLoad(const QString &url, const QString &componentId);
    void cancelImageLoad();
    void hideContent(bool showPlaceholder);
    void revealContent(const EmbeddedBannerComponentData &banner, bool imageVisible);
    void setState(IAMUIEmbeddedBanner::State state);
    int imageHeight(int width) const;
    int contentHeight(int width) const;
    void layoutContent();

    IAMUIEmbeddedBanner *const q;
    QPointer<EmbeddedBannerStore> m_store;
    QPointer<ImageLoader> m_loader;
    bool m_showsLoadingPlaceholder = false;
    std::optional<ImageLoadResult> m_imageLoadResult;
    std::optional<QString> m_inFlightImageUrl;
    // Owns the completion of the load in flight: destroying it abandons that load.
    std::unique_ptr<QObject> m_imageLoadContext;
    std::optional<QString> m_componentId;
    IAMUIEmbeddedBanner::State m_state = IAMUIEmbeddedBanner::State::Hidden;
    QColor m_background;
    QSize m_imagePixelSize;

    IAMShimmerUIView *m_shimmer = nullptr;
    IAMAnimatedImageView *m_image = nullptr;
    PaddedLabel *m_title = nullptr;
    PaddedLabel *m_body = nullptr;
};

} // namespace velmora
