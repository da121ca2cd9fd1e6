#pragma once

#include <VelmoraInAppMessaging/margin.h>

#include <QMarginsF>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <optional>

namespace velmora {

struct ContentsLength
{
    enum class Unit {
        Px, ///< points on screen, 1 to 999
        Percentage, ///< per cent of the safe extent in the same direction, 1 to 100
    };

    int length = 0;
    Unit unit = Unit::Px;

    /// The description of why the length is out of bounds, or nullopt when it is valid.
    static std::optional<QString> boundsError(qint64 length, Unit unit);
};

QString rawValue(ContentsLength::Unit unit);

/// The screen area a popup banner is sized against: bounds and the insets that are not safe.
struct ScreenSnapshot
{
    QRectF bounds;
    QMarginsF safeAreaInsets;

    /// The phone-sized stand-in used when there is no screen yet: 390 x 844, no insets.
    static ScreenSnapshot fallback() { return { QRectF(0, 0, 390, 844), {} }; }
};

struct ContentsSize
{
    ContentsLength width;
    std::optional<ContentsLength> height;

    struct Resolved
    {
        double width = 0;
        std::optional<double> height;
    };

    /// Percentages are of the whole safe extent, while the clamp uses the extent left between
    /// the margins, so 100% with margins always resolves to the space between them.
    Resolved resolve(const ScreenSnapshot &snapshot, const Margin &margin) const;
};

} // namespace velmora
