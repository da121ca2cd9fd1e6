#include "fuzzsupport.h"
#include "presentation/colors.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

// A creative's colour text; the first byte picks the alpha.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const qreal alpha = data[0] / 255.0;
    const QString text
        = QString::fromUtf8(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const auto color = velmora::hexColor(text, alpha);
    if (color) {
        static const QRegularExpression accepted(u"^[+-]?[0-9A-Fa-f]+$"_s);
        velmora::fuzz::require(color->isValid(), "an accepted colour is valid");
        velmora::fuzz::require(accepted.match(text).hasMatch(),
                               "only an optional sign and hex digits are accepted");
    }
    return 0;
}
