// The local tape service speaks the protocol the client expects: checked with
// Qt's own network classes and the project's wire decoders. Its faults are
// checked where the link tests use them, through the real client.

#include "TarnwickSim.h"
#include "Wire/TarnwickModels.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

using namespace tarnwick;
using namespace Qt::StringLiterals;

class SimTest : public QObject {
    Q_OBJECT
    QNetworkAccessManager net_;

    // Fills only when a test emits them.
    static std::unique_ptr<SimServer> started(SimOptions options = {.port = 0, .seed = 1, .autoTape = false})
    {
        options.port = 0;
        auto sim = std::make_unique<SimServer>(options);
        QString error;
        if (!sim->start(&error))
            qFatal("sim did not start: %s", qPrintable(error));
        return sim;
    }

    // The status and the body of one GET.
    std::pair<int, QByteArray> get(const SimServer &sim, const QString &path)
    {
        QNetworkReply *reply = net_.get(QNetworkRequest(QUrl(sim.httpBase() + path)));
        (void)QTest::qWaitFor([&] { return reply->isFinished(); }, 30000);
        reply->deleteLater();
        return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll()};
    }

private Q_SLOTS:
    void endpointsDecode()
    {
        auto sim = started({});
        const auto tape = TwDecode::fills(get(*sim, u"/tape?limit=200&stocks=true"_s).second);
        QVERIFY(tape);
        QCOMPARE(tape->size(), 200);
        int stocks = 0, big = 0; // the demo needs both kinds and takeover-sized trades
        for (int i = 0; i < tape->size(); ++i) {
            QVERIFY2(i == 0 || (*tape)[i - 1].id > (*tape)[i].id, "the tape is newest first");
            stocks += (*tape)[i].isStock;
            big += (*tape)[i].usd >= 25000;
        }
        QVERIFY(stocks > 5 && big > 0);
        const auto noStocks = TwDecode::fills(get(*sim, u"/tape?limit=50&stocks=false"_s).second);
        QVERIFY(noStocks && !noStocks->isEmpty());
        QVERIFY(std::none_of(noStocks->begin(), noStocks->end(), [](const TwFill &f) { return f.isStock; }));
        QVERIFY(TwDecode::radars(get(*sim, u"/radar?minutes=120&limit=40"_s).second));
        QCOMPARE(get(*sim, u"/trader/nobody%20here?window=24h"_s).first, 404);
        QCOMPARE(get(*sim, u"/nothing"_s).first, 404);
    }

    void sameSeedSameFills()
    {
        auto a = started(), b = started();
        const auto fa = a->emitFills(100), fb = b->emitFills(100);
        for (int i = 0; i < 100; ++i) {
            QJsonObject x = fa[i], y = fb[i];
            x.remove(u"ts"_s);
            y.remove(u"ts"_s);
            QCOMPARE(x, y);
        }
        QVERIFY(started({.seed = 2, .autoTape = false})->emitFills(1).first() != fa.first());
    }

    // The service's own bookkeeping going wrong, as the feed tests use it: a
    // redeploy numbering afresh, an absurd id, stamps ahead, a clock off, a flood.
    void bookkeepingFaults()
    {
        auto sim = started(); // no tape of its own: every fill counted below is one this test asked for
        const auto date = [&] {
            QNetworkReply *reply = net_.get(QNetworkRequest(QUrl(sim->httpBase() + u"/radar"_s)));
            (void)QTest::qWaitFor([&] { return reply->isFinished(); }, 30000);
            reply->deleteLater();
            const QString text = QString::fromLatin1(reply->rawHeader("Date"));
            return QDateTime::fromString(text.chopped(3) + u"+0000"_s, Qt::RFC2822Date);
        };
        QVERIFY(date().isValid());
        QVERIFY(std::abs(date().secsTo(QDateTime::currentDateTimeUtc())) < 5);
        sim->setClockSkew(2 * 86400);
        QVERIFY(std::abs(date().secsTo(QDateTime::currentDateTimeUtc()) + 2 * 86400) < 5);
        const double skewed = sim->emitFills(1).first().value(u"ts"_s).toDouble();
        QVERIFY(skewed > double(QDateTime::currentSecsSinceEpoch()) + 86400);
        sim->setClockSkew(0);

        const qint64 last = sim->lastFillId();
        sim->injectFillId(std::numeric_limits<qint64>::max());
        QCOMPARE(sim->emitFills(1).first().value(u"id"_s).toInteger(), std::numeric_limits<qint64>::max());
        QCOMPARE(sim->emitFills(1).first().value(u"id"_s).toInteger(), last + 1);

        sim->setStampShift(1e300);
        QCOMPARE(sim->emitFills(1).first().value(u"ts"_s).toDouble(), 1e300);
        sim->setStampShift(0);

        sim->restartTape(1000);
        QCOMPARE(TwDecode::fills(get(*sim, u"/tape?limit=200"_s).second)->size(), 0);
        QCOMPARE(sim->emitFills(2).last().value(u"id"_s).toInteger(), 1001);

        // New wallets and tokens, each frame a socket message under 1 MiB.
        sim->startFlood(2000, 10, 0.2);
        QVERIFY(sim->flooding());
        QVERIFY(QTest::qWaitFor([&] { return !sim->flooding(); }, 10000));
        QCOMPARE(sim->fillsEmitted(), 6 + 4000);
        const auto tape = TwDecode::fills(get(*sim, u"/tape?limit=2000"_s).second);
        QVERIFY(tape && tape->size() == 2000);
        QSet<QString> wallets, tokens;
        for (const TwFill &f : *tape) {
            wallets.insert(f.wallet);
            tokens.insert(f.token);
        }
        QCOMPARE(wallets.size(), 2000);
        QCOMPARE(tokens.size(), 2000);
        QVERIFY(get(*sim, u"/tape?limit=2000"_s).second.size() < 1024 * 1024);
    }

    // Timed steps from a file, as the command line runs them; a bad file is named.
    void scenarioSteps()
    {
        QTemporaryDir dir;
        const auto write = [&](const char *name, const QByteArray &text) {
            QFile f(dir.filePath(QLatin1String(name)));
            return f.open(QIODevice::WriteOnly) && f.write(text) == text.size() ? f.fileName() : QString();
        };
        auto sim =
            started({.scenarioFile = write("steps.json", R"([{"at": 0, "endpoint": "/tape", "status": 500},
                                                                    {"at": 0.5, "fault": "clear"}])")});
        QCOMPARE(get(*sim, u"/tape?limit=5"_s).first, 500);
        QTRY_COMPARE_WITH_TIMEOUT(get(*sim, u"/tape?limit=5"_s).first, 200, 30000);

        QString error;
        const QString notAList = write("object.json", R"({"at": 0})");
        QVERIFY(!sim->loadScenario(notAList, &error));
        QVERIFY2(error.contains(notAList), qPrintable(error));
        QVERIFY(!sim->loadScenario(dir.filePath(u"missing.json"_s), &error));
        QVERIFY2(error.contains(u"missing.json"_s), qPrintable(error));
    }
};

QTEST_GUILESS_MAIN(SimTest)
#include "tst_sim.moc"
