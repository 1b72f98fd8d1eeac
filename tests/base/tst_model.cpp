// The value types: texts and identities other code keys on.

#include "Model/Signal.h"

#include <QTest>

class ModelTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void headlineText()
    {
        Headline h{QStringLiteral("$WIF"), QStringLiteral("@kai aped"), std::nullopt, QStringLiteral("▲")};
        QCOMPARE(h.text(), QStringLiteral("$WIF · @kai aped")); // the tag never shows
        h.figure = QStringLiteral("$2.50M");
        QCOMPARE(h.text(), QStringLiteral("$WIF · @kai aped $2.50M"));
    }

    void walletTradeId_data()
    {
        QTest::addColumn<double>("at");
        QTest::addColumn<QString>("expected");
        QTest::newRow("whole second") << 1700000000.0 << QStringLiteral("BONK-1700000000.0");
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
};

QTEST_APPLESS_MAIN(ModelTest)
#include "tst_model.moc"
