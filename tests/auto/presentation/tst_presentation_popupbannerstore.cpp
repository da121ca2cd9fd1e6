#include "presentation/popupbannerstore.h"
#include "presentationfixtures.h"

#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

class PopupBannerStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rules_data()
    {
        QTest::addColumn<QString>("ops");
        // "<visible> | <queued> | <screen> | <positions the last op reported>", "-" for none;
        // a reported position ends in "!" when the change was not animated.
        QTest::addColumn<QString>("state");

        QTest::newRow("first of a position shows, the rest wait once each")
            << u"apply home top:A top:B top:A bottom:C top:B"_s
            << u"top:A bottom:C | top:B | home | top bottom"_s;
        QTest::newRow("dismissal removes at once, next waits for the removal")
            << u"apply home top:A top:B bottom:C, dismiss top"_s
            << u"bottom:C | top:B | home | top"_s;
        QTest::newRow("next shows after the removal")
            << u"apply home top:A top:B bottom:C, dismiss top, tick"_s
            << u"top:B bottom:C | - | home | top"_s;
        QTest::newRow("re-apply of the visible banners changes nothing")
            << u"apply home top:A bottom:B, apply home top:A bottom:B"_s
            << u"top:A bottom:B | - | home | -"_s;
        QTest::newRow("new screen: queues reset, unused positions emptied, visible one kept")
            << u"apply home top:A top:B bottom:C, apply cart top:A top:E"_s
            << u"top:A | top:E | cart | bottom"_s;
        QTest::newRow("a newcomer waits behind the visible one")
            << u"apply home top:A, apply home top:T"_s << u"top:A | top:T | home | -"_s;
        QTest::newRow("dismissing an empty position pulls nothing twice")
            << u"apply home top:A top:B top:C, dismiss top, dismiss top, tick"_s
            << u"top:B | top:C | home | top"_s;
        QTest::newRow("an older removal does not cut a newer one short")
            << u"apply home top:A, dismiss top, apply home top:X top:Y, dismiss top, step"_s
            << u"- | top:Y | home | -"_s;
        QTest::newRow("clear-all is not animated")
            << u"apply home top:A bottom:B, clear"_s << u"- | - | - | top! bottom!"_s;
        QTest::newRow("clear-all of nothing") << u"clear"_s << u"- | - | - | -"_s;
        QTest::newRow("clear-all during a removal drops everything for good")
            << u"apply home top:A top:B, dismiss top, clear, tick"_s << u"- | - | - | -"_s;
        QTest::newRow("a disappearance does not pull in timed mode")
            << u"apply home top:A top:B, dismiss top, disappear top"_s << u"- | top:B | home | -"_s;
        QTest::newRow("by view: the clock does not pull")
            << u"by-view, apply home top:A top:B, dismiss top, tick"_s << u"- | top:B | home | -"_s;
        QTest::newRow("by view: a disappearance after a dismissal pulls")
            << u"by-view, apply home top:A top:B top:C, dismiss top, disappear top"_s
            << u"top:B | top:C | home | top"_s;
    }

    // Comma-separated ops: "by-view" (dismissal mode), "apply <screen> [position:scenario...]",
    // "dismiss <position>", "disappear <position>", "clear", "tick" (every pending delay
    // elapses), "step" (only the oldest one does).
    void rules()
    {
        QFETCH(QString, ops);
        PopupBannerStore store;
        QList<std::function<void()>> pending;
        store.setScheduler([&](std::chrono::milliseconds delay, std::function<void()> callback) {
            QCOMPARE(delay, 300ms);
            pending.append(std::move(callback));
        });
        QStringList reported;
        int mapChanges = 0;
        connect(&store, &PopupBannerStore::popupBannerChanged, this,
                [&](const QString &position, bool animated) {
                    QCOMPARE(mapChanges, 0); // every position first, then the map once
                    reported.append(position + (animated ? u""_s : u"!"_s));
                });
        connect(&store, &PopupBannerStore::popupBannersChanged, this, [&] {
            QCOMPARE(store.popupBannersMap().size(), qsizetype(store.popupBanners().size()));
            ++mapChanges;
        });
        for (const QString &op : ops.split(u", "_s)) {
            const QStringList words = op.split(u' ');
            reported.clear();
            mapChanges = 0;
            if (words[0] == u"by-view")
                store.setDismissalMode(PopupBannerStore::DismissalMode::AfterViewDisappears);
            else if (words[0] == u"apply")
                store.apply(fixtures::popupPairs(words.mid(2)), words[1]);
            else if (words[0] == u"dismiss")
                store.dismissPopupBanner(words[1]);
            else if (words[0] == u"disappear")
                store.bannerDidDisappear(words[1]);
            else if (words[0] == u"clear")
                store.clearAllPopupBanners();
            else if (words[0] == u"step" && !pending.isEmpty())
                pending.takeFirst()();
            while (words[0] == u"tick" && !pending.isEmpty())
                pending.takeFirst()();
            QCOMPARE(mapChanges, reported.isEmpty() ? 0 : 1);
        }

        QStringList visible, queued;
        for (const auto &[position, banner] : store.popupBanners())
            visible.append(rawValue(position) + u':' + banner.scenarioId);
        for (const auto &[position, queue] : store.queueController().queues) {
            for (const PopupBannerComponentData &banner : queue)
                queued.append(rawValue(position) + u':' + banner.scenarioId);
        }
        QStringList state = { visible.join(u' '), queued.join(u' '),
                              store.currentScreenName().value_or(QString()), reported.join(u' ') };
        for (QString &part : state)
            part = part.isEmpty() ? u"-"_s : part;
        QTEST(state.join(u" | "_s), "state");
    }
};

QTEST_GUILESS_MAIN(PopupBannerStoreTest)
#include "tst_presentation_popupbannerstore.moc"
