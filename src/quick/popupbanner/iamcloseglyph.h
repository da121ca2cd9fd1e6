#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

namespace velmora::quick {

/// The close button's disc with its cross, centred in the item, as the Widgets close button
/// paints it. IAMCloseButton puts it in its 44 x 44 hit area.
class IAMCloseGlyph : public QQuickPaintedItem
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(qreal discDiameter READ discDiameter CONSTANT)
    Q_PROPERTY(qreal glyphSize READ glyphSize CONSTANT)
    /// Draws a focus ring around the disc in this colour when valid.
    Q_PROPERTY(QColor ringColor READ ringColor WRITE setRingColor NOTIFY ringColorChanged)

public:
    explicit IAMCloseGlyph(QQuickItem *parent = nullptr);

    static qreal discDiameter();
    static qreal glyphSize();
    QColor ringColor() const { return m_ringColor; }
    void setRingColor(const QColor &color);

    void paint(QPainter *painter) override;

Q_SIGNALS:
    void ringColorChanged();

private:
    QColor m_ringColor;
};

} // namespace velmora::quick
