#pragma once

#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QQmlParserStatus>
#include <QQuickItem>
#include <QString>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

namespace velmora::quick {

/// The screen an embedded banner belongs to: the explicit name when one is given, else the
/// `iamScreenName` of the nearest enclosing item that declares one (a VelmoraScreen). A banner
/// shown in a window without either prints the library's warning, once per component id for
/// the whole process. Internal to IAMEmbeddedBanner.
class IAMEmbeddedBannerScope : public QObject, public QQmlParserStatus
{
    Q_OBJECT
    Q_INTERFACES(QQmlParserStatus)
    QML_ELEMENT
    Q_PROPERTY(QQuickItem *item READ item WRITE setItem NOTIFY itemChanged)
    Q_PROPERTY(QString componentId READ componentId WRITE setComponentId NOTIFY componentIdChanged)
    /// A string, or undefined to inherit.
    Q_PROPERTY(QVariant explicitScreenName READ explicitScreenName WRITE setExplicitScreenName
                   NOTIFY explicitScreenNameChanged)
    /// The resolved name, or undefined when there is none.
    Q_PROPERTY(QVariant screenName READ screenName NOTIFY screenNameChanged)

public:
    explicit IAMEmbeddedBannerScope(QObject *parent = nullptr);
    ~IAMEmbeddedBannerScope() override;

    QQuickItem *item() const { return m_item; }
    void setItem(QQuickItem *item);
    QString componentId() const { return m_componentId; }
    void setComponentId(const QString &componentId);
    QVariant explicitScreenName() const { return m_explicitScreenName; }
    void setExplicitScreenName(const QVariant &name);
    QVariant screenName() const;

    void classBegin() override { }
    void componentComplete() override;

Q_SIGNALS:
    void itemChanged();
    void componentIdChanged();
    void explicitScreenNameChanged();
    void screenNameChanged();

private Q_SLOTS:
    void resolve();

private:
    void warnIfUnresolved();
    void disconnectAncestors();

    QPointer<QQuickItem> m_item;
    QString m_componentId;
    QVariant m_explicitScreenName;
    QVariant m_inheritedScreenName;
    QVariant m_screenName;
    QList<QMetaObject::Connection> m_ancestorConnections;
    QMetaObject::Connection m_windowConnection;
    bool m_complete = false;
};

} // namespace velmora::quick
