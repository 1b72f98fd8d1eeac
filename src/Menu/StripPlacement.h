#pragma once
// Where the strip goes, as pure functions of what the desktop says: the
// screen, its work area, the bars on it and the strip's own reservation.
// Nothing here touches a window, so every rule can be tested without a
// display; StatusItemController applies the answers.

#include <QList>
#include <QPoint>
#include <QRect>

#include <optional>

namespace StripPlacement {

inline constexpr int itemWidth = 196;
inline constexpr int defaultBarHeight = 24;

// The strip takes the bar's height (24 when there is no bar to measure) and
// sits at the top-right of the area the bar leaves free.
// Only a top bar counts: a bottom bar leaves the strip its usual height at
// the top. `reserved` is the strip's own reservation in effect (empty when
// none): a work area that ends exactly at it is the strip's own doing.
int topInset(const QRect &screen, const QRect &available, const QRect &reserved = {});
int barHeight(const QRect &screen, const QRect &available, const QRect &reserved = {});
QRect stripGeometry(const QRect &screen, const QRect &available, const QRect &reserved = {});
// The same on X11, in device pixels, from what X says: the strip goes to
// the monitor holding a top bar (the primary when it does), right under
// the lowest bar there, at the right of that monitor's work area. Without
// a bar it is the primary monitor and its work area. `scale` is the
// device pixels per point.
QRect stripOnMonitors(const QList<QRect> &monitors, const QRect &workArea, const QList<QRect> &topBars,
                      const QRect &reserved, double scale);
// Device pixels (root coordinates) to Qt's logical ones: each screen
// keeps its native top-left and scales from there.
QPoint logicalFromDevice(const QPoint &device);
// A window manager honoured the position when the strip landed within a
// few pixels of it.
bool placedAsAsked(const QRect &asked, const QRect &landed);
// The panel's anchor when nothing on screen says where Larkpin is: the
// top-right corner of the work area.
QRect cornerAnchor(const QRect &available);
// The panel's anchor after a click on the tray icon: the icon when the
// host says where it is; otherwise the pointer, which is on the icon
// (X11); otherwise (native Wayland tells no one where the pointer is)
// centred under the top of the work area.
QRect trayAnchor(const QRect &icon, const std::optional<QPoint> &pointer, const QRect &available);

} // namespace StripPlacement
