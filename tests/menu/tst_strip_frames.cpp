// The ticker view on its own: flips, pings, takeovers and the frames they
// draw. Every wake-up of an idle tray app is paid for, so a flip and a ping
// must draw few frames, each one different from the last, and the last one
// the resting picture; with less motion asked for, nothing slides at all.
// And the blur behind a takeover: soft, but nothing gained or lost.

#include "Look/Easing.h"
#include "Look/Theme.h"
#include "Menu/Blur.h"
#include "Menu/Paint.h"
#include "Menu/StatusStreamView.h"
#include "Table.h"

#include <QPainter>
#include <QTest>

#include <cmath>

namespace {
StreamSegment segment(const char *ticker)
{
    return StreamSegment{SignalKind::whale, Headline{QLatin1String(ticker), QStringLiteral("@kai aped"),
                                                     QStringLiteral("$48.2K"), QStringLiteral("▲")}};
}
Focal focalOf(const char *ticker, double usd)
{
    return Focal{segment(ticker), usd};
}

QImage canvas(QSize pixels, double scale, Qt::GlobalColor fill)
{
    QImage img(pixels, QImage::Format_ARGB32_Premultiplied);
    img.setDevicePixelRatio(scale);
    img.fill(fill);
    return img;
}

// The whole strip, 170 x 24 points, as it looks at view time t.
QImage frame(const StatusStreamView &view, double t, double scale = 2)
{
    QImage img = canvas((QSizeF(170, 24) * scale).toSize(), scale, Qt::black);
    QPainter p(&img);
    view.paintAt(p, QSizeF(170, 24), t);
    return img;
}

// When a flip started at or after `before` drew its first step, read back
// from the view rather than from a clock read after flip() returned.
double flipWakeUp(const StatusStreamView &view, double before)
{
    const std::optional<double> first = view.nextFrameAfter(before - 0.01);
    return first ? *first : -1;
}

// Every frame the view asks for from t on, until it asks for none.
QList<double> walk(const StatusStreamView &view, double t)
{
    QList<double> frames;
    while (const std::optional<double> next = view.nextFrameAfter(t)) {
        if (*next <= t || frames.size() > 200)
            return frames << -1; // not moving forward: the pump would spin
        frames << *next;
        t = *next;
    }
    return frames;
}

// The link dot is blitted from a small cached image: it must land where the
// circle it stands for would be drawn, at any scale and sub-pixel offset.
struct Dot { const char *name; double scale; QPointF offset; };
const Dot dots[] = {
    {.name = "1x", .scale = 1, .offset = {}},
    {.name = "2x", .scale = 2, .offset = {}},
    {.name = "2x, odd bar half a point down", .scale = 2, .offset = {0, 0.5}},
    {.name = "1x, quarter pixels", .scale = 1, .offset = {0.25, 0.75}},
};

struct BlurRow { const char *name; double sigma, scale; };
const BlurRow blurs[] = {
    {.name = "too small to blur", .sigma = 0.02, .scale = 1},
    {.name = "the glow", .sigma = 2, .scale = 2},
    {.name = "the lane at its softest", .sigma = 2.2, .scale = 1},
    {.name = "wide", .sigma = 6, .scale = 1},
};
} // namespace

class StripFramesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // A flip asks for its frames (the flip itself drew the first step) and then stops.
    void flipping()
    {
        StatusStreamView view;
        view.setReduceMotion(false);
        view.update({segment("$A")}, false);
        QVERIFY(!view.hasFlipTimer());             // one row has nothing to flip to
        QVERIFY(walk(view, view.now()).isEmpty()); // nothing moves: no frame at all
        view.update({segment("$A"), segment("$B"), segment("$C")}, true);
        QVERIFY(!view.hasFlipTimer()); // paused
        view.update({segment("$A"), segment("$B"), segment("$C")}, false);
        QVERIFY(view.hasFlipTimer());
        const double before = view.now();
        view.flip();
        const double now = flipWakeUp(view, before);
        const QList<double> frames = walk(view, now);
        const QList<double> times = StatusStreamView::flipFrameTimes(view.devicePixelRatioF());
        QCOMPARE(frames.size(), times.size() - 1);
        for (qsizetype i = 0; i < frames.size(); ++i)
            QVERIFY(std::abs(frames[i] - now - (times[i + 1] - times.first())) < 0.001);
        view.flip(); // skipped while the first one runs
        QCOMPARE(view.index(), 1);
        QCOMPARE(view.railPhase(), StatusStreamView::railStep);
        // A new list keeps the row on show where it went.
        view.update({segment("$Z"), segment("$A"), segment("$B")}, false);
        QCOMPARE(view.rows().value(view.index()), segment("$B"));
        QVERIFY(QTest::qWaitFor([&] { return !view.isFlipping(); }, 30000));
        view.flip();
        QCOMPARE(view.index(), 0); // wraps around
        QCOMPARE(view.railPhase(), 2 * StatusStreamView::railStep);
    }

    void newListsDoNotRestartTheFlipRhythm()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        // A busy tape publishes faster than the 3 s hold; the ticker must still move.
        for (int i = 0; i < 4; ++i) {
            QTest::qWait(900);
            view.update({segment(i % 2 ? "$A" : "$C"), segment("$B")}, false);
        }
        QVERIFY(view.railPhase() >= StatusStreamView::railStep);
    }

    // Five frames, the first drawn by the flip's own wake-up, in steps no
    // longer than 30 Hz frames take in the curve's fast middle; drawn, each
    // differs from the last and the last one is the resting picture.
    void flipFrames_data()
    {
        QTest::addColumn<double>("scale");
        for (double scale : {1.0, 1.25, 2.0})
            QTest::addRow("%gx", scale) << scale;
    }
    void flipFrames()
    {
        QFETCH(double, scale);
        const QList<double> times = StatusStreamView::flipFrameTimes(scale);
        QCOMPARE(times.size(), 5);
        const auto offset = [&](double at) {
            return StatusStreamView::rowTravel * scale *
                   Easing::flip.valueAt(at / StatusStreamView::flipDuration);
        };
        double previous = 0, before = 0;
        for (double at : times) {
            QVERIFY(at > before && at < StatusStreamView::flipDuration);
            QVERIFY2(offset(at) - previous <= 3.5 * scale + 1e-6, qPrintable(QString::number(at)));
            previous = offset(at);
            before = at;
        }
        // The last one puts the row within half a device pixel of its place.
        QVERIFY(StatusStreamView::rowTravel * scale - offset(times.last()) <= 0.5 + 1e-6);

        StatusStreamView view;
        view.setReduceMotion(false);
        view.update({segment("$A"), segment("$B")}, false);
        QImage shown = frame(view, view.now(), scale); // at rest before the flip
        const double flipCalled = view.now();
        view.flip();
        // The flip's clock started one step back (a step at the view's own
        // scale): what is drawn at its wake-up is already the first step.
        const double start =
            flipWakeUp(view, flipCalled) - StatusStreamView::flipFrameTimes(view.devicePixelRatioF()).first();
        for (double at : times) {
            const QImage current = frame(view, start + at, scale);
            QVERIFY2(current != shown, qPrintable(QString::number(at)));
            shown = current;
        }
        QCOMPARE(shown, frame(view, start + 5, scale));
        QVERIFY(frame(view, start + times.last() - 0.005, scale) != shown); // the outgoing row still shows
    }

    // A ping's ring asks for a few frames of one shared pump, which stops by
    // itself; paused or off screen a ping does nothing. During a flip the ring
    // rides on its frames: the flip's four and the ring's tail, never a frame
    // closer than 2 ms to another.
    void pings()
    {
        StatusStreamView view;
        view.setReduceMotion(false);
        view.show(); // pings only play in a window on screen
        view.update({segment("$A")}, true);
        view.ping();
        QVERIFY(!view.hasPumpTimer());
        view.update({segment("$A")}, false);
        // The ring's clock starts somewhere between these two readings; a
        // loaded machine may put any time at all between them.
        const double start = view.now();
        view.ping();
        view.ping();
        const double pinged = view.now();
        QVERIFY(view.hasPumpTimer());
        const QList<double> frames = walk(view, start);
        // A frame a tenth of a second at most; any pause before the pings adds to the walk.
        QVERIFY(!frames.isEmpty() && frames.size() <= 5 + 1 + int((pinged - start) / 0.1));
        QVERIFY(frames.last() >= start + StatusStreamView::pingVisibleFor - 0.001);
        QVERIFY(frames.last() <= pinged + StatusStreamView::pingVisibleFor + 0.001);
        // Past its last frame the ring is gone: the corner looks as it did before the ping.
        QCOMPARE(frame(view, frames.last() + 0.001), frame(view, start - 1));
        QVERIFY(frame(view, start + 0.1) != frame(view, start - 1));
        QVERIFY(QTest::qWaitFor([&] { return !view.hasPumpTimer(); }, 30000));
        view.hide();
        view.ping();
        QVERIFY(!view.hasPumpTimer());

        view.show();
        view.update({segment("$A"), segment("$B")}, false);
        view.flip();
        view.ping();
        const QList<double> both = walk(view, view.now());
        QVERIFY(both.size() <= 4 + 5);
        for (qsizetype i = 1; i < both.size(); ++i)
            QVERIFY(both[i] - both[i - 1] >= 0.002);
    }

    // Drawn onto a wider canvas, nothing of the ping's ring may fall right of
    // or above/below the view: the window would cut it into a "C".
    void pingRingStaysInside()
    {
        StatusStreamView view;
        view.show(); // pings only play in a window on screen
        view.ping();
        const double start = view.now();
        QVERIFY(frame(view, start + 0.1) != frame(view, start - 1)); // the ring is drawn
        for (double age : {0.05, 0.15, 0.3, 0.45, 0.6}) {
            QImage img = canvas(QSize(120, 64), 2, Qt::transparent);
            QPainter p(&img);
            p.translate(10, 4);
            view.paintAt(p, QSizeF(40, 24), start + age);
            p.end();
            for (int y = 0; y < img.height(); ++y)
                for (int x = 0; x < img.width(); ++x)
                    if (!(x >= 20 && x < 100 && y >= 8 && y < 56) && qAlpha(img.pixel(x, y)))
                        QFAIL(qPrintable(
                            QStringLiteral("ring outside at age %1: %2,%3").arg(age).arg(x).arg(y)));
        }
    }

    void linkDotLandsWhereTheCircleWould_data() { rows(dots); }
    void linkDotLandsWhereTheCircleWould()
    {
        const auto [name, scale, offset] = row(dots);
        StatusStreamView view; // no rows, no ping: the dot is the only thing right of the lane
        QImage drawn = canvas(QSize(int(40 * scale), int(24 * scale)), scale, Qt::black), expected = drawn;
        {
            QPainter p(&drawn);
            p.translate(offset);
            view.paintAt(p, QSizeF(40, 24), view.now());
        }
        {
            QPainter p(&expected);
            p.setRenderHint(QPainter::Antialiasing);
            p.translate(offset);
            p.setPen(Qt::NoPen);
            p.setBrush(toQColor(Theme::amber)); // connecting
            p.drawEllipse(QPointF(40 - StatusStreamView::pingRingMax - 1, 12), 2.5, 2.5);
        }
        int worst = 0;
        for (int y = int(6 * scale); y < int(18 * scale); ++y)
            for (int x = int(28 * scale); x < int(38 * scale); ++x) {
                const QRgb a = drawn.pixel(x, y), b = expected.pixel(x, y);
                worst = std::max({worst, std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                                  std::abs(qBlue(a) - qBlue(b))});
            }
        QVERIFY2(worst <= 3, qPrintable(QString::number(worst)));
    }

    // The rail is drawn once and reused between frames: a new tick or a flip
    // must still show up in the next frame, and nothing else may change it.
    void reusedRailFollowsTicksAndFlips()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        const auto railBand = [&](double t) { return frame(view, t).copy(0, 40, 300, 8); };
        view.setRail({RailTick{1.0, true}, RailTick{0.1, false}});
        const double t = view.now() + 5;
        const QImage first = railBand(t);
        QCOMPARE(railBand(t), first);
        view.setRail({RailTick{0.1, true}, RailTick{1.0, false}});
        const QImage ticked = railBand(t);
        QVERIFY(ticked != first);
        view.flip();
        QVERIFY(QTest::qWaitFor([&] { return !view.isFlipping(); }, 30000));
        QVERIFY(railBand(view.now() + 5) != ticked); // the rail moved on by a step
    }

    void takeoverDimsAndBlursTheStream()
    {
        StatusStreamView view;
        view.setReduceMotion(false);
        view.snap(std::nullopt); // nothing to release
        QVERIFY(!view.blurAttached());
        view.update({segment("$A"), segment("$B")}, false);
        view.snap(focalOf("$BIG", 48200));
        QVERIFY(!view.hasFlipTimer());
        QVERIFY(view.blurAttached() && view.hasPumpTimer());
        QCOMPARE(view.laneOpacityAt(view.now() + 1), StatusStreamView::dimmedOpacity);
        QCOMPARE(view.blurRadiusAt(view.now() + 1), StatusStreamView::focalBlurRadius);
        view.update({segment("$C"), segment("$A"), segment("$B")}, false);
        QVERIFY(!view.hasFlipTimer()); // frozen on the focal trade
        QVERIFY(QTest::qWaitFor([&] { return !view.hasPumpTimer(); }, 30000));
        view.snap(focalOf("$BIG", 48200));
        QVERIFY(!view.hasPumpTimer()); // the same focal again changes nothing

        view.snap(std::nullopt);
        QVERIFY(!view.focal() && view.hasFlipTimer());
        QCOMPARE(view.laneOpacityAt(view.now() + 1), 1.0);
        QVERIFY(view.blurAttached()); // until the fade is over
        QVERIFY(QTest::qWaitFor([&] { return !view.blurAttached(); }, 30000));
        // A new takeover soon after a release keeps the blur the fade would drop.
        view.snap(focalOf("$A", 1e5));
        view.snap(std::nullopt);
        QTest::qWait(100);
        view.snap(focalOf("$B", 1e5));
        QTest::qWait(500);
        QVERIFY(view.blurAttached());
    }

    // With less motion a takeover stands at its final frame (dimmed and
    // blurred in full, no counting figure, no badge popping in) from the
    // first frame, its release is at once, and so is a flip.
    void stillWithReducedMotion_data()
    {
        QTest::addColumn<bool>("reduced");
        QTest::newRow("full motion") << false;
        QTest::newRow("reduced") << true;
    }
    void stillWithReducedMotion()
    {
        QFETCH(bool, reduced);
        StatusStreamView view;
        view.setReduceMotion(reduced);
        view.update({segment("$A"), segment("$B")}, false);
        view.snap(focalOf("$BIG", 48200));
        const double t = view.now();
        const QList<double> frames = walk(view, t);
        if (reduced) {
            QVERIFY(frames.isEmpty()); // the first frame is the final one
        } else { // the figure counts at 60 Hz, the rest at 30; the last frame is the settled picture
            QVERIFY(frames.size() > 30 && frames.size() < 60);
            QCOMPARE(frame(view, frames.last()), frame(view, t + 5));
        }
        QCOMPARE(qFuzzyCompare(view.laneOpacityAt(t), StatusStreamView::dimmedOpacity), reduced);
        QCOMPARE(qFuzzyCompare(view.blurRadiusAt(t), StatusStreamView::focalBlurRadius), reduced);
        QCOMPARE(frame(view, t + 0.02) == frame(view, t + 2), reduced);

        view.snap(std::nullopt);
        const double r = view.now();
        QCOMPARE(qFuzzyCompare(view.laneOpacityAt(r), 1.0), reduced);
        QCOMPARE(frame(view, r + 0.02) == frame(view, r + 2), reduced);

        view.flip();
        QCOMPARE(view.isFlipping(), !reduced);
        const double f = view.now();
        QCOMPARE(frame(view, f + 0.05) == frame(view, f + 1), reduced);
    }

    void blur_data() { rows(blurs); }
    void blur()
    {
        const auto [name, sigma, scale] = row(blurs);
        // One opaque 3 x 3 block in the middle of a transparent field.
        QImage dot = canvas(QSize(61, 61), scale, Qt::transparent);
        for (int y = 29; y <= 31; ++y)
            for (int x = 29; x <= 31; ++x)
                dot.setPixel(x, y, qRgba(255, 255, 255, 255));
        const QImage out = Blur::gaussian(dot, sigma);
        QCOMPARE(out.size(), dot.size());
        QCOMPARE(out.devicePixelRatio(), scale);
        if (sigma < 0.05) {
            QCOMPARE(out, dot);
            return;
        }
        // Spread, not lost: the block's alpha is all still there (to the
        // rounding of each pass), evenly in every direction, and falling off
        // with distance.
        qint64 sum = 0;
        for (int y = 0; y < out.height(); ++y)
            for (int x = 0; x < out.width(); ++x)
                sum += qAlpha(out.pixel(x, y));
        QVERIFY(std::abs(sum - 9 * 255) <= 9 * 255 / 20);
        const auto a = [&](int x, int y) { return qAlpha(out.pixel(x, y)); };
        for (int d : {1, 3, 5}) {
            QCOMPARE(a(30 - d, 30), a(30 + d, 30));
            QCOMPARE(a(30, 30 - d), a(30, 30 + d));
            // Across the axes only the rounding between the two passes differs.
            QVERIFY(std::abs(a(30, 30 + d) - a(30 + d, 30)) <= 1);
        }
        QVERIFY(a(30, 30) < 255 && a(30, 30) > a(33, 30) && a(33, 30) >= a(36, 30));
        // Premultiplied stays premultiplied: no channel above its alpha.
        for (int x = 0; x < 61; ++x)
            QVERIFY(qRed(out.pixel(x, 30)) <= a(x, 30));

        // Outside the image is transparent: a full opaque field fades at its edges only.
        const QImage soft = Blur::gaussian(canvas(QSize(41, 41), 1, Qt::white), sigma);
        QCOMPARE(qAlpha(soft.pixel(20, 20)), 255);
        QVERIFY(qAlpha(soft.pixel(0, 20)) < 200);
    }
};

QTEST_MAIN(StripFramesTest)
#include "tst_strip_frames.moc"
