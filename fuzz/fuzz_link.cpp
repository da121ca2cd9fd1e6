#include "fuzzsupport.h"
#include "presentation/linkopening.h"

using namespace Qt::StringLiterals;

// A creative's link: what tapping it would do.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const auto decision = velmora::LinkDecision::of(text);
    using Kind = velmora::LinkDecision::Kind;
    velmora::fuzz::require((decision.kind == Kind::Ignore) == text.isEmpty(),
                           "only an empty link is ignored");
    if (decision.kind == Kind::Open) {
        const QString scheme = decision.url.scheme();
        velmora::fuzz::require(scheme == u"http" || scheme == u"https",
                               "only http and https are opened");
    }
    return 0;
}
