#include "fuzzsupport.h"
#include "network/iso8601.h"

// Internet date-times; the first byte chooses whether fractional seconds are required.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const auto fraction = data[0] & 1 ? velmora::detail::FractionalSeconds::Required
                                      : velmora::detail::FractionalSeconds::Forbidden;
    const QString text
        = QString::fromUtf8(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const auto instant = velmora::detail::parseInternetDateTime(text, fraction);
    if (instant) {
        velmora::fuzz::require(instant->isValid(), "a parsed instant is valid");
        velmora::fuzz::require(instant->timeSpec() == Qt::UTC, "a parsed instant is in UTC");
    }
    return 0;
}
