// The store's rules, fed wire records directly under a clock the test moves.

#include "CaptureStderr.h"
#include "Feed/FeedStore.h"
#include "IsolatedSettings.h"
#include "Table.h"

#include <QSignalSpy>
#include <QTest>

#include <limits>

namespace {
using namespace Qt::StringLiterals;
constexpr double T0 = 1'700'000'000;

TwFill fill(qint64 id, double ts, const char *handle, const char *token, double usd, const char *side = "buy",
            bool stock = false)
{
    const QString t = QLatin1String(token);
    return {.id = id,
            .ts = ts,
            .side = QLatin1String(side),
            .usd = usd,
            .handle = QLatin1String(handle),
            .wallet = u'W' + QLatin1String(handle),
            .token = t,
            .symbol = t.toUpper(),
            .isStock = stock};
}

TwRadar radar(const char *token, qint64 buyers, double firstTs)
{
    const QString t = QLatin1String(token);
    return {.token = t, .symbol = t.toUpper(), .buyers = buyers, .firstTs = firstTs};
}

QStringList names(const char *spaced)
{
    return QString::fromLatin1(spaced).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QStringList ids(const QList<Signal> &list)
{
    QStringList out;
    for (const Signal &s : list)
        out << s.id;
    return out;
}

// clang-format off
struct Repeat { const char *name; double firstUsd, secondUsd, gap; bool sell; const char *kept; };
const Repeat repeats[] = {
    {.name = "smaller repeat ignored", .firstUsd = 5000, .secondUsd = 3000, .gap = 120, .sell = false,
     .kept = "tw-fill-1"},
    {.name = "equal repeat ignored", .firstUsd = 5000, .secondUsd = 5000, .gap = 120, .sell = false,
     .kept = "tw-fill-1"},
    {.name = "larger repeat replaces", .firstUsd = 3000, .secondUsd = 5000, .gap = 120, .sell = false,
     .kept = "tw-fill-2"},
    {.name = "exactly 300 s is a new move", .firstUsd = 5000, .secondUsd = 3000, .gap = 300, .sell = false,
     .kept = "tw-fill-2 tw-fill-1"},
    {.name = "older fill inside the window", .firstUsd = 5000, .secondUsd = 3000, .gap = -60, .sell = false,
     .kept = "tw-fill-1"},
    {.name = "a sell is another move", .firstUsd = 5000, .secondUsd = 3000, .gap = 10, .sell = true,
     .kept = "tw-fill-2 tw-fill-1"},
};
struct Group { const char *name, *secondSide; double gap; QString body; }; // body empty: nothing shown
const Group groups[] = {
    {.name = "two sellers", .secondSide = "sell", .gap = 60, .body = u"2 wallets dumped"_s},
    {.name = "buy and sell do not group", .secondSide = "buy", .gap = 60, .body = {}},
    {.name = "15 minutes apart is a new group", .secondSide = "sell", .gap = 900, .body = {}},
    {.name = "just inside 15 minutes", .secondSide = "sell", .gap = 899, .body = u"2 wallets dumped"_s},
};
struct Mute { const char *name, *tokens, *wallets, *hidden; };
const Mute mutes[] = {
    {.name = "token: its trades and its pile-in", .tokens = "WIF", .wallets = "",
     .hidden = "tw-fill-1 tw-radar-wif-1700000000"},
    {.name = "wallet: its trades on every token", .tokens = "", .wallets = "kai",
     .hidden = "tw-fill-1 tw-fill-3"},
    {.name = "a symbol is matched exactly", .tokens = "wif WI", .wallets = "ka", .hidden = ""},
};
// clang-format on
} // namespace

class FeedStoreTest : public QObject {
    Q_OBJECT
    double now_ = T0;
    std::unique_ptr<FeedStore> store_;

    FeedStore &store() { return *store_; }

    // A client that is never started: nothing touches the network.
    std::unique_ptr<FeedStore> makeStore()
    {
        auto made = std::make_unique<FeedStore>(new TarnwickClient(u"http://127.0.0.1:9/api"_s,
                                                                   u"ws://127.0.0.1:9/ws"_s, TarnwickTiming{},
                                                                   [this] { return now_; }),
                                                [this] { return now_; });
        made->setPreferences(Preferences::defaults());
        return made;
    }

private Q_SLOTS:
    void initTestCase() { isolateSettings(); }
    void init()
    {
        now_ = T0;
        store_ = makeStore();
    }

    void whaleRepeatsMerge_data() { rows(repeats); }
    void whaleRepeatsMerge()
    {
        const auto &[name, firstUsd, secondUsd, gap, sell, kept] = row(repeats);
        // The clock moves between the two, so the first is still remembered
        // when the second arrives: pruning must not decide the boundary.
        store().ingest({fill(1, T0, "kai", "wif", firstUsd)});
        now_ = T0 + std::max(gap, 0.0);
        store().ingest({fill(2, T0 + gap, "kai", "wif", secondUsd, sell ? "sell" : "buy")});
        QCOMPARE(ids(store().signalList()), names(kept));
    }

    // Equity fills show only as a group of at least two wallets on one
    // symbol, in one direction, within 15 minutes.
    void stockGroups_data() { rows(groups); }
    void stockGroups()
    {
        const auto &[name, secondSide, gap, body] = row(groups);
        store().ingest({fill(1, T0, "ana", "nvdax", 3000, "sell", true)});
        QVERIFY(store().signalList().isEmpty()); // one wallet alone is not shown
        now_ = T0 + gap;
        store().ingest({fill(2, T0 + gap, "bo", "nvdax", 2000, secondSide, true)});
        QCOMPARE(store().signalList().size(), body.isEmpty() ? 0 : 1);
        if (body.isEmpty())
            return;
        const Signal g = store().signalList().first();
        QCOMPARE(g.line.body, body);
        QCOMPARE(g.line.ticker, u"NVDAX"_s); // an equity keeps its symbol as is
        QCOMPARE(g.id, u"tw-fill-1"_s);      // the largest fill stands for the group
        QCOMPARE(g.expiresAt, T0 + gap + 3600);
    }

    // A group counts wallets, and each fill once: the same fills again (a
    // backfill repeating the socket) change nothing.
    void stockGroupCountsWalletsNotFills()
    {
        now_ = T0 + 100;
        store().ingest({fill(1, T0, "ana", "nvdax", 2000000, "sell", true)}); // another symbol
        store().ingest({fill(2, T0 + 10, "ana", "tslax", 4000, "buy", true)});
        store().ingest({fill(3, T0 + 20, "bo", "tslax", 9000, "buy", true)});
        store().ingest({fill(4, T0 + 30, "ana", "tslax", 1000, "buy", true)});
        store().ingest({fill(2, T0 + 10, "ana", "tslax", 4000, "buy", true),
                        fill(3, T0 + 20, "bo", "tslax", 9000, "buy", true)});
        // Taken in, repeated, ticked, shown.
        QCOMPARE((QList<qint64>{store().fillsIngested(), store().fillsRepeated(),
                                store().telemetryTickCount(), store().signalList().size()}),
                 (QList<qint64>{4, 2, 4, 1}));
        const Signal group = store().signalList().first();
        QCOMPARE(group.line.body, u"2 wallets added"_s);
        QCOMPARE(group.line.tag, std::optional(u"×2"_s));
        QCOMPARE(group.notionalUsd, std::optional(14000.0)); // the figure is the total
        QCOMPARE(group.line.figure, std::optional(u"$14.0K"_s));
        QCOMPARE(group.id, u"tw-fill-3"_s);
        QCOMPARE(group.createdAt, T0 + 30);
        QVERIFY(!group.detail);
    }

    void preferencesFilter()
    {
        // The default minimum is $1,000: exactly that much is shown.
        store().ingest({fill(1, T0, "kai", "wif", 900), fill(2, T0, "mo", "bonk", 1500),
                        fill(5, T0, "lu", "pepe", 1000)});
        store().ingest({radar("pool", 3, T0)});
        QCOMPARE(store().heldCount(), 4);
        QStringList shown = ids(store().signalList()); // the $900 whale is held, not shown
        shown.sort();
        QCOMPARE(shown, names("tw-fill-2 tw-fill-5 tw-radar-pool-1700000000"));
        QCOMPARE(std::pair(store().telemetry().held, store().telemetry().visible), std::pair(4, 3));

        Preferences p = store().preferences();
        p.streams[SignalKind::whale] = false;
        QVERIFY(store().updatePreferences(p));
        QCOMPARE(store().signalList().size(), 1);
        QCOMPARE(store().signalList().first().kind, SignalKind::spike);
        QVERIFY(!store().updatePreferences(p)); // the same value saves nothing

        store().ingest({fill(3, T0 + 5, "mo", "bonk", 1200)}); // hidden whales still merge repeats
        QCOMPARE(store().heldCount(), 4);
    }

    void publishedLists()
    {
        // 200 whales, one far larger than the rest, and one pile-in.
        QList<TwFill> batch;
        for (int i = 1; i <= 200; ++i)
            batch << fill(i, T0 + i, "w", QByteArray::number(i).prepend("t").constData(),
                          i == 150 ? 90000 : 5000);
        now_ = T0 + 200;
        store().ingest(batch);
        store().ingest({radar("pool", 3, T0 + 199.5)});
        QCOMPARE(store().heldCount(), 201);
        QCOMPARE(store().signalList().size(), 120);
        QCOMPARE(store().signalList().first().id, u"tw-fill-200"_s); // newest first
        QCOMPARE(store().telemetry().visible, 120);
        const QStringList heroes = ids(store().heroSignals()), stream = ids(store().streamSignals());
        QCOMPARE(heroes.size(), 3);
        QCOMPARE(heroes.first(), u"tw-fill-150"_s); // the biggest trade scores highest
        QCOMPARE(stream.size(), 117);
        QVERIFY(std::ranges::none_of(stream, [&](const QString &id) { return heroes.contains(id); }));

        QSignalSpy filterSpy(&store(), &FeedStore::filterChanged);
        store().setFilter(FeedFilter::of(SignalKind::spike));
        store().setFilter(FeedFilter::of(SignalKind::spike));
        QCOMPARE(filterSpy.count(), 1);
        QCOMPARE(store().count(FeedFilter::all()), 120);
        QCOMPARE(store().count(FeedFilter::of(SignalKind::spike)), 1);
        QCOMPARE(store().count(FeedFilter::of(SignalKind::stocks)), 0);
        // Few signals are all heroes; the ticker ignores the filter and stops at eight.
        QCOMPARE(ids(store().heroSignals()), ids(store().visibleSignals()));
        QVERIFY(store().streamSignals().isEmpty());
        const QList<Signal> ticker = store().tickerSignals();
        QCOMPARE(ticker.size(), 8);
        QCOMPARE(ticker.first().id, u"tw-fill-150"_s);
    }

    // Equal scores keep the published order, newest first, in the heroes and the ticker.
    void equalScoresKeepThePublishedOrder()
    {
        // $12,200 is worth 89, $10,000 88; two minutes of age cost the first one
        // point (half a point a minute), and a signal from the future gains nothing.
        store().ingest({fill(1, T0, "kai", "wif", 12200)});
        now_ = T0 + 120;
        store().ingest({fill(2, T0 + 120, "mo", "bonk", 10000)});
        QCOMPARE(store().score(store().signalList().at(0), now_),
                 store().score(store().signalList().at(1), now_));
        QCOMPARE(store().score(store().signalList().at(0), T0), 88.0);
        QCOMPARE(ids(store().heroSignals()), names("tw-fill-2 tw-fill-1"));
        QCOMPARE(ids(store().tickerSignals()), names("tw-fill-2 tw-fill-1"));
    }

    void pruneAtExpiry()
    {
        store().ingest({fill(1, T0, "kai", "wif", 5000)});
        now_ = T0 + 3600 - 0.001;
        store().rebuild();
        QCOMPARE(store().signalList().size(), 1);
        now_ = T0 + 3600; // expiring exactly now is expired
        store().rebuild();
        QCOMPARE(store().signalList().size(), 0);
        QCOMPARE(store().heldCount(), 0);
    }

    void publishesOnlyOnChange()
    {
        QSignalSpy signalsSpy(&store(), &FeedStore::signalsChanged);
        QSignalSpy telemetrySpy(&store(), &FeedStore::telemetryChanged);
        QSignalSpy updateSpy(&store(), &FeedStore::lastUpdateChanged);
        // A pile-in past its expiry is not taken in (nor stamped) on every radar answer.
        store().ingest({radar("old", 4, T0 - 1300)});
        QCOMPARE(store().heldCount(), 0);
        QVERIFY(!store().lastUpdate());
        store().ingest({fill(1, T0, "kai", "wif", 5000)});
        store().ingest({radar("old", 4, T0 - 1300), radar("pool", 3, T0 + 1)});
        QCOMPARE(std::tuple(signalsSpy.count(), updateSpy.count()), std::tuple(2, 1));
        QCOMPARE(store().lastUpdate(), std::optional(T0));
        const int telemetry = int(telemetrySpy.count());
        store().rebuild(); // nothing moved
        QCOMPARE(telemetrySpy.count(), telemetry);
        now_ += 45;
        store().ingest({fill(2, T0 + 1, "kai", "wif", 4000)}); // a smaller repeat: ignored
        store().ingest({radar("pool", 3, T0 + 1)});            // the radar re-sent
        store().ingest(QList<TwFill>{});
        store().ingest(QList<TwRadar>{});
        QCOMPARE(std::tuple(signalsSpy.count(), updateSpy.count()), std::tuple(2, 1));
        store().ingest({radar("pool", 4, T0 + 1)}); // one more wallet: a new headline
        QCOMPARE(signalsSpy.count(), 3);
        QCOMPARE(store().signalList().first().line.tag, std::optional(u"×4"_s));

        QSignalSpy prefsSpy(&store(), &FeedStore::preferencesChanged);
        store().setPreferences(store().preferences());
        QCOMPARE(prefsSpy.count(), 0);
    }

    void clientCallbacks()
    {
        TarnwickClient &c = store().client();
        QSignalSpy linkSpy(&store(), &FeedStore::linkChanged);
        c.onLink(LinkState::connecting); // the initial state: no change
        c.onLink(LinkState::live);
        c.onLink(LinkState::live);
        QCOMPARE(linkSpy.count(), 1);
        QCOMPARE(store().link(), LinkState::live);

        QSignalSpy beatSpy(&store(), &FeedStore::heartbeatChanged);
        now_ = T0 + 7;
        c.onFrame();
        c.onFrame();
        QCOMPARE(std::tuple(store().heartbeat(), beatSpy.count()), std::tuple(2, 2));
        c.onLatency(100);
        c.onLatency(200); // 0.3 new + 0.7 old

        // Batches land in the store; noise is dropped but still counted as a tick.
        TwFill noise = fill(2, T0, "kai", "wif", 50000);
        noise.flags = {u"not a real buy (transfer)"_s};
        c.onFills({fill(1, T0, "mo", "bonk", 5000), noise});
        QCOMPARE(store().heldCount(), 1);
        store().rebuild();
        QCOMPARE(store().telemetry().rail.size(), 2);
        QCOMPARE(store().telemetry().latencyMs, std::optional(130.0));
        QCOMPARE(store().telemetry().lastFrameAt, std::optional(T0 + 7));
    }

    void logLines()
    {
        qputenv("LARKPIN_LOG", "1");
        CaptureStderr capture;
        init(); // a store that reads the switch now
        store().client().onLink(LinkState::polling);
        TwFill noise = fill(1, T0, "kai", "wif", 50000);
        noise.flags = {u"not a real buy (transfer)"_s, u"new position"_s};
        store().ingest({noise});
        store().ingest({fill(2, T0, "kai", "wif", 5000)});
        store().ingest({fill(3, T0 + 1, "kai", "wif", 4000)}); // a smaller repeat says nothing
        store().ingest({fill(4, T0, "ana", "tslax", 4000, "buy", true)});
        store().ingest({fill(5, T0 + 1, "bo", "tslax", 9000, "buy", true)});
        store().ingest({radar("pool", 3, T0)});
        store().ingest({radar("pool", 3, T0)}); // re-sent: nothing to say
        // Times no clock can hold are dropped with a word, never held.
        store().ingest({fill(6, std::numeric_limits<double>::infinity(), "mo", "bonk", 5000)});
        store().ingest({radar("void", 3, std::numeric_limits<double>::quiet_NaN())});
        qunsetenv("LARKPIN_LOG");
        const QStringList messages = capture.messages(u"Larkpin"_s);
        // Scripts parse the link line, so its words are fixed. The rest are
        // read by people: one line per decision, opened by its verb and
        // naming what it is about; the wording after that is free.
        const QStringList expected{u"link → polling"_s, u"drop  WIF"_s, u"keep  [WHALE]"_s, u"feed  1 visible"_s,
                                   u"keep  [STOCK]"_s,  u"feed  2 visible"_s, u"radar [SPIKE]"_s,
                                   u"feed  3 visible"_s, u"drop  tw-fill-6"_s, u"radar entry for VOID"_s};
        QCOMPARE(messages.size(), expected.size());
        QCOMPARE(messages[0], expected[0]);
        for (qsizetype i = 1; i < expected.size(); ++i)
            QVERIFY2(messages[i].startsWith(expected[i]), qPrintable(messages[i]));
        QVERIFY(messages[2].contains(u"$WIF"_s) && messages[4].contains(u"TSLAX"_s) &&
                messages[6].contains(u"$POOL"_s));
        QCOMPARE(store().heldCount(), 3);
    }

    // A muted token or wallet is held and counted in telemetry, but reaches
    // no published list; unmuting brings back whatever is still held.
    void muteHidesEverywhere_data() { rows(mutes); }
    void muteHidesEverywhere()
    {
        const Mute &m = row(mutes);
        const QStringList tokens = names(m.tokens), wallets = names(m.wallets), hidden = names(m.hidden);
        // The same tape into a store that mutes and one that does not.
        const std::unique_ptr<FeedStore> made = makeStore();
        FeedStore &control = *made;
        Preferences muted = Preferences::defaults();
        muted.mutedTokens = tokens;
        muted.mutedWallets = wallets;
        store().setPreferences(muted);
        now_ = T0 + 60;
        for (FeedStore *s : {&store(), &control}) {
            s->ingest({fill(1, T0, "kai", "wif", 900000), fill(2, T0 + 1, "mo", "bonk", 5000),
                       fill(3, T0 + 2, "kai", "pepe", 3000), fill(4, T0 + 3, "jo", "bonk", 2000, "sell")});
            s->ingest({radar("wif", 9, T0)});
        }
        for (const QList<Signal> &list :
             {store().signalList(), store().tickerSignals(), store().visibleSignals(), store().heroSignals(),
              store().streamSignals()})
            for (const Signal &sig : list)
                QVERIFY2(!hidden.contains(sig.id), qPrintable(sig.id));
        QCOMPARE(store().signalList().size(), control.signalList().size() - hidden.size());
        QCOMPARE(store().count(FeedFilter::all()), control.count(FeedFilter::all()) - int(hidden.size()));
        QCOMPARE(store().count(FeedFilter::of(SignalKind::spike)),
                 control.count(FeedFilter::of(SignalKind::spike)) - int(hidden.filter(u"radar"_s).size()));
        // The tape itself is untouched: same fills held, same flow.
        QCOMPARE(store().heldCount(), control.heldCount());
        Telemetry seen = store().telemetry();
        seen.visible = control.telemetry().visible;
        QCOMPARE(seen, control.telemetry());

        // Unmuted later: what is still held comes back, what expired meanwhile does not.
        now_ = T0 + 1201; // the pile-in has expired by now
        store().rebuild();
        control.rebuild();
        QVERIFY(store().updatePreferences(Preferences::defaults()));
        QCOMPARE(ids(store().signalList()), ids(control.signalList()));
        QCOMPARE(ids(store().tickerSignals()), ids(control.tickerSignals()));
    }

    // A watched wallet's trade is always in the ticker's rotation, however
    // small beside the rest, as long as it clears the minimum size.
    void watchedStayInTheTicker()
    {
        QList<TwFill> batch;
        for (int i = 1; i <= 12; ++i)
            batch << fill(i, T0 + i, "big", QByteArray::number(i).prepend("t").constData(), 500000);
        batch << fill(20, T0, "kim", "small", 1200) << fill(21, T0, "kim", "tiny", 800)
              << fill(22, T0, "lee", "tiny", 1200);
        now_ = T0 + 30;
        store().ingest(batch);
        QVERIFY(!ids(store().tickerSignals()).contains(u"tw-fill-20"_s));

        Preferences p = store().preferences();
        p.watchedWallets = {u"kim"_s};
        QVERIFY(store().updatePreferences(p));
        const QStringList ticker = ids(store().tickerSignals());
        QCOMPARE(ticker.size(), 8);
        QVERIFY(ticker.contains(u"tw-fill-20"_s));
        QVERIFY(!ticker.contains(u"tw-fill-21"_s)); // under the minimum
        QVERIFY(!ticker.contains(u"tw-fill-22"_s)); // not watched
        QCOMPARE(ticker.last(), u"tw-fill-20"_s);   // still ranked by score
        QCOMPARE(store().watchedHandles(), QSet<QString>{u"kim"_s});

        // Muting beats watching: a muted wallet is never shown.
        p.mutedWallets = {u"kim"_s};
        QVERIFY(store().updatePreferences(p));
        QVERIFY(!ids(store().tickerSignals()).contains(u"tw-fill-20"_s));
    }
};

QTEST_GUILESS_MAIN(FeedStoreTest)
#include "tst_feedstore.moc"
