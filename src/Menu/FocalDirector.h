#pragma once
// Decides which one signal, if any, takes over the ticker: a fresh, recent
// trade at or above the focus threshold (or a strong spike without a size).
// The takeover ends by itself after a hold, or when focal alerts are switched
// off. Main thread only.

#include "Model/Clock.h"
#include "Model/Signal.h"

#include <QObject>
#include <QSet>

#include <functional>
#include <optional>

class QTimer;

class FocalDirector : public QObject {
    Q_OBJECT
public:
    static constexpr double recencySeconds = 120;
    static constexpr int spikePriority = 60;
    static constexpr int holdMs = 7000;

    // Tests pass their own clock and a shorter hold.
    explicit FocalDirector(Clock now = systemNow, int holdMs = FocalDirector::holdMs,
                           QObject *parent = nullptr);

    // The store's full signal list and the focus threshold in dollars. A
    // trade by a watched wallet (handles without "@") takes over whatever its
    // size, as long as focus alerts are on at all.
    void consider(const QList<Signal> &list, double threshold, const QSet<QString> &watched = {});

    const std::optional<Signal> &current() const { return current_; }
    // The app's first answers do not all come at once: while held, every call
    // only records what is there, and the warm-up ends at the first call
    // after the release.
    void holdWarmUp() { warmUpHeld_ = true; }
    void releaseWarmUp() { warmUpHeld_ = false; }
    bool releasePending() const;
    // What is left of the current takeover's hold, in ms (0 without one).
    int remainingMs() const;

    // Called with the new focal signal, or with none when the takeover ends.
    std::function<void(const std::optional<Signal> &)> onChange;

private:
    void clear();

    QSet<QString> seen_;
    bool warmedUp_ = false;
    bool warmUpHeld_ = false;
    QTimer *releaseTask_ = nullptr;
    std::optional<Signal> current_;
    Clock now_;
};
