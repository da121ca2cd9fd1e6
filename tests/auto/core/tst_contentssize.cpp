#include <VelmoraInAppMessaging/contentssize.h>

#include <QTest>

using namespace Qt::StringLiterals;
using namespace velmora;

class tst_ContentsSize : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bounds_data();
    void bounds();
    void resolve_data();
    void resolve();
};

void tst_ContentsSize::bounds_data()
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

void tst_ContentsSize::bounds()
{
    QFETCH(qint64, length);
    QFETCH(bool, percentage);
    QFETCH(QString, error);
    const auto unit = percentage ? ContentsLength::Unit::Percentage : ContentsLength::Unit::Px;
    QCOMPARE(ContentsLength::boundsError(length, unit).value_or(QString()), error);
}

void tst_ContentsSize::resolve_data()
{
    QTest::addColumn<QRectF>("bounds");
    QTest::addColumn<QMarginsF>("insets");
    QTest::addColumn<QList<double>>("margin"); // top, bottom, left, right
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("widthPercent");
    QTest::addColumn<int>("height"); // 0: none
    QTest::addColumn<bool>("heightPercent");
    QTest::addColumn<double>("expectedWidth");
    QTest::addColumn<double>("expectedHeight"); // -1: none

    const QRectF phone(0, 0, 390, 844);
    const QList<double> none { 0, 0, 0, 0 };
    QTest::newRow("px fits") << phone << QMarginsF() << none << 200 << false << 0 << false << 200.0
                             << -1.0;
    QTest::newRow("px clamped by margins") << phone << QMarginsF() << QList<double> { 0, 0, 20, 20 }
                                           << 999 << false << 0 << false << 350.0 << -1.0;
    QTest::newRow("100% with margins is the space between them")
        << phone << QMarginsF() << QList<double> { 0, 0, 16, 24 } << 100 << true << 0 << false
        << 350.0 << -1.0;
    QTest::newRow("50% of the safe width, not of the space between margins")
        << phone << QMarginsF(10, 0, 20, 0) << QList<double> { 0, 0, 30, 30 } << 50 << true << 0
        << false << 180.0 << -1.0;
    QTest::newRow("height percent of safe height")
        << phone << QMarginsF(0, 47, 0, 34) << none << 10 << false << 10 << true << 10.0 << 76.3;
    QTest::newRow("height clamped by vertical margins")
        << phone << QMarginsF(0, 47, 0, 34) << QList<double> { 400, 400, 0, 0 } << 10 << false
        << 999 << false << 10.0 << 0.0;
    QTest::newRow("margins wider than the screen floor at zero")
        << phone << QMarginsF() << QList<double> { 0, 0, 300, 300 } << 10 << false << 0 << false
        << 0.0 << -1.0;
    QTest::newRow("negative margins widen the space")
        << QRectF(0, 0, 100, 100) << QMarginsF() << QList<double> { 0, 0, -50, 0 } << 120 << false
        << 0 << false << 120.0 << -1.0;
}

void tst_ContentsSize::resolve()
{
    QFETCH(QRectF, bounds);
    QFETCH(QMarginsF, insets);
    QFETCH(QList<double>, margin);
    QFETCH(int, width);
    QFETCH(bool, widthPercent);
    QFETCH(int, height);
    QFETCH(bool, heightPercent);
    QFETCH(double, expectedWidth);
    QFETCH(double, expectedHeight);

    const auto unit = [](bool percent) {
        return percent ? ContentsLength::Unit::Percentage : ContentsLength::Unit::Px;
    };
    ContentsSize size { { width, unit(widthPercent) }, std::nullopt };
    if (height)
        size.height = ContentsLength { height, unit(heightPercent) };
    const auto resolved
        = size.resolve({ bounds, insets }, Margin { margin[0], margin[1], margin[2], margin[3] });
    QCOMPARE(resolved.width, expectedWidth);
    if (expectedHeight < 0) {
        QVERIFY(!resolved.height);
    } else {
        QVERIFY(resolved.height);
        QVERIFY2(qFuzzyCompare(1 + *resolved.height, 1 + expectedHeight),
                 qPrintable(QString::number(*resolved.height)));
    }
}

QTEST_GUILESS_MAIN(tst_ContentsSize)
#include "tst_contentssize.moc"
