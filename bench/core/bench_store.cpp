// The engine end to end: "fills" frames decoded, run through the rules and
// ingested by the store (which rebuilds after each changing batch); the cost
// of rebuild() by held signals; and an hour of firehose in accelerated time.

#include "Feed/FeedStore.h"
#include "Feed/TarnwickModels.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <random>

namespace {
double fakeNow = 1'700'000'000;

QCoreApplication &app()
{
    static int argc = 1;
    static char name[] = "bench_store";
    static char *argv[] = {name, nullptr};
    static QCoreApplication instance(argc, argv);
    return instance;
}

std::unique_ptr<FeedStore> makeStore()
{
    app();
    auto *client = new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"), QStringLiteral("ws://127.0.0.1:9/ws"),
                                      TarnwickTiming{}, [] { return fakeNow; });
    auto store = std::make_unique<FeedStore>(client, [] { return fakeNow; });
    Preferences p = Preferences::defaults();
    p.minTradeUsd = 0;
    store->setPreferences(p);
    return store;
}

// A fill like the service's: about 400 bytes of JSON.
QByteArray fillJson(qint64 id, double ts, std::mt19937_64 &rng)
{
    static const char *handles[] = {"kestrel", "moth_capital", "ruin", "saltmarsh", "dune", "0xhalcyon", "vela", "grebe"};
    static const char *tokens[] = {"BONK", "WIF", "POPCAT", "MEW", "GIGA", "FWOG", "PNUT", "MOODENG", "NVDAx", "TSLAx"};
    const int h = int(rng() % 8), t = int(rng() % 10);
    const bool stock = t >= 8;
    const double usd = std::exp(std::lognormal_distribution<double>(7.5, 1.8)(rng));
    QByteArray json = "{\"id\":" + QByteArray::number(id) + ",\"ts\":" + QByteArray::number(ts, 'f', 3) +
                      ",\"side\":\"" + (rng() % 3 ? "buy" : "sell") + "\",\"usd\":" + QByteArray::number(usd, 'f', 2) +
                      ",\"price\":0.0001734,\"handle\":\"" + handles[h] + "\",\"followers\":" +
                      QByteArray::number(qint64(rng() % 90000)) + ",\"wallet\":\"7Hq" + handles[h] +
                      "9xWmP4rTz2vKc8LbNd5\",\"token\":\"Mint" + tokens[t] +
                      "pump9FhXoQeR3u1yZ\",\"symbol\":\"" + tokens[t] + "\",\"name\":\"" + tokens[t] +
                      " Token\",\"is_stock\":" + (stock ? "1" : "false") + ",\"new_position\":" +
                      (rng() % 2 ? "true" : "0") + ",\"flags\":[\"pool 3h old\"" + (rng() % 7 == 0 ? ",\"pile-in 3\"" : "") +
                      "],\"mark\":0.0001741,\"liquidity\":182340.5,\"mcap\":4120000,\"pair_url\":"
                      "\"https://charts.example/pool/" + tokens[t] + "\"}";
    return json;
}

QByteArray framesOf(int count, qint64 &nextId, std::mt19937_64 &rng)
{
    QByteArray frame = "{\"type\":\"fills\",\"data\":[";
    for (int i = 0; i < count; ++i) {
        if (i)
            frame += ',';
        frame += fillJson(nextId++, fakeNow - 5, rng);
    }
    return frame + "]}";
}

void BM_EndToEnd(benchmark::State &state)
{
    auto store = makeStore();
    std::mt19937_64 rng(7);
    qint64 nextId = 1;
    const int batch = int(state.range(0));
    std::vector<QByteArray> frames;
    for (int i = 0; i < 200; ++i)
        frames.push_back(framesOf(batch, nextId, rng));
    size_t i = 0;
    qint64 fills = 0;
    for (auto _ : state) {
        const auto frame = TwDecode::socketFrame(frames[i++ % frames.size()]);
        store->ingest(*frame->data);
        fills += frame->data->size();
    }
    state.counters["fills/s"] = benchmark::Counter(double(fills), benchmark::Counter::kIsRate);
    state.counters["held"] = store->heldCount();
}
BENCHMARK(BM_EndToEnd)->Arg(1)->Arg(20)->Arg(50);

void BM_Rebuild(benchmark::State &state)
{
    auto store = makeStore();
    std::mt19937_64 rng(11);
    qint64 nextId = 1;
    // Distinct actors so nothing merges: the inbox holds exactly the target.
    QList<TwFill> fills;
    while (fills.size() < state.range(0)) {
        auto frame = TwDecode::socketFrame(framesOf(50, nextId, rng));
        for (TwFill f : *frame->data) {
            f.handle += QString::number(f.id);
            f.isStock = false;
            f.flags.clear();
            fills << f;
        }
    }
    fills.resize(state.range(0));
    store->ingest(fills);
    for (auto _ : state)
        store->rebuild();
    state.counters["held"] = store->heldCount();
}
BENCHMARK(BM_Rebuild)->Arg(120)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

// One hour at 20 fills per second, in one-second batches, rebuilding every
// simulated 15 s: the inbox and the telemetry window must stay bounded.
void BM_FirehoseHour(benchmark::State &state)
{
    for (auto _ : state) {
        const double start = fakeNow;
        auto store = makeStore();
        std::mt19937_64 rng(3);
        qint64 nextId = 1;
        int maxHeld = 0, maxTicks = 0;
        for (int second = 0; second < 3600; ++second) {
            fakeNow = start + second;
            QByteArray frame = "{\"type\":\"fills\",\"data\":[";
            for (int i = 0; i < 20; ++i) {
                if (i)
                    frame += ',';
                frame += fillJson(nextId++, fakeNow, rng);
            }
            frame += "]}";
            store->ingest(*TwDecode::socketFrame(frame)->data);
            if (second % 15 == 0)
                store->rebuild();
            maxHeld = std::max(maxHeld, store->heldCount());
            maxTicks = std::max(maxTicks, store->telemetryTickCount());
        }
        fakeNow = start;
        state.counters["max_held"] = maxHeld;
        state.counters["max_ticks"] = maxTicks;
        state.counters["fills"] = double(nextId - 1);
    }
}
BENCHMARK(BM_FirehoseHour)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
