#include "Look/Motion.h"

namespace Motion {

double Curve::stiffness() const
{
    return spring().stiffness;
}

double Curve::dampingCoefficient() const
{
    return spring().damping;
}

double Curve::valueAt(double t) const
{
    if (t <= 0)
        return 0;
    if (type == EaseOut)
        return Easing::easeOut.valueAt(t / response);
    return spring().valueAt(t);
}

double Curve::settlingDuration() const
{
    return type == EaseOut ? response : spring().settlingDuration();
}

} // namespace Motion
