// The live link against the local tape service on real sockets, every
// interval shortened, each link state driven by a fault; the REST rules; and a
// hostile or flaky service: what it sends is bounded while it arrives (and the
// link goes on), one bad fill spoils only itself, a wake reconnects at once.

#include "CaptureStderr.h"
#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Feed/WakeWatch.h"
#include "QuickTiming.h"
#include "Table.h"
#include "TarnwickSim.h"
#include "Wire/Tarnwick.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace tarnwick;
using namespace Qt::StringLiterals;

namespace {
// One "fills" frame; an id of 0 stands for one past 64 bits.
QByteArray fillsFrame(const QList<qint64> &ids)
{
    QList<QByteArray> fills;
    for (qint64 id : ids)
        fills << R"({"id":)" + (id ? QByteArray::number(id) : QByteArray("9223372036854775808")) +
                     R"(,"ts":1700000000,"side":"buy","usd":5000,"handle":"kai","wallet":"W","token":"T",)"
                     R"("symbol":"WIF"})";
    return R"({"type":"fills","data":[)" + fills.join(',') + "]}";
}

bool until(const std::function<bool()> &condition, int ms = 5000)
{
    return QTest::qWaitFor(condition, ms);
}

constexpr qint64 bigTape = qint64(300) * 1024 * 1024;

// clang-format off
// In each row only one thing can start the poller; `logged` is the line
// that says why (empty: the socket never fails).
struct Fallback { const char *name; HandshakeMode handshake; int watchdogMs, handshakeMs; QString logged; };
constexpr auto hang = HandshakeMode::Hang;
const Fallback fallbacks[] = {
    {.name = "watchdog, handshake hangs", .handshake = hang, .watchdogMs = 400, .handshakeMs = 60000,
     .logged = {}},
    {.name = "handshake deadline, handshake hangs", .handshake = hang, .watchdogMs = 60000,
     .handshakeMs = 300, .logged = u"connect FAILED: no handshake within 300 ms"_s},
    {.name = "refused", .handshake = HandshakeMode::Refuse, .watchdogMs = 60000, .handshakeMs = 60000,
     .logged = u"receive FAILED: "_s},
};
// `status`: what the service answers.
struct Rest { const char *name; EndpointFaultKind fault; int status; bool roundTrip; };
using enum EndpointFaultKind;
const Rest rests[] = {
    {.name = "healthy", .fault = None, .status = 200, .roundTrip = true},
    {.name = "500", .fault = Status500, .status = 500, .roundTrip = false},
    {.name = "204 fails like 500", .fault = Status204, .status = 204, .roundTrip = false},
    {.name = "304 fails like 500", .fault = Status304, .status = 304, .roundTrip = false},
    {.name = "200 with a body that does not decode", .fault = BadBody, .status = 200, .roundTrip = true},
    {.name = "slower than the time-out", .fault = Delay, .status = 200, .roundTrip = false},
    {.name = "body cut short", .fault = CutShort, .status = 200, .roundTrip = false},
};
struct Path { const char *name; QString handle, segment; };
const Path paths[] = {
    {.name = "space, hash, query, percent", .handle = u"a b#c?d%"_s, .segment = u"a%20b%23c%3Fd%25"_s},
    {.name = "slash stays inside the segment", .handle = u"../admin"_s, .segment = u"..%2Fadmin"_s},
    {.name = "non-ASCII as UTF-8", .handle = u"zoë"_s, .segment = u"zo%C3%AB"_s},
    {.name = "path-allowed marks kept", .handle = u"a@b:c+d"_s, .segment = u"a@b:c+d"_s},
};
struct Env { const char *name; QByteArray env; };
const Env envs[] = {
    {.name = "LARKPIN_LOG=1", .env = "1"},
    {.name = "true is not 1", .env = "true"},
};
struct Oversize { const char *name; qint64 bytes, frameBytes; }; // frameBytes 0: one frame announcing it all
const Oversize oversizes[] = {
    {.name = "300 MB in one frame", .bytes = bigTape, .frameBytes = 0},
    {.name = "100 MB in frames of 1 MB", .bytes = qint64(100) << 20, .frameBytes = 1 << 20},
};
struct Bounded { const char *name; EndpointFaultKind fault; bool declared; QString why; };
const QString overLimit = u"answer over the limit of 1048576 bytes"_s;
const Bounded bounded[] = {
    {.name = "endless chunked", .fault = EndpointFaultKind::Endless, .declared = false, .why = overLimit},
    {.name = "300 MB, length declared", .fault = EndpointFaultKind::Huge, .declared = true,
     .why = u"answer of %1 bytes is over the limit of 1048576"_s.arg(bigTape)},
    {.name = "300 MB, chunked", .fault = EndpointFaultKind::Huge, .declared = false, .why = overLimit},
    {.name = "a byte every 300 ms", .fault = EndpointFaultKind::Drip, .declared = true,
     .why = u"no whole answer within 1500 ms"_s},
};
// A socket that fails at once: `refusedBy403` the service answers the upgrade
// with 403 (its REST side healthy), else nothing listens at the address at all.
struct SocketRefusal { const char *name; bool refusedBy403, unreachable; };
const SocketRefusal refusals[] = {
    {.name = "upgrade answered 403: it answers", .refusedBy403 = true, .unreachable = false},
    {.name = "nothing listens at the address", .refusedBy403 = false, .unreachable = true},
};
struct Wake { const char *name; bool resume; }; // else: the network came back
const Wake wakes[] = {
    {.name = "resume from suspend", .resume = true},
    {.name = "network back online", .resume = false},
};
// clang-format on
} // namespace

class LinkTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<TarnwickClient> client_;
    QList<LinkState> links_;
    QList<qint64> delivered_;
    int frames_ = 0, batches_ = 0;

    static TarnwickTiming quick() { return quickTiming(); }

    void makeClient(TarnwickTiming timing = quick(), Clock now = systemNow, QString httpBase = {})
    {
        client_ = std::make_unique<TarnwickClient>(httpBase.isEmpty() ? sim_->httpBase() : httpBase,
                                                   sim_->socketURL(), timing, std::move(now));
        client_->onLink = [this](LinkState s) { links_ << s; };
        client_->onFills = [this](const QList<TwFill> &fills) {
            ++batches_;
            std::ranges::transform(fills, std::back_inserter(delivered_), &TwFill::id);
        };
        client_->onFrame = [this] { ++frames_; };
    }

    int requests(const char *path) const { return sim_->requestCount(QLatin1String(path)); }

    bool waitForLink(LinkState state)
    {
        return until([&] { return !links_.isEmpty() && links_.last() == state; });
    }
    // The sim greets every socket with a frame, so an open socket goes live at once.
    bool waitForSocket()
    {
        return until([&] { return sim_->openSockets() >= 1 && client_->hasSocket(); });
    }

    // Live, with the start-up requests landed, so that the case alone is seen.
    void startLive()
    {
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(until([&] { return !delivered_.isEmpty() && client_->enrichmentFetchedAt(); }));
        QVERIFY(waitForSocket());
    }

    // One REST answer through tape(): "" when fills came without an error,
    // else "failed: " and the error.
    QString tapeError()
    {
        std::optional<QString> error;
        client_->tape(200, this, [&](std::optional<QList<TwFill>> fills, QString e) {
            error = fills ? e : u"failed: "_s + e;
        });
        return until([&] { return error.has_value(); }, 10000) ? *error : u"no answer at all"_s;
    }

    // Fills emitted while the poller runs, each batch picked up by a poll.
    void emitThroughPolls(int batches, int size)
    {
        for (int i = 0; i < batches; ++i) {
            const int polls = requests("/tape");
            sim_->emitFills(size);
            QVERIFY(until([&] { return requests("/tape") > polls; }));
        }
    }

    // Everything delivered from `from` on came once and in order.
    void verifyDeliveredOnce(qsizetype from, qsizetype count)
    {
        QVERIFY(until([&] { return delivered_.last() == sim_->lastFillId(); }));
        const QList<qint64> tail = delivered_.mid(from);
        QVERIFY(std::ranges::is_sorted(tail) && std::ranges::adjacent_find(tail) == tail.end());
        QCOMPARE(tail.size(), count);
    }

    // The service stopped being read long before the message or body was whole.
    void verifyStreamCut()
    {
        QVERIFY(until([&] { return sim_->streamsRunning() == 0; }));
        QVERIFY2(sim_->streamedBytes() < 48 * 1024 * 1024,
                 qPrintable(QString::number(sim_->streamedBytes())));
    }

private Q_SLOTS:
    void init()
    {
        links_.clear();
        delivered_.clear();
        frames_ = batches_ = 0;
        QVERIFY(startQuietSim(sim_));
    }
    void cleanup()
    {
        client_.reset();
        sim_.reset();
        qunsetenv("LARKPIN_LOG");
    }

    // Connecting, then live with the backfill; stop() is quiet and a restart refills.
    void connectingLiveStopRestart()
    {
        double now = 1000;
        makeClient(quick(), [&] { return now; });
        client_->start();
        QCOMPARE(links_, QList<LinkState>{LinkState::connecting});
        QVERIFY(waitForLink(LinkState::live));
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::live}));
        QVERIFY(!client_->isPolling());
        QVERIFY(until([&] { return !delivered_.isEmpty() && client_->enrichmentFetchedAt(); }));
        QVERIFY(std::is_sorted(delivered_.begin(), delivered_.end()));
        QCOMPARE(requests("/tape"), 1);
        QVERIFY(requests("/radar") >= 1);
        // Any socket message, even one without fills, reloads stale enrichment.
        const int loads = requests("/traders");
        now += 120;
        sim_->sendFrameOfType(u"stats"_s);
        QVERIFY(until([&] { return requests("/traders") > loads && !client_->enrichmentRunning(); }));
        QVERIFY(waitForSocket());
        const int reports = int(links_.size());
        const qint64 mark = client_->lastFillId();
        client_->stop();
        QVERIFY(client_->isStopped() && !client_->socketOpenedOnce());
        QVERIFY(until([&] { return sim_->closeCodesReceived().contains(1001); }));
        QCOMPARE(sim_->closeCodesReceived(), QList<int>{1001});
        const int served = requests("");
        sim_->emitFills(3);
        QTest::qWait(quick().radarIntervalMs + 200); // long enough for every loop to have run
        QCOMPARE(links_.size(), reports);            // stop() reports nothing
        QCOMPARE(requests(""), served);
        QCOMPARE(requests("/ws"), 1);

        delivered_.clear();
        client_->start();
        QCOMPARE(links_.value(reports), LinkState::connecting);
        QVERIFY(waitForLink(LinkState::live));
        // The backfill after a restart is ungated: it refills what was seen.
        QVERIFY(until([&] { return !delivered_.isEmpty(); }));
        QVERIFY(delivered_.first() <= mark);
        QCOMPARE(client_->lastFillId(), sim_->lastFillId());
    }

    void socketHandshakeCarriesTheUserAgent()
    {
        // REST goes nowhere, so the only request the service sees is the upgrade.
        makeClient(quick(), systemNow, u"http://127.0.0.1:9/api"_s);
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QCOMPARE(requests(""), requests("/ws"));
        QCOMPARE(sim_->lastUserAgent(), QByteArray("Larkpin/0.1 (+") + Tarnwick::siteURL().toUtf8() + ')');
    }

    void fallsBackToPolling_data() { rows(fallbacks); }
    void fallsBackToPolling()
    {
        const auto &[name, handshake, watchdogMs, handshakeMs, logged] = row(fallbacks);
        CaptureStderr capture;
        sim_->setHandshakeMode(handshake);
        TarnwickTiming timing = quick();
        timing.openWatchdogMs = watchdogMs;
        timing.handshakeTimeoutMs = handshakeMs;
        timing.radarIntervalMs = 60000; // each poll re-arms on the poll's own period
        makeClient(timing);
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(client_->isPolling() && !client_->socketOpenedOnce());
        if (!logged.isEmpty()) {
            QVERIFY(until([&] { return client_->socketFailures() >= 2; })); // new sockets are tried
        } else {
            // The watchdog does not close the socket: it may still open.
            QVERIFY(client_->hasSocket());
            QCOMPARE(client_->socketFailures(), 0);
        }
        QVERIFY(until([&] { return requests("/tape") >= 4; }));
        // A running poller is not announced twice; what never worked never dropped.
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::polling}));
        client_->stop();
        const QStringList messages = capture.messages(u"tw"_s);
        // A socket that never opened is not reported as a missed pong.
        QVERIFY2(messages.filter(u"ping FAILED"_s).isEmpty() &&
                     (logged.isEmpty() || !messages.filter(logged).isEmpty()),
                 qPrintable(messages.join(u'\n')));
    }

    // The first drop (a ping left unanswered) shows as down, the second as polling.
    void firstDropIsDownSecondIsPolling()
    {
        CaptureStderr capture;
        makeClient();
        startLive();
        sim_->setAnswerPings(false);
        QVERIFY(waitForLink(LinkState::down));
        QCOMPARE(client_->socketFailures(), 1);
        sim_->setAnswerPings(true);
        // The reconnected socket delivers, but the pill keeps showing the drop.
        const int greeted = frames_;
        QVERIFY(until([&] { return frames_ > greeted; }));
        sim_->emitFills(1);
        QVERIFY(until([&] { return frames_ > greeted + 1; }));
        QCOMPARE(links_.last(), LinkState::down);
        QCOMPARE(client_->socketFailures(), 1); // only the first frame after start() resets it
        // The second, the service hanging up after two more frames (the last
        // of them still arrives), shows as polling.
        sim_->dropSocketsAfterFrames(2);
        sim_->emitFills(1);
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::polling));
        QCOMPARE(frames_, greeted + 4);
        sim_->dropSocketsAfterFrames(0);
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::live, LinkState::down,
                                           LinkState::polling}));
        // Once a socket has worked in this run, polling goes on beside the
        // next one; the high-water mark keeps the two from repeating each other.
        QVERIFY(waitForSocket());
        const qsizetype from = delivered_.size();
        emitThroughPolls(6, 2);
        QVERIFY(client_->isPolling());
        verifyDeliveredOnce(from, 12);
        client_->stop();
        QVERIFY(capture.logged("tw", "^ping FAILED: no pong within 300 ms$"));
    }

    void pollerHandsOverToALaterSocket()
    {
        sim_->setHandshakeMode(HandshakeMode::Refuse);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(until([&] { return !delivered_.isEmpty(); })); // the backfill
        const qsizetype backfilled = delivered_.size();
        emitThroughPolls(3, 3); // fills arrive while only the poller runs ...
        sim_->setHandshakeMode(HandshakeMode::Accept);
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(!client_->isPolling());
        QCOMPARE(client_->socketFailures(), 0);
        QVERIFY(waitForSocket());
        const int polls = requests("/tape");
        for (int i = 0; i < 3; ++i) // ... then through the socket, none of them twice
            sim_->emitFills(2);
        verifyDeliveredOnce(backfilled, 15);
        QTest::qWait(quick().pollIntervalMs * 3);
        // The cancelled poller stays quiet: at most a poll already in flight and
        // the reconnect's own catch-up may still reach the tape (a running
        // poller would add three more in this time).
        QVERIFY(requests("/tape") <= polls + 2);
    }

    // Qt reports an upgrade refused with an HTTP status like a refused TCP
    // connection; only the latter is a service that cannot be reached.
    void socketRefusalIsNotUnreachableWhenItAnswers_data() { rows(refusals); }
    void socketRefusalIsNotUnreachableWhenItAnswers()
    {
        const auto &[name, refusedBy403, unreachable] = row(refusals);
        QString httpBase = sim_->httpBase(), socketURL = sim_->socketURL();
        if (refusedBy403) {
            sim_->setHandshakeMode(HandshakeMode::Refuse);
        } else {
            QTcpServer closed; // a port that was free a moment ago: nothing listens there
            QVERIFY(closed.listen(QHostAddress::LocalHost));
            httpBase = u"http://127.0.0.1:%1/api"_s.arg(closed.serverPort());
            socketURL = u"ws://127.0.0.1:%1/ws"_s.arg(closed.serverPort());
        }
        client_ = std::make_unique<TarnwickClient>(httpBase, socketURL, quick(), systemNow);
        QList<LinkTrouble::Kind> seen;
        client_->onTrouble = [&](const LinkTrouble &t) { seen << t.kind; };
        client_->start();
        const bool failed = until([&] { return client_->socketFailures() >= 3; }, 20000);
        client_->stop();
        client_->onTrouble = nullptr; // `seen` ends with this function
        QVERIFY(failed);
        QCOMPARE(seen.contains(LinkTrouble::unreachable), unreachable);
    }

    void restStatusRules_data() { rows(rests); }
    void restStatusRules()
    {
        const auto &[name, fault, status, roundTrip] = row(rests);
        QSignalSpy served(sim_.get(), &SimServer::requestServed);
        sim_->setEndpointFault(u"/tape"_s, EndpointFault{fault, 2000});
        makeClient();
        double latency = -1;
        client_->onLatency = [&](double ms) { latency = ms; };
        QElapsedTimer clock;
        clock.start();
        const QString error = tapeError();
        const bool healthy = fault == None;
        QCOMPARE(served.value(0).value(1).toInt(), status);
        QCOMPARE(error.isEmpty(), healthy);
        QVERIFY2(healthy || error.size() > 8, qPrintable(error)); // a failure says why
        QCOMPARE(latency >= 0, roundTrip); // a 200 that fails to decode still counts as a round trip
        if (fault == Delay)
            QVERIFY2(clock.elapsed() < 1900, "the request time-out did not end the slow request");
        if (!healthy)
            return;
        QCOMPARE(sim_->lastUserAgent(), Tarnwick::userAgent());
        // Nothing is cached, so no cache headers are asked for.
        const QList<QByteArray> names = sim_->lastRequestHeaderNames();
        QVERIFY2(!names.contains("cache-control") && !names.contains("pragma"), names.join(' ').constData());
    }

    void traderPath_data() { rows(paths); }
    void traderPath()
    {
        const auto &[name, handle, segment] = row(paths);
        QCOMPARE(TarnwickClient::traderPath(handle), u"/trader/"_s + segment + u"?window=24h&stocks=true"_s);
        // ... and that is the path the service sees (it knows no such trader).
        makeClient();
        QString error;
        client_->traderDetail(
            handle, this, [&](std::optional<TwTraderDetail> d, QString e) { error = d ? u"decoded"_s : e; });
        QVERIFY(until([&] { return !error.isEmpty(); }));
        QCOMPARE(sim_->requestCount(u"/trader/"_s + segment), 1);
        QVERIFY(error.contains(u"404"_s));
    }

    void reconnectBackOff()
    {
        // min(2 x failures + 2, 30) seconds, plus a jitter spread over [0, 4).
        QCOMPARE(TarnwickClient::reconnectBaseDelay(1), 4.0);
        QCOMPARE(TarnwickClient::reconnectBaseDelay(13), 28.0);
        QCOMPARE(TarnwickClient::reconnectBaseDelay(14), 30.0);
        QCOMPARE(TarnwickClient::reconnectBaseDelay(1000), 30.0);
        double low = 4, high = 0;
        for (int i = 0; i < 2000; ++i) {
            const double j = TarnwickClient::jitter();
            QVERIFY(j >= 0 && j < 4);
            low = std::min(low, j);
            high = std::max(high, j);
        }
        QVERIFY(low < 0.5 && high > 3.5);
    }

    void enrichment()
    {
        double now = 1000;
        makeClient(quick(), [&] { return now; });
        const auto load = [&] {
            client_->ensureEnrichment();
            client_->ensureEnrichment(); // one load at a time
            return client_->enrichmentRunning() && until([&] { return !client_->enrichmentRunning(); });
        };
        QVERIFY(load());
        QCOMPARE(requests("/traders"), 1);
        QCOMPARE(requests("/tokens"), 1);
        QCOMPARE(client_->enrichmentFetchedAt(), std::optional(1000.0));
        // Mints are found in any case, handles only as written.
        const QJsonObject made = sim_->emitFills(1).first();
        const QString mint = made.value(u"token"_s).toString();
        const QString handle = made.value(u"handle"_s).toString();
        QVERIFY(client_->token(mint) && client_->token(mint.toUpper()) && client_->token(mint.toLower()));
        QVERIFY(client_->trader(handle));
        if (handle.toUpper() != handle)
            QVERIFY(!client_->trader(handle.toUpper()));

        now += 119;
        client_->ensureEnrichment();
        QVERIFY(!client_->enrichmentRunning()); // still fresh
        // A failed half keeps its last good table; the stamp is set either way.
        const int traders = client_->traderCount(), tokens = client_->tokenCount();
        sim_->setEndpointFault(u"/traders"_s, EndpointFault{EndpointFaultKind::Status500, 0});
        now += 1;
        QVERIFY(load());
        QCOMPARE(requests("/traders"), 2);
        QCOMPARE(client_->traderCount(), traders);
        QCOMPARE(client_->enrichmentFetchedAt(), std::optional(1120.0));
        sim_->clearFaults();
        sim_->setEndpointFault(u"/tokens"_s, EndpointFault{EndpointFaultKind::Status500, 0});
        client_->clearEnrichmentStamp(); // stale at once, whatever the clock says
        QVERIFY(load());
        QCOMPARE(requests("/tokens"), 3);
        QCOMPARE(client_->tokenCount(), tokens);
    }

    // Bad frames and fills cost only themselves (the decoding is tst_decode's);
    // the log says what came, one line each.
    void badFramesAreHarmlessAndLogged_data() { rows(envs); }
    void badFramesAreHarmlessAndLogged()
    {
        const QByteArray &env = row(envs).env;
        qputenv("LARKPIN_LOG", env);
        CaptureStderr capture;
        makeClient();
        client_->setLimits({.maxFillsPerFrame = 3});
        startLive();
        QCOMPARE(client_->framesReceived(), 1); // the greeting
        const int batches = batches_;
        const qint64 mark = client_->lastFillId();
        sim_->sendRawFrame("{]");
        sim_->sendRawFrame(R"({"type":"fills","data":{"broken":true}})");
        sim_->sendRawFrame(R"({"type":"fills","data":[]})", true);
        sim_->sendRawFrame(fillsFrame({mark - 1, mark})); // all at or below the mark
        sim_->sendFrameOfType(u"stats"_s);
        sim_->sendRawFrame(R"({"type":"x\n00:00:00 [tw] forged","data":null})");
        QVERIFY(until([&] { return client_->framesReceived() == 7; }));
        QCOMPARE(frames_, 7);
        QCOMPARE(batches_, batches);            // nothing passed the gate
        QCOMPARE(client_->fillsReceived(), 2);  // but the fills were counted
        QCOMPARE(client_->socketFailures(), 0); // and the link stays up
        QCOMPARE(links_.last(), LinkState::live);
        // Still good for real fills: a bad one drops only itself, a frame over
        // the cap keeps its newest.
        const qsizetype before = delivered_.size();
        sim_->sendRawFrame(fillsFrame({mark + 1, 0, mark + 2}), true);
        sim_->sendRawFrame(fillsFrame({mark + 3, mark + 4, mark + 5, mark + 6, mark + 7}));
        QVERIFY(until([&] { return client_->lastFillId() == mark + 7; }));
        QCOMPARE(delivered_.mid(before), (QList<qint64>{mark + 1, mark + 2, mark + 5, mark + 6, mark + 7}));
        QCOMPARE(client_->fillsDropped(), qint64(3));
        QCOMPARE(links_.last(), LinkState::live);
        QTest::qWait(quick().pingIntervalMs * 2 + 100); // at least one answered ping
        client_->stop();

        const QStringList messages = capture.messages(u"tw"_s);
        if (env != "1") {
            QVERIFY2(messages.isEmpty(), qPrintable(messages.join(QLatin1Char('\n'))));
            return;
        }
        for (const char *line :
             {"frame #1 type=hello", "frame #2 UNDECODABLE", "frame #5 fills=2 (total 2)",
              "frame #6 type=stats", "frame #8 fills=2 (total 4)", "frame #8 1 fills did not decode, dropped",
              "frame #9 fills=5 (total 9)", "frame #9 over 3 fills: the oldest 2 dropped"})
            QVERIFY2(messages.contains(QLatin1String(line)), line);
        // A line feed in wire text cannot forge a second line.
        QVERIFY(messages.contains(u"frame #7 type=x 00:00:00 [tw] forged"_s));
        QVERIFY(!messages.contains(u"forged"_s));
        const QRegularExpression pingOk(u"^ping ok \u00b7 frames=\\d+ fills=9$"_s);
        QVERIFY2(!messages.filter(pingOk).isEmpty(), qPrintable(messages.join(QLatin1Char('\n'))));
    }

    // A socket message over the limit is refused while it arrives, the socket
    // closes and the link comes back under the back-off.
    void oversizedSocketMessage_data() { rows(oversizes); }
    void oversizedSocketMessage()
    {
        const auto &[name, bytes, frameBytes] = row(oversizes);
        CaptureStderr capture;
        makeClient();
        startLive();
        const int handshakes = sim_->handshakesCompleted();
        sim_->sendOversizedMessage(bytes, frameBytes);
        QVERIFY(waitForLink(LinkState::down));
        verifyStreamCut();
        // Reconnected, and good frames flow again.
        QVERIFY(until([&] { return sim_->handshakesCompleted() > handshakes && sim_->openSockets() == 1; }));
        const qint64 mark = client_->lastFillId();
        sim_->emitFills(2);
        QVERIFY(
            until([&] { return client_->lastFillId() == sim_->lastFillId() && sim_->lastFillId() > mark; }));
        client_->stop();
        QCOMPARE(capture.messages(u"tw"_s)
                     .filter(QStringLiteral(
                         "receive FAILED: a message over 1048576 bytes, dropped; the socket is closed"))
                     .size(),
                 1);
    }

    // REST answers over the limit are cut while they arrive; a drip is cut by
    // the request's deadline, however steadily its bytes come.
    void boundedRestAnswers_data() { rows(bounded); }
    void boundedRestAnswers()
    {
        const auto &[name, fault, declared, why] = row(bounded);
        CaptureStderr capture;
        makeClient();
        sim_->setEndpointFault(u"/tape"_s, {fault, 300, bigTape, declared});
        QCOMPARE(tapeError(), u"failed: "_s + why);
        verifyStreamCut();
        // The next request is served as usual.
        sim_->setEndpointFault(u"/tape"_s, {});
        QCOMPARE(tapeError(), QString());
        QCOMPARE(capture.messages(u"tw"_s), QStringList{u"GET /tape FAILED: "_s + why});
    }

    // The backfill is cut like any request and tried again until it lands.
    void dripBackfillIsCutAndRetried()
    {
        CaptureStderr capture;
        sim_->setEndpointFault(u"/tape"_s, EndpointFault{EndpointFaultKind::Drip, 300});
        sim_->setHandshakeMode(HandshakeMode::Refuse); // nothing else brings fills
        makeClient();
        client_->start();
        QVERIFY(until([&] { return requests("/tape") >= 2; }, 8000));
        QVERIFY(delivered_.isEmpty());
        sim_->setEndpointFault(u"/tape"_s, {});
        QVERIFY(until([&] { return delivered_.size() >= 200; }, 8000)); // the backfill, not only a poll
        client_->stop();
        QVERIFY(
            capture.logged("tw", "^backfill FAILED: no whole answer within 1500 ms, again in \\d+\\.\\d s$"));
    }

    // The socket brings fills before the backfill answers with the same ones:
    // each is taken in (and ticked) once. The store runs the client and its
    // pruning only between start() and stop().
    void socketBeforeBackfillCountsOnce()
    {
        sim_->setEndpointFault(u"/tape"_s, EndpointFault{EndpointFaultKind::SocketFirst, 300});
        FeedStore store(new TarnwickClient(sim_->httpBase(), sim_->socketURL(), quick(), systemNow),
                        systemNow, 60000);
        store.start();
        QVERIFY(store.pruneTimerActive());
        QVERIFY(until([&] { return store.link() == LinkState::live && requests("/tape") >= 1; }));
        QVERIFY(until([&] { return store.fillsIngested() >= 200; }));
        QTest::qWait(500); // both halves of the race have landed
        // The two fills of the frame are among the 200 of the backfill.
        QCOMPARE(sim_->fillsEmitted(), 2);
        QCOMPARE(store.fillsIngested(), 200);
        QCOMPARE(store.fillsRepeated(), 2);
        QVERIFY(!store.signalList().isEmpty() && store.lastUpdate());
        store.stop();
        QVERIFY(!store.pruneTimerActive());
        QVERIFY(until([&] { return sim_->closeCodesReceived() == QList<int>{1001}; }));
    }

    // Wake through the injectable seam: a dropped link waiting out its
    // back-off (4 s or more) reconnects within a second.
    void wakeReconnectsAtOnce_data() { rows(wakes); }
    void wakeReconnectsAtOnce()
    {
        const bool resume = row(wakes).resume;
        CaptureStderr capture;
        TarnwickTiming timing = quick();
        timing.reconnectScale = 1.0;
        makeClient(timing);
        WakeWatch watch(0);
        QVERIFY(!watch.watchesSleep() && !watch.watchesNetwork());
        client_->watch(&watch);
        startLive();
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::down));
        const int handshakes = sim_->handshakesCompleted();
        QElapsedTimer clock;
        clock.start();
        if (resume) {
            watch.prepareForSleep(true);
            watch.prepareForSleep(false);
        } else {
            watch.reachabilityChanged(1); // disconnected
            watch.reachabilityChanged(4); // online
            watch.reachabilityChanged(4); // no change: nothing more
        }
        QVERIFY(until([&] { return sim_->handshakesCompleted() > handshakes; }, 1000));
        QVERIFY2(clock.elapsed() < 1000, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(client_->wakes(), 1);
        const qint64 mark = client_->lastFillId();
        sim_->emitFills(1);
        QVERIFY(until([&] { return client_->lastFillId() > mark; }));
        client_->stop();
        const QString reason = resume ? u"resumed from sleep"_s : u"network is back"_s;
        QVERIFY(capture.messages(u"tw"_s).contains(u"wake: "_s + reason + u", reconnecting now"_s));
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
