#include <VelmoraInAppMessaging/inappmessage.h>

#include <VelmoraInAppMessaging/embeddedbanneraction.h>
#include <VelmoraInAppMessaging/popupbanneraction.h>
#include <VelmoraInAppMessaging/popupmodalaction.h>

#include <variant>

using namespace Qt::StringLiterals;

namespace velmora {

struct InAppMessage::Data
{
    std::variant<PopupModalAction, PopupBannerAction, EmbeddedBannerAction, QString> payload;
};

InAppMessage::InAppMessage()
    : d(std::make_shared<const Data>(Data { QString() }))
{ }

InAppMessage InAppMessage::fromPopupModal(const PopupModalAction &action)
{
    InAppMessage message;
    message.d = std::make_shared<const Data>(Data { action });
    return message;
}

InAppMessage InAppMessage::fromPopupBanner(const PopupBannerAction &action)
{
    InAppMessage message;
    message.d = std::make_shared<const Data>(Data { action });
    return message;
}

InAppMessage InAppMessage::fromEmbeddedBanner(const EmbeddedBannerAction &action)
{
    InAppMessage message;
    message.d = std::make_shared<const Data>(Data { action });
    return message;
}

InAppMessage InAppMessage::unsupported(const QString &rawType)
{
    InAppMessage message;
    message.d = std::make_shared<const Data>(Data { rawType });
    return message;
}

InAppMessage::Type InAppMessage::type() const
{
    return Type(d->payload.index());
}

QString InAppMessage::rawType() const
{
    switch (type()) {
    case Type::PopupModal:
        return u"popup_modal"_s;
    case Type::PopupBanner:
        return u"popup_banner"_s;
    case Type::EmbeddedBanner:
        return u"embedded_banner"_s;
    case Type::Unsupported:
        return std::get<QString>(d->payload);
    }
    return {};
}

QString InAppMessage::componentId() const
{
    const auto *embedded = embeddedBannerAction();
    return embedded ? embedded->componentId : QString();
}

const PopupModalAction *InAppMessage::popupModalAction() const
{
    return std::get_if<PopupModalAction>(&d->payload);
}

const PopupBannerAction *InAppMessage::popupBannerAction() const
{
    return std::get_if<PopupBannerAction>(&d->payload);
}

const EmbeddedBannerAction *InAppMessage::embeddedBannerAction() const
{
    return std::get_if<EmbeddedBannerAction>(&d->payload);
}

const SingleMessageCreative *InAppMessage::creative() const
{
    if (const auto *modal = popupModalAction())
        return &modal->creative;
    if (const auto *banner = popupBannerAction())
        return &banner->creative;
    if (const auto *embedded = embeddedBannerAction())
        return &embedded->creative;
    return nullptr;
}

SingleMessageCreative InAppMessage::creativeValue() const
{
    const SingleMessageCreative *found = creative();
    return found ? *found : SingleMessageCreative();
}

QVariant InAppMessage::popupBannerValue() const
{
    const PopupBannerAction *banner = popupBannerAction();
    return banner ? QVariant::fromValue(*banner) : QVariant();
}

} // namespace velmora
