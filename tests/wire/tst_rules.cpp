// The fixed rules: noise, honeypots, priorities, texts, ids, radar, evidence, market session.

#include "Wire/SignalRules.h"

#include <QDateTime>
#include <QTest>
#include <QTimeZone>

#include <cmath>
#include <limits>

namespace {
TwFill buy(double usd, const QString &flags = {}, bool newPosition = false)
{
    TwFill f;
    f.id = 42;
    f.ts = 1700000000;
    f.side = QStringLiteral("buy");
    f.usd = usd;
    f.handle = QStringLiteral("kai");
    f.wallet = QStringLiteral("Wkai");
    f.token = QStringLiteral("MintWIF");
    f.symbol = QStringLiteral("WIF");
    f.flags = flags.split(QLatin1Char('|'), Qt::SkipEmptyParts);
    f.newPosition = newPosition;
    return f;
}

double newYork(int y, int mo, int d, int h, int mi)
{
    return double(QDateTime(QDate(y, mo, d), QTime(h, mi), QTimeZone("America/New_York")).toSecsSinceEpoch());
}

using OptBool = std::optional<bool>;
using OptDouble = std::optional<double>;
} // namespace

class RulesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void noiseAndBadTokens_data()
    {
        QTest::addColumn<QString>("flags");
        QTest::addColumn<OptBool>("honeypot");
        QTest::addColumn<OptBool>("drained");
        QTest::addColumn<bool>("kept");
        const auto row = [](const char *name, const char *flags, OptBool honeypot, OptBool drained,
                            bool kept) {
            QTest::newRow(name) << QString::fromUtf8(flags) << honeypot << drained << kept;
        };
        row("clean", "", {}, {}, true);
        row("drained pool", "pool 3h old|pool drained 92%", {}, {}, false);
        row("not a real buy", "not a real buy (router)", {}, {}, false);
        row("case matters", "Pool drained", {}, {}, true);
        row("honeypot token", "", true, {}, false);
        row("drained token", "", {}, true, false);
        row("token flags false", "", false, false, true);
    }
    void noiseAndBadTokens()
    {
        QFETCH(QString, flags);
        QFETCH(OptBool, honeypot);
        QFETCH(OptBool, drained);
        QFETCH(bool, kept);
        TwToken t;
        t.honeypot = honeypot;
        t.drained = drained;
        QCOMPARE(SignalRules::signal(buy(5000, flags), nullptr, &t).has_value(), kept);
    }

    void priority_data()
    {
        QTest::addColumn<double>("usd");
        QTest::addColumn<int>("expected");
        QTest::newRow("$0 and below") << -500.0 << 40;
        QTest::newRow("NaN is the floor") << std::nan("") << 40;
        QTest::newRow("$1,000") << 1000.0 << 76;
        QTest::newRow("just under the cap") << 30000.0 << 94; // 4.477 x 12 = 53.7
        QTest::newRow("$100,000 capped") << 100000.0 << 95;
        QTest::newRow("infinity is the cap") << std::numeric_limits<double>::infinity() << 95;
    }
    void priority()
    {
        QFETCH(double, usd);
        QFETCH(int, expected);
        QCOMPARE(SignalRules::notionalPriority(usd), expected);
    }

    void fillSignals()
    {
        auto s = SignalRules::signal(buy(250, QStringLiteral("pile-in 3"), true), nullptr, nullptr);
        QVERIFY(s);
        QCOMPARE(s->priority, 77); // 69 for the size, 5 for a new position, 3 for the pile-in
        QCOMPARE(s->line.text(), QStringLiteral("$WIF · @kai aped $250.00"));
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("▲")));

        TwFill f = buy(2000);
        f.side = QStringLiteral("sell");
        f.isStock = true;
        f.symbol = QStringLiteral("NVDAx");
        s = SignalRules::signal(f, nullptr, nullptr);
        QCOMPARE(s->kind, SignalKind::stocks);
        QCOMPARE(s->line.text(), QStringLiteral("NVDAx · @kai dumped $2.0K")); // no "$" before an equity
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("▼")));
    }

    // The count comes from the wire as text and may hold anything.
    void pileInCount_data()
    {
        QTest::addColumn<QString>("flags");
        QTest::addColumn<qint64>("count");
        QTest::addColumn<int>("priority"); // of a $1 buy, which alone is worth 40
        const auto row = [](const char *name, const char *flags, qint64 count, int priority) {
            QTest::newRow(name) << QString::fromUtf8(flags) << count << priority;
        };
        const qint64 max = std::numeric_limits<qint64>::max(), min = std::numeric_limits<qint64>::min();
        const int intMax = std::numeric_limits<int>::max(), intMin = std::numeric_limits<int>::min();
        row("none", "", 0, 40);
        row("three", "pile-in 3", 3, 43);
        row("negative lowers it", "pile-in -3", -3, 37);
        row("non-ascii digits", "pile-in \u0663", 0, 40);
        row("only the first counts", "pile-in x|pile-in 5", 0, 40);
        row("int64 max saturates", "pile-in 9223372036854775807", max, intMax);
        row("int64 min", "pile-in -9223372036854775808", min, intMin);
        row("past 64 bits", "pile-in 9223372036854775808", 0, 40);
    }
    void pileInCount()
    {
        QFETCH(QString, flags);
        QFETCH(qint64, count);
        QFETCH(int, priority);
        QCOMPARE(SignalRules::pileInCount(buy(1, flags)), count);
        QCOMPARE(SignalRules::signal(buy(1, flags), nullptr, nullptr)->priority, priority);
    }

    void detailSentence_data()
    {
        QTest::addColumn<QString>("flags");
        QTest::addColumn<qint64>("followers");
        QTest::addColumn<qint64>("closed"); // -1: no trader record
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *flags, qint64 followers, qint64 closed,
                            const char *text) {
            QTest::newRow(name) << QString::fromUtf8(flags) << followers << closed << QString::fromUtf8(text);
        };
        row("nothing", "", 0, -1, "");
        row("everything", "pile-in 3|pool 3h old", 15400, 20,
            "3 tracked wallets in this pool · pool 3h old · 12 of 20 closes green · 15K followers.");
        row("999 followers", "", 999, -1, "");
        row("1000 followers", "", 1000, -1, "1K followers.");
        row("4 closes still shown", "", 0, 4, "12 of 4 closes green.");
        row("5 closes", "", 0, 5, "12 of 5 closes green.");
        row("pile-in of one not shown", "pile-in 1", 0, -1, "");
        row("pile-in of two shown", "pile-in 2", 0, -1, "2 tracked wallets in this pool.");
        row("huge pile-in still reads", "pile-in 5000000000", 0, -1,
            "5000000000 tracked wallets in this pool.");
    }
    void detailSentence()
    {
        QFETCH(QString, flags);
        QFETCH(qint64, followers);
        QFETCH(qint64, closed);
        QFETCH(QString, expected);
        TwFill f = buy(100, flags);
        if (followers)
            f.followers = followers;
        TwTrader t;
        t.wins = 12;
        if (closed >= 0)
            t.closedTrades = closed;
        t.winRate = 0.6;
        QCOMPARE(SignalRules::detail(f, closed >= 0 ? &t : nullptr).value_or(QString()), expected);
        // The win rate shows only from five closed trades on.
        const auto s = SignalRules::signal(f, closed >= 0 ? &t : nullptr, nullptr);
        QCOMPARE(s->wallet->winRate.has_value(), closed >= 5);
    }

    void radar_data()
    {
        QTest::addColumn<qint64>("buyers");
        QTest::addColumn<OptDouble>("liquidity");
        QTest::addColumn<OptDouble>("usdIn");
        QTest::addColumn<double>("poolAge");
        QTest::addColumn<int>("priority"); // -1: no signal
        QTest::addColumn<QString>("detail");
        const auto row = [](const char *name, qint64 buyers, OptDouble liquidity, OptDouble usdIn,
                            double poolAge, int priority, const char *detail) {
            QTest::newRow(name) << buyers << liquidity << usdIn << poolAge << priority
                                << QString::fromUtf8(detail);
        };
        row("one buyer", 1, {}, {}, 7200, -1, "");
        row("zero liquidity", 4, 0.0, {}, 7200, -1, "");
        row("two, no usd", 2, {}, {}, 7200, 51, "2 tracked wallets in · pool 2h old.");
        row("fifteen capped", 15, 5000.0, 38000.0, 7200, 88, "15 tracked wallets in · $38.0K · pool 2h old.");
        row("pool age rounds", 2, {}, {}, 59.6, 51, "2 tracked wallets in · pool 60s old.");
        row("absurd pool age", 2, {}, {}, 1e300, 51, "2 tracked wallets in · pool 9223372036854775807d old.");
    }
    void radar()
    {
        QFETCH(qint64, buyers);
        QFETCH(OptDouble, liquidity);
        QFETCH(OptDouble, usdIn);
        QFETCH(double, poolAge);
        QFETCH(int, priority);
        QFETCH(QString, detail);
        TwRadar r;
        r.token = QStringLiteral("MintPOP");
        r.symbol = QStringLiteral("POP");
        r.buyers = buyers;
        r.liquidity = liquidity;
        r.usdIn = usdIn;
        r.firstTs = 1700000123.9;
        r.poolAge = poolAge;
        const auto s = SignalRules::signal(r, 0);
        QCOMPARE(s ? s->priority : -1, priority);
        if (!s)
            return;
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("×") + QString::number(buyers)));
        QCOMPARE(s->line.figure.has_value(), usdIn.has_value());
        QCOMPARE(s->expiresAt - s->createdAt, 1200.0);
        QVERIFY(!s->wallet);
        QCOMPARE(s->detail, std::optional(detail));
    }

    void radarTimeMustFitTheId_data()
    {
        QTest::addColumn<double>("firstTs");
        QTest::addColumn<QString>("id"); // null: dropped
        QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << QString();
        QTest::newRow("NaN") << std::nan("") << QString();
        QTest::newRow("2^63") << 9223372036854775808.0 << QString();
        QTest::newRow("far future still fits") << 1e17 << QStringLiteral("tw-radar-M-100000000000000000");
        QTest::newRow("before 1970 truncates toward zero") << -5.7 << QStringLiteral("tw-radar-M--5");
    }
    void radarTimeMustFitTheId()
    {
        QFETCH(double, firstTs);
        QFETCH(QString, id);
        TwRadar r;
        r.token = QStringLiteral("M");
        r.symbol = QStringLiteral("POP");
        r.buyers = 3;
        r.firstTs = firstTs;
        const auto s = SignalRules::signal(r, 0);
        QCOMPARE(s ? s->id : QString(), id);
    }

    // The win rate from five closed trades on; the trade count from the
    // detail record, else from the trader record.
    void walletProfile_data()
    {
        QTest::addColumn<qint64>("closed"); // -1: no trader record
        QTest::addColumn<qint64>("numTrades"); // -1: absent from the detail
        QTest::addColumn<OptDouble>("winRate");
        QTest::addColumn<std::optional<qint64>>("tradeCount");
        QTest::addColumn<OptDouble>("pnlRatio");
        using Count = std::optional<qint64>;
        QTest::newRow("5 closed trades") << qint64(5) << qint64(-1) << OptDouble(0.62) << Count(77) << OptDouble(-0.25);
        QTest::newRow("4 closed trades") << qint64(4) << qint64(-1) << OptDouble() << Count(77) << OptDouble(-0.25);
        QTest::newRow("the detail's count first") << qint64(5) << qint64(9) << OptDouble(0.62) << Count(9)
                                                  << OptDouble(-0.25);
        QTest::newRow("no trader record") << qint64(-1) << qint64(9) << OptDouble() << Count(9) << OptDouble();
        QTest::newRow("no count anywhere") << qint64(-1) << qint64(-1) << OptDouble() << Count() << OptDouble();
    }
    void walletProfile()
    {
        QFETCH(qint64, closed);
        QFETCH(qint64, numTrades);
        QFETCH(OptDouble, winRate);
        QFETCH(std::optional<qint64>, tradeCount);
        QFETCH(OptDouble, pnlRatio);
        TwTraderDetail d;
        d.address = QStringLiteral("A");
        d.handle = QStringLiteral("kai");
        if (numTrades >= 0)
            d.numTrades = numTrades;
        const auto bag = [](const char *symbol, OptDouble opened, OptDouble pnl, OptDouble age) {
            return TwTraderDetail::Bag{QLatin1String(symbol), {}, 100, opened, pnl, age};
        };
        // Undated bags are left out; the four most recently opened are listed.
        d.bags = {bag("E", 500, {}, 600),  bag("A", 100, 10, 60),  bag("X", {}, 1, 1),
                  bag("C", 300, -5, 1800), bag("B", 200, {}, 120), bag("D", 400, 50, {})};
        TwTrader t;
        t.closedTrades = closed;
        t.winRate = 0.62;
        t.openCost = 1000;
        t.unrealizedPnl = -250;
        t.fills = 77;
        const WalletProfile w = SignalRules::walletProfile(d, closed >= 0 ? &t : nullptr);
        QCOMPARE(w.label, std::optional(QStringLiteral("@kai")));
        QCOMPARE(w.winRate, winRate);
        QCOMPARE(w.tradeCount, tradeCount);
        QCOMPARE(w.pnlRatio, pnlRatio);
        QCOMPARE(w.medianHoldMinutes, std::optional<qint64>(10)); // of 1, 2, 10 and 30 minutes
        QCOMPARE(w.recentTrades.size(), 4);
        QCOMPARE(w.recentTrades[0].tokenSymbol, QStringLiteral("E"));
        QCOMPARE(w.recentTrades[3].tokenSymbol, QStringLiteral("B"));
        QCOMPARE(w.recentTrades[2].pnlRatio, std::optional(-0.05)); // the bag's -5 is a percent
    }

    void marketSession_data()
    {
        QTest::addColumn<double>("at");
        QTest::addColumn<MarketSession>("session");
        QTest::newRow("09:30 summer") << newYork(2026, 7, 15, 9, 30) << MarketSession::regular;
        QTest::newRow("16:00 winter") << newYork(2026, 1, 15, 16, 0) << MarketSession::post;
        // The days of the clock changes: 2026-03-08 (EST -> EDT) and 2026-11-01 (EDT -> EST).
        QTest::newRow("13:29 UTC on the spring change day") << 1772976540.0 << MarketSession::pre;
        QTest::newRow("13:30 UTC on the spring change day") << 1772976600.0 << MarketSession::regular;
        QTest::newRow("20:59 UTC on the autumn change day") << 1793566740.0 << MarketSession::regular;
        QTest::newRow("21:00 UTC on the autumn change day") << 1793566800.0 << MarketSession::post;
        // 14:00 UTC is 09:00 in winter (pre) but 10:00 in summer (regular).
        QTest::newRow("14:00 UTC in January") << 1767276000.0 << MarketSession::pre;
        QTest::newRow("14:00 UTC in July") << 1783000800.0 << MarketSession::regular;
        QTest::newRow("saturday counts as regular") << newYork(2026, 11, 21, 11, 0) << MarketSession::regular;
    }
    void marketSession()
    {
        QFETCH(double, at);
        QFETCH(MarketSession, session);
        QCOMPARE(SignalRules::marketSession(at), session);
    }
};

QTEST_APPLESS_MAIN(RulesTest)
#include "tst_rules.moc"
