#pragma once
// The ticker as a service on the session bus, for pieces of the desktop's own
// bar (a GNOME Shell extension, a Plasma applet) that draw it in place of the
// strip. What is published is state, not frames: the row the ticker stands on,
// the takeover and how long it has left, the link, the counts, paused, and the
// accents to draw with. Each change goes out once, as PropertiesChanged with
// only what changed; the pieces animate on their own. They ask back: toggle or
// open the panel at a rectangle, show the menu at a point, pause, quit (a
// piece that draws the menu itself).
//
// A piece calls Attach() while it is on screen; the app then hides the strip
// and gives its row back. The attachment lives as long as the caller's bus
// connection, so a disabled extension or a restarted shell brings the strip
// back as soon as the bus says the name is gone.
//
// Interface org.larkpin.Ticker1 at /org/larkpin/Ticker, under the bus name
// org.larkpin.Ticker1 (queued: a second instance on another display of the
// same bus takes over when the first ends).

#include "Model/Signal.h"

#include <QDBusConnection>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QSet>
#include <QVariantMap>

#include <functional>
#include <optional>

class FeedStore;
class QDBusMessage;
class QDBusServiceWatcher;
class StatusItemController;
class TickerBusAdaptor;

// One row as the pieces draw it.
struct TickerRow {
    QString kind;      // "whale", "spike", "stocks"; empty when there is no row
    QString symbol;    // "$WIF"
    QString direction; // "buy", "sell", or empty when the row has no side
    QString amount;    // the figure as the strip prints it ("$48.2K"), may be empty
    QString text;      // the rest of the headline ("@kai aped")
    std::optional<double> usd;
    bool operator==(const TickerRow &) const = default;
    QVariantMap toMap() const;
    static TickerRow of(const Signal &signal);
};

struct TickerState {
    TickerRow row;
    int rowIndex = 0;
    int rowCount = 0;
    std::optional<TickerRow> takeover;
    int holdMs = 0; // the whole takeover's length
    QString link = QStringLiteral("connecting");
    int whales = 0, spikes = 0, stocks = 0;
    bool paused = false;
    QString status; // the menu's status line
    bool operator==(const TickerState &) const = default;
};

class TickerBus : public QObject {
    Q_OBJECT
public:
    static QString serviceName() { return QStringLiteral("org.larkpin.Ticker1"); }
    static QString objectPath() { return QStringLiteral("/org/larkpin/Ticker"); }
    static QString interfaceName() { return QStringLiteral("org.larkpin.Ticker1"); }
    static constexpr uint version = 1;
    static constexpr int maxPieces = 16; // attachments kept; more are refused

    explicit TickerBus(const QDBusConnection &bus = QDBusConnection::sessionBus(), QObject *parent = nullptr);
    ~TickerBus() override;

    // Registers the object and asks for the name. False without a bus.
    bool publish();

    // Publishes what differs from the last state.
    void setState(const TickerState &state);
    const TickerState &state() const { return state_; }
    // Left of the takeover's hold now (0 without one); set by whoever knows.
    std::function<int()> takeoverRemainingMs;

    // Requests from the pieces, in the app's global coordinates.
    std::function<void(const QRect &)> onTogglePanel;
    std::function<void(const QRect &)> onOpenPanel;
    std::function<void(const QPoint &)> onShowMenu;
    std::function<void(bool)> onSetPaused;
    std::function<void()> onQuit;

    int attachedCount() const { return int(pieces_.size()); }

    // Ties the bus to the app's ticker: state from the store, the view and the
    // director; the strip hidden while a piece is attached; the menu and pause
    // requests served by the controller. The panel stays the caller's to wire.
    void follow(StatusItemController *item, FeedStore *store);
    // The state the ticker is in now.
    static TickerState stateOf(const StatusItemController &item, const FeedStore &store);

Q_SIGNALS:
    void attachedChanged(bool attached);

private:
    friend class TickerBusAdaptor;
    QVariantMap properties() const;
    void attach(const QString &peer);
    void detach(const QString &peer);
    void emitChanged(const QVariantMap &changed);

    QDBusConnection bus_;
    TickerBusAdaptor *adaptor_ = nullptr;
    QDBusServiceWatcher *watcher_ = nullptr;
    QSet<QString> pieces_;
    TickerState state_;
    bool published_ = false;
};
