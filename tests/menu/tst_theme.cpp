// Every colour of the table and the menu-bar accents, to the 8-bit value.

#include "Menu/Paint.h"
#include "Support/Theme.h"

#include <QTest>

class ThemeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void colours_data()
    {
        QTest::addColumn<Theme::Rgba>("colour");
        QTest::addColumn<QString>("hex");
        QTest::addColumn<double>("alpha");
        QTest::newRow("lark") << Theme::lark << QStringLiteral("#ccff00") << 1.0;
        QTest::newRow("amber") << Theme::amber << QStringLiteral("#ffb020") << 1.0;
        QTest::newRow("emerald") << Theme::emerald << QStringLiteral("#00ff9c") << 1.0;
        QTest::newRow("alert") << Theme::alert << QStringLiteral("#ff5000") << 1.0;
        QTest::newRow("abyss") << Theme::abyss << QStringLiteral("#06070a") << 1.0;
        QTest::newRow("plate") << Theme::plate << QStringLiteral("#0b0d12") << 1.0;
        QTest::newRow("raised") << Theme::raised << QStringLiteral("#12151c") << 1.0;
        QTest::newRow("float") << Theme::float_ << QStringLiteral("#181c24") << 1.0;
        QTest::newRow("hairline") << Theme::hairline << QStringLiteral("#ffffff") << 0.07;
        QTest::newRow("hairlineHot") << Theme::hairlineHot << QStringLiteral("#ffffff") << 0.16;
        QTest::newRow("ink") << Theme::ink << QStringLiteral("#edf1f4") << 1.0;
        QTest::newRow("ink2") << Theme::ink2 << QStringLiteral("#a2abb4") << 1.0;
        QTest::newRow("ink3") << Theme::ink3 << QStringLiteral("#6b7480") << 1.0;
        QTest::newRow("ink4") << Theme::ink4 << QStringLiteral("#3c434d") << 1.0;
        QTest::newRow("whale on light")
            << Theme::menuAccent(SignalKind::whale, false) << QStringLiteral("#53700a") << 1.0;
        QTest::newRow("spike on light")
            << Theme::menuAccent(SignalKind::spike, false) << QStringLiteral("#8f5200") << 1.0;
        QTest::newRow("stocks on light")
            << Theme::menuAccent(SignalKind::stocks, false) << QStringLiteral("#006b48") << 1.0;
        QTest::newRow("whale on dark")
            << Theme::menuAccent(SignalKind::whale, true) << QStringLiteral("#ccff00") << 1.0;
        QTest::newRow("spike on dark")
            << Theme::menuAccent(SignalKind::spike, true) << QStringLiteral("#ffb020") << 1.0;
        QTest::newRow("stocks on dark")
            << Theme::menuAccent(SignalKind::stocks, true) << QStringLiteral("#00ff9c") << 1.0;
    }
    void colours()
    {
        QFETCH(Theme::Rgba, colour);
        QFETCH(QString, hex);
        QFETCH(double, alpha);
        QCOMPARE(toQColor(colour).name(), hex);
        QCOMPARE(colour.a, alpha);
        // Components are the 8-bit value over 255, or an exact fraction (lark's 0.8).
        for (double c : {colour.r, colour.g, colour.b})
            QVERIFY(qFuzzyCompare(1 + c * 255, 1 + std::round(c * 255)));
    }

    void larkIsExactlyPointEight() { QCOMPARE(Theme::lark, (Theme::Rgba{0.8, 1.0, 0.0, 1.0})); }

    void motion_data()
    {
        QTest::addColumn<Motion::Curve>("curve");
        QTest::addColumn<bool>("spring");
        QTest::addColumn<double>("response");
        QTest::addColumn<double>("damping");
        QTest::newRow("snap") << Motion::snap << true << 0.34 << 0.76;
        QTest::newRow("settle") << Motion::settle << true << 0.52 << 0.88;
        QTest::newRow("glide") << Motion::glide << false << 0.18 << 1.0;
        QTest::newRow("roll") << Motion::roll << true << 0.4 << 0.95;
    }
    void motion()
    {
        QFETCH(Motion::Curve, curve);
        QFETCH(bool, spring);
        QFETCH(double, response);
        QFETCH(double, damping);
        QCOMPARE(curve.type == Motion::Curve::Spring, spring);
        QCOMPARE(curve.response, response);
        if (spring)
            QCOMPARE(curve.damping, damping);
        else
            QCOMPARE(curve.valueAt(response), 1.0); // an ease-out is done at its duration
    }
};

QTEST_MAIN(ThemeTest)
#include "tst_theme.moc"
