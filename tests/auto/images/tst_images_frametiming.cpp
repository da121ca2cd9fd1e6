#include "images/animationclock.h"
#include "images/frameselection.h"

#include <QTest>

#include <cmath>

using namespace velmora;
using namespace std::chrono_literals;

class tst_FrameTiming : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frameSelection_data();
    void frameSelection();
    void clock();
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
    QTest::newRow("many laps") << loop << 0.7 << 700.3 << qsizetype(1);
    QTest::newRow("slot boundary belongs to the next frame") << loop << 0.7 << 0.1 << qsizetype(1);
    QTest::newRow("negative elapsed") << loop << 0.7 << -0.3 << qsizetype(0);
    QTest::newRow("nan elapsed") << loop << 0.7 << std::nan("") << qsizetype(0);
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

void tst_FrameTiming::clock()
{
    std::chrono::nanoseconds now = 5s;
    AnimationClock clock([&] { return now; });
    // What a display refresh does with the clock: the frame to swap in, or -1 for none.
    const auto refresh = [&] { return clock.advance({ 0.1, 0.5, 0.1 }, 0.7).value_or(-1); };

    QCOMPARE(refresh(), -1); // stopped
    clock.start();
    QCOMPARE(refresh(), 0);
    now += 50ms;
    QCOMPARE(refresh(), -1); // still frame 0: nothing to swap
    now += 100ms;
    QCOMPARE(refresh(), 1);
    now += 200ms;
    clock.start(); // already running: keeps its time
    QCOMPARE(refresh(), -1);
    now += 300ms;
    QCOMPARE(refresh(), 2);
    now += 100ms;
    QCOMPARE(refresh(), 0);
    QCOMPARE(clock.elapsed(), 0.75);

    clock.stop();
    QCOMPARE(clock.elapsed(), 0.0);
    now += 1s;
    QCOMPARE(refresh(), -1);
    // Back in a window: timing starts over, and frame 0 is reported although it was on show
    // when the clock stopped.
    clock.start();
    now += 50ms;
    QCOMPARE(refresh(), 0);
    now += 100ms;
    QCOMPARE(refresh(), 1);
    clock.restart();
    QCOMPARE(refresh(), 0);
}

QTEST_GUILESS_MAIN(tst_FrameTiming)
#include "tst_images_frametiming.moc"
