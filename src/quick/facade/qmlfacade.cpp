#include "facade/qmlfacade.h"

#include <VelmoraInAppMessaging/velmorainappmessaging.h>

namespace velmora::quick {

QmlFacade::QmlFacade(QObject *parent)
    : QObject(parent)
{
    auto &facade = VelmoraInAppMessaging::shared();
    connect(&facade, &VelmoraInAppMessaging::messageDismissed, this, &QmlFacade::messageDismissed);
    connect(&facade, &VelmoraInAppMessaging::messageClicked, this, &QmlFacade::messageClicked);
    connect(&facade, &VelmoraInAppMessaging::messageDetectedForDisplay, this,
            &QmlFacade::messageDetectedForDisplay);
    connect(&facade, &VelmoraInAppMessaging::messageError, this,
            [this](const std::optional<InAppMessage> &message, const VelmoraError &error) {
                Q_EMIT messageError(message ? QVariant::fromValue(*message) : QVariant(), error);
            });
}

void QmlFacade::setup(const QString &apiKey, const QString &tenantId)
{
    VelmoraInAppMessaging::shared().setup(apiKey, tenantId);
}

void QmlFacade::setup(const QString &apiKey, const QString &tenantId, const QString &apiHost)
{
    VelmoraInAppMessaging::shared().setup(apiKey, tenantId, apiHost);
}

void QmlFacade::dismissAll()
{
    VelmoraInAppMessaging::shared().dismissAll();
}

QVariant QmlFacade::customerId() const
{
    const auto id = VelmoraInAppMessaging::shared().customerId();
    return id ? QVariant(*id) : QVariant();
}

void QmlFacade::setCustomerId(const QVariant &customerId)
{
    const auto old = this->customerId();
    // undefined and null both mean "signed out"; anything else is read as text.
    VelmoraInAppMessaging::shared().setCustomerId(customerId.isValid() && !customerId.isNull()
                                                      ? std::optional(customerId.toString())
                                                      : std::nullopt);
    if (this->customerId() != old)
        Q_EMIT customerIdChanged();
}

bool QmlFacade::isStrictLogin() const
{
    return VelmoraInAppMessaging::shared().isStrictLogin();
}

void QmlFacade::setStrictLogin(bool strictLogin)
{
    if (strictLogin == isStrictLogin())
        return;
    VelmoraInAppMessaging::shared().setStrictLogin(strictLogin);
    Q_EMIT strictLoginChanged();
}

bool QmlFacade::messagesSuppressed() const
{
    return VelmoraInAppMessaging::shared().messagesSuppressed();
}

void QmlFacade::setMessagesSuppressed(bool suppressed)
{
    if (suppressed == messagesSuppressed())
        return;
    VelmoraInAppMessaging::shared().setMessagesSuppressed(suppressed);
    Q_EMIT messagesSuppressedChanged();
}

} // namespace velmora::quick
