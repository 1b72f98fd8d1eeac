// The inspector's evidence, straight from the records: which body shows,
// and every text of the wallet, token and equity modules and the links.

#include "Panel/Evidence.h"

#include "Table.h"

#include <QTest>

#include <limits>

namespace {
constexpr double now = 1'700'000'000;
const double notANumber = std::numeric_limits<double>::quiet_NaN();
const QString longAddress = QStringLiteral("7xKXtg2CW87d97TXJSDpbD5jBkheTqA83TZRuJosgAsU");

// The named fields of a module joined by "|"; a list field (stats, trades)
// reads as its entries joined by ";", each entry's values joined by " ".
QString fields(const QVariantMap &module, const char *keys)
{
    QStringList out;
    for (const QString &key : QString::fromLatin1(keys).split(QLatin1Char(' '))) {
        const QVariant v = module.value(key);
        if (v.typeId() != QMetaType::QVariantList) {
            out << v.toString();
            continue;
        }
        QStringList entries;
        for (const QVariant &entry : v.toList()) {
            const QVariantMap m = entry.toMap();
            QStringList values;
            for (const QString &k : m.keys())
                if (k != QLatin1String("tradeId") && k != QLatin1String("url"))
                    values << m.value(k).toString();
            entries << values.join(QLatin1Char(' '));
        }
        out << entries.join(QLatin1Char(';'));
    }
    return out.join(QLatin1Char('|'));
}

WalletProfile wallet()
{
    // The label is wire text, shown as it came.
    return {longAddress, QStringLiteral("@<b>ansem</b>"), 0.62, -0.042, 182000, 1234, 95, {}};
}

WalletTrade trade(TradeSide side, const char *symbol, double usd, double at, std::optional<double> pnl)
{
    return {side, QString::fromLatin1(symbol), usd, at, pnl};
}

// clang-format off
TokenProfile token()
{
    return {.symbol = QStringLiteral("WIF"), .name = QStringLiteral("dogwifhat"), .priceUsd = 2.3412,
            .change24h = 0.125, .liquidityUsd = 4'200'000, .volume24hUsd = 9'800'000, .holders = 152033,
            .poolAgeHours = 30, .buys24 = 812, .sells24 = 640};
}

// all: every module and the links; otherwise the state alone.
struct Body { const char *name; bool hasDetail, blank, failed; const char *state; bool all; };
const Body bodies[] = {
    {.name = "nothing yet", .hasDetail = false, .blank = false, .failed = false, .state = "loading",
     .all = false},
    {.name = "failed", .hasDetail = false, .blank = false, .failed = true, .state = "failed", .all = false},
    {.name = "details", .hasDetail = true, .blank = false, .failed = false, .state = "details", .all = true},
    {.name = "blank details", .hasDetail = true, .blank = true, .failed = false, .state = "blank",
     .all = false},
    // Evidence once loaded wins over any stale failure mark.
    {.name = "details beat a failure", .hasDetail = true, .blank = false, .failed = true, .state = "details",
     .all = true},
};
// clang-format on
} // namespace

class PanelEvidenceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void modules_data()
    {
        QTest::addColumn<QString>("actual");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QString &actual, const char *expected) {
            QTest::newRow(name) << actual << QString::fromUtf8(expected);
        };

        // clang-format off
        const auto walletText = [](const WalletProfile &p, const char *k) { return fields(Evidence::walletModule(p, now), k); };
        const auto tokenText = [](const TokenProfile &p, const char *k) { return fields(Evidence::tokenModule(p), k); };
        const auto equityText = [](const EquityMove &e, const char *k) { return fields(Evidence::equityModule(e), k); };
        WalletProfile w = wallet();
        row("wallet: a label is the title, the address shortened below", walletText(w, "eyebrow title subtitle"),
            "WALLET|@<b>ansem</b>|7xKX\u2026gAsU");
        row("wallet: stats", walletText(w, "stats"), "WIN RATE 62%;FILLS 1,234;MEDIAN HOLD 1h 35m;REALISED $182.0K");
        row("wallet: unrealised loss", walletText(w, "hasDelta delta deltaNegative deltaNote"),
            "true|-4.2%|true|unrealised, open bags");
        WalletProfile bare{.address = longAddress, .winRate = notANumber, .pnlRatio = notANumber,
                           .realizedPnlUsd = qInf()};
        row("wallet: no label, the address is the title; a broken ratio is no delta",
            walletText(bare, "title subtitle hasDelta delta deltaNegative"), "7xKX\u2026gAsU||false||false");
        row("wallet: missing and broken stats read as dashes", walletText(bare, "stats"),
            "WIN RATE -;FILLS -;MEDIAN HOLD -;REALISED -");
        bare.address = QStringLiteral("123456789012");
        row("wallet: twelve characters stay whole", walletText(bare, "title"), "123456789012");
        bare.address = QStringLiteral("1234567890123");
        row("wallet: thirteen are shortened", walletText(bare, "title"), "1234\u20260123");
        bare.winRate = bare.pnlRatio = 0.0;
        row("wallet: never won is 0%", walletText(bare, "stats").section(QLatin1Char(';'), 0, 0), "WIN RATE 0%");
        row("wallet: flat is no loss", walletText(bare, "delta deltaNegative"), "0.0%|false");
        // Trades: newest first as they came, at most four; keys read in
        // alphabetical order: age amount buy open pnl pnlNegative side symbol.
        w.recentTrades = {trade(TradeSide::buy, "WIF", 45000, now - 300, {}), trade(TradeSide::sell, "BONK", 12000, now - 7200, 0.31),
                          trade(TradeSide::sell, "POPCAT", 800, now - 60, -0.5),
                          trade(TradeSide::buy, "MEW", notANumber, notANumber, notANumber), trade(TradeSide::buy, "FIFTH", 1, now, {})};
        row("wallet: trades", walletText(w, "trades"),
            "5m $45.0K true true open false BUY WIF;2h $12.0K false false +31.0% false SELL BONK;"
            "1m $800.00 false false -50.0% true SELL POPCAT;- - true true open false BUY MEW");
        row("token: price, symbol and name", tokenText(token(), "eyebrow title subtitle"),
            "TOKEN|$2.34|$WIF \u00B7 dogwifhat");
        row("token: stats", tokenText(token(), "stats"),
            "LIQUIDITY $4.20M;24H VOLUME $9.80M;HOLDERS 152,033;POOL AGE 1d 6h");
        row("token: day's change and flow", tokenText(token(), "hasDelta delta deltaNegative flowLine"),
            "true|+12.5%|false|812 buys / 640 sells");
        row("token: nothing but a symbol",
            tokenText({.symbol = QStringLiteral("WIF"), .priceUsd = notANumber, .sells24 = 3}, "title subtitle hasDelta stats flowLine"),
            "-|$WIF|false|LIQUIDITY -;24H VOLUME -;HOLDERS -;POOL AGE -|- buys / 3 sells");
        row("equity",
            equityText({QStringLiteral("TSLA"), MarketSession::post, -0.021, 251.5}, "eyebrow title subtitle delta deltaNegative session"),
            "EQUITY|$251.50|TSLA|-2.1%|true|After hours");
        row("equity: no price, no change", equityText({QStringLiteral("NVDA"), MarketSession::regular, {}, {}}, "title hasDelta"),
            "-|false");
        // clang-format on

        // Only web addresses are offered, encoded as they came.
        const auto links = [](const char *chart, const char *profile) {
            const auto url = [](const char *s) {
                return s ? std::optional(QUrl(QString::fromLatin1(s))) : std::nullopt;
            };
            QStringList out;
            for (const QVariant &link : Evidence::links({url(chart), url(profile)}))
                out << link.toMap().value(QStringLiteral("title")).toString() + QLatin1Char('=') +
                           link.toMap().value(QStringLiteral("url")).toString();
            return out.join(QLatin1Char(';'));
        };
        // clang-format off
        row("links: both", links("https://a.example/c", "http://a.example/p"),
            "CHART=https://a.example/c;WALLET=http://a.example/p");
        row("links: a script is dropped", links("https://a.example/c", "javascript:alert(1)"),
            "CHART=https://a.example/c");
        row("links: escapes kept", links("https://a.example/a%20b", nullptr), "CHART=https://a.example/a%20b");
        // clang-format on
    }
    void modules()
    {
        QFETCH(QString, actual);
        QFETCH(QString, expected);
        QCOMPARE(actual, expected);
    }

    // Which body the inspector shows, and that only evidence with something
    // in it brings its modules and links.
    void inspector_data() { rows(bodies); }
    void inspector()
    {
        const auto &[name, hasDetail, blank, failed, state, all] = row(bodies);
        const QStringList keys =
            all ? QStringList{QStringLiteral("equity"), QStringLiteral("links"), QStringLiteral("state"),
                              QStringLiteral("token"), QStringLiteral("wallet")}
                : QStringList{QStringLiteral("state")};
        const QString id = QStringLiteral("tw-fill-9");
        QHash<QString, SignalDetail> details;
        QSet<QString> failures;
        if (hasDetail) {
            SignalDetail d;
            d.signalId = id;
            d.links.chart = QUrl(QStringLiteral("https://a.example/c"));
            if (!blank) {
                d.wallet = wallet();
                d.token = token();
                d.equity = EquityMove{QStringLiteral("TSLA"), MarketSession::regular, 0.01, 250};
            }
            details.insert(id, d);
        }
        if (failed)
            failures.insert(id);
        const QVariantMap info = Evidence::inspector(id, details, failures, now);
        QCOMPARE(info.value(QStringLiteral("state")).toString(), QLatin1String(state));
        QCOMPARE(info.keys(), keys);
        if (info.contains(QStringLiteral("wallet")))
            QCOMPARE(info.value(QStringLiteral("wallet")).toMap(), Evidence::walletModule(wallet(), now));
        // Another signal's evidence says nothing about this one.
        QCOMPARE(
            Evidence::inspector(QStringLiteral("other"), details, {}, now).value(QStringLiteral("state")),
            QVariant(QStringLiteral("loading")));
    }
};

QTEST_GUILESS_MAIN(PanelEvidenceTest)
#include "tst_panel_evidence.moc"
