#pragma once

#include <VelmoraInAppMessaging/inappmessage.h>
#include <VelmoraInAppMessaging/velmoraerror.h>

#include <QObject>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

namespace velmora::quick {

/// The library's facade for QML, as the singleton `VelmoraInAppMessaging`:
/// \code
/// import Velmora.InAppMessaging
/// Component.onCompleted: VelmoraInAppMessaging.setup("API-KEY", "tenant")
/// Connections {
///     target: VelmoraInAppMessaging
///     function onMessageClicked(message) { console.log(message.creative.title.text) }
/// }
/// \endcode
/// Every engine gets its own instance; all of them act on the one process-wide facade.
class QmlFacade : public QObject
{
    Q_OBJECT
    QML_NAMED_ELEMENT(VelmoraInAppMessaging)
    QML_SINGLETON
    /// The signed-in customer's id, or undefined for none.
    Q_PROPERTY(QVariant customerId READ customerId WRITE setCustomerId NOTIFY customerIdChanged)
    Q_PROPERTY(bool strictLogin READ isStrictLogin WRITE setStrictLogin NOTIFY strictLoginChanged)
    /// While set, arriving popups are dropped without display or reaction.
    Q_PROPERTY(bool messagesSuppressed READ messagesSuppressed WRITE setMessagesSuppressed NOTIFY
                   messagesSuppressedChanged)

public:
    explicit QmlFacade(QObject *parent = nullptr);

    Q_INVOKABLE void setup(const QString &apiKey, const QString &tenantId);
    Q_INVOKABLE void setup(const QString &apiKey, const QString &tenantId, const QString &apiHost);
    /// Removes the modal and every popup banner silently, as a new screen does.
    Q_INVOKABLE void dismissAll();

    QVariant customerId() const;
    void setCustomerId(const QVariant &customerId);
    bool isStrictLogin() const;
    void setStrictLogin(bool strictLogin);
    bool messagesSuppressed() const;
    void setMessagesSuppressed(bool suppressed);

Q_SIGNALS:
    void customerIdChanged();
    void strictLoginChanged();
    void messagesSuppressedChanged();

    void messageDismissed(const velmora::InAppMessage &message);
    void messageClicked(const velmora::InAppMessage &message);
    void messageDetectedForDisplay(const velmora::InAppMessage &message);
    /// `message` is undefined for errors that concern no message.
    void messageError(const QVariant &message, const velmora::VelmoraError &error);
};

} // namespace velmora::quick
