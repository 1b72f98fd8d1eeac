#pragma once
// What the strip needs from an X11 window manager: a dock that reserves its
// own space, on every workspace, out of taskbars and pagers, and whether a
// compositor runs. Every call is a no-op away from the xcb platform.

#include <QRect>

#include <array>
#include <cstdint>

class QWindow;

namespace X11Desktop {

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
