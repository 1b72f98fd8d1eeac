#pragma once
// A desktop notification when a signal takes the ticker over: where the strip
// cannot be seen (another workspace, a Wayland session, a hidden bar) a big
// trade would otherwise go unnoticed.
//
// TakeoverNotifier decides (on, not seen before, how many bubbles a minute)
// and composes; the sink puts the result on screen. A busy tape does not
// become a column of bubbles: takeovers close together go into the bubble
// already on screen, updated in place with a tally of the burst, and at most
// maxNewPerMinute new bubbles appear in any minute. A watched wallet's trade
// always gets a bubble of its own.
//
// The default sink is FreedesktopNotifications, the org.freedesktop.Notifications
// service over the session bus; without that service the notification is
// silently absent.

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
    QString summary;  // what: "WHALE · BONK"
    QString body;     // how big: "bought by 0x12…ef · $48.2K", then the burst's tally
    QUrl link;        // http(s) only; empty means no "Open chart" action
    QString signalId; // what a click on the bubble opens in the panel
    // The notifier's own number for the bubble: a number sent before updates
    // that bubble in place; 0 is a bubble of its own that is never updated.
    quint64 bubble = 0;
    // Non-empty: a click on the bubble hands it to onActivate instead of
    // opening a signal (the away summary opens History at its time).
    QString activation;
    bool operator==(const DesktopNotification &) const = default;
};

class TakeoverNotifier : public QObject {
    Q_OBJECT
public:
    using Sink = std::function<void(const DesktopNotification &)>;
    using LinkLookup = std::function<std::optional<QUrl>(const QString &signalId)>;
    using Enabled = std::function<bool()>;
    using Watched = std::function<bool(const Signal &)>;

    TakeoverNotifier(Enabled enabled, LinkLookup link, Sink sink, QObject *parent = nullptr);

    // The ticker was just taken over by this signal. Returns whether a
    // notification (new or an update) went to the sink.
    bool takeover(const Signal &signal);
    // The server took that bubble away (closed by the user, expired): what
    // comes next needs a new one.
    void bubbleClosed(quint64 bubble);

    // Seconds on a monotonic clock; tests step it.
    std::function<double()> clock;
    // A watched wallet's takeover breaks through the limit.
    Watched isWatched;

    // The link a bubble offers: the evidence's chart when it is loaded, else
    // the one the record itself carries.
    static DesktopNotification compose(const Signal &signal, const std::optional<QUrl> &link);
    // "3 more whales · largest $1.2M on $DOGO"
    // (kind: of all the others; absent when they are of several kinds)
    static QString tally(int more, std::optional<SignalKind> kind, std::optional<double> largestUsd,
                         const QString &largestTicker);

    // Ids already notified, kept for the last this-many takeovers.
    static constexpr int rememberedIds = 512;
    static constexpr int maxSummaryChars = 80;
    static constexpr int maxBodyChars = 200;
    // New bubbles in any window of this many seconds, watched wallets aside.
    static constexpr int maxNewPerMinute = 6;
    static constexpr double rateWindowSeconds = 60;
    // A takeover this soon after the last one joins its bubble...
    static constexpr double burstGapSeconds = 30;
    // ...while that bubble is younger than this.
    static constexpr double burstSpanSeconds = 60;

private:
    bool remember(const QString &id);
    void publish(const Signal &signal, quint64 bubble);

    struct Burst {
        quint64 bubble = 0; // 0: no bubble on screen to update
        double started = 0, last = 0;
        int count = 0;
        SignalKind lastKind = SignalKind::whale; // of the one on show
        unsigned kinds = 0;                      // of the ones before it, one bit each
        std::optional<double> largestUsd;
        QString largestTicker;
    };

    Enabled enabled_;
    LinkLookup link_;
    Sink sink_;
    QSet<QString> seen_;
    std::deque<QString> order_;
    std::deque<double> newBubbles_; // when each recent new bubble went out
    Burst burst_;
    quint64 nextBubble_ = 1;
};

class FreedesktopNotifications : public QObject {
    Q_OBJECT
public:
    static constexpr const char *service = "org.freedesktop.Notifications";
    static constexpr const char *path = "/org/freedesktop/Notifications";
    static constexpr const char *interface = "org.freedesktop.Notifications";
    static constexpr const char *openChartKey = "open-chart";
    static constexpr const char *defaultKey = "default";
    // Bubbles whose clicks are still honoured; older ones are forgotten.
    static constexpr int rememberedBubbles = 64;

    explicit FreedesktopNotifications(const QDBusConnection &bus = QDBusConnection::sessionBus(),
                                      QObject *parent = nullptr);

    void show(const DesktopNotification &n);

    // Opens the chart of an "Open chart" click; the app passes the desktop's
    // URL handler, tests their own.
    std::function<void(const QUrl &)> openUrl;
    // A click on the bubble itself: the panel opens on that signal.
    std::function<void(const QString &signalId)> openSignal;
    // The notifier's bubble that the server took away.
    std::function<void(quint64 bubble)> onClosed;
    // The app's icon: a name from the icon theme or an absolute file path
    // (then also sent as the image hint, for servers that show one).
    QString icon = QStringLiteral("larkpin");
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
    void sent(const DesktopNotification &n, std::optional<uint> serverId);

    struct Shown {
        QString signalId;
        QUrl link;
        quint64 bubble = 0;
        QString activation;
    };

    QDBusConnection bus_;
    // The body is escaped or not by what the server renders: notifications
    // wait (a few at most) until it has said.
    bool capabilitiesKnown_ = false;
    bool markup_ = true;
    QList<DesktopNotification> waiting_;
    QHash<uint, Shown> shown_;           // the server's id -> what a click opens
    std::deque<uint> order_;             // of shown_, oldest first
    QHash<quint64, uint> serverIds_;     // our bubble -> the server's id
    QSet<quint64> inFlight_;             // bubbles whose first Notify has not been answered yet
    QHash<quint64, DesktopNotification> heldUpdates_; // the latest update of such a bubble
};
