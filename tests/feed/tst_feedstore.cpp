// The store's rules, fed directly with wire records and a clock that the test
// moves: merging, equity groups, filters, pruning, heroes and publication.

#include "CaptureStderr.h"
#include "Feed/FeedStore.h"
#include "Feed/SignalRules.h"
#include "IsolatedSettings.h"
#include "Support/Format.h"
#include "TarnwickSim.h"

#include <QSignalSpy>
#include <QTest>

#include <limits>

namespace {
constexpr double T0 = 1'700'000'000;

TwFill fill(qint64 id, double ts, const char *handle, const char *token, double usd, const char *side = "buy",
            bool stock = false)
{
    TwFill f;
    f.id = id;
    f.ts = ts;
    f.side = QLatin1String(side);
    f.usd = usd;
    f.handle = QLatin1String(handle);
    f.wallet = QStringLiteral("W") + QLatin1String(handle);
    f.token = QLatin1String(token);
    f.symbol = QString(QLatin1String(token)).toUpper();
    f.isStock = stock;
    return f;
}

TwRadar radar(const char *token, qint64 buyers, double firstTs)
{
    TwRadar r;
    r.token = QLatin1String(token);
    r.symbol = QString(QLatin1String(token)).toUpper();
    r.buyers = buyers;
    r.firstTs = firstTs;
    return r;
}

QStringList ids(const QList<Signal> &list)
{
    QStringList out;
    for (const Signal &s : list)
        out << s.id;
    return out;
}
} // namespace

class FeedStoreTest : public QObject {
    Q_OBJECT
    double now_ = T0;
    std::unique_ptr<FeedStore> store_;

    FeedStore &store() { return *store_; }

private Q_SLOTS:
    void initTestCase() { isolateSettings(); }
    void init()
    {
        now_ = T0;
        // A client that is never started: nothing touches the network.
        auto *client = new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"),
                                          QStringLiteral("ws://127.0.0.1:9/ws"), TarnwickTiming{},
                                          [this] { return now_; });
        store_ = std::make_unique<FeedStore>(client, [this] { return now_; });
        Preferences p = Preferences::defaults();
        store_->setPreferences(p);
    }

    void whaleRepeatsMerge_data()
    {
        QTest::addColumn<double>("firstUsd");
        QTest::addColumn<double>("secondUsd");
        QTest::addColumn<double>("gap");
        QTest::addColumn<QStringList>("kept");
        QTest::newRow("smaller repeat ignored")
            << 5000.0 << 3000.0 << 120.0 << QStringList{QStringLiteral("tw-fill-1")};
        QTest::newRow("larger repeat replaces")
            << 3000.0 << 5000.0 << 120.0 << QStringList{QStringLiteral("tw-fill-2")};
        QTest::newRow("six minutes apart both kept")
            << 5000.0 << 3000.0 << 360.0
            << QStringList{QStringLiteral("tw-fill-2"), QStringLiteral("tw-fill-1")};
        QTest::newRow("exactly 300 s is a new move")
            << 5000.0 << 3000.0 << 300.0
            << QStringList{QStringLiteral("tw-fill-2"), QStringLiteral("tw-fill-1")};
        QTest::newRow("older fill still inside the window")
            << 5000.0 << 3000.0 << -60.0 << QStringList{QStringLiteral("tw-fill-1")};
    }
    void whaleRepeatsMerge()
    {
        QFETCH(double, firstUsd);
        QFETCH(double, secondUsd);
        QFETCH(double, gap);
        QFETCH(QStringList, kept);
        now_ = T0 + std::max(gap, 0.0);
        store().ingest({fill(1, T0, "kai", "wif", firstUsd)});
        store().ingest({fill(2, T0 + gap, "kai", "wif", secondUsd)});
        QCOMPARE(ids(store().signalList()), kept);
    }

    void buyAndSellAreDifferentActors()
    {
        store().ingest({fill(1, T0, "kai", "wif", 5000), fill(2, T0 + 10, "kai", "wif", 3000, "sell")});
        QCOMPARE(store().signalList().size(), 2);
    }

    void equityNeedsTwoWallets()
    {
        now_ = T0 + 100;
        store().ingest({fill(1, T0, "ana", "nvdax", 2000000, "sell", true)});
        QCOMPARE(store().signalList().size(), 0);
        QCOMPARE(store().heldCount(), 0);

        store().ingest({fill(2, T0 + 10, "ana", "tslax", 4000, "buy", true)});
        QCOMPARE(store().signalList().size(), 0);
        store().ingest({fill(3, T0 + 20, "bo", "tslax", 9000, "buy", true)});
        QCOMPARE(store().signalList().size(), 1);
        Signal group = store().signalList().first();
        QCOMPARE(group.kind, SignalKind::stocks);
        QCOMPARE(group.line.body, QStringLiteral("2 wallets added"));
        QCOMPARE(group.line.tag, std::optional(QStringLiteral("×2")));
        QCOMPARE(group.id, QStringLiteral("tw-fill-3"));

        // The same wallet again: still two wallets, the figure is the total.
        store().ingest({fill(4, T0 + 30, "ana", "tslax", 1000, "buy", true)});
        QCOMPARE(store().signalList().size(), 1);
        group = store().signalList().first();
        QCOMPARE(group.line.body, QStringLiteral("2 wallets added"));
        QCOMPARE(group.notionalUsd, std::optional(14000.0));
        QCOMPARE(group.id, QStringLiteral("tw-fill-3"));
        QVERIFY(!group.detail);
        QCOMPARE(group.createdAt, T0 + 30);
    }

    void preferencesFilter()
    {
        store().ingest({fill(1, T0, "kai", "wif", 900), fill(2, T0, "mo", "bonk", 1500)});
        store().ingest({radar("pool", 3, T0)});
        QCOMPARE(store().heldCount(), 3);
        QCOMPARE(ids(store().signalList()).size(), 2); // the $900 whale is held, not shown
        QVERIFY(!ids(store().signalList()).contains(QStringLiteral("tw-fill-1")));

        Preferences p = store().preferences();
        p.streams[SignalKind::whale] = false;
        QVERIFY(store().updatePreferences(p));
        QCOMPARE(store().signalList().size(), 1);
        QCOMPARE(store().signalList().first().kind, SignalKind::spike);
        QVERIFY(!store().updatePreferences(p)); // the same value saves nothing

        // Hidden whales still merge repeats.
        store().ingest({fill(3, T0 + 5, "mo", "bonk", 1200)});
        QCOMPARE(store().heldCount(), 3);
    }

    void filterAndCounts()
    {
        store().ingest({fill(1, T0, "kai", "wif", 5000), fill(2, T0, "mo", "bonk", 5000)});
        store().ingest({radar("pool", 3, T0)});
        QSignalSpy filterSpy(&store(), &FeedStore::filterChanged);
        store().setFilter(FeedFilter::of(SignalKind::spike));
        store().setFilter(FeedFilter::of(SignalKind::spike));
        QCOMPARE(filterSpy.count(), 1);
        QCOMPARE(store().visibleSignals().size(), 1);
        QCOMPARE(store().count(FeedFilter::all()), 3);
        QCOMPARE(store().count(FeedFilter::of(SignalKind::whale)), 2);
        QCOMPARE(store().count(FeedFilter::of(SignalKind::stocks)), 0);
    }

    void heroesAndStreamNeverOverlap()
    {
        QList<TwFill> batch;
        for (int i = 0; i < 7; ++i)
            batch << fill(i + 1, T0 + i, "w", QByteArray("tok").append(char('a' + i)).constData(),
                          1000.0 * (i + 1) * (i + 1));
        store().ingest(batch);
        const QStringList heroes = ids(store().heroSignals());
        const QStringList stream = ids(store().streamSignals());
        QCOMPARE(heroes.size(), 3);
        QCOMPARE(stream.size(), 4);
        for (const QString &id : stream)
            QVERIFY(!heroes.contains(id));
        QCOMPARE(heroes.first(), QStringLiteral("tw-fill-7")); // the biggest trade scores highest
        QCOMPARE(store().tickerSignals().size(), 7);
    }

    void tickerIgnoresTheFilterAndStopsAtEight()
    {
        QList<TwFill> batch;
        for (int i = 0; i < 10; ++i)
            batch << fill(i + 1, T0, "w", QByteArray::number(i).prepend("t").constData(), 5000);
        store().ingest(batch);
        store().ingest({radar("pool", 3, T0)});
        store().setFilter(FeedFilter::of(SignalKind::spike));
        QCOMPARE(store().visibleSignals().size(), 1);
        const QList<Signal> ticker = store().tickerSignals();
        QCOMPARE(ticker.size(), 8);
        QVERIFY(std::any_of(ticker.begin(), ticker.end(),
                            [](const Signal &s) { return s.kind == SignalKind::whale; }));
        QCOMPARE(ids(store().heroSignals()), ids(store().visibleSignals()));
    }

    void scoreLosesHalfAPointPerMinute_data()
    {
        QTest::addColumn<double>("age");
        QTest::addColumn<double>("loss");
        QTest::newRow("new") << 0.0 << 0.0;
        QTest::newRow("two minutes") << 120.0 << 1.0;
        QTest::newRow("an hour") << 3600.0 << 30.0;
        QTest::newRow("from the future") << -600.0 << 0.0;
    }
    void scoreLosesHalfAPointPerMinute()
    {
        QFETCH(double, age);
        QFETCH(double, loss);
        Signal s;
        s.priority = 80;
        s.createdAt = T0 - age;
        QCOMPARE(store().score(s, T0), 80.0 - loss);
    }

    void fewSignalsAreAllHeroes()
    {
        store().ingest({fill(1, T0, "kai", "wif", 5000), fill(2, T0, "mo", "bonk", 5000)});
        QVERIFY(store().streamSignals().isEmpty());
    }

    void pruneAtExpiry()
    {
        store().ingest({fill(1, T0, "kai", "wif", 5000)});
        QCOMPARE(store().signalList().size(), 1);
        now_ = T0 + 3600 - 0.001;
        store().rebuild();
        QCOMPARE(store().signalList().size(), 1);
        now_ = T0 + 3600;
        store().rebuild();
        QCOMPARE(store().signalList().size(), 0);
        QCOMPARE(store().heldCount(), 0);
    }

    void radarResentCausesNoPublication()
    {
        QSignalSpy spy(&store(), &FeedStore::signalsChanged);
        store().ingest({radar("pool", 3, T0)});
        QCOMPARE(spy.count(), 1);
        const auto stamp = store().lastUpdate();
        now_ += 45;
        store().ingest({radar("pool", 3, T0)});
        QCOMPARE(spy.count(), 1);
        QCOMPARE(store().lastUpdate(), stamp);
        store().ingest({radar("pool", 4, T0)}); // one more wallet: a new headline
        QCOMPARE(spy.count(), 2);
        QCOMPARE(store().signalList().first().line.tag, std::optional(QStringLiteral("×4")));
    }

    void capsAtOneHundredTwenty()
    {
        QList<TwFill> batch;
        for (int i = 0; i < 200; ++i)
            batch << fill(i + 1, T0 + i, "w", QByteArray::number(i).prepend("t").constData(), 5000);
        now_ = T0 + 200;
        store().ingest(batch);
        QCOMPARE(store().signalList().size(), 120);
        QCOMPARE(store().heldCount(), 200);
        QCOMPARE(store().signalList().first().id, QStringLiteral("tw-fill-200")); // newest first
        QCOMPARE(store().telemetry().held, 200);
        QCOMPARE(store().telemetry().visible, 120);
    }

    void stockGroupsByDirectionAndWindow_data()
    {
        QTest::addColumn<QString>("secondSide");
        QTest::addColumn<double>("gap");
        QTest::addColumn<QString>("body"); // empty: nothing shown
        QTest::newRow("two sellers") << QStringLiteral("sell") << 60.0 << QStringLiteral("2 wallets dumped");
        QTest::newRow("buy and sell do not group") << QStringLiteral("buy") << 60.0 << QString();
        QTest::newRow("15 minutes apart is a new group") << QStringLiteral("sell") << 900.0 << QString();
        QTest::newRow("just inside 15 minutes")
            << QStringLiteral("sell") << 899.0 << QStringLiteral("2 wallets dumped");
    }
    void stockGroupsByDirectionAndWindow()
    {
        QFETCH(QString, secondSide);
        QFETCH(double, gap);
        QFETCH(QString, body);
        now_ = T0 + gap;
        store().ingest({fill(1, T0, "ana", "nvdax", 3000, "sell", true)});
        store().ingest({fill(2, T0 + gap, "bo", "nvdax", 2000, secondSide.toLatin1().constData(), true)});
        if (body.isEmpty()) {
            QVERIFY(store().signalList().isEmpty());
            return;
        }
        QCOMPARE(store().signalList().size(), 1);
        const Signal g = store().signalList().first();
        QCOMPARE(g.line.body, body);
        QCOMPARE(g.line.ticker, QStringLiteral("NVDAX")); // an equity keeps its symbol as is
        QCOMPARE(g.id, QStringLiteral("tw-fill-1"));      // the largest fill stands for the group
        QCOMPARE(g.expiresAt, T0 + gap + 3600);
    }

    void publishesOnlyOnChange()
    {
        QSignalSpy signalsSpy(&store(), &FeedStore::signalsChanged);
        QSignalSpy telemetrySpy(&store(), &FeedStore::telemetryChanged);
        QSignalSpy updateSpy(&store(), &FeedStore::lastUpdateChanged);
        store().ingest({fill(1, T0, "kai", "wif", 5000)});
        QCOMPARE(signalsSpy.count(), 1);
        QCOMPARE(updateSpy.count(), 1);
        const int telemetry = int(telemetrySpy.count());
        store().rebuild(); // nothing moved
        QCOMPARE(signalsSpy.count(), 1);
        QCOMPARE(telemetrySpy.count(), telemetry);
        store().ingest({fill(2, T0 + 1, "kai", "wif", 4000)}); // a smaller repeat: ignored
        QCOMPARE(signalsSpy.count(), 1);
        QCOMPARE(updateSpy.count(), 1);
        store().ingest(QList<TwFill>{});
        store().ingest(QList<TwRadar>{});
        QCOMPARE(updateSpy.count(), 1);

        QSignalSpy prefsSpy(&store(), &FeedStore::preferencesChanged);
        store().setPreferences(store().preferences());
        QCOMPARE(prefsSpy.count(), 0);
    }

    void dropsNoiseButCountsTheTick()
    {
        TwFill noise = fill(1, T0, "kai", "wif", 50000);
        noise.flags = {QStringLiteral("not a real buy (transfer)")};
        store().ingest({noise});
        QCOMPARE(store().heldCount(), 0);
        store().rebuild();
        QCOMPARE(store().telemetry().rail.size(), 1); // telemetry sees every fill
    }

    void clientCallbacks()
    {
        TarnwickClient &c = store().client();
        QSignalSpy linkSpy(&store(), &FeedStore::linkChanged);
        c.onLink(LinkState::connecting); // the initial state: no change
        QCOMPARE(linkSpy.count(), 0);
        c.onLink(LinkState::live);
        c.onLink(LinkState::live);
        QCOMPARE(linkSpy.count(), 1);
        QCOMPARE(store().link(), LinkState::live);

        QSignalSpy beatSpy(&store(), &FeedStore::heartbeatChanged);
        now_ = T0 + 7;
        c.onFrame();
        c.onFrame();
        QCOMPARE(store().heartbeat(), 2);
        QCOMPARE(beatSpy.count(), 2);

        c.onLatency(100);
        c.onLatency(200); // 0.3 new + 0.7 old
        store().rebuild();
        QVERIFY(store().telemetry().latencyMs);
        QCOMPARE(*store().telemetry().latencyMs, 130.0);
        QCOMPARE(store().telemetry().lastFrameAt, std::optional(T0 + 7));

        store().ingest({fill(1, T0, "kai", "wif", 5000)});
        // Batches from the client land in the store.
        c.onFills({fill(2, T0, "mo", "bonk", 5000)});
        QCOMPARE(store().heldCount(), 2);
    }

    void logLines()
    {
        qputenv("LARKPIN_LOG", "1");
        QStringList messages;
        {
            CaptureStderr capture;
            init(); // a store that reads the switch now
            qunsetenv("LARKPIN_LOG");
            store().client().onLink(LinkState::polling);
            TwFill noise = fill(1, T0, "kai", "wif", 50000);
            noise.flags = {QStringLiteral("not a real buy (transfer)"), QStringLiteral("new position")};
            store().ingest({noise});
            store().ingest({fill(2, T0, "kai", "wif", 5000)});
            store().ingest({fill(3, T0 + 1, "kai", "wif", 4000)}); // a smaller repeat says nothing
            store().ingest({fill(4, T0, "ana", "tslax", 4000, "buy", true)});
            store().ingest({fill(5, T0 + 1, "bo", "tslax", 9000, "buy", true)});
            store().ingest({radar("pool", 3, T0)});
            store().ingest({radar("pool", 3, T0)}); // re-sent: nothing to say
            messages = capture.messages(QStringLiteral("Larkpin"));
        }
        const Signal whale = *SignalRules::signal(fill(2, T0, "kai", "wif", 5000), nullptr, nullptr);
        const Signal spike = *SignalRules::signal(radar("pool", 3, T0), now_);
        QString group;
        for (const Signal &s : store().signalList())
            if (s.kind == SignalKind::stocks)
                group = s.line.text();
        QVERIFY(!group.isEmpty());
        const QStringList expected{
            QStringLiteral("link → polling"),
            QStringLiteral("drop  WIF ") + Format::usd(50000) +
                QStringLiteral(" — not a real buy (transfer), new position"),
            QStringLiteral("keep  [WHALE] p") + QString::number(whale.priority) + QLatin1Char(' ') +
                whale.line.text(),
            QStringLiteral("feed  1 visible / 1 held"),
            QStringLiteral("keep  [STOCK] ") + group,
            QStringLiteral("feed  2 visible / 2 held"),
            QStringLiteral("radar [SPIKE] ") + spike.line.text(),
            QStringLiteral("feed  3 visible / 3 held"),
        };
        QCOMPARE(messages, expected);
    }

    void signalsWithBrokenTimesAreNotHeld()
    {
        store().ingest({fill(1, std::numeric_limits<double>::infinity(), "kai", "wif", 5000),
                        fill(2, T0, "mo", "bonk", 5000)});
        QCOMPARE(store().heldCount(), 1);
        store().rebuild();
        QCOMPARE(store().signalList().size(), 1);
    }

    void liveAgainstTheLocalService()
    {
        tarnwick::SimOptions options;
        options.port = 0;
        options.autoTape = false;
        tarnwick::SimServer sim(options);
        QVERIFY(sim.start());
        TarnwickTiming timing;
        timing.requestTimeoutMs = 800;
        auto *client = new TarnwickClient(sim.httpBase(), sim.socketURL(), timing, systemNow);
        FeedStore live(client, systemNow, 100);
        Preferences p = Preferences::defaults();
        p.minTradeUsd = 0;
        live.setPreferences(p);
        live.start();
        QVERIFY(live.pruneTimerActive());
        QTRY_COMPARE_WITH_TIMEOUT(live.link(), LinkState::live, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!live.signalList().isEmpty(), 5000); // from the backfill
        const qint64 beats = live.heartbeat();
        sim.emitFills(4);
        QTRY_VERIFY_WITH_TIMEOUT(live.heartbeat() > beats, 3000);
        QTRY_VERIFY_WITH_TIMEOUT(live.client().lastFillId() == sim.lastFillId(), 3000);
        QVERIFY(live.lastUpdate());
        live.stop();
        QVERIFY(!live.pruneTimerActive());
        QTRY_VERIFY_WITH_TIMEOUT(sim.closeCodesReceived().contains(1001), 3000);
    }
};

QTEST_GUILESS_MAIN(FeedStoreTest)
#include "tst_feedstore.moc"
