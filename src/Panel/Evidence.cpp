#include "Panel/Evidence.h"

#include "Panel/PanelText.h"
#include "Support/Format.h"

#include <cmath>
#include <type_traits>

namespace {
QVariantMap stat(const QString &label, const std::optional<QString> &value)
{
    return {{QStringLiteral("label"), label}, {QStringLiteral("value"), value.value_or(PanelText::dash())}};
}

// The text of a value the wire may have left out; a NaN counts as left out.
template <typename T, typename F> std::optional<QString> fmt(const std::optional<T> &v, F f)
{
    if (!v)
        return std::nullopt;
    if constexpr (std::is_floating_point_v<T>) {
        if (!std::isfinite(double(*v)))
            return std::nullopt;
    }
    return QString(f(*v));
}

QVariantMap delta(const std::optional<double> &ratio)
{
    QVariantMap m;
    const bool present = ratio && std::isfinite(*ratio);
    m[QStringLiteral("hasDelta")] = present;
    m[QStringLiteral("delta")] = present ? Format::signedPercent(*ratio, 1) : QString();
    m[QStringLiteral("deltaNegative")] = present && *ratio < 0;
    return m;
}

void merge(QVariantMap &into, const QVariantMap &from)
{
    for (auto it = from.cbegin(); it != from.cend(); ++it)
        into.insert(it.key(), it.value());
}

QVariantMap tradeRow(const WalletTrade &t, double now)
{
    QVariantMap row;
    row[QStringLiteral("tradeId")] = t.id();
    row[QStringLiteral("side")] = PanelText::sideText(t.side);
    row[QStringLiteral("buy")] = t.side == TradeSide::buy;
    row[QStringLiteral("symbol")] = t.tokenSymbol;
    row[QStringLiteral("amount")] = std::isfinite(t.amountUsd) ? Format::usd(t.amountUsd) : PanelText::dash();
    row[QStringLiteral("age")] = std::isfinite(t.at) ? Format::relative(t.at, now) : PanelText::dash();
    // A bag still held has no result yet.
    const bool hasPnl = t.pnlRatio && std::isfinite(*t.pnlRatio);
    row[QStringLiteral("open")] = !hasPnl;
    row[QStringLiteral("pnl")] = hasPnl ? Format::signedPercent(*t.pnlRatio, 1) : QStringLiteral("open");
    row[QStringLiteral("pnlNegative")] = hasPnl && *t.pnlRatio < 0;
    return row;
}
} // namespace

namespace Evidence {

QString shortAddress(const QString &address)
{
    if (address.size() <= 12)
        return address;
    return address.left(4) + QStringLiteral("\u2026") + address.right(4);
}

QVariantMap walletModule(const WalletProfile &w, double now)
{
    QVariantMap m;
    m[QStringLiteral("eyebrow")] = QStringLiteral("WALLET");
    m[QStringLiteral("title")] = w.label.value_or(shortAddress(w.address));
    m[QStringLiteral("subtitle")] = w.label ? shortAddress(w.address) : QString();
    m[QStringLiteral("stats")] = QVariantList{
        stat(QStringLiteral("WIN RATE"),
             fmt(w.winRate,
                 [](double r) -> QString { return Format::fixed(r * 100, 0) + QStringLiteral("%"); })),
        stat(QStringLiteral("FILLS"),
             fmt(w.tradeCount, [](qint64 n) -> QString { return Format::count(n); })),
        stat(QStringLiteral("MEDIAN HOLD"),
             fmt(w.medianHoldMinutes, [](qint64 n) -> QString { return Format::duration(double(n)); })),
        stat(QStringLiteral("REALISED"),
             fmt(w.realizedPnlUsd, [](double v) -> QString { return Format::usd(v); })),
    };
    merge(m, delta(w.pnlRatio));
    m[QStringLiteral("deltaNote")] = QStringLiteral("unrealised, open bags");
    QVariantList trades;
    for (const WalletTrade &t : w.recentTrades) {
        if (trades.size() == maxTrades)
            break;
        trades << tradeRow(t, now);
    }
    m[QStringLiteral("trades")] = trades;
    return m;
}

QVariantMap tokenModule(const TokenProfile &t)
{
    QVariantMap m;
    m[QStringLiteral("eyebrow")] = QStringLiteral("TOKEN");
    m[QStringLiteral("title")] =
        fmt(t.priceUsd, [](double p) -> QString { return Format::price(p); }).value_or(PanelText::dash());
    QString subtitle = QStringLiteral("$") + t.symbol;
    if (t.name)
        subtitle += QStringLiteral(" \u00B7 ") + *t.name;
    m[QStringLiteral("subtitle")] = subtitle;
    merge(m, delta(t.change24h));
    m[QStringLiteral("stats")] = QVariantList{
        stat(QStringLiteral("LIQUIDITY"),
             fmt(t.liquidityUsd, [](double v) -> QString { return Format::usd(v); })),
        stat(QStringLiteral("24H VOLUME"),
             fmt(t.volume24hUsd, [](double v) -> QString { return Format::usd(v); })),
        stat(QStringLiteral("HOLDERS"), fmt(t.holders, [](qint64 n) -> QString { return Format::count(n); })),
        stat(QStringLiteral("POOL AGE"),
             fmt(t.poolAgeHours, [](double h) -> QString { return Format::duration(h * 60); })),
    };
    m[QStringLiteral("flowLine")] = PanelText::buysSellsText(t.buys24, t.sells24);
    return m;
}

QVariantMap equityModule(const EquityMove &e)
{
    QVariantMap m;
    m[QStringLiteral("eyebrow")] = QStringLiteral("EQUITY");
    m[QStringLiteral("title")] =
        fmt(e.lastPrice, [](double p) -> QString { return Format::price(p); }).value_or(PanelText::dash());
    m[QStringLiteral("subtitle")] = e.ticker;
    merge(m, delta(e.change));
    m[QStringLiteral("session")] = PanelText::sessionText(e.session);
    return m;
}

QString openableUrl(const std::optional<QUrl> &url)
{
    if (!url || !PanelText::isOpenableUrl(*url))
        return {};
    // Encoded as it came: a decoded form ("%20" as a space) would fail the
    // strict parse that stands before the opener.
    return url->toString(QUrl::FullyEncoded);
}

QVariantList links(const SignalLinks &l)
{
    QVariantList out;
    const auto add = [&out](const QString &title, const QString &url) {
        if (!url.isEmpty())
            out << QVariantMap{{QStringLiteral("title"), title}, {QStringLiteral("url"), url}};
    };
    add(QStringLiteral("CHART"), openableUrl(l.chart));
    add(QStringLiteral("WALLET"), openableUrl(l.profile));
    return out;
}

QVariantMap inspector(const QString &id, const QHash<QString, SignalDetail> &details,
                      const QSet<QString> &failed, double now)
{
    QVariantMap out;
    const auto state = PanelText::inspectorState(id, details, failed);
    out[QStringLiteral("state")] = PanelText::inspectorStateName(state);
    if (state != PanelText::InspectorState::details)
        return out;
    const SignalDetail d = details.value(id);
    if (d.wallet)
        out[QStringLiteral("wallet")] = walletModule(*d.wallet, now);
    if (d.token)
        out[QStringLiteral("token")] = tokenModule(*d.token);
    if (d.equity)
        out[QStringLiteral("equity")] = equityModule(*d.equity);
    out[QStringLiteral("links")] = links(d.links);
    return out;
}

} // namespace Evidence
