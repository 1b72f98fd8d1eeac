#include "Look/Spring.h"

#include <cmath>
#include <numbers>

Spring Spring::fromResponse(double response, double dampingFraction)
{
    const double w0 = 2 * std::numbers::pi / response;
    return Spring{1, w0 * w0, 2 * dampingFraction * w0};
}

double Spring::naturalFrequency() const
{
    return std::sqrt(stiffness / mass);
}

double Spring::dampingRatio() const
{
    return damping / (2 * std::sqrt(stiffness * mass));
}

double Spring::valueAt(double t) const
{
    if (t <= 0)
        return 0;
    const double w0 = naturalFrequency();
    const double z = dampingRatio();
    if (z < 1) {
        const double wd = w0 * std::sqrt(1 - z * z);
        return 1 - std::exp(-z * w0 * t) * (std::cos(wd * t) + z * w0 / wd * std::sin(wd * t));
    }
    if (z == 1)
        return 1 - std::exp(-w0 * t) * (1 + w0 * t);
    // Two real decay rates; starting at rest fixes their weights.
    const double root = w0 * std::sqrt(z * z - 1);
    const double slow = z * w0 - root, fast = z * w0 + root;
    return 1 - (fast * std::exp(-slow * t) - slow * std::exp(-fast * t)) / (fast - slow);
}

double Spring::settlingDuration(double tolerance) const
{
    const double w0 = naturalFrequency();
    const double z = dampingRatio();
    // Under-damped: the envelope e^(-ζω0 t) sets it.
    if (z < 1)
        return std::log(1 / tolerance) / (z * w0);
    // Without overshoot the distance left only shrinks: find where it crosses.
    double lo = 0, hi = 1 / w0;
    while (1 - valueAt(hi) > tolerance)
        hi *= 2;
    for (int i = 0; i < 60; ++i) {
        const double mid = (lo + hi) / 2;
        (1 - valueAt(mid) > tolerance ? lo : hi) = mid;
    }
    return hi;
}
