// An hour of firehose in accelerated time: 20 fills a second from the local
// tape service's market, fed in one-second "fills" frames while an injected
// clock advances, with the store's 15-second prune on simulated time. What
// must hold: the inbox and the telemetry window stay bounded.

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

void BM_FirehoseHour(benchmark::State &state)
{
    static int argc = 1;
    static char name[] = "bench_firehose";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);

    const int perSecond = int(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        fakeNow = start;
        tarnwick::Market market(3);
        auto *client = new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"),
                                          QStringLiteral("ws://127.0.0.1:9/ws"), TarnwickTiming{},
                                          [] { return fakeNow; });
        FeedStore store(client, [] { return fakeNow; });
        store.setPreferences(Preferences::defaults());
        state.ResumeTiming();

        int maxHeld = 0, maxTicks = 0, maxShown = 0;
        qint64 fills = 0;
        for (int second = 1; second <= 3600; ++second) {
            state.PauseTiming(); // the market's own work is not the store's
            fakeNow = start + second;
            QJsonArray data;
            for (int k = 0; k < perSecond; ++k)
                data.append(market.nextFill(fakeNow - 1 + double(k + 1) / perSecond));
            const QByteArray bytes =
                QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("fills")},
                                          {QStringLiteral("data"), data}})
                    .toJson(QJsonDocument::Compact);
            state.ResumeTiming();
            const std::optional<TwSocketFrame> frame = TwDecode::socketFrame(bytes);
            store.ingest(*frame->data);
            fills += frame->data->size();
            if (second % 15 == 0)
                store.rebuild(); // the prune timer
            maxHeld = std::max(maxHeld, store.heldCount());
            maxTicks = std::max(maxTicks, store.telemetryTickCount());
            maxShown = std::max(maxShown, int(store.signalList().size()));
        }
        state.counters["fills"] = double(fills);
        state.counters["max_held"] = maxHeld;
        state.counters["max_ticks"] = maxTicks;
        state.counters["max_shown"] = maxShown;
        state.counters["end_held"] = store.heldCount();
        state.counters["end_ticks"] = store.telemetryTickCount();
    }
}
BENCHMARK(BM_FirehoseHour)->Arg(20)->Iterations(1)->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
