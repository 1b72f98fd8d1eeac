#pragma once
// Whether the desktop asks for less animation: GNOME's enable-animations off,
// KDE's animation speed at "instant" (AnimationDurationFactor 0), or
// LARKPIN_REDUCE_MOTION=1 (=0 forces the full motion back). Views then flip,
// appear and fade instead of sliding, growing and springing.

#include <QObject>
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
// The environment and kdeglobals only: no process to wait for.
Sources readLocal();

// The answer for a running application. It starts from readLocal() and asks
// gsettings in the background a moment after start-up, so the first live
// frame never waits for a process; if GNOME's answer changes the verdict,
// changed() tells the views (no flip has run by then).
class Watcher : public QObject {
    Q_OBJECT
public:
    explicit Watcher(QObject *parent = nullptr, int askAfterMs = 1500);
    bool reduced() const { return reduced_; }
Q_SIGNALS:
    void changed(bool reduced);

private:
    void ask();
    Sources sources_;
    bool reduced_ = false;
};
// The application's watcher (made on first use, owned by the application),
// or nullptr when there is no application object.
Watcher *watcher();
// The watcher's answer; without an application, readSystem() once.
bool reduced();

} // namespace ReducedMotion
