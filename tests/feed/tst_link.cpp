// The live link against the local tape service on real sockets, with every
// interval shortened: each row of the link-state table, driven by a fault,
// and the REST rules (status, time-out, gating, enrichment, paths, logging).

#include "CaptureStderr.h"
#include "Feed/Tarnwick.h"
#include "Feed/TarnwickClient.h"
#include "TarnwickSim.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace tarnwick;

namespace {
QByteArray fillsFrame(std::initializer_list<qint64> ids)
{
    QByteArray data;
    for (qint64 id : ids) {
        if (!data.isEmpty())
            data += ',';
        data +=
            R"({"id":)" + QByteArray::number(id) +
            R"(,"ts":1700000000,"side":"buy","usd":5000,"handle":"kai","wallet":"W","token":"T","symbol":"WIF"})";
    }
    return R"({"type":"fills","data":[)" + data + "]}";
}
} // namespace

class LinkTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<TarnwickClient> client_;
    QList<LinkState> links_;
    QList<qint64> delivered_;
    int frames_ = 0;
    int batches_ = 0;

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

    void makeClient(TarnwickTiming timing = quick(), Clock now = systemNow)
    {
        client_ =
            std::make_unique<TarnwickClient>(sim_->httpBase(), sim_->socketURL(), timing, std::move(now));
        client_->onLink = [this](LinkState s) { links_ << s; };
        client_->onFills = [this](const QList<TwFill> &fills) {
            ++batches_;
            for (const TwFill &f : fills)
                delivered_ << f.id;
        };
        client_->onFrame = [this] { ++frames_; };
    }

    bool waitForLink(LinkState state, int ms = 5000)
    {
        return QTest::qWaitFor([&] { return !links_.isEmpty() && links_.last() == state; }, ms);
    }

    // The sim greets every socket with a frame, so an open socket goes live at once.
    bool waitForSocket(int ms = 5000)
    {
        return QTest::qWaitFor([&] { return sim_->openSockets() >= 1 && client_->hasSocket(); }, ms);
    }

private Q_SLOTS:
    void init()
    {
        links_.clear();
        delivered_.clear();
        frames_ = 0;
        batches_ = 0;
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
        qunsetenv("LARKPIN_LOG");
    }

    void pillTexts()
    {
        QCOMPARE(LinkStates::pillText(LinkState::connecting), QStringLiteral("LINKING"));
        QCOMPARE(LinkStates::pillText(LinkState::live), QStringLiteral("LIVE"));
        QCOMPARE(LinkStates::pillText(LinkState::polling), QStringLiteral("POLLING"));
        QCOMPARE(LinkStates::pillText(LinkState::down), QStringLiteral("OFFLINE"));
        QCOMPARE(LinkStates::caseName(LinkState::down), QStringLiteral("down"));
    }

    void connectingThenLive()
    {
        makeClient();
        client_->start();
        QCOMPARE(links_, QList<LinkState>{LinkState::connecting});
        QVERIFY(waitForLink(LinkState::live));
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::live}));
        QVERIFY(!client_->isPolling());
        QCOMPARE(sim_->lastUserAgent(), Tarnwick::userAgent());
        // The backfill delivers the first page of the tape, oldest first.
        QVERIFY(QTest::qWaitFor([&] { return !delivered_.isEmpty(); }, 3000));
        QVERIFY(std::is_sorted(delivered_.begin(), delivered_.end()));
        QCOMPARE(sim_->requestCount(QStringLiteral("/tape")), 1);
        QVERIFY(sim_->requestCount(QStringLiteral("/radar")) >= 1);
    }

    void restRequestsCarryTheUserAgent()
    {
        makeClient();
        bool done = false;
        client_->tape(5, this, [&](std::optional<QList<TwFill>>, QString) { done = true; });
        QVERIFY(QTest::qWaitFor([&] { return done; }, 3000));
        QCOMPARE(sim_->lastUserAgent(), Tarnwick::userAgent());
    }

    void watchdogFallsBackToPolling()
    {
        sim_->setHandshakeMode(HandshakeMode::Hang);
        TarnwickTiming timing = quick();
        timing.pingIntervalMs = 60000; // only the watchdog can act here
        makeClient(timing);
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(client_->isPolling());
        QVERIFY(!client_->socketOpenedOnce());
        // The watchdog does not close the socket: it may still open.
        QVERIFY(client_->hasSocket());
        QCOMPARE(client_->socketFailures(), 0);
        QVERIFY(QTest::qWaitFor([&] { return sim_->requestCount(QStringLiteral("/tape")) >= 3; }, 3000));
    }

    void socketHandshakeCarriesTheUserAgent()
    {
        // REST goes nowhere, so the only request the service sees is the upgrade.
        client_ = std::make_unique<TarnwickClient>(QStringLiteral("http://127.0.0.1:9/api"),
                                                   sim_->socketURL(), quick(), systemNow);
        client_->onLink = [this](LinkState s) { links_ << s; };
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QCOMPARE(sim_->requestCount(QString()), sim_->requestCount(QStringLiteral("/ws")));
        QCOMPARE(sim_->lastUserAgent(), QByteArray("Larkpin/0.1 (+") + Tarnwick::siteURL().toUtf8() + ')');
    }

    void unansweredPingDropsTheLiveLink()
    {
        qputenv("LARKPIN_LOG", "1");
        QStringList messages;
        {
            CaptureStderr capture;
            makeClient();
            client_->start();
            QVERIFY(waitForLink(LinkState::live));
            QVERIFY(waitForSocket());
            sim_->setAnswerPings(false);
            QVERIFY(waitForLink(LinkState::down));
            QCOMPARE(client_->socketFailures(), 1);
            client_->stop();
            messages = capture.messages(QStringLiteral("tw"));
        }
        QVERIFY(std::any_of(messages.begin(), messages.end(),
                            [](const QString &m) { return m.startsWith(QStringLiteral("ping FAILED: ")); }));
    }

    void pingsCatchAHandshakeThatNeverEnds()
    {
        // No frame, no error, a watchdog too slow to matter: only the pings notice.
        sim_->setHandshakeMode(HandshakeMode::Hang);
        TarnwickTiming timing = quick();
        timing.openWatchdogMs = 60000;
        makeClient(timing);
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(client_->socketFailures() >= 1);
        // ... and a new socket is tried.
        QVERIFY(QTest::qWaitFor([&] { return sim_->requestCount(QStringLiteral("/ws")) >= 2; }, 5000));
    }

    void refusedSocketFallsBackToPolling()
    {
        sim_->setHandshakeMode(HandshakeMode::Refuse);
        TarnwickTiming timing = quick();
        timing.openWatchdogMs = 60000; // the failure, not the watchdog, starts the poller
        makeClient(timing);
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(client_->socketFailures() >= 1);
        QVERIFY(QTest::qWaitFor([&] { return client_->socketFailures() >= 3; }, 5000));
        QCOMPARE(links_.count(LinkState::polling), 1); // a running poller is not announced twice
        QVERIFY(!links_.contains(LinkState::down));    // it never worked, so it never dropped
    }

    void firstDropIsDownSecondIsPolling()
    {
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::down));
        QCOMPARE(client_->socketFailures(), 1);
        // The reconnected socket delivers, but the pill keeps showing the drop.
        QVERIFY(waitForSocket());
        const int before = frames_;
        sim_->emitFills(1);
        QVERIFY(QTest::qWaitFor([&] { return frames_ > before + 1; }, 3000));
        QCOMPARE(links_.last(), LinkState::down);
        QCOMPARE(client_->socketFailures(), 1); // only the first frame after start() resets it
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::polling));
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::live, LinkState::down,
                                           LinkState::polling}));
    }

    void pollingToLiveOnALaterFirstFrame()
    {
        sim_->setHandshakeMode(HandshakeMode::Refuse);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        sim_->setHandshakeMode(HandshakeMode::Accept);
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(!client_->isPolling());
        QCOMPARE(client_->socketFailures(), 0);
        const int polls = sim_->requestCount(QStringLiteral("/tape"));
        // A cancelled poller stays quiet.
        QTest::qWait(quick().pollIntervalMs * 3);
        QVERIFY(sim_->requestCount(QStringLiteral("/tape")) <= polls + 1);
    }

    void stopThenStartAnnouncesAgain()
    {
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(waitForSocket());
        const int reports = int(links_.size());
        client_->stop();
        QCOMPARE(links_.size(), reports); // stop() reports nothing
        QVERIFY(client_->isStopped());
        QVERIFY(!client_->socketOpenedOnce());
        QVERIFY(QTest::qWaitFor([&] { return sim_->closeCodesReceived().contains(1001); }, 3000));
        QCOMPARE(sim_->closeCodesReceived(), QList<int>{1001});

        const qint64 mark = client_->lastFillId();
        delivered_.clear();
        client_->start();
        QCOMPARE(links_.value(reports), LinkState::connecting);
        QVERIFY(waitForLink(LinkState::live));
        // The backfill after a restart is ungated: it refills what was seen.
        QVERIFY(QTest::qWaitFor([&] { return !delivered_.isEmpty(); }, 3000));
        QVERIFY(delivered_.first() <= mark);
        QCOMPARE(client_->lastFillId(), mark);
    }

    void stoppedClientStaysQuiet()
    {
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        // Let the start-up requests (backfill, radar, enrichment) land first.
        QVERIFY(
            QTest::qWaitFor([&] { return !delivered_.isEmpty() && client_->enrichmentFetchedAt(); }, 3000));
        client_->stop();
        const int reports = int(links_.size());
        const int requests = sim_->requestCount(QString());
        sim_->emitFills(3);
        QTest::qWait(quick().radarIntervalMs + 200); // long enough for every loop to have run
        QCOMPARE(links_.size(), reports);
        QCOMPARE(sim_->requestCount(QString()), requests);
        QCOMPARE(sim_->requestCount(QStringLiteral("/ws")), 1);
    }

    void noFillTwiceFromPollerToSocket()
    {
        sim_->setHandshakeMode(HandshakeMode::Refuse);
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(QTest::qWaitFor([&] { return !delivered_.isEmpty(); }, 3000)); // the backfill
        const qsizetype backfilled = delivered_.size();
        // Fills arrive while only the poller runs ...
        for (int i = 0; i < 3; ++i) {
            const int polls = sim_->requestCount(QStringLiteral("/tape"));
            sim_->emitFills(3);
            QVERIFY(
                QTest::qWaitFor([&] { return sim_->requestCount(QStringLiteral("/tape")) > polls; }, 3000));
        }
        QVERIFY(QTest::qWaitFor([&] { return delivered_.last() == sim_->lastFillId(); }, 3000));
        // ... then through the socket once it is let in.
        sim_->setHandshakeMode(HandshakeMode::Accept);
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(waitForSocket());
        for (int i = 0; i < 3; ++i)
            sim_->emitFills(2);
        QVERIFY(QTest::qWaitFor([&] { return delivered_.last() == sim_->lastFillId(); }, 3000));
        const QList<qint64> gated = delivered_.mid(backfilled);
        QVERIFY(std::is_sorted(gated.begin(), gated.end()));
        QVERIFY(std::adjacent_find(gated.begin(), gated.end()) == gated.end());
        QCOMPARE(gated.size(), 15);
    }

    void pollerAndSocketTogetherDeliverEachFillOnce()
    {
        // Polling keeps running once a socket has worked before in this run;
        // the high-water mark keeps the two feeds from repeating each other.
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(QTest::qWaitFor([&] { return !delivered_.isEmpty(); }, 3000));
        const qsizetype backfilled = delivered_.size();
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::down));
        QVERIFY(waitForSocket());
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(waitForSocket());
        for (int i = 0; i < 6; ++i) {
            const int polls = sim_->requestCount(QStringLiteral("/tape"));
            sim_->emitFills(2);
            QVERIFY(
                QTest::qWaitFor([&] { return sim_->requestCount(QStringLiteral("/tape")) > polls; }, 3000));
        }
        QVERIFY(client_->isPolling());
        QVERIFY(QTest::qWaitFor([&] { return delivered_.last() == sim_->lastFillId(); }, 3000));
        const QList<qint64> live = delivered_.mid(backfilled);
        QVERIFY(std::is_sorted(live.begin(), live.end()));
        QVERIFY(std::adjacent_find(live.begin(), live.end()) == live.end());
        QCOMPARE(live.size(), 12);
    }

    void framesThatDeliverNothing()
    {
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(QTest::qWaitFor([&] { return !delivered_.isEmpty(); }, 3000));
        const qint64 before = client_->framesReceived();
        const qint64 fillsBefore = client_->fillsReceived();
        const int batches = batches_;
        const int framesBefore = frames_;
        const qint64 mark = client_->lastFillId();
        sim_->sendRawFrame("this is not json");
        sim_->sendRawFrame(R"({"type":"fills","data":{"broken":true}})");
        sim_->sendRawFrame(R"({"type":"fills","data":[]})", true);
        sim_->sendRawFrame(fillsFrame({mark - 1, mark})); // all at or below the mark
        sim_->sendFrameOfType(QStringLiteral("stats"));
        QVERIFY(QTest::qWaitFor([&] { return client_->framesReceived() >= before + 5; }, 3000));
        QCOMPARE(frames_, framesBefore + 5);
        QCOMPARE(batches_, batches);                         // nothing passed the gate
        QCOMPARE(client_->fillsReceived(), fillsBefore + 2); // but they were counted
        QVERIFY(client_->hasSocket());
        QCOMPARE(client_->socketFailures(), 0);
        QCOMPARE(links_.last(), LinkState::live);
        // The connection is still good for real fills.
        sim_->sendRawFrame(fillsFrame({mark + 1000}), true);
        QVERIFY(QTest::qWaitFor([&] { return client_->lastFillId() == mark + 1000; }, 3000));
    }

    void restStatusRules_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<bool>("roundTrip");
        QTest::newRow("500") << int(EndpointFaultKind::Status500) << false;
        QTest::newRow("204 fails like 500") << int(EndpointFaultKind::Status204) << false;
        QTest::newRow("304 fails like 500") << int(EndpointFaultKind::Status304) << false;
        QTest::newRow("200 with a body that does not decode") << int(EndpointFaultKind::BadBody) << true;
        QTest::newRow("slower than the time-out") << int(EndpointFaultKind::Delay) << false;
        QTest::newRow("healthy") << int(EndpointFaultKind::None) << true;
    }
    void restStatusRules()
    {
        QFETCH(int, kind);
        QFETCH(bool, roundTrip);
        sim_->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind(kind), 2000});
        makeClient();
        std::optional<std::optional<QList<TwFill>>> result;
        QString error;
        double latency = -1;
        client_->onLatency = [&](double ms) { latency = ms; };
        QElapsedTimer clock;
        clock.start();
        client_->tape(60, this, [&](std::optional<QList<TwFill>> fills, QString e) {
            result = fills;
            error = e;
        });
        QVERIFY(QTest::qWaitFor([&] { return result.has_value(); }, 5000));
        const bool healthy = EndpointFaultKind(kind) == EndpointFaultKind::None;
        QCOMPARE(result->has_value(), healthy);
        QCOMPARE(error.isEmpty(), healthy);
        // A 200 that fails to decode still counts as a round trip.
        QCOMPARE(latency >= 0, roundTrip);
        if (EndpointFaultKind(kind) == EndpointFaultKind::Delay)
            QVERIFY2(clock.elapsed() < 1900, "the request time-out did not end the slow request");
    }

    void bodyCutShortIsNotARoundTrip()
    {
        // A head that promises more than the peer sends before hanging up.
        QTcpServer peer;
        QVERIFY(peer.listen(QHostAddress::LocalHost, 0));
        connect(&peer, &QTcpServer::newConnection, this, [&peer] {
            QTcpSocket *s = peer.nextPendingConnection();
            connect(s, &QTcpSocket::readyRead, s, [s] {
                s->readAll();
                s->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: "
                         "4000\r\n\r\n[{\"id\":");
                s->flush();
                s->disconnectFromHost();
            });
        });
        client_ = std::make_unique<TarnwickClient>(QStringLiteral("http://127.0.0.1:") +
                                                       QString::number(peer.serverPort()),
                                                   sim_->socketURL(), quick(), systemNow);
        bool latency = false;
        client_->onLatency = [&](double) { latency = true; };
        std::optional<std::optional<QList<TwFill>>> result;
        QString error;
        client_->tape(60, this, [&](std::optional<QList<TwFill>> fills, QString e) {
            result = fills;
            error = e;
        });
        QVERIFY(QTest::qWaitFor([&] { return result.has_value(); }, 5000));
        QVERIFY(!result->has_value());
        QVERIFY(!error.isEmpty());
        QVERIFY(!latency);
    }

    void contextEndsDelivery()
    {
        sim_->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind::Delay, 100});
        sim_->setEndpointFault(QStringLiteral("/radar"), EndpointFault{EndpointFaultKind::Delay, 600});
        makeClient();
        auto *context = new QObject;
        bool called = false;
        client_->tape(5, context, [&](std::optional<QList<TwFill>>, QString) { called = true; });
        delete context;
        // A slower request started later: when it is back, the first one is long done.
        bool other = false;
        client_->onRadar = [&](const QList<TwRadar> &) { other = true; };
        client_->refresh();
        QVERIFY(QTest::qWaitFor([&] { return other; }, 3000));
        QCOMPARE(sim_->requestCount(QStringLiteral("/tape")), 1);
        QVERIFY(!called);
    }

    void traderPath_data()
    {
        QTest::addColumn<QString>("handle");
        QTest::addColumn<QString>("path");
        QTest::newRow("plain") << QStringLiteral("kestrel_9")
                               << QStringLiteral("/trader/kestrel_9?window=24h&stocks=true");
        QTest::newRow("space and hash")
            << QStringLiteral("a b#c") << QStringLiteral("/trader/a%20b%23c?window=24h&stocks=true");
        QTest::newRow("query and percent")
            << QStringLiteral("x?y%z") << QStringLiteral("/trader/x%3Fy%25z?window=24h&stocks=true");
        QTest::newRow("slash stays inside the segment")
            << QStringLiteral("../admin") << QStringLiteral("/trader/..%2Fadmin?window=24h&stocks=true");
        QTest::newRow("markup") << QStringLiteral("<b>")
                                << QStringLiteral("/trader/%3Cb%3E?window=24h&stocks=true");
        QTest::newRow("non-ASCII as UTF-8")
            << QStringLiteral("zoë") << QStringLiteral("/trader/zo%C3%AB?window=24h&stocks=true");
        QTest::newRow("path-allowed marks kept")
            << QStringLiteral("a@b:c+d") << QStringLiteral("/trader/a@b:c+d?window=24h&stocks=true");
    }
    void traderPath()
    {
        QFETCH(QString, handle);
        QFETCH(QString, path);
        QCOMPARE(TarnwickClient::traderPath(handle), path);
    }

    void traderPathReachesTheService()
    {
        makeClient();
        bool done = false;
        QString error;
        client_->traderDetail(QStringLiteral("a b#c"), this, [&](std::optional<TwTraderDetail> d, QString e) {
            done = true;
            error = e;
            QVERIFY(!d); // the sim does not know this trader: 404
        });
        QVERIFY(QTest::qWaitFor([&] { return done; }, 3000));
        QCOMPARE(sim_->requestCount(QStringLiteral("/trader/a%20b%23c")), 1);
        QVERIFY(error.contains(QStringLiteral("404")));
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
        double low = 4, high = 0;
        for (int i = 0; i < 2000; ++i) {
            const double j = TarnwickClient::jitter();
            QVERIFY(j >= 0 && j < 4);
            low = std::min(low, j);
            high = std::max(high, j);
        }
        QVERIFY(low < 0.5 && high > 3.5); // spread over the whole range
    }

    void enrichmentFreshnessAndSingleFlight()
    {
        double now = 1000;
        makeClient(quick(), [&] { return now; });
        client_->ensureEnrichment();
        client_->ensureEnrichment(); // one load at a time
        QVERIFY(client_->enrichmentRunning());
        QVERIFY(QTest::qWaitFor([&] { return !client_->enrichmentRunning(); }, 3000));
        QCOMPARE(sim_->requestCount(QStringLiteral("/traders")), 1);
        QCOMPARE(sim_->requestCount(QStringLiteral("/tokens")), 1);
        QCOMPARE(client_->enrichmentFetchedAt(), std::optional(1000.0));
        QVERIFY(client_->traderCount() > 0);
        QVERIFY(client_->tokenCount() > 0);
        now += 119;
        client_->ensureEnrichment();
        QVERIFY(!client_->enrichmentRunning());
        now += 1;
        client_->ensureEnrichment();
        QVERIFY(client_->enrichmentRunning());
        QVERIFY(QTest::qWaitFor([&] { return !client_->enrichmentRunning(); }, 3000));
        QCOMPARE(sim_->requestCount(QStringLiteral("/traders")), 2);
        client_->clearEnrichmentStamp();
        client_->ensureEnrichment();
        QVERIFY(client_->enrichmentRunning());
    }

    void enrichmentLookups()
    {
        makeClient();
        client_->ensureEnrichment();
        QVERIFY(QTest::qWaitFor([&] { return !client_->enrichmentRunning(); }, 3000));
        const QList<QJsonObject> made = sim_->emitFills(1);
        const QString mint = made.first().value(QStringLiteral("token")).toString();
        const QString handle = made.first().value(QStringLiteral("handle")).toString();
        QVERIFY(client_->token(mint));
        QVERIFY(client_->token(mint.toUpper()));
        QVERIFY(client_->token(mint.toLower()));
        QVERIFY(client_->trader(handle));
        if (handle.toUpper() != handle)
            QVERIFY(!client_->trader(handle.toUpper())); // handles are case-sensitive
    }

    void enrichmentHalfFailure_data()
    {
        QTest::addColumn<QString>("failing");
        QTest::newRow("traders fail") << QStringLiteral("/traders");
        QTest::newRow("tokens fail") << QStringLiteral("/tokens");
    }
    void enrichmentHalfFailure()
    {
        // A failed half keeps its last good table; the stamp is set either way.
        QFETCH(QString, failing);
        double now = 1000;
        makeClient(quick(), [&] { return now; });
        client_->ensureEnrichment();
        QVERIFY(QTest::qWaitFor([&] { return !client_->enrichmentRunning(); }, 3000));
        const int traders = client_->traderCount(), tokens = client_->tokenCount();
        sim_->setEndpointFault(failing, EndpointFault{EndpointFaultKind::Status500, 0});
        now += 200;
        client_->ensureEnrichment();
        QVERIFY(QTest::qWaitFor([&] { return !client_->enrichmentRunning(); }, 3000));
        QCOMPARE(client_->traderCount(), traders);
        QCOMPARE(client_->tokenCount(), tokens);
        QCOMPARE(client_->enrichmentFetchedAt(), std::optional(1200.0));
    }

    void socketMessagesCheckEnrichment()
    {
        double now = 1000;
        makeClient(quick(), [&] { return now; });
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(QTest::qWaitFor([&] { return client_->enrichmentFetchedAt().has_value(); }, 3000));
        const int loads = sim_->requestCount(QStringLiteral("/traders"));
        now += 120;
        sim_->sendFrameOfType(QStringLiteral("stats")); // no fills, still a message
        QVERIFY(
            QTest::qWaitFor([&] { return sim_->requestCount(QStringLiteral("/traders")) > loads; }, 3000));
    }

    void refreshFetchesRadarOnce()
    {
        makeClient();
        QList<TwRadar> got;
        int calls = 0;
        client_->onRadar = [&](const QList<TwRadar> &r) {
            ++calls;
            got = r;
        };
        client_->refresh();
        QVERIFY(QTest::qWaitFor([&] { return calls == 1; }, 3000));
        QCOMPARE(sim_->requestCount(QStringLiteral("/radar")), 1);
        QCOMPARE(sim_->requestCount(QStringLiteral("/tape")), 0);
    }

    void logLines_data()
    {
        QTest::addColumn<QByteArray>("env");
        QTest::addColumn<bool>("logs");
        QTest::newRow("1") << QByteArray("1") << true;
        QTest::newRow("true is not 1") << QByteArray("true") << false;
        QTest::newRow("unset") << QByteArray() << false;
    }
    void logLines()
    {
        QFETCH(QByteArray, env);
        QFETCH(bool, logs);
        if (env.isNull())
            qunsetenv("LARKPIN_LOG");
        else
            qputenv("LARKPIN_LOG", env);
        QStringList lines;
        {
            CaptureStderr capture;
            makeClient();
            client_->start();
            QVERIFY(QTest::qWaitFor([&] { return client_->framesReceived() == 1; }, 3000)); // the greeting
            sim_->emitFills(3);
            sim_->sendRawFrame("{]");
            sim_->sendRawFrame(R"({"type":"x\n00:00:00 [tw] forged","data":null})");
            QVERIFY(QTest::qWaitFor([&] { return client_->framesReceived() == 4; }, 3000));
            QVERIFY(QTest::qWaitFor([&] { return client_->fillsReceived() == 3; }, 3000));
            QTest::qWait(quick().pingIntervalMs * 2 + 100); // at least one answered ping
            client_->stop();
            lines = capture.lines();
        }
        const QRegularExpression stamp(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d \\[tw\\] "));
        QStringList messages;
        for (const QString &line : lines)
            if (stamp.match(line).hasMatch())
                messages << line.mid(14);
        if (!logs) {
            QVERIFY2(messages.isEmpty(), qPrintable(messages.join(QLatin1Char('\n'))));
            return;
        }
        QVERIFY(messages.contains(QStringLiteral("frame #1 type=hello")));
        QVERIFY(messages.contains(QStringLiteral("frame #2 fills=3 (total 3)")));
        QVERIFY(messages.contains(QStringLiteral("frame #3 UNDECODABLE")));
        // A line feed in wire text cannot forge a second line.
        QVERIFY(messages.contains(QStringLiteral("frame #4 type=x 00:00:00 [tw] forged")));
        QVERIFY(!messages.contains(QStringLiteral("forged")));
        const QRegularExpression pingOk(QStringLiteral("^ping ok \u00b7 frames=\\d+ fills=3$"));
        QVERIFY2(std::any_of(messages.begin(), messages.end(),
                             [&](const QString &m) { return pingOk.match(m).hasMatch(); }),
                 qPrintable(messages.join(QLatin1Char('\n'))));
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
