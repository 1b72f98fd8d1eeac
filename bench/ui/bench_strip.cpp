// One frame of the ticker strip at 2×, painted the way the strip paints it:
// resting on a row, mid-flip, mid-ping, and during a takeover (where the lane
// is blurred behind the focal badge, once settled and while the blur still
// grows). The strip repaints at 30 Hz while
// something moves, so a frame must stay far below the 33 ms between them.

#include "Menu/StatusStreamView.h"

#include <QApplication>
#include <QImage>
#include <QPainter>

#include <benchmark/benchmark.h>

namespace {
StreamSegment segment(SignalKind kind, const QString &ticker, const QString &body, const QString &figure)
{
    StreamSegment s;
    s.kind = kind;
    s.line.ticker = ticker;
    s.line.body = body;
    s.line.figure = figure;
    s.line.tag = QStringLiteral("▲");
    return s;
}

QList<RailTick> rail()
{
    QList<RailTick> ticks;
    for (int i = 0; i < 24; ++i)
        ticks.append(RailTick{0.2 + 0.03 * i, i % 3 == 0});
    return ticks;
}

enum class Moment { resting, midFlip, midPing, takeover, takeoverFading };

void paintFrames(benchmark::State &state, Moment moment)
{
    StatusStreamView view;
    view.resize(196, 24);
    view.setLinkState(LinkState::live);
    view.setRail(rail());
    view.update({segment(SignalKind::whale, QStringLiteral("$BONK"), QStringLiteral("@kestrelcap bought"),
                         QStringLiteral("$48.2K")),
                 segment(SignalKind::stocks, QStringLiteral("NVDAx"), QStringLiteral("3 wallets bought"),
                         QStringLiteral("$1.20M"))},
                false);
    double t = view.now() + 1.5;
    switch (moment) {
    case Moment::resting: break;
    case Moment::midFlip:
        view.flip();
        t = view.now() + 0.14;
        break;
    case Moment::midPing:
        view.ping();
        t = view.now() + 0.35;
        break;
    case Moment::takeover:
    case Moment::takeoverFading:
        view.snap(Focal{segment(SignalKind::whale, QStringLiteral("$WIF"), QStringLiteral("@drift bought"),
                                QStringLiteral("$2.40M")),
                        2.4e6});
        t = view.now() + 0.2;
        break;
    }

    const qreal scale = 2.0;
    QImage frame(QSize(196, 24) * scale, QImage::Format_ARGB32_Premultiplied);
    frame.setDevicePixelRatio(scale);
    // While the lane fades, every frame has a new blur radius: the worst case.
    const double start = t - 0.2;
    int n = 0;
    for (auto _ : state) {
        const double at = moment == Moment::takeoverFading ? start + 0.01 + 0.24 * ((n++ % 24) / 24.0) : t;
        frame.fill(Qt::transparent);
        QPainter p(&frame);
        view.paintAt(p, QSizeF(196, 24), at);
        p.end();
        benchmark::DoNotOptimize(frame.constBits());
    }
    state.counters["frames/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_StripFrameResting(benchmark::State &state)
{
    paintFrames(state, Moment::resting);
}
void BM_StripFrameMidFlip(benchmark::State &state)
{
    paintFrames(state, Moment::midFlip);
}
void BM_StripFrameMidPing(benchmark::State &state)
{
    paintFrames(state, Moment::midPing);
}
void BM_StripFrameTakeover(benchmark::State &state)
{
    paintFrames(state, Moment::takeover);
}
void BM_StripFrameTakeoverFading(benchmark::State &state)
{
    paintFrames(state, Moment::takeoverFading);
}
} // namespace

BENCHMARK(BM_StripFrameResting)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StripFrameMidFlip)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StripFrameMidPing)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StripFrameTakeover)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StripFrameTakeoverFading)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
