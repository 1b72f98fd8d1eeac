// The fixed rules: noise, honeypots, priorities, texts, ids, radar, evidence
// and the New York market session on both sides of a clock change.

#include "Feed/SignalRules.h"

#include <QDateTime>
#include <QTest>
#include <QTimeZone>

#include <cmath>
#include <limits>

namespace {
TwFill buy(double usd, QList<QString> flags = {}, bool newPosition = false)
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
    f.flags = std::move(flags);
    f.newPosition = newPosition;
    return f;
}

double newYork(int y, int mo, int d, int h, int mi)
{
    return double(QDateTime(QDate(y, mo, d), QTime(h, mi), QTimeZone("America/New_York")).toSecsSinceEpoch());
}
} // namespace

class RulesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void noise_data()
    {
        QTest::addColumn<QStringList>("flags");
        QTest::addColumn<bool>("kept");
        QTest::newRow("clean") << QStringList{} << true;
        QTest::newRow("pool age alone") << QStringList{QStringLiteral("pool 3h old")} << true;
        QTest::newRow("drained") << QStringList{QStringLiteral("pool 3h old"),
                                                QStringLiteral("pool drained 92%")}
                                 << false;
        QTest::newRow("not a real buy") << QStringList{QStringLiteral("not a real buy (router)")} << false;
        QTest::newRow("case matters") << QStringList{QStringLiteral("Pool drained")} << true;
    }
    void noise()
    {
        QFETCH(QStringList, flags);
        QFETCH(bool, kept);
        QCOMPARE(SignalRules::signal(buy(5000, flags), nullptr, nullptr).has_value(), kept);
    }

    void badTokensAreDropped_data()
    {
        QTest::addColumn<std::optional<bool>>("honeypot");
        QTest::addColumn<std::optional<bool>>("drained");
        QTest::addColumn<bool>("kept");
        QTest::newRow("absent flags pass") << std::optional<bool>() << std::optional<bool>() << true;
        QTest::newRow("honeypot") << std::optional(true) << std::optional<bool>() << false;
        QTest::newRow("drained") << std::optional<bool>() << std::optional(true) << false;
        QTest::newRow("both false") << std::optional(false) << std::optional(false) << true;
    }
    void badTokensAreDropped()
    {
        QFETCH(std::optional<bool>, honeypot);
        QFETCH(std::optional<bool>, drained);
        QFETCH(bool, kept);
        TwToken t;
        t.honeypot = honeypot;
        t.drained = drained;
        QCOMPARE(SignalRules::signal(buy(5000), nullptr, &t).has_value(), kept);
    }

    void priority_data()
    {
        QTest::addColumn<double>("usd");
        QTest::addColumn<int>("expected");
        QTest::newRow("$1") << 1.0 << 40;
        QTest::newRow("under a dollar") << 0.2 << 40;
        QTest::newRow("$1,000") << 1000.0 << 76;
        QTest::newRow("$10,000") << 10000.0 << 88;
        QTest::newRow("$25,000") << 25000.0 << 93;
        QTest::newRow("$100,000 capped") << 100000.0 << 95;
        QTest::newRow("$1B capped") << 1e9 << 95;
        QTest::newRow("$0 and below") << -500.0 << 40;
        QTest::newRow("NaN is the floor") << std::nan("") << 40;
        QTest::newRow("infinity is the cap") << std::numeric_limits<double>::infinity() << 95;
        QTest::newRow("just under the cap") << 30000.0 << 94; // 4.477 x 12 = 53.7
    }
    void priority()
    {
        QFETCH(double, usd);
        QFETCH(int, expected);
        QCOMPARE(SignalRules::notionalPriority(usd), expected);
    }

    void newPositionPileIn()
    {
        const auto s = SignalRules::signal(buy(250, {QStringLiteral("pile-in 3")}, true), nullptr, nullptr);
        QVERIFY(s);
        QCOMPARE(s->priority, 77);
        QCOMPARE(s->detail, std::optional(QStringLiteral("3 tracked wallets in this pool.")));
        QCOMPARE(s->line.text(), QStringLiteral("$WIF · @kai aped $250.00"));
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("▲")));
        QCOMPARE(s->id, QStringLiteral("tw-fill-42"));
        QCOMPARE(s->expiresAt, s->createdAt + 3600);
        QCOMPARE(s->kind, SignalKind::whale);
    }

    void pileInCount_data()
    {
        QTest::addColumn<QStringList>("flags");
        QTest::addColumn<qint64>("count");
        QTest::addColumn<int>("priority"); // of a $1 buy, which alone is worth 40
        QTest::newRow("none") << QStringList{} << qint64(0) << 40;
        QTest::newRow("three") << QStringList{QStringLiteral("pile-in 3")} << qint64(3) << 43;
        QTest::newRow("signed") << QStringList{QStringLiteral("pile-in +4")} << qint64(4) << 44;
        QTest::newRow("negative lowers it") << QStringList{QStringLiteral("pile-in -3")} << qint64(-3) << 37;
        QTest::newRow("not a number") << QStringList{QStringLiteral("pile-in many")} << qint64(0) << 40;
        QTest::newRow("nothing after") << QStringList{QStringLiteral("pile-in ")} << qint64(0) << 40;
        QTest::newRow("sign alone") << QStringList{QStringLiteral("pile-in -")} << qint64(0) << 40;
        QTest::newRow("blank inside") << QStringList{QStringLiteral("pile-in 3 ")} << qint64(0) << 40;
        QTest::newRow("non-ascii digits") << QStringList{QStringLiteral("pile-in \u0663")} << qint64(0) << 40;
        QTest::newRow("only the first counts")
            << QStringList{QStringLiteral("pile-in x"), QStringLiteral("pile-in 5")} << qint64(0) << 40;
        QTest::newRow("past 32 bits") << QStringList{QStringLiteral("pile-in 99999999999999")}
                                      << Q_INT64_C(99999999999999) << std::numeric_limits<int>::max();
        QTest::newRow("int64 max saturates")
            << QStringList{QStringLiteral("pile-in 9223372036854775807")}
            << std::numeric_limits<qint64>::max() << std::numeric_limits<int>::max();
        QTest::newRow("int64 min") << QStringList{QStringLiteral("pile-in -9223372036854775808")}
                                   << std::numeric_limits<qint64>::min() << std::numeric_limits<int>::min();
        QTest::newRow("past 64 bits")
            << QStringList{QStringLiteral("pile-in 9223372036854775808")} << qint64(0) << 40;
    }
    void pileInCount()
    {
        QFETCH(QStringList, flags);
        QFETCH(qint64, count);
        QFETCH(int, priority);
        QCOMPARE(SignalRules::pileInCount(buy(1, flags)), count);
        QCOMPARE(SignalRules::signal(buy(1, flags), nullptr, nullptr)->priority, priority);
    }

    void hugePileInStillReadsInTheDetail()
    {
        const auto d = SignalRules::detail(buy(1, {QStringLiteral("pile-in 5000000000")}), nullptr);
        QCOMPARE(d, std::optional(QStringLiteral("5000000000 tracked wallets in this pool.")));
    }

    void detailSentence_data()
    {
        QTest::addColumn<QStringList>("flags");
        QTest::addColumn<qint64>("followers");
        QTest::addColumn<qint64>("closed");
        QTest::addColumn<QString>("expected");
        QTest::newRow("nothing") << QStringList{} << qint64(0) << qint64(-1) << QString();
        QTest::newRow("everything")
            << QStringList{QStringLiteral("pile-in 3"), QStringLiteral("pool 3h old")} << qint64(15400)
            << qint64(20)
            << QStringLiteral(
                   "3 tracked wallets in this pool · pool 3h old · 12 of 20 closes green · 15K followers.");
        QTest::newRow("999 followers") << QStringList{} << qint64(999) << qint64(-1) << QString();
        QTest::newRow("1000 followers")
            << QStringList{} << qint64(1000) << qint64(-1) << QStringLiteral("1K followers.");
        QTest::newRow("4 closes still shown")
            << QStringList{} << qint64(0) << qint64(4) << QStringLiteral("12 of 4 closes green.");
        QTest::newRow("pile-in of one not shown")
            << QStringList{QStringLiteral("pile-in 1")} << qint64(0) << qint64(-1) << QString();
    }
    void detailSentence()
    {
        QFETCH(QStringList, flags);
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
        const auto d = SignalRules::detail(f, closed >= 0 ? &t : nullptr);
        QCOMPARE(d.value_or(QString()), expected);
        const auto s = SignalRules::signal(f, closed >= 0 ? &t : nullptr, nullptr);
        QCOMPARE(s->wallet->winRate.has_value(), closed >= 5);
    }

    void sellsAndStocks()
    {
        TwFill f = buy(2000);
        f.side = QStringLiteral("sell");
        f.isStock = true;
        f.symbol = QStringLiteral("NVDAx");
        const auto s = SignalRules::signal(f, nullptr, nullptr);
        QCOMPARE(s->kind, SignalKind::stocks);
        QCOMPARE(s->line.text(), QStringLiteral("NVDAx · @kai dumped $2.0K"));
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("▼")));
    }

    void radar_data()
    {
        QTest::addColumn<qint64>("buyers");
        QTest::addColumn<std::optional<double>>("liquidity");
        QTest::addColumn<std::optional<double>>("usdIn");
        QTest::addColumn<int>("priority"); // -1: no signal
        QTest::newRow("one buyer") << qint64(1) << std::optional<double>() << std::optional<double>() << -1;
        QTest::newRow("two, no usd") << qint64(2) << std::optional<double>() << std::optional<double>() << 51;
        QTest::newRow("fifteen capped")
            << qint64(15) << std::optional(5000.0) << std::optional(38000.0) << 88;
        QTest::newRow("zero liquidity") << qint64(4) << std::optional(0.0) << std::optional<double>() << -1;
    }
    void radar()
    {
        QFETCH(qint64, buyers);
        QFETCH(std::optional<double>, liquidity);
        QFETCH(std::optional<double>, usdIn);
        QFETCH(int, priority);
        TwRadar r;
        r.token = QStringLiteral("MintPOP");
        r.symbol = QStringLiteral("POP");
        r.buyers = buyers;
        r.liquidity = liquidity;
        r.usdIn = usdIn;
        r.firstTs = 1700000123.9;
        r.poolAge = 7200;
        const auto s = SignalRules::signal(r, 0);
        QCOMPARE(s ? s->priority : -1, priority);
        if (!s)
            return;
        QCOMPARE(s->id, QStringLiteral("tw-radar-MintPOP-1700000123"));
        QCOMPARE(s->kind, SignalKind::spike);
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("×") + QString::number(buyers)));
        QCOMPARE(s->line.figure.has_value(), usdIn.has_value());
        QCOMPARE(s->expiresAt - s->createdAt, 1200.0);
        QVERIFY(!s->wallet);
        if (usdIn)
            QCOMPARE(*s->detail, QStringLiteral("15 tracked wallets in · $38.0K · pool 2h old."));
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

    void radarPoolAgeAlwaysShows()
    {
        TwRadar r;
        r.token = QStringLiteral("M");
        r.symbol = QStringLiteral("POP");
        r.buyers = 2;
        r.firstTs = 1700000000;
        r.poolAge = 1e300; // nonsense from the wire still reads, and never stops the app
        QCOMPARE(SignalRules::signal(r, 0)->detail,
                 std::optional(QStringLiteral("2 tracked wallets in · pool 9223372036854775807d old.")));
        r.poolAge = 59.6;
        QCOMPARE(SignalRules::signal(r, 0)->detail,
                 std::optional(QStringLiteral("2 tracked wallets in · pool 60s old.")));
    }

    void walletProfile()
    {
        TwTraderDetail d;
        d.address = QStringLiteral("A");
        d.handle = QStringLiteral("kai");
        auto bag = [](const char *sym, std::optional<double> opened, std::optional<double> age,
                      std::optional<double> pnl) {
            TwTraderDetail::Bag b;
            b.symbol = QLatin1String(sym);
            b.openedTs = opened;
            b.ageSeconds = age;
            b.pnlPct = pnl;
            b.costUsd = 100;
            return b;
        };
        d.bags = {bag("E", 500, 600, std::nullopt), bag("A", 100, 60, 10),
                  bag("X", std::nullopt, 1, 1),     bag("C", 300, 1800, -5),
                  bag("B", 200, 120, std::nullopt), bag("D", 400, std::nullopt, 50)};
        TwTrader t;
        t.closedTrades = 5;
        t.winRate = 0.62;
        t.openCost = 1000;
        t.unrealizedPnl = -250;
        t.fills = 77;
        const WalletProfile w = SignalRules::walletProfile(d, &t);
        QCOMPARE(w.label, std::optional(QStringLiteral("@kai")));
        QCOMPARE(w.winRate, std::optional(0.62));
        QCOMPARE(w.pnlRatio, std::optional(-0.25));
        // Ages of dated bags in minutes: 1, 2, 10, 30 -> index 2 -> 10.
        QCOMPARE(w.medianHoldMinutes, std::optional<qint64>(10));
        QCOMPARE(w.recentTrades.size(), 4);
        QCOMPARE(w.recentTrades[0].tokenSymbol, QStringLiteral("E"));
        QCOMPARE(w.recentTrades[3].tokenSymbol, QStringLiteral("B"));
        QCOMPARE(w.recentTrades[2].pnlRatio, std::optional(-0.05));
        QCOMPARE(w.tradeCount, std::optional<qint64>(77));
        d.numTrades = 9;
        QCOMPARE(SignalRules::walletProfile(d, nullptr).tradeCount, std::optional<qint64>(9));
        QVERIFY(!SignalRules::walletProfile(d, nullptr).winRate);
    }

    void tokenProfile()
    {
        TwToken t;
        t.symbol = QStringLiteral("WIF");
        t.change24 = -12.5;
        t.pairCreatedAt = 1000;
        const TokenProfile p = SignalRules::tokenProfile(t, 1000 + 7200);
        QCOMPARE(p.change24h, std::optional(-0.125));
        QCOMPARE(p.poolAgeHours, std::optional(2.0));
        QCOMPARE(SignalRules::tokenProfile(t, 0).poolAgeHours, std::optional(0.0)); // never negative
    }

    void marketSession_data()
    {
        QTest::addColumn<double>("at");
        QTest::addColumn<MarketSession>("session");
        // Summer (EDT) and winter (EST), and the days of the clock changes.
        QTest::newRow("09:29 summer") << newYork(2026, 7, 15, 9, 29) << MarketSession::pre;
        QTest::newRow("09:30 summer") << newYork(2026, 7, 15, 9, 30) << MarketSession::regular;
        QTest::newRow("15:59 winter") << newYork(2026, 1, 15, 15, 59) << MarketSession::regular;
        QTest::newRow("16:00 winter") << newYork(2026, 1, 15, 16, 0) << MarketSession::post;
        QTest::newRow("09:30 day after spring change")
            << newYork(2026, 3, 9, 9, 30) << MarketSession::regular;
        QTest::newRow("09:29 day before spring change") << newYork(2026, 3, 7, 9, 29) << MarketSession::pre;
        QTest::newRow("16:00 day after autumn change") << newYork(2026, 11, 2, 16, 0) << MarketSession::post;
        // The change days themselves: 2026-03-08 (EST -> EDT) and 2026-11-01 (EDT -> EST).
        QTest::newRow("13:30 UTC on the spring change day") << 1772976600.0 << MarketSession::regular;
        QTest::newRow("13:29 UTC on the spring change day") << 1772976540.0 << MarketSession::pre;
        QTest::newRow("20:59 UTC on the autumn change day") << 1793566740.0 << MarketSession::regular;
        QTest::newRow("21:00 UTC on the autumn change day") << 1793566800.0 << MarketSession::post;
        QTest::newRow("20:00 UTC on the autumn change day") << 1793563200.0 << MarketSession::regular;
        QTest::newRow("saturday counts as regular") << newYork(2026, 11, 21, 11, 0) << MarketSession::regular;
        // 14:00 UTC is 09:00 in winter (pre) but 10:00 in summer (regular).
        QTest::newRow("14:00 UTC in January") << 1767276000.0 << MarketSession::pre;
        QTest::newRow("14:00 UTC in July") << 1783000800.0 << MarketSession::regular;
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
