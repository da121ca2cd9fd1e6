#pragma once

#include <VelmoraInAppMessaging/contentssize.h>
#include <VelmoraInAppMessaging/displayposition.h>
#include <VelmoraInAppMessaging/margin.h>
#include <VelmoraInAppMessaging/singlemessagecreative.h>

#include <QMetaType>

#include <optional>

namespace velmora {

/// A popup banner: where it sits, how large it is and what it shows.
///
/// In QML `position` is the wire name ("top_left", ...); without an explicit size `size`
/// reads as zero lengths: check `hasSize`.
struct VELMORA_EXPORT PopupBannerAction
{
    Q_GADGET
    Q_PROPERTY(QString position READ positionName CONSTANT)
    Q_PROPERTY(velmora::Margin margin MEMBER margin CONSTANT)
    Q_PROPERTY(bool hasSize READ hasSize CONSTANT)
    Q_PROPERTY(velmora::ContentsSize size READ sizeValue CONSTANT)
    Q_PROPERTY(velmora::SingleMessageCreative creative MEMBER creative CONSTANT)

public:
    DisplayPosition position = DisplayPosition::Top;
    Margin margin;
    /// Absent: the banner sizes itself from its content and position.
    std::optional<ContentsSize> size;
    SingleMessageCreative creative;

private:
    QString positionName() const { return rawValue(position); }
    bool hasSize() const { return size.has_value(); }
    ContentsSize sizeValue() const { return size.value_or(ContentsSize()); }
};

} // namespace velmora
