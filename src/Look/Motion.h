#pragma once
// The named motion curves shared by the strip and the panel.

#include "Look/Easing.h"
#include "Look/Spring.h"

namespace Motion {
// Springs are response (s) and damping fraction; glide is an ease-out.
struct Curve {
    enum Type { Spring, EaseOut } type = Spring;
    double response = 0; // spring response, or the ease-out duration
    double damping = 1;  // damping fraction (springs only)
    // Spring in physical terms for unit mass: stiffness = (2π/response)²,
    // damping coefficient = 4π·damping/response.
    double stiffness() const;
    double dampingCoefficient() const;
    ::Spring spring() const { return ::Spring::fromResponse(response, damping); }
};
inline constexpr Curve snap{Curve::Spring, 0.34, 0.76};
inline constexpr Curve settle{Curve::Spring, 0.52, 0.88};
inline constexpr Curve glide{Curve::EaseOut, 0.18, 1.0};
inline constexpr Curve roll{Curve::Spring, 0.4, 0.95};
} // namespace Motion
