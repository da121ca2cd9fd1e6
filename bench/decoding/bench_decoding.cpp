// Decoding a 1,000-action view-event response, as a ratio to a bare QJsonDocument::fromJson of
// the same bytes: what the library's tolerant, typed decoding costs on top of parsing the JSON
// at all. Rounds interleave the contenders so that drift on a shared machine hits them alike;
// each ratio is the median of the per-round ratios. `--details` adds the measurements behind
// the decoder's design (parser reuse, DOM against on-demand, the padding copy).
#include "network/apiresponse.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <simdjson.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

namespace {

QByteArray makeResponse(int count, bool nonAscii)
{
    static const char *positions[]
        = { "top_left",     "top",         "top_right", "center_left", "center",
            "center_right", "bottom_left", "bottom",    "bottom_right" };
    const QByteArray title = nonAscii ? "春のセール 😀 " : "Title ";
    const QByteArray body
        = nonAscii ? "すべての商品が二割引き、メッセージ番号 " : "Body text of the message number ";
    const QByteArray open = nonAscii ? "今すぐ見る" : "Open";
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
            + R"("}, "title": {"text": ")" + title + n
            + R"(", "text_color": "1D2635"}, "body": {"text": ")" + body + n
            + R"(", "text_color": "333333", "background_color": "FFFFFF"}, "button": {"text": ")"
            + open
            + R"(", "link_url": "https://x.example", "text_color": "FFFFFF", "background_color": "E4572E"},)"
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

struct Contender
{
    const char *name;
    std::function<void()> work;
};

// Median microseconds per call of each contender, and the median over rounds of each one's
// time divided by the first contender's time in the same round.
struct Result
{
    std::vector<double> micros;
    std::vector<double> ratios;
};

Result measure(const std::vector<Contender> &contenders, int rounds, int iterations)
{
    std::vector<std::vector<double>> times(contenders.size());
    std::vector<std::vector<double>> ratios(contenders.size());
    for (const Contender &c : contenders)
        c.work(); // first-use costs (allocators, the thread's parser) are not measured
    for (int r = 0; r < rounds; ++r) {
        for (size_t c = 0; c < contenders.size(); ++c) {
            QElapsedTimer timer;
            timer.start();
            for (int i = 0; i < iterations; ++i)
                contenders[c].work();
            times[c].push_back(double(timer.nsecsElapsed()) / 1000.0 / iterations);
            ratios[c].push_back(times[c].back() / times[0].back());
        }
    }
    const auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    Result result;
    for (size_t c = 0; c < contenders.size(); ++c) {
        result.micros.push_back(median(times[c]));
        result.ratios.push_back(median(ratios[c]));
    }
    return result;
}

void print(const char *title, const QByteArray &body, const std::vector<Contender> &contenders,
           int rounds, int iterations)
{
    const Result result = measure(contenders, rounds, iterations);
    std::printf("%s: %lld bytes\n", title, static_cast<long long>(body.size()));
    for (size_t c = 0; c < contenders.size(); ++c) {
        std::printf("  %-44s %10.1f us   ratio %.2f\n", contenders[c].name, result.micros[c],
                    result.ratios[c]);
    }
}

int sink = 0;

std::vector<Contender> decoders(const QByteArray &body)
{
    return {
        { "QJsonDocument::fromJson (baseline)",
          [&body] { sink += int(QJsonDocument::fromJson(body).object().size()); } },
        { "decodeAPIResponse",
          [&body] { sink += int(velmora::decodeAPIResponse(body).value().actions.size()); } },
        { "the same decoding over QJsonDocument",
          [&body] {
              sink += int(velmora::detail::decodeWithQJsonDocument(body).value().actions.size());
          } },
    };
}

// Touches every value, as a decoder must for on-demand parsing to reject what Qt rejects.
void walk(simdjson::ondemand::value value)
{
    switch (value.type().value_unsafe()) {
    case simdjson::ondemand::json_type::object:
        for (auto field : value.get_object()) {
            std::string_view key;
            sink += field.unescaped_key().get(key) == simdjson::SUCCESS ? int(key.size()) : 1;
            walk(field.value().value_unsafe());
        }
        break;
    case simdjson::ondemand::json_type::array:
        for (auto element : value.get_array())
            walk(element.value_unsafe());
        break;
    case simdjson::ondemand::json_type::string: {
        std::string_view text;
        sink += value.get_string().get(text) == simdjson::SUCCESS ? int(text.size()) : 1;
        break;
    }
    case simdjson::ondemand::json_type::number: {
        double number = 0;
        sink += value.get_double().get(number) == simdjson::SUCCESS ? int(number) : 1;
        break;
    }
    case simdjson::ondemand::json_type::boolean: {
        bool flag = false;
        sink += value.get_bool().get(flag) == simdjson::SUCCESS && flag;
        break;
    }
    case simdjson::ondemand::json_type::null:
        sink += value.is_null();
        break;
    }
}

void details(const QByteArray &body)
{
    simdjson::dom::parser reused;
    simdjson::ondemand::parser onDemand;
    const simdjson::padded_string padded(body.constData(), size_t(body.size()));
    print("details, 1,000 ASCII actions", body,
          { { "QJsonDocument::fromJson (baseline)",
              [&] { sink += int(QJsonDocument::fromJson(body).object().size()); } },
            { "simdjson DOM parse, parser reused",
              [&] { sink += int(reused.parse(padded).error()); } },
            { "simdjson DOM parse, new parser each time",
              [&] {
                  simdjson::dom::parser fresh;
                  sink += int(fresh.parse(padded).error());
              } },
            { "simdjson on-demand, every value read",
              [&] {
                  simdjson::ondemand::document document;
                  if (onDemand.iterate(padded).get(document) == simdjson::SUCCESS) {
                      simdjson::ondemand::value root;
                      if (document.get_value().get(root) == simdjson::SUCCESS)
                          walk(root);
                  }
              } } },
          9, 20);

    // A body of 8 MB, above the size for which a parser is kept per thread; the memcpy is what
    // copying the body into the parser's padded buffer costs.
    const QByteArray big = makeResponse(15000, false);
    std::vector<char> copy(size_t(big.size()));
    print("details, 15,000 actions", big,
          { { "QJsonDocument::fromJson (baseline)",
              [&] { sink += int(QJsonDocument::fromJson(big).object().size()); } },
            { "decodeAPIResponse",
              [&] { sink += int(velmora::decodeAPIResponse(big).value().actions.size()); } },
            { "memcpy of the body alone",
              [&] {
                  std::memcpy(copy.data(), big.constData(), size_t(big.size()));
                  sink += copy[size_t(sink) % copy.size()];
              } } },
          5, 2);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QByteArray ascii = makeResponse(1000, false);
    const QByteArray nonAscii = makeResponse(1000, true);

    print("1,000 actions, ASCII", ascii, decoders(ascii), 15, 20);
    print("1,000 actions, non-ASCII texts", nonAscii, decoders(nonAscii), 15, 20);
    if (app.arguments().contains(u"--details"))
        details(ascii);
    return sink == 0 ? 1 : 0;
}
