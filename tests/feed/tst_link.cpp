// The live link against the local tape service on real sockets, with every
// interval shortened: each row of the link-state table, driven by a fault.

#include "Feed/TarnwickClient.h"
#include "TarnwickSim.h"

#include <QSignalSpy>
#include <QTest>

using namespace tarnwick;

class LinkTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<TarnwickClient> client_;
    QList<LinkState> links_;
    QList<qint64> delivered_;
    int frames_ = 0;

    static TarnwickTiming quick()
    {
        TarnwickTiming t;
        t.requestTimeoutMs = 800;
        t.openWatchdogMs = 400;
        t.pingIntervalMs = 300;
        t.pollIntervalMs = 200;
        t.radarIntervalMs = 1000;
        t.reconnectScale = 0.05; // 4 s becomes 0.2 s
        return t;
    }

    void makeClient(TarnwickTiming timing = quick())
    {
        client_ = std::make_unique<TarnwickClient>(sim_->httpBase(), sim_->socketURL(), timing, systemNow);
        client_->onLink = [this](LinkState s) { links_ << s; };
        client_->onFills = [this](const QList<TwFill> &fills) {
            for (const TwFill &f : fills)
                delivered_ << f.id;
        };
        client_->onFrame = [this] { ++frames_; };
    }

    bool waitForLink(LinkState state, int ms = 5000)
    {
        return QTest::qWaitFor([&] { return !links_.isEmpty() && links_.last() == state; }, ms);
    }

private Q_SLOTS:
    void init()
    {
        links_.clear();
        delivered_.clear();
        frames_ = 0;
        SimOptions options;
        options.port = 0;
        options.autoTape = false;
        options.seed = 3;
        sim_ = std::make_unique<SimServer>(options);
        QString error;
        QVERIFY2(sim_->start(&error), qPrintable(error));
    }
    void cleanup()
    {
        client_.reset();
        sim_.reset();
    }

    void connectingThenLive()
    {
        makeClient();
        client_->start();
        QCOMPARE(links_.value(0), LinkState::connecting);
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(!client_->isPolling());
        QVERIFY(sim_->lastUserAgent().startsWith("Larkpin/0.1 (+"));
    }

    void watchdogFallsBackToPolling()
    {
        sim_->setHandshakeMode(HandshakeMode::Hang);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(client_->isPolling());
        QVERIFY(!client_->socketOpenedOnce());
    }

    void refusedSocketFallsBackToPolling()
    {
        sim_->setHandshakeMode(HandshakeMode::Refuse);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QCOMPARE(links_.count(LinkState::polling), 1); // a running poller is not announced twice
        QVERIFY(QTest::qWaitFor([&] { return client_->socketFailures() >= 2; }, 5000));
        QCOMPARE(links_.count(LinkState::polling), 1);
    }

    void firstDropIsDownSecondIsPolling()
    {
        makeClient();
        client_->start();
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::live));
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::down));
        // The reconnected socket delivers, but the pill keeps showing the drop.
        QVERIFY(QTest::qWaitFor([&] { return sim_->openSockets() == 1 && client_->hasSocket(); }, 5000));
        const int before = frames_;
        sim_->emitFills(1);
        QVERIFY(QTest::qWaitFor([&] { return frames_ > before; }, 3000));
        QCOMPARE(links_.last(), LinkState::down);
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::polling));
    }

    void pollingToLiveOnALaterFirstFrame()
    {
        sim_->setHandshakeMode(HandshakeMode::Refuse);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        sim_->setHandshakeMode(HandshakeMode::Accept);
        QVERIFY(QTest::qWaitFor([&] { return sim_->openSockets() >= 1; }, 5000));
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(!client_->isPolling());
    }

    void stopThenStartAnnouncesAgain()
    {
        makeClient();
        client_->start();
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::live));
        client_->stop();
        QVERIFY(QTest::qWaitFor([&] { return sim_->closeCodesReceived().contains(1001); }, 3000));
        const int reports = int(links_.size());
        client_->start();
        QCOMPARE(links_.value(reports), LinkState::connecting);
        QVERIFY(QTest::qWaitFor([&] { return sim_->openSockets() >= 1; }, 3000));
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::live));
    }

    void noFillTwiceAcrossSocketAndPoller()
    {
        sim_->setHandshakeMode(HandshakeMode::Hang);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        sim_->setHandshakeMode(HandshakeMode::Accept);
        for (int i = 0; i < 6; ++i) {
            sim_->emitFills(3);
            QTest::qWait(150);
        }
        QVERIFY(QTest::qWaitFor([&] { return !delivered_.isEmpty() && delivered_.last() == sim_->lastFillId(); }, 5000));
        // The backfill is ungated and may repeat what it brought; after it,
        // every id arrives once and in order.
        QList<qint64> live = delivered_;
        const auto firstNew = std::adjacent_find(live.begin(), live.end(), [](qint64 a, qint64 b) { return b <= a; });
        QVERIFY2(firstNew == live.end(), "a fill arrived twice or out of order");
    }

    void undecodableFrameKeepsTheConnection()
    {
        makeClient();
        client_->start();
        sim_->emitFills(1);
        QVERIFY(waitForLink(LinkState::live));
        const qint64 before = client_->framesReceived();
        sim_->sendRawFrame("this is not json");
        sim_->sendRawFrame(R"({"type":"fills","data":{"broken":true}})");
        sim_->sendRawFrame(R"({"type":"fills","data":[]})", true);
        QVERIFY(QTest::qWaitFor([&] { return client_->framesReceived() >= before + 3; }, 3000));
        QVERIFY(client_->hasSocket());
        QCOMPARE(client_->socketFailures(), 0);
        QCOMPARE(links_.last(), LinkState::live);
    }

    void restStatusRules_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("500") << int(EndpointFaultKind::Status500);
        QTest::newRow("204 fails like 500") << int(EndpointFaultKind::Status204);
        QTest::newRow("304 fails like 500") << int(EndpointFaultKind::Status304);
        QTest::newRow("body that does not decode") << int(EndpointFaultKind::BadBody);
        QTest::newRow("slower than the time-out") << int(EndpointFaultKind::Delay);
    }
    void restStatusRules()
    {
        QFETCH(int, kind);
        sim_->setEndpointFault(QStringLiteral("/trader/"), EndpointFault{EndpointFaultKind(kind), 2000});
        makeClient();
        std::optional<std::optional<TwTraderDetail>> result;
        QString error;
        double latency = -1;
        client_->onLatency = [&](double ms) { latency = ms; };
        client_->traderDetail(QStringLiteral("anyone"), this, [&](std::optional<TwTraderDetail> d, QString e) {
            result = d;
            error = e;
        });
        QVERIFY(QTest::qWaitFor([&] { return result.has_value(); }, 5000));
        QVERIFY(!result->has_value());
        QVERIFY(!error.isEmpty());
        // A 200 that fails to decode still counts as a round trip.
        QCOMPARE(latency >= 0, EndpointFaultKind(kind) == EndpointFaultKind::BadBody);
    }

    void traderPathIsPercentEncoded()
    {
        QCOMPARE(TarnwickClient::traderPath(QStringLiteral("a b#c")),
                 QStringLiteral("/trader/a%20b%23c?window=24h&stocks=true"));
    }

    void reconnectDelay_data()
    {
        QTest::addColumn<int>("failures");
        QTest::addColumn<double>("base");
        QTest::newRow("first") << 1 << 4.0;
        QTest::newRow("second") << 2 << 6.0;
        QTest::newRow("capped at 14") << 14 << 30.0;
        QTest::newRow("twentieth") << 20 << 30.0;
    }
    void reconnectDelay()
    {
        QFETCH(int, failures);
        QFETCH(double, base);
        QCOMPARE(TarnwickClient::reconnectBaseDelay(failures), base);
        for (int i = 0; i < 1000; ++i) {
            const double j = TarnwickClient::jitter();
            QVERIFY(j >= 0 && j < 4);
        }
    }

    void enrichmentFreshnessAndSingleFlight()
    {
        double now = 1000;
        client_ = std::make_unique<TarnwickClient>(sim_->httpBase(), sim_->socketURL(), quick(), [&] { return now; });
        client_->ensureEnrichment();
        client_->ensureEnrichment(); // one load at a time
        QVERIFY(QTest::qWaitFor([&] { return !client_->enrichmentRunning(); }, 3000));
        QCOMPARE(sim_->requestCount(QStringLiteral("/traders")), 1);
        QVERIFY(client_->traderCount() > 0);
        QVERIFY(client_->tokenCount() > 0);
        now += 119;
        client_->ensureEnrichment();
        QVERIFY(!client_->enrichmentRunning());
        now += 1;
        client_->ensureEnrichment();
        QVERIFY(client_->enrichmentRunning());
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
