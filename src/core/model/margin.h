#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QMetaType>

namespace velmora {

/// Distances in points from the banner's edges; taken as received, negative values included.
struct VELMORA_EXPORT Margin
{
    Q_GADGET
    Q_PROPERTY(double top MEMBER top CONSTANT)
    Q_PROPERTY(double bottom MEMBER bottom CONSTANT)
    Q_PROPERTY(double left MEMBER left CONSTANT)
    Q_PROPERTY(double right MEMBER right CONSTANT)

public:
    double top = 0;
    double bottom = 0;
    double left = 0;
    double right = 0;
};

} // namespace velmora
