#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QString>
#include <QWidget>

#include <memory>

namespace velmora {

class EmbeddedBannerStore;
class IAMUIEmbeddedBannerPrivate;

/// The slot of an embedded banner in a Widgets screen: the host places it in its own layout
/// under a component id, and it shows the banner the back end targets at that id once the
/// banner's image has loaded (or at once when it only has text).
///
/// \code
/// auto *slot = new velmora::IAMUIEmbeddedBanner(page);
/// slot->setComponentId(u"home_hero"_s);
/// slot->setShowsLoadingPlaceholder(true);
/// pageLayout->addWidget(slot);
/// \endcode
///
/// It shows content only while the widget passed to screenView() is one of its ancestors, so a
/// slot on another screen never shows this screen's banner. It is hidden, taking no room in the
/// host's layout, whenever it has nothing to show; its height otherwise follows its content
/// (heightForWidth), so the host's layout reflows as it reveals or hides. A picture is as tall
/// as the banner's width at the picture's aspect ratio, at most maximumImageHeight, cropped
/// evenly beyond that. A tap reports a click and opens the banner's link.
///
/// Create slots after the first use of VelmoraInAppMessaging::shared(), which hands them its
/// store of banners.
class VELMORA_EXPORT IAMUIEmbeddedBanner : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString componentId READ componentId WRITE setComponentId NOTIFY componentIdChanged)
    Q_PROPERTY(bool showsLoadingPlaceholder READ showsLoadingPlaceholder WRITE
                   setShowsLoadingPlaceholder NOTIFY showsLoadingPlaceholderChanged)
    Q_PROPERTY(State state READ state NOTIFY stateChanged)

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

    explicit IAMUIEmbeddedBanner(QWidget *parent = nullptr);
    ~IAMUIEmbeddedBanner() override;

    QString componentId() const;
    void setComponentId(const QString &componentId);

    /// Shows a shimmer while the banners of the screen or this banner's picture load.
    bool showsLoadingPlaceholder() const;
    void setShowsLoadingPlaceholder(bool shows);

    State state() const;

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
    friend class IAMUIEmbeddedBannerPrivate;
    IAMUIEmbeddedBanner(EmbeddedBannerStore *store, QWidget *parent);

    std::unique_ptr<IAMUIEmbeddedBannerPrivate> d;
};

} // namespace velmora
