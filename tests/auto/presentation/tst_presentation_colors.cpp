#include "colors.h"

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
        QTest::addColumn<bool>("valid");
        QTest::addColumn<int>("red");
        QTest::addColumn<int>("green");
        QTest::addColumn<int>("blue");

        auto rgb = [](const char *name, const QString &text, int r, int g, int b) {
            QTest::newRow(name) << text << true << r << g << b;
        };
        auto none = [](const char *name, const QString &text) {
            QTest::newRow(name) << text << false << 0 << 0 << 0;
        };

        none("empty", u""_s);
        rgb("black", u"000000"_s, 0, 0, 0);
        rgb("white, lower case", u"ffffff"_s, 255, 255, 255);
        rgb("white, upper case", u"FFFFFF"_s, 255, 255, 255);
        rgb("default title colour", u"1D2635"_s, 29, 38, 53);
        none("hash prefix", u"#ffffff"_s);
        none("0x prefix", u"0x1D2635"_s);
        none("leading blank", u" ffffff"_s);
        none("trailing blank", u"ffffff "_s);
        none("blank inside", u"ff ffff"_s);
        rgb("plus sign", u"+ff"_s, 0, 0, 255);
        rgb("minus one is every bit set", u"-1"_s, 255, 255, 255);
        rgb("minus zero", u"-0"_s, 0, 0, 0);
        none("lone minus", u"-"_s);
        none("lone plus", u"+"_s);
        none("two signs", u"+-1"_s);
        none("sign after digits", u"ff-"_s);
        rgb("three digits are not shorthand", u"F00"_s, 0, 15, 0);
        rgb("bits above 23 are ignored", u"FF0000FF"_s, 0, 0, 255);
        rgb("largest 64-bit value", u"7fffffffffffffff"_s, 255, 255, 255);
        none("one past the largest", u"8000000000000000"_s);
        rgb("smallest 64-bit value", u"-8000000000000000"_s, 0, 0, 0);
        none("one below the smallest", u"-8000000000000001"_s);
        none("seventeen digits overflow", u"1ffffffffffffffff"_s);
        rgb("leading zeros do not overflow", u"0000000000000000000000ff0000"_s, 255, 0, 0);
        none("letter past f", u"fffffg"_s);
        none("fullwidth digits", u"\uff11\uff12\uff13"_s);
        none("accented letter", u"ff\u00e9"_s);
        none("surrogate pair", u"ff\U0001F600"_s);
    }

    void hexColor()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);

        const std::optional<QColor> color = velmora::hexColor(text, 0.5);
        QCOMPARE(color.has_value(), valid);
        if (!valid)
            return;
        QTEST(color->red(), "red");
        QTEST(color->green(), "green");
        QTEST(color->blue(), "blue");
        QVERIFY(qAbs(color->alphaF() - 0.5f) < 1e-4f);
        QCOMPARE(color->spec(), QColor::Rgb);
    }

    void palette_data()
    {
        QTest::addColumn<QColor>("color");
        QTest::addColumn<QString>("hex");
        QTest::addColumn<float>("alpha");

        QTest::newRow("title text") << palette::defaultTitleTextColor() << u"#1d2635"_s << 1.0f;
        QTest::newRow("body text") << palette::defaultBodyTextColor() << u"#333333"_s << 1.0f;
        QTest::newRow("image placeholder")
            << palette::coverImagePlaceholderColor() << u"#586976"_s << 0.1f;
        QTest::newRow("close glyph") << palette::closeButtonIconColor() << u"#44464b"_s << 1.0f;
        QTest::newRow("close disc")
            << palette::closeButtonBackgroundColor() << u"#d3d4db"_s << 1.0f;
    }

    void palette()
    {
        QFETCH(QColor, color);
        QTEST(color.name(QColor::HexRgb), "hex");
        QFETCH(float, alpha);
        QVERIFY(qAbs(color.alphaF() - alpha) < 1.0f / 255);
    }
};

QTEST_GUILESS_MAIN(ColorsTest)
#include "tst_presentation_colors.moc"
