#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QMetaType>
#include <QString>

#include <optional>

namespace velmora {

/// One dimension of a banner size; QML reads `length` and `unit` ("px" or "percentage").
struct VELMORA_EXPORT ContentsLength
{
    Q_GADGET
    Q_PROPERTY(int length MEMBER length CONSTANT)
    Q_PROPERTY(QString unit READ unitName CONSTANT)

public:
    enum class Unit {
        Px, ///< points on screen, 1 to 999
        Percentage, ///< per cent of the safe extent in the same direction, 1 to 100
    };

    int length = 0;
    Unit unit = Unit::Px;

    /// The description of why the length is out of bounds, or nullopt when it is valid.
    static std::optional<QString> boundsError(qint64 length, Unit unit);

private:
    QString unitName() const;
};

QString rawValue(ContentsLength::Unit unit);

inline QString ContentsLength::unitName() const
{
    return rawValue(unit);
}

/// An explicit popup banner size as received; layout resolves it against the screen. In QML
/// an absent height reads as a zero length: check `hasHeight`.
struct VELMORA_EXPORT ContentsSize
{
    Q_GADGET
    Q_PROPERTY(velmora::ContentsLength width MEMBER width CONSTANT)
    Q_PROPERTY(bool hasHeight READ hasHeight CONSTANT)
    Q_PROPERTY(velmora::ContentsLength height READ heightValue CONSTANT)

public:
    ContentsLength width;
    std::optional<ContentsLength> height;

private:
    bool hasHeight() const { return height.has_value(); }
    ContentsLength heightValue() const { return height.value_or(ContentsLength()); }
};

} // namespace velmora
