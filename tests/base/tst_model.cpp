// The value types: texts and identities other code keys on.

#include "Model/Signal.h"
#include "Support/Theme.h"

#include <QTest>

class ModelTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void headlineText_data()
    {
        QTest::addColumn<QString>("figure");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plain") << QString() << QString() << QStringLiteral("$WIF · @kai aped");
        QTest::newRow("tag never shows")
            << QString() << QStringLiteral("▲") << QStringLiteral("$WIF · @kai aped");
        QTest::newRow("figure") << QStringLiteral("$2.50M") << QStringLiteral("▲")
                                << QStringLiteral("$WIF · @kai aped $2.50M");
    }
    void headlineText()
    {
        QFETCH(QString, figure);
        QFETCH(QString, tag);
        QFETCH(QString, expected);
        Headline h{QStringLiteral("$WIF"), QStringLiteral("@kai aped"), std::nullopt, std::nullopt};
        if (!figure.isNull())
            h.figure = figure;
        if (!tag.isNull())
            h.tag = tag;
        QCOMPARE(h.text(), expected);
    }

    void signalEqualityUsesEveryField()
    {
        Signal a;
        a.id = QStringLiteral("tw-fill-1");
        a.expiresAt = 100;
        Signal b = a;
        QVERIFY(a == b);
        b.expiresAt = 101;
        QVERIFY(!(a == b));
        b = a;
        b.wallet = WalletRef{QStringLiteral("w"), std::nullopt, std::nullopt};
        QVERIFY(!(a == b));
    }

    void rawValues()
    {
        QCOMPARE(SignalKinds::fromRaw(QStringLiteral("stocks")), std::optional(SignalKind::stocks));
        QVERIFY(!SignalKinds::fromRaw(QStringLiteral("stock")));
        QCOMPARE(SignalKinds::label(SignalKind::stocks), QStringLiteral("STOCK"));
        QVERIFY(!TradeSides::fromRaw(QStringLiteral("BUY")));
        QCOMPARE(MarketSessions::fromRaw(QStringLiteral("post")), std::optional(MarketSession::post));
        const auto &filters = FeedFilter::allCases();
        QVERIFY(filters[0].isAll());
        QCOMPARE(filters[3], FeedFilter::of(SignalKind::stocks));
        QVERIFY(!(FeedFilter::all() == FeedFilter::of(SignalKind::whale)));
    }

    void walletTradeId_data()
    {
        QTest::addColumn<double>("at");
        QTest::addColumn<QString>("expected");
        QTest::newRow("whole second") << 1700000000.0 << QStringLiteral("BONK-1700000000.0");
        QTest::newRow("fraction") << 1700000000.25 << QStringLiteral("BONK-1700000000.25");
        QTest::newRow("shortest exact") << 0.1 << QStringLiteral("BONK-0.1");
        QTest::newRow("exponent keeps a point") << 1e22 << QStringLiteral("BONK-1.0e+22");
    }
    void walletTradeId()
    {
        QFETCH(double, at);
        QFETCH(QString, expected);
        WalletTrade t;
        t.tokenSymbol = QStringLiteral("BONK");
        t.at = at;
        QCOMPARE(t.id(), expected);
    }

    void themeAccents()
    {
        QCOMPARE(Theme::lark.r, 0.8);
        for (SignalKind k : SignalKinds::allCases) {
            QCOMPARE(Theme::menuAccent(k, true), Theme::kindColour(k));
            QVERIFY(!(Theme::menuAccent(k, false) == Theme::kindColour(k)));
        }
        QCOMPARE(Theme::amber, Theme::rgb8(255, 176, 32));
    }

    void springsSettleOnTheirTarget()
    {
        for (const Motion::Curve &c : {Motion::snap, Motion::settle, Motion::roll, Motion::glide}) {
            QCOMPARE(c.valueAt(0), 0.0);
            QVERIFY(std::abs(c.valueAt(c.settlingDuration() + 0.01) - 1.0) < 0.002);
        }
        QVERIFY(Motion::snap.valueAt(Motion::snap.response) > 0.9);
    }
};

QTEST_APPLESS_MAIN(ModelTest)
#include "tst_model.moc"
