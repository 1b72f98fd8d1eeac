#include "Desktop/AwayWatch.h"

#include "Support/Format.h"
#include "Support/Log.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDateTime>

#include <algorithm>

namespace {
double wallClock()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

const char *idleService = "org.gnome.Mutter.IdleMonitor";
const char *idlePath = "/org/gnome/Mutter/IdleMonitor/Core";
} // namespace

AwayWatch::AwayWatch(QObject *parent)
    : AwayWatch(AllSources, QDBusConnection::systemBus(), QDBusConnection::sessionBus(), wallClock, parent)
{
}

AwayWatch::AwayWatch(int sources, const QDBusConnection &systemBus, const QDBusConnection &sessionBus,
                     std::function<double()> now, QObject *parent)
    : QObject(parent), session_(sessionBus), now_(std::move(now))
{
    if ((sources & Sleep) && systemBus.isConnected()) {
        QDBusConnection bus = systemBus;
        watchesSleep_ = bus.connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                                    QStringLiteral("org.freedesktop.login1.Manager"),
                                    QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
    }
    if (!session_.isConnected())
        return;
    if (sources & ScreenSaver) {
        // Either name may be served (KDE, Xfce, GNOME); both say the same.
        const bool a = session_.connect(QString(), QStringLiteral("/org/freedesktop/ScreenSaver"),
                                        QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("ActiveChanged"),
                                        this, SLOT(screenSaverActiveChanged(bool)));
        const bool b = session_.connect(QString(), QStringLiteral("/org/gnome/ScreenSaver"),
                                        QStringLiteral("org.gnome.ScreenSaver"), QStringLiteral("ActiveChanged"), this,
                                        SLOT(screenSaverActiveChanged(bool)));
        watchesScreenSaver_ = a || b;
    }
    if (sources & Idle) {
        watchesIdle_ = session_.connect(QLatin1String(idleService), QLatin1String(idlePath),
                                        QStringLiteral("org.gnome.Mutter.IdleMonitor"), QStringLiteral("WatchFired"),
                                        this, SLOT(idleMonitorFired(uint)));
        if (watchesIdle_)
            armIdle();
    }
}

void AwayWatch::armIdle()
{
    // Only where the desktop runs the monitor; asking elsewhere costs one
    // failed call and nothing more.
    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(idleService), QLatin1String(idlePath),
                                                       QStringLiteral("org.gnome.Mutter.IdleMonitor"),
                                                       QStringLiteral("AddIdleWatch"));
    call << quint64(idleMs);
    auto *w = new QDBusPendingCallWatcher(session_.asyncCall(call, 3000), this);
    connect(w, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        QDBusPendingReply<uint> reply = *w;
        if (reply.isValid())
            idleWatch_ = reply.value();
        w->deleteLater();
    });
}

void AwayWatch::idleMonitorFired(uint id)
{
    if (id == 0)
        return;
    if (id == idleWatch_) {
        begin(now_() - double(idleMs) / 1000.0);
        QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(idleService), QLatin1String(idlePath),
                                                           QStringLiteral("org.gnome.Mutter.IdleMonitor"),
                                                           QStringLiteral("AddUserActiveWatch"));
        auto *w = new QDBusPendingCallWatcher(session_.asyncCall(call, 3000), this);
        connect(w, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
            QDBusPendingReply<uint> reply = *w;
            if (reply.isValid())
                activeWatch_ = reply.value();
            w->deleteLater();
        });
    } else if (id == activeWatch_) {
        activeWatch_ = 0; // a user-active watch fires once
        end(QStringLiteral("input"));
    }
}

void AwayWatch::prepareForSleep(bool sleeping)
{
    if (sleeping)
        begin(now_());
    else
        end(QStringLiteral("resume"));
}

void AwayWatch::screenSaverActiveChanged(bool active)
{
    if (active)
        begin(now_());
    else
        end(QStringLiteral("unlock"));
}

void AwayWatch::begin(double at)
{
    // Locked, then asleep: away since the first of them.
    if (since_)
        return;
    since_ = at;
    Q_EMIT wentAway(at);
}

void AwayWatch::end(const QString &how)
{
    if (!since_)
        return;
    const double since = *since_;
    since_.reset();
    Q_EMIT cameBack(since, now_(), how);
}

namespace AwaySummary {
namespace {
QString counted(int n, SignalKind kind)
{
    switch (kind) {
    case SignalKind::whale: return QString::number(n) + (n == 1 ? QStringLiteral(" whale") : QStringLiteral(" whales"));
    case SignalKind::spike: return QString::number(n) + (n == 1 ? QStringLiteral(" spike") : QStringLiteral(" spikes"));
    case SignalKind::stocks:
        return QString::number(n) + (n == 1 ? QStringLiteral(" stock move") : QStringLiteral(" stock moves"));
    }
    return {};
}

// "$1.20M" -> "$1.2M", "$400.0K" -> "$400K": a summary reads as words.
QString compactUsd(double usd)
{
    QString text = Format::usd(usd);
    const qsizetype point = text.indexOf(QLatin1Char('.'));
    if (point < 0)
        return text;
    qsizetype end = text.size();
    while (end > point && !text.at(end - 1).isDigit())
        --end; // the unit
    const QString unit = text.mid(end);
    qsizetype keep = end;
    while (keep > point + 1 && text.at(keep - 1) == QLatin1Char('0'))
        --keep;
    if (keep == point + 1)
        keep = point;
    return text.left(keep) + unit;
}

QString oneLine(QString s, int max)
{
    for (QChar &c : s)
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            c = QLatin1Char(' ');
    s = s.simplified();
    return s.size() > max ? s.left(max - 1) + QChar(0x2026) : s;
}
} // namespace

QString body(const QList<HistoryEntry> &entries)
{
    if (entries.isEmpty())
        return {};
    int counts[3] = {0, 0, 0};
    const HistoryEntry *largest = nullptr;
    for (const HistoryEntry &e : entries) {
        ++counts[int(e.signal.kind)];
        if (e.signal.notionalUsd && (!largest || *e.signal.notionalUsd > *largest->signal.notionalUsd))
            largest = &e;
    }
    QStringList parts;
    for (SignalKind k : SignalKinds::allCases)
        if (counts[int(k)] > 0)
            parts << counted(counts[int(k)], k);
    QString out = parts.join(QStringLiteral(", "));
    if (largest)
        out += QStringLiteral(", largest ") + compactUsd(*largest->signal.notionalUsd) + QStringLiteral(" on ") +
               oneLine(largest->signal.line.ticker, 24);
    return out;
}

QString text(const QList<HistoryEntry> &entries)
{
    const QString b = body(entries);
    return b.isEmpty() ? QString() : QStringLiteral("While you were away: ") + b;
}
} // namespace AwaySummary

AwayNotifier::AwayNotifier(AwayWatch *watch, Query query, Reader reader, Sink sink, QObject *parent)
    : QObject(parent), query_(std::move(query)), reader_(std::move(reader)), sink_(std::move(sink))
{
    settle_.setSingleShot(true);
    connect(&settle_, &QTimer::timeout, this, [this] {
        HistoryQuery q = query_ ? query_() : HistoryQuery{};
        q.since = since_;
        q.until = until_ + settleMs_ / 1000.0; // a backfill lands stamped before the return
        const int generation = ++generation_;
        const double since = since_, until = until_;
        reader_(q, [this, generation, since, until](const QList<HistoryEntry> &entries) {
            if (generation != generation_ || entries.isEmpty())
                return;
            Summary s;
            s.since = since;
            s.until = until;
            s.text = AwaySummary::text(entries);
            s.body = AwaySummary::body(entries);
            if (sink_)
                sink_(s);
        });
    });
    if (watch)
        connect(watch, &AwayWatch::cameBack, this, [this](double since, double until, const QString &) {
            comeBack(since, until);
        });
}

void AwayNotifier::comeBack(double since, double until)
{
    if (until - since < minAwaySeconds)
        return;
    // Two returns close together (unlock, then resume): one summary, of the
    // whole time away.
    if (settle_.isActive())
        since = std::min(since, since_);
    since_ = since;
    until_ = until;
    settle_.start(settleMs_);
}
