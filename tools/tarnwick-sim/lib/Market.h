#pragma once
// The market behind the local tape service: tracked traders, tokens and
// tokenised equities, and a stream of fills drawn from a seeded generator, so
// the same seed always tells the same story (only the clock differs).

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <deque>
#include <optional>
#include <random>

namespace tarnwick {

class Market {
public:
    explicit Market(quint64 seed);

    // Backdates `count` fills over the `seconds` before `now`, so a fresh
    // client's first page of tape is not empty.
    void seedHistory(int count, double seconds, double now);
    QJsonObject nextFill(double ts);

    QJsonArray tape(int limit, bool stocks) const; // newest first
    QJsonArray radar(double now, double minutes, int limit) const;
    QJsonArray traders(bool stocks) const;
    QJsonArray tokens(bool stocks, int limit, double now) const;
    std::optional<QJsonObject> traderDetail(const QString &handle, double now) const;
    qint64 lastId() const { return nextId_ - 1; }

    // A redeploy with a fresh store: the tape and the pile-ins are gone and
    // ids begin again at `firstId`.
    void restart(qint64 firstId);
    // The next fill carries `id` (an absurd one, say); the numbering goes on
    // as if it had not been.
    void injectId(qint64 id) { injectedId_ = id; }
    // Stamps of fills and pile-ins run `seconds` off the service's clock
    // (10 years ahead, or 1e300).
    void setStampShift(double seconds) { stampShift_ = seconds; }
    // The next `count` fills carry a copy of their token's symbol in which
    // Latin letters are swapped for Cyrillic look-alikes ("PEPE" with a
    // Cyrillic "Е"), as a scam token would.
    void setLookAlikes(int count) { lookAlikesLeft_ = count; }
    // A fill of a wallet and a token never seen before (a flood). Kept in the
    // tape like any other.
    QJsonObject floodFill(double ts);

private:
    struct Trader {
        QString handle, address, profile;
        qint64 followers = 0, fills = 0, wins = 0, closed = 0;
        double realized = 0, unrealized = 0, openCost = 0;
        int lastToken = -1;
        double lastAt = 0;
    };
    struct Token {
        QString mint, symbol, name, pair;
        bool stock = false, honeypot = false, drained = false;
        double mark = 0, liquidity = 0, mcap = 0, change24 = 0, volume24 = 0, createdAt = 0;
        qint64 holders = 0, buys = 0, sells = 0;
    };
    struct Bag {
        int token = 0;
        double cost = 0, openedAt = 0;
    };
    struct Wave { // several wallets piling into one pool, or moving one equity
        int token = -1;
        bool buy = true;
        double until = 0;
        QList<int> wallets;
        double usdIn = 0, firstAt = 0;
    };

    double uniform() { return std::uniform_real_distribution<double>(0, 1)(rng_); }
    int pick(int n) { return int(rng_() % quint64(n)); }
    QString base58(int length);
    double size();
    QJsonObject fillJson(qint64 id, double ts, int trader, int token, bool buy, double usd,
                         const QList<QString> &flags, bool newPosition);

    std::mt19937_64 rng_;
    QList<Trader> traders_;
    QList<Token> tokens_;
    QHash<QString, int> traderByHandle_;
    QHash<int, QList<Bag>> bags_;
    std::deque<QJsonObject> fills_; // oldest first, bounded
    QList<Wave> pileIns_;           // recent waves into new pools (radar)
    Wave equityWave_;
    qint64 nextId_ = 0;
    std::optional<qint64> injectedId_;
    double stampShift_ = 0;
    qint64 floodSerial_ = 0;
    int lookAlikesLeft_ = 0;
};

} // namespace tarnwick
