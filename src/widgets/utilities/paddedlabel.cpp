#include "utilities/paddedlabel.h"

namespace velmora {

PaddedLabel::PaddedLabel(QWidget *parent)
    : QLabel(parent)
{
    setContentsMargins(0, 0, 0, 0);
}

// QLabel already lays its text out inside the contents margins and adds them to its size
// hints, which is exactly an inset text rectangle grown back by the insets.
void PaddedLabel::setTextInsets(const QMargins &insets)
{
    setContentsMargins(insets);
}

} // namespace velmora
