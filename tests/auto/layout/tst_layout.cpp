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
using P = DisplayPosition;

namespace {
const QVariant none;

std::optional<qreal> optionalReal(const QVariant &value)
{
    return value.isValid() ? std::optional(value.toReal()) : std::nullopt;
}

// "" for no size, else "50%" or "500px", with a height after a comma: "50%,30%".
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
} // namespace

class tst_Layout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lengthBounds();
    void resolve_data();
    void resolve();
    void rootFrame_data();
    void rootFrame();
    void bannerFrames_data();
    void bannerFrames();
    void keyboard();
    void imageRatios();
    void modalCard();
    void snapshotCandidates();
    void snapshotFollowsTheForegroundWindow();
};

void tst_Layout::lengthBounds()
{
    using U = ContentsLength::Unit;
    QCOMPARE(ContentsLength::boundsError(999, U::Px), std::nullopt);
    QCOMPARE(ContentsLength::boundsError(1000, U::Px),
             u"px length must be between 1 and 999, got 1000"_s);
    QCOMPARE(ContentsLength::boundsError(0, U::Percentage),
             u"percentage length must be between 1 and 100, got 0"_s);
    QCOMPARE(ContentsLength::boundsError(10000000000, U::Percentage),
             u"percentage length must be between 1 and 100, got 10000000000"_s);
}

void tst_Layout::resolve_data()
{
    QTest::addColumn<QMarginsF>("insets"); // of a 390 x 844 window
    QTest::addColumn<Margin>("margin");
    QTest::addColumn<QString>("size");
    QTest::addColumn<qreal>("width");
    QTest::addColumn<QVariant>("height");
    const auto row = [](const char *name, QMarginsF insets, Margin margin, const QString &size,
                        qreal width, QVariant height = {}) {
        QTest::newRow(name) << insets << margin << size << width << height;
    };
    const Margin sides16 { 0, 0, 16, 16 };
    const QMarginsF safeHeight800(0, 24, 0, 20);

    row("50% of the safe width", {}, sides16, u"50%"_s, 195);
    row("100%: the space between the margins", {}, sides16, u"100%"_s, 358);
    row("px capped by the margins", {}, sides16, u"500px"_s, 358);
    row("% of the safe width, not the window", { 10, 0, 20, 0 }, { 0, 0, 30, 30 }, u"50%"_s, 180);
    row("30% of a safe height of 800 less margins 20", safeHeight800, { 20, 20, 0, 0 },
        u"10px,30%"_s, 10, 240.0);
    row("margins exceeding the safe height give 0", safeHeight800, { 400, 401, 0, 0 },
        u"10px,30%"_s, 10, 0.0);
}

void tst_Layout::resolve()
{
    QFETCH(QMarginsF, insets);
    QFETCH(Margin, margin);
    QFETCH(QString, size);
    QFETCH(qreal, width);
    QFETCH(QVariant, height);

    const ResolvedSize resolved
        = resolveSize(*::size(size), { { 0, 0, 390, 844 }, insets }, margin);
    QCOMPARE(resolved.width, width);
    QCOMPARE(resolved.height, optionalReal(height));
}

void tst_Layout::rootFrame_data()
{
    QTest::addColumn<P>("position");
    QTest::addColumn<bool>("hasSize");
    QTest::addColumn<QVariant>("topAnchor");
    QTest::addColumn<QVariant>("bottomAnchor");
    QTest::addColumn<qreal>("keyboardOffset");
    QTest::addColumn<QRectF>("frame");
    const auto row = [](const char *name, P position, bool hasSize, QRectF frame, QVariant top = {},
                        QVariant bottom = {}, qreal keyboard = 0) {
        QTest::newRow(name) << position << hasSize << top << bottom << keyboard << frame;
    };

    // A 400 x 800 target, safe from y 40 to 770 (centre 405); banners 100 tall.
    row("top left: three quarters at the left", P::TopLeft, false, { 0, 40, 300, 100 });
    row("top right: three quarters at the right", P::TopRight, false, { 100, 40, 300, 100 });
    row("center left: on the safe centre", P::CenterLeft, false, { 0, 355, 300, 100 });
    row("bottom right: on the safe bottom", P::BottomRight, false, { 100, 670, 300, 100 });

    row("top anchor", P::Top, false, { 0, 120, 400, 100 }, 120.0);
    // A sized banner spans the width whatever its column.
    row("bottom anchor", P::BottomLeft, true, { 0, 500, 400, 100 }, none, 600.0);
    row("top row ignores the bottom anchor", P::Top, false, { 0, 40, 400, 100 }, none, 600.0);
    row("bottom row ignores the top anchor", P::Bottom, false, { 0, 670, 400, 100 }, 120.0);
    row("centre row ignores anchors", P::CenterRight, true, { 0, 355, 400, 100 }, 120.0, 600.0);

    row("keyboard lifts the bottom row", P::Bottom, false, { 0, 404, 400, 100 }, none, none, -266);
    row("keyboard lifts from the anchor", P::Bottom, true, { 0, 234, 400, 100 }, none, 600.0, -266);
    row("keyboard leaves the top row", P::TopLeft, false, { 0, 40, 300, 100 }, none, none, -266);
}

void tst_Layout::rootFrame()
{
    QFETCH(P, position);
    QFETCH(bool, hasSize);
    QFETCH(QVariant, topAnchor);
    QFETCH(QVariant, bottomAnchor);
    QFETCH(qreal, keyboardOffset);
    QFETCH(QRectF, frame);

    const BannerTarget target { { 400, 800 },
                                { 10, 40, 20, 30 },
                                optionalReal(topAnchor),
                                optionalReal(bottomAnchor),
                                keyboardOffset };
    QCOMPARE(bannerRootFrame(target, position, hasSize, 100), frame);
}

void tst_Layout::bannerFrames_data()
{
    QTest::addColumn<P>("position");
    QTest::addColumn<QSizeF>("window");
    QTest::addColumn<QMarginsF>("insets"); // the window's
    QTest::addColumn<QRectF>("target"); // in the window
    QTest::addColumn<Margin>("margin");
    QTest::addColumn<QString>("size");
    QTest::addColumn<qreal>("contentHeight");
    QTest::addColumn<QRectF>("root");
    QTest::addColumn<QRectF>("card");

    // Portrait: safe from y 47 to 810. Landscape: a notch on the left only.
    const QSizeF portrait(390, 844), landscape(844, 390);
    const QMarginsF portraitInsets(0, 47, 0, 34), landscapeInsets(47, 0, 0, 21);
    const auto row = [&](const char *name, P position, bool isPortrait, Margin margin,
                         const QString &size, qreal content, QRectF root, QRectF card,
                         std::optional<QRectF> target = {}, std::optional<QMarginsF> insets = {}) {
        const QSizeF window = isPortrait ? portrait : landscape;
        QTest::newRow(name) << position << window
                            << insets.value_or(isPortrait ? portraitInsets : landscapeInsets)
                            << target.value_or(QRectF(QPointF(), window)) << margin << size
                            << content << root << card;
    };
    const Margin asymmetric { 10, 6, 30, 10 };

    row("no size: the root less the margins", P::TopLeft, true, { 8, 8, 16, 24 }, {}, 120,
        { 0, 47, 292.5, 136 }, { 16, 8, 252.5, 120 });
    row("no size, bottom: on the safe bottom", P::Bottom, true, { 8, 12, 16, 24 }, {}, 100,
        { 0, 690, 390, 120 }, { 16, 8, 350, 100 });
    row("no size, margins wider than the root", P::TopRight, true, { 0, 0, 200, 200 }, {}, 50,
        { 97.5, 47, 292.5, 50 }, { 200, 0, 0, 50 });
    row("top 50%: centred, side margins ignored", P::Top, true, asymmetric, u"50%"_s, 120,
        { 0, 47, 390, 136 }, { 97.5, 10, 195, 120 });
    row("top right 50%: right margin only", P::TopRight, true, asymmetric, u"50%"_s, 120,
        { 0, 47, 390, 136 }, { 185, 10, 195, 120 });
    row("bottom 30% tall: not the content's height", P::Bottom, true, { 20, 20, 16, 16 },
        u"100%,30%"_s, 500, { 0, 544, 390, 280 }, { 16, 20, 358, 240 }, std::nullopt,
        QMarginsF(0, 24, 0, 20));
    row("landscape top 50%: on the safe centre", P::Top, false, asymmetric, u"50%"_s, 60,
        { 0, 0, 844, 76 }, { 246.25, 10, 398.5, 60 });
    row("target inside the window: sized by the window", P::TopLeft, false, asymmetric, u"50%"_s,
        60, { 0, 0, 400, 76 }, { 57, 10, 398.5, 60 }, QRectF(20, 0, 400, 300));
    row("target clear of the insets", P::Bottom, true, {}, {}, 100, { 0, 500, 390, 100 },
        { 0, 0, 390, 100 }, QRectF(0, 100, 390, 600));
}

void tst_Layout::bannerFrames()
{
    QFETCH(P, position);
    QFETCH(QSizeF, window);
    QFETCH(QMarginsF, insets);
    QFETCH(QRectF, target);
    QFETCH(Margin, margin);
    QFETCH(QString, size);
    QFETCH(qreal, contentHeight);
    QFETCH(QRectF, root);
    QFETCH(QRectF, card);

    PopupBannerAction action;
    action.position = position;
    action.margin = margin;
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

void tst_Layout::keyboard()
{
    // With a bottom safe inset of 34.
    QCOMPARE(keyboardOffset(Row::Bottom, 300, 34), -266);
    QCOMPARE(keyboardOffset(Row::Bottom, 20, 34), 14); // lower than the inset: moves down
    QCOMPARE(keyboardOffset(Row::Bottom, std::nullopt, 34), 0);
    QCOMPARE(keyboardOffset(Row::Top, 300, 34), 0);
    QCOMPARE(keyboardOffset(Row::Center, 300, 34), 0);
}

void tst_Layout::imageRatios()
{
    QCOMPARE(bannerImageRatio({ 1000, 200 }), 0.2);
    QCOMPARE(bannerImageRatio({ 100, 100 }), 0.5);
    QCOMPARE(bannerImageRatio({ 400, 0 }), 0.0);
    QCOMPARE(bannerImageRatio({ 0, 0 }), 0.25);
    QCOMPARE(bannerImageRatio({ 0, 80 }, 0.2), 0.2);
    QCOMPARE(modalImageRatio({ 300, 900 }), 2.0);
    QCOMPARE(modalImageRatio({ 1000, 800 }), 0.8);
    QCOMPARE(modalImageRatio({ 0, 0 }), 0.5625);
    QCOMPARE(modalImageRatio({ -10, 80 }, 1.5), 1.5);
}

void tst_Layout::modalCard()
{
    QCOMPARE(modalCardFrame({ 360, 640 }, 200), QRectF(27, 220, 306, 200));
    QCOMPARE(modalCardFrame({ 1280, 800 }, 300), QRectF(440, 250, 400, 300));
    QCOMPARE(modalCardFrame({ 360, 640 }, 1000), QRectF(27, 30, 306, 580));
    QCOMPARE(modalCardFrame({ 360, 50 }, 100), QRectF(27, 25, 306, 0));

    QCOMPARE(modalImageHeight(306, 0.5625, 640), 172.125);
    QCOMPARE(modalImageHeight(306, 2.0, 640), 320);
    QCOMPARE(modalImageHeight(306, 2.0, 2000), 612);
}

void tst_Layout::snapshotCandidates()
{
    const SafeAreaProvider previous
        = setSafeAreaProvider([](const QWindow *) { return QMarginsF(1, 2, 3, 4); });
    const auto restore = qScopeGuard([&] { setSafeAreaProvider(previous); });

    const ScreenSnapshot nothing = screenSnapshot(nullptr, nullptr);
    QCOMPARE(nothing.bounds, QRectF(0, 0, 390, 844));
    QCOMPARE(nothing.safeAreaInsets, QMarginsF());

    const QScreen *screen = QGuiApplication::primaryScreen();
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

    QWindow a, b;
    QWindow child(&b);
    const auto show = [](QWindow &window, const QString &name, QSize size) {
        window.setObjectName(name);
        window.resize(size);
        window.show();
        window.requestActivate();
        QTRY_COMPARE(QGuiApplication::focusWindow(), &window);
    };
    show(a, u"a"_s, { 300, 500 });
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 300, 500));
    QCOMPARE(currentScreenSnapshot().safeAreaInsets, QMarginsF(0, 47, 0, 34));

    show(b, u"b"_s, { 200, 400 });
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 200, 400));

    // A focused child window stands for its top-level, size and insets alike.
    show(child, u"child"_s, { 50, 50 });
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 200, 400));
    QCOMPARE(currentScreenSnapshot().safeAreaInsets, QMarginsF(10, 0, 10, 0));

    b.hide();
    QCOMPARE(currentScreenSnapshot().bounds, QRectF(0, 0, 300, 500));
    a.hide();
    QCOMPARE(currentScreenSnapshot().bounds, screen);
}

QTEST_MAIN(tst_Layout)
#include "tst_layout.moc"
