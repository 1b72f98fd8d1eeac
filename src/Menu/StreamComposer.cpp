#include "Menu/StreamComposer.h"

#include "Menu/Paint.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace Fonts {
namespace {
// Sizes are logical pixels on the bar; QFont wants points (96 px per 72 pt).
QFont make(const QString &family, const QString &fallback, double size, QFont::Weight weight)
{
    QFont f(QFontDatabase::families().contains(family) ? family : fallback);
    f.setPointSizeF(size * 72.0 / 96.0);
    f.setWeight(weight);
    f.setHintingPreference(QFont::PreferNoHinting);
    return f;
}
} // namespace
QFont system(double size, QFont::Weight weight)
{
    return make(QStringLiteral("Inter"), QStringLiteral("Sans Serif"), size, weight);
}
QFont mono(double size, QFont::Weight weight)
{
    QFont f = make(QStringLiteral("JetBrains Mono"), QStringLiteral("Monospace"), size, weight);
    f.setStyleHint(QFont::Monospace);
    return f;
}
} // namespace Fonts

namespace StreamComposer {

double leadingWidth(double figureWidth)
{
    const double gap = figureWidth > 0 ? 8 : 0;
    return std::max(0.0, badgeWidth - 2 * margin - figureWidth - gap);
}

QImage badge(const StreamSegment &segment, const std::optional<QString> &figure, double height, double scale)
{
    if (height < pillHeight)
        return {};
    QImage image(QSize(int(std::ceil(badgeWidth * scale)), int(std::ceil(height * scale))),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(scale);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    const QColor accent = toQColor(Theme::menuAccent(segment.kind, true));
    const QRectF pill(0, (height - pillHeight) / 2, badgeWidth, pillHeight);
    QPainterPath body;
    body.addRoundedRect(pill, radius, radius);
    p.fillPath(body, QColor(10, 12, 17));
    QColor outline = accent;
    outline.setAlphaF(0.6f);
    p.setPen(QPen(outline, 1));
    p.drawRoundedRect(pill.adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);

    const std::optional<QString> shown = figure ? figure : segment.line.figure;
    double w = 0;
    if (shown) {
        const QFont f = Fonts::mono(11.5, QFont::Bold);
        const QFontMetricsF m(f);
        w = std::ceil(m.horizontalAdvance(*shown));
        p.setFont(f);
        p.setPen(accent);
        p.drawText(QRectF(pill.right() - margin - w, pill.top(), w + 1, pill.height()),
                   Qt::AlignLeft | Qt::AlignVCenter, *shown);
    }
    const double available = leadingWidth(w);
    if (available > 0) {
        const QFont tickerFont = Fonts::system(11.5, QFont::Bold);
        const QFont tagFont = Fonts::mono(10.5, QFont::Bold);
        const QFontMetricsF tm(tickerFont), gm(tagFont);
        const QString tag = segment.line.tag ? QLatin1Char(' ') + *segment.line.tag : QString();
        QString ticker = segment.line.ticker;
        double x = pill.left() + margin;
        const double tagWidth = gm.horizontalAdvance(tag);
        // The ticker and tag are cut at the tail with an ellipsis.
        if (tm.horizontalAdvance(ticker) + tagWidth > available) {
            const QString full = ticker + tag;
            ticker = tm.elidedText(full, Qt::ElideRight, available);
            p.setFont(tickerFont);
            p.setPen(accent);
            p.drawText(QRectF(x, pill.top(), available, pill.height()), Qt::AlignLeft | Qt::AlignVCenter, ticker);
        } else {
            p.setFont(tickerFont);
            p.setPen(accent);
            p.drawText(QRectF(x, pill.top(), available, pill.height()), Qt::AlignLeft | Qt::AlignVCenter, ticker);
            x += tm.horizontalAdvance(ticker);
            QColor faint = accent;
            faint.setAlphaF(0.72f);
            p.setFont(tagFont);
            p.setPen(faint);
            p.drawText(QRectF(x, pill.top(), available, pill.height()), Qt::AlignLeft | Qt::AlignVCenter, tag);
        }
    }
    return image;
}

void drawIdle(QPainter &p, const QString &caption, const QRectF &rect, bool dark)
{
    QFont f = Fonts::mono(9, QFont::Bold);
    f.setLetterSpacing(QFont::AbsoluteSpacing, 0.9);
    p.setFont(f);
    p.setPen(dark ? QColor::fromRgbF(1, 1, 1, 0.55f) : QColor::fromRgbF(0, 0, 0, 0.5f));
    p.drawText(QRectF(rect.left() + 9, rect.top(), rect.width() - 9, rect.height()), Qt::AlignLeft | Qt::AlignVCenter,
               caption);
}

void drawRail(QPainter &p, const QList<RailTick> &ticks, const QRectF &lane, double originX)
{
    QColor buy(6, 7, 10), sell(6, 7, 10);
    buy.setAlphaF(0.10f);
    sell.setAlphaF(0.19f);
    double x = originX;
    p.setPen(Qt::NoPen);
    for (const RailTick &t : ticks) {
        const double h = std::max(t.level * 8, 1.5);
        p.setBrush(t.buy ? buy : sell);
        p.drawRoundedRect(QRectF(x, lane.top(), 2, h), 1, 1);
        x += 7;
    }
}

} // namespace StreamComposer
