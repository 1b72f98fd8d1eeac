#include "Support/StallProbe.h"

#include <QThread>
#include <QtTest>

class TestStallProbe : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void ownShareOfLateness_data()
    {
        QTest::addColumn<double>("late");
        QTest::addColumn<double>("queued");
        QTest::addColumn<double>("own");
        QTest::newRow("on time") << 0.0 << 0.0 << 0.0;
        QTest::newRow("all of it load") << 30.0 << 30.0 << 0.0;
        QTest::newRow("part load") << 85.0 << 5.0 << 80.0;
        // Queued while it waited for the tick: more than the lateness.
        QTest::newRow("queued before the tick was due") << 2.0 << 9.0 << 0.0;
    }
    void ownShareOfLateness()
    {
        QFETCH(double, late);
        QFETCH(double, queued);
        QFETCH(double, own);
        QCOMPARE(StallProbe::Tick({late, queued}).ownMs(), own);
    }

    void windowKeepsTheWorst()
    {
        StallProbe::Window w;
        w.add({12, 11});
        w.add({40, 39}); // the latest tick is mostly load
        w.add({20, 0});  // a smaller one that was all the app's
        QCOMPARE(w.ticks, 3);
        QCOMPARE(w.worstLate.lateMs, 40.0);
        QCOMPARE(w.worstLate.queuedMs, 39.0);
        QCOMPARE(w.worstOwnMs, 20.0);
        QVERIFY(StallProbe::line(w, 10).contains(QStringLiteral("own stall at most 20.0 ms")));
    }

    void startsOnlyWhenAsked()
    {
        QObject owner;
        qunsetenv("LARKPIN_STALL_PROBE");
        QVERIFY(!StallProbe::startIfAsked(&owner));
        qputenv("LARKPIN_STALL_PROBE", "1");
        QVERIFY(StallProbe::startIfAsked(&owner));
        qunsetenv("LARKPIN_STALL_PROBE");
    }

    // A thread blocked in a call (here a sleep) is the app's own stall however
    // loaded the machine is: the scheduler counts only runnable time as queued.
    void aBlockedThreadIsAnOwnStall()
    {
        StallProbe probe(nullptr, 60000);
        QTRY_VERIFY_WITH_TIMEOUT(probe.total().ticks >= 1, 30000);
        const int before = probe.total().ticks;
        QThread::msleep(250);
        QTRY_VERIFY_WITH_TIMEOUT(probe.total().ticks > before, 30000);
        // The tick armed before the sleep fires at least 250 ms after it was
        // armed, 150 ms late, and the thread was not runnable while it slept.
        QVERIFY2(probe.total().worstOwnMs >= 100, qPrintable(StallProbe::line(probe.total(), 0)));
        QVERIFY(probe.total().worstLate.lateMs >= probe.total().worstOwnMs);
    }

    void queuedTimeOnlyGrows()
    {
        const qint64 a = StallProbe::queuedNs();
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < 20) {
        }
        QVERIFY(a >= 0);
        QVERIFY(StallProbe::queuedNs() >= a);
    }
};

QTEST_GUILESS_MAIN(TestStallProbe)
#include "tst_stall_probe.moc"
