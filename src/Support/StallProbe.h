#pragma once
// An opt-in measure of how long the main thread stays away from its event
// loop (LARKPIN_STALL_PROBE=1; scripts/measure reads its lines). A single-shot
// timer is armed every probeMs; how late each one fires is split into the time
// the thread waited for a core (the machine's load, from the scheduler's
// per-thread figures) and the rest: the thread busy, or blocked in a
// synchronous call. Every reportMs it writes the worst of that window to the
// trace, so the probe itself adds ten wake-ups a second and is never on in a
// run that counts them.

#include <QElapsedTimer>
#include <QObject>

class QTimer;

class StallProbe : public QObject {
public:
    static constexpr int probeMs = 100;
    static constexpr int reportMs = 10000;

    // How late one tick was, in ms, and how much of that the thread spent
    // runnable but off a core.
    struct Tick {
        double lateMs = 0;
        double queuedMs = 0;
        // The stall the app caused itself: lateness the load does not explain.
        double ownMs() const { return lateMs > queuedMs ? lateMs - queuedMs : 0; }
    };
    struct Window {
        int ticks = 0;
        Tick worstLate;  // the latest tick
        double worstOwnMs = 0;
        void add(const Tick &t);
    };

    // Starts a probe owned by `parent` when LARKPIN_STALL_PROBE is "1".
    static StallProbe *startIfAsked(QObject *parent);
    explicit StallProbe(QObject *parent, int reportEveryMs = reportMs);

    // The calling thread's time spent waiting on a run queue, in ns (0 where
    // the kernel does not say).
    static qint64 queuedNs();
    static QString line(const Window &w, int seconds);

    const Window &total() const { return total_; }

private:
    void arm();
    void fired();
    void report();

    QTimer *timer_;
    QElapsedTimer clock_;
    qint64 armedAtNs_ = 0;
    qint64 queuedAtArm_ = 0;
    qint64 windowStartNs_ = 0;
    int reportEveryMs_;
    Window window_;
    Window total_;
};
