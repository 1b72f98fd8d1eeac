#pragma once
// The records the tape service sends, key by key. Decode-only: decoders return
// an absent value on failure and never throw.

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QString>

#include <optional>

struct TwFill {
    qint64 id = 0;
    double ts = 0;
    QString side;
    double usd = 0;
    std::optional<double> price;
    QString handle;
    // The handle exactly as sent, when cleaning changed it (a control
    // character in it): the service knows the trader by this one.
    QString handleSent;
    std::optional<qint64> followers;
    QString wallet;
    QString token;
    QString symbol;
    std::optional<QString> name;
    bool isStock = false;
    bool newPosition = false;
    QList<QString> flags;
    std::optional<double> mark;
    std::optional<double> liquidity;
    std::optional<double> mcap;
    std::optional<QString> pairURL;
    bool operator==(const TwFill &) const = default;
};

struct TwRadar {
    QString token;
    QString symbol;
    qint64 buyers = 0;
    std::optional<double> liquidity;
    std::optional<double> change24;
    bool isStock = false;
    double firstTs = 0;
    std::optional<double> usdIn;
    std::optional<QString> pairURL;
    std::optional<double> poolAge; // seconds
    bool operator==(const TwRadar &) const = default;
};

struct TwToken {
    QString token;
    QString symbol;
    std::optional<QString> name;
    std::optional<double> mark;
    std::optional<double> liquidity;
    std::optional<double> mcap;
    std::optional<qint64> holders;
    std::optional<bool> honeypot;
    std::optional<bool> drained;
    std::optional<double> change24;
    std::optional<double> volume24;
    std::optional<QString> pairURL;
    std::optional<double> pairCreatedAt;
    std::optional<qint64> buys24;
    std::optional<qint64> sells24;
    bool operator==(const TwToken &) const = default;
};

struct TwTrader {
    QString address;
    QString handle;
    std::optional<qint64> followers;
    std::optional<qint64> fills;
    std::optional<qint64> wins;
    std::optional<QString> profileURL;
    std::optional<double> realizedPnl;
    std::optional<qint64> closedTrades;
    std::optional<double> openCost;
    std::optional<double> unrealizedPnl;
    std::optional<double> winRate;
    bool operator==(const TwTrader &) const = default;
};

struct TwTraderDetail {
    struct Bag {
        QString symbol;
        std::optional<double> value;
        std::optional<double> costUsd;
        std::optional<double> openedTs;
        std::optional<double> pnlPct;
        std::optional<double> ageSeconds;
        bool operator==(const Bag &) const = default;
    };
    QString address;
    QString handle;
    std::optional<qint64> followers;
    QList<Bag> bags;
    std::optional<qint64> numTrades;
    std::optional<QString> profileURL;
    bool operator==(const TwTraderDetail &) const = default;
};

struct TwSocketFrame {
    QString type;
    std::optional<QList<TwFill>> data; // only for "fills" whose data is a list
    int droppedFills = 0;              // fills of that list that did not decode
    bool operator==(const TwSocketFrame &) const = default;
};

// Decoders. Each takes a parsed JSON value or raw bytes. Integers must be
// exact: 64-bit ids are read from the raw number text, not through a double.
// Every text is cleaned of control and bidirectional formatting characters
// (Support/WireText.h); amounts beyond any real trade fail their record.
namespace TwDecode {
std::optional<TwFill> fill(const QJsonValue &v);
std::optional<TwRadar> radar(const QJsonValue &v);
std::optional<TwToken> token(const QJsonValue &v);
std::optional<TwTrader> trader(const QJsonValue &v);
std::optional<TwTraderDetail> traderDetail(const QJsonValue &v);

// Whole REST bodies: a list fails whole on one bad element, except a list of
// fills, where a bad fill is dropped alone (and counted in `dropped`).
std::optional<QList<TwFill>> fills(const QByteArray &body, int *dropped = nullptr);
std::optional<QList<TwRadar>> radars(const QByteArray &body);
std::optional<QList<TwToken>> tokens(const QByteArray &body);
std::optional<QList<TwTrader>> traders(const QByteArray &body);
std::optional<TwTraderDetail> traderDetail(const QByteArray &body);

std::optional<TwSocketFrame> socketFrame(const QByteArray &bytes);
} // namespace TwDecode
