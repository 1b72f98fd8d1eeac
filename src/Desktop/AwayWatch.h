#pragma once
// Tells when the user has come back after being away, from what the desktop
// offers over D-Bus: logind's PrepareForSleep (resume), the screen saver's
// ActiveChanged (org.freedesktop.ScreenSaver, org.gnome.ScreenSaver: the
// screen unlocked) and GNOME's idle monitor (input after a long idle time).
// A desktop that offers none of them gets no signal at all.
//
// AwaySummary turns what history kept for the time away into one line, and
// AwayNotifier sends it once per return, through the app's notification sink.

#include "History/HistoryQuery.h"

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

class AwayWatch : public QObject {
    Q_OBJECT
public:
    enum Source { Sleep = 0x1, ScreenSaver = 0x2, Idle = 0x4, AllSources = 0x7 };
    // Tests pass their own (private) buses, or 0 sources and call the slots.
    AwayWatch(int sources, const QDBusConnection &systemBus, const QDBusConnection &sessionBus,
              std::function<double()> now, QObject *parent = nullptr);
    explicit AwayWatch(QObject *parent = nullptr);

    // Idle this long (ms) before input counts as a return.
    static constexpr quint64 idleMs = 15 * 60 * 1000;

    bool watchesSleep() const { return watchesSleep_; }
    bool watchesScreenSaver() const { return watchesScreenSaver_; }
    std::optional<double> awaySince() const { return since_; }

public Q_SLOTS:
    void prepareForSleep(bool sleeping);
    void screenSaverActiveChanged(bool active);
    void idleMonitorFired(uint id);

Q_SIGNALS:
    void wentAway(double since);
    // The user is back: [since, until] is the time away; how: "resume",
    // "unlock" or "input".
    void cameBack(double since, double until, const QString &how);

private:
    void begin(double at);
    void end(const QString &how);
    void armIdle();

    QDBusConnection session_;
    std::function<double()> now_;
    std::optional<double> since_;
    bool watchesSleep_ = false;
    bool watchesScreenSaver_ = false;
    bool watchesIdle_ = false;
    uint idleWatch_ = 0;
    uint activeWatch_ = 0;
};

namespace AwaySummary {
// "While you were away: 4 whales, largest $1.2M on $DOGO" (empty when there is
// nothing). Counts by kind in kind order; the largest by size.
QString text(const QList<HistoryEntry> &entries);
// The notification's body: what text() says after the colon, bounded.
QString body(const QList<HistoryEntry> &entries);
} // namespace AwaySummary

class AwayNotifier : public QObject {
    Q_OBJECT
public:
    struct Summary {
        double since = 0;
        double until = 0;
        QString text;
        QString body;
    };
    // Reads [since, until] (at or above the threshold, mutes applied) and
    // answers with the entries found.
    using Reader = std::function<void(const HistoryQuery &, std::function<void(const QList<HistoryEntry> &)>)>;
    using Sink = std::function<void(const Summary &)>;
    using Query = std::function<HistoryQuery()>; // threshold and mutes of the moment

    AwayNotifier(AwayWatch *watch, Query query, Reader reader, Sink sink, QObject *parent = nullptr);

    // After a return, the feed catches up first (a resumed machine reconnects
    // and backfills): the summary waits this long.
    void setSettleMs(int ms) { settleMs_ = ms; }
    // Shorter absences say nothing.
    static constexpr double minAwaySeconds = 120;

    void comeBack(double since, double until);

private:
    Query query_;
    Reader reader_;
    Sink sink_;
    int settleMs_ = 20000;
    QTimer settle_;
    double since_ = 0;
    double until_ = 0;
    int generation_ = 0;
};
