// The local tape service speaks the protocol the client expects: checked with
// Qt's own network classes and the project's wire decoders.

#include "Feed/TarnwickModels.h"
#include "TarnwickSim.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>
#include <QWebSocket>

using namespace tarnwick;

class SimTest : public QObject {
    Q_OBJECT
    QNetworkAccessManager net_;

    std::unique_ptr<SimServer> started(SimOptions options = {})
    {
        options.port = 0;
        auto sim = std::make_unique<SimServer>(options);
        QString error;
        if (!sim->start(&error))
            qFatal("sim did not start: %s", qPrintable(error));
        return sim;
    }

    struct Answer {
        int status = 0;
        QByteArray body;
        bool done = false;
    };
    Answer get(const SimServer &sim, const QString &path, int waitMs = 5000)
    {
        Answer a;
        QNetworkReply *reply = net_.get(QNetworkRequest(QUrl(sim.httpBase() + path)));
        connect(reply, &QNetworkReply::finished, this, [&a, reply] {
            a.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
            a.body = reply->readAll();
            a.done = true;
            reply->deleteLater();
        });
        (void)QTest::qWaitFor([&] { return a.done; }, waitMs);
        return a;
    }

private Q_SLOTS:
    void endpointsDecode()
    {
        auto sim = started();
        const auto tape = TwDecode::fills(get(*sim, QStringLiteral("/tape?limit=200&stocks=true")).body);
        QVERIFY(tape);
        QCOMPARE(tape->size(), 200);
        for (int i = 1; i < tape->size(); ++i)
            QVERIFY2((*tape)[i - 1].id > (*tape)[i].id, "the tape is newest first");
        QVERIFY(TwDecode::radars(get(*sim, QStringLiteral("/radar?minutes=120&limit=40")).body));
        const auto traders =
            TwDecode::traders(get(*sim, QStringLiteral("/traders?window=24h&stocks=true")).body);
        QVERIFY(traders);
        QCOMPARE(traders->size(), 40);
        const auto tokens =
            TwDecode::tokens(get(*sim, QStringLiteral("/tokens?window=24h&stocks=true&limit=200")).body);
        QVERIFY(tokens);
        QCOMPARE(tokens->size(), 70);
        const QString handle = traders->first().handle;
        const Answer detail =
            get(*sim, QStringLiteral("/trader/") + QString::fromLatin1(QUrl::toPercentEncoding(handle)) +
                          QStringLiteral("?window=24h&stocks=true"));
        QCOMPARE(detail.status, 200);
        QVERIFY(TwDecode::traderDetail(detail.body));
        QCOMPARE(get(*sim, QStringLiteral("/trader/nobody%20here?window=24h")).status, 404);
        QCOMPARE(get(*sim, QStringLiteral("/nothing")).status, 404);
    }

    void tapeHasVariety()
    {
        auto sim = started();
        const auto tape = TwDecode::fills(get(*sim, QStringLiteral("/tape?limit=250&stocks=true")).body);
        QVERIFY(tape);
        int stocks = 0, pileIns = 0, noise = 0, sells = 0, big = 0;
        for (const TwFill &f : *tape) {
            stocks += f.isStock;
            sells += f.side == QLatin1String("sell");
            big += f.usd >= 25000;
            for (const QString &flag : f.flags) {
                pileIns += flag.startsWith(QLatin1String("pile-in "));
                noise += flag.startsWith(QLatin1String("not a real buy")) ||
                         flag.startsWith(QLatin1String("pool drained"));
            }
        }
        QVERIFY(stocks > 5);
        QVERIFY(pileIns > 5);
        QVERIFY(noise > 0);
        QVERIFY(sells > 20);
        QVERIFY(big > 0);
        const auto noStocks = TwDecode::fills(get(*sim, QStringLiteral("/tape?limit=250&stocks=false")).body);
        QVERIFY(noStocks && !noStocks->isEmpty());
        for (const TwFill &f : *noStocks)
            QVERIFY(!f.isStock);
    }

    void sameSeedSameFills()
    {
        SimOptions options;
        options.seed = 99;
        options.autoTape = false;
        auto a = started(options);
        auto b = started(options);
        const auto fa = a->emitFills(100), fb = b->emitFills(100);
        for (int i = 0; i < 100; ++i) {
            QJsonObject x = fa[i], y = fb[i];
            x.remove(QStringLiteral("ts"));
            y.remove(QStringLiteral("ts"));
            QCOMPARE(x, y);
        }
        options.seed = 100;
        auto c = started(options);
        QVERIFY(c->emitFills(1).first() != fa.first());
    }

    void socketFramesOldestFirst()
    {
        SimOptions options;
        options.autoTape = false;
        auto sim = started(options);
        QWebSocket client;
        QList<QByteArray> frames;
        connect(&client, &QWebSocket::textMessageReceived, this,
                [&](const QString &m) { frames << m.toUtf8(); });
        client.open(QUrl(sim->socketURL()));
        QVERIFY(QTest::qWaitFor([&] { return !frames.isEmpty(); }, 5000)); // the greeting
        QCOMPARE(TwDecode::socketFrame(frames.first())->type, QStringLiteral("hello"));
        sim->emitFills(5);
        sim->emitFills(2);
        QVERIFY(QTest::qWaitFor([&] { return frames.size() == 3; }, 5000));
        qint64 last = 0;
        for (int i = 1; i < 3; ++i) {
            const auto frame = TwDecode::socketFrame(frames[i]);
            QVERIFY(frame && frame->data);
            for (const TwFill &f : *frame->data) {
                QVERIFY(f.id > last);
                last = f.id;
            }
        }
        QCOMPARE(last, sim->lastFillId());
        client.close(QWebSocketProtocol::CloseCodeGoingAway);
        QVERIFY(QTest::qWaitFor([&] { return sim->closeCodesReceived() == QList<int>{1001}; }, 3000));
    }

    void endpointFaults_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<int>("status");
        QTest::newRow("500") << int(EndpointFaultKind::Status500) << 500;
        QTest::newRow("204") << int(EndpointFaultKind::Status204) << 204;
        QTest::newRow("304") << int(EndpointFaultKind::Status304) << 304;
        QTest::newRow("bad body") << int(EndpointFaultKind::BadBody) << 200;
        QTest::newRow("delay") << int(EndpointFaultKind::Delay) << 200;
    }
    void endpointFaults()
    {
        QFETCH(int, kind);
        QFETCH(int, status);
        auto sim = started();
        sim->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind(kind), 600});
        QElapsedTimer clock;
        clock.start();
        const Answer a = get(*sim, QStringLiteral("/tape?limit=5&stocks=true"));
        QCOMPARE(a.status, status);
        if (EndpointFaultKind(kind) == EndpointFaultKind::Delay) {
            QVERIFY(clock.elapsed() >= 550);
            QVERIFY(TwDecode::fills(a.body));
        } else {
            QVERIFY(!TwDecode::fills(a.body));
        }
        QCOMPARE(get(*sim, QStringLiteral("/radar?minutes=120&limit=40")).status,
                 200); // other endpoints unaffected
    }

    void handshakeFaults()
    {
        SimOptions options;
        options.autoTape = false;
        auto sim = started(options);
        sim->setHandshakeMode(HandshakeMode::Refuse);
        QWebSocket refused;
        bool failed = false;
        connect(&refused, &QWebSocket::disconnected, this, [&] { failed = true; });
        refused.open(QUrl(sim->socketURL()));
        QVERIFY(QTest::qWaitFor([&] { return failed; }, 5000));
        QCOMPARE(sim->handshakesCompleted(), 0);

        sim->setHandshakeMode(HandshakeMode::Hang);
        QWebSocket hanging;
        hanging.open(QUrl(sim->socketURL()));
        QTest::qWait(500);
        QCOMPARE(hanging.state(), QAbstractSocket::ConnectingState);
        QCOMPARE(sim->handshakesCompleted(), 0);
    }

    void frozenPeerLeavesPingsUnanswered()
    {
        SimOptions options;
        options.autoTape = false;
        auto sim = started(options);
        QWebSocket client;
        int pongs = 0, frames = 0;
        connect(&client, &QWebSocket::pong, this, [&] { ++pongs; });
        connect(&client, &QWebSocket::textMessageReceived, this, [&] { ++frames; });
        client.open(QUrl(sim->socketURL()));
        QVERIFY(QTest::qWaitFor([&] { return frames == 1; }, 5000));
        client.ping();
        QVERIFY(QTest::qWaitFor([&] { return pongs == 1; }, 3000));
        sim->setAnswerPings(false);
        client.ping();
        QTest::qWait(400);
        QCOMPARE(pongs, 1);
        sim->setAnswerPings(true);
        client.ping(); // new bytes wake the reader; the late ping is answered too
        QVERIFY(QTest::qWaitFor([&] { return pongs >= 2; }, 3000));
    }

    void dropAfterFrames()
    {
        SimOptions options;
        options.autoTape = false;
        auto sim = started(options);
        sim->dropSocketsAfterFrames(3); // the greeting counts
        QWebSocket client;
        int frames = 0;
        bool dropped = false;
        connect(&client, &QWebSocket::textMessageReceived, this, [&] { ++frames; });
        connect(&client, &QWebSocket::disconnected, this, [&] { dropped = true; });
        client.open(QUrl(sim->socketURL()));
        QVERIFY(QTest::qWaitFor([&] { return frames == 1; }, 5000));
        sim->emitFills(1);
        sim->emitFills(1);
        QVERIFY(QTest::qWaitFor([&] { return dropped; }, 5000));
        QCOMPARE(frames, 3);
        QCOMPARE(sim->openSockets(), 0);
    }
};

QTEST_GUILESS_MAIN(SimTest)
#include "tst_sim.moc"
