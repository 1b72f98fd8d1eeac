// The fixed rules: noise, honeypots, priorities, texts, ids, radar, evidence, market session.

#include "Wire/SignalRules.h"

#include "Table.h"

#include <QTest>

#include <cmath>
#include <limits>

namespace {
using namespace Qt::StringLiterals;
using OptDouble = std::optional<double>;
using OptInt = std::optional<qint64>;
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr qint64 none = -1; // closed trades: no trader record at all
constexpr qint64 i64max = std::numeric_limits<qint64>::max(), i64min = std::numeric_limits<qint64>::min();
constexpr int intMax = std::numeric_limits<int>::max(), intMin = std::numeric_limits<int>::min();

TwFill buy(double usd, const char *flags = "", bool newPosition = false)
{
    return TwFill{.id = 42, .ts = 1700000000, .side = QStringLiteral("buy"), .usd = usd,
                  .handle = QStringLiteral("kai"), .wallet = QStringLiteral("Wkai"),
                  .token = QStringLiteral("MintWIF"), .symbol = QStringLiteral("WIF"),
                  .newPosition = newPosition,
                  .flags = QString::fromUtf8(flags).split(QLatin1Char('|'), Qt::SkipEmptyParts)};
}

// clang-format off
struct Noise { const char *name, *flags; std::optional<bool> honeypot, drained; bool kept; };
const Noise noise[] = {
    {.name = "clean", .flags = "", .honeypot = {}, .drained = {}, .kept = true},
    {.name = "case matters", .flags = "Pool drained", .honeypot = {}, .drained = {}, .kept = true},
    {.name = "drained pool", .flags = "pool 3h old|pool drained 92%", .honeypot = {}, .drained = {},
     .kept = false},
    {.name = "not a real buy", .flags = "not a real buy (router)", .honeypot = {}, .drained = {},
     .kept = false},
    {.name = "honeypot token", .flags = "", .honeypot = true, .drained = {}, .kept = false},
    {.name = "drained token", .flags = "", .honeypot = {}, .drained = true, .kept = false},
    {.name = "token flags false", .flags = "", .honeypot = false, .drained = false, .kept = true},
};

// 12 steps a power of ten above $1 (30000: 4.477 x 12 = 53.7), capped at 95.
struct Priority { const char *name; double usd; int expected; };
const Priority sizes[] = {
    {.name = "$0 and below", .usd = -500, .expected = 40},
    {.name = "NaN is the floor", .usd = std::nan(""), .expected = 40},
    {.name = "$1,000", .usd = 1000, .expected = 76},
    {.name = "just under the cap", .usd = 30000, .expected = 94},
    {.name = "$100,000 capped", .usd = 100000, .expected = 95},
    {.name = "infinity is the cap", .usd = inf, .expected = 95},
};

// The count comes from the wire as text and may hold anything; a $1 buy alone is worth 40.
struct PileIn { const char *name, *flags; qint64 count; int priority; };
const PileIn pileIns[] = {
    {.name = "none", .flags = "", .count = 0, .priority = 40},
    {.name = "three", .flags = "pile-in 3", .count = 3, .priority = 43},
    {.name = "negative lowers it", .flags = "pile-in -3", .count = -3, .priority = 37},
    {.name = "non-ascii digits", .flags = "pile-in \u0663", .count = 0, .priority = 40},
    {.name = "only the first counts", .flags = "pile-in x|pile-in 5", .count = 0, .priority = 40},
    {.name = "int64 max saturates", .flags = "pile-in 9223372036854775807", .count = i64max,
     .priority = intMax},
    {.name = "int64 min", .flags = "pile-in -9223372036854775808", .count = i64min, .priority = intMin},
    {.name = "past 64 bits", .flags = "pile-in 9223372036854775808", .count = 0, .priority = 40},
};

// The trader record has 12 wins; `closed` none: no trader record.
struct Detail { const char *name, *flags; OptInt followers; qint64 closed; const char *text; };
const Detail details[] = {
    {.name = "nothing", .flags = "", .followers = {}, .closed = none, .text = ""},
    {.name = "999 followers", .flags = "", .followers = 999, .closed = none, .text = ""},
    {.name = "1000 followers", .flags = "", .followers = 1000, .closed = none, .text = "1K followers."},
    {.name = "everything", .flags = "pile-in 3|pool 3h old", .followers = 15400, .closed = 20,
     .text = "3 tracked wallets in this pool · pool 3h old · 12 of 20 closes green · 15K followers."},
    {.name = "4 closes shown", .flags = "", .followers = {}, .closed = 4, .text = "12 of 4 closes green."},
    {.name = "5 closes", .flags = "", .followers = {}, .closed = 5, .text = "12 of 5 closes green."},
    {.name = "pile-in of one not shown", .flags = "pile-in 1", .followers = {}, .closed = none, .text = ""},
    {.name = "pile-in of two shown", .flags = "pile-in 2", .followers = {}, .closed = none,
     .text = "2 tracked wallets in this pool."},
    {.name = "huge pile-in still reads", .flags = "pile-in 5000000000", .followers = {}, .closed = none,
     .text = "5000000000 tracked wallets in this pool."},
};

// A priority of -1: no signal (an unusable first_ts cannot make an id).
struct Radar {
    const char *name; qint64 buyers; OptDouble liquidity, usd; double at; int priority; const char *id, *text;
};
const double t0 = 1700000123.9;
const Radar radars[] = {
    {.name = "one buyer", .buyers = 1, .liquidity = {}, .usd = {}, .at = t0, .priority = -1},
    {.name = "zero liquidity", .buyers = 4, .liquidity = 0.0, .usd = {}, .at = t0, .priority = -1},
    {.name = "first_ts infinite", .buyers = 3, .liquidity = {}, .usd = {}, .at = inf, .priority = -1},
    {.name = "first_ts NaN", .buyers = 3, .liquidity = {}, .usd = {}, .at = std::nan(""), .priority = -1},
    {.name = "first_ts 2^63", .buyers = 3, .liquidity = {}, .usd = {}, .at = 9223372036854775808.0,
     .priority = -1},
    {.name = "two, no usd", .buyers = 2, .liquidity = {}, .usd = {}, .at = t0, .priority = 51,
     .id = "tw-radar-M-1700000123", .text = "2 tracked wallets in · pool 2h old."},
    {.name = "fifteen capped", .buyers = 15, .liquidity = 5000.0, .usd = 38000.0, .at = t0, .priority = 88,
     .id = "tw-radar-M-1700000123", .text = "15 tracked wallets in · $38.0K · pool 2h old."},
    {.name = "far future still fits", .buyers = 3, .liquidity = {}, .usd = {}, .at = 1e17, .priority = 54,
     .id = "tw-radar-M-100000000000000000"},
    {.name = "before 1970 truncates toward zero", .buyers = 3, .liquidity = {}, .usd = {}, .at = -5.7,
     .priority = 54, .id = "tw-radar-M--5"},
};

// The win rate from five closed trades on; the trade count from the detail
// record, else from the trader record (77 fills).
struct Profile { const char *name; qint64 closed; OptInt trades, count; OptDouble winRate, pnl; };
const Profile profiles[] = {
    {.name = "5 closed trades", .closed = 5, .trades = {}, .count = 77, .winRate = 0.62, .pnl = -0.25},
    {.name = "4 closed trades", .closed = 4, .trades = {}, .count = 77, .winRate = {}, .pnl = -0.25},
    {.name = "the detail's count first", .closed = 5, .trades = 9, .count = 9, .winRate = 0.62, .pnl = -0.25},
    {.name = "no trader record", .closed = none, .trades = 9, .count = 9, .winRate = {}, .pnl = {}},
    {.name = "no count anywhere", .closed = none, .trades = {}, .count = {}, .winRate = {}, .pnl = {}},
};

using enum MarketSession;
// Named by New York time unless marked UTC; seconds since 1970.
struct Session { const char *name; double at; MarketSession session; };
const Session sessions[] = {
    {.name = "09:30 on 2026-07-15", .at = 1784122200, .session = regular},
    {.name = "16:00 on 2026-01-15", .at = 1768510800, .session = post},
    // On the days of the clock changes: 2026-03-08 (EST -> EDT) and 2026-11-01 (EDT -> EST).
    {.name = "13:29 UTC, spring change", .at = 1772976540, .session = pre},
    {.name = "13:30 UTC, spring change", .at = 1772976600, .session = regular},
    {.name = "20:59 UTC, autumn change", .at = 1793566740, .session = regular},
    {.name = "21:00 UTC, autumn change", .at = 1793566800, .session = post},
    // 14:00 UTC is 09:00 in winter (pre) but 10:00 in summer (regular).
    {.name = "14:00 UTC in January", .at = 1767276000, .session = pre},
    {.name = "14:00 UTC in July", .at = 1783000800, .session = regular},
    {.name = "11:00 on Saturday 2026-11-21 counts as regular", .at = 1795276800, .session = regular},
};
// clang-format on
} // namespace

class RulesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void noiseAndBadTokens_data() { rows(noise); }
    void noiseAndBadTokens()
    {
        const Noise &r = row(noise);
        const TwToken t{.honeypot = r.honeypot, .drained = r.drained};
        QCOMPARE(SignalRules::signal(buy(5000, r.flags), nullptr, &t).has_value(), r.kept);
    }

    void priority_data() { rows(sizes); }
    void priority() { QCOMPARE(SignalRules::notionalPriority(row(sizes).usd), row(sizes).expected); }

    void fillSignals()
    {
        auto s = SignalRules::signal(buy(250, "pile-in 3", true), nullptr, nullptr);
        QVERIFY(s);
        QCOMPARE(s->priority, 77); // 69 for the size, 5 for a new position, 3 for the pile-in
        QCOMPARE(s->line, (Headline{u"$WIF"_s, u"@kai aped"_s, u"$250.00"_s, u"▲"_s}));
        TwFill f = buy(2000);
        f.side = QStringLiteral("sell");
        f.isStock = true;
        f.symbol = QStringLiteral("NVDAx");
        s = SignalRules::signal(f, nullptr, nullptr);
        QCOMPARE(s->kind, SignalKind::stocks);
        QCOMPARE(s->line, (Headline{u"NVDAx"_s, u"@kai dumped"_s, u"$2.0K"_s, u"▼"_s})); // equity: no "$"
    }

    void pileInCount_data() { rows(pileIns); }
    // A copy of a famous ticker carries a mark wherever its ticker is shown;
    // the symbol itself (what a mute names) stays as sent.
    void lookAlikeTickerIsMarked()
    {
        TwFill fill = buy(5000);
        fill.symbol = u"P\u0415PE"_s; // a Cyrillic E
        const auto s = SignalRules::signal(fill, nullptr, nullptr);
        QVERIFY(s && s->asset);
        QVERIFY(s->asset->lookAlike);
        QCOMPARE(s->asset->symbol, fill.symbol);
        QCOMPARE(s->line.ticker, u"$P\u0415PE\u2009\u26A0"_s);
        QVERIFY(s->line.text().startsWith(s->line.ticker));
        fill.isStock = true;
        QCOMPARE(SignalRules::signal(fill, nullptr, nullptr)->line.ticker, u"P\u0415PE\u2009\u26A0"_s);
        const auto plain = SignalRules::signal(buy(5000), nullptr, nullptr);
        QVERIFY(!plain->asset->lookAlike);
        QCOMPARE(plain->line.ticker, u"$WIF"_s);
        TwRadar radar{.token = u"M"_s, .symbol = u"\uFF37IF"_s, .buyers = 3, .firstTs = 1700000000};
        const auto spike = SignalRules::signal(radar, 1700000060);
        QVERIFY(spike && spike->asset->lookAlike && spike->line.ticker.endsWith(u"\u26A0"_s));
    }

    void pileInCount()
    {
        const PileIn &r = row(pileIns);
        QCOMPARE(SignalRules::pileInCount(buy(1, r.flags)), r.count);
        QCOMPARE(SignalRules::signal(buy(1, r.flags), nullptr, nullptr)->priority, r.priority);
    }

    void detailSentence_data() { rows(details); }
    void detailSentence()
    {
        const Detail &r = row(details);
        TwFill f = buy(100, r.flags);
        f.followers = r.followers;
        const TwTrader t{.wins = 12, .closedTrades = r.closed, .winRate = 0.6};
        const TwTrader *trader = r.closed >= 0 ? &t : nullptr;
        QCOMPARE(SignalRules::detail(f, trader).value_or(QString()), QString::fromUtf8(r.text));
        // The win rate shows only from five closed trades on.
        QCOMPARE(SignalRules::signal(f, trader, nullptr)->wallet->winRate.has_value(), r.closed >= 5);
    }

    void radar_data() { rows(radars); }
    void radar()
    {
        const Radar &r = row(radars);
        const TwRadar radar{.token = QStringLiteral("M"), .symbol = QStringLiteral("POP"), .buyers = r.buyers,
                            .liquidity = r.liquidity, .firstTs = r.at, .usdIn = r.usd,
                            .poolAge = 7200};
        const auto s = SignalRules::signal(radar, 0);
        QCOMPARE(s ? s->priority : -1, r.priority);
        if (!s)
            return;
        QCOMPARE(s->id, QLatin1String(r.id));
        QCOMPARE(s->line.tag, std::optional(QStringLiteral("×") + QString::number(r.buyers)));
        QCOMPARE(s->line.figure.has_value(), r.usd.has_value());
        QCOMPARE(s->expiresAt - s->createdAt, 1200.0);
        QVERIFY(!s->wallet);
        if (r.text)
            QCOMPARE(s->detail, std::optional(QString::fromUtf8(r.text)));
    }

    void walletProfile_data() { rows(profiles); }
    void walletProfile()
    {
        const Profile &r = row(profiles);
        const auto bag = [](const char *symbol, OptDouble opened, OptDouble pnl, OptDouble age) {
            return TwTraderDetail::Bag{QLatin1String(symbol), {}, 100, opened, pnl, age};
        };
        // Undated bags are left out; the four most recently opened are listed.
        const TwTraderDetail d{.address = QStringLiteral("A"), .handle = QStringLiteral("kai"),
                               .bags = {bag("E", 500, {}, 600), bag("A", 100, 10, 60), bag("X", {}, 1, 1),
                                        bag("C", 300, -5, 1800), bag("B", 200, {}, 120),
                                        bag("D", 400, 50, {})},
                               .numTrades = r.trades};
        const TwTrader t{.fills = 77, .closedTrades = r.closed, .openCost = 1000, .unrealizedPnl = -250,
                         .winRate = 0.62};
        const WalletProfile w = SignalRules::walletProfile(d, r.closed >= 0 ? &t : nullptr);
        QCOMPARE(w.label, std::optional(QStringLiteral("@kai")));
        QCOMPARE(w.winRate, r.winRate);
        QCOMPARE(w.tradeCount, r.count);
        QCOMPARE(w.pnlRatio, r.pnl);
        QCOMPARE(w.medianHoldMinutes, OptInt(10)); // of 1, 2, 10 and 30 minutes
        QCOMPARE(w.recentTrades.size(), 4);
        QCOMPARE(w.recentTrades[0].tokenSymbol, QStringLiteral("E"));
        QCOMPARE(w.recentTrades[3].tokenSymbol, QStringLiteral("B"));
        QCOMPARE(w.recentTrades[2].pnlRatio, std::optional(-0.05)); // the bag's -5 is a percent
    }

    void marketSession_data() { rows(sessions); }
    void marketSession() { QCOMPARE(SignalRules::marketSession(row(sessions).at), row(sessions).session); }
};

QTEST_APPLESS_MAIN(RulesTest)
#include "tst_rules.moc"
