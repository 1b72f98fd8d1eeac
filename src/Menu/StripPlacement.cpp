#include "Menu/StripPlacement.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace StripPlacement {

int topInset(const QRect &screen, const QRect &available, const QRect &reserved)
{
    // The work area's top is ours when it ends exactly where our own
    // reservation does: the bar (if any) is what lies above the strip.
    if (!reserved.isEmpty() && screen.contains(reserved.topLeft()) &&
        available.top() == reserved.bottom() + 1)
        return reserved.top() - screen.top();
    return std::max(0, available.top() - screen.top());
}

int barHeight(const QRect &screen, const QRect &available, const QRect &reserved)
{
    const int h = topInset(screen, available, reserved);
    // A bar too thin for the 17-point pill, or no top bar at all, gets the usual height.
    return h >= 17 && h <= 64 ? h : defaultBarHeight;
}

QRect stripGeometry(const QRect &screen, const QRect &available, const QRect &reserved)
{
    const int top = screen.top() + topInset(screen, available, reserved);
    const int right = std::min(screen.right(), available.right());
    return QRect(right + 1 - itemWidth, top, itemWidth, barHeight(screen, available, reserved));
}

QRect stripOnMonitors(const QList<QRect> &monitors, const QRect &workArea, const QList<QRect> &topBars,
                      const QRect &reserved, double scale)
{
    if (monitors.isEmpty())
        return {};
    // A bar counts for a monitor when it covers some of its columns and ends
    // in its upper half, below its top edge.
    qsizetype chosen = -1;
    int inset = 0;
    for (qsizetype i = 0; i < monitors.size() && chosen < 0; ++i) {
        const QRect &m = monitors.at(i);
        for (const QRect &bar : topBars) {
            if (bar.left() > m.right() || bar.right() < m.left() || bar.bottom() < m.top() ||
                bar.bottom() >= m.top() + m.height() / 2)
                continue;
            chosen = i;
            inset = std::max(inset, bar.bottom() + 1 - m.top());
        }
    }
    const QRect m = monitors.at(std::max<qsizetype>(chosen, 0));
    QRect available = workArea.isEmpty() ? m : (m & workArea);
    if (available.isEmpty())
        available = m;
    if (chosen < 0)
        inset = topInset(m, available, reserved);
    const int width = int(std::lround(itemWidth * scale));
    const int height = inset >= 17 * scale && inset <= 64 * scale ? inset : int(std::lround(defaultBarHeight * scale));
    const int right = std::min(m.right(), available.right());
    return QRect(right + 1 - width, m.top() + inset, width, height);
}

QPoint logicalFromDevice(const QPoint &device)
{
    for (QScreen *s : QGuiApplication::screens()) {
        const QRect g = s->geometry();
        const double dpr = s->devicePixelRatio();
        const QRect native(g.topLeft(), QSize(int(std::lround(g.width() * dpr)), int(std::lround(g.height() * dpr))));
        if (native.contains(device))
            return g.topLeft() + QPoint(int(std::lround((device.x() - g.x()) / dpr)),
                                        int(std::lround((device.y() - g.y()) / dpr)));
    }
    const double dpr = qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
    return QPoint(int(std::lround(device.x() / dpr)), int(std::lround(device.y() / dpr)));
}

bool placedAsAsked(const QRect &asked, const QRect &landed)
{
    return (asked.topLeft() - landed.topLeft()).manhattanLength() <= 4;
}

QRect cornerAnchor(const QRect &available)
{
    return QRect(available.right(), available.top(), 1, 1);
}

QRect trayAnchor(const QRect &icon, const std::optional<QPoint> &pointer, const QRect &available)
{
    if (!icon.isEmpty())
        return icon;
    if (pointer)
        return QRect(*pointer, QSize(1, 1));
    // A rectangle whose right end puts the panel's middle at the screen's.
    constexpr int span = 380;
    return QRect(available.center().x() + 1 - span / 2, available.top(), span, 1);
}

} // namespace StripPlacement
