#include "Wire/Telemetry.h"

#include <algorithm>
#include <cmath>

void TelemetryWindow::append(double at, double usd, bool buy)
{
    ticks_.push_back(Tick{at, usd, buy});
    if (ticks_.size() > maxTicks) {
        // A quarter at once, so a flood does not shift the list on every tick.
        const size_t over = ticks_.size() - maxTicks * 3 / 4;
        ticks_.erase(ticks_.begin(), ticks_.begin() + std::ptrdiff_t(over));
        ticksDropped_ += qint64(over);
    }
}

Telemetry TelemetryWindow::snapshot(double now, int held, int visible)
{
    // Ticks arrive in ingestion order, not strictly by time, so pruning keeps
    // the order of whatever is young enough.
    std::erase_if(ticks_, [now](const Tick &t) { return now - t.at > 900; });

    Telemetry out;
    int recent = 0;
    double buys = 0, sells = 0;
    out.buckets = QList<double>(24, 0.0);
    for (const Tick &t : ticks_) {
        const double age = now - t.at;
        if (age <= 300) {
            ++recent;
            (t.buy ? buys : sells) += t.usd;
        }
        if (age >= 0) {
            const double slot = 23 - std::trunc(age / 30);
            if (slot >= 0 && slot <= 23)
                out.buckets[int(slot)] += t.usd;
        }
    }
    out.fillsPerMinute = recent / 5.0;
    if (recent > 5 && buys + sells > 0)
        out.buyShare = buys / (buys + sells);
    out.rail = amplitudes(48);
    out.latencyMs = latencyMs;
    out.lastFrameAt = lastFrameAt;
    out.held = held;
    out.visible = visible;
    return out;
}

QList<RailTick> TelemetryWindow::amplitudes(int limit) const
{
    const size_t n = std::min(ticks_.size(), size_t(std::max(limit, 0)));
    QList<RailTick> rail;
    if (n == 0)
        return rail;
    std::vector<double> m(n);
    double top = 1.0;
    for (size_t i = 0; i < n; ++i) {
        const Tick &t = ticks_[ticks_.size() - n + i];
        // A log scale keeps a million-dollar trade from flattening the rest.
        m[i] = std::log10(std::max(t.usd, 1.0));
        top = std::max(top, m[i]);
    }
    rail.reserve(qsizetype(n));
    for (size_t i = 0; i < n; ++i)
        rail.append(RailTick{std::min(m[i] / top, 1.0), ticks_[ticks_.size() - n + i].buy});
    return rail;
}
