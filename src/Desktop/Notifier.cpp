#include "Desktop/Notifier.h"

#include "Support/Format.h"
#include "Support/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QElapsedTimer>
#include <QFileInfo>

#include <utility>

namespace {
// Wire text: no control characters or line breaks, and a length a bubble can show.
QString bounded(QString text, int maxChars)
{
    for (QChar &c : text)
        if (c.unicode() < 0x20 || c.unicode() == 0x7f || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    text = text.simplified();
    if (text.size() > maxChars)
        text = text.left(maxChars - 1) + QChar(0x2026);
    return text;
}

double monotonicSeconds()
{
    static QElapsedTimer since;
    if (!since.isValid())
        since.start();
    return double(since.nsecsElapsed()) / 1e9;
}

QString noun(std::optional<SignalKind> kind, int count)
{
    QString word = QStringLiteral("signal");
    if (kind == SignalKind::whale)
        word = QStringLiteral("whale");
    else if (kind == SignalKind::spike)
        word = QStringLiteral("pile-in");
    else if (kind == SignalKind::stocks)
        word = QStringLiteral("stock trade");
    return count == 1 ? word : word + QLatin1Char('s');
}

bool isWebLink(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("http") || scheme == QLatin1String("https"));
}
} // namespace


TakeoverNotifier::TakeoverNotifier(Enabled enabled, LinkLookup link, Sink sink, QObject *parent)
    : QObject(parent), enabled_(std::move(enabled)), link_(std::move(link)), sink_(std::move(sink))
{
}

bool TakeoverNotifier::remember(const QString &id)
{
    if (id.isEmpty() || seen_.contains(id))
        return false;
    seen_.insert(id);
    order_.push_back(id);
    if (order_.size() > size_t(rememberedIds)) {
        seen_.remove(order_.front());
        order_.pop_front();
    }
    return true;
}

bool TakeoverNotifier::takeover(const Signal &signal)
{
    // Remembered even while off, so switching notifications on does not
    // announce a takeover that is already over.
    if (!remember(signal.id))
        return false;
    if ((enabled_ && !enabled_()) || !sink_)
        return false;

    const double now = clock ? clock() : monotonicSeconds();
    while (!newBubbles_.empty() && now - newBubbles_.front() >= rateWindowSeconds)
        newBubbles_.pop_front();
    const bool full = int(newBubbles_.size()) >= maxNewPerMinute;

    if (isWatched && isWatched(signal)) {
        // Its own bubble, never folded into another nor another into it; it
        // counts against the minute all the same.
        newBubbles_.push_back(now);
        publish(signal, 0);
        return true;
    }

    const bool onScreen = burst_.bubble != 0;
    const bool joins = onScreen && now - burst_.last < burstGapSeconds && now - burst_.started < burstSpanSeconds;
    if (joins || (full && onScreen)) {
        // The bubble now shows the newest takeover; the ones before it are tallied.
        burst_.kinds |= 1u << unsigned(burst_.lastKind);
        burst_.lastKind = signal.kind;
        ++burst_.count;
        burst_.last = now;
        if (signal.notionalUsd && (!burst_.largestUsd || *signal.notionalUsd > *burst_.largestUsd)) {
            burst_.largestUsd = signal.notionalUsd;
            burst_.largestTicker = signal.line.ticker;
        }
        publish(signal, burst_.bubble);
        return true;
    }
    if (full) {
        qCDebug(lcNotify) << "no bubble for" << signal.id << ": already" << maxNewPerMinute << "this minute";
        return false;
    }
    newBubbles_.push_back(now);
    burst_ = Burst{.bubble = nextBubble_++, .started = now, .last = now, .count = 1, .lastKind = signal.kind,
                   .largestUsd = signal.notionalUsd, .largestTicker = signal.line.ticker};
    publish(signal, burst_.bubble);
    return true;
}

void TakeoverNotifier::publish(const Signal &signal, quint64 bubble)
{
    DesktopNotification n = compose(signal, link_ ? link_(signal.id) : std::nullopt);
    n.bubble = bubble;
    if (bubble != 0 && bubble == burst_.bubble && burst_.count > 1) {
        std::optional<SignalKind> kind; // of all the others, when they share one
        for (SignalKind k : SignalKinds::allCases)
            if (burst_.kinds == 1u << unsigned(k))
                kind = k;
        n.body += QLatin1Char('\n') + tally(burst_.count - 1, kind, burst_.largestUsd, burst_.largestTicker);
    }
    sink_(n);
}

void TakeoverNotifier::bubbleClosed(quint64 bubble)
{
    if (bubble != 0 && bubble == burst_.bubble)
        burst_ = Burst{};
}

QString TakeoverNotifier::tally(int more, std::optional<SignalKind> kind, std::optional<double> largestUsd,
                                const QString &largestTicker)
{
    QString text = QString::number(more) + QStringLiteral(" more ") + noun(kind, more);
    if (largestUsd) {
        text += QStringLiteral(" · largest ") + Format::usd(*largestUsd);
        if (!largestTicker.isEmpty())
            text += QStringLiteral(" on ") + bounded(largestTicker, 24);
    }
    return text;
}

DesktopNotification TakeoverNotifier::compose(const Signal &signal, const std::optional<QUrl> &link)
{
    DesktopNotification n;
    QString what = SignalKinds::label(signal.kind);
    if (!signal.line.ticker.isEmpty())
        what += QStringLiteral(" · ") + signal.line.ticker;
    n.summary = bounded(what, maxSummaryChars);
    QString body = signal.line.body;
    if (signal.line.figure && !signal.line.figure->isEmpty())
        body += (body.isEmpty() ? QString() : QStringLiteral(" · ")) + *signal.line.figure;
    n.body = bounded(body, maxBodyChars);
    if (link && isWebLink(*link))
        n.link = *link;
    else if (signal.link && isWebLink(*signal.link))
        n.link = *signal.link;
    n.signalId = signal.id;
    return n;
}

FreedesktopNotifications::FreedesktopNotifications(const QDBusConnection &bus, QObject *parent)
    : QObject(parent), bus_(bus)
{
    if (!bus_.isConnected())
        return;
    const QString svc = QLatin1String(service), p = QLatin1String(path), i = QLatin1String(interface);
    bus_.connect(svc, p, i, QStringLiteral("ActionInvoked"), this, SLOT(actionInvoked(uint, QString)));
    bus_.connect(svc, p, i, QStringLiteral("NotificationClosed"), this, SLOT(notificationClosed(uint, uint)));
    auto *watcher = new QDBusPendingCallWatcher(
        bus_.asyncCall(QDBusMessage::createMethodCall(svc, p, i, QStringLiteral("GetCapabilities")), 2000),
        this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        QDBusPendingReply<QStringList> reply = *w;
        if (reply.isValid())
            markup_ = reply.value().contains(QLatin1String("body-markup"));
        capabilitiesKnown_ = true;
        w->deleteLater();
        const QList<DesktopNotification> waiting = std::exchange(waiting_, {});
        for (const DesktopNotification &n : waiting)
            send(n);
    });
}

QString FreedesktopNotifications::bodyFor(const QString &text, bool serverRendersMarkup)
{
    return serverRendersMarkup ? text.toHtmlEscaped() : text;
}

void FreedesktopNotifications::show(const DesktopNotification &n)
{
    if (!bus_.isConnected())
        return;
    if (!capabilitiesKnown_) {
        // An update replaces what it updates, also while waiting.
        if (n.bubble != 0)
            waiting_.removeIf([&](const DesktopNotification &w) { return w.bubble == n.bubble; });
        if (waiting_.size() < 4)
            waiting_ << n;
        return;
    }
    send(n);
}

void FreedesktopNotifications::send(const DesktopNotification &n)
{
    uint replaces = 0;
    if (n.bubble != 0) {
        if (const auto it = serverIds_.constFind(n.bubble); it != serverIds_.constEnd()) {
            replaces = *it;
        } else if (inFlight_.contains(n.bubble)) {
            // Its bubble's id is not known yet: the newest update goes once it is.
            heldUpdates_.insert(n.bubble, n);
            return;
        } else {
            inFlight_.insert(n.bubble);
        }
    }
    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(path),
                                                       QLatin1String(interface), QStringLiteral("Notify"));
    QStringList actions{QLatin1String(defaultKey), QStringLiteral("Open in Larkpin")};
    if (!n.link.isEmpty())
        actions << QLatin1String(openChartKey) << QStringLiteral("Open chart");
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("org.larkpin.Larkpin"));
    hints.insert(QStringLiteral("category"), QStringLiteral("x-larkpin.focus"));
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue(uchar(1)));
    // Which signal the bubble shows, for whoever inspects the bus.
    if (!n.signalId.isEmpty())
        hints.insert(QStringLiteral("x-larkpin-signal"), n.signalId);
    if (QFileInfo(icon).isAbsolute())
        hints.insert(QStringLiteral("image-path"), icon);
    call << QStringLiteral("Larkpin") << replaces << icon << n.summary << bodyFor(n.body, markup_) << actions
         << hints << int(-1);
    // No service, or a slow one: the notification is simply not shown.
    auto *watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, 3000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, n](QDBusPendingCallWatcher *w) {
        QDBusPendingReply<uint> reply = *w;
        if (!reply.isValid())
            qCDebug(lcNotify) << "no notification shown:" << reply.error().message();
        sent(n, reply.isValid() ? std::optional<uint>(reply.value()) : std::nullopt);
        w->deleteLater();
    });
}

void FreedesktopNotifications::sent(const DesktopNotification &n, std::optional<uint> serverId)
{
    if (n.bubble != 0)
        inFlight_.remove(n.bubble);
    if (!serverId) {
        if (n.bubble != 0) {
            // No bubble to update: the notifier starts a new one next time.
            heldUpdates_.remove(n.bubble);
            serverIds_.remove(n.bubble);
            if (onClosed)
                onClosed(n.bubble);
        }
        return;
    }
    // An update answers with the same id, or a new one when the old bubble
    // was gone by then.
    if (const auto old = n.bubble != 0 ? serverIds_.constFind(n.bubble) : serverIds_.constEnd();
        old != serverIds_.constEnd() && *old != *serverId)
        shown_.remove(*old);
    if (!shown_.contains(*serverId)) {
        order_.push_back(*serverId);
        // A server that never reports closing must not grow this forever.
        while (order_.size() > size_t(rememberedBubbles)) {
            const auto gone = shown_.take(order_.front());
            if (gone.bubble != 0 && serverIds_.value(gone.bubble) == order_.front())
                serverIds_.remove(gone.bubble);
            order_.pop_front();
        }
    }
    shown_.insert(*serverId, Shown{n.signalId, n.link, n.bubble, n.activation});
    if (n.bubble != 0) {
        serverIds_.insert(n.bubble, *serverId);
        if (heldUpdates_.contains(n.bubble))
            send(heldUpdates_.take(n.bubble));
    }
}

void FreedesktopNotifications::actionInvoked(uint id, const QString &actionKey)
{
    // Every application's notifications raise this signal: only our ids count.
    const auto it = shown_.constFind(id);
    if (it == shown_.constEnd())
        return;
    if (actionKey == QLatin1String(defaultKey)) {
        if (!it->activation.isEmpty()) {
            if (onActivate)
                onActivate(it->activation);
        } else if (openSignal && !it->signalId.isEmpty()) {
            openSignal(it->signalId);
        }
    } else if (actionKey == QLatin1String(openChartKey)) {
        if (openUrl && isWebLink(it->link))
            openUrl(it->link);
    }
}

void FreedesktopNotifications::notificationClosed(uint id, uint)
{
    const auto it = shown_.constFind(id);
    if (it == shown_.constEnd())
        return;
    const quint64 bubble = it->bubble;
    shown_.erase(it);
    if (bubble != 0 && serverIds_.value(bubble) == id) {
        serverIds_.remove(bubble);
        if (onClosed)
            onClosed(bubble);
    }
}
