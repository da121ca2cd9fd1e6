#include "embeddedbannerstore.h"
#include "presentationfixtures.h"

#include <QDesktopServices>
#include <QSignalSpy>
#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

namespace {

// "hero:s1" → an update for component "hero", scenario s1, on screen "home". Further parts
// after "|" set the image URL and the image's link: "hero:s1|https://img/2.png|myapp://x".
EmbeddedComponentUpdate update(const QString &token)
{
    const QStringList parts = token.split(u'|');
    const QString id = parts.at(0).section(u':', 0, 0);
    const QString scenarioId = parts.at(0).section(u':', 1);
    EmbeddedBannerAction content
        = *fixtures::embeddedBanner(scenarioId, id).contents.embeddedBannerAction();
    if (parts.size() > 1)
        content.creative.image.url = parts.at(1);
    if (parts.size() > 2)
        content.creative.image.linkUrl = parts.at(2);
    return { id, content, scenarioId, u"home"_s };
}

QList<EmbeddedComponentUpdate> updates(const QStringList &tokens)
{
    QList<EmbeddedComponentUpdate> result;
    for (const QString &token : tokens)
        result.append(update(token));
    return result;
}

QString entries(const EmbeddedBannerStore &store)
{
    QStringList parts;
    for (const auto &[id, banner] : store.embeddedBanners())
        parts.append(id + u':' + banner.scenarioId);
    return parts.join(u' ');
}

} // namespace

class UrlRecorder : public QObject
{
    Q_OBJECT

public:
    QStringList *log = nullptr;

public Q_SLOTS:
    void open(const QUrl &url) { log->append(u"open "_s + url.toString()); }
};

class EmbeddedBannerStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clearAllOrder()
    {
        EmbeddedBannerStore store;
        QObject firstOwner;
        store.clearAll(u"home"_s, &firstOwner);
        store.apply(updates({ u"hero:s1"_s, u"footer:s2"_s }));

        QStringList log;
        auto record = [&](const QString &what) {
            log.append(what + u" owner="_s + (store.currentOwner() ? u"new"_s : u"none"_s)
                       + u" entries="_s + QString::number(store.embeddedBanners().size())
                       + u" screen="_s + store.currentScreenName().value_or(u"-"_s));
        };
        connect(&store, &EmbeddedBannerStore::currentOwnerChanged, this,
                [&] { record(u"owner"_s); });
        connect(&store, &EmbeddedBannerStore::embeddedBannerChanged, this,
                [&](const QString &id) { record(u"banner "_s + id); });
        connect(&store, &EmbeddedBannerStore::embeddedBannersChanged, this,
                [&] { record(u"banners"_s); });
        connect(&store, &EmbeddedBannerStore::currentScreenNameChanged, this,
                [&] { record(u"screen"_s); });

        store.clearAll(u"cart"_s, nullptr);
        QCOMPARE(log,
                 (QStringList { u"owner owner=none entries=2 screen=home"_s,
                                u"banner footer owner=none entries=0 screen=home"_s,
                                u"banner hero owner=none entries=0 screen=home"_s,
                                u"banners owner=none entries=0 screen=home"_s,
                                u"screen owner=none entries=0 screen=cart"_s }));

        // Nothing changes on a second clear of the same screen, so nothing is published.
        log.clear();
        store.clearAll(u"cart"_s, nullptr);
        QCOMPARE(log, QStringList {});
    }

    void ownerIsHeldWeakly()
    {
        EmbeddedBannerStore store;
        auto owner = std::make_unique<QObject>();
        store.clearAll(u"home"_s, owner.get());
        QCOMPARE(store.currentOwner(), owner.get());

        QSignalSpy ownerChanged(&store, &EmbeddedBannerStore::currentOwnerChanged);
        owner.reset();
        QCOMPARE(store.currentOwner(), nullptr);
        QCOMPARE(ownerChanged.size(), 1);

        // A later owner's destruction is reported, the old one's connection is gone.
        QObject next;
        store.clearAll(u"cart"_s, &next);
        QCOMPARE(ownerChanged.size(), 2);
    }

    void apply_data()
    {
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QStringList>("incoming");
        QTest::addColumn<QString>("after");
        QTest::addColumn<QStringList>("changes");

        QTest::newRow("later update for one id wins")
            << QStringList {} << QStringList { u"hero:s1"_s, u"hero:s2"_s } << u"hero:s2"_s
            << QStringList { u"hero"_s, u"hero"_s };
        QTest::newRow("entries not named are kept")
            << QStringList { u"footer:s0"_s } << QStringList { u"hero:s1"_s }
            << u"footer:s0 hero:s1"_s << QStringList { u"hero"_s };
        QTest::newRow("an existing entry is replaced")
            << QStringList { u"hero:s0"_s } << QStringList { u"hero:s1"_s } << u"hero:s1"_s
            << QStringList { u"hero"_s };
        QTest::newRow("each update is its own change, in order")
            << QStringList {} << QStringList { u"b:s1"_s, u"a:s2"_s, u"b:s3"_s } << u"a:s2 b:s3"_s
            << QStringList { u"b"_s, u"a"_s, u"b"_s };
        QTest::newRow("no updates, no change")
            << QStringList { u"hero:s0"_s } << QStringList {} << u"hero:s0"_s << QStringList {};
    }

    void apply()
    {
        QFETCH(QStringList, before);
        QFETCH(QStringList, incoming);

        EmbeddedBannerStore store;
        store.apply(updates(before));
        QStringList changes;
        connect(&store, &EmbeddedBannerStore::embeddedBannerChanged, this,
                [&](const QString &id) { changes.append(id); });
        QSignalSpy mapChanges(&store, &EmbeddedBannerStore::embeddedBannersChanged);
        store.apply(updates(incoming));

        QTEST(entries(store), "after");
        QTEST(changes, "changes");
        QCOMPARE(mapChanges.size(), changes.size());
    }

    void openReaction_data()
    {
        QTest::addColumn<QStringList>("ops");
        QTest::addColumn<QStringList>("reported");

        // Ops: "apply <update token>", "open <component> <image URL>", "clear".
        QTest::newRow("once per component and image")
            << QStringList { u"apply hero:s1"_s, u"open hero u1"_s, u"open hero u1"_s }
            << QStringList { u"open home s1"_s };
        QTest::newRow("another image reports again")
            << QStringList { u"apply hero:s1"_s, u"open hero u1"_s, u"open hero u2"_s,
                             u"open hero u1"_s }
            << QStringList { u"open home s1"_s, u"open home s1"_s, u"open home s1"_s };
        QTest::newRow("a new screen reports again")
            << QStringList { u"apply hero:s1"_s, u"open hero u1"_s, u"clear"_s, u"apply hero:s1"_s,
                             u"open hero u1"_s }
            << QStringList { u"open home s1"_s, u"open home s1"_s };
        QTest::newRow("a later banner for the slot reports with its own scenario")
            << QStringList { u"apply hero:s1"_s, u"open hero u1"_s, u"apply hero:s2"_s,
                             u"open hero u2"_s }
            << QStringList { u"open home s1"_s, u"open home s2"_s };
        QTest::newRow("components are tracked apart")
            << QStringList { u"apply hero:s1"_s, u"apply footer:s2"_s, u"open hero u1"_s,
                             u"open footer u1"_s }
            << QStringList { u"open home s1"_s, u"open home s2"_s };
        QTest::newRow("no entry: nothing reported, nothing recorded")
            << QStringList { u"open hero u1"_s, u"apply hero:s1"_s, u"open hero u1"_s }
            << QStringList { u"open home s1"_s };
        QTest::newRow("cleared entry reports nothing")
            << QStringList { u"apply hero:s1"_s, u"clear"_s, u"open hero u1"_s } << QStringList {};
    }

    void openReaction()
    {
        QFETCH(QStringList, ops);

        EmbeddedBannerStore store;
        QStringList reported;
        store.setReactionHandler(
            [&](EventsReactionType type, const QString &screen, const QString &scenario) {
                reported.append(rawValue(type) + u' ' + screen + u' ' + scenario);
            });
        for (const QString &op : ops) {
            const QStringList words = op.split(u' ');
            if (words.first() == u"apply")
                store.apply({ update(words.at(1)) });
            else if (words.first() == u"open")
                store.sendOpenReactionIfNeeded(words.at(1), words.at(2));
            else
                store.clearAll(u"home"_s, nullptr);
        }
        QTEST(reported, "reported");
    }

    void handleClick_data()
    {
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QStringList>("expected");

        const QString reaction = u"reaction click home s1"_s;
        const QString clicked = u"clicked hero"_s;
        QTest::newRow("https link")
            << u"hero:s1|https://img.example/1.png|https://shop.example/sale"_s
            << QStringList { reaction, clicked, u"open https://shop.example/sale"_s };
        QTest::newRow("no link still reports and tells the host")
            << u"hero:s1"_s << QStringList { reaction, clicked };
        QTest::newRow("empty link opens nothing")
            << u"hero:s1|https://img.example/1.png|"_s << QStringList { reaction, clicked };
        QTest::newRow("app scheme goes to the error handler")
            << u"hero:s1|https://img.example/1.png|myapp://sale"_s
            << QStringList { reaction, clicked,
                             u"error hero Unsupported URL scheme: myapp://sale"_s };
        QTest::newRow("unknown component does nothing") << u"footer:s1"_s << QStringList {};
    }

    void handleClick()
    {
        QFETCH(QString, entry);

        QStringList log;
        UrlRecorder opener;
        opener.log = &log;
        QDesktopServices::setUrlHandler(u"https"_s, &opener, "open");
        QDesktopServices::setUrlHandler(u"myapp"_s, &opener, "open");
        auto unset = qScopeGuard([] {
            QDesktopServices::unsetUrlHandler(u"https"_s);
            QDesktopServices::unsetUrlHandler(u"myapp"_s);
        });

        EmbeddedBannerStore store;
        store.setReactionHandler(
            [&](EventsReactionType type, const QString &screen, const QString &scenario) {
                log.append(u"reaction "_s + rawValue(type) + u' ' + screen + u' ' + scenario);
            });
        store.setMessageClickedHandler([&](const InAppMessage &message) {
            log.append(u"clicked "_s + message.componentId());
        });
        store.setMessageErrorHandler(
            [&](const std::optional<InAppMessage> &message, const VelmoraError &error) {
                log.append(u"error "_s + (message ? message->componentId() : u"-"_s) + u' '
                           + error.message());
            });
        store.apply({ update(entry) });
        store.handleClick(u"hero"_s);
        QTEST(log, "expected");
    }
};

QTEST_MAIN(EmbeddedBannerStoreTest)
#include "tst_presentation_embeddedbannerstore.moc"
