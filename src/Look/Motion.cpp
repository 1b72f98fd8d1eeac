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

} // namespace Motion
