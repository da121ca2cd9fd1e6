#include "embeddedbannerstore.h"
#include "messagedisplaycoordinator.h"
#include "popupbannerpresentertype.h"
#include "popupbannerstore.h"
#include "popupmodalpresentertype.h"
#include "presentationfixtures.h"
#include "velmorainappmessagingdelegate.h"

#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

namespace {

QString describe(const InAppMessage &message)
{
    if (const auto *banner = message.popupBannerAction())
        return message.rawType() + u'@' + rawValue(banner->position);
    return message.rawType();
}

struct FakeBannerPresenter : PopupBannerPresenterType
{
    QStringList *log = nullptr;
    QList<PopupBannerRequest> requests;
    MessageHandler onClicked, onDismissed;
    MessageErrorHandler onError;

    void present(const PopupBannerRequest &request) override
    {
        requests.append(request);
        log->append(u"banner "_s + request.scenarioId + u' ' + rawValue(request.content.position)
                    + u' ' + request.screenName);
    }
    void dismissAll() override { log->append(u"banner dismissAll"_s); }
    void setOnClicked(MessageHandler handler) override { onClicked = std::move(handler); }
    void setOnDismissed(MessageHandler handler) override { onDismissed = std::move(handler); }
    void setOnError(MessageErrorHandler handler) override { onError = std::move(handler); }
};

struct FakeModalPresenter : PopupModalPresenterType
{
    QStringList *log = nullptr;
    ReactionHandler reactionHandler;
    MessageHandler onClicked, onDismissed;
    MessageErrorHandler onError;

    void present(const QString &screenName, const QString &scenarioId, const PopupModalAction &,
                 ReactionHandler handler) override
    {
        reactionHandler = std::move(handler);
        log->append(u"modal "_s + scenarioId + u' ' + screenName);
    }
    void setOnClicked(MessageHandler handler) override { onClicked = std::move(handler); }
    void setOnDismissed(MessageHandler handler) override { onDismissed = std::move(handler); }
    void setOnError(MessageErrorHandler handler) override { onError = std::move(handler); }
};

class RecordingDelegate : public VelmoraInAppMessagingDelegate
{
public:
    QStringList own;
    QStringList *log = &own;

    void messageClicked(const InAppMessage &message) override
    {
        log->append(u"clicked "_s + describe(message));
    }
    void messageDismissed(const InAppMessage &message) override
    {
        log->append(u"dismissed "_s + describe(message));
    }
    void messageError(const std::optional<InAppMessage> &message,
                      const VelmoraError &error) override
    {
        log->append(u"error "_s + (message ? describe(*message) : u"-"_s) + u": "_s
                    + error.message());
    }
};

// The coordinator with test doubles, every observable step written to one log.
struct Fixture
{
    QStringList log;
    EmbeddedBannerStore embeddedStore;
    PopupBannerStore popupStore;
    FakeBannerPresenter *bannerPresenter;
    FakeModalPresenter *modalPresenter;
    std::unique_ptr<MessageDisplayCoordinator> coordinator;

    Fixture()
    {
        auto banner = std::make_unique<FakeBannerPresenter>();
        auto modal = std::make_unique<FakeModalPresenter>();
        banner->log = modal->log = &log;
        bannerPresenter = banner.get();
        modalPresenter = modal.get();
        coordinator = std::make_unique<MessageDisplayCoordinator>(
            std::move(modal), std::move(banner), &embeddedStore, &popupStore);

        QObject::connect(&embeddedStore, &EmbeddedBannerStore::currentOwnerChanged,
                         [this] { log.append(u"embedded owner"_s); });
        QObject::connect(
            &embeddedStore, &EmbeddedBannerStore::embeddedBannerChanged, [this](const QString &id) {
                const auto entry = embeddedStore.embeddedBanner(id);
                log.append(u"embedded "_s + id + u' '
                           + (entry ? entry->scenarioId + u' ' + entry->screenName : u"removed"_s));
            });
        QObject::connect(&embeddedStore, &EmbeddedBannerStore::currentScreenNameChanged,
                         [this] { log.append(u"embedded screen"_s); });
        QObject::connect(&embeddedStore, &EmbeddedBannerStore::isLoadingChanged, [this] {
            log.append(u"embedded loading "_s + (embeddedStore.isLoading() ? u"on"_s : u"off"_s));
        });
        QObject::connect(
            &popupStore, &PopupBannerStore::popupBannerChanged, [this](const QString &position) {
                const auto entry = popupStore.popupBanner(*displayPositionFromRawValue(position));
                log.append(u"popup "_s + position + u' '
                           + (entry ? entry->scenarioId : u"removed"_s));
            });
    }
};

const QStringList mixedBatch = {
    u"unsupported:U1=carousel"_s, u"banner:A@top"_s, u"banner:B@top"_s,     u"modal:M1"_s,
    u"banner:C@bottom"_s,         u"modal:M2"_s,     u"embedded:E1#hero"_s, u"embedded:E2#"_s,
    u"unsupported:U2=survey"_s,
};

} // namespace

class CoordinatorTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void classification_data()
    {
        QTest::addColumn<QStringList>("actions");
        QTest::addColumn<QString>("modal");
        QTest::addColumn<QStringList>("banners");
        QTest::addColumn<QStringList>("embedded");
        QTest::addColumn<QStringList>("unsupported");

        QTest::newRow("nothing") << QStringList {} << u""_s << QStringList {} << QStringList {}
                                 << QStringList {};
        QTest::newRow("one banner per position, the first wins")
            << QStringList { u"banner:A@top"_s, u"banner:B@bottom"_s, u"banner:C@top"_s,
                             u"banner:D@bottom_left"_s }
            << u""_s << QStringList { u"A@top"_s, u"B@bottom"_s, u"D@bottom_left"_s }
            << QStringList {} << QStringList {};
        QTest::newRow("a banner with nothing to draw leaves its position free")
            << QStringList { u"banner:A@top:blank"_s, u"banner:B@top:emptytexts"_s,
                             u"banner:C@top"_s, u"banner:D@top"_s }
            << u""_s << QStringList { u"C@top"_s } << QStringList {} << QStringList {};
        QTest::newRow("a title or a body alone is enough to draw")
            << QStringList { u"banner:A@top:title"_s, u"banner:B@center:body"_s } << u""_s
            << QStringList { u"A@top"_s, u"B@center"_s } << QStringList {} << QStringList {};
        QTest::newRow("only the first modal, even with nothing to draw")
            << QStringList { u"banner:A@top"_s, u"modal:M1:blank"_s, u"modal:M2"_s } << u"M1"_s
            << QStringList { u"A@top"_s } << QStringList {} << QStringList {};
        QTest::newRow("embedded banners need a component and something to draw")
            << QStringList { u"embedded:E1#hero"_s, u"embedded:E2#"_s,
                             u"embedded:E3#footer:blank"_s, u"embedded:E4#hero:body"_s }
            << u""_s << QStringList {} << QStringList { u"E1#hero"_s, u"E4#hero"_s }
            << QStringList {};
        QTest::newRow("unsupported keep their raw type, in order")
            << QStringList { u"unsupported:U1=carousel"_s, u"modal:M1"_s, u"unsupported:U2="_s }
            << u"M1"_s << QStringList {} << QStringList {}
            << QStringList { u"U1=carousel"_s, u"U2="_s };
    }

    void classification()
    {
        QFETCH(QStringList, actions);
        const QList<InAppMessageAction> list = fixtures::parseAll(actions);

        const auto modal = classify::firstModal(list);
        QTEST(modal ? modal->action.meta.scenarioId : QString(u""_s), "modal");
        QStringList banners;
        for (const auto &banner : classify::popupBanners(list))
            banners.append(banner.action.meta.scenarioId + u'@'
                           + rawValue(banner.content.position));
        QTEST(banners, "banners");
        QStringList embedded;
        for (const auto &banner : classify::embeddedBanners(list))
            embedded.append(banner.action.meta.scenarioId + u'#' + banner.content.componentId);
        QTEST(embedded, "embedded");
        QStringList unsupported;
        for (const auto &message : classify::unsupported(list))
            unsupported.append(message.action.meta.scenarioId + u'=' + message.rawType);
        QTEST(unsupported, "unsupported");
    }

    void startNewScreenClearsBannersInOrder()
    {
        Fixture f;
        QObject firstOwner;
        f.coordinator->setReactionHandler(
            [](EventsReactionType, const QString &, const QString &) {});
        f.coordinator->startNewScreen(u"home"_s, &firstOwner);
        f.coordinator->displayMessageForQuick(
            fixtures::parseAll({ u"banner:A@top"_s, u"modal:M1"_s, u"embedded:E1#hero"_s }),
            u"home"_s);
        f.coordinator->finishLoading();
        f.log.clear();

        f.coordinator->startNewScreen(u"cart"_s, nullptr);
        // The modal presenter hears nothing: a modal on show outlives a screen change.
        QCOMPARE(f.log,
                 (QStringList { u"embedded owner"_s, u"embedded hero removed"_s,
                                u"embedded screen"_s, u"popup top removed"_s,
                                u"banner dismissAll"_s, u"embedded loading on"_s }));
        QCOMPARE(f.embeddedStore.currentScreenName(), u"cart"_s);
        QCOMPARE(f.popupStore.currentScreenName(), std::nullopt);

        f.log.clear();
        f.coordinator->finishLoading();
        QCOMPARE(f.log, QStringList { u"embedded loading off"_s });
    }

    void display_data()
    {
        QTest::addColumn<bool>("quick");
        QTest::addColumn<bool>("reactionHandler");
        QTest::addColumn<bool>("delegate");
        QTest::addColumn<QStringList>("expected");

        const QStringList errors = {
            u"error carousel: Received an unsupported message type: 'carousel'. Please update the SDK."_s,
            u"error survey: Received an unsupported message type: 'survey'. Please update the SDK."_s,
        };
        const QString modal = u"modal M1 home"_s;
        const QString embedded = u"embedded hero E1 home"_s;
        const QStringList presented = { u"banner A top home"_s, u"banner C bottom home"_s };
        const QStringList applied = { u"popup top A"_s, u"popup bottom C"_s };

        QTest::newRow("widgets") << false << true << true
                                 << errors + presented + QStringList { modal, embedded };
        QTest::newRow("widgets before reactions are installed")
            << false << false << true << errors + QStringList { embedded };
        QTest::newRow("widgets without delegate")
            << false << true << false << presented + QStringList { modal, embedded };
        QTest::newRow("quick") << true << true << true
                               << errors + applied + QStringList { modal, embedded };
        QTest::newRow("quick before reactions are installed")
            << true << false << true << errors + applied + QStringList { embedded };
    }

    void display()
    {
        QFETCH(bool, quick);
        QFETCH(bool, reactionHandler);
        QFETCH(bool, delegate);
        QFETCH(QStringList, expected);

        Fixture f;
        RecordingDelegate host;
        host.log = &f.log;
        if (delegate)
            f.coordinator->setDelegate(&host);
        if (reactionHandler)
            f.coordinator->setReactionHandler(
                [](EventsReactionType, const QString &, const QString &) {});
        const QList<InAppMessageAction> actions = fixtures::parseAll(mixedBatch);
        if (quick)
            f.coordinator->displayMessageForQuick(actions, u"home"_s);
        else
            f.coordinator->displayMessage(actions, u"home"_s, nullptr, {}, {});

        QCOMPARE(f.log, expected);
    }

    void requestsCarryTargetAnchorsAndReactions()
    {
        Fixture f;
        QStringList reactions;
        f.coordinator->setReactionHandler(
            [&](EventsReactionType type, const QString &screen, const QString &scenario) {
                reactions.append(rawValue(type) + u' ' + screen + u' ' + scenario);
            });
        // Core never dereferences the target, so any address stands in for a widget here.
        int targetStandIn = 0;
        auto *target = reinterpret_cast<QWidget *>(&targetStandIn);
        QObject topWidget, bottomWidget;
        const VerticalAnchor top { &topWidget, VerticalAnchor::Edge::Bottom };
        const VerticalAnchor bottom { &bottomWidget, VerticalAnchor::Edge::Top };

        f.coordinator->displayMessage(fixtures::parseAll({ u"banner:A@bottom"_s, u"modal:M1"_s }),
                                      u"home"_s, target, top, bottom);

        QCOMPARE(f.bannerPresenter->requests.size(), 1);
        const PopupBannerRequest &request = f.bannerPresenter->requests.first();
        QCOMPARE(request.target, target);
        QCOMPARE(request.topAnchor.widget, &topWidget);
        QCOMPARE(request.topAnchor.edge, VerticalAnchor::Edge::Bottom);
        QCOMPARE(request.bottomAnchor.widget, &bottomWidget);
        QCOMPARE(request.bottomAnchor.edge, VerticalAnchor::Edge::Top);
        request.reactionHandler(EventsReactionType::Open, request.screenName, request.scenarioId);
        f.modalPresenter->reactionHandler(EventsReactionType::Close, u"home"_s, u"M1"_s);
        // The stores' views report through the same handler.
        f.popupStore.reactionHandler()(EventsReactionType::Click, u"home"_s, u"P"_s);
        f.embeddedStore.reactionHandler()(EventsReactionType::Open, u"home"_s, u"E"_s);
        QCOMPARE(reactions,
                 (QStringList { u"open home A"_s, u"close home M1"_s, u"click home P"_s,
                                u"open home E"_s }));
    }

    void handlersFollowTheDelegate()
    {
        Fixture f;
        // Fires every host callback installed right now, in a fixed order.
        auto installed = [&f]() -> std::function<void()> {
            struct Callbacks
            {
                MessageHandler clicked, dismissed;
                MessageErrorHandler error;
            };
            const QList<Callbacks> all = {
                { f.modalPresenter->onClicked, f.modalPresenter->onDismissed,
                  f.modalPresenter->onError },
                { f.bannerPresenter->onClicked, f.bannerPresenter->onDismissed,
                  f.bannerPresenter->onError },
                { f.popupStore.messageClickedHandler(), f.popupStore.messageDismissedHandler(),
                  f.popupStore.messageErrorHandler() },
                // Embedded banners cannot be dismissed.
                { f.embeddedStore.messageClickedHandler(),
                  {},
                  f.embeddedStore.messageErrorHandler() },
            };
            return [all] {
                const InAppMessage probe = InAppMessage::unsupported(u"probe"_s);
                for (const Callbacks &callbacks : all) {
                    if (callbacks.clicked)
                        callbacks.clicked(probe);
                    if (callbacks.dismissed)
                        callbacks.dismissed(probe);
                    if (callbacks.error)
                        callbacks.error(probe, VelmoraError::precondition(u"boom"_s));
                }
            };
        };
        const QStringList each
            = { u"clicked probe"_s, u"dismissed probe"_s, u"error probe: boom"_s };
        const QStringList expected
            = each + each + each + QStringList { u"clicked probe"_s, u"error probe: boom"_s };

        auto first = std::make_unique<RecordingDelegate>();
        auto second = std::make_unique<RecordingDelegate>();
        f.coordinator->setDelegate(first.get());
        const auto fireFirst = installed();
        f.coordinator->setDelegate(second.get());
        const auto fireSecond = installed();

        fireSecond();
        QCOMPARE(second->own, expected);
        QCOMPARE(first->own, QStringList {});
        fireFirst(); // a callback keeps the delegate of its time
        QCOMPARE(first->own, expected);

        second.reset();
        fireSecond(); // held weakly: a destroyed delegate is simply not called
        QCOMPARE(f.coordinator->delegate(), nullptr);
    }
};

QTEST_GUILESS_MAIN(CoordinatorTest)
#include "tst_presentation_coordinator.moc"
