#include "embedded/iamshimmeruiview.h"
#include "embedded/iamuiembeddedbanner_p.h"
#include "network/apirequest.h"
#include "presentation/embeddedbannerstore.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/paddedlabel.h"
#include "widgetstestsupport.h"

#include <QLabel>
#include <QTest>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using namespace velmora;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::png;

using State = IAMUIEmbeddedBanner::State;

class tst_EmbeddedBanner : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(test::listenForImages(m_server));
        m_server.setResponse(u"/slow.png"_s,
                             Response::withStatus(200, png({ 200, 100 }, Qt::green)).delayed(400));
        m_server.setResponse(u"/missing.png"_s, Response::withStatus(404));
    }

    void init()
    {
        // No disk cache, so that every load the view starts reaches the server.
        m_loader = std::make_unique<ImageLoader>(QString());
        m_loader->setSslConfiguration(Certificate::shared()->clientConfiguration());
        m_server.clear();
        m_events.clear();
        m_store = std::make_unique<EmbeddedBannerStore>();
        m_store->setReactionHandler(
            [this](EventsReactionType type, const QString &, const QString &scenario) {
                m_events << rawValue(type) + u':' + scenario;
            });

        m_host = std::make_unique<QWidget>();
        m_host->resize(390, 800);
        m_layout = new QVBoxLayout(m_host.get());
        m_layout->setContentsMargins(0, 0, 0, 0);
        m_layout->setSpacing(10);
        m_layout->addWidget(new QLabel(u"above"_s, m_host.get()));
        m_banner = IAMUIEmbeddedBannerPrivate::create(m_store.get(), m_host.get());
        parts()->setImageLoader(m_loader.get());
        m_banner->setComponentId(u"hero"_s);
        m_layout->addWidget(m_banner);
        auto *below = new QLabel(u"below"_s, m_host.get());
        below->setObjectName(u"below"_s);
        m_layout->addWidget(below);
        m_layout->addStretch();
        m_host->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_host.get()));
        m_store->clearAll(u"home"_s, m_host.get());
    }

    void cleanup()
    {
        m_host.reset();
        m_store.reset();
        m_loader.reset();
    }

    void reveal_data()
    {
        QTest::addColumn<QString>("owner"); // of the screen the store was cleared for
        QTest::addColumn<bool>("placeholder");
        QTest::addColumn<QString>("imagePath");
        QTest::addColumn<bool>("withText");
        QTest::addColumn<State>("expected");

        const QString wide = u"/wide.png"_s, missing = u"/missing.png"_s;
        QTest::newRow("inside owner") << u"host"_s << false << QString() << true << State::Revealed;
        QTest::newRow("no owner") << u"none"_s << false << QString() << true << State::Hidden;
        QTest::newRow("owner elsewhere")
            << u"other"_s << false << QString() << true << State::Hidden;
        QTest::newRow("owner elsewhere, placeholder")
            << u"other"_s << true << QString() << true << State::Placeholder;
        QTest::newRow("no image, no text")
            << u"host"_s << true << QString() << false << State::Hidden;
        QTest::newRow("no image, text")
            << u"host"_s << true << QString() << true << State::Revealed;
        QTest::newRow("image, no text") << u"host"_s << true << wide << false << State::Revealed;
        QTest::newRow("image and text") << u"host"_s << true << wide << true << State::Revealed;
        QTest::newRow("image fails, text")
            << u"host"_s << true << missing << true << State::Revealed;
        QTest::newRow("image fails, no text")
            << u"host"_s << true << missing << false << State::Hidden;
    }

    void reveal()
    {
        QFETCH(QString, owner);
        QFETCH(bool, placeholder);
        QFETCH(QString, imagePath);
        QFETCH(bool, withText);
        QFETCH(State, expected);

        QWidget otherScreen;
        QObject *ownerObject = owner == u"host"_s ? static_cast<QObject *>(m_host.get())
            : owner == u"other"_s                 ? &otherScreen
                                                  : nullptr;
        m_banner->setShowsLoadingPlaceholder(placeholder);
        m_store->clearAll(u"home"_s, ownerObject);
        m_store->apply({ update(u"hero"_s, imagePath, withText) });
        // With the placeholder on, a view waiting for its picture is never in the end state.
        QCOMPARE(m_banner->state(), imagePath.isEmpty() ? expected : State::Placeholder);
        QTRY_COMPARE(m_banner->state(), expected);

        const bool imageVisible = imagePath == u"/wide.png"_s;
        QCOMPARE(m_banner->isVisible(), expected != State::Hidden);
        QCOMPARE(parts()->imageView()->isVisible(), imageVisible);
        QCOMPARE(parts()->titleLabel()->isVisible(), withText && expected == State::Revealed);
        QCOMPARE(parts()->shimmerView()->isVisible(), expected == State::Placeholder);
        // The open of a failed picture is still reported once its text shows.
        QCOMPARE(count(u"open:s1"_s), expected == State::Revealed ? 1 : 0);
        if (imageVisible) {
            // 200 x 100 at the banner's width, the title and body below it, 8 apart.
            const int width = m_banner->width();
            QCOMPARE(parts()->imageView()->geometry(), QRect(0, 0, width, width / 2));
            if (withText)
                QCOMPARE(parts()->titleLabel()->y(), width / 2 + 8);
        }
    }

    void sameBannerAgainIsNotReloaded()
    {
        m_store->apply({ update(u"hero"_s, u"/wide.png"_s, false) });
        QTRY_COMPARE(m_banner->state(), State::Revealed);
        QCOMPARE(requestsFor(u"/wide.png"_s), 1);

        // The store replaces the entry with an equal one: shown at once, no new load, no new open.
        m_store->apply({ update(u"hero"_s, u"/wide.png"_s, false) });
        QCOMPARE(m_banner->state(), State::Revealed);
        QTest::qWait(100);
        QCOMPARE(requestsFor(u"/wide.png"_s), 1);
        QCOMPARE(count(u"open:s1"_s), 1);

        // Another picture for the same slot is loaded and reported again.
        m_store->apply({ update(u"hero"_s, u"/tall.png"_s, false, u"s2"_s) });
        QCOMPARE(m_banner->state(), State::Hidden);
        QTRY_COMPARE(m_banner->state(), State::Revealed);
        QCOMPARE(count(u"open:s2"_s), 1);
        // A tall picture is cropped rather than making the slot taller than the cap.
        QCOMPARE(parts()->imageView()->height(), IAMUIEmbeddedBanner::maximumImageHeight);
    }

    void componentIdChangeDiscardsLoad()
    {
        m_store->apply({ update(u"hero"_s, u"/slow.png"_s, false) });
        QTRY_COMPARE(requestsFor(u"/slow.png"_s), 1);
        m_banner->setComponentId(u"footer"_s);
        QTest::qWait(700);
        QCOMPARE(m_banner->state(), State::Hidden);
        QCOMPARE(count(u"open:s1"_s), 0);

        // Had the stale result been kept, coming back would reveal without loading again.
        m_banner->setComponentId(u"hero"_s);
        QCOMPARE(m_banner->state(), State::Hidden);
        QTRY_COMPARE(m_banner->state(), State::Revealed);
        QCOMPARE(requestsFor(u"/slow.png"_s), 2);
        QCOMPARE(count(u"open:s1"_s), 1);
    }

    void placeholder_data()
    {
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<bool>("loading");
        QTest::addColumn<State>("expected");

        QTest::newRow("enabled, loading") << true << true << State::Placeholder;
        QTest::newRow("disabled, loading") << false << true << State::Hidden;
        QTest::newRow("enabled, idle") << true << false << State::Hidden;
    }

    void placeholder()
    {
        QFETCH(bool, enabled);
        QFETCH(bool, loading);
        QFETCH(State, expected);

        m_banner->setShowsLoadingPlaceholder(enabled);
        m_store->setLoading(loading);
        QCOMPARE(m_banner->state(), expected);
        IAMShimmerUIView *shimmer = parts()->shimmerView();
        QCOMPARE(shimmer->isVisible(), expected == State::Placeholder);
        QCOMPARE(shimmer->isAnimating(), expected == State::Placeholder);
        if (expected != State::Placeholder)
            return;

        QCOMPARE(shimmer->geometry(), m_banner->rect());
        QVERIFY(shimmer->height() > 0);
        QTRY_VERIFY(shimmer->bandX() > -0.6 * shimmer->width());
        const QImage pixels = shimmer->grab().toImage();
        QCOMPARE(pixels.pixelColor(shimmer->width() - 1, 1), IAMShimmerUIView::baseColor());

        m_host->hide();
        QVERIFY(!shimmer->isAnimating());
        m_host->show();
        QVERIFY(shimmer->isAnimating());

        // The banner arrives while its picture is still loading: the shimmer stays until it shows.
        m_store->apply({ update(u"hero"_s, u"/slow.png"_s, true) });
        m_store->setLoading(false);
        QCOMPARE(m_banner->state(), State::Placeholder);
        QTRY_COMPARE(m_banner->state(), State::Revealed);
        QVERIFY(!shimmer->isVisible());
        QVERIFY(!shimmer->isAnimating());
    }

    void heightReflowsAndTapClicks()
    {
        auto *below = m_host->findChild<QLabel *>(u"below"_s);
        QTRY_VERIFY(below->y() > 0);
        const int collapsedY = below->y();

        m_store->apply({ update(u"hero"_s, QString(), true) });
        QCOMPARE(m_banner->state(), State::Revealed);
        QTRY_COMPARE(below->y(), collapsedY + m_banner->height() + m_layout->spacing());
        QCOMPARE(m_banner->height(), m_banner->heightForWidth(m_host->width()));
        // Title and body with 8 between them; the title's background adds its padding.
        QCOMPARE(m_banner->height(),
                 parts()->titleLabel()->height() + 8 + parts()->bodyLabel()->height());
        QCOMPARE(parts()->titleLabel()->textInsets(), QMargins(8, 8, 8, 8));
        QCOMPARE(parts()->bodyLabel()->textInsets(), QMargins());

        QTest::mouseClick(m_banner, Qt::LeftButton, {}, m_banner->rect().center());
        QCOMPARE(count(u"click:s1"_s), 1);

        m_store->clearAll(u"next"_s, m_host.get());
        QCOMPARE(m_banner->state(), State::Hidden);
        QTRY_COMPARE(below->y(), collapsedY);
    }

private:
    EmbeddedComponentUpdate update(const QString &id, const QString &imagePath, bool withText,
                                   const QString &scenario = u"s1"_s) const
    {
        EmbeddedComponentUpdate update;
        update.id = id;
        update.scenarioId = scenario;
        update.screenName = u"home"_s;
        update.content.componentId = id;
        update.content.creative.image.url
            = imagePath.isEmpty() ? QString() : m_server.url(imagePath).toString();
        if (withText) {
            update.content.creative.title = TextContent { u"Spring sale"_s, {}, u"1D2635"_s };
            update.content.creative.body = TextContent { u"Everything 20% off"_s, {}, {} };
        }
        return update;
    }
    qsizetype requestsFor(const QString &path) const
    {
        const QList<loopback::RecordedRequest> requests = m_server.requests();
        return std::count_if(requests.cbegin(), requests.cend(),
                             [&](const loopback::RecordedRequest &r) { return r.path() == path; });
    }
    int count(const QString &event) const { return int(m_events.count(event)); }
    IAMUIEmbeddedBannerPrivate *parts() const { return IAMUIEmbeddedBannerPrivate::get(m_banner); }

    HttpServer m_server;
    std::unique_ptr<ImageLoader> m_loader;
    std::unique_ptr<EmbeddedBannerStore> m_store;
    std::unique_ptr<QWidget> m_host;
    QVBoxLayout *m_layout = nullptr;
    IAMUIEmbeddedBanner *m_banner = nullptr;
    QStringList m_events;
};

QTEST_MAIN(tst_EmbeddedBanner)
#include "tst_widgets_embedded.moc"
