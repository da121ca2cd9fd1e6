#include "fuzzsupport.h"
#include "images/animatedimagedecoder.h"

// Downloaded image bytes: GIF animations within the frame and pixel budget, or a still.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool ready = velmora::fuzz::quiet();
    Q_UNUSED(ready);
    const auto image = velmora::AnimatedImageDecoder::decode(velmora::fuzz::bytes(data, size));
    Q_UNUSED(image);
    return 0;
}
