#pragma once
// Cubic-bezier timing curves as QEasingCurve::BezierSpline and CSS define
// them: from (0, 0) to (1, 1), shaped by two control points. One solver and
// one table of the curves the strip and the panel use, so the strip's frames
// and the panel's animations cannot drift apart.

namespace Easing {

struct CubicBezier {
    double x1 = 0, y1 = 0, x2 = 1, y2 = 1;

    // Progress at the time fraction x (clamped to 0..1). Control points with
    // x1 and x2 in 0..1 make x a function of the curve's parameter, so every
    // x has one answer.
    double valueAt(double x) const;
    // The first time fraction at which the progress reaches `value`; for
    // curves whose progress only grows (y1 and y2 in 0..1).
    double timeOf(double value) const;
};

// The standard ease-out and ease-in-out, and the strip's flip: a brief
// lift-off, a fast middle and a long soft landing.
inline constexpr CubicBezier easeOut{0, 0, 0.58, 1};
inline constexpr CubicBezier easeInOut{0.42, 0, 0.58, 1};
inline constexpr CubicBezier flip{0.36, 0, 0.14, 1};

} // namespace Easing
