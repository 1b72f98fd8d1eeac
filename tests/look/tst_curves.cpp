// The timing curves behind every animation: one cubic-bezier solver checked
// against QEasingCurve's own, and the springs against their closed forms.

#include "Look/Easing.h"
#include "Look/Motion.h"
#include "Look/Spring.h"
#include "Table.h"

#include <QEasingCurve>
#include <QTest>

#include <cmath>
#include <numbers>

using Bezier = Easing::CubicBezier;

namespace {
// "flat start" has no slope at all at 0.
struct Curve { const char *name; Bezier curve; };
const Curve curves[] = {
    {.name = "ease-out", .curve = Easing::easeOut},
    {.name = "ease-in-out", .curve = Easing::easeInOut},
    {.name = "flip", .curve = Easing::flip},
    {.name = "overshooting", .curve = {0.3, -0.4, 0.7, 1.4}},
    {.name = "flat start", .curve = {0, 0, 0, 1}},
    {.name = "linear", .curve = {0.25, 0.25, 0.75, 0.75}},
};

// Symmetric control points put the middle on the middle; at the parameter
// u = 1/2 both coordinates are 3/8 (c1 + c2) + 1/8.
struct Known { const char *name; Bezier curve; double x, expected; };
const Known knownValues_[] = {
    {.name = "ease-in-out, half way", .curve = Easing::easeInOut, .x = 0.5, .expected = 0.5},
    {.name = "on the diagonal", .curve = {1 / 3.0, 1 / 3.0, 2 / 3.0, 2 / 3.0}, .x = 0.3, .expected = 0.3},
    {.name = "ease-out at u = 1/2", .curve = Easing::easeOut, .x = 0.3425, .expected = 0.5},
    {.name = "flip at u = 1/2", .curve = Easing::flip, .x = 0.3125, .expected = 0.5},
};

struct SpringRow { const char *name; Spring spring; };
const SpringRow springs_[] = {
    {.name = "snap", .spring = Motion::snap.spring()},
    {.name = "settle", .spring = Motion::settle.spring()},
    {.name = "roll", .spring = Motion::roll.spring()},
    {.name = "focal entrance", .spring = {0.7, 260, 16}},
    {.name = "critical", .spring = Spring::fromResponse(0.4, 1.0)},
    {.name = "over-damped", .spring = Spring::fromResponse(0.4, 2.5)},
};
} // namespace

class CurvesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void bezierMatchesQEasingCurve_data() { rows(curves); }
    void bezierMatchesQEasingCurve()
    {
        const Bezier &curve = row(curves).curve;
        QEasingCurve qt(QEasingCurve::BezierSpline);
        qt.addCubicBezierSegment(QPointF(curve.x1, curve.y1), QPointF(curve.x2, curve.y2), QPointF(1, 1));
        for (int i = 0; i <= 100; ++i) {
            const double x = i / 100.0, mine = curve.valueAt(x), theirs = qt.valueForProgress(x);
            // QEasingCurve's own solver is good to about 1e-4.
            if (std::abs(mine - theirs) > 1e-3)
                QFAIL(qPrintable(QStringLiteral("at %1: %2, QEasingCurve %3").arg(x).arg(mine).arg(theirs)));
        }
        // Ends pinned, and outside 0..1 clamped rather than extrapolated.
        QCOMPARE(curve.valueAt(0), 0.0);
        QCOMPARE(curve.valueAt(1), 1.0);
        QCOMPARE(curve.valueAt(-0.5), 0.0);
        QCOMPARE(curve.valueAt(7), 1.0);
    }

    void knownValues_data() { rows(knownValues_); }
    void knownValues()
    {
        const auto [name, curve, x, expected] = row(knownValues_);
        QVERIFY(std::abs(curve.valueAt(x) - expected) < 1e-9);
        QVERIFY(std::abs(curve.timeOf(expected) - x) < 1e-9);
    }

    void springs_data() { rows(springs_); }
    void springs()
    {
        const Spring &spring = row(springs_).spring;
        QCOMPARE(spring.valueAt(0), 0.0);
        QCOMPARE(spring.valueAt(-1), 0.0);
        QVERIFY(spring.valueAt(1e-4) < 1e-4); // released at rest: the first instants barely move
        // Settled: within the tolerance from then on (the envelope, times the
        // sine's own amplitude for under-damped springs), and visibly moving
        // at a quarter of that time.
        const double z = spring.dampingRatio(), settled = spring.settlingDuration();
        const double amplitude = z < 1 ? 1 / std::sqrt(1 - z * z) : 1;
        for (double t = settled; t < settled + 2; t += 0.01)
            QVERIFY2(std::abs(spring.valueAt(t) - 1) < 0.001 * amplitude, qPrintable(QString::number(t)));
        QVERIFY(std::abs(spring.valueAt(settled / 4) - 1) > 0.01);
        // The peak: e^(-ζπ/√(1-ζ²)) past the target, at π/ωd; none at or beyond critical.
        double peak = 0, peakAt = 0;
        for (double t = 0; t < 3 * settled; t += 0.0005)
            if (spring.valueAt(t) > peak)
                peak = spring.valueAt(t), peakAt = t;
        if (z >= 1) {
            QVERIFY(peak <= 1);
            return;
        }
        const double wd = spring.naturalFrequency() * std::sqrt(1 - z * z);
        QVERIFY(std::abs(peak - 1 - std::exp(-z * std::numbers::pi / std::sqrt(1 - z * z))) < 1e-6);
        QVERIFY(std::abs(peakAt - std::numbers::pi / wd) < 0.001);
    }

    void responseAndDampingFraction()
    {
        // The designer's terms and the physical ones describe the same spring.
        const Spring s = Spring::fromResponse(0.34, 0.76);
        QVERIFY(std::abs(s.dampingRatio() - 0.76) < 1e-12);
        QVERIFY(std::abs(2 * std::numbers::pi / s.naturalFrequency() - 0.34) < 1e-12);
        QCOMPARE(Motion::snap.stiffness(), s.stiffness);
        QCOMPARE(Motion::snap.dampingCoefficient(), s.damping);
    }
};

QTEST_APPLESS_MAIN(CurvesTest)
#include "tst_curves.moc"
