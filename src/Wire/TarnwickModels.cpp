#include "Wire/TarnwickModels.h"

#include "Support/WireText.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {
// No trade, price, pool or balance comes near these; a value past them is as
// malformed as a wrong type. Market caps of large equities reach trillions.
constexpr double maxMoney = 1e12;
constexpr double maxMarketCap = 1e15;

// One reader per record: the first required key that fails marks the record
// failed, and the caller drops it.
class Reader {
public:
    explicit Reader(const QJsonObject &o) : o_(o) {}
    bool ok() const { return ok_; }

    QString str(QLatin1String key)
    {
        const QJsonValue v = o_.value(key);
        if (!v.isString()) {
            ok_ = false;
            return {};
        }
        return text(v);
    }
    std::optional<QString> optStr(QLatin1String key)
    {
        const QJsonValue v = o_.value(key);
        if (v.isUndefined() || v.isNull())
            return std::nullopt;
        if (!v.isString()) {
            ok_ = false;
            return std::nullopt;
        }
        return text(v);
    }
    double num(QLatin1String key)
    {
        const auto v = optNum(key);
        if (!v)
            ok_ = false;
        return v.value_or(0);
    }
    std::optional<double> optNum(QLatin1String key)
    {
        const QJsonValue v = o_.value(key);
        if (v.isUndefined() || v.isNull())
            return std::nullopt;
        if (!v.isDouble()) {
            ok_ = false;
            return std::nullopt;
        }
        return v.toDouble();
    }
    // An amount, a price or a size in dollars: below zero or beyond `limit`
    // it fails the record (no trade, price or pool is negative).
    std::optional<double> optMoney(QLatin1String key, double limit = maxMoney)
    {
        const auto v = optNum(key);
        if (v && !(*v >= 0 && *v <= limit)) {
            ok_ = false;
            return std::nullopt;
        }
        return v;
    }
    // A profit or a loss: either sign, bounded like an amount.
    std::optional<double> optPnl(QLatin1String key)
    {
        const auto v = optNum(key);
        if (v && !(std::fabs(*v) <= maxMoney)) {
            ok_ = false;
            return std::nullopt;
        }
        return v;
    }
    qint64 integer(QLatin1String key)
    {
        const auto v = optInteger(key);
        if (!v)
            ok_ = false;
        return v.value_or(0);
    }
    std::optional<qint64> optInteger(QLatin1String key)
    {
        const QJsonValue v = o_.value(key);
        if (v.isUndefined() || v.isNull())
            return std::nullopt;
        const auto i = exactInteger(v);
        if (!i)
            ok_ = false;
        return i;
    }
    // Strict: only true or false.
    std::optional<bool> optBool(QLatin1String key)
    {
        const QJsonValue v = o_.value(key);
        if (v.isUndefined() || v.isNull())
            return std::nullopt;
        if (!v.isBool()) {
            ok_ = false;
            return std::nullopt;
        }
        return v.toBool();
    }
    // Lenient: a boolean, else an integer that is non-zero; anything else is
    // false and never fails the record (the service sends either form).
    bool lenientBool(QLatin1String key) const
    {
        const QJsonValue v = o_.value(key);
        if (v.isBool())
            return v.toBool();
        if (const auto i = exactInteger(v))
            return *i != 0;
        return false;
    }
    QList<QString> strings(QLatin1String key)
    {
        const QJsonValue v = o_.value(key);
        if (v.isUndefined() || v.isNull())
            return {};
        if (!v.isArray()) {
            ok_ = false;
            return {};
        }
        QList<QString> out;
        const QJsonArray a = v.toArray();
        out.reserve(a.size());
        for (const QJsonValue &e : a) {
            if (!e.isString()) {
                ok_ = false;
                return {};
            }
            out.append(text(e));
        }
        return out;
    }

    // Qt keeps integers that fit 64 bits exactly; a fraction or a value out of
    // range is not an Int.
    static std::optional<qint64> exactInteger(const QJsonValue &v)
    {
        if (!v.isDouble())
            return std::nullopt;
        const qint64 a = v.toInteger(0), b = v.toInteger(1);
        if (a != b)
            return std::nullopt;
        return a;
    }

private:
    // Wire text as it may be shown: control and bidirectional formatting
    // characters gone; a text longer than any real field fails the record.
    QString text(const QJsonValue &v)
    {
        QString t = v.toString();
        if (t.size() > WireText::maxLength) {
            ok_ = false;
            return {};
        }
        return WireText::clean(std::move(t));
    }

    const QJsonObject &o_;
    bool ok_ = true;
};

template <typename T, typename F> std::optional<QList<T>> listOf(const QJsonValue &v, F decode)
{
    if (!v.isArray())
        return std::nullopt;
    const QJsonArray a = v.toArray();
    QList<T> out;
    out.reserve(a.size());
    for (const QJsonValue &e : a) {
        auto item = decode(e);
        if (!item)
            return std::nullopt; // one bad element fails the whole list
        out.append(std::move(*item));
    }
    return out;
}

// Fills stand alone: a bad one (an id past 64 bits, a missing key) is
// dropped and counted, and the others of its frame or answer go on.
std::optional<QList<TwFill>> eachFill(const QJsonValue &v, int *dropped)
{
    if (!v.isArray())
        return std::nullopt;
    const QJsonArray a = v.toArray();
    QList<TwFill> out;
    out.reserve(a.size());
    int bad = 0;
    for (const QJsonValue &e : a) {
        if (auto f = TwDecode::fill(e))
            out.append(std::move(*f));
        else
            ++bad;
    }
    if (dropped)
        *dropped = bad;
    return out;
}

std::optional<QJsonValue> parse(const QByteArray &body)
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        return std::nullopt;
    if (doc.isArray())
        return QJsonValue(doc.array());
    if (doc.isObject())
        return QJsonValue(doc.object());
    return std::nullopt;
}

std::optional<TwTraderDetail::Bag> bag(const QJsonValue &v)
{
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Reader r(o);
    TwTraderDetail::Bag b;
    b.symbol = r.str(QLatin1String("symbol"));
    b.value = r.optMoney(QLatin1String("value"));
    b.costUsd = r.optMoney(QLatin1String("cost_usd"));
    b.openedTs = r.optNum(QLatin1String("opened_ts"));
    b.pnlPct = r.optNum(QLatin1String("pnl_pct"));
    b.ageSeconds = r.optNum(QLatin1String("age_seconds"));
    return r.ok() ? std::optional(b) : std::nullopt;
}
} // namespace

namespace TwDecode {

std::optional<TwFill> fill(const QJsonValue &v)
{
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Reader r(o);
    TwFill f;
    f.id = r.integer(QLatin1String("id"));
    f.ts = r.num(QLatin1String("ts"));
    f.side = r.str(QLatin1String("side"));
    f.usd = r.optMoney(QLatin1String("usd")).value_or(0);
    f.price = r.optMoney(QLatin1String("price"));
    f.handle = r.str(QLatin1String("handle"));
    if (const QString sent = o.value(QLatin1String("handle")).toString(); r.ok() && sent != f.handle)
        f.handleSent = sent;
    f.followers = r.optInteger(QLatin1String("followers"));
    f.wallet = r.str(QLatin1String("wallet"));
    f.token = r.str(QLatin1String("token"));
    f.symbol = r.str(QLatin1String("symbol"));
    f.name = r.optStr(QLatin1String("name"));
    f.isStock = r.lenientBool(QLatin1String("is_stock"));
    f.newPosition = r.lenientBool(QLatin1String("new_position"));
    f.flags = r.strings(QLatin1String("flags"));
    f.mark = r.optMoney(QLatin1String("mark"));
    f.liquidity = r.optMoney(QLatin1String("liquidity"));
    f.mcap = r.optMoney(QLatin1String("mcap"), maxMarketCap);
    f.pairURL = r.optStr(QLatin1String("pair_url"));
    return r.ok() ? std::optional(std::move(f)) : std::nullopt;
}

std::optional<TwRadar> radar(const QJsonValue &v)
{
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Reader r(o);
    TwRadar x;
    x.token = r.str(QLatin1String("token"));
    x.symbol = r.str(QLatin1String("symbol"));
    x.buyers = r.optInteger(QLatin1String("buyers")).value_or(0);
    x.liquidity = r.optMoney(QLatin1String("liquidity"));
    x.change24 = r.optNum(QLatin1String("change24"));
    x.isStock = r.lenientBool(QLatin1String("is_stock"));
    x.firstTs = r.num(QLatin1String("first_ts"));
    x.usdIn = r.optMoney(QLatin1String("usd_in"));
    x.pairURL = r.optStr(QLatin1String("pair_url"));
    x.poolAge = r.optNum(QLatin1String("pool_age"));
    return r.ok() ? std::optional(std::move(x)) : std::nullopt;
}

std::optional<TwToken> token(const QJsonValue &v)
{
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Reader r(o);
    TwToken t;
    t.token = r.str(QLatin1String("token"));
    t.symbol = r.str(QLatin1String("symbol"));
    t.name = r.optStr(QLatin1String("name"));
    t.mark = r.optMoney(QLatin1String("mark"));
    t.liquidity = r.optMoney(QLatin1String("liquidity"));
    t.mcap = r.optMoney(QLatin1String("mcap"), maxMarketCap);
    t.holders = r.optInteger(QLatin1String("holders"));
    t.honeypot = r.optBool(QLatin1String("honeypot"));
    t.drained = r.optBool(QLatin1String("drained"));
    t.change24 = r.optNum(QLatin1String("change24"));
    t.volume24 = r.optMoney(QLatin1String("volume24"));
    t.pairURL = r.optStr(QLatin1String("pair_url"));
    t.pairCreatedAt = r.optNum(QLatin1String("pair_created_at"));
    t.buys24 = r.optInteger(QLatin1String("buys24"));
    t.sells24 = r.optInteger(QLatin1String("sells24"));
    return r.ok() ? std::optional(std::move(t)) : std::nullopt;
}

std::optional<TwTrader> trader(const QJsonValue &v)
{
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Reader r(o);
    TwTrader t;
    t.address = r.str(QLatin1String("address"));
    t.handle = r.str(QLatin1String("handle"));
    t.followers = r.optInteger(QLatin1String("followers"));
    t.fills = r.optInteger(QLatin1String("fills"));
    t.wins = r.optInteger(QLatin1String("wins"));
    t.profileURL = r.optStr(QLatin1String("profile_url"));
    t.realizedPnl = r.optPnl(QLatin1String("realized_pnl"));
    t.closedTrades = r.optInteger(QLatin1String("closed_trades"));
    t.openCost = r.optMoney(QLatin1String("open_cost"));
    t.unrealizedPnl = r.optPnl(QLatin1String("unrealized_pnl"));
    t.winRate = r.optNum(QLatin1String("win_rate"));
    return r.ok() ? std::optional(std::move(t)) : std::nullopt;
}

std::optional<TwTraderDetail> traderDetail(const QJsonValue &v)
{
    if (!v.isObject())
        return std::nullopt;
    const QJsonObject o = v.toObject();
    Reader r(o);
    TwTraderDetail d;
    d.address = r.str(QLatin1String("address"));
    d.handle = r.str(QLatin1String("handle"));
    d.followers = r.optInteger(QLatin1String("followers"));
    const QJsonValue bags = o.value(QLatin1String("bags"));
    if (!bags.isUndefined() && !bags.isNull()) {
        auto list = listOf<TwTraderDetail::Bag>(bags, bag);
        if (!list)
            return std::nullopt;
        d.bags = std::move(*list);
    }
    d.numTrades = r.optInteger(QLatin1String("num_trades"));
    d.profileURL = r.optStr(QLatin1String("profile_url"));
    return r.ok() ? std::optional(std::move(d)) : std::nullopt;
}

std::optional<QList<TwFill>> fills(const QByteArray &body, int *dropped)
{
    if (dropped)
        *dropped = 0;
    const auto v = parse(body);
    return v ? eachFill(*v, dropped) : std::nullopt;
}

std::optional<QList<TwRadar>> radars(const QByteArray &body)
{
    const auto v = parse(body);
    return v ? listOf<TwRadar>(*v, [](const QJsonValue &e) { return radar(e); }) : std::nullopt;
}

std::optional<QList<TwToken>> tokens(const QByteArray &body)
{
    const auto v = parse(body);
    return v ? listOf<TwToken>(*v, [](const QJsonValue &e) { return token(e); }) : std::nullopt;
}

std::optional<QList<TwTrader>> traders(const QByteArray &body)
{
    const auto v = parse(body);
    return v ? listOf<TwTrader>(*v, [](const QJsonValue &e) { return trader(e); }) : std::nullopt;
}

std::optional<TwTraderDetail> traderDetail(const QByteArray &body)
{
    const auto v = parse(body);
    return v ? traderDetail(*v) : std::nullopt;
}

std::optional<TwSocketFrame> socketFrame(const QByteArray &bytes)
{
    const auto v = parse(bytes);
    if (!v || !v->isObject())
        return std::nullopt;
    const QJsonObject o = v->toObject();
    const QJsonValue type = o.value(QLatin1String("type"));
    if (!type.isString())
        return std::nullopt;
    TwSocketFrame frame;
    frame.type = type.toString();
    // Only a "fills" frame's data is read; data that is not a list is
    // swallowed whole, a bad fill in the list only by itself.
    if (frame.type == QLatin1String("fills"))
        frame.data = eachFill(o.value(QLatin1String("data")), &frame.droppedFills);
    return frame;
}

} // namespace TwDecode
