#include "popupbannerstore.h"
#include "presentationfixtures.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Mode = PopupBannerStore::DismissalMode;

namespace {

// Holds the store's delayed calls until the test lets time pass.
struct ManualClock
{
    QList<std::function<void()>> pending;

    PopupBannerStore::Scheduler scheduler()
    {
        return [this](std::chrono::milliseconds delay, std::function<void()> callback) {
            QCOMPARE(delay, 300ms);
            pending.append(std::move(callback));
        };
    }
    void runFirst()
    {
        if (!pending.isEmpty())
            pending.takeFirst()();
    }
    void runAll()
    {
        while (!pending.isEmpty())
            runFirst();
    }
};

// Ops: "apply <screen> [position:scenario...]", "dismiss <position>", "disappear <position>",
// "clear", "tick" (every pending delay elapses), "step" (only the oldest one does).
void run(PopupBannerStore &store, ManualClock &clock, const QStringList &ops)
{
    for (const QString &op : ops) {
        const QStringList words = op.split(u' ');
        const QString &verb = words.first();
        if (verb == u"apply") {
            QList<ClassifiedPopupBanner> banners;
            for (const QString &token : words.mid(2))
                banners.append(fixtures::popupPair(token));
            store.apply(banners, words.at(1));
        } else if (verb == u"dismiss") {
            store.dismissPopupBanner(words.at(1));
        } else if (verb == u"disappear") {
            store.bannerDidDisappear(words.at(1));
        } else if (verb == u"clear") {
            store.clearAllPopupBanners();
        } else if (verb == u"tick") {
            clock.runAll();
        } else if (verb == u"step") {
            clock.runFirst();
        } else {
            QFAIL(qPrintable(u"unknown op "_s + op));
        }
    }
}

QString visible(const PopupBannerStore &store)
{
    QStringList parts;
    for (const auto &[position, banner] : store.popupBanners())
        parts.append(rawValue(position) + u':' + banner.scenarioId);
    return parts.join(u' ');
}

QString queued(const PopupBannerStore &store)
{
    QStringList parts;
    for (const auto &[position, queue] : store.queueController().queues) {
        QStringList ids;
        for (const PopupBannerComponentData &banner : queue)
            ids.append(banner.scenarioId);
        if (!ids.isEmpty())
            parts.append(rawValue(position) + u':' + ids.join(u','));
    }
    return parts.join(u' ');
}

} // namespace

class PopupBannerStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void queueRules_data()
    {
        QTest::addColumn<Mode>("mode");
        QTest::addColumn<QStringList>("ops");
        QTest::addColumn<QString>("visible");
        QTest::addColumn<QString>("queued");
        QTest::addColumn<QString>("screen");

        const Mode timed = Mode::AfterRemovalAnimation;
        const Mode byView = Mode::AfterViewDisappears;

        QTest::newRow("first of a position shows, the rest wait")
            << timed << QStringList { u"apply home top:A top:B bottom:C"_s } << u"top:A bottom:C"_s
            << u"top:B"_s << u"home"_s;
        QTest::newRow("same scenario at a position queues once")
            << timed << QStringList { u"apply home top:A top:A top:B top:A"_s } << u"top:A"_s
            << u"top:B"_s << u"home"_s;
        QTest::newRow("dismissal removes at once, next waits for the removal")
            << timed << QStringList { u"apply home top:A top:B"_s, u"dismiss top"_s } << u""_s
            << u"top:B"_s << u"home"_s;
        QTest::newRow("next shows after the removal")
            << timed << QStringList { u"apply home top:A top:B"_s, u"dismiss top"_s, u"tick"_s }
            << u"top:B"_s << u""_s << u"home"_s;
        QTest::newRow("positions are independent")
            << timed
            << QStringList { u"apply home top:A bottom:B bottom:C"_s, u"dismiss bottom"_s,
                             u"tick"_s }
            << u"top:A bottom:C"_s << u""_s << u"home"_s;
        QTest::newRow("re-apply of the visible scenario queues nothing")
            << timed << QStringList { u"apply home top:A"_s, u"apply home top:A"_s } << u"top:A"_s
            << u""_s << u"home"_s;
        QTest::newRow("another scenario waits behind the visible one")
            << timed << QStringList { u"apply home top:A"_s, u"apply home top:T"_s } << u"top:A"_s
            << u"top:T"_s << u"home"_s;
        QTest::newRow("closing the visible one shows the newcomer")
            << timed
            << QStringList { u"apply home top:A"_s, u"apply home top:T"_s, u"dismiss top"_s,
                             u"tick"_s }
            << u"top:T"_s << u""_s << u"home"_s;
        QTest::newRow("new screen resets queues and drops unused positions")
            << timed
            << QStringList { u"apply home top:A top:B bottom:C center:D"_s, u"apply cart top:E"_s }
            << u"top:A"_s << u"top:E"_s << u"cart"_s;
        QTest::newRow("empty batch removes everything")
            << timed << QStringList { u"apply home top:A top:B bottom:C"_s, u"apply cart"_s }
            << u""_s << u""_s << u"cart"_s;
        QTest::newRow("dismissing an empty position pulls nothing twice")
            << timed
            << QStringList { u"apply home top:A top:B top:C"_s, u"dismiss top"_s, u"dismiss top"_s,
                             u"tick"_s }
            << u"top:B"_s << u"top:C"_s << u"home"_s;
        QTest::newRow("an older removal does not cut a newer one short")
            << timed
            << QStringList { u"apply home top:A"_s, u"dismiss top"_s, u"apply home top:X top:Y"_s,
                             u"dismiss top"_s, u"step"_s }
            << u""_s << u"top:Y"_s << u"home"_s;
        QTest::newRow("clear-all drops banners, queues and the screen")
            << timed << QStringList { u"apply home top:A top:B bottom:C"_s, u"clear"_s } << u""_s
            << u""_s << u"<none>"_s;
        QTest::newRow("clear-all during a removal shows nothing afterwards")
            << timed
            << QStringList { u"apply home top:A top:B"_s, u"dismiss top"_s, u"clear"_s, u"tick"_s }
            << u""_s << u""_s << u"<none>"_s;
        QTest::newRow("a disappearance does not pull in timed mode")
            << timed
            << QStringList { u"apply home top:A top:B"_s, u"dismiss top"_s, u"disappear top"_s }
            << u""_s << u"top:B"_s << u"home"_s;

        QTest::newRow("by view: next waits for the disappearance, not the clock")
            << byView << QStringList { u"apply home top:A top:B"_s, u"dismiss top"_s, u"tick"_s }
            << u""_s << u"top:B"_s << u"home"_s;
        QTest::newRow("by view: disappearance after a dismissal shows next")
            << byView
            << QStringList { u"apply home top:A top:B top:C"_s, u"dismiss top"_s,
                             u"disappear top"_s }
            << u"top:B"_s << u"top:C"_s << u"home"_s;
    }

    void queueRules()
    {
        QFETCH(Mode, mode);
        QFETCH(QStringList, ops);

        ManualClock clock;
        PopupBannerStore store;
        store.setScheduler(clock.scheduler());
        store.setDismissalMode(mode);
        run(store, clock, ops);

        QTEST(visible(store), "visible");
        QTEST(queued(store), "queued");
        QTEST(store.currentScreenName().value_or(u"<none>"_s), "screen");
    }

    void changeSignals_data()
    {
        QTest::addColumn<QStringList>("setup");
        QTest::addColumn<QString>("op");
        QTest::addColumn<QStringList>("changes");

        QTest::newRow("first apply shows each position")
            << QStringList {} << u"apply home top:A bottom:B"_s
            << QStringList { u"top animated"_s, u"bottom animated"_s };
        QTest::newRow("re-apply of the visible banners changes nothing")
            << QStringList { u"apply home top:A bottom:B"_s } << u"apply home top:A bottom:B"_s
            << QStringList {};
        QTest::newRow("re-apply reports only the stale position")
            << QStringList { u"apply home top:A bottom:B"_s } << u"apply home top:A"_s
            << QStringList { u"bottom animated"_s };
        QTest::newRow("a queued newcomer is not a visible change")
            << QStringList { u"apply home top:A"_s } << u"apply home top:B"_s << QStringList {};
        QTest::newRow("dismissal") << QStringList { u"apply home top:A top:B"_s }
                                   << u"dismiss top"_s << QStringList { u"top animated"_s };
        QTest::newRow("next after the removal")
            << QStringList { u"apply home top:A top:B"_s, u"dismiss top"_s } << u"tick"_s
            << QStringList { u"top animated"_s };
        QTest::newRow("dismissing an empty position")
            << QStringList {} << u"dismiss top"_s << QStringList {};
        QTest::newRow("clear-all is not animated")
            << QStringList { u"apply home top:A bottom:B"_s } << u"clear"_s
            << QStringList { u"top instant"_s, u"bottom instant"_s };
        QTest::newRow("clear-all of nothing") << QStringList {} << u"clear"_s << QStringList {};
    }

    void changeSignals()
    {
        QFETCH(QStringList, setup);
        QFETCH(QString, op);
        QFETCH(QStringList, changes);

        ManualClock clock;
        PopupBannerStore store;
        store.setScheduler(clock.scheduler());
        run(store, clock, setup);

        QStringList seen;
        connect(&store, &PopupBannerStore::popupBannerChanged, this,
                [&](const QString &position, bool animated) {
                    seen.append(position + (animated ? u" animated"_s : u" instant"_s));
                });
        int mapChanges = 0;
        connect(&store, &PopupBannerStore::popupBannersChanged, this, [&] {
            // Observers must find every per-position change already applied.
            QCOMPARE(store.popupBannersMap().size(), qsizetype(store.popupBanners().size()));
            ++mapChanges;
        });
        run(store, clock, { op });

        QCOMPARE(seen, changes);
        QCOMPARE(mapChanges, changes.isEmpty() ? 0 : 1);
    }

    void removalCompletionOutlivingTheStoreIsHarmless()
    {
        ManualClock clock;
        auto store = std::make_unique<PopupBannerStore>();
        store->setScheduler(clock.scheduler());
        run(*store, clock, { u"apply home top:A top:B"_s, u"dismiss top"_s });
        QCOMPARE(clock.pending.size(), 1);
        store.reset();
        clock.runAll(); // ASan reports a use after free here if the completion kept `this`
    }

    void defaultClockWaitsForTheRemoval()
    {
        PopupBannerStore store;
        store.apply({ fixtures::popupPair(u"top:A"_s), fixtures::popupPair(u"top:B"_s) },
                    u"home"_s);
        QElapsedTimer elapsed;
        elapsed.start();
        store.dismissPopupBanner(DisplayPosition::Top);
        QVERIFY(!store.popupBanner(DisplayPosition::Top));

        QTRY_VERIFY_WITH_TIMEOUT(store.popupBanner(DisplayPosition::Top), 5000);
        QCOMPARE(store.popupBanner(DisplayPosition::Top)->scenarioId, u"B"_s);
        QCOMPARE_GE(elapsed.elapsed(), 290);
    }
};

QTEST_GUILESS_MAIN(PopupBannerStoreTest)
#include "tst_presentation_popupbannerstore.moc"
