#pragma once
// What the strip needs from an X11 window manager: a dock that reserves its
// own space, on every workspace, out of taskbars and pagers, and whether a
// compositor runs. Every call is a no-op away from the xcb platform.

#include <QList>
#include <QRect>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

class QAbstractNativeEventFilter;
class QObject;
class QWindow;

namespace X11Desktop {

// The desktop as X has it, in device pixels of the root window: Qt's own
// view of it drops the work area as soon as there are two monitors, and
// knows nothing of where the bars are.
struct Layout {
    QList<QRect> monitors; // RandR monitors, the primary first
    QRect workArea;        // _NET_WORKAREA of the current desktop; empty when unset
    QList<QRect> topBars;  // the rows other clients reserve at the top: their columns, down to the strut
};
// None away from X11 or without RandR monitors. `self` is left out of the bars.
std::optional<Layout> readLayout(QWindow *self);

// Calls `changed` whenever the monitors, the work area or the set of windows
// change (RandR notifications, root property changes); the filter is owned by
// `owner`'s lifetime.
void watchLayout(QObject *owner, std::function<void()> changed);

// Only `region` (window coordinates, device pixels) takes the pointer: the
// rest of the window lets clicks through to what lies beneath.
void setInputRegion(QWindow *window, const QRect &region);

// True when the application runs on the xcb platform (X11 or XWayland).
bool active();

// _NET_WM_STRUT_PARTIAL for a window at `strip` on a root window of `root`
// (the virtual desktop, root coordinates): the top edge reserved down to the
// strip's bottom, for the strip's columns only. Pure, for tests.
std::array<uint32_t, 12> topStrut(const QRect &root, const QRect &strip);

// Marks a created, not yet mapped window as a dock shown on every workspace
// and skipped by taskbars and pagers. Call after winId(), before show().
void markDock(QWindow *window);
// Asks the window manager again after the window is mapped: some only honour
// state changes sent as client messages.
void reassertDock(QWindow *window);
// Reserves `strip` (root coordinates); an empty rect withdraws the reservation.
void reserve(QWindow *window, const QRect &strip);

// A compositing manager owns the _NET_WM_CM_Sn selection of the screen.
bool compositorRunning();

// The value of a CARDINAL or ATOM property, for the desktop check and tests.
QList<uint32_t> cardinals(QWindow *window, const char *property);
QList<QByteArray> atomNames(QWindow *window, const char *property);

} // namespace X11Desktop
