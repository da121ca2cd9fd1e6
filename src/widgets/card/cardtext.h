#pragma once

#include <VelmoraInAppMessaging/singlemessagecreative.h>

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

} // namespace velmora
