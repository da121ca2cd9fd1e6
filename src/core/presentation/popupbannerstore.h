#pragma once

#include "presentation/actionclassification.h"
#include "service/callbacks.h"
#include <VelmoraInAppMessaging/displayposition.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>

#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>

namespace velmora {

/// One popup banner of a QML screen; its scenario id is its identity.
struct PopupBannerComponentData
{
    PopupBannerAction content;
    QString scenarioId;
    QString screenName;

    DisplayPosition position() const { return content.position; }
    InAppMessage message() const { return InAppMessage::fromPopupBanner(content); }
};

/// The banners waiting behind the visible one at each position.
struct PopupBannerQueueController
{
    /// First element is the next to show; a missing position is an empty queue.
    std::map<DisplayPosition, QList<PopupBannerComponentData>> queues;
    /// Positions whose banner is leaving and whose next banner waits for the view to report
    /// its disappearance (DismissalMode::AfterViewDisappears only).
    std::set<DisplayPosition> dismissingPositions;

    void reset();
    /// Appends unless a banner with the same scenario id already waits there: the first wins.
    void enqueue(const PopupBannerComponentData &banner);
    std::optional<PopupBannerComponentData> popNext(DisplayPosition position);
};

/// What popup banners a QML screen shows: at most one per position, the rest queued.
///
/// `popupBanners` maps a position's wire name ("top_left", "top", ...) to a map with
/// `scenarioId`, `screenName`, `position`, `hasExplicitSize` and `message` (an InAppMessage);
/// a free position has no key, so `store.popupBanners.top` is undefined in QML. Every change
/// emits popupBannerChanged() for each position it touched, then popupBannersChanged() once.
///
/// A banner view reports through the invokables below, naming its banner by position and
/// scenario id. A report for a banner that is no longer on show there is ignored, so a view
/// that outlives its banner can never act on the one that replaced it:
/// \code
/// onImageReady: store.sendOpenReactionIfNeeded(position, scenarioId)
/// onImageFailed: if (!store.handleImageLoadFailure(position, scenarioId))
///                    store.sendOpenReactionIfNeeded(position, scenarioId)
/// onTapped: store.handleClick(position, scenarioId, message.creative.image.linkUrl)
/// onCloseTapped: store.handleClose(position, scenarioId)
/// \endcode
/// All calls belong on the GUI thread.
class PopupBannerStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariantMap popupBanners READ popupBannersMap NOTIFY popupBannersChanged)
    Q_PROPERTY(
        QVariant currentScreenName READ currentScreenNameValue NOTIFY currentScreenNameChanged)
    Q_PROPERTY(DismissalMode dismissalMode READ dismissalMode WRITE setDismissalMode NOTIFY
                   dismissalModeChanged)

public:
    /// When the next banner appears at a position whose banner was dismissed.
    enum class DismissalMode {
        /// After the store's own removal delay; needs nothing from the view.
        AfterRemovalAnimation,
        /// When the banner view calls bannerDidDisappear(), for views whose exit transition
        /// is not a fixed length.
        AfterViewDisappears,
    };
    Q_ENUM(DismissalMode)

    /// The removal animation of a banner; the next banner waits this long after a dismissal.
    static constexpr std::chrono::milliseconds removalDuration { 300 };

    /// Runs `callback` once, `delay` from now, on the GUI thread. Tests replace it to
    /// control time.
    using Scheduler
        = std::function<void(std::chrono::milliseconds delay, std::function<void()> callback)>;

    explicit PopupBannerStore(QObject *parent = nullptr);
    ~PopupBannerStore() override;

    const std::map<DisplayPosition, PopupBannerComponentData> &popupBanners() const
    {
        return m_popupBanners;
    }
    std::optional<PopupBannerComponentData> popupBanner(DisplayPosition position) const;
    QVariantMap popupBannersMap() const;
    std::optional<QString> currentScreenName() const { return m_currentScreenName; }
    const PopupBannerQueueController &queueController() const { return m_queueController; }

    DismissalMode dismissalMode() const { return m_dismissalMode; }
    void setDismissalMode(DismissalMode mode);
    void setScheduler(Scheduler scheduler);

    /// Replaces the state by a new screen's banners. A banner already visible at a position
    /// stays when the batch still uses that position; positions the batch does not use are
    /// emptied without any callback.
    void apply(const QList<ClassifiedPopupBanner> &popupBanners, const QString &screenName);
    /// Removes the banner at the position, then shows the next waiting one there.
    void dismissPopupBanner(DisplayPosition position);
    Q_INVOKABLE void dismissPopupBanner(const QString &position);
    /// Drops every banner and queue at once, without animation.
    Q_INVOKABLE void clearAllPopupBanners();
    /// The banner view at the position has left the screen. Only a disappearance caused by
    /// dismissPopupBanner() pulls the next banner.
    void bannerDidDisappear(DisplayPosition position);
    Q_INVOKABLE void bannerDidDisappear(const QString &position);

    /// Reports "open" once per showing: again only after the banner has left its position and
    /// been shown there anew.
    Q_INVOKABLE void sendOpenReactionIfNeeded(const QString &position, const QString &scenarioId);
    /// Reports "click", tells the host, then opens `linkUrl`; the banner stays.
    Q_INVOKABLE void handleClick(const QString &position, const QString &scenarioId,
                                 const QString &linkUrl);
    /// Reports "close", tells the host, then dismisses the banner.
    Q_INVOKABLE void handleClose(const QString &position, const QString &scenarioId);
    /// The banner's image could not be loaded. A banner with a title, body or button text stays
    /// and false is returned; one with nothing else to show is reported to the host as an
    /// error, dismissed without any reaction, and true is returned.
    Q_INVOKABLE bool handleImageLoadFailure(const QString &position, const QString &scenarioId);

    // Read by the banner views; the store never calls them itself.
    ReactionHandler reactionHandler() const { return m_reactionHandler; }
    void setReactionHandler(ReactionHandler handler) { m_reactionHandler = std::move(handler); }
    MessageHandler messageClickedHandler() const { return m_messageClickedHandler; }
    void setMessageClickedHandler(MessageHandler handler)
    {
        m_messageClickedHandler = std::move(handler);
    }
    MessageHandler messageDismissedHandler() const { return m_messageDismissedHandler; }
    void setMessageDismissedHandler(MessageHandler handler)
    {
        m_messageDismissedHandler = std::move(handler);
    }
    MessageErrorHandler messageErrorHandler() const { return m_messageErrorHandler; }
    void setMessageErrorHandler(MessageErrorHandler handler)
    {
        m_messageErrorHandler = std::move(handler);
    }

Q_SIGNALS:
    void popupBannersChanged();
    /// The banner at `position` (a wire name) appeared, changed or went; `animated` is false
    /// only for clearAllPopupBanners().
    void popupBannerChanged(const QString &position, bool animated);
    void currentScreenNameChanged();
    void dismissalModeChanged();

private:
    QVariant currentScreenNameValue() const;
    void setCurrentScreenName(const std::optional<QString> &name);
    bool showNext(DisplayPosition position);
    void removeVisible(DisplayPosition position);
    /// The banner on show at the named position if it is the named scenario, else nullopt.
    std::optional<PopupBannerComponentData> shownBanner(const QString &position,
                                                        const QString &scenarioId) const;
    void publish(const std::set<DisplayPosition> &positions, bool animated);

    std::map<DisplayPosition, PopupBannerComponentData> m_popupBanners;
    PopupBannerQueueController m_queueController;
    std::optional<QString> m_currentScreenName;
    DismissalMode m_dismissalMode = DismissalMode::AfterRemovalAnimation;
    Scheduler m_scheduler;
    // Bumped by every removal that starts an animation, so that the completion of an older
    // removal cannot cut a newer one at the same position short.
    std::map<DisplayPosition, quint64> m_removalSerials;
    // Positions whose banner on show has reported "open"; a position leaves when its banner
    // does.
    std::set<DisplayPosition> m_openReported;

    ReactionHandler m_reactionHandler;
    MessageHandler m_messageClickedHandler;
    MessageHandler m_messageDismissedHandler;
    MessageErrorHandler m_messageErrorHandler;
};

} // namespace velmora
