// The history's costs: what the main thread pays per batch (the diff of the
// published list and the hand-off to the worker) at 60 fills a minute and at
// 20 a second, what the worker pays to write a batch, and a search over a
// million kept signals to its first page.
//
// The million-row file is built once into $LARKPIN_BENCH_DIR (default
// /tmp/larkpin-bench-history) and reused.

#include "History/HistoryDb.h"
#include "History/HistoryStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <random>

namespace {
constexpr double T0 = 1'800'000'000;

void ensureApp()
{
    static int argc = 1;
    static char name[] = "bench_history";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}

Signal make(qint64 n, double at, std::mt19937_64 &rng)
{
    static const char *kinds[] = {"whale", "whale", "whale", "spike", "stocks"};
    Signal s;
    s.id = QStringLiteral("tw-fill-%1").arg(n);
    s.kind = *SignalKinds::fromRaw(QLatin1String(kinds[rng() % 5]));
    const QString symbol = QStringLiteral("TK%1").arg(rng() % 2000);
    const QString handle = QStringLiteral("trader%1").arg(rng() % 5000);
    const double usd = 1000.0 * double(1 + rng() % 2000);
    s.line = Headline{u'$' + symbol, u'@' + handle + QStringLiteral(" bought"), QStringLiteral("$%1K").arg(usd / 1000),
                      std::nullopt};
    s.detail = QStringLiteral("62% win rate · 40 fills · held 3h.");
    s.priority = 40 + int(rng() % 50);
    s.createdAt = at;
    s.expiresAt = at + 3600;
    s.asset = AssetRef{symbol, QStringLiteral("So1") + symbol + QStringLiteral("pump"), s.kind == SignalKind::stocks};
    s.wallet = WalletRef{QStringLiteral("W") + handle, u'@' + handle, 0.6, {}};
    s.notionalUsd = usd;
    return s;
}

// The main thread's share of one 2 s batch: the store publishes its list once
// per new signal (each a rebuild), the history diffs it, then the batch goes
// to the worker.
void mainThreadBatch(benchmark::State &state)
{
    ensureApp();
    const int perBatch = int(state.range(0));
    QTemporaryDir dir;
    HistoryStore::Options o;
    o.path = dir.filePath(QStringLiteral("history.sqlite"));
    o.startDelayMs = 0;
    o.batchIntervalMs = 3'600'000; // sent by hand below
    HistoryStore store(o);
    std::mt19937_64 rng(7);
    QList<Signal> published;
    qint64 n = 0;
    for (; n < 120; ++n)
        published.prepend(make(n, T0 + double(n), rng));
    store.notePublished(published);
    store.flush();
    for (auto _ : state) {
        for (int k = 0; k < perBatch; ++k) {
            published.prepend(make(n, T0 + double(n), rng));
            ++n;
            if (published.size() > 120)
                published.removeLast();
            store.notePublished(published);
        }
        store.flush();
        state.PauseTiming();
        // The worker's answers come back here; let it catch up unmeasured.
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
    state.counters["rows/batch"] = perBatch;
}
BENCHMARK(mainThreadBatch)->Arg(2)->Arg(40)->Unit(benchmark::kMicrosecond);

// The worker's share: one transaction of a batch.
void workerWrite(benchmark::State &state)
{
    const int perBatch = int(state.range(0));
    QTemporaryDir dir;
    HistoryDb db;
    db.open(dir.filePath(QStringLiteral("history.sqlite")), {});
    std::mt19937_64 rng(9);
    qint64 n = 0;
    for (auto _ : state) {
        QList<HistoryEntry> batch;
        for (int k = 0; k < perBatch; ++k) {
            HistoryEntry e;
            e.signal = make(n, T0 + double(n), rng);
            ++n;
            batch << e;
        }
        benchmark::DoNotOptimize(db.write(batch, T0));
    }
}
BENCHMARK(workerWrite)->Arg(2)->Arg(40)->Unit(benchmark::kMicrosecond);

HistoryDb &million()
{
    static HistoryDb db;
    static bool ready = false;
    if (ready)
        return db;
    ready = true;
    const QString dir = qEnvironmentVariable("LARKPIN_BENCH_DIR", QStringLiteral("/tmp/larkpin-bench-history"));
    QDir().mkpath(dir);
    const QString path = dir + QStringLiteral("/million.sqlite");
    HistoryDb::Options o;
    o.maxBytes = 4LL * 1024 * 1024 * 1024; // the bench measures the search, not the bound
    o.maxAgeSeconds = 1e12;
    db.open(path, o);
    if (db.count() < 1'000'000) {
        std::mt19937_64 rng(11);
        qint64 n = db.count();
        while (n < 1'000'000) {
            QList<HistoryEntry> batch;
            for (int k = 0; k < 20000 && n < 1'000'000; ++k, ++n) {
                HistoryEntry e;
                // A million signals over 30 days: one every 2.6 s.
                e.signal = make(n, T0 + double(n) * 2.6, rng);
                batch << e;
            }
            db.write(batch, T0);
        }
    }
    return db;
}

void searchFirstPage(benchmark::State &state)
{
    HistoryDb &db = million();
    // The last: a size alone that few rows reach, so the walk down the time
    // index is long before 50 are found.
    static const char *texts[] = {"", "$TK1234", "@trader777", "spike 1.5m", "whale $1.9m", "stocks @trader42",
                                  "$TK77 whale", "1.999m"};
    const char *text = texts[state.range(0)];
    HistoryQuery q = HistoryQuery::parse(QLatin1String(text));
    // The muted lists apply to every search the panel makes.
    for (int i = 0; i < 20; ++i)
        q.mutedSymbols << QStringLiteral("TK%1").arg(i * 97);
    qsizetype found = 0;
    for (auto _ : state) {
        const HistoryPage page = db.search(q, std::nullopt, 50);
        found = page.entries.size();
        benchmark::DoNotOptimize(found);
    }
    state.SetLabel(text[0] ? text : "(everything)");
    state.counters["rows"] = double(found);
}
BENCHMARK(searchFirstPage)->DenseRange(0, 7)->Unit(benchmark::kMillisecond);

// The next page: after the cursor of a page far down.
void searchDeepPage(benchmark::State &state)
{
    HistoryDb &db = million();
    HistoryQuery q;
    const HistoryCursor after{T0 + 500'000 * 2.6, 500'000};
    for (auto _ : state)
        benchmark::DoNotOptimize(db.search(q, after, 50));
}
BENCHMARK(searchDeepPage)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
