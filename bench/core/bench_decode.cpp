// Decoding "fills" frames and running the fill rule on every fill: the work
// done for each socket frame before the store sees it.

#include "Wire/SignalRules.h"
#include "Wire/TarnwickModels.h"

#include <benchmark/benchmark.h>

namespace {
QByteArray fill(qint64 id)
{
    // About 400 bytes, every key present, as the service sends them.
    return "{\"id\":" + QByteArray::number(id) +
           ",\"ts\":1700000000.125,\"side\":\"buy\",\"usd\":18342.75,\"price\":0.001734,\"handle\":\"kestrel_"
           "capital\",\"followers\":15400,\"wallet\":\"7HqK9xWmP4rTz2vKc8LbNd5FhXoQeR3u1yZaBcDeFgH\","
           "\"token\":"
           "\"9xQeWvG816bUx9EPjHmaT23yvVM2ZWbrrpZb9PusVFin\",\"symbol\":\"MOODENG\",\"name\":\"Moo "
           "Deng\",\"is_stock\":"
           "false,\"new_position\":1,\"flags\":[\"pile-in 3\",\"pool 3h "
           "old\"],\"mark\":0.001741,\"liquidity\":182340."
           "5,\"mcap\":4120000,\"pair_url\":\"https://charts.example/pool/9xQeWvG816bUx9EPjHmaT23y\"}";
}

void BM_DecodeAndRule(benchmark::State &state)
{
    const int n = int(state.range(0));
    QByteArray frame = "{\"type\":\"fills\",\"data\":[";
    for (int i = 0; i < n; ++i)
        frame += (i ? "," : "") + fill(1000 + i);
    frame += "]}";
    qint64 fills = 0, kept = 0;
    for (auto _ : state) {
        const auto decoded = TwDecode::socketFrame(frame);
        for (const TwFill &f : *decoded->data)
            kept += SignalRules::signal(f, nullptr, nullptr).has_value();
        fills += n;
    }
    benchmark::DoNotOptimize(kept);
    state.counters["fills/s"] = benchmark::Counter(double(fills), benchmark::Counter::kIsRate);
    state.counters["bytes/fill"] = double(fill(1000).size());
}
BENCHMARK(BM_DecodeAndRule)->Arg(1)->Arg(10)->Arg(50);
} // namespace

BENCHMARK_MAIN();
