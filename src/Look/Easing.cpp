#include "Look/Easing.h"

#include <algorithm>
#include <cmath>

namespace Easing {
namespace {
// One coordinate of the curve at parameter u, with its ends at 0 and 1.
double coordinate(double u, double c1, double c2)
{
    const double v = 1 - u;
    return 3 * v * v * u * c1 + 3 * v * u * u * c2 + u * u * u;
}

double slope(double u, double c1, double c2)
{
    const double v = 1 - u;
    return 3 * v * v * c1 + 6 * v * u * (c2 - c1) + 3 * u * u * (1 - c2);
}

// The parameter u at which coordinate(u) == target, for a coordinate that
// grows with u. Newton's steps converge in a handful of iterations away from
// flat spots; bisection finishes the job where the slope vanishes.
double solve(double target, double c1, double c2)
{
    target = std::clamp(target, 0.0, 1.0);
    double u = target;
    for (int i = 0; i < 8; ++i) {
        const double error = coordinate(u, c1, c2) - target;
        if (std::abs(error) < 1e-9)
            return u;
        const double d = slope(u, c1, c2);
        if (std::abs(d) < 1e-6)
            break;
        u -= error / d;
        if (u < 0 || u > 1)
            break;
    }
    double lo = 0, hi = 1;
    u = target;
    for (int i = 0; i < 60 && hi - lo > 1e-12; ++i) {
        u = (lo + hi) / 2;
        (coordinate(u, c1, c2) < target ? lo : hi) = u;
    }
    return u;
}
} // namespace

double CubicBezier::valueAt(double x) const
{
    if (x <= 0)
        return 0;
    if (x >= 1)
        return 1;
    return coordinate(solve(x, x1, x2), y1, y2);
}

double CubicBezier::timeOf(double value) const
{
    if (value <= 0)
        return 0;
    if (value >= 1)
        return 1;
    return coordinate(solve(value, y1, y2), x1, x2);
}

} // namespace Easing
