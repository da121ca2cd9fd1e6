#include "fuzzsupport.h"
#include "network/apiresponse.h"

// The whole view-event answer: envelope, actions, creatives, layouts and dates. The bytes are
// not copied, so a decoder that reads past the end of its input is caught.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool ready = velmora::fuzz::quiet();
    Q_UNUSED(ready);
    const auto body
        = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto response = velmora::decodeAPIResponse(body);
    if (response) {
        for (const auto &action : response.value().actions) {
            velmora::fuzz::require(action.meta.updatedDate.isValid(), "every action has a date");
        }
    }
    return 0;
}
