// The live link against the local tape service on real sockets, every
// interval shortened, each link state driven by a fault; and the REST rules.

#include "CaptureStderr.h"
#include "Wire/Tarnwick.h"
#include "Feed/TarnwickClient.h"
#include "TarnwickSim.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace tarnwick;

namespace {
QByteArray fillsFrame(std::initializer_list<qint64> ids)
{
    QList<QByteArray> fills;
    for (qint64 id : ids)
        fills << R"({"id":)" + QByteArray::number(id) +
                     R"(,"ts":1700000000,"side":"buy","usd":5000,)"
                     R"("handle":"kai","wallet":"W","token":"T","symbol":"WIF"})";
    return R"({"type":"fills","data":[)" + fills.join(',') + "]}";
}

bool until(const std::function<bool()> &condition, int ms = 3000)
{
    return QTest::qWaitFor(condition, ms);
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

    // Every interval shortened; the reconnect back-off becomes 0.2 s to 1.7 s.
    static TarnwickTiming quick()
    {
        return {.requestTimeoutMs = 800,
                .openWatchdogMs = 400,
                .pingIntervalMs = 300,
                .pollIntervalMs = 200,
                .radarIntervalMs = 1000,
                .reconnectScale = 0.05};
    }

    void makeClient(TarnwickTiming timing = quick(), Clock now = systemNow, QString httpBase = {})
    {
        client_ = std::make_unique<TarnwickClient>(httpBase.isEmpty() ? sim_->httpBase() : httpBase,
                                                   sim_->socketURL(), timing, std::move(now));
        client_->onLink = [this](LinkState s) { links_ << s; };
        client_->onFills = [this](const QList<TwFill> &fills) {
            ++batches_;
            for (const TwFill &f : fills)
                delivered_ << f.id;
        };
        client_->onFrame = [this] { ++frames_; };
    }

    int requests(const char *path) const { return sim_->requestCount(QLatin1String(path)); }

    bool waitForLink(LinkState state, int ms = 5000)
    {
        return until([&] { return !links_.isEmpty() && links_.last() == state; }, ms);
    }

    // The sim greets every socket with a frame, so an open socket goes live at once.
    bool waitForSocket()
    {
        return until([&] { return sim_->openSockets() >= 1 && client_->hasSocket(); }, 5000);
    }

    // Fills emitted while the poller runs, each batch picked up by a poll.
    void emitThroughPolls(int batches, int size)
    {
        for (int i = 0; i < batches; ++i) {
            const int polls = requests("/tape");
            sim_->emitFills(size);
            QVERIFY(until([&] { return requests("/tape") > polls; }));
        }
        QVERIFY(until([&] { return delivered_.last() == sim_->lastFillId(); }));
    }

    // Everything delivered from `from` on came once and in order.
    void verifyDeliveredOnce(qsizetype from, qsizetype count)
    {
        QVERIFY(until([&] { return delivered_.last() == sim_->lastFillId(); }));
        const QList<qint64> tail = delivered_.mid(from);
        QVERIFY(std::is_sorted(tail.begin(), tail.end()));
        QVERIFY(std::adjacent_find(tail.begin(), tail.end()) == tail.end());
        QCOMPARE(tail.size(), count);
    }

private Q_SLOTS:
    void init()
    {
        links_.clear();
        delivered_.clear();
        frames_ = batches_ = 0;
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

    void connectingThenLive()
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
        sim_->sendFrameOfType(QStringLiteral("stats"));
        QVERIFY(until([&] { return requests("/traders") > loads; }));
    }

    void socketHandshakeCarriesTheUserAgent()
    {
        // REST goes nowhere, so the only request the service sees is the upgrade.
        makeClient(quick(), systemNow, QStringLiteral("http://127.0.0.1:9/api"));
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QCOMPARE(requests(""), requests("/ws"));
        QCOMPARE(sim_->lastUserAgent(), QByteArray("Larkpin/0.1 (+") + Tarnwick::siteURL().toUtf8() + ')');
    }

    void fallsBackToPolling_data()
    {
        QTest::addColumn<int>("handshake");
        QTest::addColumn<int>("watchdogMs");
        QTest::addColumn<int>("handshakeMs");
        QTest::addColumn<bool>("socketFails");
        QTest::addColumn<QString>("logged"); // the line that says why
        // In each row only one thing can start the poller.
        QTest::newRow("watchdog, handshake hangs")
            << int(HandshakeMode::Hang) << 400 << 60000 << false << QString();
        QTest::newRow("handshake deadline, handshake hangs")
            << int(HandshakeMode::Hang) << 60000 << 300 << true
            << QStringLiteral("connect FAILED: no handshake within 300 ms");
        QTest::newRow("refused") << int(HandshakeMode::Refuse) << 60000 << 60000 << true << QString();
    }
    void fallsBackToPolling()
    {
        QFETCH(int, handshake);
        QFETCH(int, watchdogMs);
        QFETCH(int, handshakeMs);
        QFETCH(bool, socketFails);
        QFETCH(QString, logged);
        qputenv("LARKPIN_LOG", "1");
        CaptureStderr capture;
        sim_->setHandshakeMode(HandshakeMode(handshake));
        TarnwickTiming timing = quick();
        timing.openWatchdogMs = watchdogMs;
        timing.handshakeTimeoutMs = handshakeMs;
        timing.radarIntervalMs = 60000; // each poll re-arms on the poll's own period
        makeClient(timing);
        client_->start();
        QVERIFY(waitForLink(LinkState::polling));
        QVERIFY(client_->isPolling());
        QVERIFY(!client_->socketOpenedOnce());
        if (socketFails) {
            QVERIFY(until([&] { return client_->socketFailures() >= 2; }, 5000)); // new sockets are tried
        } else {
            // The watchdog does not close the socket: it may still open.
            QVERIFY(client_->hasSocket());
            QCOMPARE(client_->socketFailures(), 0);
        }
        QVERIFY(until([&] { return requests("/tape") >= 4; }));
        // A running poller is not announced twice; what never worked never dropped.
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::polling}));
        client_->stop();
        const QStringList messages = capture.messages(QStringLiteral("tw"));
        // A socket that never opened is not reported as a missed pong.
        QVERIFY2(messages.filter(QStringLiteral("ping FAILED")).isEmpty(), qPrintable(messages.join(u'\n')));
        if (!logged.isEmpty())
            QVERIFY2(messages.contains(logged), qPrintable(messages.join(u'\n')));
    }

    void unansweredPingDropsTheLiveLink()
    {
        qputenv("LARKPIN_LOG", "1");
        CaptureStderr capture;
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(waitForSocket());
        sim_->setAnswerPings(false);
        QVERIFY(waitForLink(LinkState::down));
        QCOMPARE(client_->socketFailures(), 1);
        client_->stop();
        QVERIFY(!capture.messages(QStringLiteral("tw"))
                     .filter(QRegularExpression(QStringLiteral("^ping FAILED: ")))
                     .isEmpty());
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
        QVERIFY(until([&] { return frames_ > before + 1; }));
        QCOMPARE(links_.last(), LinkState::down);
        QCOMPARE(client_->socketFailures(), 1); // only the first frame after start() resets it
        sim_->dropAllSockets();
        QVERIFY(waitForLink(LinkState::polling));
        QCOMPARE(links_, (QList<LinkState>{LinkState::connecting, LinkState::live, LinkState::down,
                                           LinkState::polling}));
        // Once a socket has worked in this run, polling goes on beside the
        // next one; the high-water mark keeps the two from repeating each other.
        QVERIFY(waitForSocket());
        const qsizetype from = delivered_.size();
        emitThroughPolls(6, 2);
        QVERIFY(client_->isPolling());
        verifyDeliveredOnce(from, 12);
    }

    void stopIsQuietAndRestartRefills()
    {
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(waitForSocket());
        // Let the start-up requests (backfill, radar, enrichment) land first.
        QVERIFY(until([&] { return !delivered_.isEmpty() && client_->enrichmentFetchedAt(); }));
        const int reports = int(links_.size());
        const qint64 mark = client_->lastFillId();
        client_->stop();
        QVERIFY(client_->isStopped());
        QVERIFY(!client_->socketOpenedOnce());
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
        QVERIFY(requests("/tape") <= polls + 1); // the cancelled poller stays quiet
    }

    void restStatusRules_data()
    {
        QTest::addColumn<int>("fault"); // -1: a peer that hangs up before the promised body
        QTest::addColumn<bool>("roundTrip");
        QTest::newRow("healthy") << int(EndpointFaultKind::None) << true;
        QTest::newRow("500") << int(EndpointFaultKind::Status500) << false;
        QTest::newRow("204 fails like 500") << int(EndpointFaultKind::Status204) << false;
        QTest::newRow("304 fails like 500") << int(EndpointFaultKind::Status304) << false;
        QTest::newRow("200 with a body that does not decode") << int(EndpointFaultKind::BadBody) << true;
        QTest::newRow("slower than the time-out") << int(EndpointFaultKind::Delay) << false;
        QTest::newRow("body cut short") << -1 << false;
    }
    void restStatusRules()
    {
        QFETCH(int, fault);
        QFETCH(bool, roundTrip);
        QTcpServer peer;
        if (fault < 0) {
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
            makeClient(quick(), systemNow, QStringLiteral("http://127.0.0.1:%1").arg(peer.serverPort()));
        } else {
            sim_->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind(fault), 2000});
            makeClient();
        }
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
        QVERIFY(until([&] { return result.has_value(); }, 5000));
        const bool healthy = fault == int(EndpointFaultKind::None);
        QCOMPARE(result->has_value(), healthy);
        QCOMPARE(error.isEmpty(), healthy);
        QCOMPARE(latency >= 0, roundTrip); // a 200 that fails to decode still counts as a round trip
        if (fault == int(EndpointFaultKind::Delay))
            QVERIFY2(clock.elapsed() < 1900, "the request time-out did not end the slow request");
        if (healthy)
            QCOMPARE(sim_->lastUserAgent(), Tarnwick::userAgent());
    }

    void traderPath_data()
    {
        QTest::addColumn<QString>("handle");
        QTest::addColumn<QString>("segment");
        QTest::newRow("space, hash, query, percent")
            << QStringLiteral("a b#c?d%") << QStringLiteral("a%20b%23c%3Fd%25");
        QTest::newRow("slash stays inside the segment")
            << QStringLiteral("../admin") << QStringLiteral("..%2Fadmin");
        QTest::newRow("non-ASCII as UTF-8") << QStringLiteral("zoë") << QStringLiteral("zo%C3%AB");
        QTest::newRow("path-allowed marks kept") << QStringLiteral("a@b:c+d") << QStringLiteral("a@b:c+d");
    }
    void traderPath()
    {
        QFETCH(QString, handle);
        QFETCH(QString, segment);
        QCOMPARE(TarnwickClient::traderPath(handle),
                 QStringLiteral("/trader/") + segment + QStringLiteral("?window=24h&stocks=true"));
        // ... and that is the path the service sees (it knows no such trader).
        makeClient();
        QString error;
        client_->traderDetail(handle, this, [&](std::optional<TwTraderDetail> d, QString e) {
            error = d ? QStringLiteral("decoded") : e;
        });
        QVERIFY(until([&] { return !error.isEmpty(); }));
        QCOMPARE(sim_->requestCount(QStringLiteral("/trader/") + segment), 1);
        QVERIFY(error.contains(QStringLiteral("404")));
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
        const QString mint = made.value(QStringLiteral("token")).toString();
        const QString handle = made.value(QStringLiteral("handle")).toString();
        QVERIFY(client_->token(mint) && client_->token(mint.toUpper()) && client_->token(mint.toLower()));
        QVERIFY(client_->trader(handle));
        if (handle.toUpper() != handle)
            QVERIFY(!client_->trader(handle.toUpper()));

        now += 119;
        client_->ensureEnrichment();
        QVERIFY(!client_->enrichmentRunning()); // still fresh
        // A failed half keeps its last good table; the stamp is set either way.
        const int traders = client_->traderCount(), tokens = client_->tokenCount();
        sim_->setEndpointFault(QStringLiteral("/traders"), EndpointFault{EndpointFaultKind::Status500, 0});
        now += 1;
        QVERIFY(load());
        QCOMPARE(requests("/traders"), 2);
        QCOMPARE(client_->traderCount(), traders);
        QCOMPARE(client_->enrichmentFetchedAt(), std::optional(1120.0));
        sim_->clearFaults();
        sim_->setEndpointFault(QStringLiteral("/tokens"), EndpointFault{EndpointFaultKind::Status500, 0});
        client_->clearEnrichmentStamp(); // stale at once, whatever the clock says
        QVERIFY(load());
        QCOMPARE(requests("/tokens"), 3);
        QCOMPARE(client_->tokenCount(), tokens);
    }

    void badFramesAreHarmlessAndLogged_data()
    {
        QTest::addColumn<QByteArray>("env");
        QTest::addColumn<bool>("logs");
        QTest::newRow("LARKPIN_LOG=1") << QByteArray("1") << true;
        QTest::newRow("true is not 1") << QByteArray("true") << false;
    }
    void badFramesAreHarmlessAndLogged()
    {
        QFETCH(QByteArray, env);
        QFETCH(bool, logs);
        qputenv("LARKPIN_LOG", env);
        CaptureStderr capture;
        makeClient();
        client_->start();
        QVERIFY(waitForLink(LinkState::live));
        QVERIFY(until([&] { return !delivered_.isEmpty(); }));
        QCOMPARE(client_->framesReceived(), 1); // the greeting
        const int batches = batches_;
        const qint64 mark = client_->lastFillId();
        sim_->sendRawFrame("{]");
        sim_->sendRawFrame(R"({"type":"fills","data":{"broken":true}})");
        sim_->sendRawFrame(R"({"type":"fills","data":[]})", true);
        sim_->sendRawFrame(fillsFrame({mark - 1, mark})); // all at or below the mark
        sim_->sendFrameOfType(QStringLiteral("stats"));
        sim_->sendRawFrame(R"({"type":"x\n00:00:00 [tw] forged","data":null})");
        QVERIFY(until([&] { return client_->framesReceived() == 7; }));
        QCOMPARE(frames_, 7);
        QCOMPARE(batches_, batches);            // nothing passed the gate
        QCOMPARE(client_->fillsReceived(), 2);  // but the fills were counted
        QCOMPARE(client_->socketFailures(), 0); // and the link stays up
        QCOMPARE(links_.last(), LinkState::live);
        sim_->sendRawFrame(fillsFrame({mark + 1000}), true); // still good for real fills
        QVERIFY(until([&] { return client_->lastFillId() == mark + 1000; }));
        QTest::qWait(quick().pingIntervalMs * 2 + 100); // at least one answered ping
        client_->stop();

        const QStringList messages = capture.messages(QStringLiteral("tw"));
        if (!logs) {
            QVERIFY2(messages.isEmpty(), qPrintable(messages.join(QLatin1Char('\n'))));
            return;
        }
        for (const char *line : {"frame #1 type=hello", "frame #2 UNDECODABLE", "frame #5 fills=2 (total 2)",
                                 "frame #6 type=stats", "frame #8 fills=1 (total 3)"})
            QVERIFY2(messages.contains(QLatin1String(line)), line);
        // A line feed in wire text cannot forge a second line.
        QVERIFY(messages.contains(QStringLiteral("frame #7 type=x 00:00:00 [tw] forged")));
        QVERIFY(!messages.contains(QStringLiteral("forged")));
        const QRegularExpression pingOk(QStringLiteral("^ping ok \u00b7 frames=\\d+ fills=3$"));
        QVERIFY2(!messages.filter(pingOk).isEmpty(), qPrintable(messages.join(QLatin1Char('\n'))));
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "tst_link.moc"
