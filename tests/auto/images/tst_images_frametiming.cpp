#include "animatedimagesource.h"
#include "animationclock.h"
#include "frameselection.h"

#include <QTest>

#include <cmath>
#include <limits>

using namespace velmora;
using namespace std::chrono_literals;

class tst_FrameTiming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frameSelection_data();
    void frameSelection();
    void sourceUsesItsOwnDelays();
    void clockReportsOnlyChanges();
    void clockRestartsFromFirstFrame();
};

void tst_FrameTiming::frameSelection_data()
{
    QTest::addColumn<QList<double>>("delays");
    QTest::addColumn<double>("total");
    QTest::addColumn<double>("elapsed");
    QTest::addColumn<qsizetype>("expected");

    const QList<double> loop { 0.1, 0.5, 0.1 };
    QTest::newRow("first slot") << loop << 0.7 << 0.05 << qsizetype(0);
    QTest::newRow("second slot") << loop << 0.7 << 0.3 << qsizetype(1);
    QTest::newRow("third slot") << loop << 0.7 << 0.65 << qsizetype(2);
    QTest::newRow("second lap") << loop << 0.7 << 0.75 << qsizetype(0);
    QTest::newRow("many laps") << loop << 0.7 << 700.3 << qsizetype(1);
    QTest::newRow("slot boundary belongs to the next frame") << loop << 0.7 << 0.1 << qsizetype(1);
    QTest::newRow("start") << loop << 0.7 << 0.0 << qsizetype(0);
    QTest::newRow("negative elapsed") << loop << 0.7 << -0.3 << qsizetype(0);
    QTest::newRow("nan elapsed") << loop << 0.7 << std::nan("") << qsizetype(0);
    QTest::newRow("infinite elapsed")
        << loop << 0.7 << std::numeric_limits<double>::infinity() << qsizetype(0);
    QTest::newRow("zero total") << QList<double> { 0.0, 0.0 } << 0.0 << 0.5 << qsizetype(0);
    QTest::newRow("no frames") << QList<double>() << 0.0 << 1.0 << qsizetype(0);
    // Ten slots of 0.1 do not add up to exactly 1.0 in binary, so the running sum stays just
    // below an elapsed time the modulo leaves just below the total.
    QTest::newRow("rounding ends on the last frame")
        << QList<double>(10, 0.1) << 1.0 << std::nextafter(1.0, 0.0) << qsizetype(9);
}

void tst_FrameTiming::frameSelection()
{
    QFETCH(QList<double>, delays);
    QFETCH(double, total);
    QFETCH(double, elapsed);
    QFETCH(qsizetype, expected);
    QCOMPARE(frameIndexForElapsed(delays, total, elapsed), expected);
}

void tst_FrameTiming::sourceUsesItsOwnDelays()
{
    QImage frame(2, 2, QImage::Format_ARGB32_Premultiplied);
    const AnimatedImageSource source({ frame, frame, frame }, { 0.2, 0.3, 0.5 }, QSize(2, 2));
    QCOMPARE(source.totalDuration(), 1.0);
    QCOMPARE(source.frameIndexAt(0.25), 1);
    QCOMPARE(source.frameIndexAt(1.6), 2);

    const AnimatedImageSource empty;
    QCOMPARE(empty.frameIndexAt(3.0), 0);
}

// What a display refresh does with the clock: the frame to swap in, or -1 for nothing to do.
qsizetype refresh(AnimationClock &clock)
{
    static const QList<double> delays { 0.1, 0.5, 0.1 };
    return clock.advance(delays, 0.7).value_or(-1);
}

void tst_FrameTiming::clockReportsOnlyChanges()
{
    std::chrono::nanoseconds now = 5s;
    AnimationClock clock([&] { return now; });

    QCOMPARE(refresh(clock), -1); // stopped
    clock.start();
    QCOMPARE(refresh(clock), 0);
    now += 50ms;
    QCOMPARE(refresh(clock), -1); // still frame 0: nothing to swap
    now += 100ms;
    QCOMPARE(refresh(clock), 1);
    QCOMPARE(clock.lastFrameIndex(), 1);
    now += 200ms;
    QCOMPARE(refresh(clock), -1);
    now += 300ms;
    QCOMPARE(refresh(clock), 2);
    now += 100ms;
    QCOMPARE(refresh(clock), 0);
    QCOMPARE(clock.elapsed(), 0.75);
}

void tst_FrameTiming::clockRestartsFromFirstFrame()
{
    std::chrono::nanoseconds now = 0s;
    AnimationClock clock([&] { return now; });

    clock.start();
    now += 300ms;
    QCOMPARE(refresh(clock), 1);
    now += 100ms;
    clock.start(); // already running: keeps its time
    QCOMPARE(clock.elapsed(), 0.4);

    clock.stop();
    QVERIFY(!clock.isRunning());
    QCOMPARE(clock.elapsed(), 0.0);
    QCOMPARE(clock.lastFrameIndex(), -1);
    now += 1s;
    QCOMPARE(refresh(clock), -1);

    // Back in a window: timing starts over, and frame 0 is reported even though the view
    // showed it last time.
    clock.start();
    now += 50ms;
    QCOMPARE(refresh(clock), 0);
    now += 100ms;
    QCOMPARE(refresh(clock), 1);
    clock.restart();
    QCOMPARE(refresh(clock), 0);
}

QTEST_GUILESS_MAIN(tst_FrameTiming)
#include "tst_images_frametiming.moc"
