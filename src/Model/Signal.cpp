#include "Model/Signal.h"

#include <charconv>
#include <cmath>

namespace SignalKinds {
QString rawValue(SignalKind kind)
{
    switch (kind) {
    case SignalKind::whale: return QStringLiteral("whale");
    case SignalKind::spike: return QStringLiteral("spike");
    case SignalKind::stocks: return QStringLiteral("stocks");
    }
    return {};
}

std::optional<SignalKind> fromRaw(const QString &raw)
{
    for (SignalKind k : allCases)
        if (rawValue(k) == raw)
            return k;
    return std::nullopt;
}

QString label(SignalKind kind)
{
    switch (kind) {
    case SignalKind::whale: return QStringLiteral("WHALE");
    case SignalKind::spike: return QStringLiteral("SPIKE");
    case SignalKind::stocks: return QStringLiteral("STOCK");
    }
    return {};
}
} // namespace SignalKinds

namespace TradeSides {
QString rawValue(TradeSide side)
{
    return side == TradeSide::buy ? QStringLiteral("buy") : QStringLiteral("sell");
}
std::optional<TradeSide> fromRaw(const QString &raw)
{
    if (raw == QLatin1String("buy"))
        return TradeSide::buy;
    if (raw == QLatin1String("sell"))
        return TradeSide::sell;
    return std::nullopt;
}
} // namespace TradeSides

namespace MarketSessions {
QString rawValue(MarketSession session)
{
    switch (session) {
    case MarketSession::pre: return QStringLiteral("pre");
    case MarketSession::regular: return QStringLiteral("regular");
    case MarketSession::post: return QStringLiteral("post");
    }
    return {};
}
std::optional<MarketSession> fromRaw(const QString &raw)
{
    for (MarketSession s : {MarketSession::pre, MarketSession::regular, MarketSession::post})
        if (rawValue(s) == raw)
            return s;
    return std::nullopt;
}
} // namespace MarketSessions

const std::array<FeedFilter, 4> &FeedFilter::allCases()
{
    static const std::array<FeedFilter, 4> cases{FeedFilter::all(), FeedFilter::of(SignalKind::whale),
                                                 FeedFilter::of(SignalKind::spike),
                                                 FeedFilter::of(SignalKind::stocks)};
    return cases;
}

QString Headline::text() const
{
    QString out = ticker + QStringLiteral(" · ") + body;
    if (figure)
        out += QLatin1Char(' ') + *figure;
    return out;
}

QString shortestExactText(double value)
{
    char buf[400];
    // Plain digits across the range where every whole number is exact; an
    // exponent outside it, as a double's own text does.
    const double a = std::fabs(value);
    const bool plain = a == 0 || (a >= 1e-4 && a < 9007199254740992.0);
    auto [end, ec] = plain ? std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed)
                           : std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific);
    if (ec != std::errc())
        return QStringLiteral("nan");
    QString text = QString::fromLatin1(buf, int(end - buf));
    if (!std::isfinite(value))
        return text;
    // to_chars picks the shortest round-tripping form, which may be plain
    // digits ("1700000000") or use an exponent ("1e+22"); either way the id
    // promises a decimal point.
    if (!text.contains(QLatin1Char('.'))) {
        const qsizetype e = text.indexOf(QLatin1Char('e'));
        if (e < 0)
            text += QStringLiteral(".0");
        else
            text.insert(e, QStringLiteral(".0"));
    }
    return text;
}

QString WalletTrade::id() const
{
    return tokenSymbol + QLatin1Char('-') + shortestExactText(at);
}
