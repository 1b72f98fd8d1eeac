// The worst the link lets through in one go, all on the main thread: a socket
// message at its size limit, a REST answer at its limit, and a frame at the
// per-frame cap of fills taken into the store. Each must stay within a frame
// or two of the views (tens of milliseconds).

#include "Feed/FeedStore.h"
#include "Wire/TarnwickModels.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

namespace {
QByteArray fill(qint64 id)
{
    return "{\"id\":" + QByteArray::number(id) +
           ",\"ts\":1700000000.125,\"side\":\"buy\",\"usd\":18342.75,\"price\":0.001734,\"handle\":"
           "\"kestrel_" +
           QByteArray::number(id % 40) +
           "\",\"followers\":15400,\"wallet\":\"7HqK9xWmP4rTz2vKc8LbNd5FhXoQeR3u1yZaBcDeFgH\",\"token\":"
           "\"9xQeWvG8"
           "16bUx9EPjHmaT23yvVM2ZWbrrpZb9Pus" +
           QByteArray::number(id % 60) +
           "\",\"symbol\":\"MOODENG\",\"name\":\"Moo "
           "Deng\",\"is_stock\":false,\"new_position\":1,\"flags\":[\"pile-"
           "in 3\",\"pool 3h "
           "old\"],\"mark\":0.001741,\"liquidity\":182340.5,\"mcap\":4120000,\"pair_url\":\"https:"
           "//charts.example/pool/9xQeWvG816bUx9EPjHmaT23y\"}";
}

// As many fills as fit in `bytes`.
QByteArray list(qint64 bytes, qint64 *count)
{
    QByteArray out = "[";
    qint64 id = 1000;
    while (out.size() + fill(id).size() + 2 < bytes) {
        if (out.size() > 1)
            out += ',';
        out += fill(id++);
    }
    *count = id - 1000;
    return out + ']';
}

void BM_FrameAtTheLimit(benchmark::State &state)
{
    const TarnwickLimits limits;
    qint64 n = 0;
    const QByteArray frame = R"({"type":"fills","data":)" + list(limits.maxMessageBytes, &n) + '}';
    for (auto _ : state)
        benchmark::DoNotOptimize(TwDecode::socketFrame(frame));
    state.counters["bytes"] = double(frame.size());
    state.counters["fills"] = double(n);
}
BENCHMARK(BM_FrameAtTheLimit)->Unit(benchmark::kMillisecond);

void BM_BodyAtTheLimit(benchmark::State &state)
{
    const TarnwickLimits limits;
    qint64 n = 0;
    const QByteArray body = list(limits.maxBodyBytes, &n);
    for (auto _ : state)
        benchmark::DoNotOptimize(TwDecode::fills(body));
    state.counters["bytes"] = double(body.size());
    state.counters["fills"] = double(n);
}
BENCHMARK(BM_BodyAtTheLimit)->Unit(benchmark::kMillisecond);

// What the store does with a frame cut to the cap: every fill new.
void BM_IngestCappedFrame(benchmark::State &state)
{
    const TarnwickLimits limits;
    QByteArray body = "[";
    for (int i = 0; i < limits.maxFillsPerFrame; ++i)
        body += (i ? "," : "") + fill(1000 + i);
    const auto fills = *TwDecode::fills(body + ']');
    const double now = 1700000100;
    qint64 base = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto *client = new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"),
                                          QStringLiteral("ws://127.0.0.1:9/ws"), {}, [now] { return now; });
        FeedStore store(
            client, [now] { return now; }, 60000);
        QList<TwFill> batch = fills;
        for (TwFill &f : batch)
            f.id += base;
        base += batch.size();
        state.ResumeTiming();
        store.ingest(batch);
    }
    state.counters["fills"] = double(fills.size());
}
BENCHMARK(BM_IngestCappedFrame)->Unit(benchmark::kMillisecond);
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
