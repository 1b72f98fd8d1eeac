#include "Desktop/Notifier.h"

#include "Support/Log.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

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

bool TakeoverNotifier::takeover(const Signal &signal)
{
    if (signal.id.isEmpty() || seen_.contains(signal.id))
        return false;
    // Remembered even while off, so switching notifications on does not
    // announce a takeover that is already over.
    seen_.insert(signal.id);
    order_.push_back(signal.id);
    if (order_.size() > size_t(rememberedIds)) {
        seen_.remove(order_.front());
        order_.pop_front();
    }
    if ((enabled_ && !enabled_()) || !sink_)
        return false;
    sink_(compose(signal, link_ ? link_(signal.id) : std::nullopt));
    return true;
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
        if (waiting_.size() < 4)
            waiting_ << n;
        return;
    }
    send(n);
}

void FreedesktopNotifications::send(const DesktopNotification &n)
{
    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(path),
                                                       QLatin1String(interface), QStringLiteral("Notify"));
    QStringList actions;
    if (!n.link.isEmpty())
        actions << QLatin1String(openChartKey) << QStringLiteral("Open chart");
    if (!n.activation.isEmpty())
        actions << QStringLiteral("default") << QStringLiteral("Show");
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("larkpin"));
    hints.insert(QStringLiteral("category"), QStringLiteral("x-larkpin.focus"));
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue(uchar(1)));
    call << QStringLiteral("Larkpin") << uint(0) << QStringLiteral("larkpin") << n.summary
         << bodyFor(n.body, markup_) << actions << hints << int(-1);
    // No service, or a slow one: the notification is simply not shown.
    auto *watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call, 3000), this);
    const QUrl link = n.link;
    const QString activation = n.activation;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, link, activation](QDBusPendingCallWatcher *w) {
        QDBusPendingReply<uint> reply = *w;
        if (reply.isValid() && !activation.isEmpty()) {
            if (activations_.size() >= 64)
                activations_.erase(activations_.begin());
            activations_.insert(reply.value(), activation);
        }
        if (reply.isValid()) {
            if (!link.isEmpty()) {
                // A server that never reports closing must not grow this forever.
                if (links_.size() >= 64)
                    links_.erase(links_.begin());
                links_.insert(reply.value(), link);
            }
        } else {
            qCDebug(lcNotify) << "no notification shown:" << reply.error().message();
        }
        w->deleteLater();
    });
}

void FreedesktopNotifications::actionInvoked(uint id, const QString &actionKey)
{
    // Every application's notifications raise this signal: only our ids count.
    if (actionKey == QLatin1String("default")) {
        const QString activation = activations_.take(id);
        if (!activation.isEmpty() && onActivate)
            onActivate(activation);
        return;
    }
    const auto it = links_.constFind(id);
    if (it == links_.constEnd() || actionKey != QLatin1String(openChartKey))
        return;
    const QUrl url = *it;
    links_.erase(it);
    if (openUrl && isWebLink(url))
        openUrl(url);
}

void FreedesktopNotifications::notificationClosed(uint id, uint)
{
    links_.remove(id);
    activations_.remove(id);
}
