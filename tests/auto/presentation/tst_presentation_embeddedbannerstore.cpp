#include "presentation/embeddedbannerstore.h"
#include "presentationfixtures.h"

#include <QDesktopServices>
#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

namespace {

// "hero:s1 footer:s2" → updates for components hero and footer on screen "home"; an update
// may add its image's link: "hero:s1|myapp://x".
QList<EmbeddedComponentUpdate> updates(const QString &tokens)
{
    QList<EmbeddedComponentUpdate> result;
    for (const QString &token : tokens.split(u' ', Qt::SkipEmptyParts)) {
        const QString id = token.section(u':', 0, 0);
        EmbeddedBannerAction content { id, fixtures::creative() };
        if (token.contains(u'|'))
            content.creative.image.linkUrl = token.section(u'|', 1);
        result.append({ id, content, token.section(u':', 1).section(u'|', 0, 0), u"home"_s });
    }
    return result;
}

} // namespace

class EmbeddedBannerStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clearAll()
    {
        EmbeddedBannerStore store;
        auto firstOwner = std::make_unique<QObject>();
        store.clearAll(u"home"_s, firstOwner.get());
        store.apply(updates(u"hero:s1 footer:s2"_s));

        // Each signal with what observers find then: "<signal>(<owner> <entries> <screen>)".
        QStringList log;
        auto record = [&](const QString &what) {
            log << what + u'(' + (store.currentOwner() ? u"set "_s : u"none "_s)
                    + QString::number(store.embeddedBanners().size()) + u' '
                    + store.currentScreenName().value_or(u"-"_s) + u')';
        };
        connect(&store, &EmbeddedBannerStore::currentOwnerChanged, this,
                [&] { record(u"owner"_s); });
        connect(&store, &EmbeddedBannerStore::embeddedBannerChanged, this, record);
        connect(&store, &EmbeddedBannerStore::embeddedBannersChanged, this,
                [&] { record(u"map"_s); });
        connect(&store, &EmbeddedBannerStore::currentScreenNameChanged, this,
                [&] { record(u"screen"_s); });

        auto owner = std::make_unique<QObject>();
        store.clearAll(u"cart"_s, owner.get());
        QCOMPARE(log.join(u' '),
                 u"owner(set 2 home) footer(set 0 home) hero(set 0 home) "
                 "map(set 0 home) screen(set 0 cart)"_s);

        // Nothing changes on a second clear of the same screen, and the old owner is no longer
        // watched; the current one is held weakly and its end is announced.
        log.clear();
        store.clearAll(u"cart"_s, owner.get());
        firstOwner.reset();
        owner.reset();
        QCOMPARE(log.join(u' '), u"owner(none 0 cart)"_s);

        // Each update is its own change, in order; the later one for an id wins.
        log.clear();
        store.apply(updates(u"hero:s1 a:s2 hero:s3"_s));
        QCOMPARE(log.join(u' '),
                 u"hero(none 1 cart) map(none 1 cart) a(none 2 cart) "
                 "map(none 2 cart) hero(none 2 cart) map(none 2 cart)"_s);
        QCOMPARE(store.embeddedBanner(u"hero"_s)->scenarioId, u"s3"_s);
    }

    void reactions_data()
    {
        QTest::addColumn<QString>("ops");
        QTest::addColumn<QString>("expected");
        // Comma-separated ops: "apply <updates>", "open <component> <image URL>",
        // "click <component>", "clear", "silent" (no error handler).
        QTest::newRow("open: once per component and image")
            << u"apply hero:s1 footer:s2, open hero u1, open hero u1, open footer u1"_s
            << u"open home s1, open home s2"_s;
        QTest::newRow("open: another image reports again")
            << u"apply hero:s1, open hero u1, open hero u2, open hero u1"_s
            << u"open home s1, open home s1, open home s1"_s;
        QTest::newRow("open: no entry, nothing reported, nothing recorded")
            << u"open hero u1, apply hero:s1, open hero u1"_s << u"open home s1"_s;
        QTest::newRow("open: a new screen forgets; a cleared entry reports nothing")
            << u"apply hero:s1, open hero u1, clear, open hero u1, apply hero:s1, open hero u1"_s
            << u"open home s1, open home s1"_s;
        const QString clicked = u"click home s1, clicked hero"_s;
        QTest::newRow("click: no link; unknown component")
            << u"apply hero:s1, click hero, click footer"_s << clicked;
        // What a click on a banner linking to the URL does after telling the host.
        auto link = [&](const char *name, const QString &url, const QString &outcome) {
            QTest::newRow(name) << u"apply hero:s1|"_s + url + u", click hero"_s
                                << clicked + outcome;
        };
        link("link: reported, told, then opened", u"https://example.com/sale?id=1#top"_s,
             u", open https://example.com/sale?id=1#top"_s);
        link("link: empty opens nothing", u""_s, u""_s);
        link("link: http in any letter case", u"hTtP://example.com/Path"_s,
             u", open http://example.com/Path"_s);
        link("link: app scheme", u"myapp://sale"_s,
             u", error hero Unsupported URL scheme: myapp://sale"_s);
        link("link: no scheme", u"www.example.com/sale"_s,
             u", error hero Unsupported URL scheme: www.example.com/sale"_s);
        link("link: https lookalike", u"https-app://x"_s,
             u", error hero Unsupported URL scheme: https-app://x"_s);
        link("link: not a URL", u"http://[::1/x"_s, u", error hero Invalid URL: http://[::1/x"_s);
        QTest::newRow("link: failures are silent without an error handler")
            << u"silent, apply hero:s1|myapp://sale, click hero"_s << clicked;
    }

    void reactions()
    {
        QFETCH(QString, ops);
        QStringList log;
        fixtures::UrlRecorder opener;
        opener.log = &log;
        // Catch-all handlers too, so that a link opened by mistake is seen, not launched.
        const QStringList schemes
            = { u"http"_s, u"https"_s, u"https-app"_s, u"myapp"_s, u"file"_s };
        for (const QString &scheme : schemes)
            QDesktopServices::setUrlHandler(scheme, &opener, "open");
        auto unset = qScopeGuard([&] {
            for (const QString &scheme : schemes)
                QDesktopServices::unsetUrlHandler(scheme);
        });

        EmbeddedBannerStore store;
        store.setReactionHandler(
            [&](EventsReactionType type, const QString &screen, const QString &scenario) {
                log.append(rawValue(type) + u' ' + screen + u' ' + scenario);
            });
        store.setMessageClickedHandler([&](const InAppMessage &message) {
            log.append(u"clicked "_s + message.componentId());
        });
        store.setMessageErrorHandler(
            [&](const std::optional<InAppMessage> &message, const VelmoraError &error) {
                QCOMPARE(error.kind(), VelmoraError::Kind::Precondition);
                log << u"error "_s + message->componentId() + u' ' + error.message();
            });
        for (const QString &op : ops.split(u", "_s)) {
            const QStringList words = op.split(u' ');
            if (words[0] == u"apply")
                store.apply(updates(words.mid(1).join(u' ')));
            else if (words[0] == u"open")
                store.sendOpenReactionIfNeeded(words[1], words[2]);
            else if (words[0] == u"click")
                store.handleClick(words[1]);
            else if (words[0] == u"silent")
                store.setMessageErrorHandler({});
            else
                store.clearAll(u"home"_s, nullptr);
        }
        QTEST(log.join(u", "_s), "expected");
    }
};

QTEST_MAIN(EmbeddedBannerStoreTest)
#include "tst_presentation_embeddedbannerstore.moc"
