#include "presentation/colors.h"

#include <QTest>

using namespace velmora;
using namespace Qt::StringLiterals;

class ColorsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hexColor_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("rgb"); // empty: rejected
        // Signed 64-bit hex; only bits 0-23 count, so "F00" is green and "FF0000FF" blue.
        const std::pair<QString, QString> accepted[]
            = { { u"1D26aB"_s, u"#1d26ab"_s },
                { u"F00"_s, u"#000f00"_s },
                { u"FF0000FF"_s, u"#0000ff"_s },
                { u"+ff"_s, u"#0000ff"_s },
                { u"-1"_s, u"#ffffff"_s },
                { u"7fffffffffffffff"_s, u"#ffffff"_s },
                { u"-8000000000000000"_s, u"#000000"_s },
                { u"0000000000000000000000ff0000"_s, u"#ff0000"_s } };
        for (const auto &[text, rgb] : accepted)
            QTest::addRow("'%s'", qPrintable(text)) << text << rgb;
        for (const QString &text :
             { u""_s, u"#ffffff"_s, u"0x1D2635"_s, u" ffffff"_s, u"ffffff "_s, u"-"_s, u"+-1"_s,
               u"ff-"_s, u"fffffg"_s, u"8000000000000000"_s, u"-8000000000000001"_s,
               u"1ffffffffffffffff"_s, u"\uff11\uff12\uff13"_s, u"ff\u00e9"_s })
            QTest::addRow("'%s'", qPrintable(text)) << text << QString();
    }

    void hexColor()
    {
        QFETCH(QString, text);
        QFETCH(QString, rgb);
        const std::optional<QColor> color = velmora::hexColor(text, 0.5);
        QCOMPARE(color ? color->name(QColor::HexRgb) : QString(), rgb);
        if (color) {
            QVERIFY(qAbs(color->alphaF() - 0.5f) < 1e-4f);
            QCOMPARE(color->convertTo(QColor::Rgb), *color); // plain sRGB, not extended
        }
    }
};

QTEST_GUILESS_MAIN(ColorsTest)
#include "tst_presentation_colors.moc"
