// One frame of the ticker strip at 2×, painted the way the strip paints it:
// resting on a row, mid-flip, mid-ping, and during a takeover (where the lane
// is blurred behind the focal badge, once settled and while the blur still
// grows). The strip draws a frame only when something has moved (a flip's
// frames come as close as 20 ms apart), so a frame must stay far below that.
//
// `bench_strip --frames DIR` instead prints when a flip, a ping and a
// takeover ask for their frames (each one a wake-up of an idle app) and
// writes the flip's frames, one under the other, to DIR/flip-frames.png.

#include "Menu/StatusStreamView.h"

#include "Look/Easing.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPainter>

#include <cstdio>
#include <cstring>

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

// The same live two-segment tape for the timed frames and the filmstrips.
void showTape(StatusStreamView &view)
{
    view.setLinkState(LinkState::live);
    view.setRail(rail());
    view.update({segment(SignalKind::whale, QStringLiteral("$BONK"), QStringLiteral("@kestrelcap bought"),
                         QStringLiteral("$48.2K")),
                 segment(SignalKind::stocks, QStringLiteral("NVDAx"), QStringLiteral("3 wallets bought"),
                         QStringLiteral("$1.20M"))},
                false);
}

enum class Moment { resting, midFlip, midPing, takeover, takeoverFading };

void paintFrames(benchmark::State &state, Moment moment)
{
    StatusStreamView view;
    view.resize(196, 24);
    showTape(view);
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

namespace {
// Every frame the view asks for after t, until it asks for none.
QList<double> frameTimes(const StatusStreamView &view, double t)
{
    QList<double> frames;
    while (const std::optional<double> next = view.nextFrameAfter(t)) {
        if (*next <= t || frames.size() > 500)
            break;
        frames << *next;
        t = *next;
    }
    return frames;
}

void printFrames(const char *what, const QList<double> &frames, double start)
{
    std::printf("%-28s %2d frames:", what, int(frames.size()));
    for (double f : frames)
        std::printf(" %.0f", (f - start) * 1000);
    std::printf(" ms\n");
}

int frames(const QString &dir)
{
    const qreal scale = 2.0;
    StatusStreamView view;
    view.resize(170, 24);
    view.setReduceMotion(false);
    showTape(view);
    const auto shot = [&view, scale](double t) {
        QImage one(QSize(170, 24) * scale, QImage::Format_ARGB32_Premultiplied);
        one.setDevicePixelRatio(scale);
        one.fill(QColor(30, 31, 36));
        QPainter fp(&one);
        view.paintAt(fp, QSizeF(170, 24), t);
        return one;
    };
    // The film strip: the row at rest before the flip, then each frame of it.
    QList<QImage> shots{shot(view.now())};
    view.flip();
    // The flip draws its first step at once: its clock started that far back.
    const double start = view.now() - StatusStreamView::flipFrameTimes(1).first();
    const QList<double> flip = frameTimes(view, view.now());
    std::printf("%-28s %2d frames after the flip's own:", "flip (1x)", int(flip.size()));
    for (double f : flip)
        std::printf(" %.0f", (f - view.now()) * 1000);
    std::printf(" ms\n  on its curve at:");
    for (double at : StatusStreamView::flipFrameTimes(1))
        std::printf(" %.0f", at * 1000);
    std::printf(" ms\n");
    std::printf("%-28s %2d frames on its curve at:", "flip (2x)", int(StatusStreamView::flipFrameTimes(2).size()));
    for (double at : StatusStreamView::flipFrameTimes(2))
        std::printf(" %.0f", at * 1000);
    std::printf(" ms\n  row offset at 2x (device px):");
    for (double at : StatusStreamView::flipFrameTimes(2))
        std::printf(" %.1f", StatusStreamView::rowTravel * scale * Easing::flip.valueAt(at / StatusStreamView::flipDuration));
    std::printf("\n  wake-ups per flip: %d (30 Hz ticks until it lands, and the flip's own: %d)\n",
                int(flip.size()) + 1, int(std::ceil(StatusStreamView::flipDuration * 30)) + 1);

    for (double at : StatusStreamView::flipFrameTimes(scale))
        shots << shot(start + at);
    // One under the other, with a gap between them.
    QImage strip(QSize(170, 28 * int(shots.size())) * scale, QImage::Format_ARGB32_Premultiplied);
    strip.setDevicePixelRatio(scale);
    strip.fill(Qt::white);
    QPainter p(&strip);
    for (qsizetype i = 0; i < shots.size(); ++i)
        p.drawImage(QPointF(0, 28 * double(i)), shots[i]);
    p.end();
    const QString path = QDir(dir).filePath(QStringLiteral("flip-frames.png"));
    if (!strip.save(path)) {
        std::fprintf(stderr, "bench_strip: cannot write %s\n", qPrintable(path));
        return 1;
    }
    std::printf("flip frames written to %s\n", qPrintable(path));

    StatusStreamView pinged;
    pinged.setReduceMotion(false);
    pinged.show(); // a ping plays only on screen
    pinged.update({segment(SignalKind::whale, QStringLiteral("$BONK"), QStringLiteral("@kestrelcap bought"),
                           QStringLiteral("$48.2K"))},
                  false);
    pinged.ping();
    const double pingAt = pinged.now();
    printFrames("ping, after the frame", frameTimes(pinged, pingAt), pingAt);

    view.snap(Focal{segment(SignalKind::whale, QStringLiteral("$WIF"), QStringLiteral("@drift bought"),
                            QStringLiteral("$2.40M")),
                    2.4e6});
    const double snapAt = view.now();
    const QList<double> takeover = frameTimes(view, snapAt);
    std::printf("%-28s %2d frames over %.0f ms\n", "takeover, after the snap", int(takeover.size()),
                takeover.isEmpty() ? 0.0 : (takeover.last() - snapAt) * 1000);
    return 0;
}
} // namespace

int main(int argc, char **argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (argc == 3 && std::strcmp(argv[1], "--frames") == 0)
        return frames(QString::fromLocal8Bit(argv[2]));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
