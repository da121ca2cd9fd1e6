#include "linkopening.h"

#include <QDesktopServices>
#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

// Stands in for the system's URL opener, as a host intercepting links would.
class UrlRecorder : public QObject
{
    Q_OBJECT

public:
    QStringList opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url.toString()); }
};

class LinkOpeningTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Catch-all handlers too, so that a link opened by mistake is seen, not launched.
        for (const QString &scheme :
             { u"http"_s, u"https"_s, u"mailto"_s, u"myapp"_s, u"ftp"_s, u"file"_s })
            QDesktopServices::setUrlHandler(scheme, &m_recorder, "open");
    }

    void cleanupTestCase()
    {
        for (const QString &scheme :
             { u"http"_s, u"https"_s, u"mailto"_s, u"myapp"_s, u"ftp"_s, u"file"_s })
            QDesktopServices::unsetUrlHandler(scheme);
    }

    void init() { m_recorder.opened.clear(); }

    void openLinkIfNeeded_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("opened");
        QTest::addColumn<QString>("error");

        QTest::newRow("empty does nothing") << u""_s << u""_s << u""_s;
        QTest::newRow("https") << u"https://example.com/sale?id=1#top"_s
                               << u"https://example.com/sale?id=1#top"_s << u""_s;
        QTest::newRow("http") << u"http://example.com"_s << u"http://example.com"_s << u""_s;
        QTest::newRow("scheme in capitals")
            << u"HTTPS://example.com/Path"_s << u"https://example.com/Path"_s << u""_s;
        QTest::newRow("mixed-case scheme")
            << u"hTtP://example.com"_s << u"http://example.com"_s << u""_s;
        QTest::newRow("mail link") << u"mailto:someone@example.com"_s << u""_s
                                   << u"Unsupported URL scheme: mailto:someone@example.com"_s;
        QTest::newRow("app scheme") << u"myapp://open/item?id=3"_s << u""_s
                                    << u"Unsupported URL scheme: myapp://open/item?id=3"_s;
        QTest::newRow("ftp") << u"ftp://example.com/file"_s << u""_s
                             << u"Unsupported URL scheme: ftp://example.com/file"_s;
        QTest::newRow("file") << u"file:///etc/passwd"_s << u""_s
                              << u"Unsupported URL scheme: file:///etc/passwd"_s;
        QTest::newRow("no scheme") << u"www.example.com/sale"_s << u""_s
                                   << u"Unsupported URL scheme: www.example.com/sale"_s;
        QTest::newRow("https lookalike")
            << u"https-app://x"_s << u""_s << u"Unsupported URL scheme: https-app://x"_s;
        QTest::newRow("space in host")
            << u"https://exa mple.com"_s << u""_s << u"Invalid URL: https://exa mple.com"_s;
        QTest::newRow("unclosed IPv6 host")
            << u"http://[::1/x"_s << u""_s << u"Invalid URL: http://[::1/x"_s;
    }

    void openLinkIfNeeded()
    {
        QFETCH(QString, link);
        QFETCH(QString, opened);
        QFETCH(QString, error);

        const InAppMessage message = InAppMessage::unsupported(u"marker"_s);
        QStringList errors;
        velmora::openLinkIfNeeded(
            link, message,
            [&](const std::optional<InAppMessage> &reported, const VelmoraError &failure) {
                QVERIFY(reported);
                QCOMPARE(reported->rawType(), u"marker"_s);
                QCOMPARE(failure.kind(), VelmoraError::Kind::Precondition);
                errors.append(failure.message());
            });

        QCOMPARE(m_recorder.opened, opened.isEmpty() ? QStringList {} : QStringList { opened });
        QCOMPARE(errors, error.isEmpty() ? QStringList {} : QStringList { error });

        // Without an error callback the failures are silent, and nothing else changes.
        m_recorder.opened.clear();
        velmora::openLinkIfNeeded(link, message, {});
        QCOMPARE(m_recorder.opened, opened.isEmpty() ? QStringList {} : QStringList { opened });
    }

private:
    UrlRecorder m_recorder;
};

QTEST_MAIN(LinkOpeningTest)
#include "tst_presentation_linkopening.moc"
