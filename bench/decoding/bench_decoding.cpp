// Decoding a 1,000-action view-event response, as a ratio to a bare QJsonDocument::fromJson
// of the same bytes measured in the same run: what the library's tolerant, typed decoding
// costs on top of parsing the JSON at all.
#include "network/apiresponse.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

QByteArray makeResponse(int count)
{
    static const char *positions[]
        = { "top_left",     "top",         "top_right", "center_left", "center",
            "center_right", "bottom_left", "bottom",    "bottom_right" };
    QByteArray json = R"({"status": "ok", "actions": [)";
    for (int i = 0; i < count; ++i) {
        if (i)
            json += ',';
        const QByteArray n = QByteArray::number(i);
        const QByteArray meta = R"({"meta": {"scenario_id": "scenario-)" + n
            + R"(", "updated_at": "2026-04-01T09:30:00.)" + QByteArray::number(100 + i % 900)
            + R"(+09:00", "priority": )" + QByteArray::number(i % 100) + R"(, "action_type": ")";
        const QByteArray creative
            = R"("creative_type": "single_message", "creative": {"image": {"url": "https://cdn.example.com/c/)"
            + n + R"(.png", "link_url": "https://shop.example.com/p/)" + n
            + R"("}, "title": {"text": "Title )" + n
            + R"(", "text_color": "1D2635"},)"
              R"( "body": {"text": "Body text of the message number )"
            + n
            + R"(", "text_color": "333333", "background_color": "FFFFFF"},)"
              R"( "button": {"text": "Open", "link_url": "https://x.example", "text_color": "FFFFFF", "background_color": "E4572E"},)"
              R"( "background_color": "F5F5F5"})";
        switch (i % 4) {
        case 0:
            json += meta + R"(popup_modal"}, )" + creative + '}';
            break;
        case 1:
            json += meta + R"(popup_banner"}, )" + creative + R"(, "layout": {"location": ")"
                + positions[i % 9]
                + R"(", "margin": {"top": 8, "bottom": 8, "left": 12, "right": 12},)"
                  R"( "size": {"width": {"length": 90, "unit": "percentage"}, "height": {"length": 120, "unit": "px"}}}})";
            break;
        case 2:
            json += meta + R"(embedded_banner"}, )" + creative
                + R"(, "layout": {"component_id": "slot-)" + QByteArray::number(i % 7) + R"("}})";
            break;
        default:
            json += meta + R"(carousel"}})";
        }
    }
    return json + "]}";
}

template<typename F> double medianMicroseconds(int rounds, int iterations, F &&work)
{
    std::vector<double> samples;
    for (int r = 0; r < rounds; ++r) {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < iterations; ++i)
            work();
        samples.push_back(double(timer.nsecsElapsed()) / 1000.0 / iterations);
    }
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QByteArray body = makeResponse(1000);
    int sink = 0;

    // Warm up both paths once so first-use costs (allocators, static data) are not measured.
    sink += int(QJsonDocument::fromJson(body).object().size());
    sink += int(velmora::decodeAPIResponse(body).value().actions.size());

    const double parse = medianMicroseconds(
        9, 20, [&] { sink += int(QJsonDocument::fromJson(body).object().size()); });
    const double decode = medianMicroseconds(9, 20, [&] {
        const auto decoded = velmora::decodeAPIResponse(body);
        sink += int(decoded.value().actions.size());
    });

    std::printf("response: 1000 actions, %lld bytes\n", static_cast<long long>(body.size()));
    std::printf("QJsonDocument::fromJson (baseline): %10.1f us\n", parse);
    std::printf("decodeAPIResponse:                 %10.1f us\n", decode);
    std::printf("ratio decode / parse: %.2f\n", decode / parse);
    return sink == 0 ? 1 : 0;
}
