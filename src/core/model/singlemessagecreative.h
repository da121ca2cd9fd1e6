#pragma once

#include <QString>

#include <optional>

namespace velmora {

struct ImageContent
{
    QString url;
    std::optional<QString> linkUrl;
};

struct TextContent
{
    QString text;
    std::optional<QString> textColor;
    std::optional<QString> backgroundColor;
};

struct ButtonContent
{
    QString text;
    std::optional<QString> linkUrl;
    std::optional<QString> textColor;
    std::optional<QString> backgroundColor;
};

/// What a message shows. Colours and links stay as received text; the views interpret them.
struct SingleMessageCreative
{
    ImageContent image;
    std::optional<TextContent> title;
    std::optional<TextContent> body;
    std::optional<ButtonContent> button;
    std::optional<QString> backgroundColor;

    /// False only when there is nothing to draw: no image URL, no title text and no body text.
    bool isDisplayable() const
    {
        return !image.url.isEmpty() || (title && !title->text.isEmpty())
            || (body && !body->text.isEmpty());
    }
};

} // namespace velmora
