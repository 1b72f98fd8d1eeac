#pragma once
// Owns the one feed store and, in normal mode, the ticker strip / tray item and
// the floating panel. Snapshot mode runs the store and the renderer instead.

#include <QObject>
#include <QString>

#include <memory>

class FeedStore;
class PanelController;
class StatusItemController;
class TakeoverNotifier;
class TickerBus;
class QRect;
class FreedesktopNotifications;
class HistoryStore;
class AwayWatch;
class AwayNotifier;
struct DesktopNotification;

class AppDelegate : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    // Chooses the mode from the environment and starts it. Returns false (and
    // prints why) when snapshot mode cannot run, e.g. an unwritable directory.
    bool start();
    // Stops the prune timer and closes the socket (code 1001) before the
    // process ends; safe to call twice.
    void shutdown();

    // The status item's toggle: close when open; open only when the panel
    // closed more than 0.25 s ago, so the click that just closed it by
    // taking focus away does not reopen it.
    void togglePanel();
    void openPanel();
    // The same, hanging from a rectangle a bar piece gave (screen coordinates).
    void togglePanelAt(const QRect &anchor);
    void openPanelAt(const QRect &anchor);

    FeedStore &store() { return *store_; }

    static constexpr double reopenDebounceSeconds = 0.25;
    // The debounce rule on its own, for tests.
    static bool shouldOpen(bool visible, double secondsSinceClosed)
    {
        return !visible && secondsSinceClosed > reopenDebounceSeconds;
    }

private:
    void startHistory();
    void notify(const DesktopNotification &n);
    void activate(const QString &activation);

    std::unique_ptr<FeedStore> store_;
    std::unique_ptr<StatusItemController> statusItem_;
    std::unique_ptr<PanelController> panel_;
    std::unique_ptr<FreedesktopNotifications> notifications_;
    std::unique_ptr<TakeoverNotifier> notifier_;
    std::unique_ptr<HistoryStore> history_;
    std::unique_ptr<AwayWatch> away_;
    std::unique_ptr<AwayNotifier> awayNotifier_;
    std::unique_ptr<TickerBus> tickerBus_;
    bool terminated_ = false;
};
