#pragma once
// Shared by the panel tests: a store on a controllable clock whose client
// points at a service that never answers (so detail loads fail quickly), and
// fills that the signal rules keep.

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"

#include <QCoreApplication>
#include <QTcpServer>

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
    // A port that takes connections and never answers, with a short time-out:
    // every load fails within a fraction of a second, but never before the
    // click or call that started it has returned (a refused port fails so
    // fast that a test could miss the loading state in between).
    static QTcpServer *blackHole = [] {
        auto *server = new QTcpServer(QCoreApplication::instance());
        server->setMaxPendingConnections(1000);
        if (!server->listen(QHostAddress::LocalHost, 0))
            qFatal("no port for the silent service");
        server->pauseAccepting(); // connections wait in the backlog, unanswered
        return server;
    }();
    const QString base = QStringLiteral("127.0.0.1:") + QString::number(blackHole->serverPort());
    TarnwickTiming timing;
    timing.requestTimeoutMs = 250;
    auto *client =
        new TarnwickClient(QStringLiteral("http://") + base + QStringLiteral("/api"),
                           QStringLiteral("ws://") + base + QStringLiteral("/ws"), timing, clock.clock());
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
