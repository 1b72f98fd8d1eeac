#include "Feed/FillGate.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <vector>

void FillGate::noteClock(const QByteArray &dateHeader)
{
    if (dateHeader.isEmpty())
        return;
    // HTTP dates end in "GMT", which this Qt's RFC 2822 reader does not take.
    QString text = QString::fromLatin1(dateHeader).trimmed();
    if (text.endsWith(QLatin1String(" GMT")))
        text = text.chopped(3) + QStringLiteral("+0000");
    const QDateTime date = QDateTime::fromString(text, Qt::RFC2822Date);
    if (!date.isValid())
        return;
    // The header has whole seconds and the answer took its time: only a
    // difference well past both is a skew. Estimates of one skew differ by a
    // second or so; the offset moves only when the clocks really moved, or
    // every stamp would shift a little with each answer (and a fill seen
    // before could read as newer than the newest taken).
    const double offset = double(date.toSecsSinceEpoch()) - now_();
    if (std::fabs(offset - clockOffset_) > offsetSettle)
        clockOffset_ = std::fabs(offset) > skewThreshold ? offset : 0;
    if (clockOffset_ != 0 && !skewLogged_) {
        skewLogged_ = true;
        say(QStringLiteral("clock skew: the tape service's clock is ") +
            QString::number(std::fabs(offset), 'f', 0) +
            (offset > 0 ? QStringLiteral(" s ahead of") : QStringLiteral(" s behind")) +
            QStringLiteral(" this machine's; its stamps are read in local time"));
    }
}

bool FillGate::readStamp(double &ts, const char *what)
{
    const double now = now_();
    const double local = ts - clockOffset_;
    if (!std::isfinite(ts) || ts < earliestStamp || local > now + maxStampAhead) {
        say(QLatin1String(what) + QStringLiteral(" stamped ") + QString::number(ts, 'g', 12) +
            QStringLiteral(" is out of range, dropped"));
        return false;
    }
    if (local > now) {
        // A stamp a little ahead happened now: it must not sit above newer
        // fills, nor outlive them.
        if (local - now > skewThreshold && !aheadLogged_) {
            aheadLogged_ = true;
            say(QStringLiteral("clock skew: stamps run ") + QString::number(local - now, 'f', 0) +
                QStringLiteral(" s ahead of this machine's clock; taken as now"));
        }
        ts = now;
        return true;
    }
    ts = local;
    return true;
}

QList<TwFill> FillGate::admit(QList<TwFill> fills, bool gated)
{
    // Malformed stamps drop their fill here; the rest keep the service's own
    // stamp until they are handed on. The mark compares those: read in local
    // time (offset, clamped to now) one fill would read differently from one
    // answer to the next.
    const qsizetype before = fills.size();
    qsizetype good = 0;
    for (qsizetype i = 0; i < fills.size(); ++i)
        if (double local = fills[i].ts; readStamp(local, "a fill"))
            fills[good++] = std::move(fills[i]);
    fills.resize(good);
    stampsDropped_ += before - good;
    if (fills.isEmpty())
        return {};

    const double newest = std::ranges::max(fills, {}, &TwFill::ts).ts;
    const bool noneAbove =
        std::ranges::all_of(fills, [this](const TwFill &f) { return f.id <= lastFillId_; });
    if (lastFillId_ > 0 && noneAbove && newest > markTs_) {
        // Fills newer than anything taken, all under the mark: the service
        // numbers its fills afresh (a redeploy). The mark follows it, and so
        // does everyone who remembers ids.
        const qint64 old = lastFillId_;
        lastFillId_ = 0;
        markTs_ = 0;
        leapCandidate_.reset();
        ++restarts_;
        say(QStringLiteral("tape restarted: fill ids begin again below ") + QString::number(old) +
            QStringLiteral(", following the new numbering"));
        if (onRestart)
            onRestart();
    }

    QList<TwFill> kept;
    kept.reserve(fills.size());
    if (lastFillId_ == 0) {
        // Nothing taken yet: the mark is the newest id that sits with the
        // others. An id far above the median waits like a leap.
        std::vector<qint64> ids;
        ids.reserve(size_t(fills.size()));
        for (const TwFill &f : fills)
            ids.push_back(f.id);
        std::nth_element(ids.begin(), ids.begin() + qsizetype(ids.size() / 2), ids.end());
        const qint64 median = ids[ids.size() / 2];
        for (const TwFill &f : fills) {
            if (f.id <= median || f.id - median <= idLeap) {
                lastFillId_ = std::max(lastFillId_, f.id);
                markTs_ = std::max(markTs_, f.ts);
            } else {
                leapCandidate_ = f.id;
            }
        }
        kept = std::move(fills);
    } else {
        for (TwFill &f : fills) {
            if (f.id <= lastFillId_) {
                if (!gated)
                    kept.append(std::move(f)); // the backfill refills the panel
                continue;
            }
            if (f.id - lastFillId_ > idLeap) {
                if (leapCandidate_ && *leapCandidate_ != f.id &&
                    std::max(*leapCandidate_, f.id) - std::min(*leapCandidate_, f.id) <= idLeap) {
                    say(QStringLiteral("fill ids leapt from ") + QString::number(lastFillId_) +
                        QStringLiteral(" to ") + QString::number(f.id) + QStringLiteral(", following"));
                    lastFillId_ = std::max(*leapCandidate_, f.id);
                    markTs_ = std::max(markTs_, f.ts);
                    leapCandidate_.reset();
                } else {
                    leapCandidate_ = f.id; // taken, but the mark stays
                }
                kept.append(std::move(f));
                continue;
            }
            lastFillId_ = f.id;
            markTs_ = std::max(markTs_, f.ts);
            kept.append(std::move(f));
        }
    }
    for (TwFill &f : kept)
        readStamp(f.ts, "a fill"); // in range: only read in local time
    return kept;
}
