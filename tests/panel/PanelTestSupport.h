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

// The panel tests' common rig: a fresh store with default preferences on a
// clean settings file, and a panel over it (the panel goes first on the way out).
class PanelController;
struct PanelRig {
    TestClock clock;
    std::unique_ptr<FeedStore> store;
    std::unique_ptr<PanelController> panel;

    void freshStore();
    void dropAll();
};

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

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

// A service that answers the two reads behind a row's evidence with records
// a test writes: the tape (for the fill's own chart link) and a trader's page.
// Every other path is a 404.
class CannedService : public QTcpServer {
public:
    QJsonArray tape;
    QJsonObject trader;

    CannedService()
    {
        if (!listen(QHostAddress::LocalHost, 0))
            qFatal("no port for the canned service");
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
            }
        });
    }

    std::unique_ptr<FeedStore> store(TestClock &clock) const
    {
        const QString base = QStringLiteral("127.0.0.1:") + QString::number(serverPort());
        TarnwickTiming timing;
        timing.requestTimeoutMs = 2000;
        auto *client =
            new TarnwickClient(QStringLiteral("http://") + base + QStringLiteral("/api"),
                               QStringLiteral("ws://") + base + QStringLiteral("/ws"), timing, clock.clock());
        return std::make_unique<FeedStore>(client, clock.clock());
    }

    static QJsonObject fillRecord(const TwFill &f, const QString &pairUrl)
    {
        return QJsonObject{{QStringLiteral("id"), f.id},         {QStringLiteral("ts"), f.ts},
                           {QStringLiteral("side"), f.side},     {QStringLiteral("usd"), f.usd},
                           {QStringLiteral("handle"), f.handle}, {QStringLiteral("wallet"), f.wallet},
                           {QStringLiteral("token"), f.token},   {QStringLiteral("symbol"), f.symbol},
                           {QStringLiteral("pair_url"), pairUrl}};
    }

private:
    void answer(QTcpSocket *socket)
    {
        QByteArray &seen = pending_[socket];
        seen += socket->readAll();
        if (!seen.contains("\r\n\r\n"))
            return;
        const QByteArray target = seen.split(' ').value(1);
        pending_.remove(socket);
        QByteArray body;
        if (target.startsWith("/api/tape"))
            body = QJsonDocument(tape).toJson(QJsonDocument::Compact);
        else if (target.startsWith("/api/trader/"))
            body = QJsonDocument(trader).toJson(QJsonDocument::Compact);
        const QByteArray status = body.isEmpty() ? "404 Not Found" : "200 OK";
        socket->write("HTTP/1.1 " + status + "\r\nContent-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
        socket->disconnectFromHost();
    }
    QHash<QTcpSocket *, QByteArray> pending_;
};

#include "Panel/PanelController.h"

#include <QQuickItem>

// Every item under root, root first: the panel tests look items up by
// their accessible names and object names.
inline QList<QQuickItem *> allItems(QQuickItem *root)
{
    QList<QQuickItem *> out;
    if (root) {
        out << root;
        for (QQuickItem *child : root->childItems())
            out += allItems(child);
    }
    return out;
}

#include <QSettings>

inline void PanelRig::freshStore()
{
    QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
    clock = TestClock{};
    store = unreachableStore(clock);
    store->setPreferences(Preferences::defaults());
}

inline void PanelRig::dropAll()
{
    panel.reset();
    store.reset();
}
