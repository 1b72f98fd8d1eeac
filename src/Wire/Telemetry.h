#pragma once
// Live readings of the tape, counted from ticks (never estimated).

#include <QList>
#include <QtGlobal>

#include <optional>
#include <vector>

struct RailTick {
    double level = 0; // 0...1
    bool buy = false;
    bool operator==(const RailTick &) const = default;
};

struct Telemetry {
    double fillsPerMinute = 0;
    std::optional<double> buyShare;
    std::optional<double> latencyMs;
    std::optional<double> lastFrameAt;
    int held = 0;
    int visible = 0;
    QList<double> buckets; // 24 slots of 30 s, oldest first (empty before the first snapshot)
    QList<RailTick> rail;  // at most 48, oldest first
    bool operator==(const Telemetry &) const = default;
};

class TelemetryWindow {
public:
    struct Tick {
        double at = 0; // the fill's own time
        double usd = 0;
        bool buy = false;
    };

    // Fifteen minutes of any real tape fit many times over; past this bound
    // the oldest ticks go first (and are counted), whatever the rate.
    static constexpr size_t maxTicks = 30000;
    void append(double at, double usd, bool buy);
    qint64 ticksDropped() const { return ticksDropped_; }
    // Prunes ticks older than 900 s, then computes the snapshot.
    Telemetry snapshot(double now, int held, int visible);

    std::optional<double> latencyMs;
    std::optional<double> lastFrameAt;

    int tickCount() const { return int(ticks_.size()); }
    const std::vector<Tick> &ticks() const { return ticks_; }

private:
    QList<RailTick> amplitudes(int limit) const;
    std::vector<Tick> ticks_; // oldest first
    qint64 ticksDropped_ = 0;
};
