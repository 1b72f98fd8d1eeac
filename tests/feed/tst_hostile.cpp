// A hostile or flaky service against the real client on real sockets: what
// it sends is bounded while it arrives (and the link goes on), one bad fill
// spoils only itself, every fill is counted once, and a wake reconnects at once.

#include "CaptureStderr.h"
#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Feed/WakeWatch.h"
#include "TarnwickSim.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

using namespace tarnwick;

namespace {
bool until(const std::function<bool()> &condition, int ms = 5000)
{
    return QTest::qWaitFor(condition, ms);
}

// The process's peak resident memory so far, in MB (VmHWM): were any of the
// payloads below held whole, it would stand past their size. AddressSanitizer
// keeps freed memory in quarantine, so there only the bytes that went onto
// the wire tell (0 reads as "nothing to see").
double peakMb()
{
#if defined(__SANITIZE_ADDRESS__)
    return 0;
#endif
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    return -1;
}

QByteArray fillJson(const QByteArray &id, const QByteArray &usd = "5000")
{
    return R"({"id":)" + id + R"(,"ts":1700000000,"side":"buy","usd":)" + usd +
           R"(,"handle":"kai","wallet":"W","token":"T","symbol":"WIF"})";
}

TwFill equity(qint64 id, const QString &handle, double usd, double ts)
{
    TwFill f;
    f.id = id;
    f.ts = ts;
    f.side = QStringLiteral("buy");
    f.usd = usd;
    f.handle = handle;
    f.wallet = QStringLiteral("W-") + handle;
    f.token = QStringLiteral("TSLAx-mint");
    f.symbol = QStringLiteral("TSLAx");
    f.isStock = true;
    return f;
}
} // namespace

class HostileTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<TarnwickClient> client_;
    QList<LinkState> links_;
    QList<qint64> delivered_;

    static TarnwickTiming quick()
    {
        return {.requestTimeoutMs = 800,
                .requestDeadlineMs = 1500,
                .openWatchdogMs = 400,
                .handshakeTimeoutMs = 1000,
                .pingIntervalMs = 300,
                .pollIntervalMs = 200,
                .radarIntervalMs = 1000,
                .reconnectScale = 0.05};
    }

    void makeClient(TarnwickTiming timing = quick())
    {
        client_ = std::make_unique<TarnwickClient>(sim_->httpBase(), sim_->socketURL(), timing, systemNow);
        client_->onLink = [this](LinkState s) { links_ << s; };
        client_->onFills = [this](const QList<TwFill> &fills) {
            for (const TwFill &f : fills)
                delivered_ << f.id;
        };
    }

    bool waitForLink(LinkState state, int ms = 5000)
    {
        return until([&] { return !links_.isEmpty() && links_.last() == state; }, ms);
    }

    // Live, with the start-up requests landed, so that the case alone is seen.
    void startLive()
    {
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(until([&] { return !delivered_.isEmpty() && client_->enrichmentFetchedAt(); }));
        QVERIFY(until([&] { return sim_->openSockets() == 1; }));
    }

    // One REST answer through the client's tape(): the error text, empty on success.
    QString tapeError()
    {
        std::optional<QString> error;
        client_->tape(200, this,
                      [&](std::optional<QList<TwFill>> fills, QString e) { error = fills ? QString() : e; });
        if (!until([&] { return error.has_value(); }, 10000))
            return QStringLiteral("no answer at all");
        return *error;
    }

private Q_SLOTS:
    void init()
    {
        links_.clear();
        delivered_.clear();
        SimOptions options;
        options.port = 0;
        options.autoTape = false;
        options.seed = 11;
        sim_ = std::make_unique<SimServer>(options);
        QString error;
        QVERIFY2(sim_->start(&error), qPrintable(error));
        qputenv("LARKPIN_LOG", "1");
    }
    void cleanup()
    {
        client_.reset();
        sim_.reset();
        qunsetenv("LARKPIN_LOG");
    }

    // A socket message over the limit is refused while it arrives, the socket
    // closes and the link comes back under the back-off.
    void oversizedSocketMessage_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<qint64>("frameBytes"); // 0: one frame announcing it all
        QTest::newRow("300 MB in one frame") << qint64(300) * 1024 * 1024 << qint64(0);
        QTest::newRow("100 MB in frames of 1 MB") << qint64(100) * 1024 * 1024 << qint64(1024 * 1024);
    }
    void oversizedSocketMessage()
    {
        QFETCH(qint64, bytes);
        QFETCH(qint64, frameBytes);
        CaptureStderr capture;
        makeClient();
        startLive();
        const int handshakes = sim_->handshakesCompleted();
        sim_->sendOversizedMessage(bytes, frameBytes);
        QVERIFY(waitForLink(LinkState::down));
        QVERIFY(until([&] { return sim_->streamsRunning() == 0; }));
        // Reconnected, and good frames flow again.
        QVERIFY(until([&] { return sim_->handshakesCompleted() > handshakes && sim_->openSockets() == 1; }));
        const qint64 mark = client_->lastFillId();
        sim_->emitFills(2);
        QVERIFY(
            until([&] { return client_->lastFillId() == sim_->lastFillId() && sim_->lastFillId() > mark; }));
        client_->stop();
        // The service stopped being read long before the message was whole.
        QVERIFY2(sim_->streamedBytes() < 48 * 1024 * 1024,
                 qPrintable(QString::number(sim_->streamedBytes())));
        QVERIFY2(peakMb() < 160, qPrintable(QString::number(peakMb())));
        const QStringList lines = capture.messages(QStringLiteral("tw"));
        QCOMPARE(lines
                     .filter(QStringLiteral(
                         "receive FAILED: a message over 1048576 bytes, dropped; the socket is closed"))
                     .size(),
                 1);
    }

    // REST answers over the limit are cut while they arrive; a drip is cut by
    // the request's deadline, however steadily its bytes come.
    void boundedRestAnswers_data()
    {
        QTest::addColumn<int>("fault");
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<bool>("declared");
        QTest::addColumn<QString>("why");
        QTest::newRow("endless chunked") << int(EndpointFaultKind::Endless) << qint64(0) << false
                                         << QStringLiteral("answer over the limit of 1048576 bytes");
        QTest::newRow("300 MB, length declared")
            << int(EndpointFaultKind::Huge) << qint64(300) * 1024 * 1024 << true
            << QStringLiteral("answer of 314572800 bytes is over the limit of 1048576");
        QTest::newRow("300 MB, chunked") << int(EndpointFaultKind::Huge) << qint64(300) * 1024 * 1024 << false
                                         << QStringLiteral("answer over the limit of 1048576 bytes");
        QTest::newRow("a byte every 300 ms") << int(EndpointFaultKind::Drip) << qint64(0) << true
                                             << QStringLiteral("no whole answer within 1500 ms");
    }
    void boundedRestAnswers()
    {
        QFETCH(int, fault);
        QFETCH(qint64, bytes);
        QFETCH(bool, declared);
        QFETCH(QString, why);
        CaptureStderr capture;
        makeClient();
        EndpointFault f{EndpointFaultKind(fault), 300, bytes, declared};
        sim_->setEndpointFault(QStringLiteral("/tape"), f);
        QCOMPARE(tapeError(), why);
        QVERIFY(until([&] { return sim_->streamsRunning() == 0; }));
        QVERIFY2(sim_->streamedBytes() < 48 * 1024 * 1024,
                 qPrintable(QString::number(sim_->streamedBytes())));
        QVERIFY2(peakMb() < 160, qPrintable(QString::number(peakMb())));
        // The next request is served as usual.
        sim_->clearFaults();
        sim_->setEndpointFault(QStringLiteral("/tape"), {});
        QCOMPARE(tapeError(), QString());
        QCOMPARE(capture.messages(QStringLiteral("tw")),
                 QStringList{QStringLiteral("GET /tape FAILED: ") + why});
    }

    // The backfill is cut like any request and tried again until it lands.
    void dripBackfillIsCutAndRetried()
    {
        CaptureStderr capture;
        sim_->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind::Drip, 300});
        sim_->setHandshakeMode(HandshakeMode::Refuse); // nothing else brings fills
        makeClient();
        client_->start();
        QVERIFY(until([&] { return sim_->requestCount(QStringLiteral("/tape")) >= 2; }, 8000));
        QVERIFY(delivered_.isEmpty());
        sim_->setEndpointFault(QStringLiteral("/tape"), {});
        QVERIFY(until([&] { return delivered_.size() >= 60; }, 8000));
        client_->stop();
        QVERIFY(!capture.messages(QStringLiteral("tw"))
                     .filter(QRegularExpression(QStringLiteral(
                         "^backfill FAILED: no whole answer within 1500 ms, again in \\d+\\.\\d s$")))
                     .isEmpty());
    }

    // A bad fill drops only itself; a frame over the cap keeps its newest fills.
    void frameContents_data()
    {
        QTest::addColumn<QList<QByteArray>>("ids"); // offsets past the mark, or raw text
        QTest::addColumn<int>("cap");
        QTest::addColumn<QList<int>>("kept");
        QTest::addColumn<QString>("logged");
        // "+n": a good fill n past the mark; "usd": one past the mark with usd 1e308; else an id as written.
        QTest::newRow("an id past 64 bits")
            << QList<QByteArray>{"+1", "9223372036854775808", "+2"} << 2000 << QList<int>{1, 2}
            << QStringLiteral(" 1 fills did not decode, dropped");
        QTest::newRow("usd 1e308") << QList<QByteArray>{"+1", "usd", "+2"} << 2000 << QList<int>{1, 2}
                                   << QStringLiteral(" 1 fills did not decode, dropped");
        QTest::newRow("over the cap")
            << QList<QByteArray>{"+1", "+2", "+3", "+4", "+5"} << 3 << QList<int>{3, 4, 5}
            << QStringLiteral(" over 3 fills: the oldest 2 dropped");
    }
    void frameContents()
    {
        QFETCH(QList<QByteArray>, ids);
        QFETCH(int, cap);
        QFETCH(QList<int>, kept);
        QFETCH(QString, logged);
        CaptureStderr capture;
        makeClient();
        TarnwickLimits limits;
        limits.maxFillsPerFrame = cap;
        client_->setLimits(limits);
        startLive();
        const qint64 mark = client_->lastFillId();
        QList<QByteArray> fills;
        for (const QByteArray &id : ids)
            fills << (id.startsWith('+') ? fillJson(QByteArray::number(mark + id.mid(1).toInt()))
                      : id == "usd"      ? fillJson(QByteArray::number(mark + 50), "1e308")
                                         : fillJson(id));
        const qsizetype before = delivered_.size();
        sim_->sendRawFrame(R"({"type":"fills","data":[)" + fills.join(',') + "]}");
        QVERIFY(until([&] { return client_->lastFillId() == mark + kept.last(); }));
        QList<qint64> expected;
        for (int k : kept)
            expected << mark + k;
        QCOMPARE(delivered_.mid(before), expected);
        QCOMPARE(client_->fillsDropped(), qint64(ids.size() - kept.size()));
        QCOMPARE(links_.last(), LinkState::live); // the link is none the worse
        client_->stop();
        QVERIFY(!capture.messages(QStringLiteral("tw")).filter(logged).isEmpty());
    }

    // The socket brings fills before the backfill answers with the same ones:
    // each is taken in (and ticked) once.
    void socketBeforeBackfillCountsOnce()
    {
        sim_->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind::SocketFirst, 300});
        auto *client = new TarnwickClient(sim_->httpBase(), sim_->socketURL(), quick(), systemNow);
        FeedStore store(client, systemNow, 60000);
        store.start();
        QVERIFY(until([&] {
            return store.link() == LinkState::live && sim_->requestCount(QStringLiteral("/tape")) >= 1;
        }));
        QVERIFY(until([&] { return store.fillsIngested() >= 200; }));
        QTest::qWait(500); // both halves of the race have landed
        // The two fills of the frame are among the 200 of the backfill.
        QCOMPARE(sim_->fillsEmitted(), 2);
        QCOMPARE(store.fillsIngested(), 200);
        QCOMPARE(store.fillsRepeated(), 2);
        store.stop();
    }

    // Wake through the injectable seam: a dropped link waiting out its
    // back-off (4 s or more) reconnects within a second.
    void wakeReconnectsAtOnce_data()
    {
        QTest::addColumn<bool>("resume"); // else: the network came back
        QTest::newRow("resume from suspend") << true;
        QTest::newRow("network back online") << false;
    }
    void wakeReconnectsAtOnce()
    {
        QFETCH(bool, resume);
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
        const QString reason =
            resume ? QStringLiteral("resumed from sleep") : QStringLiteral("network is back");
        QVERIFY(capture.messages(QStringLiteral("tw"))
                    .contains(QStringLiteral("wake: ") + reason + QStringLiteral(", reconnecting now")));
    }

    void restRequestsCarryNoCacheHeaders()
    {
        makeClient();
        QCOMPARE(tapeError(), QString());
        const QList<QByteArray> names = sim_->lastRequestHeaderNames();
        QVERIFY(names.contains("user-agent"));
        QVERIFY2(!names.contains("cache-control") && !names.contains("pragma"), names.join(' ').constData());
    }

    // The same two equity trades, once from the socket and again from a
    // backfill: two wallets, $50K, not $100K.
    void stockGroupCountsEachFillOnce()
    {
        const double now = 1700000000;
        auto *client =
            new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"),
                               QStringLiteral("ws://127.0.0.1:9/ws"), quick(), [now] { return now; });
        FeedStore store(
            client, [now] { return now; }, 60000);
        const QList<TwFill> pair{equity(1, QStringLiteral("a"), 25000, now - 10),
                                 equity(2, QStringLiteral("b"), 25000, now - 5)};
        store.ingest(pair);
        store.ingest(pair);
        QCOMPARE(store.signalList().size(), 1);
        QCOMPARE(store.signalList().first().line.figure, std::optional(QStringLiteral("$50.0K")));
        QCOMPARE(store.fillsIngested(), 2);
        QCOMPARE(store.fillsRepeated(), 2);
        QCOMPARE(store.telemetryTickCount(), 2);
    }

    // Pile-ins past the store's horizon are not taken in (and so not logged
    // or stamped) on every radar answer.
    void staleRadarIsNotReAdded()
    {
        const double now = 1700000000;
        auto *client =
            new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"),
                               QStringLiteral("ws://127.0.0.1:9/ws"), quick(), [now] { return now; });
        FeedStore store(
            client, [now] { return now; }, 60000);
        TwRadar stale;
        stale.token = QStringLiteral("M1");
        stale.symbol = QStringLiteral("OLD");
        stale.buyers = 4;
        stale.firstTs = now - 1300;
        TwRadar fresh = stale;
        fresh.token = QStringLiteral("M2");
        fresh.firstTs = now - 100;
        store.ingest(QList<TwRadar>{stale});
        QVERIFY(!store.lastUpdate());
        QCOMPARE(store.heldCount(), 0);
        store.ingest(QList<TwRadar>{stale, fresh});
        QCOMPARE(store.heldCount(), 1);
        QCOMPARE(store.lastUpdate(), std::optional(now));
    }
};

QTEST_GUILESS_MAIN(HostileTest)
#include "tst_hostile.moc"
