// What the service's own bookkeeping cannot do to the feed, driven through the
// local tape service: an absurd fill id, a redeploy that numbers fills afresh,
// stamps far ahead or a clock that is off, a flood of new wallets, a short
// outage; and the limits at their shipped values (the fill cap, the deadline
// on every endpoint, the jitter of the reconnect wait).

#include "CaptureStderr.h"
#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "QuickTiming.h"
#include "Table.h"
#include "TarnwickSim.h"

#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <limits>

using namespace tarnwick;
using namespace Qt::StringLiterals;

namespace {
bool until(const std::function<bool()> &condition, int ms = 10000)
{
    return QTest::qWaitFor(condition, ms);
}

double wallNow()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

// clang-format off
constexpr double year = 365.25 * 86400;
// `taken`: the fills reach the client's owner (stamped no later than now); else each is
// dropped alone. The pile-ins began minutes to hours ago: a day and a minute
// later is less than a day ahead for them.
struct Stamp { const char *name; double shift; bool taken, radarTaken; };
const Stamp stamps[] = {
    {.name = "10 years ahead", .shift = 10 * year, .taken = false, .radarTaken = false},
    {.name = "at 1e300 s", .shift = 1e300, .taken = false, .radarTaken = false},
    {.name = "a day and a minute ahead", .shift = 86460, .taken = false, .radarTaken = true},
    {.name = "three minutes ahead: now", .shift = 180, .taken = true, .radarTaken = true},
    {.name = "on time", .shift = 0, .taken = true, .radarTaken = true},
};
// Each endpoint dripping past the request deadline, and how its caller goes on.
enum class Caller { radarLoop, enrichment, detail };
struct Deadline { const char *name; QString path; Caller caller; };
const Deadline deadlines[] = {
    {.name = "radar: the loop is re-armed", .path = u"/radar"_s, .caller = Caller::radarLoop},
    {.name = "traders: the enrichment finishes", .path = u"/traders"_s, .caller = Caller::enrichment},
    {.name = "tokens: the enrichment finishes", .path = u"/tokens"_s, .caller = Caller::enrichment},
    {.name = "trader detail: marked failed", .path = u"/trader/"_s, .caller = Caller::detail},
};
// clang-format on
} // namespace

class IntegrityTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<TarnwickClient> client_;
    QList<qint64> delivered_;
    QList<TwFill> fills_;

    static TarnwickTiming quick() { return quickTiming(); }

    TarnwickClient *newClient(TarnwickTiming timing = quick())
    {
        return new TarnwickClient(sim_->httpBase(), sim_->socketURL(), timing, systemNow);
    }

    void makeClient(TarnwickTiming timing = quick())
    {
        client_.reset(newClient(timing));
        client_->onFills = [this](const QList<TwFill> &fills) {
            fills_ << fills;
            std::ranges::transform(fills, std::back_inserter(delivered_), &TwFill::id);
        };
    }

    // Live, the backfill and the first tables in, the greeting counted.
    void startLive()
    {
        client_->start();
        QVERIFY(until([&] { return client_->socketOpenedOnce() && !delivered_.isEmpty(); }));
        QVERIFY(
            until([&] { return client_->enrichmentFetchedAt().has_value() && sim_->openSockets() == 1; }));
    }

private Q_SLOTS:
    void init()
    {
        delivered_.clear();
        fills_.clear();
        QVERIFY(startQuietSim(sim_));
    }
    void cleanup()
    {
        client_.reset();
        sim_.reset();
        qunsetenv("LARKPIN_LOG");
    }

    // One fill with id 2^63-1 is taken, but the fills after it still pass the
    // gate; two fills far ahead together move the mark (a real leap).
    void absurdIdDoesNotShutTheGate()
    {
        makeClient();
        startLive();
        const qint64 mark = client_->lastFillId();
        sim_->injectFillId(std::numeric_limits<qint64>::max());
        sim_->emitFills(1);
        QVERIFY(until([&] { return delivered_.contains(std::numeric_limits<qint64>::max()); }));
        QCOMPARE(client_->lastFillId(), mark);
        for (int i = 0; i < 5; ++i)
            sim_->emitFills(1);
        QVERIFY(until([&] { return client_->lastFillId() == sim_->lastFillId(); }));
        QCOMPARE(delivered_.last(), sim_->lastFillId());
        // A service that really jumped ahead: the second fill confirms it.
        const qint64 far = sim_->lastFillId() + 50 * TarnwickClient::idLeap;
        sim_->injectFillId(far);
        sim_->emitFills(1);
        sim_->injectFillId(far + 1);
        sim_->emitFills(1);
        QVERIFY(until([&] { return client_->lastFillId() == far + 1; }));
    }

    // A redeploy numbers fills afresh, below the mark: after one reconnect
    // the client follows the new numbering, the store forgets the old ids,
    // fills flow, and one line says why.
    void restartWithLowerIdsIsFollowed()
    {
        CaptureStderr capture;
        FeedStore store(newClient(), systemNow, 60000);
        store.start();
        QVERIFY(until([&] { return store.fillsIngested() >= 200 && store.client().socketOpenedOnce(); }));
        QVERIFY(until([&] { return sim_->openSockets() == 1; }));
        const qint64 oldMark = store.client().lastFillId();
        const qint64 ingested = store.fillsIngested();
        sim_->restartTape(1000);
        QVERIFY(until([&] { return sim_->handshakesCompleted() >= 2 && sim_->openSockets() == 1; }));
        sim_->emitFills(3);
        QVERIFY(until([&] { return store.fillsIngested() == ingested + 3; }));
        QCOMPARE(store.client().restarts(), 1);
        QCOMPARE(store.client().lastFillId(), qint64(1002));
        QVERIFY(store.seenFillCount() <= 3);
        // And on: the gate works in the new numbering.
        sim_->emitFills(2);
        QVERIFY(until([&] { return store.fillsIngested() == ingested + 5; }));
        QCOMPARE(store.client().lastFillId(), qint64(1004));
        QCOMPARE(store.fillsRepeated(), qint64(0));
        store.stop();
        const QStringList lines = capture.messages(u"tw"_s);
        QCOMPARE(lines.filter(u"tape restarted"_s),
                 QStringList{u"tape restarted: fill ids begin again below "_s + QString::number(oldMark) +
                             u", following the new numbering"_s});
    }

    // Stamps far ahead make a fill (or a pile-in) malformed alone; a few
    // minutes ahead happened now.
    void stampsAheadOfTheClock_data() { rows(stamps); }
    void stampsAheadOfTheClock()
    {
        const Stamp &r = row(stamps);
        QList<TwRadar> radar;
        int answers = 0;
        makeClient();
        client_->onRadar = [&](const QList<TwRadar> &list) {
            radar = list;
            ++answers;
        };
        startLive();
        QVERIFY(until([&] { return !radar.isEmpty(); })); // the seeded market has pile-ins
        sim_->setStampShift(r.shift);
        const qint64 dropped = client_->fillsDropped();
        const qsizetype before = fills_.size();
        sim_->emitFills(2);
        if (r.taken) {
            QVERIFY(until([&] { return fills_.size() == before + 2; }));
            QVERIFY(fills_.last().ts <= wallNow());
            QVERIFY(fills_.last().ts > wallNow() - 60);
        } else {
            QVERIFY(until([&] { return client_->fillsDropped() == dropped + 2; }));
            QCOMPARE(fills_.size(), before);
        }
        const int asked = answers;
        client_->refresh();
        QVERIFY(until([&] { return answers > asked; }));
        QCOMPARE(radar.isEmpty(), !r.radarTaken);
        for (const TwRadar &entry : std::as_const(radar))
            QVERIFY(entry.firstTs <= wallNow());
        // Whatever the stamps did, the next good fill flows.
        sim_->setStampShift(0);
        sim_->emitFills(1);
        QVERIFY(until([&] { return delivered_.last() == sim_->lastFillId(); }));
    }

    // The machine's clock is two days behind the service's: nothing is
    // hidden, stamps read in local time, one line says so.
    void wrongLocalClockHidesNothing()
    {
        CaptureStderr capture;
        sim_->setClockSkew(2 * 86400);
        makeClient();
        startLive();
        QVERIFY(delivered_.size() >= 200); // the backfill, none of it dropped
        QVERIFY(std::abs(client_->clockOffset() - 2 * 86400) < 60);
        sim_->emitFills(1);
        QVERIFY(until([&] { return delivered_.last() == sim_->lastFillId(); }));
        QVERIFY2(std::abs(fills_.last().ts - wallNow()) < 60, "a fresh fill reads as fresh");
        QCOMPARE(client_->fillsDropped(), qint64(0));
        // Each answer's Date tells the skew to a second or so; fills seen
        // before never read as newer for it (no false restart).
        for (int drop = 0; drop < 4; ++drop) {
            const int catchUps = client_->catchUps();
            sim_->dropAllSockets();
            sim_->emitFills(1); // on no socket: only a REST answer brings it
            QVERIFY(until([&] { return client_->catchUps() > catchUps; }, 20000));
            QVERIFY(until([&] { return delivered_.last() == sim_->lastFillId(); }, 20000));
        }
        QCOMPARE(client_->restarts(), 0);
        client_->stop();
        QCOMPARE(capture.messages(u"tw"_s).filter(u"clock skew"_s).size(), 1);
        QVERIFY(capture.logged("tw", "^clock skew: the tape service's clock is 17\\d{4} s ahead of this "
                                     "machine's; its stamps are read in local time$"));
    }

    // A socket that drops and comes back (no suspend) catches up on what the
    // tape took in meanwhile.
    void reconnectCatchesUp()
    {
        makeClient();
        startLive();
        QCOMPARE(client_->catchUps(), 0);
        const int handshakes = sim_->handshakesCompleted();
        sim_->dropAllSockets();
        const QList<QJsonObject> gap = sim_->emitFills(4); // on no socket at all
        QVERIFY(until([&] { return sim_->handshakesCompleted() > handshakes; }));
        for (const QJsonObject &f : gap)
            QVERIFY(until([&] { return delivered_.contains(f.value(u"id"_s).toInteger()); }));
        QCOMPARE(client_->catchUps(), 1);
        QCOMPARE(delivered_.count(gap.last().value(u"id"_s).toInteger()), 1);
    }

    // The wait the reconnect timer is started with is the back-off plus a
    // jitter in [0, 4) s, drawn afresh each time.
    void reconnectWaitCarriesItsJitter()
    {
        TarnwickTiming timing = quick();
        timing.reconnectScale = 0.25;
        makeClient(timing);
        startLive();
        QList<double> jitters;
        for (int drop = 1; drop <= 4; ++drop) {
            const int handshakes = sim_->handshakesCompleted();
            sim_->dropAllSockets();
            QVERIFY(until([&] { return client_->pendingReconnectMs() >= 0; }));
            const double waited = client_->pendingReconnectMs() / 1000.0 / timing.reconnectScale;
            const double base = TarnwickClient::reconnectBaseDelay(client_->socketFailures());
            QVERIFY2(waited >= base - 0.01 && waited < base + 4, qPrintable(QString::number(waited)));
            QVERIFY(std::abs(waited - client_->lastReconnectDelay()) < 0.01);
            jitters << waited - base;
            QVERIFY(until(
                [&] { return sim_->handshakesCompleted() > handshakes && sim_->openSockets() == 1; }, 20000));
        }
        std::ranges::sort(jitters);
        QVERIFY2(jitters.last() - jitters.first() > 0.01, "every wait drew the same jitter");
    }

    // The cap at its shipped value: a frame of 2,001 fills keeps its newest 2,000.
    void shippedFillCap()
    {
        QCOMPARE(TarnwickLimits{}.maxFillsPerFrame, 2000);
        makeClient();
        QCOMPARE(client_->limits().maxFillsPerFrame, 2000);
        startLive();
        const qsizetype before = delivered_.size();
        sim_->startFlood(2001, 1, 1);
        QVERIFY(until([&] { return delivered_.size() == before + 2000; }));
        QCOMPARE(client_->fillsDropped(), qint64(1));
        QCOMPARE(delivered_.last(), sim_->lastFillId());
    }

    // Every endpoint has the whole-request deadline, and each caller goes on.
    void deadlineOnEveryEndpoint_data() { rows(deadlines); }
    void deadlineOnEveryEndpoint()
    {
        const Deadline &r = row(deadlines);
        CaptureStderr capture;
        FeedStore store(newClient(), systemNow, 60000);
        store.start();
        QVERIFY(until([&] { return store.link() == LinkState::live && !store.signalList().isEmpty(); }));
        QVERIFY(until([&] { return !store.client().enrichmentRunning(); }));
        sim_->setEndpointFault(r.path, EndpointFault{EndpointFaultKind::Drip, 400});
        const QString failed = u"GET "_s + (r.path == u"/trader/"_s ? u"/trader/"_s : r.path) +
                               u"[^ ]* FAILED: no whole answer within 1500 ms"_s;
        switch (r.caller) {
        case Caller::radarLoop: {
            const int asked = requests(r.path);
            QVERIFY(until([&] { return requests(r.path) >= asked + 2; }, 15000)); // cut, then asked again
            break;
        }
        case Caller::enrichment:
            store.refresh();
            QVERIFY(store.client().enrichmentRunning());
            QVERIFY(until([&] { return !store.client().enrichmentRunning(); }));
            break;
        case Caller::detail: {
            const auto whale = std::ranges::find_if(store.signalList(), [](const Signal &s) {
                return s.kind == SignalKind::whale && s.wallet && s.wallet->label;
            });
            QVERIFY(whale != store.signalList().end());
            const Signal s = *whale;
            store.loadDetail(s);
            QVERIFY(until([&] { return store.failedDetail().contains(s.id); }));
            QVERIFY(!store.loadingDetail().contains(s.id));
            break;
        }
        }
        store.stop();
        QVERIFY(!capture.messages(u"tw"_s).filter(QRegularExpression(u"^"_s + failed)).isEmpty());
    }

    // New wallets and tokens by the thousand: what the store holds stays
    // within its bounds, and the drops are counted and told once.
    void floodIsBounded()
    {
        CaptureStderr capture;
        TarnwickTiming timing = quick();
        timing.pingIntervalMs = 20000; // a loaded machine may take longer than a short ping over a frame
        FeedStore store(newClient(timing), systemNow, 60000);
        store.start();
        QVERIFY(until([&] { return store.link() == LinkState::live && store.fillsIngested() >= 200; }));
        const qint64 ingested = store.fillsIngested();
        sim_->startFlood(2000, 4, 3);
        QVERIFY(until([&] { return store.fillsIngested() >= ingested + 24000; }, 90000));
        qInfo("worst lateness under the flood: %.0f ms", store.client().worstLatenessMs());
        QVERIFY(store.heldCount() <= FeedStore::maxHeld);
        QVERIFY(store.actorMarkCount() <= FeedStore::maxActorMarks);
        QVERIFY(store.stockGroupCount() <= FeedStore::maxStockGroups);
        QVERIFY(store.telemetryTickCount() <= int(TelemetryWindow::maxTicks));
        QVERIFY(store.seenFillCount() <= 4096);
        QVERIFY(store.dropped().signals >= 20000);
        QVERIFY(store.dropped().actorMarks > 0);
        QCOMPARE(store.signalList().size(), 120);
        QCOMPARE(store.telemetry().held, store.heldCount());
        store.stop();
        const QStringList told = capture.messages(u"Larkpin"_s).filter(u"store full"_s);
        QCOMPARE(told.size(), 1); // within a minute, once
        QVERIFY(told.first().startsWith(u"store full, the oldest dropped: "_s));
    }

private:
    int requests(const QString &path) const { return sim_->requestCount(path); }
};

QTEST_GUILESS_MAIN(IntegrityTest)
#include "tst_integrity.moc"
