#pragma once
// Drawing of the ticker: one signal as a fixed-width badge, the idle caption
// and the activity rail.

#include "Feed/Telemetry.h"
#include "Model/Signal.h"

#include <QImage>
#include <QRectF>

class QPainter;

struct StreamSegment {
    SignalKind kind = SignalKind::whale;
    Headline line;
    bool operator==(const StreamSegment &) const = default;
};

namespace StreamComposer {
inline constexpr double badgeWidth = 155;
inline constexpr double pillHeight = 17;
inline constexpr double margin = 9;
inline constexpr double radius = 5.5;

// 155 × height points at the given scale; null under 17 points.
QImage badge(const StreamSegment &segment, const std::optional<QString> &figure, double height, double scale = 2);
// Width the leading text may use once the figure has its place.
double leadingWidth(double figureWidth);
void drawIdle(QPainter &p, const QString &caption, const QRectF &rect, bool dark);
// Bars grow from lane.top() in the painter's orientation.
void drawRail(QPainter &p, const QList<RailTick> &ticks, const QRectF &lane, double originX);
} // namespace StreamComposer
