#include "gifwriter/gifwriter.h"
#include "painting/cardshadow.h"
#include "painting/closeglyph.h"
#include "presentation/colors.h"
#include "utilities/iamanimatedimageview.h"
#include "utilities/iamclosebutton.h"
#include "utilities/labeltextlayout.h"
#include "utilities/paddedlabel.h"
#include "utilities/widgetfade.h"
#include "widgetstestsupport.h"

#include <QAccessible>
#include <QAccessibleActionInterface>
#include <QGraphicsDropShadowEffect>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace velmora;
using velmora::loopback::Certificate;
using velmora::loopback::HttpServer;
using velmora::loopback::Response;
using velmora::test::renderAt;
using velmora::test::sameColor;

namespace {

// The largest difference of a channel between two images of the same size.
int maxDifference(const QImage &a, const QImage &b)
{
    int difference = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            difference = std::max({ difference, std::abs(qRed(p) - qRed(q)),
                                    std::abs(qGreen(p) - qGreen(q)), std::abs(qBlue(p) - qBlue(q)),
                                    std::abs(qAlpha(p) - qAlpha(q)) });
        }
    }
    return difference;
}

// Three vertical stripes, red, green and blue, each 10 x 10.
QImage stripes()
{
    QImage image(30, 10, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.fillRect(0, 0, 10, 10, Qt::red);
    painter.fillRect(10, 0, 10, 10, Qt::green);
    painter.fillRect(20, 0, 10, 10, Qt::blue);
    return image;
}

// Logical points and the colour each must show.
using Probes = QList<std::pair<QPointF, QColor>>;

QImage solid(QColor color)
{
    QImage image(8, 8, QImage::Format_Indexed8);
    image.setColorTable({ color.rgba() });
    image.fill(0);
    return image;
}

// Delays 0.1, 0.5 and 0.1 seconds: frame 1 from 0.1 to 0.6, frame 2 until 0.7. The middle
// frame is 32-bit, as a decoder leaves a frame of too many colours.
LoadedImage threeFrames()
{
    return LoadedImage::animated(AnimatedImageSource(
        { solid(Qt::red), solid(Qt::green).convertToFormat(QImage::Format_RGB32), solid(Qt::blue) },
        { 0.1, 0.5, 0.1 }, { 8, 8 }));
}

// The colour the view paints in its middle, at 1x and 2x.
QList<QColor> paintedColors(QWidget *view)
{
    QList<QColor> colors;
    for (const qreal ratio : { 1.0, 2.0 }) {
        const QImage image = renderAt(view, ratio);
        colors << image.pixelColor(image.width() / 2, image.height() / 2);
    }
    return colors;
}

LoadedImage still(QColor color)
{
    return LoadedImage::still(StillImageSource(solid(color)));
}

QByteArray twoFrameGif()
{
    QImage first(24, 16, QImage::Format_RGB32);
    first.fill(Qt::red);
    QImage second = first;
    second.fill(Qt::blue);
    return test::encodeGif({ test::GifFrame(first, 20), test::GifFrame(second, 30) }, first.size());
}

} // namespace

class tst_WidgetsUtilities : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        m_animations = std::make_unique<test::ManualAnimationDriver>();
        m_animations->install();
        QVERIFY(Certificate::shared());
        QVERIFY(m_server.listen(HttpServer::Mode::Https));
        m_server.setDefaultResponse(Response::withStatus(200, twoFrameGif()));
    }

    void cleanupTestCase() { m_animations.reset(); }

    void closeButtonPixels_data()
    {
        QTest::addColumn<int>("side");
        QTest::addColumn<qreal>("ratio");
        QTest::addColumn<bool>("symmetric");

        QTest::newRow("44 at 1x") << 44 << 1.0 << true;
        QTest::newRow("44 at 2x") << 44 << 2.0 << true;
        QTest::newRow("45 at 2x") << 45 << 2.0 << true;
        QTest::newRow("45 at 1x, disc on whole pixels") << 45 << 1.0 << false;
    }

    void closeButtonPixels()
    {
        QFETCH(int, side);
        QFETCH(qreal, ratio);
        QFETCH(bool, symmetric);

        IAMCloseButton button;
        button.resize(side, side);
        const QImage image = renderAt(&button, ratio);
        const int centre = int(std::lround(side * ratio / 2)); // device pixel right of the centre
        const auto pixel = [&](qreal dx) {
            return image.pixelColor(centre + int(std::floor(dx * ratio)), centre);
        };

        COMPARE_COLOR(pixel(0), palette::closeButtonIconColor());
        COMPARE_COLOR(pixel(-0.5), palette::closeButtonIconColor());
        COMPARE_COLOR(pixel(-11), palette::closeButtonBackgroundColor()); // just inside the disc
        COMPARE_COLOR(pixel(10.5), palette::closeButtonBackgroundColor());
        COMPARE_COLOR(pixel(-14), QColor(Qt::transparent));
        COMPARE_COLOR(pixel(13), QColor(Qt::transparent));
        COMPARE_COLOR(image.pixelColor(0, 0), QColor(Qt::transparent));
        if (symmetric) {
            QVERIFY(maxDifference(image.mirrored(true, false), image) <= 1);
            QVERIFY(maxDifference(image.mirrored(false, true), image) <= 1);
        }
        // The glyph on its own is the same cross.
        const QImage glyph = closeGlyph(palette::closeButtonIconColor(), 12, ratio);
        QCOMPARE(glyph.size(), QSize(12, 12) * ratio);
        QCOMPARE(glyph.devicePixelRatio(), ratio);
        COMPARE_COLOR(glyph.pixelColor(glyph.width() / 2, glyph.height() / 2),
                      palette::closeButtonIconColor());
        COMPARE_COLOR(glyph.pixelColor(glyph.width() / 2, 0), QColor(Qt::transparent));
    }

    void closeButtonActivation_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<int>("clicks");

        QTest::newRow("tap inside") << u"tap"_s << 1;
        QTest::newRow("press, slide off, release") << u"slide off"_s << 0;
        QTest::newRow("space") << u"space"_s << 1;
        QTest::newRow("enter") << u"enter"_s << 1;
        QTest::newRow("accessible press") << u"accessible"_s << 1;
    }

    void closeButtonActivation()
    {
        QFETCH(QString, action);
        QFETCH(int, clicks);

        QWidget window;
        window.resize(100, 100);
        auto *button = new IAMCloseButton(&window);
        button->setGeometry(56, 0, 44, 44);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        button->setFocus(Qt::TabFocusReason);
        QSignalSpy clicked(button, &IAMCloseButton::clicked);

        if (action == u"tap") {
            QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(2, 41)); // far from the disc
        } else if (action == u"slide off") {
            QTest::mousePress(button, Qt::LeftButton, {}, QPoint(22, 22));
            QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(22, 60));
        } else if (action == u"space") {
            QTest::keyClick(button, Qt::Key_Space);
        } else if (action == u"enter") {
            QTest::keyClick(button, Qt::Key_Return);
        } else if (action == u"accessible") {
            QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(button);
            QVERIFY(accessible);
            QCOMPARE(accessible->role(), QAccessible::Button);
            QCOMPARE(accessible->text(QAccessible::Name), u"Close"_s);
            QVERIFY(accessible->actionInterface());
            accessible->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
        }
        QCOMPARE(clicked.size(), clicks);
        QCOMPARE(button->focusPolicy(), Qt::StrongFocus);
    }

    void fade_data()
    {
        QTest::addColumn<bool>("hiding");
        QTest::addColumn<QString>("interruption"); // after half the fade
        QTest::addColumn<bool>("visible");
        QTest::addColumn<qreal>("opacity");
        QTest::addColumn<bool>("effectLeft");

        QTest::newRow("hide") << true << QString() << false << 0.0 << true;
        QTest::newRow("hide stopped") << true << u"stop"_s << true << 0.0 << true;
        QTest::newRow("hide, then show")
            << true << u"show"_s << true << WidgetFade::faintestOpacity << true;
        QTest::newRow("show") << false << QString() << true << 1.0 << false;
        QTest::newRow("hide, widget has a shadow") << true << u"shadow"_s << false << 1.0 << true;
    }

    void fade()
    {
        QFETCH(bool, hiding);
        QFETCH(QString, interruption);
        QFETCH(bool, visible);
        QFETCH(qreal, opacity);
        QFETCH(bool, effectLeft);

        QWidget window;
        auto *card = new QWidget(&window);
        card->setVisible(hiding); // hiding shows it first, showing needs none
        if (interruption == u"shadow")
            card->setGraphicsEffect(new QGraphicsDropShadowEffect);
        QGraphicsEffect *ownEffect = card->graphicsEffect();
        window.show();

        int completions = 0;
        const auto count = [&completions] { ++completions; };
        hiding ? WidgetFade::hide(card, count) : WidgetFade::show(card, count);
        QCOMPARE(completions, 0); // it runs from the event loop
        if (interruption != u"shadow") {
            QVERIFY(WidgetFade::isFading(card));
            QVERIFY(card->isVisible());
            QCOMPARE(WidgetFade::opacity(card), hiding ? 1.0 : WidgetFade::faintestOpacity);
            m_animations->advanceBy(150);
            QVERIFY(WidgetFade::opacity(card) > 0.2 && WidgetFade::opacity(card) < 0.8);
        }
        if (interruption == u"stop")
            WidgetFade::stop(card);
        else if (interruption == u"show")
            WidgetFade::show(card);
        else
            m_animations->advanceBy(200);
        QTRY_COMPARE(completions, 1);

        QCOMPARE(card->isVisible(), visible);
        QCOMPARE(WidgetFade::opacity(card), opacity);
        QCOMPARE(card->graphicsEffect() != nullptr, effectLeft);
        if (ownEffect)
            QCOMPARE(card->graphicsEffect(), ownEffect);
        // Nothing more runs later, not even when the fade that took over ends.
        m_animations->advanceBy(400);
        QTest::qWait(10);
        QCOMPARE(completions, 1);
        if (interruption == u"show")
            QCOMPARE(WidgetFade::opacity(card), 1.0);
    }

    void paddedLabelInsets_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("wordWrap");

        QTest::newRow("one line") << u"Summer sale"_s << true;
        QTest::newRow("two paragraphs") << u"Summer sale\nup to 50% off"_s << true;
        QTest::newRow("no wrapping") << u"Summer sale"_s << false;
        QTest::newRow("empty") << QString() << true;
    }

    void paddedLabelInsets()
    {
        QFETCH(QString, text);
        QFETCH(bool, wordWrap);

        QFont font;
        font.setPixelSize(14);
        PaddedLabel plain(text), padded(text);
        for (PaddedLabel *label : { &plain, &padded }) {
            label->setFont(font);
            label->setWordWrap(wordWrap);
        }
        padded.setTextInsets(QMargins(12, 8, 12, 8)); // top 8, left 12, bottom 8, right 12

        QCOMPARE(padded.sizeHint(), plain.sizeHint() + QSize(24, 16));
        QCOMPARE(padded.minimumSizeHint(), plain.minimumSizeHint() + QSize(24, 16));
        QCOMPARE(padded.hasHeightForWidth(), wordWrap);
        if (wordWrap)
            QCOMPARE(padded.heightForWidth(60 + 24), plain.heightForWidth(60) + 16);
        if (!text.isEmpty()) {
            QVERIFY(plain.sizeHint().height() >= 14);
            QCOMPARE(plain.sizeHint().height() > 20, text.contains(u'\n'));
        }
    }

    void paddedLabelLineLimit()
    {
        QFont font;
        font.setPixelSize(14);
        const QString text = u"Everything in the summer collection is half price until Sunday, "
                             "with free delivery on every order and returns within thirty days."_s;
        PaddedLabel label(text);
        label.setFont(font);
        label.setTextInsets(QMargins(8, 8, 8, 8));
        const int width = 160;

        const int unlimited = label.heightForWidth(width);
        label.setMaximumLineCount(3);
        const int capped = label.heightForWidth(width);
        QVERIFY2(capped < unlimited, qPrintable(u"%1 vs %2"_s.arg(capped).arg(unlimited)));

        using detail::LabelTextLayout;
        LabelTextLayout::Options options;
        options.width = width - 16;
        options.maxLines = 3;
        const LabelTextLayout three(text, font, &label, options);
        QCOMPARE(three.lineCount(), 3);
        QCOMPARE(capped, int(std::ceil(three.height())) + 16);
        QVERIFY(three.isElided());
        QVERIFY(three.lineText(2).endsWith(u'…'));
        QVERIFY(three.naturalWidth() <= options.width);
        QVERIFY(!three.lineText(0).endsWith(u'…'));

        // Squeezed by its layout, the label shows the lines that fit, the last one elided.
        options.maxHeight = three.height() * 2 / 3;
        const LabelTextLayout squeezed(text, font, &label, options);
        QCOMPARE(squeezed.lineCount(), 2);
        QVERIFY(squeezed.lineText(1).endsWith(u'…'));

        // Text that fits is left alone, and lines are only cut where text is left over.
        options = {};
        options.width = 500;
        options.maxLines = 3;
        const LabelTextLayout fits(u"Sale\nToday"_s, font, &label, options);
        QCOMPARE(fits.lineCount(), 2);
        QVERIFY(!fits.isElided());
        QCOMPARE(fits.lineText(1), u"Today"_s);
    }

    void imageViewPlaysOnlyInAWindow()
    {
        QWidget window;
        IAMAnimatedImageView *view = clockedView(&window);

        view->setLoadedImage(threeFrames());
        QCOMPARE(view->currentFrameIndex(), 0);
        QVERIFY(!view->isAnimating()); // no window on screen

        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(view->isAnimating());
        QCOMPARE(paintedColors(view), QList<QColor>(2, QColor(Qt::red)));
        m_now = 300ms;
        QTRY_COMPARE(view->currentFrameIndex(), 1);
        QCOMPARE(paintedColors(view), QList<QColor>(2, QColor(Qt::green)));
        m_now = 650ms;
        QTRY_COMPARE(view->currentFrameIndex(), 2);
        COMPARE_COLOR(view->currentImage().pixelColor(0, 0), QColor(Qt::blue));
        QCOMPARE(paintedColors(view), QList<QColor>(2, QColor(Qt::blue)));

        window.hide();
        QVERIFY(!view->isAnimating());
        m_now = 5s;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(view->isAnimating());
        QCOMPARE(view->currentFrameIndex(), 0); // the loop starts over
        COMPARE_COLOR(view->currentImage().pixelColor(0, 0), QColor(Qt::red));
        m_now = 5s + 300ms;
        QTRY_COMPARE(view->currentFrameIndex(), 1);

        view->hide();
        QVERIFY(!view->isAnimating());
        view->show();
        QVERIFY(view->isAnimating());
        QCOMPARE(view->currentFrameIndex(), 0);

        view->setParent(nullptr); // out of the window
        QVERIFY(!view->isAnimating());
        view->setParent(&window);
        view->show();
        QVERIFY(view->isAnimating());

        view->setLoadedImage(still(Qt::yellow));
        QVERIFY(!view->isAnimating());
        QCOMPARE(view->currentFrameIndex(), -1);
        COMPARE_COLOR(view->currentImage().pixelColor(0, 0), QColor(Qt::yellow));
        view->setLoadedImage(std::nullopt);
        QVERIFY(view->currentImage().isNull());
    }

    void imageViewConvertsOnlyNewFrames()
    {
        QWidget window;
        IAMAnimatedImageView *view = clockedView(&window);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QSignalSpy frames(view, &IAMAnimatedImageView::frameChanged);

        view->setLoadedImage(threeFrames());
        QCOMPARE(frames.size(), 1);
        QTest::qWait(100); // several refreshes within the first frame's slot
        QCOMPARE(frames.size(), 1);
        m_now = 150ms;
        QTRY_COMPARE(frames.size(), 2);
        QTest::qWait(100);
        QCOMPARE(frames.size(), 2);
        QCOMPARE(frames.at(1).at(0).toInt(), 1);
        // Two frames on in one refresh: only the frame shown is made ready.
        m_now = 750ms;
        QTRY_COMPARE(frames.size(), 3);
        QCOMPARE(frames.at(2).at(0).toInt(), 0);
    }

    void imageViewLoad_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("meanwhile"); // before the load ends
        QTest::addColumn<QSize>("size");

        const QString gif = m_server.url(u"/image.gif"_s).toString();
        const QString plainHttp = u"http://127.0.0.1:1/image.gif"_s;
        QTest::newRow("animated GIF over HTTPS") << gif << QString() << QSize(24, 16);
        QTest::newRow("plain HTTP refused") << plainHttp << QString() << QSize();
        QTest::newRow("no URL") << QString() << QString() << QSize();
        QTest::newRow("superseded by an image set meanwhile") << gif << u"superseded"_s << QSize();
        QTest::newRow("view destroyed: no completion") << plainHttp << u"destroyed"_s << QSize();
    }

    void imageViewLoad()
    {
        QFETCH(QString, url);
        QFETCH(QString, meanwhile);
        QFETCH(QSize, size);

        ImageLoader loader(QString {});
        loader.setSslConfiguration(Certificate::shared()->clientConfiguration());
        auto view = std::make_unique<IAMAnimatedImageView>();
        view->setImageLoader(&loader);
        view->setLoadedImage(still(Qt::yellow));
        QSignalSpy finished(view.get(), &IAMAnimatedImageView::loadFinished);

        std::optional<QSize> reported;
        view->loadFromUrl(url, [&reported](QSize size) { reported = size; });
        QVERIFY(!reported);
        if (meanwhile == u"destroyed") {
            view.reset();
            QTest::qWait(20);
            QVERIFY(!reported);
            return;
        }
        const bool superseded = meanwhile == u"superseded";
        if (superseded)
            view->setLoadedImage(still(Qt::cyan));
        QTRY_VERIFY(reported);
        QCOMPARE(*reported, size);
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).toSize(), size);

        QVERIFY(view->loadedImage());
        QCOMPARE(view->loadedImage()->isAnimated(), size.isValid());
        if (!size.isValid())
            COMPARE_COLOR(view->currentImage().pixelColor(0, 0),
                          superseded ? QColor(Qt::cyan) : QColor(Qt::yellow));
    }

    void imageViewPixels_data()
    {
        QTest::addColumn<IAMAnimatedImageView::ContentMode>("mode");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<qreal>("ratio");
        QTest::addColumn<qreal>("radius");
        QTest::addColumn<bool>("hasImage");
        QTest::addColumn<Probes>("probes");

        using Mode = IAMAnimatedImageView::ContentMode;
        const QColor red(Qt::red), green(Qt::green), blue(Qt::blue), none(Qt::transparent);
        const QColor placeholder = palette::coverImagePlaceholderColor();
        for (qreal ratio : { 1.0, 2.0 }) {
            const char *at = ratio == 1 ? " at 1x" : " at 2x";
            // 30 x 10 shrunk to 20 x 10 by fit, or kept at 30 x 10 with 5 cut on each side.
            QTest::addRow("fill crops both sides%s", at)
                << Mode::AspectFill << QSize(20, 10) << ratio << 0.0 << true
                << Probes { { { 2, 5 }, red }, { { 10, 5 }, green }, { { 18, 5 }, blue } };
            QTest::addRow("fill of a square shows the middle%s", at)
                << Mode::AspectFill << QSize(40, 40) << ratio << 0.0 << true
                << Probes { { { 4, 2 }, green }, { { 36, 38 }, green }, { { 20, 20 }, green } };
            QTest::addRow("fit letterboxes%s", at)
                << Mode::AspectFit << QSize(60, 60) << ratio << 0.0 << true
                << Probes { { { 10, 30 }, red },
                            { { 30, 30 }, green },
                            { { 50, 30 }, blue },
                            { { 30, 5 }, none },
                            { { 30, 55 }, none } };
            QTest::addRow("rounded corners%s", at)
                << Mode::AspectFill << QSize(40, 40) << ratio << 8.0 << true
                << Probes { { { 0.5, 0.5 }, none },
                            { { 39.5, 0.5 }, none },
                            { { 4, 4 }, green },
                            { { 20, 20 }, green } };
            QTest::addRow("placeholder without an image%s", at)
                << Mode::AspectFill << QSize(20, 10) << ratio << 0.0 << false
                << Probes { { { 0, 0 }, placeholder }, { { 19.5, 9.5 }, placeholder } };
        }
    }

    void imageViewPixels()
    {
        QFETCH(IAMAnimatedImageView::ContentMode, mode);
        QFETCH(QSize, size);
        QFETCH(qreal, ratio);
        QFETCH(qreal, radius);
        QFETCH(bool, hasImage);
        QFETCH(Probes, probes);

        IAMAnimatedImageView view;
        view.resize(size);
        view.setContentMode(mode);
        view.setCornerRadius(radius, IAMAnimatedImageView::TopCorners);
        view.setPlaceholderColor(palette::coverImagePlaceholderColor());
        if (hasImage)
            view.setLoadedImage(LoadedImage::still(StillImageSource(stripes())));

        const QImage image = renderAt(&view, ratio);
        for (auto [point, expected] : probes) {
            const QPoint device = (point * ratio).toPoint();
            const QPoint pixel(std::min(device.x(), image.width() - 1),
                               std::min(device.y(), image.height() - 1));
            QColor actual = image.pixelColor(pixel);
            // The placeholder is translucent: compare premultiplied as painted.
            if (expected.alpha() < 255 && expected.alpha() > 0) {
                expected = QColor::fromRgba(qPremultiply(expected.rgba()));
                actual = QColor::fromRgba(image.pixel(pixel));
            }
            QVERIFY2(sameColor(actual, expected, 3),
                     qPrintable(u"at (%1, %2): %3 != %4"_s.arg(point.x()).arg(point.y()).arg(
                         actual.name(QColor::HexArgb), expected.name(QColor::HexArgb))));
        }
    }

    void cardShadowCornersIndependentOfSize_data()
    {
        QTest::addColumn<qreal>("ratio");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }

    // Large cards get their shadow from slices of a small blurred template, small ones a whole
    // render: the corners must match between the two, with no seam where the slices meet.
    void cardShadowCornersIndependentOfSize()
    {
        QFETCH(qreal, ratio);
        const auto shadowOf = [ratio](QSize card) {
            CardShadow shadow(QColor(0, 0, 0, 80), QPointF(), 8, 12);
            const int extent = int(std::ceil(shadow.extent()));
            QImage image((card + QSize(2 * extent, 2 * extent)) * ratio,
                         QImage::Format_ARGB32_Premultiplied);
            image.setDevicePixelRatio(ratio);
            image.fill(Qt::transparent);
            QPainter painter(&image);
            shadow.paint(painter, QRectF(QPointF(extent, extent), QSizeF(card)));
            return image;
        };
        const auto alpha
            = [](const QImage &image, int x, int y) { return qAlpha(image.pixel(x, y)); };
        const QImage small = shadowOf({ 48, 48 });
        const int block = 30 * int(ratio); // the corner and a little of each edge
        for (const QSize size : { QSize(160, 90), QSize(300, 200) }) {
            const QImage large = shadowOf(size);
            // The top left corners, then the bottom right ones turned over.
            for (const bool turned : { false, true }) {
                const QImage a = large.mirrored(turned, turned), b = small.mirrored(turned, turned);
                for (int y = 0; y < block; ++y) {
                    for (int x = 0; x < block; ++x)
                        QVERIFY2(std::abs(alpha(a, x, y) - alpha(b, x, y)) <= 2,
                                 qPrintable(u"corner pixel (%1, %2)"_s.arg(x).arg(y)));
                }
            }
            // Along the middle row the shadow only fades outwards, symmetric on both sides.
            const int row = large.height() / 2;
            for (int x = 1; x < large.width() / 2; ++x) {
                QVERIFY(alpha(large, x, row) >= alpha(large, x - 1, row));
                QCOMPARE(alpha(large, x, row), alpha(large, large.width() - 1 - x, row));
            }
        }
    }

private:
    // A 40 x 40 view in an 80 x 80 window, on the test's clock, starting at 0.
    IAMAnimatedImageView *clockedView(QWidget *window)
    {
        m_now = 0s;
        window->resize(80, 80);
        auto *view = new IAMAnimatedImageView(window);
        view->setGeometry(0, 0, 40, 40);
        view->setTimeSource([this] { return m_now; });
        return view;
    }

    std::chrono::nanoseconds m_now { 0 };
    std::unique_ptr<test::ManualAnimationDriver> m_animations;
    HttpServer m_server;
};

QTEST_MAIN(tst_WidgetsUtilities)
#include "tst_widgets_utilities.moc"
