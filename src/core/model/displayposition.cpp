#include <VelmoraInAppMessaging/displayposition.h>

using namespace Qt::StringLiterals;

namespace velmora {

QString rawValue(DisplayPosition position)
{
    switch (position) {
    case DisplayPosition::TopLeft:
        return u"top_left"_s;
    case DisplayPosition::Top:
        return u"top"_s;
    case DisplayPosition::TopRight:
        return u"top_right"_s;
    case DisplayPosition::CenterLeft:
        return u"center_left"_s;
    case DisplayPosition::Center:
        return u"center"_s;
    case DisplayPosition::CenterRight:
        return u"center_right"_s;
    case DisplayPosition::BottomLeft:
        return u"bottom_left"_s;
    case DisplayPosition::Bottom:
        return u"bottom"_s;
    case DisplayPosition::BottomRight:
        return u"bottom_right"_s;
    }
    return {};
}

std::optional<DisplayPosition> displayPositionFromRawValue(QStringView raw)
{
    for (DisplayPosition position : allDisplayPositions) {
        if (raw == rawValue(position))
            return position;
    }
    return std::nullopt;
}

} // namespace velmora
