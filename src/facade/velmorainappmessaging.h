#pragma once

#include <VelmoraInAppMessaging/customparameterbuilder.h>
#include <VelmoraInAppMessaging/inappmessage.h>
#include <VelmoraInAppMessaging/velmora_export.h>
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

QT_BEGIN_NAMESPACE
class QWidget;
QT_END_NAMESPACE

namespace velmora {

class VelmoraInAppMessagingDelegate;
class VelmoraInAppMessagingPrivate;

/// A vertical edge of a widget that bounds the popup banner area of a screen, read in the
/// target's coordinates each time the banners are laid out: top-row banners sit below a top
/// anchor (say, the bottom of a toolbar), bottom-row banners above a bottom anchor (the top of
/// a tab bar).
struct WidgetAnchor
{
    enum class Edge { Top, Bottom };
    QWidget *widget = nullptr;
    Edge edge = Edge::Top;

    static WidgetAnchor topOf(QWidget *widget) { return { widget, Edge::Top }; }
    static WidgetAnchor bottomOf(QWidget *widget) { return { widget, Edge::Bottom }; }
};

/// The library's one entry point: configure it once, then report every screen the user views.
///
/// \code
/// auto &messaging = velmora::VelmoraInAppMessaging::shared();
/// messaging.setup(u"API-KEY"_s, u"tenant"_s);
/// messaging.setDelegate(&observer);
/// messaging.screenView(u"home"_s, homePage, {}, {}, [] {
///     return velmora::CustomParameterBuilder::buildBlock({ velmora::putString(u"plan"_s,
///     u"gold"_s) });
/// });
/// \endcode
///
/// Every call may come from any thread; screen views move to the GUI thread in call order.
/// Create IAMUIEmbeddedBanner slots after the first use of shared(), which hands them its store.
/// The library's callbacks and signals arrive on the GUI thread.
class VELMORA_EXPORT VelmoraInAppMessaging : public QObject
{
    Q_OBJECT

public:
    /// Builds the custom parameters of a screen view; called once, on the caller's thread.
    using CustomParameters = std::function<QList<CustomParameterEntry>()>;

    /// The process-wide instance, created on first use on the GUI thread's behalf.
    static VelmoraInAppMessaging &shared();

    /// Configures the library for the default API host.
    void setup(const QString &apiKey, const QString &tenantId);
    /// Configures the library; an invalid host is refused with a warning on standard output
    /// and every later screen view reports it, until a valid setup.
    void setup(const QString &apiKey, const QString &tenantId, const QString &apiHost);

    VelmoraInAppMessagingDelegate *delegate() const;
    /// Held weakly: destroying the delegate simply stops the callbacks.
    void setDelegate(VelmoraInAppMessagingDelegate *delegate);

    /// Sent with every request as given; absent means no customer.
    std::optional<QString> customerId() const;
    void setCustomerId(const std::optional<QString> &customerId);
    bool isStrictLogin() const;
    void setStrictLogin(bool strictLogin);

    /// Reports a screen and shows its messages on the top widget of the active window: the
    /// active modal widget, else the window, then down through current pages of stacked and
    /// tab widgets. Without an active window the delegate gets a precondition error.
    void screenView(const QString &screenName, const CustomParameters &customParameter = {});
    /// Reports a screen and shows its messages on `target`; top-row banners are pinned below
    /// `topAnchor` and bottom-row banners above `bottomAnchor` when they are given. Available
    /// when the library is built with its Widgets front-end.
    void screenView(const QString &screenName, QWidget *target, const WidgetAnchor &topAnchor = {},
                    const WidgetAnchor &bottomAnchor = {},
                    const CustomParameters &customParameter = {});

    /// While set, arriving popups (the modal and popup banners) are dropped without display
    /// and without reactions; embedded banners still fill their slots. Off by default.
    void setMessagesSuppressed(bool suppressed);
    bool messagesSuppressed() const;
    /// Removes the modal and every popup banner at once, silently, as a new screen does.
    void dismissAll();

Q_SIGNALS:
    // The delegate's operations as signals, for hosts that prefer connections (and QML).
    void messageDismissed(const velmora::InAppMessage &message);
    void messageClicked(const velmora::InAppMessage &message);
    void messageDetectedForDisplay(const velmora::InAppMessage &message);
    void messageError(const std::optional<velmora::InAppMessage> &message,
                      const velmora::VelmoraError &error);

private:
    VelmoraInAppMessaging();
    ~VelmoraInAppMessaging() override;
    friend class VelmoraInAppMessagingPrivate;
    std::unique_ptr<VelmoraInAppMessagingPrivate> d;
};

} // namespace velmora
