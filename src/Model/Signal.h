#pragma once
// The value types every layer passes around. Plain structs, compared field by
// field; no behaviour beyond a few computed texts.

#include <QList>
#include <QString>
#include <QUrl>

#include <array>
#include <cstdint>
#include <optional>

enum class SignalKind { whale, spike, stocks };

namespace SignalKinds {
inline constexpr std::array<SignalKind, 3> allCases{SignalKind::whale, SignalKind::spike, SignalKind::stocks};
QString rawValue(SignalKind kind);
std::optional<SignalKind> fromRaw(const QString &raw);
// "WHALE", "SPIKE", "STOCK": the short upper-case label used in logs, menus and chips.
QString label(SignalKind kind);
} // namespace SignalKinds

enum class TradeSide { buy, sell };
namespace TradeSides {
QString rawValue(TradeSide side);
std::optional<TradeSide> fromRaw(const QString &raw);
} // namespace TradeSides

enum class MarketSession { pre, regular, post };
namespace MarketSessions {
QString rawValue(MarketSession session);
std::optional<MarketSession> fromRaw(const QString &raw);
} // namespace MarketSessions

// Which stream the panel shows: everything, or one kind.
struct FeedFilter {
    std::optional<SignalKind> kind; // absent means "all"

    static FeedFilter all() { return {}; }
    static FeedFilter of(SignalKind k) { return FeedFilter{k}; }
    bool isAll() const { return !kind.has_value(); }
    bool matches(SignalKind k) const { return !kind || *kind == k; }
    bool operator==(const FeedFilter &) const = default;

    static const std::array<FeedFilter, 4> &allCases();
};

struct Headline {
    QString ticker;
    QString body;
    std::optional<QString> figure;
    std::optional<QString> tag;

    // ticker · body [figure]; the tag never takes part.
    QString text() const;
    bool operator==(const Headline &) const = default;
};

struct AssetRef {
    QString symbol;
    std::optional<QString> address;
    bool isStock = false;
    bool lookAlike = false; // the symbol may pass for another (mixed scripts, confusable letters)
    bool operator==(const AssetRef &) const = default;
};

struct WalletRef {
    QString address;
    std::optional<QString> label;
    std::optional<double> winRate;
    // The handle as the service sent it, when that differs from the label's
    // cleaned text: what a lookup of the wallet must ask for.
    QString handleSent;
    bool operator==(const WalletRef &) const = default;
};

struct Signal {
    QString id;
    SignalKind kind = SignalKind::whale;
    Headline line;
    std::optional<QString> detail;
    int priority = 0;
    double createdAt = 0; // seconds since 1970, when it happened on the wire
    double expiresAt = 0;
    std::optional<AssetRef> asset;
    std::optional<WalletRef> wallet;
    std::optional<double> notionalUsd;
    // The pair's chart as the record itself names it (every fill and pile-in
    // carries one); http(s) only. Evidence loaded later may name a better one.
    std::optional<QUrl> link;
    bool operator==(const Signal &) const = default;
};

struct WalletTrade {
    TradeSide side = TradeSide::buy;
    QString tokenSymbol;
    double amountUsd = 0;
    double at = 0;
    std::optional<double> pnlRatio;

    // symbol-<seconds in the shortest exact form, always with a point>
    QString id() const;
    bool operator==(const WalletTrade &) const = default;
};

struct WalletProfile {
    QString address;
    std::optional<QString> label;
    std::optional<double> winRate;
    std::optional<double> pnlRatio;
    std::optional<double> realizedPnlUsd;
    std::optional<qint64> tradeCount;
    std::optional<qint64> medianHoldMinutes;
    QList<WalletTrade> recentTrades; // newest first
    bool operator==(const WalletProfile &) const = default;
};

struct TokenProfile {
    QString symbol;
    std::optional<QString> name;
    std::optional<double> priceUsd;
    std::optional<double> change24h; // fraction
    std::optional<double> liquidityUsd;
    std::optional<double> volume24hUsd;
    std::optional<double> marketCapUsd;
    std::optional<qint64> holders;
    std::optional<double> poolAgeHours;
    std::optional<qint64> buys24;
    std::optional<qint64> sells24;
    bool operator==(const TokenProfile &) const = default;
};

struct EquityMove {
    QString ticker;
    MarketSession session = MarketSession::regular;
    std::optional<double> change;
    std::optional<double> lastPrice;
    bool operator==(const EquityMove &) const = default;
};

struct SignalLinks {
    std::optional<QUrl> chart;
    std::optional<QUrl> profile;
    bool operator==(const SignalLinks &) const = default;
};

struct SignalDetail {
    QString signalId;
    double fetchedAt = 0;
    std::optional<WalletProfile> wallet;
    std::optional<TokenProfile> token;
    std::optional<EquityMove> equity;
    SignalLinks links;

    bool isBlank() const { return !wallet && !token && !equity; }
    bool operator==(const SignalDetail &) const = default;
};

// Shortest text that reads back to exactly this double, always with a point
// ("1700000000.0", "12.5"). Shared by WalletTrade::id and log lines.
QString shortestExactText(double value);
