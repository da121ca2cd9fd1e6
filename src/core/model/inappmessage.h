#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>
#include <VelmoraInAppMessaging/velmora_export.h>

#include <QMetaType>
#include <QString>
#include <QVariant>

#include <memory>

namespace velmora {

struct PopupModalAction;
struct PopupBannerAction;
struct EmbeddedBannerAction;

/// A message the back end chose for a screen, as the host's delegate receives it.
///
/// QML reads it as a value: `message.creative.title.text`, `message.componentId`, and for a
/// popup banner `message.popupBanner.position`. `creative` is empty for an unsupported message;
/// `popupBanner` is undefined unless the message is a popup banner.
class VELMORA_EXPORT InAppMessage
{
    Q_GADGET
    Q_PROPERTY(Type type READ type CONSTANT)
    Q_PROPERTY(QString rawType READ rawType CONSTANT)
    Q_PROPERTY(QString componentId READ componentId CONSTANT)
    Q_PROPERTY(velmora::SingleMessageCreative creative READ creativeValue CONSTANT)
    Q_PROPERTY(QVariant popupBanner READ popupBannerValue CONSTANT)

public:
    enum class Type { PopupModal, PopupBanner, EmbeddedBanner, Unsupported };
    Q_ENUM(Type)

    /// An unsupported message with an empty raw type; exists for the meta-type system.
    InAppMessage();
    static InAppMessage fromPopupModal(const PopupModalAction &action);
    static InAppMessage fromPopupBanner(const PopupBannerAction &action);
    static InAppMessage fromEmbeddedBanner(const EmbeddedBannerAction &action);
    static InAppMessage unsupported(const QString &rawType);

    Type type() const;
    /// The wire name of the type ("popup_modal", ...), or the unknown text as received.
    QString rawType() const;
    /// The embedded banner's component id; empty for other types.
    QString componentId() const;

    /// The payload of the matching type, else nullptr.
    const PopupModalAction *popupModalAction() const;
    const PopupBannerAction *popupBannerAction() const;
    const EmbeddedBannerAction *embeddedBannerAction() const;
    /// The creative of any supported type, else nullptr.
    const SingleMessageCreative *creative() const;

private:
    SingleMessageCreative creativeValue() const;
    QVariant popupBannerValue() const;

    struct Data;
    std::shared_ptr<const Data> d;
};

} // namespace velmora

Q_DECLARE_METATYPE(velmora::InAppMessage)
