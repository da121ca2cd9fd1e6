#pragma once

#include <QLabel>
#include <QMargins>

namespace velmora {

/// A label that keeps `textInsets` of room around its text; its size hints include them, so a
/// coloured background shows as padding around the text.
class PaddedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit PaddedLabel(QWidget *parent = nullptr);

    QMargins textInsets() const { return contentsMargins(); }
    void setTextInsets(const QMargins &insets);
};

} // namespace velmora
