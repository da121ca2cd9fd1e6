#include "layout/bannerlayout.h"
#include "layout/modallayout.h"
#include "layout/screensnapshot.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTest>
#include <QWindow>

using namespace Qt::StringLiterals;
using namespace velmora;
using namespace velmora::layout;

namespace {
std::optional<qreal> optionalReal(const QVariant &value)
{
    return value.isValid() ? std::optional(value.toReal()) : std::nullopt;
}

Margin margin(const QList<double> &topBottomLeftRight)
{
    return { topBottomLeftRight[0], topBottomLeftRight[1], topBottomLeftRight[2],
             topBottomLeftRight[3] };
}

// "" for no size; "50%", "500px"; a height after a comma: "50%,30%".
std::optional<ContentsSize> size(QStringView text)
{
    if (text.isEmpty())
        return std::nullopt;
    const auto length = [](QStringView part) {
        const bool percent = part.endsWith(u'%');
        return ContentsLength { part.left(part.size() - (percent ? 1 : 2)).toInt(),
                                percent ? ContentsLength::Unit::Percentage
                                        : ContentsLength::Unit::Px };
    };
    const qsizetype comma = text.indexOf(u',');
    if (comma < 0)
        return ContentsSize { length(text), std::nullopt };
    return ContentsSize { length(text.left(comma)), length(text.mid(comma + 1)) };
}

const QVariant none;
} // namespace

class tst_Layout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lengthBounds_data();
    void lengthBounds();
    void resolve_data();
    void resolve();
    void positionGrid();
    void rootFrame_data();
    void rootFrame();
    void bannerFrames_data();
    void bannerFrames();
    void keyboard_data();
    void keyboard();
    void imageRatio_data();
    void imageRatio();
    void modalCard_data();
    void modalCard();
    void modalImageHeight_data();
    void modalImageHeight();
    void snapshotCandidates();
    void snapshotFollowsTheForegroundWindow();
};

void tst_Layout::lengthBounds_data()
{
    QTest::addColumn<qint64>("length");
    QTest::addColumn<bool>("percentage");
    QTest::addColumn<QString>("error");

    QTest::newRow("px 1") << qint64(1) << false << QString();
    QTest::newRow("px 999") << qint64(999) << false << QString();
    QTest::newRow("px 1000") << qint64(1000) << false
                             << u"px length must be between 1 and 999, got 1000"_s;
    QTest::newRow("px 0") << qint64(0) << false << u"px length must be between 1 and 999, got 0"_s;
    QTest::newRow("px -5") << qint64(-5) << false
                           << u"px length must be between 1 and 999, got -5"_s;
    QTest::newRow("% 100") << qint64(100) << true << QString();
    QTest::newRow("% 101") << qint64(101) << true
                           << u"percentage length must be between 1 and 100, got 101"_s;
    QTest::newRow("% 0") << qint64(0) << true
                         << u"percentage length must be between 1 and 100, got 0"_s;
    QTest::newRow("% huge") << qint64(10000000000) << true
                            << u"percentage length must be between 1 and 100, got 10000000000"_s;
}

void tst_Layout::lengthBounds()
{
    QFETCH(qint64, length);
    QFETCH(bool, percentage);
    QFETCH(QString, error);
    const auto unit = percentage ? ContentsLength::Unit::Percentage : ContentsLength::Unit::Px;
    QCOMPARE(ContentsLength::boundsError(length, unit).value_or(QString()), error);
}

void tst_Layout::resolve_data()
{
    QTest::addColumn<QRectF>("bounds");
    QTest::addColumn<QMarginsF>("insets");
    QTest::addColumn<QList<double>>("margin"); // top, bottom, left, right
    QTest::addColumn<QString>("size");
    QTest::addColumn<double>("width");
    QTest::addColumn<QVariant>("height");

    const QRectF phone(0, 0, 390, 844);
    const QList<double> sides16 { 0, 0, 16, 16 };
    QTest::newRow("50% of the safe width")
        << phone << QMarginsF() << sides16 << u"50%"_s << 195.0 << none;
    QTest::newRow("100% is the space between the margins")
        << phone << QMarginsF() << sides16 << u"100%"_s << 358.0 << none;
    QTest::newRow("px capped by the margins")
        << phone << QMarginsF() << sides16 << u"500px"_s << 358.0 << none;
    QTest::newRow("px that fits") << phone << QMarginsF() << sides16 << u"200px"_s << 200.0 << none;
    QTest::newRow("percentages are of the safe width, not the window")
        << phone << QMarginsF(10, 0, 20, 0) << QList<double> { 0, 0, 30, 30 } << u"50%"_s << 180.0
        << none;
    QTest::newRow("30% of a safe height of 800 less margins 20")
        << phone << QMarginsF(0, 24, 0, 20) << QList<double> { 20, 20, 0, 0 } << u"10px,30%"_s
        << 10.0 << QVariant(240.0);
    QTest::newRow("height capped by the vertical margins")
        << phone << QMarginsF(0, 24, 0, 20) << QList<double> { 20, 20, 0, 0 } << u"10px,100%"_s
        << 10.0 << QVariant(760.0);
    QTest::newRow("margins exceeding the safe height give 0")
        << phone << QMarginsF(0, 24, 0, 20) << QList<double> { 400, 401, 0, 0 } << u"10px,30%"_s
        << 10.0 << QVariant(0.0);
    QTest::newRow("margins wider than the screen give 0")
        << phone << QMarginsF() << QList<double> { 0, 0, 300, 300 } << u"10px"_s << 0.0 << none;
    QTest::newRow("negative margins widen the space")
        << QRectF(0, 0, 100, 100) << QMarginsF() << QList<double> { 0, 0, -50, 0 } << u"120px"_s
        << 120.0 << none;
    QTest::newRow("insets larger than the window give 0")
        << QRectF(0, 0, 100, 100) << QMarginsF(60, 0, 60, 0) << QList<double> { 0, 0, 0, 0 }
        << u"50%"_s << 0.0 << none;
}

void tst_Layout::resolve()
{
    QFETCH(QRectF, bounds);
    QFETCH(QMarginsF, insets);
    QFETCH(QList<double>, margin);
    QFETCH(QString, size);
    QFETCH(double, width);
    QFETCH(QVariant, height);

    const ResolvedSize resolved = resolveSize(*::size(size), { bounds, insets }, ::margin(margin));
    QCOMPARE(resolved.width, width);
    QCOMPARE(resolved.height, optionalReal(height));
}

void tst_Layout::positionGrid()
{
    QSet<DisplayPosition> seen;
    for (const Row row : { Row::Top, Row::Center, Row::Bottom }) {
        for (const Column column : { Column::Left, Column::Center, Column::Right }) {
            const DisplayPosition position = positionAt(row, column);
            QCOMPARE(rowOf(position), row);
            QCOMPARE(columnOf(position), column);
            seen.insert(position);
        }
    }
    QCOMPARE(seen.size(), 9);
}

void tst_Layout::rootFrame_data()
{
    QTest::addColumn<DisplayPosition>("position");
    QTest::addColumn<bool>("hasSize");
    QTest::addColumn<QVariant>("topAnchor");
    QTest::addColumn<QVariant>("bottomAnchor");
    QTest::addColumn<qreal>("keyboardOffset");
    QTest::addColumn<QRectF>("frame");

    // Target 400 x 800, safe area from y 40 to 770 (centre 405), banners 100 tall.
    using P = DisplayPosition;
    QTest::newRow("top left: three quarters at the left")
        << P::TopLeft << false << none << none << 0.0 << QRectF(0, 40, 300, 100);
    QTest::newRow("top left sized: full width")
        << P::TopLeft << true << none << none << 0.0 << QRectF(0, 40, 400, 100);
    QTest::newRow("top: full width")
        << P::Top << false << none << none << 0.0 << QRectF(0, 40, 400, 100);
    QTest::newRow("top right: three quarters at the right")
        << P::TopRight << false << none << none << 0.0 << QRectF(100, 40, 300, 100);
    QTest::newRow("top right sized: full width")
        << P::TopRight << true << none << none << 0.0 << QRectF(0, 40, 400, 100);
    QTest::newRow("center left: centred on the safe area")
        << P::CenterLeft << false << none << none << 0.0 << QRectF(0, 355, 300, 100);
    QTest::newRow("center sized") << P::Center << true << none << none << 0.0
                                  << QRectF(0, 355, 400, 100);
    QTest::newRow("center right sized")
        << P::CenterRight << true << none << none << 0.0 << QRectF(0, 355, 400, 100);
    QTest::newRow("bottom left sized")
        << P::BottomLeft << true << none << none << 0.0 << QRectF(0, 670, 400, 100);
    QTest::newRow("bottom: on the safe bottom")
        << P::Bottom << false << none << none << 0.0 << QRectF(0, 670, 400, 100);
    QTest::newRow("bottom right") << P::BottomRight << false << none << none << 0.0
                                  << QRectF(100, 670, 300, 100);

    QTest::newRow("top anchor replaces the safe top")
        << P::Top << false << QVariant(120.0) << none << 0.0 << QRectF(0, 120, 400, 100);
    QTest::newRow("top anchor above the safe top still wins")
        << P::TopRight << false << QVariant(0.0) << none << 0.0 << QRectF(100, 0, 300, 100);
    QTest::newRow("bottom anchor replaces the safe bottom")
        << P::BottomLeft << false << none << QVariant(600.0) << 0.0 << QRectF(0, 500, 300, 100);
    QTest::newRow("top row ignores the bottom anchor")
        << P::Top << false << none << QVariant(600.0) << 0.0 << QRectF(0, 40, 400, 100);
    QTest::newRow("bottom row ignores the top anchor")
        << P::Bottom << false << QVariant(120.0) << none << 0.0 << QRectF(0, 670, 400, 100);
    QTest::newRow("centre row ignores both anchors")
        << P::Center << false << QVariant(120.0) << QVariant(600.0) << 0.0
        << QRectF(0, 355, 400, 100);

    QTest::newRow("keyboard lifts the bottom row")
        << P::Bottom << false << none << none << -266.0 << QRectF(0, 404, 400, 100);
    QTest::newRow("keyboard lifts from the bottom anchor")
        << P::BottomRight << true << none << QVariant(600.0) << -266.0 << QRectF(0, 234, 400, 100);
    QTest::newRow("keyboard never moves the top row")
        << P::TopLeft << false << none << none << -266.0 << QRectF(0, 40, 300, 100);
    QTest::newRow("keyboard never moves the centre row")
        << P::Center << false << none << none << -266.0 << QRectF(0, 355, 400, 100);
}

void tst_Layout::rootFrame()
{
    QFETCH(DisplayPosition, position);
    QFETCH(bool, hasSize);
    QFETCH(QVariant, topAnchor);
    QFETCH(QVariant, bottomAnchor);
    QFETCH(qreal, keyboardOffset);
    QFETCH(QRectF, frame);

    const BannerTarget target { QSizeF(400, 800), QMarginsF(10, 40, 20, 30),
                                optionalReal(topAnchor), optionalReal(bottomAnchor),
                                keyboardOffset };
    QCOMPARE(bannerRootFrame(target, position, hasSize, 100), frame);
}

void tst_Layout::bannerFrames_data()
{
    QTest::addColumn<DisplayPosition>("position");
    QTest::addColumn<QSizeF>("window");
    QTest::addColumn<QMarginsF>("insets"); // the window's
    QTest::addColumn<QRectF>("target"); // in the window
    QTest::addColumn<QList<double>>("margin"); // top, bottom, left, right
    QTest::addColumn<QString>("size");
    QTest::addColumn<qreal>("contentHeight");
    QTest::addColumn<QRectF>("root");
    QTest::addColumn<QRectF>("card");

    using P = DisplayPosition;
    // Portrait: safe area y 47 to 810, full width. Landscape: notch on the left only.
    const QSizeF portrait(390, 844);
    const QMarginsF portraitInsets(0, 47, 0, 34);
    const QRectF fullPortrait(QPointF(), portrait);
    const QSizeF landscape(844, 390);
    const QMarginsF landscapeInsets(47, 0, 0, 21);
    const QRectF fullLandscape(QPointF(), landscape);
    const QList<double> asymmetric { 10, 6, 30, 10 };

    QTest::newRow("no size: the root less the margins, as tall as the content")
        << P::TopLeft << portrait << portraitInsets << fullPortrait
        << QList<double> { 8, 8, 16, 24 } << QString() << 120.0 << QRectF(0, 47, 292.5, 136)
        << QRectF(16, 8, 252.5, 120);
    QTest::newRow("no size, bottom: root rests on the safe bottom")
        << P::Bottom << portrait << portraitInsets << fullPortrait
        << QList<double> { 8, 12, 16, 24 } << QString() << 100.0 << QRectF(0, 690, 390, 120)
        << QRectF(16, 8, 350, 100);
    QTest::newRow("no size, margins wider than the root")
        << P::TopRight << portrait << portraitInsets << fullPortrait
        << QList<double> { 0, 0, 200, 200 } << QString() << 50.0 << QRectF(97.5, 47, 292.5, 50)
        << QRectF(200, 0, 0, 50);

    QTest::newRow("top, 50%: centred, side margins ignored")
        << P::Top << portrait << portraitInsets << fullPortrait << asymmetric << u"50%"_s << 120.0
        << QRectF(0, 47, 390, 136) << QRectF(97.5, 10, 195, 120);
    QTest::newRow("top left, 50%: left margin only")
        << P::TopLeft << portrait << portraitInsets << fullPortrait << asymmetric << u"50%"_s
        << 120.0 << QRectF(0, 47, 390, 136) << QRectF(30, 10, 195, 120);
    QTest::newRow("top right, 50%: right margin only")
        << P::TopRight << portrait << portraitInsets << fullPortrait << asymmetric << u"50%"_s
        << 120.0 << QRectF(0, 47, 390, 136) << QRectF(185, 10, 195, 120);
    QTest::newRow("center, 500px: capped by the margins, centred on the safe area")
        << P::Center << portrait << portraitInsets << fullPortrait << QList<double> { 0, 0, 16, 16 }
        << u"500px"_s << 80.0 << QRectF(0, 388.5, 390, 80) << QRectF(16, 0, 358, 80);

    QTest::newRow("bottom, 30% tall: the resolved height, not the content's")
        << P::Bottom << portrait << QMarginsF(0, 24, 0, 20) << fullPortrait
        << QList<double> { 20, 20, 16, 16 } << u"100%,30%"_s << 500.0 << QRectF(0, 544, 390, 280)
        << QRectF(16, 20, 358, 240);
    QTest::newRow("margins exceeding the safe height: no card height")
        << P::Top << portrait << portraitInsets << fullPortrait << QList<double> { 500, 400, 0, 0 }
        << u"100px,100px"_s << 80.0 << QRectF(0, 47, 390, 900) << QRectF(145, 500, 100, 0);

    QTest::newRow("landscape top, 50%: centred on the safe area, not the window")
        << P::Top << landscape << landscapeInsets << fullLandscape << asymmetric << u"50%"_s << 60.0
        << QRectF(0, 0, 844, 76) << QRectF(246.25, 10, 398.5, 60);
    QTest::newRow("landscape center left, 50%: after the notch")
        << P::CenterLeft << landscape << landscapeInsets << fullLandscape << asymmetric << u"50%"_s
        << 60.0 << QRectF(0, 146.5, 844, 76) << QRectF(77, 10, 398.5, 60);
    QTest::newRow("landscape bottom right, 50%")
        << P::BottomRight << landscape << landscapeInsets << fullLandscape << asymmetric << u"50%"_s
        << 60.0 << QRectF(0, 293, 844, 76) << QRectF(435.5, 10, 398.5, 60);

    QTest::newRow("target inside the window: sizes still of the window, notch overlap only")
        << P::TopLeft << landscape << landscapeInsets << QRectF(20, 0, 400, 300) << asymmetric
        << u"50%"_s << 60.0 << QRectF(0, 0, 400, 76) << QRectF(57, 10, 398.5, 60);
    QTest::newRow("target clear of the insets: bottom of the target itself")
        << P::Bottom << portrait << portraitInsets << QRectF(0, 100, 390, 600)
        << QList<double> { 0, 0, 0, 0 } << QString() << 100.0 << QRectF(0, 500, 390, 100)
        << QRectF(0, 0, 390, 100);
}

void tst_Layout::bannerFrames()
{
    QFETCH(DisplayPosition, position);
    QFETCH(QSizeF, window);
    QFETCH(QMarginsF, insets);
    QFETCH(QRectF, target);
    QFETCH(QList<double>, margin);
    QFETCH(QString, size);
    QFETCH(qreal, contentHeight);
    QFETCH(QRectF, root);
    QFETCH(QRectF, card);

    PopupBannerAction action;
    action.position = position;
    action.margin = ::margin(margin);
    action.size = ::size(size);
    BannerTarget bannerTarget;
    bannerTarget.size = target.size();
    bannerTarget.safeAreaInsets = safeAreaInsetsWithin(target, window, insets);

    const BannerLayout layout(bannerTarget, action, { QRectF(QPointF(), window), insets });
    QCOMPARE(layout.cardWidth(), card.width());
    const BannerFrames frames = layout.frames(contentHeight);
    QCOMPARE(frames.root, root);
    QCOMPARE(frames.card, card);
}

void tst_Layout::keyboard_data()
{
    QTest::addColumn<Row>("row");
    QTest::addColumn<QVariant>("keyboardHeight");
    QTest::addColumn<qreal>("offset");

    // The bottom safe inset is 34 throughout.
    QTest::newRow("bottom row rises by the keyboard above the inset")
        << Row::Bottom << QVariant(300.0) << -266.0;
    QTest::newRow("a keyboard lower than the inset moves it down")
        << Row::Bottom << QVariant(20.0) << 14.0;
    QTest::newRow("hidden keyboard") << Row::Bottom << none << 0.0;
    QTest::newRow("top row stays") << Row::Top << QVariant(300.0) << 0.0;
    QTest::newRow("centre row stays") << Row::Center << QVariant(300.0) << 0.0;
}

void tst_Layout::keyboard()
{
    QFETCH(Row, row);
    QFETCH(QVariant, keyboardHeight);
    QFETCH(qreal, offset);
    QCOMPARE(keyboardOffset(row, optionalReal(keyboardHeight), 34), offset);
}

void tst_Layout::imageRatio_data()
{
    QTest::addColumn<bool>("modal");
    QTest::addColumn<QSizeF>("imageSize");
    QTest::addColumn<QVariant>("current");
    QTest::addColumn<qreal>("ratio");

    QTest::newRow("banner 1000 x 200") << false << QSizeF(1000, 200) << none << 0.2;
    QTest::newRow("banner 100 x 100: capped") << false << QSizeF(100, 100) << none << 0.5;
    QTest::newRow("banner 400 x 0: no lower bound") << false << QSizeF(400, 0) << none << 0.0;
    QTest::newRow("banner unknown: 4:1 strip") << false << QSizeF(0, 0) << none << 0.25;
    QTest::newRow("banner without width keeps the rule")
        << false << QSizeF(0, 80) << QVariant(0.2) << 0.2;
    QTest::newRow("modal 300 x 900: capped") << true << QSizeF(300, 900) << none << 2.0;
    QTest::newRow("modal 1000 x 800") << true << QSizeF(1000, 800) << none << 0.8;
    QTest::newRow("modal unknown: 16:9") << true << QSizeF(0, 0) << none << 0.5625;
    QTest::newRow("modal negative width keeps the rule")
        << true << QSizeF(-10, 80) << QVariant(1.5) << 1.5;
}

void tst_Layout::imageRatio()
{
    QFETCH(bool, modal);
    QFETCH(QSizeF, imageSize);
    QFETCH(QVariant, current);
    QFETCH(qreal, ratio);

    if (modal) {
        QCOMPARE(current.isValid() ? modalImageRatio(imageSize, current.toReal())
                                   : modalImageRatio(imageSize),
                 ratio);
    } else {
        QCOMPARE(current.isValid() ? bannerImageRatio(imageSize, current.toReal())
                                   : bannerImageRatio(imageSize),
                 ratio);
    }
}

void tst_Layout::modalCard_data()
{
    QTest::addColumn<QSizeF>("root");
    QTest::addColumn<qreal>("contentHeight");
    QTest::addColumn<QRectF>("card");

    QTest::newRow("phone: 85% wide, centred")
        << QSizeF(360, 640) << 200.0 << QRectF(27, 220, 306, 200);
    QTest::newRow("wide window: 400 wide")
        << QSizeF(1280, 800) << 300.0 << QRectF(440, 250, 400, 300);
    QTest::newRow("content taller than the window: capped 30 from each edge")
        << QSizeF(360, 640) << 1000.0 << QRectF(27, 30, 306, 580);
    QTest::newRow("window shorter than the gaps")
        << QSizeF(360, 50) << 100.0 << QRectF(27, 25, 306, 0);
}

void tst_Layout::modalCard()
{
    QFETCH(QSizeF, root);
    QFETCH(qreal, contentHeight);
    QFETCH(QRectF, card);
    QCOMPARE(modalCardWidth(root.width()), card.width());
    QCOMPARE(modalCardFrame(root, contentHeight), card);
}

void tst_Layout::modalImageHeight_data()
{
    QTest::addColumn<qreal>("ratio");
    QTest::addColumn<qreal>("rootHeight");
    QTest::addColumn<qreal>("height");

    // The card, and so the image, is 306 wide.
    QTest::newRow("16:9") << 0.5625 << 640.0 << 172.125;
    QTest::newRow("tall picture: half the window") << 2.0 << 640.0 << 320.0;
    QTest::newRow("tall picture in a tall window") << 2.0 << 2000.0 << 612.0;
}

void tst_Layout::modalImageHeight()
{
    QFETCH(qreal, ratio);
    QFETCH(qreal, rootHeight);
    QFETCH(qreal, height);
    QCOMPARE(layout::modalImageHeight(306, ratio, rootHeight), height);
}

void tst_Layout::snapshotCandidates()
{
    const SafeAreaProvider previous
        = setSafeAreaProvider([](const QWindow *) { return QMarginsF(1, 2, 3, 4); });
    const auto restore = qScopeGuard([&] { setSafeAreaProvider(previous); });

    const ScreenSnapshot nothing = screenSnapshot(nullptr, nullptr);
    QCOMPARE(nothing.bounds, QRectF(0, 0, 390, 844));
    QCOMPARE(nothing.safeAreaInsets, QMarginsF());

    QScreen *screen = QGuiApplication::primaryScreen();
    QVERIFY(screen);
    const ScreenSnapshot screenOnly = screenSnapshot(nullptr, screen);
    QCOMPARE(screenOnly.bounds, QRectF(QPointF(), screen->geometry().size()));
    QCOMPARE(screenOnly.safeAreaInsets, QMarginsF()); // the provider speaks for windows only
}

void tst_Layout::snapshotFollowsTheForegroundWindow()
{
    const SafeAreaProvider previous = setSafeAreaProvider([](const QWindow *window) {
        return window->objectName() == u"a"_s ? QMarginsF(0, 47, 0, 34) : QMarginsF(10, 0, 10, 0);
    });
    const auto restore = qScopeGuard([&] { setSafeAreaProvider(previous); });
    const QRectF screen(QPointF(), QGuiApplication::primaryScreen()->geometry().size());

    QCOMPARE(currentScreenSnapshot().bounds, screen);

    QWindow a;
    a.setObjectName(u"a"_s);
    a.resize(300, 500);
    a.show();
    a.requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(&a));
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 300, 500));
    QCOMPARE(currentScreenSnapshot().safeAreaInsets, QMarginsF(0, 47, 0, 34));

    QWindow b;
    b.setObjectName(u"b"_s);
    b.resize(200, 400);
    b.show();
    b.requestActivate();
    QVERIFY(QTest::qWaitForWindowActive(&b));
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 200, 400));

    // A focused child window stands for its top-level, size and insets alike.
    QWindow child(&b);
    child.setObjectName(u"child"_s);
    child.resize(50, 50);
    child.show();
    child.requestActivate();
    QTRY_COMPARE(QGuiApplication::focusWindow(), &child);
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 200, 400));
    QCOMPARE(currentScreenSnapshot().safeAreaInsets, QMarginsF(10, 0, 10, 0));

    b.hide();
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 300, 500));

    a.hide();
    QCOMPARE(currentScreenSnapshot().bounds, screen);
}

QTEST_MAIN(tst_Layout)
#include "tst_layout.moc"
