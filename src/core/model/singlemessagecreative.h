#pragma once

#include <VelmoraInAppMessaging/velmora_export.h>

#include <QMetaType>
#include <QString>

#include <optional>

namespace velmora {

// The creative types are Q_GADGETs so that QML reads them as values
// (message.creative.title.text). Colours and links read as text in QML, empty when the
// creative has none, which is also how every view treats an absent one. Optional parts read
// through hasTitle, hasBody and hasButton, while title, body and button read as empty values
// when absent, so bindings such as `text: creative.title.text` never fail.

/// The message's image and the link opened when it is tapped.
struct VELMORA_EXPORT ImageContent
{
    Q_GADGET
    Q_PROPERTY(QString url MEMBER url CONSTANT)
    Q_PROPERTY(QString linkUrl READ linkUrlText CONSTANT)

public:
    QString url;
    std::optional<QString> linkUrl;

private:
    QString linkUrlText() const { return linkUrl.value_or(QString()); }
};

/// A title or body text with its optional colours.
struct VELMORA_EXPORT TextContent
{
    Q_GADGET
    Q_PROPERTY(QString text MEMBER text CONSTANT)
    Q_PROPERTY(QString textColor READ textColorText CONSTANT)
    Q_PROPERTY(QString backgroundColor READ backgroundColorText CONSTANT)

public:
    QString text;
    std::optional<QString> textColor;
    std::optional<QString> backgroundColor;

private:
    QString textColorText() const { return textColor.value_or(QString()); }
    QString backgroundColorText() const { return backgroundColor.value_or(QString()); }
};

/// The button: its label, link and optional colours.
struct VELMORA_EXPORT ButtonContent
{
    Q_GADGET
    Q_PROPERTY(QString text MEMBER text CONSTANT)
    Q_PROPERTY(QString linkUrl READ linkUrlText CONSTANT)
    Q_PROPERTY(QString textColor READ textColorText CONSTANT)
    Q_PROPERTY(QString backgroundColor READ backgroundColorText CONSTANT)

public:
    QString text;
    std::optional<QString> linkUrl;
    std::optional<QString> textColor;
    std::optional<QString> backgroundColor;

private:
    QString linkUrlText() const { return linkUrl.value_or(QString()); }
    QString textColorText() const { return textColor.value_or(QString()); }
    QString backgroundColorText() const { return backgroundColor.value_or(QString()); }
};

/// What a message shows. Colours and links stay as received text; the views interpret them.
struct VELMORA_EXPORT SingleMessageCreative
{
    Q_GADGET
    Q_PROPERTY(velmora::ImageContent image MEMBER image CONSTANT)
    Q_PROPERTY(bool hasTitle READ hasTitle CONSTANT)
    Q_PROPERTY(velmora::TextContent title READ titleValue CONSTANT)
    Q_PROPERTY(bool hasBody READ hasBody CONSTANT)
    Q_PROPERTY(velmora::TextContent body READ bodyValue CONSTANT)
    Q_PROPERTY(bool hasButton READ hasButton CONSTANT)
    Q_PROPERTY(velmora::ButtonContent button READ buttonValue CONSTANT)
    Q_PROPERTY(QString backgroundColor READ backgroundColorText CONSTANT)

public:
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

private:
    bool hasTitle() const { return title.has_value(); }
    TextContent titleValue() const { return title.value_or(TextContent()); }
    bool hasBody() const { return body.has_value(); }
    TextContent bodyValue() const { return body.value_or(TextContent()); }
    bool hasButton() const { return button.has_value(); }
    ButtonContent buttonValue() const { return button.value_or(ButtonContent()); }
    QString backgroundColorText() const { return backgroundColor.value_or(QString()); }
};

} // namespace velmora
