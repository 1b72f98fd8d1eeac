#pragma once
// Drawing of the ticker: one signal as a fixed-width badge, the idle caption
// and the activity rail.

#include "Wire/Telemetry.h"
#include "Model/Signal.h"

#include <QColor>
#include <QFont>
#include <QImage>
#include <QRectF>

#include <optional>

class QPainter;

struct StreamSegment {
    SignalKind kind = SignalKind::whale;
    Headline line;
    bool operator==(const StreamSegment &) const = default;
};

// One line of text in a few styles. Qt 6.4 cannot ask a font for tabular
// figures, so runs that need monospaced digits lay each digit out in a cell as
// wide as the widest digit.
struct StyledRun {
    QString text;
    QFont font;
    QColor colour;
    bool tabularDigits = false;
    bool operator==(const StyledRun &) const = default;
};
using StyledText = QList<StyledRun>;

namespace StreamComposer {
inline constexpr double badgeWidth = 155;
inline constexpr double pillHeight = 17;
inline constexpr double margin = 9;
inline constexpr double radius = 5.5;
inline constexpr double figureGap = 8;
// The near-black of the rail bars (sRGB 6, 7, 10).
const QColor &ink();

// Ticker (11.5 bold) and, when there is one, " " + tag (mono 10.5 bold, ink at 0.72).
StyledText leading(const StreamSegment &segment, const QColor &ink);
// The figure in 11.5 bold with monospaced digits; none without a text.
std::optional<StyledText> trailing(const std::optional<QString> &text, const QColor &ink);

double width(const StyledText &text);
double height(const StyledText &text);
// The runs as they fit into maxWidth on one line: cut at the tail with an
// ellipsis in the style of the run where the cut falls; empty when nothing fits.
StyledText truncatedTail(const StyledText &text, double maxWidth);
// One line at rect's left, vertically centred, truncated at the tail to rect's width.
void draw(QPainter &p, const StyledText &text, const QRectF &rect);

// 155 × height points at the given scale; null under 17 points.
QImage badge(const StreamSegment &segment, const std::optional<QString> &figure, double height,
             double scale = 2);
// Width the leading text may use once the figure has its place.
double leadingWidth(double figureWidth);
void drawIdle(QPainter &p, const QString &caption, const QRectF &rect, bool dark);
// Bars grow from lane.top() in the painter's orientation.
void drawRail(QPainter &p, const QList<RailTick> &ticks, const QRectF &lane, double originX);
} // namespace StreamComposer
