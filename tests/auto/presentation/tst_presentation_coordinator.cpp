#include "presentation/embeddedbannerstore.h"
#include "presentation/messagedisplaycoordinator.h"
#include "presentation/popupbannerpresentertype.h"
#include "presentation/popupbannerstore.h"
#include "presentation/popupmodalpresentertype.h"
#include "presentationfixtures.h"
#include <VelmoraInAppMessaging/velmorainappmessagingdelegate.h>

#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

namespace {

template<typename Presenter> struct FakePresenter : Presenter
{
    QStringList *log = nullptr;
    MessageHandler onClicked, onDismissed;
    MessageErrorHandler onError;

    void setOnClicked(MessageHandler handler) override { onClicked = std::move(handler); }
    void setOnDismissed(MessageHandler handler) override { onDismissed = std::move(handler); }
    void setOnError(MessageErrorHandler handler) override { onError = std::move(handler); }
};

struct FakeBannerPresenter : FakePresenter<PopupBannerPresenterType>
{
    void present(const PopupBannerRequest &r) override
    {
        *log << u"banner "_s + r.scenarioId + u' ' + rawValue(r.content.position) + u' '
                + r.screenName;
    }
    void dismissAll() override { *log << u"banner dismissAll"_s; }
};

struct FakeModalPresenter : FakePresenter<PopupModalPresenterType>
{
    void present(const QString &screenName, const QString &scenarioId, const PopupModalAction &,
                 ReactionHandler) override
    {
        *log << u"modal "_s + scenarioId + u' ' + screenName;
    }
};

struct RecordingDelegate : VelmoraInAppMessagingDelegate
{
    QStringList *log;
    explicit RecordingDelegate(QStringList *log)
        : log(log)
    { }
    void messageClicked(const InAppMessage &m) override { *log << u"clicked "_s + m.rawType(); }
    void messageDismissed(const InAppMessage &m) override { *log << u"dismissed "_s + m.rawType(); }
    void messageError(const std::optional<InAppMessage> &m, const VelmoraError &error) override
    {
        *log << u"error "_s + m->rawType() + u": "_s + error.message();
    }
};

const ReactionHandler ignoreReactions = [](EventsReactionType, const QString &, const QString &) {};

// The coordinator with test doubles, every observable step written to one log.
struct Fixture
{
    QStringList log;
    EmbeddedBannerStore embeddedStore;
    PopupBannerStore popupStore;
    FakeBannerPresenter *bannerPresenter = new FakeBannerPresenter;
    FakeModalPresenter *modalPresenter = new FakeModalPresenter;
    MessageDisplayCoordinator coordinator {
        std::unique_ptr<PopupModalPresenterType>(modalPresenter),
        std::unique_ptr<PopupBannerPresenterType>(bannerPresenter), &embeddedStore, &popupStore
    };

    Fixture()
    {
        bannerPresenter->log = modalPresenter->log = &log;
        QObject::connect(
            &embeddedStore, &EmbeddedBannerStore::embeddedBannerChanged, [this](const QString &id) {
                const auto entry = embeddedStore.embeddedBanner(id);
                log.append(u"embedded "_s + id + u' '
                           + (entry ? entry->scenarioId + u' ' + entry->screenName : u"removed"_s));
            });
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

} // namespace

class CoordinatorTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startNewScreenLeavesTheModalAlone()
    {
        Fixture f;
        QObject firstOwner;
        f.coordinator.setReactionHandler(ignoreReactions);
        f.coordinator.startNewScreen(u"home"_s, &firstOwner);
        f.coordinator.displayMessageForQuick(
            fixtures::parseAll({ u"banner:A@top"_s, u"modal:M1"_s, u"embedded:E1#hero"_s }),
            u"home"_s);
        f.coordinator.finishLoading();
        f.log.clear();

        f.coordinator.startNewScreen(u"cart"_s, nullptr);
        f.coordinator.finishLoading();
        // The modal presenter hears nothing: a modal on show outlives a screen change.
        QCOMPARE(f.log,
                 (QStringList { u"embedded hero removed"_s, u"popup top removed"_s,
                                u"banner dismissAll"_s, u"embedded loading on"_s,
                                u"embedded loading off"_s }));
        QCOMPARE(f.embeddedStore.currentScreenName(), u"cart"_s);
        QCOMPARE(f.embeddedStore.currentOwner(), nullptr);
    }

    // The row name says what is set up: the Widgets or the Quick path, with or without a
    // reaction handler and a delegate.
    void display_data()
    {
        QTest::addColumn<QStringList>("expected");
        const QStringList errors = {
            u"error carousel: Received an unsupported message type: 'carousel'. Please update the SDK."_s,
            u"error survey: Received an unsupported message type: 'survey'. Please update the SDK."_s,
        };
        const QString modal = u"modal M1 home"_s;
        const QString embedded = u"embedded hero E1 home"_s;
        const QStringList presented = { u"banner A top home"_s, u"banner C bottom home"_s };
        const QStringList applied = { u"popup top A"_s, u"popup bottom C"_s };

        QTest::newRow("widgets") << errors + presented + QStringList { modal, embedded };
        QTest::newRow("widgets, no reactions") << errors + QStringList { embedded };
        QTest::newRow("widgets, no delegate") << presented + QStringList { modal, embedded };
        QTest::newRow("quick") << errors + applied + QStringList { modal, embedded };
        QTest::newRow("quick, no reactions") << errors + applied + QStringList { embedded };
    }

    void display()
    {
        const QString setup = QString::fromLatin1(QTest::currentDataTag());
        Fixture f;
        RecordingDelegate host(&f.log);
        if (!setup.contains(u"no delegate"))
            f.coordinator.setDelegate(&host);
        if (!setup.contains(u"no reactions"))
            f.coordinator.setReactionHandler(ignoreReactions);
        // Only the first banner with something to draw claims a position, only the first modal
        // counts even if blank, and an embedded banner needs a component and something to draw.
        const QList<InAppMessageAction> actions = fixtures::parseAll(
            { u"unsupported:U1=carousel"_s, u"banner:X@top:blank"_s,
              u"banner:Y@bottom:emptytexts"_s, u"banner:A@top:title"_s, u"modal:M1:blank"_s,
              u"banner:B@top"_s, u"banner:C@bottom:body"_s, u"modal:M2"_s,
              u"embedded:E0#hero:blank"_s, u"embedded:E1#hero"_s, u"embedded:E2#"_s,
              u"unsupported:U2=survey"_s });
        if (setup.startsWith(u"quick"))
            f.coordinator.displayMessageForQuick(actions, u"home"_s);
        else
            f.coordinator.displayMessage(actions, u"home"_s, nullptr, {}, {});
        QTEST(f.log, "expected");
    }

    void handlersFollowTheDelegate()
    {
        Fixture f;
        // Fires every host callback installed; embedded banners cannot be dismissed.
        auto fireAll = [&f] {
            const InAppMessage probe = InAppMessage::unsupported(u"probe"_s);
            for (const MessageHandler &handler :
                 { f.modalPresenter->onClicked, f.modalPresenter->onDismissed,
                   f.bannerPresenter->onClicked, f.bannerPresenter->onDismissed,
                   f.popupStore.messageClickedHandler(), f.popupStore.messageDismissedHandler(),
                   f.embeddedStore.messageClickedHandler() })
                handler ? handler(probe) : f.log.append(u"missing"_s);
            for (const MessageErrorHandler &handler :
                 { f.modalPresenter->onError, f.bannerPresenter->onError,
                   f.popupStore.messageErrorHandler(), f.embeddedStore.messageErrorHandler() })
                handler ? handler(probe, VelmoraError::precondition(u"boom"_s))
                        : f.log.append(u"missing"_s);
        };
        QStringList firstLog, secondLog;
        RecordingDelegate first(&firstLog), second(&secondLog);
        f.coordinator.setDelegate(&first);
        f.coordinator.setDelegate(&second);
        fireAll();
        QCOMPARE(firstLog, QStringList {});
        QCOMPARE(secondLog.size(), 11);
        QCOMPARE(secondLog.count(u"clicked probe"_s), 4);
        QCOMPARE(secondLog.count(u"error probe: boom"_s), 4);
        auto third = std::make_unique<RecordingDelegate>(&f.log);
        f.coordinator.setDelegate(third.get());
        third.reset();
        fireAll(); // held weakly: a destroyed delegate is simply not called
        QCOMPARE(f.log, QStringList {});

        // The stores' views report reactions through the coordinator's handler.
        QStringList reactions;
        f.coordinator.setReactionHandler(
            [&](EventsReactionType type, const QString &, const QString &scenario) {
                reactions.append(rawValue(type) + u' ' + scenario);
            });
        f.popupStore.reactionHandler()(EventsReactionType::Click, u"home"_s, u"P"_s);
        f.embeddedStore.reactionHandler()(EventsReactionType::Open, u"home"_s, u"E"_s);
        QCOMPARE(reactions, (QStringList { u"click P"_s, u"open E"_s }));
    }
};

QTEST_GUILESS_MAIN(CoordinatorTest)
#include "tst_presentation_coordinator.moc"
