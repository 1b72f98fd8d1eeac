#include "Menu/FocalDirector.h"

#include <QTimer>

FocalDirector::FocalDirector(Clock now, int holdMs, QObject *parent) : QObject(parent), now_(std::move(now))
{
    // A child timer dies with the director, so a late release can never reach a dead one.
    releaseTask_ = new QTimer(this);
    releaseTask_->setSingleShot(true);
    releaseTask_->setTimerType(Qt::PreciseTimer);
    releaseTask_->setInterval(holdMs);
    connect(releaseTask_, &QTimer::timeout, this, &FocalDirector::clear);
}

bool FocalDirector::releasePending() const
{
    return releaseTask_->isActive();
}

int FocalDirector::remainingMs() const
{
    return current_ && releaseTask_->isActive() ? std::max(0, releaseTask_->remainingTime()) : 0;
}

void FocalDirector::consider(const QList<Signal> &list, double threshold, const QSet<QString> &watched)
{
    QSet<QString> ids;
    ids.reserve(list.size());
    for (const Signal &s : list)
        ids.insert(s.id);

    if (!(threshold > 0)) {
        if (current_)
            clear();
        seen_ = ids;
        return;
    }
    const double now = now_();
    QList<const Signal *> fresh;
    for (const Signal &s : list)
        if (!seen_.contains(s.id))
            fresh.append(&s);
    seen_ = ids;

    // Whatever is there at the first call came in bulk from the initial fetch.
    if (!warmedUp_) {
        warmedUp_ = !warmUpHeld_;
        return;
    }

    const Signal *best = nullptr;
    for (const Signal *s : fresh) {
        if (!(now - s->createdAt < recencySeconds))
            continue;
        const bool sized = s->notionalUsd && *s->notionalUsd >= threshold;
        const bool loudSpike = s->kind == SignalKind::spike && s->priority >= spikePriority;
        const bool watchedTrade = !watched.isEmpty() && s->notionalUsd && s->wallet && s->wallet->label &&
                                  s->wallet->label->startsWith(QLatin1Char('@')) &&
                                  watched.contains(s->wallet->label->mid(1));
        if (!sized && !loudSpike && !watchedTrade)
            continue;
        if (!best || s->priority > best->priority)
            best = s;
    }
    if (!best)
        return;
    if (current_ && best->priority < current_->priority)
        return;

    current_ = *best;
    if (onChange)
        onChange(current_);
    releaseTask_->start(); // restarts the hold when one takeover replaces another
}

void FocalDirector::clear()
{
    releaseTask_->stop();
    if (!current_)
        return;
    current_.reset();
    if (onChange)
        onChange(std::nullopt);
}
