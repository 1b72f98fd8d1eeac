#pragma once
// Shared by the panel tests: a store on a controllable clock whose client
// points at a service that never answers (so detail loads fail quickly), fills
// that the signal rules keep, and the helpers that drive the real panel.

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Panel/PanelController.h"
#include "Panel/PanelModel.h"
#include "TarnwickSim.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

#include <memory>

struct TestClock {
    double t = 1'700'000'000;
    Clock clock()
    {
        return [this] { return t; };
    }
};

inline std::unique_ptr<FeedStore> storeAt(quint16 port, int timeoutMs, TestClock &clock)
{
    const QString base = QStringLiteral("127.0.0.1:") + QString::number(port);
    TarnwickTiming timing;
    timing.requestTimeoutMs = timeoutMs;
    auto *client =
        new TarnwickClient(QStringLiteral("http://") + base + QStringLiteral("/api"),
                           QStringLiteral("ws://") + base + QStringLiteral("/ws"), timing, clock.clock());
    return std::make_unique<FeedStore>(client, clock.clock());
}

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
    return storeAt(blackHole->serverPort(), 250, clock);
}

inline TwFill whaleFill(qint64 id, double ts, double usd, const QString &handle = QStringLiteral("ansem"),
                        const QString &symbol = QStringLiteral("WIF"))
{
    return {.id = id,
            .ts = ts,
            .side = QStringLiteral("buy"),
            .usd = usd,
            .price = 2.5,
            .handle = handle,
            .wallet = QStringLiteral("Wallet") + QString::number(id),
            .token = QStringLiteral("Token") + symbol,
            .symbol = symbol};
}

// n whales of rising size, `spacing` seconds apart up to `now`: fill 100+i
// by @w<i> in $T<i>, so the last ones are the heroes.
inline QList<TwFill> whaleRun(int n, double now, double spacing = 30, double step = 2000)
{
    QList<TwFill> fills;
    for (int i = 0; i < n; ++i)
        fills << whaleFill(100 + i, now - spacing * (n - i), step * (i + 1), QStringLiteral("w%1").arg(i),
                           QStringLiteral("T%1").arg(i));
    return fills;
}

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

// The shown items named `name` under root. Popups live in the window's
// overlay, outside the panel's own tree: pass the window's content item.
inline QList<QQuickItem *> shownNamed(QQuickItem *root, const QString &name)
{
    QList<QQuickItem *> out;
    for (QQuickItem *item : allItems(root))
        if (item->objectName() == name && item->isVisible() && item->width() > 0)
            out << item;
    return out;
}

// One field of each entry of a list the panel's models hand to QML.
inline QStringList fieldOf(const QVariantList &entries, const char *key)
{
    QStringList out;
    for (const QVariant &e : entries)
        out << e.toMap().value(QLatin1String(key)).toString();
    return out;
}

// Positioners lay out at the next frame: let one pass before aiming.
inline void settleFrame(QQuickWindow *window)
{
    QSignalSpy frame(window, &QQuickWindow::afterRendering);
    window->update();
    frame.wait(300);
}

inline QPointF centre(QQuickItem *item)
{
    return item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
}

inline void click(QQuickItem *item, Qt::MouseButton button = Qt::LeftButton)
{
    QVERIFY(item);
    settleFrame(item->window());
    QTest::mouseClick(item->window(), button, {}, centre(item).toPoint());
}

// The summary line of the stream row of signal `id`.
inline QQuickItem *summaryOf(QQuickItem *root, const QString &id)
{
    for (QQuickItem *summary : allItems(root)) {
        QQuickItem *row = summary->parentItem() ? summary->parentItem()->parentItem() : nullptr;
        if (summary->objectName() == QLatin1String("summary") && row &&
            row->property("signalId").toString() == id)
            return summary;
    }
    return nullptr;
}

// A data-driven test over the two values of one switch, a row named for each.
inline void eitherWay(const char *column, const char *off, const char *on)
{
    QTest::addColumn<bool>(column);
    QTest::newRow(off) << false;
    QTest::newRow(on) << true;
}

// The panel tests' common rig: a fresh store with default preferences on a
// clean settings file, and a panel over it (the panel goes first on the way out).
struct PanelRig {
    TestClock clock;
    std::unique_ptr<FeedStore> store;
    std::unique_ptr<PanelController> panel;

    void freshStore()
    {
        QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
        clock = TestClock{};
        store = unreachableStore(clock);
        store->setPreferences(Preferences::defaults());
    }
    void freshPanel()
    {
        freshStore();
        panel = std::make_unique<PanelController>(store.get());
    }
    // The panel over a store that reads its evidence from the local service,
    // whose trader pages (and tape, unless `tape` is empty) answer with these records.
    std::unique_ptr<tarnwick::SimServer> service;
    void servedWith(const QJsonArray &tape, const QJsonObject &trader)
    {
        using tarnwick::EndpointFaultKind;
        service = std::make_unique<tarnwick::SimServer>(tarnwick::SimOptions{.port = 0, .autoTape = false});
        QVERIFY(service->start());
        const auto canned = [](const auto &json) {
            return tarnwick::EndpointFault{.kind = EndpointFaultKind::Canned,
                                           .body = QJsonDocument(json).toJson(QJsonDocument::Compact)};
        };
        if (!tape.isEmpty())
            service->setEndpointFault(QStringLiteral("/tape"), canned(tape));
        service->setEndpointFault(QStringLiteral("/trader/"), canned(trader));
        panel.reset();
        store = storeAt(service->port(), 2000, clock);
        store->setPreferences(Preferences::defaults());
        panel = std::make_unique<PanelController>(store.get());
    }
    void dropAll() { panel.reset(), store.reset(), service.reset(); }
    // Opens under a button at the top, with the animations off.
    void open()
    {
        panel->show(QRect(900, 0, 24, 24));
        QVERIFY(panel->rootItem());
        QVERIFY(QTest::qWaitForWindowExposed(panel->window()));
        panel->model()->setAnimated(false);
    }
    QQuickItem *root() const { return panel->rootItem(); }
    QQuickWindow *window() const { return panel->window(); }
    PanelModel *model() const { return panel->model(); }
    // The shown items of that name anywhere in the window, menus included.
    QList<QQuickItem *> shown(const char *name) const
    {
        return shownNamed(window()->contentItem(), QLatin1String(name));
    }
    QQuickItem *on(const char *name) const { return shown(name).value(0); }
    QQuickItem *waitFor(const char *name) const
    {
        QQuickItem *found = nullptr;
        (void)QTest::qWaitFor([&] { return (found = on(name)) != nullptr; }, 30000);
        return found;
    }
};
