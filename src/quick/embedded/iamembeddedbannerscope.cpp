#include "iamembeddedbannerscope.h"

#include "common/logging.h"

#include <QMetaProperty>
#include <QQuickWindow>
#include <QSet>

using namespace Qt::StringLiterals;

namespace velmora::quick {

namespace {

constexpr char screenNameProperty[] = "iamScreenName";

bool isName(const QVariant &value)
{
    return value.isValid() && !value.isNull() && value.canConvert<QString>();
}

} // namespace

IAMEmbeddedBannerScope::IAMEmbeddedBannerScope(QObject *parent)
    : QObject(parent)
{ }

IAMEmbeddedBannerScope::~IAMEmbeddedBannerScope()
{
    disconnectAncestors();
}

void IAMEmbeddedBannerScope::setItem(QQuickItem *item)
{
    if (item == m_item)
        return;
    QObject::disconnect(m_windowConnection);
    m_item = item;
    if (m_item) {
        m_windowConnection = connect(m_item, &QQuickItem::windowChanged, this,
                                     &IAMEmbeddedBannerScope::warnIfUnresolved);
    }
    Q_EMIT itemChanged();
    resolve();
}

void IAMEmbeddedBannerScope::setComponentId(const QString &componentId)
{
    if (componentId == m_componentId)
        return;
    m_componentId = componentId;
    Q_EMIT componentIdChanged();
    warnIfUnresolved();
}

void IAMEmbeddedBannerScope::setExplicitScreenName(const QVariant &name)
{
    if (name == m_explicitScreenName)
        return;
    m_explicitScreenName = name;
    Q_EMIT explicitScreenNameChanged();
    resolve();
}

QVariant IAMEmbeddedBannerScope::screenName() const
{
    return m_screenName;
}

void IAMEmbeddedBannerScope::componentComplete()
{
    // Bindings of the banner (its explicit name among them) are in place only now.
    m_complete = true;
    warnIfUnresolved();
}

void IAMEmbeddedBannerScope::disconnectAncestors()
{
    for (const QMetaObject::Connection &connection : std::as_const(m_ancestorConnections))
        QObject::disconnect(connection);
    m_ancestorConnections.clear();
}

void IAMEmbeddedBannerScope::resolve()
{
    // Any reparenting on the way up, or a new name on the screen found, changes the answer.
    disconnectAncestors();
    QVariant inherited;
    if (m_item) {
        m_ancestorConnections.append(
            connect(m_item, &QQuickItem::parentChanged, this, &IAMEmbeddedBannerScope::resolve));
        for (QQuickItem *ancestor = m_item->parentItem(); ancestor;
             ancestor = ancestor->parentItem()) {
            const QMetaObject *meta = ancestor->metaObject();
            const int index = meta->indexOfProperty(screenNameProperty);
            if (index >= 0) {
                const QMetaProperty property = meta->property(index);
                if (property.hasNotifySignal()) {
                    const QMetaMethod resolveMethod
                        = metaObject()->method(metaObject()->indexOfMethod("resolve()"));
                    m_ancestorConnections.append(
                        connect(ancestor, property.notifySignal(), this, resolveMethod));
                }
                inherited = property.read(ancestor);
                break;
            }
            m_ancestorConnections.append(connect(ancestor, &QQuickItem::parentChanged, this,
                                                 &IAMEmbeddedBannerScope::resolve));
        }
    }
    m_inheritedScreenName = isName(inherited) ? QVariant(inherited.toString()) : QVariant();
    const QVariant resolved = isName(m_explicitScreenName)
        ? QVariant(m_explicitScreenName.toString())
        : m_inheritedScreenName;
    if (resolved != m_screenName) {
        m_screenName = resolved;
        Q_EMIT screenNameChanged();
    }
    warnIfUnresolved();
}

void IAMEmbeddedBannerScope::warnIfUnresolved()
{
    if (!m_complete || !m_item || !m_item->window() || m_screenName.isValid())
        return;
    static QSet<QString> warnedComponentIds;
    if (warnedComponentIds.contains(m_componentId))
        return;
    warnedComponentIds.insert(m_componentId);
    detail::printWarning(u"IAMEmbeddedBanner { componentId: \""_s + m_componentId
                         + u"\" } could not resolve a screenName and will never display. "
                           "Place it under VelmoraScreen, or pass the screenName argument "
                           "explicitly."_s);
}

} // namespace velmora::quick
