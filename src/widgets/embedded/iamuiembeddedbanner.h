#pragma once

#include "images/loadedimage.h"
#include "presentation/embeddedbannerstore.h"

#include <QPointer>
#include <QString>
#include <QWidget>

#include <memory>
#include <optional>

namespace velmora {

class EmbeddedBannerStore;
class IAMAnimatedImageView;
class IAMShimmerUIView;
class ImageLoader;
class PaddedLabel;
struct EmbeddedBannerComponentData;

/// The slot of an embedded banner in a Widgets screen: the host places it in its own layout
/// under a component id, and it shows the store's banner for that id once the banner's image
/// has loaded (or at once when it only has text).
///
///     auto *slot = new IAMUIEmbeddedBanner(page);
///     slot->setComponentId(u"home_hero"_s);
///     slot->setShowsLoadingPlaceholder(true);
///     pageLayout->addWidget(slot);
///
/// It shows content only while the store's current owner (the widget passed to screenView())
/// is one of its ancestors, so a slot on another screen never shows this screen's banner. It
/// is hidden, taking no room in the host's layout, whenever it has nothing to show; its height
/// otherwise follows its content (heightForWidth), so the host's layout reflows as it reveals
/// or hides. A picture is as tall as the banner's width at the picture's aspect ratio, at most
/// maximumImageHeight, cropped evenly beyond that.
///
/// A tap reports a click to the store, which tells the host and opens the link.
class IAMUIEmbeddedBanner : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString componentId READ componentId WRITE setComponentId NOTIFY componentIdChanged)
    Q_PROPERTY(bool showsLoadingPlaceholder READ showsLoadingPlaceholder WRITE
                   setShowsLoadingPlaceholder NOTIFY showsLoadingPlaceholderChanged)

public:
    /// The tallest a banner's picture is drawn, in logical pixels.
    static constexpr int maximumImageHeight = 400;
    /// The placeholder's height over width until a picture's size is known, and its cap.
    static constexpr qreal placeholderRatio = 0.5;
    static constexpr int maximumPlaceholderHeight = 200;
    static constexpr int stackSpacing = 8;
    static constexpr int textBackgroundPadding = 8;

    enum class State {
        Hidden, ///< nothing to show; the widget is hidden
        Placeholder, ///< the shimmer alone
        Revealed, ///< the banner's content
    };
    Q_ENUM(State)

    /// Uses the default store (setDefaultStore()); with none set it never shows anything.
    explicit IAMUIEmbeddedBanner(QWidget *parent = nullptr);
    explicit IAMUIEmbeddedBanner(EmbeddedBannerStore *store, QWidget *parent = nullptr);
    ~IAMUIEmbeddedBanner() override;

    /// The store of banners created without one. The SDK installs its shared store here when
    /// it is set up; hosts normally never call this.
    static void setDefaultStore(EmbeddedBannerStore *store);
    static EmbeddedBannerStore *defaultStore();

    EmbeddedBannerStore *store() const;

    QString componentId() const { return m_componentId.value_or(QString()); }
    void setComponentId(const QString &componentId);

    /// Shows a shimmer while the store loads this screen's banners or this banner's picture.
    bool showsLoadingPlaceholder() const { return m_showsLoadingPlaceholder; }
    void setShowsLoadingPlaceholder(bool shows);

    /// The loader of the banner's picture; ImageLoader::shared() when none is set.
    void setImageLoader(ImageLoader *loader);

    State state() const { return m_state; }
    IAMShimmerUIView *shimmerView() const { return m_shimmer; }
    IAMAnimatedImageView *imageView() const { return m_image; }
    PaddedLabel *titleLabel() const { return m_title; }
    PaddedLabel *bodyLabel() const { return m_body; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override;
    int heightForWidth(int width) const override;

Q_SIGNALS:
    void componentIdChanged();
    void showsLoadingPlaceholderChanged();
    /// Emitted after every change of state().
    void stateChanged(velmora::IAMUIEmbeddedBanner::State state);

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
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
    void setState(State state);
    int imageHeight(int width) const;
    void layoutContent();

    QPointer<EmbeddedBannerStore> m_store;
    QPointer<ImageLoader> m_loader;
    bool m_showsLoadingPlaceholder = false;
    std::optional<ImageLoadResult> m_imageLoadResult;
    std::optional<QString> m_inFlightImageUrl;
    // Owns the completion of the load in flight: destroying it abandons that load.
    std::unique_ptr<QObject> m_imageLoadContext;
    std::optional<QString> m_componentId;
    State m_state = State::Hidden;
    QColor m_background;
    QSize m_imagePixelSize;

    IAMShimmerUIView *m_shimmer = nullptr;
    IAMAnimatedImageView *m_image = nullptr;
    PaddedLabel *m_title = nullptr;
    PaddedLabel *m_body = nullptr;
};

} // namespace velmora
