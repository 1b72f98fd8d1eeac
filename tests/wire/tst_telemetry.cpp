// Readings counted from ticks: pruning, rate, buy share, buckets and rail.

#include "Wire/Telemetry.h"

#include "Table.h"

#include <cmath>
#include <numeric>

namespace {
constexpr double Now = 1'700'000'000;

// Ticks 10 s apart; a share of -1: absent.
struct Share { const char *name; int buys, sells; double usd, share; };
const Share shares[] = {
    {.name = "nothing yet", .buys = 0, .sells = 0, .usd = 100, .share = -1},
    {.name = "six buys", .buys = 6, .sells = 0, .usd = 100, .share = 1},
    {.name = "five is too few", .buys = 5, .sells = 0, .usd = 100, .share = -1},
    {.name = "all zero dollars", .buys = 3, .sells = 3, .usd = 0, .share = -1},
    {.name = "even split", .buys = 3, .sells = 3, .usd = 100, .share = 0.5},
};
} // namespace

class TelemetryTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void buyShare_data() { rows(shares); }
    void buyShare()
    {
        const Share &r = row(shares);
        TelemetryWindow w;
        for (int i = 0; i < r.buys; ++i)
            w.append(Now - 10 * i, r.usd, true);
        for (int i = 0; i < r.sells; ++i)
            w.append(Now - 10 * i, r.usd, false);
        const Telemetry t = w.snapshot(Now, 0, 0);
        QCOMPARE(t.buyShare.value_or(-1), r.share);
        QCOMPARE(t.fillsPerMinute, (r.buys + r.sells) / 5.0);
        QCOMPARE(t.buckets.size(), 24); // even with nothing to draw
        QCOMPARE(t.rail.size(), r.buys + r.sells);
    }

    void agesAndSlots()
    {
        TelemetryWindow w;
        w.append(Now - 299, 10, true);    // counts toward the rate, slot 14
        w.append(Now - 301, 20, true);    // not in the rate, slot 13
        w.append(Now - 800, 40, false);   // kept, in no bucket, still on the rail
        w.append(Now - 900, 80, false);   // exactly 900 s stays
        w.append(Now - 900.5, 160, true); // pruned
        w.append(Now + 30, 320, true);    // from the future: no bucket
        w.append(Now + 10, 1280, false);  // even a few seconds ahead: no bucket, but recent
        w.append(Now - 5, 640, true);     // slot 23
        const Telemetry t = w.snapshot(Now, 7, 3);
        QCOMPARE(w.tickCount(), 7);
        QCOMPARE(t.fillsPerMinute, 4 / 5.0); // 299 s, both future ticks (negative age) and 5 s
        QCOMPARE(t.buckets[14], 10.0);
        QCOMPARE(t.buckets[13], 20.0);
        QCOMPARE(t.buckets[23], 640.0);
        QCOMPARE(std::accumulate(t.buckets.begin(), t.buckets.end(), 0.0), 670.0);
        QCOMPARE(t.rail.size(), 7);
        QCOMPARE(t.held, 7);
        QCOMPARE(t.visible, 3);
    }

    void railIsLogarithmicAndKeepsTheLast48()
    {
        TelemetryWindow w;
        w.append(Now, 50, false);
        w.append(Now, 500000, true);
        Telemetry t = w.snapshot(Now, 0, 0);
        QCOMPARE(t.rail[0].level, std::log10(50.0) / std::log10(500000.0));
        QCOMPARE(t.rail[1].level, 1.0);
        QVERIFY(!t.rail[0].buy && t.rail[1].buy);
        // Past the last 48 the big trade falls off; the floor of 1.0 on top
        // keeps the remaining $3 trades short rather than stretching them.
        for (int i = 0; i < 48; ++i)
            w.append(Now, 3, true);
        t = w.snapshot(Now, 0, 0);
        QCOMPARE(t.rail.size(), 48);
        QCOMPARE(t.rail.first().level, std::log10(3.0));
    }

    // Whatever the rate, the window holds a bounded number of ticks; the
    // oldest go first, counted, and the newest still make the rail.
    void boundedUnderAFlood()
    {
        TelemetryWindow w;
        const qsizetype flood = qsizetype(TelemetryWindow::maxTicks) * 3;
        for (qsizetype i = 0; i < flood; ++i)
            w.append(Now, i == flood - 1 ? 1e6 : 10, true);
        QVERIFY(size_t(w.tickCount()) <= TelemetryWindow::maxTicks);
        QVERIFY(size_t(w.tickCount()) >= TelemetryWindow::maxTicks * 3 / 4);
        QCOMPARE(w.ticksDropped() + w.tickCount(), qint64(flood));
        const Telemetry t = w.snapshot(Now, 0, 0);
        QCOMPARE(t.rail.last().level, 1.0);
        QCOMPARE(t.fillsPerMinute, w.tickCount() / 5.0);
    }
};

QTEST_APPLESS_MAIN(TelemetryTest)
#include "tst_telemetry.moc"
