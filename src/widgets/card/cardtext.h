#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

#include <QColor>
#include <QFont>

#include <optional>

// Small pieces every message view needs when it turns a creative's texts into labels.
namespace velmora {

/// Whether a creative text is there to be shown: present and not empty.
inline bool hasText(const std::optional<TextContent> &text)
{
    return text && !text->text.isEmpty();
}

/// `base` at a pixel size and weight: the design's points are device-independent pixels.
inline QFont pixelFont(const QFont &base, int pixelSize, QFont::Weight weight)
{
    QFont font(base);
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

class PaddedLabel;

/// How a view draws a creative's title or body.
struct CardTextStyle
{
    int pixelSize;
    QFont::Weight weight;
    /// The colour when the creative's is missing or not one.
    QColor defaultColor;
    /// Around the text, only when the creative gives a valid background colour.
    qreal backgroundPadding;
    /// 0 for unlimited.
    int maximumLines = 0;
};

/// Shows `text` on `label` in `style`, the creative's colours over the defaults; hides the
/// label when there is no text. Safe to call again when the text changes.
void applyCardText(PaddedLabel *label, const QFont &base, const std::optional<TextContent> &text,
                   const CardTextStyle &style);

} // namespace velmora
