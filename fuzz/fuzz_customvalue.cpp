#include "fuzzsupport.h"
#include <VelmoraInAppMessaging/customvalue.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// Whatever decodes must encode to JSON that decodes to the same value.
void check(const QJsonValue &json)
{
    const auto value = velmora::CustomValue::fromJson(json);
    if (!value)
        return;
    const auto encoded = value->toJson();
    velmora::fuzz::require(encoded.has_value(), "a decoded value encodes");
    const auto again = velmora::CustomValue::fromJson(*encoded);
    velmora::fuzz::require(again && *again == *value, "decoding round-trips");
}

} // namespace

// Custom parameter values as JSON: the document itself, and each of its members.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QJsonDocument document = QJsonDocument::fromJson(velmora::fuzz::bytes(data, size));
    if (document.isArray()) {
        check(document.array());
        for (const QJsonValue &element : document.array())
            check(element);
    } else if (document.isObject()) {
        for (const QJsonValue &member : document.object())
            check(member);
    }
    return 0;
}
