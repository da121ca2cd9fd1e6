#include "card/cardtext.h"

#include "presentation/colors.h"
#include "utilities/paddedlabel.h"

namespace velmora {

void applyCardText(PaddedLabel *label, const QFont &base, const std::optional<TextContent> &text,
                   const CardTextStyle &style)
{
    label->setFont(pixelFont(base, style.pixelSize, style.weight));
    label->setAlignment(Qt::AlignCenter);
    label->setWordWrap(true);
    label->setMaximumLineCount(style.maximumLines);
    label->setTextColor(
        text ? hexColor(text->textColor.value_or(QString())).value_or(style.defaultColor)
             : style.defaultColor);
    const std::optional<QColor> background
        = text ? hexColor(text->backgroundColor.value_or(QString())) : std::nullopt;
    const int padding = background ? int(style.backgroundPadding) : 0;
    label->setBackgroundColor(background.value_or(QColor()));
    label->setTextInsets(QMargins(padding, padding, padding, padding));
    label->setText(text ? text->text : QString());
    label->setVisible(hasText(text));
}

} // namespace velmora
