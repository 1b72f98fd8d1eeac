// The inspector's evidence as the reader sees it, from the wire records on:
// the win rate from five closed trades, the trade count's fallback to the
// trader record, a bag's profit as a percent, and only web links.

#include "Panel/PanelModel.h"
#include "Panel/PanelText.h"
#include "Wire/SignalRules.h"

#include <QTest>

namespace {
using OptDouble = std::optional<double>;
const QString Id = QStringLiteral("tw-fill-1");

QVariantMap walletOf(qint64 closed, qint64 numTrades, OptDouble pnlPct)
{
    TwTraderDetail d;
    d.address = QStringLiteral("Wkai");
    d.handle = QStringLiteral("kai");
    if (numTrades >= 0)
        d.numTrades = numTrades;
    d.bags = {TwTraderDetail::Bag{QStringLiteral("WIF"), {}, 250, 1'700'000'000, pnlPct, 600}};
    TwTrader t;
    t.closedTrades = closed;
    t.winRate = 0.62;
    t.fills = 1234;
    SignalDetail detail;
    detail.signalId = Id;
    detail.wallet = SignalRules::walletProfile(d, &t);
    const QVariantMap out = PanelModel::inspectorFor(Id, {{Id, detail}}, {}, 1'700'000'060);
    return out.value(QStringLiteral("wallet")).toMap();
}

QString stat(const QVariantMap &module, const QString &label)
{
    for (const QVariant &v : module.value(QStringLiteral("stats")).toList())
        if (v.toMap().value(QStringLiteral("label")) == label)
            return v.toMap().value(QStringLiteral("value")).toString();
    return QStringLiteral("(no %1)").arg(label);
}
} // namespace

class EvidenceRulesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void walletModule_data()
    {
        QTest::addColumn<qint64>("closed");
        QTest::addColumn<qint64>("numTrades"); // -1: the detail has none
        QTest::addColumn<OptDouble>("pnlPct");
        QTest::addColumn<QString>("winRate");
        QTest::addColumn<QString>("fills");
        QTest::addColumn<QString>("pnl");
        QTest::newRow("five closed trades show the rate")
            << qint64(5) << qint64(9) << OptDouble(50) << "62%" << "9" << "+50.0%";
        QTest::newRow("four do not") << qint64(4) << qint64(9) << OptDouble(-5) << PanelText::dash() << "9" << "-5.0%";
        QTest::newRow("the count from the trader record")
            << qint64(5) << qint64(-1) << OptDouble() << "62%" << "1,234" << "open";
    }
    void walletModule()
    {
        QFETCH(qint64, closed);
        QFETCH(qint64, numTrades);
        QFETCH(OptDouble, pnlPct);
        QFETCH(QString, winRate);
        QFETCH(QString, fills);
        QFETCH(QString, pnl);
        const QVariantMap wallet = walletOf(closed, numTrades, pnlPct);
        QCOMPARE(stat(wallet, QStringLiteral("WIN RATE")), winRate);
        QCOMPARE(stat(wallet, QStringLiteral("FILLS")), fills);
        const QVariantList trades = wallet.value(QStringLiteral("trades")).toList();
        QCOMPARE(trades.size(), 1);
        QCOMPARE(trades.first().toMap().value(QStringLiteral("pnl")).toString(), pnl);
        QCOMPARE(trades.first().toMap().value(QStringLiteral("open")).toBool(), !pnlPct);
    }

    void onlyWebLinks_data()
    {
        QTest::addColumn<QString>("profile");
        QTest::addColumn<bool>("shown");
        QTest::newRow("https") << QStringLiteral("https://tarnwick.example/kai") << true;
        QTest::newRow("javascript") << QStringLiteral("javascript:alert(1)") << false;
        QTest::newRow("file") << QStringLiteral("file:///etc/passwd") << false;
    }
    void onlyWebLinks()
    {
        QFETCH(QString, profile);
        QFETCH(bool, shown);
        SignalDetail detail;
        detail.signalId = Id;
        detail.wallet = WalletProfile{};
        detail.links.profile = QUrl(profile);
        const QVariantList links =
            PanelModel::inspectorFor(Id, {{Id, detail}}, {}, 0).value(QStringLiteral("links")).toList();
        QCOMPARE(links.size(), shown ? 1 : 0);
    }
};

QTEST_GUILESS_MAIN(EvidenceRulesTest)
#include "tst_evidence_rules.moc"
