#pragma once

#include <QColor>
#include <QObject>
#include <QStringView>
#include <QVariant>

#include <optional>

namespace velmora {

/// Parses a creative's colour text: the whole text as a signed 64-bit hexadecimal integer
/// (optional single "+" or "-", then hex digits), red in bits 16-23, green 8-15, blue 0-7.
///
/// The limits are deliberate and hosts rely on them: a leading "#" or blank is rejected (the
/// caller falls back to its default), higher bits are ignored ("FF0000FF" is blue), "F00" is
/// (0, 15, 0), "-1" is white, and overflow or non-ASCII text is rejected.
std::optional<QColor> hexColor(QStringView hex, qreal alpha = 1.0);

/// The library's fixed palette.
namespace palette {
QColor defaultTitleTextColor(); ///< #1D2635
QColor defaultBodyTextColor(); ///< #333333
QColor coverImagePlaceholderColor(); ///< #586976 at alpha 0.1
QColor closeButtonIconColor(); ///< #44464B
QColor closeButtonBackgroundColor(); ///< #D3D4DB
} // namespace palette

/// The colour rules and palette for QML views, where the engine's own conversion would accept
/// "#ffffff": `Colors.hexColor(creative.backgroundColor) ?? "white"`.
class Colors : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QColor defaultTitleTextColor READ defaultTitleTextColor CONSTANT)
    Q_PROPERTY(QColor defaultBodyTextColor READ defaultBodyTextColor CONSTANT)
    Q_PROPERTY(QColor coverImagePlaceholderColor READ coverImagePlaceholderColor CONSTANT)
    Q_PROPERTY(QColor closeButtonIconColor READ closeButtonIconColor CONSTANT)
    Q_PROPERTY(QColor closeButtonBackgroundColor READ closeButtonBackgroundColor CONSTANT)

public:
    explicit Colors(QObject *parent = nullptr);

    /// The colour as hexColor() reads it, or an invalid QVariant (undefined in QML).
    Q_INVOKABLE QVariant hexColor(const QString &text, qreal alpha = 1.0) const;

private:
    static QColor defaultTitleTextColor() { return palette::defaultTitleTextColor(); }
    static QColor defaultBodyTextColor() { return palette::defaultBodyTextColor(); }
    static QColor coverImagePlaceholderColor() { return palette::coverImagePlaceholderColor(); }
    static QColor closeButtonIconColor() { return palette::closeButtonIconColor(); }
    static QColor closeButtonBackgroundColor() { return palette::closeButtonBackgroundColor(); }
};

} // namespace velmora
