#pragma once

#include "presentation/colors.h"

#include <QObject>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

namespace velmora::quick {

/// What the module's own QML files need from the library, as the singleton `IAMSupport`: the
/// process-wide stores and the colour rule. Not for hosts; its members may change.
class QmlSupport : public QObject
{
    Q_OBJECT
    QML_NAMED_ELEMENT(IAMSupport)
    QML_SINGLETON
    Q_PROPERTY(QObject *popupBannerStore READ popupBannerStore CONSTANT)
    Q_PROPERTY(QObject *embeddedBannerStore READ embeddedBannerStore CONSTANT)
    /// The colour rule and palette: `IAMSupport.colors.hexColor(text) ?? "white"`.
    Q_PROPERTY(QObject *colors READ colors CONSTANT)

public:
    explicit QmlSupport(QObject *parent = nullptr);

    QObject *popupBannerStore() const;
    QObject *embeddedBannerStore() const;
    QObject *colors() const;

private:
    Colors *m_colors;
};

} // namespace velmora::quick
