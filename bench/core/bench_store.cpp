// The engine end to end: "fills" frames of the local tape service's market,
// decoded, run through the rules and ingested by the store (which rebuilds
// after each changing batch), and the cost of rebuild() by held signals.

#include "Feed/FeedStore.h"
#include "Wire/TarnwickModels.h"
#include "Market.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>

#include <benchmark/benchmark.h>

namespace {
constexpr double start = 1'700'000'000;
double fakeNow = start;

void ensureApp()
{
    static int argc = 1;
    static char name[] = "bench_store";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}

std::unique_ptr<FeedStore> makeStore()
{
    ensureApp();
    // Never started: the client only serves as the (empty) enrichment cache.
    auto *client =
        new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"), QStringLiteral("ws://127.0.0.1:9/ws"),
                           TarnwickTiming{}, [] { return fakeNow; });
    auto store = std::make_unique<FeedStore>(client, [] { return fakeNow; });
    Preferences p = Preferences::defaults();
    p.minTradeUsd = 0; // publish everything, the most work for rebuild
    store->setPreferences(p);
    return store;
}

struct Frame {
    double at;
    QByteArray bytes;
};

// `count` frames of `perFrame` fills, one every `gap` seconds, as the
// service would send them.
std::vector<Frame> frames(int count, int perFrame, double gap, quint64 seed)
{
    tarnwick::Market market(seed);
    std::vector<Frame> out;
    out.reserve(size_t(count));
    for (int i = 0; i < count; ++i) {
        const double at = start + i * gap;
        QJsonArray data;
        for (int k = 0; k < perFrame; ++k)
            data.append(market.nextFill(at - gap + gap * (k + 1) / perFrame));
        const QJsonObject frame{{QStringLiteral("type"), QStringLiteral("fills")},
                                {QStringLiteral("data"), data}};
        out.push_back({at, QJsonDocument(frame).toJson(QJsonDocument::Compact)});
    }
    return out;
}

// Arg 0: seconds between 20-fill frames. 1 s is a firehose (20 fills/s, up
// to 72,000 held signals); 40 s is the service's usual 30 fills a minute.
void BM_FramesThroughStore(benchmark::State &state)
{
    const double gap = double(state.range(0));
    const std::vector<Frame> tape = frames(3600, 20, gap, 7);
    std::unique_ptr<FeedStore> store = makeStore();
    size_t next = 0;
    qint64 fills = 0, bytes = 0;
    int maxHeld = 0;
    for (auto _ : state) {
        if (next == tape.size()) { // an hour of tape played: begin again with an empty store
            state.PauseTiming();
            store = makeStore();
            next = 0;
            state.ResumeTiming();
        }
        const Frame &f = tape[next++];
        fakeNow = f.at;
        const std::optional<TwSocketFrame> frame = TwDecode::socketFrame(f.bytes);
        store->ingest(*frame->data);
        fills += frame->data->size();
        bytes += f.bytes.size();
        maxHeld = std::max(maxHeld, store->heldCount());
    }
    state.counters["fills/s"] = benchmark::Counter(double(fills), benchmark::Counter::kIsRate);
    state.counters["max_held"] = maxHeld;
    state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_FramesThroughStore)->Arg(1)->Arg(40)->Unit(benchmark::kMicrosecond);

// A flood: frames of 2,000 fills, each of a wallet and a token never seen
// before, two a second, into a store already at its bounds. One iteration is
// one frame decoded and ingested (the rebuild included): how late the next
// frame of the flood is handled at worst.
void BM_FloodFrame(benchmark::State &state)
{
    const int perFrame = int(state.range(0));
    tarnwick::Market market(11);
    std::unique_ptr<FeedStore> store = makeStore();
    fakeNow = start;
    qint64 bytes = 0, frameBytes = 0;
    for (auto _ : state) {
        state.PauseTiming(); // every frame new: ids, wallets and tokens never seen
        fakeNow += 0.5;
        QJsonArray data;
        for (int k = 0; k < perFrame; ++k)
            data.append(market.floodFill(fakeNow));
        const QByteArray bytesOfFrame =
            QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("fills")},
                                      {QStringLiteral("data"), data}})
                .toJson(QJsonDocument::Compact);
        state.ResumeTiming();
        const std::optional<TwSocketFrame> frame = TwDecode::socketFrame(bytesOfFrame);
        store->ingest(*frame->data);
        bytes += bytesOfFrame.size();
        frameBytes = bytesOfFrame.size();
    }
    state.counters["held"] = store->heldCount();
    state.counters["frame_kb"] = double(frameBytes) / 1024;
    state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_FloodFrame)->Arg(2000)->Unit(benchmark::kMillisecond);

// The same, split: decoding alone, and the store alone on frames decoded beforehand.
void BM_DecodeFrame(benchmark::State &state)
{
    const std::vector<Frame> tape = frames(200, 20, 1, 7);
    size_t next = 0;
    qint64 fills = 0;
    for (auto _ : state) {
        const std::optional<TwSocketFrame> frame = TwDecode::socketFrame(tape[next++ % tape.size()].bytes);
        fills += frame->data->size();
        benchmark::DoNotOptimize(frame);
    }
    state.counters["fills/s"] = benchmark::Counter(double(fills), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DecodeFrame)->Unit(benchmark::kMicrosecond);

void BM_IngestDecoded(benchmark::State &state)
{
    const double gap = double(state.range(0));
    std::vector<std::pair<double, QList<TwFill>>> tape;
    for (const Frame &f : frames(3600, 20, gap, 7))
        tape.emplace_back(f.at, *TwDecode::socketFrame(f.bytes)->data);
    std::unique_ptr<FeedStore> store = makeStore();
    size_t next = 0;
    qint64 fills = 0;
    for (auto _ : state) {
        if (next == tape.size()) {
            state.PauseTiming();
            store = makeStore();
            next = 0;
            state.ResumeTiming();
        }
        fakeNow = tape[next].first;
        store->ingest(tape[next].second);
        fills += tape[next++].second.size();
    }
    state.counters["fills/s"] = benchmark::Counter(double(fills), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_IngestDecoded)->Arg(1)->Arg(40)->Unit(benchmark::kMicrosecond);

// For scale: the telemetry snapshot that every rebuild takes, by ticks in
// the 15-minute window (18,000 at 20 fills a second).
void BM_TelemetrySnapshot(benchmark::State &state)
{
    TelemetryWindow window;
    const int n = int(state.range(0));
    for (int i = 0; i < n; ++i)
        window.append(start - 900 + 900.0 * i / n, 1000 + i % 977, i % 3 != 0);
    for (auto _ : state)
        benchmark::DoNotOptimize(window.snapshot(start, 100, 100));
}
BENCHMARK(BM_TelemetrySnapshot)->Arg(1250)->Arg(18000)->Unit(benchmark::kMicrosecond);

// rebuild() with a given number of held signals, all distinct (nothing
// merges) and all shown, with nothing else changing between calls.
void BM_Rebuild(benchmark::State &state)
{
    const int target = int(state.range(0));
    std::unique_ptr<FeedStore> store = makeStore();
    tarnwick::Market market(11);
    QList<TwFill> fills;
    const double span = 3000; // every signal is still fresh at the end
    for (int i = 0; fills.size() < target; ++i) {
        std::optional<TwFill> f = TwDecode::fill(market.nextFill(start + span * i / target));
        if (!f)
            continue;
        f->handle += QString::number(f->id);
        f->isStock = false;
        f->flags.clear();
        fills << *f;
    }
    fakeNow = start + span;
    store->ingest(fills);
    for (auto _ : state)
        store->rebuild();
    state.counters["held"] = store->heldCount();
    state.counters["shown"] = double(store->signalList().size());
}
BENCHMARK(BM_Rebuild)->Arg(120)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
} // namespace

BENCHMARK_MAIN();
