#pragma once
// A desktop notification when a signal takes the ticker over: where the strip
// cannot be seen (another workspace, a Wayland session, a hidden bar) a big
// trade would otherwise go unnoticed.
//
// TakeoverNotifier decides (on, not seen before) and composes; the sink puts
// the result on screen. The default sink is FreedesktopNotifications, the
// org.freedesktop.Notifications service over the session bus; without that
// service the notification is silently absent.

#include "Model/Signal.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QUrl>

#include <deque>
#include <functional>
#include <optional>

struct DesktopNotification {
    QString summary; // what: "WHALE · BONK"
    QString body;    // how big: "bought by 0x12…ef · $48.2K"
    QUrl link;       // http(s) only; empty means no "Open chart" action
    QString activation; // non-empty: a click on the notification hands it to onActivate
    bool operator==(const DesktopNotification &) const = default;
};

class TakeoverNotifier : public QObject {
    Q_OBJECT
public:
    using Sink = std::function<void(const DesktopNotification &)>;
    using LinkLookup = std::function<std::optional<QUrl>(const QString &signalId)>;
    using Enabled = std::function<bool()>;

    TakeoverNotifier(Enabled enabled, LinkLookup link, Sink sink, QObject *parent = nullptr);

    // The ticker was just taken over by this signal. Returns whether a
    // notification went to the sink.
    bool takeover(const Signal &signal);

    static DesktopNotification compose(const Signal &signal, const std::optional<QUrl> &link);

    // Ids already notified, kept for the last this-many takeovers.
    static constexpr int rememberedIds = 512;
    static constexpr int maxSummaryChars = 80;
    static constexpr int maxBodyChars = 200;

private:
    Enabled enabled_;
    LinkLookup link_;
    Sink sink_;
    QSet<QString> seen_;
    std::deque<QString> order_;
};

class FreedesktopNotifications : public QObject {
    Q_OBJECT
public:
    static constexpr const char *service = "org.freedesktop.Notifications";
    static constexpr const char *path = "/org/freedesktop/Notifications";
    static constexpr const char *interface = "org.freedesktop.Notifications";
    static constexpr const char *openChartKey = "open-chart";

    explicit FreedesktopNotifications(const QDBusConnection &bus = QDBusConnection::sessionBus(),
                                      QObject *parent = nullptr);

    void show(const DesktopNotification &n);

    // Opens the chart of an "Open chart" click; the app passes the desktop's
    // URL handler, tests their own.
    std::function<void(const QUrl &)> openUrl;
    // A click on a notification that carries an activation.
    std::function<void(const QString &)> onActivate;

    // Texts go out plain: when the server renders markup, <, > and & in wire
    // text are escaped so they show as typed.
    static QString bodyFor(const QString &text, bool serverRendersMarkup);

private Q_SLOTS:
    void actionInvoked(uint id, const QString &actionKey);
    void notificationClosed(uint id, uint reason);

private:
    void send(const DesktopNotification &n);

    QDBusConnection bus_;
    // The body is escaped or not by what the server renders: notifications
    // wait (a few at most) until it has said.
    bool capabilitiesKnown_ = false;
    bool markup_ = true;
    QList<DesktopNotification> waiting_;
    QHash<uint, QUrl> links_;
    QHash<uint, QString> activations_;
};
