#pragma once

#include "presentation/colors.h"

#include <QJSValue>
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

    /// A custom parameter entry of `type` (see CustomParameter.qml); throws a TypeError for a
    /// value of another type.
    Q_INVOKABLE QVariant customParameter(const QString &type, const QJSValue &key,
                                         const QJSValue &value);
    /// A popup banner view has left the screen at `position`; tells the store when it waits
    /// for that to show the next banner there.
    Q_INVOKABLE void reportBannerDisappeared(const QString &position);

private:
    Colors *m_colors;
};

} // namespace velmora::quick
