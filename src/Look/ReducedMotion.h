#pragma once
// Whether the desktop asks for less animation: GNOME's enable-animations off,
// KDE's animation speed at "instant" (AnimationDurationFactor 0), or
// LARKPIN_REDUCE_MOTION=1 (=0 forces the full motion back). Views then flip,
// appear and fade instead of sliding, growing and springing.

#include <QString>

#include <optional>

namespace ReducedMotion {

struct Sources {
    std::optional<QString> override;                   // LARKPIN_REDUCE_MOTION
    std::optional<QString> gnomeEnableAnimations;      // gsettings' answer: "true" / "false"
    std::optional<QString> kdeAnimationDurationFactor; // kdeglobals [KDE] AnimationDurationFactor
};

bool reducedFrom(const Sources &sources);
// Reads the environment, gsettings (when installed; a bounded wait) and
// kdeglobals in the XDG config folder.
Sources readSystem();
// readSystem() once per process.
bool reduced();

} // namespace ReducedMotion
