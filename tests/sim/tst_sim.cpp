// The local tape service speaks the protocol the client expects: checked with
// Qt's own network classes and the project's wire decoders.

#include "Wire/TarnwickModels.h"
#include "TarnwickSim.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpSocket>
#include <QTemporaryDir>
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
    // Fills only when a test emits them.
    std::unique_ptr<SimServer> quiet(quint64 seed = 1)
    {
        SimOptions options;
        options.autoTape = false;
        options.seed = seed;
        return started(options);
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

    // A socket client that records what reaches it.
    struct Peer {
        QWebSocket socket;
        QList<QByteArray> frames;
        bool dropped = false;
    };
    std::unique_ptr<Peer> open(const SimServer &sim)
    {
        auto peer = std::make_unique<Peer>();
        Peer *p = peer.get();
        connect(&p->socket, &QWebSocket::textMessageReceived, this,
                [p](const QString &m) { p->frames << m.toUtf8(); });
        connect(&p->socket, &QWebSocket::disconnected, this, [p] { p->dropped = true; });
        p->socket.open(QUrl(sim.socketURL()));
        return peer;
    }

private Q_SLOTS:
    void endpointsDecode()
    {
        auto sim = started();
        const auto tape = TwDecode::fills(get(*sim, QStringLiteral("/tape?limit=200&stocks=true")).body);
        QVERIFY(tape);
        QCOMPARE(tape->size(), 200);
        int stocks = 0, big = 0; // the demo needs both kinds and takeover-sized trades
        for (int i = 0; i < tape->size(); ++i) {
            QVERIFY2(i == 0 || (*tape)[i - 1].id > (*tape)[i].id, "the tape is newest first");
            stocks += (*tape)[i].isStock;
            big += (*tape)[i].usd >= 25000;
        }
        QVERIFY(stocks > 5 && big > 0);
        const auto noStocks = TwDecode::fills(get(*sim, QStringLiteral("/tape?limit=50&stocks=false")).body);
        QVERIFY(noStocks && !noStocks->isEmpty());
        QVERIFY(std::none_of(noStocks->begin(), noStocks->end(), [](const TwFill &f) { return f.isStock; }));
        QVERIFY(TwDecode::radars(get(*sim, QStringLiteral("/radar?minutes=120&limit=40")).body));
        QCOMPARE(get(*sim, QStringLiteral("/trader/nobody%20here?window=24h")).status, 404);
        QCOMPARE(get(*sim, QStringLiteral("/nothing")).status, 404);
    }

    void sameSeedSameFills()
    {
        auto a = quiet(99), b = quiet(99);
        const auto fa = a->emitFills(100), fb = b->emitFills(100);
        for (int i = 0; i < 100; ++i) {
            QJsonObject x = fa[i], y = fb[i];
            x.remove(QStringLiteral("ts"));
            y.remove(QStringLiteral("ts"));
            QCOMPARE(x, y);
        }
        QVERIFY(quiet(100)->emitFills(1).first() != fa.first());
    }

    void greetingAndCloseCode()
    {
        auto sim = quiet();
        auto peer = open(*sim);
        QVERIFY(QTest::qWaitFor([&] { return !peer->frames.isEmpty(); }, 5000)); // the greeting
        QCOMPARE(TwDecode::socketFrame(peer->frames.first())->type, QStringLiteral("hello"));
        peer->socket.close(QWebSocketProtocol::CloseCodeGoingAway);
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
        const bool delayed = EndpointFaultKind(kind) == EndpointFaultKind::Delay;
        QVERIFY(!delayed || clock.elapsed() >= 550);
        QCOMPARE(TwDecode::fills(a.body).has_value(), delayed); // only a delay still brings a tape
        QCOMPARE(get(*sim, QStringLiteral("/radar?minutes=120&limit=40")).status, 200); // others unaffected
    }

    void dropAfterFrames()
    {
        auto sim = quiet();
        sim->dropSocketsAfterFrames(3); // the greeting counts
        auto peer = open(*sim);
        QVERIFY(QTest::qWaitFor([&] { return peer->frames.size() == 1; }, 5000));
        sim->emitFills(1);
        sim->emitFills(1);
        QVERIFY(QTest::qWaitFor([&] { return peer->dropped; }, 5000));
        QCOMPARE(peer->frames.size(), 3);
        QCOMPARE(sim->openSockets(), 0);
    }

    // Huge and endless answers are made as the reader drains them: a reader
    // that stops after 1 MB has cost the service a few MB, not the body.
    void streamedAnswers_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<bool>("declared");
        QTest::addColumn<QByteArray>("head"); // a line the head must hold
        QTest::newRow("huge, declared")
            << int(EndpointFaultKind::Huge) << true << QByteArray("Content-Length: 314572800");
        QTest::newRow("huge, chunked")
            << int(EndpointFaultKind::Huge) << false << QByteArray("Transfer-Encoding: chunked");
        QTest::newRow("endless") << int(EndpointFaultKind::Endless) << false
                                 << QByteArray("Transfer-Encoding: chunked");
    }
    void streamedAnswers()
    {
        QFETCH(int, kind);
        QFETCH(bool, declared);
        QFETCH(QByteArray, head);
        auto sim = quiet();
        sim->setEndpointFault(QStringLiteral("/tape"),
                              EndpointFault{EndpointFaultKind(kind), 0, qint64(300) * 1024 * 1024, declared});
        QTcpSocket peer;
        peer.connectToHost(QHostAddress::LocalHost, sim->port());
        QVERIFY(peer.waitForConnected(3000));
        peer.write("GET /api/tape?limit=200 HTTP/1.1\r\nHost: x\r\n\r\n");
        QByteArray got;
        QVERIFY(QTest::qWaitFor(
            [&] {
                got += peer.readAll();
                return got.size() >= 1024 * 1024;
            },
            10000));
        QVERIFY(got.startsWith("HTTP/1.1 200 OK\r\n"));
        QVERIFY(got.left(got.indexOf("\r\n\r\n")).contains(head));
        peer.abort();
        QVERIFY(QTest::qWaitFor([&] { return sim->streamsRunning() == 0; }, 3000));
        QVERIFY2(sim->streamedBytes() < 16 * 1024 * 1024, qPrintable(QString::number(sim->streamedBytes())));
    }

    // The race: the fills of the answer reach an open socket first.
    void socketBeforeTheAnswer()
    {
        auto sim = quiet();
        auto peer = open(*sim);
        QVERIFY(QTest::qWaitFor([&] { return peer->frames.size() == 1; }, 5000));
        sim->setEndpointFault(QStringLiteral("/tape"), EndpointFault{EndpointFaultKind::SocketFirst, 200});
        const Answer a = get(*sim, QStringLiteral("/tape?limit=5"));
        QCOMPARE(peer->frames.size(), 2);
        const auto frame = TwDecode::socketFrame(peer->frames.last());
        const auto tape = TwDecode::fills(a.body);
        QVERIFY(frame && frame->data && tape);
        QCOMPARE(frame->data->size(), 2);
        QCOMPARE(tape->first().id, frame->data->last().id); // newest first: the frame's fills lead
        QCOMPARE(tape->at(1).id, frame->data->first().id);
    }

    // Timed steps from a file, as the command line runs them; a bad file is named.
    void scenarioSteps()
    {
        QTemporaryDir dir;
        const auto write = [&](const char *name, const QByteArray &text) {
            QFile f(dir.filePath(QLatin1String(name)));
            return f.open(QIODevice::WriteOnly) && f.write(text) == text.size() ? f.fileName() : QString();
        };
        SimOptions options;
        options.scenarioFile = write("steps.json", R"([{"at": 0, "endpoint": "/tape", "status": 500},
                                                       {"at": 0.5, "fault": "clear"}])");
        auto sim = started(options);
        QCOMPARE(get(*sim, QStringLiteral("/tape?limit=5")).status, 500);
        QTRY_COMPARE_WITH_TIMEOUT(get(*sim, QStringLiteral("/tape?limit=5")).status, 200, 3000);

        QString error;
        const QString notAList = write("object.json", R"({"at": 0})");
        QVERIFY(!sim->loadScenario(notAList, &error));
        QVERIFY2(error.contains(notAList), qPrintable(error));
        QVERIFY(!sim->loadScenario(dir.filePath(QStringLiteral("missing.json")), &error));
        QVERIFY2(error.contains(QStringLiteral("missing.json")), qPrintable(error));
    }
};

QTEST_GUILESS_MAIN(SimTest)
#include "tst_sim.moc"
