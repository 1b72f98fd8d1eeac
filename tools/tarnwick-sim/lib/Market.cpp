#include "Market.h"

#include <QJsonValue>
#include <QSet>

#include <algorithm>
#include <cmath>

namespace tarnwick {

namespace {
constexpr size_t historyLimit = 2000;

const char *const handleParts[] = {"kestrel", "saltmarsh", "vela",   "grebe",  "dune",   "moth",
                                   "ruin",    "halcyon",   "ferro",  "quill",  "ember",  "lumen",
                                   "sable",   "orca",      "wren",   "tidal",  "nadir",  "cinder",
                                   "pylon",   "drift",     "marlin", "osprey", "basalt", "umbra"};
const char *const handleSuffix[] = {"",     "_sol", "cap", "_xyz", "trades", "_fund", "dao",
                                    "_ape", "labs", "",    "_",    "9",      "eth",   "_onchain"};
const char *const symbolParts[] = {"BON", "WIF", "POP", "MEW", "GIG", "FWO", "PNU", "MOO", "ZEB", "LUX",
                                   "KEK", "DOG", "CAT", "FRO", "TUR", "BOB", "GOR", "YAP", "SLO", "HYP"};
const char *const symbolTail[] = {"K", "CAT", "G", "A", "DENG", "O", "X", "IE", "", "Y", "PU", "ZZ"};
const char *const equities[][2] = {{"NVDAx", "Nvidia tokenised"},   {"TSLAx", "Tesla tokenised"},
                                   {"AAPLx", "Apple tokenised"},    {"MSFTx", "Microsoft tokenised"},
                                   {"AMZNx", "Amazon tokenised"},   {"METAx", "Meta tokenised"},
                                   {"GOOGx", "Alphabet tokenised"}, {"COINx", "Coinbase tokenised"},
                                   {"MSTRx", "Strategy tokenised"}, {"SPYx", "S&P 500 ETF tokenised"}};
const char alphabet[] = "123456789ABCDEFGHJKLMNPQRSTUVWXYZabcdefghijkmnopqrstuvwxyz";
} // namespace

Market::Market(quint64 seed) : rng_(seed * 0x9E3779B97F4A7C15ull + 17)
{
    nextId_ = 880000000 + qint64(rng_() % 1000000);
    for (int i = 0; i < 40; ++i) {
        Trader t;
        do {
            t.handle = QLatin1String(handleParts[pick(24)]) + QLatin1String(handleSuffix[pick(14)]);
        } while (traderByHandle_.contains(t.handle));
        t.address = base58(44);
        t.profile = QStringLiteral("https://tape.example/trader/") + t.handle;
        t.followers = qint64(std::exp(5 + uniform() * 7)); // 150 to 160K
        t.closed = pick(120);
        t.wins = t.closed ? qint64(std::round(t.closed * (0.25 + uniform() * 0.5))) : 0;
        t.fills = t.closed * 2 + pick(40);
        t.realized = (uniform() - 0.35) * std::exp(8 + uniform() * 5);
        t.openCost = std::exp(7 + uniform() * 6);
        t.unrealized = (uniform() - 0.45) * t.openCost;
        traderByHandle_.insert(t.handle, i);
        traders_.append(t);
    }
    QSet<QString> symbols;
    for (int i = 0; i < 60; ++i) {
        Token k;
        do {
            k.symbol = QLatin1String(symbolParts[pick(20)]) + QLatin1String(symbolTail[pick(12)]);
        } while (symbols.contains(k.symbol));
        symbols.insert(k.symbol);
        k.mint = base58(40) + QStringLiteral("pump");
        k.name = k.symbol.left(1) + k.symbol.mid(1).toLower() + QStringLiteral(" Coin");
        k.pair = QStringLiteral("https://charts.example/pool/") + base58(32);
        k.mark = std::exp(-9 + uniform() * 9);
        k.liquidity = std::exp(9 + uniform() * 5);
        k.mcap = k.liquidity * (5 + uniform() * 40);
        k.holders = qint64(std::exp(5 + uniform() * 5));
        k.change24 = (uniform() - 0.4) * 160;
        k.volume24 = k.liquidity * (0.5 + uniform() * 8);
        k.buys = pick(9000);
        k.sells = pick(7000);
        k.honeypot = i % 23 == 7;
        k.drained = i % 29 == 11;
        k.createdAt = -3600 * (1 + uniform() * 400); // relative, made absolute when served
        tokens_.append(k);
    }
    for (const auto &e : equities) {
        Token k;
        k.symbol = QLatin1String(e[0]);
        k.name = QLatin1String(e[1]);
        k.stock = true;
        k.mint = base58(40) + QStringLiteral("xstk");
        k.pair = QStringLiteral("https://charts.example/pool/") + base58(32);
        k.mark = 80 + uniform() * 700;
        k.liquidity = std::exp(13 + uniform() * 3);
        k.mcap = k.liquidity * 80;
        k.holders = qint64(std::exp(7 + uniform() * 3));
        k.change24 = (uniform() - 0.5) * 8;
        k.volume24 = k.liquidity * 3;
        k.buys = pick(4000);
        k.sells = pick(4000);
        k.createdAt = -86400 * (30 + uniform() * 200);
        tokens_.append(k);
    }
}

QString Market::base58(int length)
{
    QString s;
    s.reserve(length);
    for (int i = 0; i < length; ++i)
        s.append(QLatin1Char(alphabet[pick(58)]));
    return s;
}

// Heavy tailed: most trades are hundreds to thousands of dollars, a few are
// millions.
double Market::size()
{
    const double usd = std::exp(std::normal_distribution<double>(7.2, 1.7)(rng_));
    return std::round(std::clamp(usd, 12.0, 4.5e6) * 100) / 100;
}

QJsonObject Market::fillJson(qint64 id, double ts, int ti, int ki, bool buy, double usd,
                             const QList<QString> &flags, bool newPosition)
{
    const Trader &t = traders_[ti];
    const Token &k = tokens_[ki];
    QJsonObject o;
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("ts"), std::round(ts * 1000) / 1000);
    o.insert(QStringLiteral("side"), buy ? QStringLiteral("buy") : QStringLiteral("sell"));
    o.insert(QStringLiteral("usd"), usd);
    if (id % 11 != 0)
        o.insert(QStringLiteral("price"), k.mark * (0.98 + uniform() * 0.04));
    o.insert(QStringLiteral("handle"), t.handle);
    if (id % 7 != 0)
        o.insert(QStringLiteral("followers"), t.followers);
    o.insert(QStringLiteral("wallet"), t.address);
    o.insert(QStringLiteral("token"), k.mint);
    o.insert(QStringLiteral("symbol"), k.symbol);
    if (id % 5 == 0)
        o.insert(QStringLiteral("name"), QJsonValue::Null);
    else
        o.insert(QStringLiteral("name"), k.name);
    // The service sends these two either as booleans or as 0/1.
    if (id % 3 == 0)
        o.insert(QStringLiteral("is_stock"), k.stock ? 1 : 0);
    else if (k.stock || id % 3 == 1)
        o.insert(QStringLiteral("is_stock"), k.stock);
    if (id % 4 == 0)
        o.insert(QStringLiteral("new_position"), newPosition ? 1 : 0);
    else
        o.insert(QStringLiteral("new_position"), newPosition);
    if (!flags.isEmpty() || id % 2 == 0) {
        QJsonArray a;
        for (const QString &f : flags)
            a.append(f);
        o.insert(QStringLiteral("flags"), a);
    }
    o.insert(QStringLiteral("mark"), k.mark);
    if (id % 9 != 0)
        o.insert(QStringLiteral("liquidity"), std::round(k.liquidity));
    o.insert(QStringLiteral("mcap"), std::round(k.mcap));
    o.insert(QStringLiteral("pair_url"), k.pair);
    return o;
}

void Market::seedHistory(int count, double seconds, double now)
{
    for (int i = 0; i < count; ++i)
        nextFill(now - seconds + seconds * (i + 1) / count);
}

void Market::restart(qint64 firstId)
{
    fills_.clear();
    pileIns_.clear();
    equityWave_ = Wave{};
    nextId_ = firstId;
}

QJsonObject Market::floodFill(double ts)
{
    const qint64 id = injectedId_.value_or(nextId_);
    nextId_ += injectedId_ ? 0 : 1;
    injectedId_.reset();
    const QString serial = QString::number(++floodSerial_, 36).toUpper();
    QJsonObject o;
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("ts"), std::round((ts + stampShift_) * 1000) / 1000);
    o.insert(QStringLiteral("side"), floodSerial_ % 3 ? QStringLiteral("buy") : QStringLiteral("sell"));
    o.insert(QStringLiteral("usd"), 2000 + double(floodSerial_ % 97) * 1000);
    o.insert(QStringLiteral("price"), 0.0004);
    const QString token =
        QStringLiteral("FLt") + serial.rightJustified(37, QLatin1Char('x')) + QStringLiteral("pump");
    o.insert(QStringLiteral("handle"), QString(QStringLiteral("flood_") + serial));
    o.insert(QStringLiteral("wallet"),
             QString(QStringLiteral("FLw") + serial.rightJustified(41, QLatin1Char('x'))));
    o.insert(QStringLiteral("token"), token);
    o.insert(QStringLiteral("symbol"), QString(QStringLiteral("F") + serial));
    o.insert(QStringLiteral("name"), QString(QStringLiteral("Flood ") + serial));
    o.insert(QStringLiteral("new_position"), true);
    o.insert(QStringLiteral("liquidity"), 50000);
    fills_.push_back(o);
    while (fills_.size() > historyLimit)
        fills_.pop_front();
    return o;
}

QJsonObject Market::nextFill(double ts)
{
    const qint64 id = injectedId_.value_or(nextId_);
    nextId_ += injectedId_ ? 0 : 1;
    injectedId_.reset();
    int ti = pick(int(traders_.size()));
    int ki = -1;
    bool buy = uniform() < 0.62;
    bool newPosition = false;
    double usd = size();
    QList<QString> flags;
    const double r = uniform();
    const int cryptoCount = 60;

    pileIns_.removeIf([ts](const Wave &w) { return ts - w.firstAt > 7200; });
    Wave *openPool = nullptr;
    for (Wave &w : pileIns_)
        if (ts < w.until && w.wallets.size() < 9)
            openPool = &w;

    if (r < 0.16 && traders_[ti].lastToken >= 0 && ts - traders_[ti].lastAt < 600) {
        // The same wallet again in the same token: repeats that merge.
        ki = traders_[ti].lastToken;
        buy = true;
    } else if (r < 0.34) {
        // Several wallets piling into one new pool within minutes.
        if (!openPool) {
            Wave w;
            w.token = pick(cryptoCount);
            w.firstAt = ts;
            w.until = ts + 300 + uniform() * 600;
            pileIns_.append(w);
            openPool = &pileIns_.last();
            tokens_[w.token].createdAt = -(1800 + uniform() * 14000);
        }
        ki = openPool->token;
        buy = true;
        if (!openPool->wallets.contains(ti))
            openPool->wallets.append(ti);
        openPool->usdIn += usd;
        newPosition = true;
        if (openPool->wallets.size() >= 2)
            flags << QStringLiteral("pile-in ") + QString::number(openPool->wallets.size());
        const int hours = int(std::max(1.0, -tokens_[ki].createdAt / 3600));
        flags << QStringLiteral("pool ") + QString::number(hours) + QStringLiteral("h old");
    } else if (r < 0.46) {
        // Several wallets moving one tokenised equity the same way.
        if (equityWave_.token < 0 || ts > equityWave_.until) {
            equityWave_ = Wave{};
            equityWave_.token = cryptoCount + pick(10);
            equityWave_.buy = uniform() < 0.6;
            equityWave_.until = ts + 600;
        }
        ki = equityWave_.token;
        buy = equityWave_.buy;
        usd = std::round(usd * 3);
    } else {
        ki = uniform() < 0.08 ? cryptoCount + pick(10) : pick(cryptoCount);
        newPosition = buy && uniform() < 0.4;
        if (uniform() < 0.06)
            flags << (uniform() < 0.5 ? QStringLiteral("not a real buy (router)")
                                      : QStringLiteral("pool drained 92%"));
        else if (uniform() < 0.3)
            flags << QStringLiteral("pool ") + QString::number(1 + pick(30)) + QStringLiteral("h old");
    }

    Trader &t = traders_[ti];
    t.lastToken = ki;
    t.lastAt = ts;
    ++t.fills;
    Token &k = tokens_[ki];
    (buy ? k.buys : k.sells) += 1;
    k.volume24 += usd;
    if (buy) {
        auto &bags = bags_[ti];
        bags.append(Bag{ki, usd, ts});
        if (bags.size() > 12)
            bags.removeFirst();
    }

    QJsonObject fill = fillJson(id, ts + stampShift_, ti, ki, buy, usd, flags, newPosition);
    if (lookAlikesLeft_ > 0) {
        --lookAlikesLeft_;
        QString symbol = fill.value(QStringLiteral("symbol")).toString();
        // A, B, E, K, M, O, P, X: the Cyrillic letters drawn the same.
        static const QHash<QChar, QChar> cyrillic{
            {u'A', QChar(0x0410)}, {u'B', QChar(0x0412)}, {u'E', QChar(0x0415)}, {u'K', QChar(0x041A)},
            {u'M', QChar(0x041C)}, {u'O', QChar(0x041E)}, {u'P', QChar(0x0420)}, {u'X', QChar(0x0425)}};
        for (QChar &c : symbol)
            if (const auto it = cyrillic.constFind(c); it != cyrillic.cend()) {
                c = *it;
                break; // one letter is enough to fool the eye
            }
        fill.insert(QStringLiteral("symbol"), symbol);
    }
    fills_.push_back(fill);
    while (fills_.size() > historyLimit)
        fills_.pop_front();
    return fill;
}

QJsonArray Market::tape(int limit, bool stocks) const
{
    QJsonArray out;
    for (auto it = fills_.rbegin(); it != fills_.rend() && out.size() < limit; ++it) {
        const QJsonValue s = it->value(QStringLiteral("is_stock"));
        const bool stock = s.isBool() ? s.toBool() : s.toInt() != 0;
        if (!stocks && stock)
            continue;
        out.append(*it);
    }
    return out;
}

QJsonArray Market::radar(double now, double minutes, int limit) const
{
    QJsonArray out;
    for (auto it = pileIns_.rbegin(); it != pileIns_.rend() && out.size() < limit; ++it) {
        if (now - it->firstAt > minutes * 60 || it->wallets.size() < 2)
            continue;
        const Token &k = tokens_[it->token];
        QJsonObject o;
        o.insert(QStringLiteral("token"), k.mint);
        o.insert(QStringLiteral("symbol"), k.symbol);
        o.insert(QStringLiteral("buyers"), it->wallets.size());
        o.insert(QStringLiteral("liquidity"), std::round(k.liquidity));
        o.insert(QStringLiteral("change24"), std::round(k.change24 * 10) / 10);
        o.insert(QStringLiteral("is_stock"), 0);
        o.insert(QStringLiteral("first_ts"), it->firstAt + stampShift_);
        o.insert(QStringLiteral("usd_in"), std::round(it->usdIn));
        o.insert(QStringLiteral("pair_url"), k.pair);
        o.insert(QStringLiteral("pool_age"), std::round(-k.createdAt + (now - it->firstAt)));
        out.append(o);
    }
    return out;
}

QJsonArray Market::traders(bool) const
{
    QJsonArray out;
    for (const Trader &t : traders_) {
        QJsonObject o;
        o.insert(QStringLiteral("address"), t.address);
        o.insert(QStringLiteral("handle"), t.handle);
        o.insert(QStringLiteral("followers"), t.followers);
        o.insert(QStringLiteral("fills"), t.fills);
        o.insert(QStringLiteral("wins"), t.wins);
        o.insert(QStringLiteral("profile_url"), t.profile);
        o.insert(QStringLiteral("realized_pnl"), std::round(t.realized));
        o.insert(QStringLiteral("closed_trades"), t.closed);
        o.insert(QStringLiteral("open_cost"), std::round(t.openCost));
        o.insert(QStringLiteral("unrealized_pnl"), std::round(t.unrealized));
        if (t.closed)
            o.insert(QStringLiteral("win_rate"), double(t.wins) / double(t.closed));
        else
            o.insert(QStringLiteral("win_rate"), QJsonValue::Null);
        out.append(o);
    }
    return out;
}

QJsonArray Market::tokens(bool stocks, int limit, double now) const
{
    QJsonArray out;
    for (const Token &k : tokens_) {
        if (out.size() >= limit)
            break;
        if (k.stock && !stocks)
            continue;
        QJsonObject o;
        o.insert(QStringLiteral("token"), k.mint);
        o.insert(QStringLiteral("symbol"), k.symbol);
        o.insert(QStringLiteral("name"), k.name);
        o.insert(QStringLiteral("mark"), k.mark);
        o.insert(QStringLiteral("liquidity"), std::round(k.liquidity));
        o.insert(QStringLiteral("mcap"), std::round(k.mcap));
        o.insert(QStringLiteral("holders"), k.holders);
        if (k.honeypot || !k.stock)
            o.insert(QStringLiteral("honeypot"), k.honeypot);
        if (k.drained || !k.stock)
            o.insert(QStringLiteral("drained"), k.drained);
        o.insert(QStringLiteral("change24"), std::round(k.change24 * 100) / 100);
        o.insert(QStringLiteral("volume24"), std::round(k.volume24));
        o.insert(QStringLiteral("pair_url"), k.pair);
        o.insert(QStringLiteral("pair_created_at"), std::round(now + k.createdAt));
        o.insert(QStringLiteral("buys24"), k.buys);
        o.insert(QStringLiteral("sells24"), k.sells);
        out.append(o);
    }
    return out;
}

std::optional<QJsonObject> Market::traderDetail(const QString &handle, double now) const
{
    const auto found = traderByHandle_.constFind(handle);
    if (found == traderByHandle_.cend())
        return std::nullopt;
    const Trader &t = traders_[*found];
    QJsonArray bags;
    for (const Bag &b : bags_.value(*found)) {
        const Token &k = tokens_[b.token];
        const double pnl = std::round((k.change24 * 0.3 + std::fmod(b.cost, 37.0) - 18) * 10) / 10;
        QJsonObject o;
        o.insert(QStringLiteral("symbol"), k.symbol);
        o.insert(QStringLiteral("value"), std::round(b.cost * (1 + pnl / 100)));
        o.insert(QStringLiteral("cost_usd"), b.cost);
        o.insert(QStringLiteral("opened_ts"), b.openedAt);
        if (int(b.cost) % 4 != 0)
            o.insert(QStringLiteral("pnl_pct"), pnl);
        o.insert(QStringLiteral("age_seconds"), std::round(now - b.openedAt));
        bags.append(o);
    }
    QJsonObject o;
    o.insert(QStringLiteral("address"), t.address);
    o.insert(QStringLiteral("handle"), t.handle);
    o.insert(QStringLiteral("followers"), t.followers);
    o.insert(QStringLiteral("bags"), bags);
    o.insert(QStringLiteral("num_trades"), t.fills);
    o.insert(QStringLiteral("profile_url"), t.profile);
    return o;
}

} // namespace tarnwick
