#include "Wire/SignalRules.h"

#include "Support/WireText.h"

#include "Model/Clock.h"
#include "Support/Format.h"
#include "Support/Log.h"

#include <QDateTime>
#include <QTimeZone>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
const QLatin1String pileInPrefix("pile-in ");

bool startsWith(const QString &flag, const char *prefix)
{
    return flag.startsWith(QLatin1String(prefix));
}

QString dollarTicker(const QString &symbol, bool isStock)
{
    return isStock ? symbol : QLatin1Char('$') + symbol;
}

// Whole-number rounding, half away from zero, as the priorities require.
int roundedInt(double v)
{
    return int(std::round(v));
}
} // namespace

namespace SignalRules {
// A link from the wire is kept only when a browser may be sent to it.
std::optional<QUrl> webLink(const std::optional<QString> &text)
{
    if (!text || text->size() > 2048)
        return std::nullopt;
    const QUrl url(*text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return std::nullopt;
    return url;
}

QString shownTicker(const QString &symbol, bool isStock)
{
    const QString ticker = dollarTicker(symbol, isStock);
    return WireText::isLookAlike(symbol) ? ticker + QString::fromUtf16(lookAlikeMark) : ticker;
}

bool isNoise(const TwFill &fill)
{
    return std::any_of(fill.flags.begin(), fill.flags.end(), [](const QString &flag) {
        return startsWith(flag, "not a real buy") || startsWith(flag, "pool drained");
    });
}

qint64 pileInCount(const TwFill &fill)
{
    for (const QString &flag : fill.flags) {
        if (!flag.startsWith(pileInPrefix))
            continue;
        // Only the first such flag counts, even when it does not parse.
        const QString rest = flag.mid(pileInPrefix.size());
        qsizetype i = 0;
        if (i < rest.size() && (rest[i] == QLatin1Char('+') || rest[i] == QLatin1Char('-')))
            ++i;
        if (i == rest.size())
            return 0;
        for (qsizetype j = i; j < rest.size(); ++j)
            if (rest[j] < QLatin1Char('0') || rest[j] > QLatin1Char('9'))
                return 0;
        bool ok = false;
        const qint64 n = rest.toLongLong(&ok);
        return ok ? n : 0;
    }
    return 0;
}

int notionalPriority(double usd)
{
    // A dollar or less (and a NaN) is the floor; anything from 10^(55/12) up,
    // infinity included, is the cap, so the int conversion always fits.
    if (!(usd > 1))
        return 40;
    const double steps = std::log10(usd) * 12;
    if (steps >= 55)
        return 95;
    return std::min(40 + roundedInt(steps), 95);
}

Headline headline(const TwFill &fill)
{
    Headline h;
    h.ticker = shownTicker(fill.symbol, fill.isStock);
    const bool buy = fill.side == QLatin1String("buy");
    const QString verb = buy ? (fill.newPosition ? QStringLiteral("aped") : QStringLiteral("added"))
                             : QStringLiteral("dumped");
    h.body = QLatin1Char('@') + fill.handle + QLatin1Char(' ') + verb;
    h.figure = Format::usd(fill.usd);
    h.tag = buy ? QStringLiteral("▲") : QStringLiteral("▼");
    return h;
}

std::optional<QString> detail(const TwFill &fill, const TwTrader *trader)
{
    QStringList pieces;
    const qint64 pileIn = pileInCount(fill);
    if (pileIn >= 2)
        pieces << QString::number(pileIn) + QStringLiteral(" tracked wallets in this pool");
    for (const QString &flag : fill.flags) {
        if (flag.startsWith(QLatin1String("pool ")) && flag.endsWith(QLatin1String(" old"))) {
            pieces << flag;
            break;
        }
    }
    if (trader && trader->closedTrades && *trader->closedTrades >= 1 && trader->wins)
        pieces << QString::number(*trader->wins) + QStringLiteral(" of ") +
                      QString::number(*trader->closedTrades) + QStringLiteral(" closes green");
    if (fill.followers && *fill.followers >= 1000)
        pieces << QString::number(*fill.followers / 1000) + QStringLiteral("K followers");
    if (pieces.isEmpty())
        return std::nullopt;
    return pieces.join(QStringLiteral(" · ")) + QLatin1Char('.');
}

std::optional<Signal> signal(const TwFill &fill, const TwTrader *trader, const TwToken *token)
{
    if (isNoise(fill))
        return std::nullopt;
    if (token && ((token->honeypot && *token->honeypot) || (token->drained && *token->drained)))
        return std::nullopt;
    Signal s;
    s.id = QStringLiteral("tw-fill-") + QString::number(fill.id);
    s.kind = fill.isStock ? SignalKind::stocks : SignalKind::whale;
    s.line = headline(fill);
    s.detail = detail(fill, trader);
    // The pile-in count comes from the wire and may be anything a 64-bit number
    // holds: saturate instead of overflowing, then keep it in the int field.
    qint64 priority = qint64(notionalPriority(fill.usd)) + (fill.newPosition ? 5 : 0);
    const qint64 pileIn = pileInCount(fill);
    if (pileIn > 0 && priority > std::numeric_limits<qint64>::max() - pileIn)
        priority = std::numeric_limits<qint64>::max();
    else
        priority += pileIn; // the base is at least 40, so a negative count cannot underflow
    s.priority =
        int(std::clamp<qint64>(priority, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    s.createdAt = fill.ts;
    s.expiresAt = fill.ts + 3600;
    s.asset = AssetRef{fill.symbol, fill.token, fill.isStock, WireText::isLookAlike(fill.symbol)};
    WalletRef wallet{fill.wallet, QLatin1Char('@') + fill.handle, std::nullopt, fill.handleSent};
    if (trader && trader->closedTrades && *trader->closedTrades >= 5)
        wallet.winRate = trader->winRate;
    s.wallet = wallet;
    s.notionalUsd = fill.usd;
    s.link = webLink(fill.pairURL);
    return s;
}

std::optional<Signal> signal(const TwRadar &radar, double /*now*/)
{
    if (radar.buyers < 2)
        return std::nullopt;
    if (radar.liquidity && *radar.liquidity <= 0)
        return std::nullopt;
    // The id needs the whole seconds as a 64-bit number (2^63 is exact as a double).
    const double seconds = std::trunc(radar.firstTs);
    if (!std::isfinite(seconds) || seconds >= 9223372036854775808.0 || seconds < -9223372036854775808.0) {
        if (Log::enabledByEnvironment())
            Log::write("Larkpin", QStringLiteral("radar entry for ") + radar.symbol +
                                      QStringLiteral(" has an unusable first_ts; dropped"));
        return std::nullopt;
    }
    Signal s;
    s.createdAt = radar.firstTs;
    s.expiresAt = radar.firstTs + 1200;
    QStringList pieces{QString::number(radar.buyers) + QStringLiteral(" tracked wallets in")};
    if (radar.usdIn)
        pieces << Format::usd(*radar.usdIn);
    if (radar.poolAge)
        pieces << QStringLiteral("pool ") + Format::age(*radar.poolAge) + QStringLiteral(" old");
    s.detail = pieces.join(QStringLiteral(" · ")) + QLatin1Char('.');
    s.id = QStringLiteral("tw-radar-") + radar.token + QLatin1Char('-') + QString::number(qint64(seconds));
    s.kind = SignalKind::spike;
    s.line.ticker = shownTicker(radar.symbol, radar.isStock);
    s.line.body = QString::number(radar.buyers) + QStringLiteral(" wallets piling in");
    if (radar.usdIn)
        s.line.figure = Format::usd(*radar.usdIn);
    s.line.tag = QStringLiteral("×") + QString::number(radar.buyers);
    s.priority = int(std::min<qint64>(std::min<qint64>(radar.buyers, 1000) * 3 + 45, 88));
    s.asset = AssetRef{radar.symbol, radar.token, radar.isStock, WireText::isLookAlike(radar.symbol)};
    s.notionalUsd = radar.usdIn;
    s.link = webLink(radar.pairURL);
    return s;
}

TokenProfile tokenProfile(const TwToken &token, double now)
{
    TokenProfile p;
    p.symbol = token.symbol;
    p.name = token.name;
    p.priceUsd = token.mark;
    if (token.change24)
        p.change24h = *token.change24 / 100.0;
    p.liquidityUsd = token.liquidity;
    p.volume24hUsd = token.volume24;
    p.marketCapUsd = token.mcap;
    p.holders = token.holders;
    p.buys24 = token.buys24;
    p.sells24 = token.sells24;
    if (token.pairCreatedAt)
        p.poolAgeHours = std::max(now - *token.pairCreatedAt, 0.0) / 3600.0;
    return p;
}

WalletProfile walletProfile(const TwTraderDetail &detail, const TwTrader *trader)
{
    WalletProfile w;
    w.address = detail.address;
    w.label = QLatin1Char('@') + detail.handle;
    if (trader) {
        if (trader->closedTrades && *trader->closedTrades >= 5)
            w.winRate = trader->winRate;
        w.realizedPnlUsd = trader->realizedPnl;
        if (trader->openCost && *trader->openCost > 0 && trader->unrealizedPnl)
            w.pnlRatio = *trader->unrealizedPnl / *trader->openCost;
    }
    QList<TwTraderDetail::Bag> bags;
    for (const auto &b : detail.bags)
        if (b.openedTs)
            bags.append(b);
    std::stable_sort(
        bags.begin(), bags.end(),
        [](const TwTraderDetail::Bag &a, const TwTraderDetail::Bag &b) { return *a.openedTs < *b.openedTs; });
    QList<double> holds;
    for (const auto &b : bags)
        if (b.ageSeconds)
            holds.append(*b.ageSeconds / 60.0);
    if (!holds.isEmpty()) {
        std::sort(holds.begin(), holds.end());
        const double median = std::trunc(holds[holds.size() / 2]);
        if (std::isfinite(median) && std::fabs(median) < 9.0e18)
            w.medianHoldMinutes = qint64(median);
    }
    for (qsizetype i = bags.size() - 1; i >= 0 && w.recentTrades.size() < 4; --i) {
        const auto &b = bags[i];
        WalletTrade t;
        t.side = TradeSide::buy;
        t.tokenSymbol = b.symbol;
        t.amountUsd = b.costUsd.value_or(0);
        t.at = *b.openedTs;
        if (b.pnlPct)
            t.pnlRatio = *b.pnlPct / 100.0;
        w.recentTrades.append(t);
    }
    if (detail.numTrades)
        w.tradeCount = detail.numTrades;
    else if (trader)
        w.tradeCount = trader->fills;
    return w;
}

MarketSession marketSession(double at)
{
    static const QTimeZone newYork = [] {
        QTimeZone zone("America/New_York");
        return zone.isValid() ? zone : QTimeZone(0);
    }();
    const QDateTime local = QDateTime::fromMSecsSinceEpoch(qint64(std::floor(at * 1000)), newYork);
    const QTime time = local.time();
    const int m = time.hour() * 60 + time.minute();
    if (m < 570)
        return MarketSession::pre;
    if (m < 960)
        return MarketSession::regular;
    return MarketSession::post;
}

} // namespace SignalRules
