#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QMetaType>
#include <QString>

#include <memory>

namespace velmora {

struct PopupModalAction;
struct PopupBannerAction;
struct EmbeddedBannerAction;
struct SingleMessageCreative;

/// A message the back end chose for a screen, as the host's delegate receives it.
///
/// Apart from its type, an embedded banner's component id and an unsupported message's raw
/// type, the content is for the library's own views.
class VELMORA_EXPORT InAppMessage
{
    Q_GADGET
    Q_PROPERTY(Type type READ type CONSTANT)
    Q_PROPERTY(QString rawType READ rawType CONSTANT)
    Q_PROPERTY(QString componentId READ componentId CONSTANT)

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
    struct Data;
    std::shared_ptr<const Data> d;
};

} // namespace velmora

Q_DECLARE_METATYPE(velmora::InAppMessage)
