#pragma once
// The mark over the tape's fill ids and the reading of the service's stamps:
// which fills of an answer or a frame are new, an id far above the mark that
// waits for a second before the mark follows, ids that begin again lower (a
// redeploy), stamps out of range or ahead of this machine's clock, and the
// service's clock offset from the Date headers.

#include "Model/Clock.h"
#include "Wire/TarnwickModels.h"

#include <QList>

#include <functional>
#include <optional>

class FillGate {
public:
    explicit FillGate(Clock now) : now_(std::move(now)) {}

    // A fill id further than this above the mark is a leap: the fill is taken,
    // but the mark follows only when a second fill confirms the new range, so
    // one absurd id cannot shut the gate on every later fill.
    static constexpr qint64 idLeap = 1000000;
    // Stamps: before 2009, or more than a day ahead of this machine's clock
    // (after the service's clock offset is taken out), a fill or radar entry is
    // malformed and dropped alone; less ahead than that, it happened "now".
    static constexpr double earliestStamp = 1230768000; // 2009-01-01
    static constexpr double maxStampAhead = 86400;
    // Date headers further apart from the local clock than this are a skew
    // (logged once), and the stamps are read in local time.
    static constexpr double skewThreshold = 90;
    static constexpr double offsetSettle = 5; // a new estimate within this of the last changes nothing

    // The fills to hand on, stamped in local time. Malformed stamps drop
    // their fill; gated, so does every fill at or under the mark (the backfill
    // is not gated: it refills the panel).
    QList<TwFill> admit(QList<TwFill> fills, bool gated);
    bool readStamp(double &ts, const char *what); // false: malformed
    void noteClock(const QByteArray &dateHeader);

    std::function<void()> onRestart;             // ids began again below the mark
    std::function<void(const QString &)> notice; // worth the journal, at most a few a minute

    qint64 lastFillId() const { return lastFillId_; }
    qint64 stampsDropped() const { return stampsDropped_; }
    int restarts() const { return restarts_; }
    double clockOffset() const { return clockOffset_; }

private:
    void say(const QString &message) const
    {
        if (notice)
            notice(message);
    }

    Clock now_;
    qint64 lastFillId_ = 0;
    double markTs_ = 0; // newest stamp delivered under the current numbering (the service's clock)
    std::optional<qint64> leapCandidate_; // a fill far above the mark, waiting for a second
    int restarts_ = 0;
    double clockOffset_ = 0;
    bool skewLogged_ = false;
    bool aheadLogged_ = false;
    qint64 stampsDropped_ = 0;
};
