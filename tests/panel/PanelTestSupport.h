#pragma once
// Shared by the panel tests: a store on a controllable clock whose client
// points at a closed port (so detail loads fail fast), and fills that the
// signal rules keep.

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"

#include <memory>

struct TestClock {
    double t = 1'700'000'000;
    Clock clock()
    {
        return [this] { return t; };
    }
};

inline std::unique_ptr<FeedStore> unreachableStore(TestClock &clock)
{
    // Port 1 on the loopback refuses at once: every request fails quickly.
    auto *client = new TarnwickClient(QStringLiteral("http://127.0.0.1:1/api"),
                                      QStringLiteral("ws://127.0.0.1:1/ws"), TarnwickTiming{}, clock.clock());
    return std::make_unique<FeedStore>(client, clock.clock());
}

inline TwFill whaleFill(qint64 id, double ts, double usd, const QString &handle = QStringLiteral("ansem"),
                        const QString &symbol = QStringLiteral("WIF"),
                        const QString &side = QStringLiteral("buy"))
{
    TwFill f;
    f.id = id;
    f.ts = ts;
    f.side = side;
    f.usd = usd;
    f.price = 2.5;
    f.handle = handle;
    f.wallet = QStringLiteral("Wallet") + QString::number(id);
    f.token = QStringLiteral("Token") + symbol;
    f.symbol = symbol;
    return f;
}
