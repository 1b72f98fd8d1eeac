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

const QColor &ink()
{
    static const QColor colour = QColor::fromRgbF(6 / 255.f, 7 / 255.f, 10 / 255.f, 1);
    return colour;
}

StyledText leading(const StreamSegment &segment, const QColor &ink)
{
    StyledText text{{segment.line.ticker, Fonts::system(11.5, QFont::Bold), ink}};
    if (segment.line.tag) {
        QColor faint = ink;
        faint.setAlphaF(0.72f);
        text.append({QLatin1Char(' ') + *segment.line.tag, Fonts::mono(10.5, QFont::Bold), faint});
    }
    return text;
}

std::optional<StyledText> trailing(const std::optional<QString> &text, const QColor &ink)
{
    if (!text)
        return std::nullopt;
    return StyledText{{*text, Fonts::system(11.5, QFont::Bold), ink, true}};
}

namespace {
bool isDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

double digitCell(const QFontMetricsF &m)
{
    double cell = 0;
    for (char c = '0'; c <= '9'; ++c)
        cell = std::max(cell, m.horizontalAdvance(QLatin1Char(c)));
    return cell;
}

double runWidth(const StyledRun &run)
{
    const QFontMetricsF m(run.font);
    if (!run.tabularDigits)
        return m.horizontalAdvance(run.text);
    const double cell = digitCell(m);
    double w = 0;
    QString chunk;
    for (QChar c : run.text) {
        if (isDigit(c)) {
            w += m.horizontalAdvance(chunk) + cell;
            chunk.clear();
        } else {
            chunk += c;
        }
    }
    return w + m.horizontalAdvance(chunk);
}

void drawRun(QPainter &p, const StyledRun &run, double x, double baseline)
{
    p.setFont(run.font);
    p.setPen(run.colour);
    if (!run.tabularDigits) {
        p.drawText(QPointF(x, baseline), run.text);
        return;
    }
    const QFontMetricsF m(run.font);
    const double cell = digitCell(m);
    QString chunk;
    auto flush = [&] {
        p.drawText(QPointF(x, baseline), chunk);
        x += m.horizontalAdvance(chunk);
        chunk.clear();
    };
    for (QChar c : run.text) {
        if (!isDigit(c)) {
            chunk += c;
            continue;
        }
        flush();
        p.drawText(QPointF(x + (cell - m.horizontalAdvance(c)) / 2, baseline), QString(c));
        x += cell;
    }
    flush();
}
} // namespace

double width(const StyledText &text)
{
    double w = 0;
    for (const StyledRun &r : text)
        w += runWidth(r);
    return w;
}

double height(const StyledText &text)
{
    double h = 0;
    for (const StyledRun &r : text)
        h = std::max(h, QFontMetricsF(r.font).height());
    return h;
}

StyledText truncatedTail(const StyledText &text, double maxWidth)
{
    if (width(text) <= maxWidth)
        return text;
    // Grow the longest prefix that still leaves room for the ellipsis.
    static const QString ellipsis = QStringLiteral("…");
    StyledText kept;
    double used = 0;
    for (const StyledRun &run : text) {
        const double ellipsisWidth = QFontMetricsF(run.font).horizontalAdvance(ellipsis);
        StyledRun part = run;
        part.text.clear();
        qsizetype i = 0;
        bool cut = false;
        while (i < run.text.size()) {
            const qsizetype n = run.text.at(i).isHighSurrogate() && i + 1 < run.text.size() ? 2 : 1;
            StyledRun trial = part;
            trial.text += run.text.mid(i, n);
            if (used + runWidth(trial) + ellipsisWidth > maxWidth) {
                cut = true;
                break;
            }
            part = trial;
            i += n;
        }
        if (cut) {
            if (used + runWidth(part) + ellipsisWidth > maxWidth)
                return kept; // not even an ellipsis fits
            part.text += ellipsis;
            kept.append(part);
            return kept;
        }
        used += runWidth(part);
        kept.append(part);
    }
    return kept;
}

void draw(QPainter &p, const StyledText &text, const QRectF &rect)
{
    const StyledText shown = truncatedTail(text, rect.width());
    if (shown.isEmpty())
        return;
    // The runs share one baseline, centred as a line of the tallest style.
    double ascent = 0, descent = 0;
    for (const StyledRun &r : shown) {
        const QFontMetricsF m(r.font);
        ascent = std::max(ascent, m.ascent());
        descent = std::max(descent, m.descent());
    }
    const double baseline = rect.center().y() - (ascent + descent) / 2 + ascent;
    double x = rect.left();
    for (const StyledRun &r : shown) {
        drawRun(p, r, x, baseline);
        x += runWidth(r);
    }
}

double leadingWidth(double figureWidth)
{
    const double gap = figureWidth > 0 ? figureGap : 0;
    return std::max(0.0, badgeWidth - 2 * margin - figureWidth - gap);
}

QImage badge(const StreamSegment &segment, const std::optional<QString> &figure, double height, double scale)
{
    if (height < pillHeight)
        return {};
    QImage image = clearImage(QSizeF(badgeWidth, height), scale);
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
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(pill.adjusted(0.5, 0.5, -0.5, -0.5), radius, radius);

    double w = 0;
    if (const auto shown = trailing(figure ? figure : segment.line.figure, accent)) {
        w = std::ceil(StreamComposer::width(*shown));
        draw(p, *shown, QRectF(pill.right() - margin - w, pill.top(), w, pill.height()));
    }
    const double available = leadingWidth(w);
    if (available > 0)
        draw(p, leading(segment, accent), QRectF(pill.left() + margin, pill.top(), available, pill.height()));
    return image;
}

void drawIdle(QPainter &p, const QString &caption, const QRectF &rect, bool dark)
{
    QFont f = Fonts::mono(9, QFont::Bold);
    f.setLetterSpacing(QFont::AbsoluteSpacing, 0.9);
    p.setFont(f);
    p.setPen(dark ? QColor::fromRgbF(1, 1, 1, 0.55f) : QColor::fromRgbF(0, 0, 0, 0.5f));
    p.drawText(QRectF(rect.left() + 9, rect.top(), rect.width() - 9, rect.height()),
               Qt::AlignLeft | Qt::AlignVCenter, caption);
}

void drawRail(QPainter &p, const QList<RailTick> &ticks, const QRectF &lane, double originX)
{
    QColor buy = ink(), sell = ink();
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
