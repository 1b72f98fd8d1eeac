#pragma once
// The one table of colours. Colours are plain sRGB component values so that
// nothing here needs Qt GUI; the UI layers convert them with
// toQColor() (Menu/Paint.h) or hand them to QML as "#rrggbb" / alpha pairs.

#include "Model/Signal.h"

namespace Theme {
struct Rgba {
    double r = 0, g = 0, b = 0, a = 1; // 0...1 each
    constexpr Rgba withAlpha(double alpha) const { return {r, g, b, alpha}; }
    bool operator==(const Rgba &) const = default;
};
constexpr Rgba rgb8(int r, int g, int b, double a = 1.0)
{
    return {r / 255.0, g / 255.0, b / 255.0, a};
}

inline constexpr Rgba lark{0.8, 1.0, 0.0, 1.0};
inline constexpr Rgba amber = rgb8(255, 176, 32);
inline constexpr Rgba emerald = rgb8(0, 255, 156);
inline constexpr Rgba alert = rgb8(255, 80, 0);
inline constexpr Rgba abyss = rgb8(6, 7, 10);
inline constexpr Rgba plate = rgb8(11, 13, 18);
inline constexpr Rgba raised = rgb8(18, 21, 28);
inline constexpr Rgba float_ = rgb8(24, 28, 36); // "float" is a keyword
inline constexpr Rgba hairline{1, 1, 1, 0.07};
inline constexpr Rgba hairlineHot{1, 1, 1, 0.16};
inline constexpr Rgba ink = rgb8(237, 241, 244);
inline constexpr Rgba ink2 = rgb8(162, 171, 180);
inline constexpr Rgba ink3 = rgb8(107, 116, 128);
inline constexpr Rgba ink4 = rgb8(60, 67, 77);

// The accent of a kind in the panel (whale lark, spike amber, stocks emerald).
Rgba kindColour(SignalKind kind);
// The accent of a kind for the top-bar strip; the light variants stay legible on a light bar.
Rgba menuAccent(SignalKind kind, bool dark);
} // namespace Theme
