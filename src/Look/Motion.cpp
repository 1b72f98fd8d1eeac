#include "Look/Motion.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Motion {

double Curve::stiffness() const
{
    const double w = 2 * std::numbers::pi / response;
    return w * w;
}

double Curve::dampingCoefficient() const
{
    return 4 * std::numbers::pi * damping / response;
}

double Curve::valueAt(double t) const
{
    if (t <= 0)
        return 0;
    if (type == EaseOut) {
        // cubic-bezier(0, 0, 0.58, 1), the usual ease-out; solve x(u) = t by bisection.
        const double x = std::min(t / response, 1.0);
        double lo = 0, hi = 1, u = x;
        for (int i = 0; i < 40; ++i) {
            u = (lo + hi) / 2;
            const double bx = 3 * (1 - u) * u * u * 0.58 + u * u * u;
            (bx < x ? lo : hi) = u;
        }
        return 3 * (1 - u) * u * u + u * u * u;
    }
    // Unit-mass spring released from 0 towards 1.
    const double w0 = 2 * std::numbers::pi / response;
    const double z = damping;
    if (z < 1) {
        const double wd = w0 * std::sqrt(1 - z * z);
        return 1 - std::exp(-z * w0 * t) * (std::cos(wd * t) + z * w0 / wd * std::sin(wd * t));
    }
    return 1 - std::exp(-w0 * t) * (1 + w0 * t);
}

double Curve::settlingDuration() const
{
    if (type == EaseOut)
        return response;
    // Envelope e^(-ζω t) below 0.1 %.
    const double w0 = 2 * std::numbers::pi / response;
    const double z = std::min(damping, 1.0);
    return std::log(1000.0) / (z * w0);
}

} // namespace Motion
