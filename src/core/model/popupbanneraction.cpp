#include <VelmoraInAppMessaging/popupbanneraction.h>

using namespace Qt::StringLiterals;

namespace velmora {

namespace {

// An absent length reads as 0 with an empty unit, so that QML bindings never meet undefined.
QVariantMap lengthMap(const std::optional<ContentsLength> &length)
{
    return { { u"length"_s, length ? length->length : 0 },
             { u"unit"_s, length ? rawValue(length->unit) : QString() } };
}

} // namespace

QVariantMap PopupBannerAction::sizeMap() const
{
    const auto width = size ? std::optional(size->width) : std::nullopt;
    const auto height = size ? size->height : std::nullopt;
    return { { u"width"_s, lengthMap(width) },
             { u"hasHeight"_s, height.has_value() },
             { u"height"_s, lengthMap(height) } };
}

} // namespace velmora
