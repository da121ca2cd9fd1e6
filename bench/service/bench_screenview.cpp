// GUI-thread time of one screen view with a 20-action answer, from the answer's arrival to
// display() returning: sorting, the delegate's detection callbacks and the real coordinator
// routing to stores and presenters. Decoding runs on a worker thread and the network is
// excluded. Reported as p50/p99, and as a ratio to parsing the same answer with
// QJsonDocument::fromJson measured in the same run (what the GUI thread would pay if it even
// only parsed the answer itself).
#include "common/logging.h"
#include "config/sdkconfiguration.h"
#include "config/useridentityrepository.h"
#include "network/apiresponse.h"
#include "presentation/embeddedbannerstore.h"
#include "presentation/messagedisplaycoordinator.h"
#include "presentation/popupbannerpresentertype.h"
#include "presentation/popupbannerstore.h"
#include "presentation/popupmodalpresentertype.h"
#include "service/messageservice.h"
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Qt::StringLiterals;
using namespace velmora;

namespace {

struct NullModalPresenter final : PopupModalPresenterType
{
    void present(const QString &, const QString &, const PopupModalAction &,
                 ReactionHandler) override
    { }
    void setOnClicked(MessageHandler) override { }
    void setOnDismissed(MessageHandler) override { }
    void setOnError(MessageErrorHandler) override { }
};

struct NullBannerPresenter final : PopupBannerPresenterType
{
    void present(const PopupBannerRequest &) override { }
    void dismissAll() override { }
    void setOnClicked(MessageHandler) override { }
    void setOnDismissed(MessageHandler) override { }
    void setOnError(MessageErrorHandler) override { }
};

struct CountingDelegate final : VelmoraInAppMessagingDelegate
{
    void messageDetectedForDisplay(const InAppMessage &) override { ++detected; }
    void messageError(const std::optional<InAppMessage> &, const VelmoraError &) override
    {
        ++errors;
    }
    int detected = 0;
    int errors = 0;
};

QByteArray twentyActions()
{
    static const char *types[]
        = { "popup_modal", "popup_banner", "embedded_banner", "popup_banner" };
    static const char *positions[] = { "top", "bottom", "center", "top_left", "bottom_right" };
    QByteArray json = R"({"status": "ok", "actions": [)";
    for (int i = 0; i < 20; ++i) {
        const QByteArray n = QByteArray::number(i);
        json += (i ? "," : "") + QByteArray(R"({"meta": {"scenario_id": "s-)") + n
            + R"(", "updated_at": "2026-04-0)" + QByteArray::number(1 + i % 9)
            + R"(T09:30:00.250+09:00", "priority": )" + QByteArray::number(i % 5)
            + R"(, "action_type": ")" + types[i % 4]
            + R"("}, "creative": {"image": {"url": "https://cdn.example.com/)" + n
            + R"(.png"}, "title": {"text": "Title"}, "body": {"text": "Body"}},)"
            + R"( "layout": {"location": ")" + positions[i % 5] + R"(", "component_id": "slot-)"
            + QByteArray::number(i % 3) + R"("}})";
    }
    return json + "]}";
}

double percentile(std::vector<double> samples, double p)
{
    std::sort(samples.begin(), samples.end());
    const size_t index = std::min(samples.size() - 1, size_t(p * double(samples.size() - 1) + 0.5));
    return samples[index];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    detail::setWarningSink([](const QString &) {});
    const QByteArray body = twentyActions();
    const QList<InAppMessageAction> actions = decodeAPIResponse(body).value().actions;

    QTemporaryDir dir;
    auto config = std::make_shared<SDKConfiguration>();
    config->setup(u"key"_s, u"tenant"_s, u"http://127.0.0.1:9/vorpex/v1"_s);
    auto repository = std::make_shared<UserIdentityRepository>(
        SDKUserDefaults(std::make_shared<SettingsUserDefaults>(dir.filePath(u"p.ini"_s))));
    EmbeddedBannerStore embedded;
    PopupBannerStore popups;
    MessageDisplayCoordinator coordinator(std::make_unique<NullModalPresenter>(),
                                          std::make_unique<NullBannerPresenter>(), &embedded,
                                          &popups);
    MessageService service(config, repository, &coordinator);
    CountingDelegate delegate;
    service.setDelegate(&delegate);

    constexpr int runs = 2000;
    std::vector<double> screenView, parse;
    screenView.reserve(runs);
    parse.reserve(runs);
    for (int run = 0; run < runs + 100; ++run) {
        std::function<void(MessageService::FetchResult)> arrive;
        service.noteScreenStart();
        coordinator.startNewScreen(u"home"_s, nullptr);
        QElapsedTimer timer;
        qint64 displayReturned = 0;
        service.fetchCore(
            u"home"_s,
            [&](std::function<void(MessageService::FetchResult)> done) -> CancelFunction {
                arrive = std::move(done);
                return {};
            },
            [&](const QList<InAppMessageAction> &sorted, const QString &name) {
                coordinator.displayMessage(sorted, name, nullptr, {}, {});
                displayReturned = timer.nsecsElapsed();
            });
        timer.start();
        arrive(actions);
        const double us = double(displayReturned) / 1000.0;

        QElapsedTimer parseTimer;
        parseTimer.start();
        const QJsonDocument document = QJsonDocument::fromJson(body);
        const double parseUs = double(parseTimer.nsecsElapsed()) / 1000.0;
        if (run >= 100 && !document.isNull()) { // the first runs warm caches and allocators
            screenView.push_back(us);
            parse.push_back(parseUs);
        }
    }

    const double p50 = percentile(screenView, 0.50), p99 = percentile(screenView, 0.99);
    const double parse50 = percentile(parse, 0.50), parse99 = percentile(parse, 0.99);
    std::printf("screen view, 20 actions, %d runs (detections: %d)\n", runs, delegate.detected);
    std::printf("GUI thread, answer to display(): p50 %8.1f us   p99 %8.1f us\n", p50, p99);
    std::printf("baseline fromJson of the answer: p50 %8.1f us   p99 %8.1f us\n", parse50, parse99);
    std::printf("ratio to baseline: p50 %.2f   p99 %.2f\n", p50 / parse50, p99 / parse99);
    return delegate.detected > 0 ? 0 : 1;
}
