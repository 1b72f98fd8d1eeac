// Which frames the strip draws and when: every wake-up of an idle tray app is
// paid for, so a flip and a ping must draw few frames, each one different
// from the last, and the last one the resting picture. And the blur behind a
// takeover: soft, but nothing gained or lost.

#include "Look/Easing.h"
#include "Menu/Blur.h"
#include "Menu/StatusStreamView.h"

#include <QPainter>
#include <QTest>

#include <cmath>

namespace {
StreamSegment segment(const char *ticker)
{
    return StreamSegment{SignalKind::whale, Headline{QLatin1String(ticker), QStringLiteral("@kai aped"),
                                                     QStringLiteral("$48.2K"), QStringLiteral("▲")}};
}

QImage frame(const StatusStreamView &view, double t, double scale)
{
    QImage img((QSizeF(170, 24) * scale).toSize(), QImage::Format_ARGB32_Premultiplied);
    img.setDevicePixelRatio(scale);
    img.fill(Qt::black);
    QPainter p(&img);
    view.paintAt(p, QSizeF(170, 24), t);
    return img;
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

qint64 alphaSum(const QImage &image)
{
    qint64 sum = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            sum += qAlpha(image.pixel(x, y));
    return sum;
}
} // namespace

class StripFramesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void flipFramesMoveTheRowInEvenSteps_data()
    {
        QTest::addColumn<double>("scale");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("1.25x") << 1.25;
        QTest::newRow("2x") << 2.0;
    }
    void flipFramesMoveTheRowInEvenSteps()
    {
        QFETCH(double, scale);
        const QList<double> times = StatusStreamView::flipFrameTimes(scale);
        // Five frames, the first drawn by the flip's own wake-up: five wake-ups every 3 s.
        QCOMPARE(times.size(), 5);
        const auto offset = [&](double at) {
            return StatusStreamView::rowTravel * scale *
                   Easing::flip.valueAt(at / StatusStreamView::flipDuration);
        };
        double previous = 0, before = 0;
        for (double at : times) {
            QVERIFY(at > before && at < StatusStreamView::flipDuration);
            // No step longer than 30 Hz frames take in the curve's fast middle.
            QVERIFY2(offset(at) - previous <= 3.5 * scale + 1e-6, qPrintable(QString::number(at)));
            previous = offset(at);
            before = at;
        }
        // The last one puts the row within half a device pixel of its place.
        QVERIFY(StatusStreamView::rowTravel * scale - offset(times.last()) <= 0.5 + 1e-6);
    }

    // Drawn, the frames differ from each other, the first is drawn by the
    // flip itself, and the last is the resting one.
    void flipFramesAreDistinctAndEndAtRest_data() { flipFramesMoveTheRowInEvenSteps_data(); }
    void flipFramesAreDistinctAndEndAtRest()
    {
        QFETCH(double, scale);
        StatusStreamView view;
        view.setReduceMotion(false);
        view.update({segment("$A"), segment("$B")}, false);
        QImage previous = frame(view, view.now(), scale); // at rest before the flip
        view.flip();
        const QList<double> times = StatusStreamView::flipFrameTimes(scale);
        // The flip's clock started one step back (a step at the view's own
        // scale): what is drawn now is already the first step.
        const double start = view.now() - StatusStreamView::flipFrameTimes(view.devicePixelRatioF()).first();
        for (double at : times) {
            const QImage current = frame(view, start + at, scale);
            QVERIFY2(current != previous, qPrintable(QString::number(at)));
            previous = current;
        }
        QCOMPARE(previous, frame(view, start + 5, scale));
        // Just before the last frame the outgoing row still shows.
        QVERIFY(frame(view, start + times.last() - 0.005, scale) != previous);
    }

    void theViewAsksForItsFramesAndThenStops()
    {
        StatusStreamView view;
        view.setReduceMotion(false);
        QVERIFY(walk(view, view.now()).isEmpty()); // nothing moves: no frame at all
        view.update({segment("$A"), segment("$B")}, false);
        view.flip();
        const double now = view.now();
        const QList<double> frames = walk(view, now);
        const QList<double> times = StatusStreamView::flipFrameTimes(view.devicePixelRatioF());
        // The flip itself drew the first step; the view asks for the rest.
        QCOMPARE(frames.size(), times.size() - 1);
        for (qsizetype i = 0; i < frames.size(); ++i)
            QVERIFY(std::abs(frames[i] - now - (times[i + 1] - times.first())) < 0.001);
    }

    void aPingsRingAsksForFewFrames()
    {
        StatusStreamView view;
        view.setReduceMotion(false);
        view.show(); // pings play only on screen
        view.update({segment("$A")}, false);
        view.ping();
        const double start = view.now();
        const QList<double> frames = walk(view, start);
        QVERIFY(!frames.isEmpty() && frames.size() <= 5);
        QVERIFY(std::abs(frames.last() - start - StatusStreamView::pingVisibleFor) < 0.001);
        // Past its last frame the ring is gone: the corner looks as it did before the ping.
        QCOMPARE(frame(view, frames.last() + 0.001, 2), frame(view, start - 1, 2));
        QVERIFY(frame(view, start + 0.1, 2) != frame(view, start - 1, 2));
    }

    void aPingDuringAFlipRidesOnItsFrames()
    {
        StatusStreamView view;
        view.setReduceMotion(false);
        view.show();
        view.update({segment("$A"), segment("$B")}, false);
        view.flip();
        view.ping();
        const QList<double> frames = walk(view, view.now());
        // The flip's four and the ring's tail after them, never a frame closer than 2 ms to another.
        QVERIFY(frames.size() <= 4 + 5);
        for (qsizetype i = 1; i < frames.size(); ++i)
            QVERIFY(frames[i] - frames[i - 1] >= 0.002);
    }

    void takeoverFramesRunUntilItSettles_data()
    {
        QTest::addColumn<bool>("reduced");
        QTest::newRow("full motion") << false;
        QTest::newRow("reduced") << true;
    }
    void takeoverFramesRunUntilItSettles()
    {
        QFETCH(bool, reduced);
        StatusStreamView view;
        view.setReduceMotion(reduced);
        view.update({segment("$A"), segment("$B")}, false);
        view.snap(Focal{segment("$BIG"), 48200});
        const double start = view.now();
        const QList<double> frames = walk(view, start);
        if (reduced) {
            QVERIFY(frames.isEmpty()); // the first frame is the final one
            return;
        }
        // The figure counts at 60 Hz, the rest at 30; the last frame is the settled picture.
        QVERIFY(frames.size() > 30 && frames.size() < 60);
        QCOMPARE(frame(view, frames.last(), 2), frame(view, start + 5, 2));
    }

    void blur_data()
    {
        QTest::addColumn<double>("sigma");
        QTest::addColumn<double>("scale");
        QTest::newRow("too small to blur") << 0.02 << 1.0;
        QTest::newRow("the glow") << 2.0 << 2.0;
        QTest::newRow("the lane at its softest") << 2.2 << 1.0;
        QTest::newRow("wide") << 6.0 << 1.0;
    }
    void blur()
    {
        QFETCH(double, sigma);
        QFETCH(double, scale);
        // One opaque 3 x 3 block in the middle of a transparent field.
        QImage dot(61, 61, QImage::Format_ARGB32_Premultiplied);
        dot.setDevicePixelRatio(scale);
        dot.fill(Qt::transparent);
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
        QVERIFY(std::abs(alphaSum(out) - 9 * 255) <= 9 * 255 / 20);
        for (int d : {1, 3, 5}) {
            QCOMPARE(qAlpha(out.pixel(30 - d, 30)), qAlpha(out.pixel(30 + d, 30)));
            QCOMPARE(qAlpha(out.pixel(30, 30 - d)), qAlpha(out.pixel(30, 30 + d)));
            // Across the axes only the rounding between the two passes differs.
            QVERIFY(std::abs(qAlpha(out.pixel(30, 30 + d)) - qAlpha(out.pixel(30 + d, 30))) <= 1);
        }
        QVERIFY(qAlpha(out.pixel(30, 30)) < 255);
        QVERIFY(qAlpha(out.pixel(30, 30)) > qAlpha(out.pixel(33, 30)));
        QVERIFY(qAlpha(out.pixel(33, 30)) >= qAlpha(out.pixel(36, 30)));
        // Premultiplied stays premultiplied: no channel above its alpha.
        for (int x = 0; x < 61; ++x)
            QVERIFY(qRed(out.pixel(x, 30)) <= qAlpha(out.pixel(x, 30)));

        // Outside the image is transparent: a full opaque field fades at its edges only.
        QImage field(41, 41, QImage::Format_ARGB32_Premultiplied);
        field.fill(Qt::white);
        const QImage soft = Blur::gaussian(field, sigma);
        QCOMPARE(qAlpha(soft.pixel(20, 20)), 255);
        QVERIFY(qAlpha(soft.pixel(0, 20)) < 200);
    }
};

QTEST_MAIN(StripFramesTest)
#include "tst_strip_frames.moc"
