#include "Support/StallProbe.h"

#include "Support/Log.h"

#include <QFile>

#include <algorithm>
#include <QTimer>

void StallProbe::Window::add(const Tick &t)
{
    ++ticks;
    if (t.lateMs > worstLate.lateMs)
        worstLate = t;
    worstOwnMs = std::max(worstOwnMs, t.ownMs());
}

StallProbe *StallProbe::startIfAsked(QObject *parent)
{
    if (qEnvironmentVariable("LARKPIN_STALL_PROBE") != QLatin1String("1"))
        return nullptr;
    return new StallProbe(parent);
}

StallProbe::StallProbe(QObject *parent, int reportEveryMs)
    : QObject(parent), timer_(new QTimer(this)), reportEveryMs_(reportEveryMs)
{
    timer_->setSingleShot(true);
    timer_->setTimerType(Qt::PreciseTimer); // a coarse timer's own slack would read as lateness
    connect(timer_, &QTimer::timeout, this, &StallProbe::fired);
    clock_.start();
    windowStartNs_ = clock_.nsecsElapsed();
    arm();
}

qint64 StallProbe::queuedNs()
{
    // "time on a core, time waiting for one, slices" of this thread.
    QFile f(QStringLiteral("/proc/thread-self/schedstat"));
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = f.read(128).simplified().split(' ');
    return fields.size() >= 2 ? fields[1].toLongLong() : 0;
}

QString StallProbe::line(const Window &w, int seconds)
{
    return QStringLiteral("stall probe → %1 ticks over %2 s: latest %3 ms (%4 ms of it waiting for a core); "
                          "own stall at most %5 ms")
        .arg(w.ticks)
        .arg(seconds)
        .arg(w.worstLate.lateMs, 0, 'f', 1)
        .arg(w.worstLate.queuedMs, 0, 'f', 1)
        .arg(w.worstOwnMs, 0, 'f', 1);
}

void StallProbe::arm()
{
    armedAtNs_ = clock_.nsecsElapsed();
    queuedAtArm_ = queuedNs();
    timer_->start(probeMs);
}

void StallProbe::fired()
{
    const qint64 now = clock_.nsecsElapsed();
    Tick t;
    t.lateMs = std::max<qint64>(0, now - armedAtNs_ - qint64(probeMs) * 1000000) / 1e6;
    t.queuedMs = std::max<qint64>(0, queuedNs() - queuedAtArm_) / 1e6;
    window_.add(t);
    total_.add(t);
    if (now - windowStartNs_ >= qint64(reportEveryMs_) * 1000000)
        report();
    arm();
}

void StallProbe::report()
{
    const qint64 now = clock_.nsecsElapsed();
    Log::write("Larkpin", line(window_, int((now - windowStartNs_ + 500000000) / 1000000000)));
    window_ = Window{};
    windowStartNs_ = now;
}
