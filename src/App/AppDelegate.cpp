#include "App/AppDelegate.h"

#include "Desktop/Notifier.h"
#include "Feed/FeedStore.h"
#include "Menu/StatusItemController.h"
#include "Menu/TickerBus.h"
#include "Panel/PanelController.h"
#include "Panel/PanelModel.h" // the controller's inline accessors need it whole
#include "App/Snapshot.h"
#include "Support/Log.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QEventLoop>
#include <QTimer>


AppDelegate::AppDelegate(QObject *parent) : QObject(parent), store_(std::make_unique<FeedStore>()) {}

AppDelegate::~AppDelegate()
{
    shutdown();
    // The views observe the store: they go first.
    tickerBus_.reset();
    statusItem_.reset();
    notifier_.reset();
    notifications_.reset();
    panel_.reset();
}

bool AppDelegate::start()
{
    if (qEnvironmentVariableIsSet("LARKPIN_SNAPSHOT")) {
        const QString dir = qEnvironmentVariable("LARKPIN_SNAPSHOT");
        QString error;
        if (!Snapshot::prepareDirectory(dir, &error)) {
            Log::critical(lcApp(), QStringLiteral("snapshot mode failed: ") + error);
            return false;
        }
        store_->start();
        Snapshot::run(dir, *store_, [dir](bool ok, const QString &failure) {
            if (ok) {
                // Always printed: it is the one line a developer waits for.
                Log::write("Larkpin", QStringLiteral("snapshots written to ") +
                                          (dir.isEmpty() ? QStringLiteral(".") : dir));
                QCoreApplication::exit(0);
            } else {
                Log::critical(lcApp(), QStringLiteral("snapshot mode failed: ") + failure);
                QCoreApplication::exit(1);
            }
        });
        return true;
    }

    panel_ = std::make_unique<PanelController>(store_.get());
    statusItem_ = std::make_unique<StatusItemController>(store_.get());
    statusItem_->onToggle = [this] { togglePanel(); };

    FeedStore *store = store_.get();
    notifier_ = std::make_unique<TakeoverNotifier>(
        [store] { return store->preferences().notifyTakeovers; },
        [store](const QString &id) -> std::optional<QUrl> {
            const auto it = store->details().constFind(id);
            return it == store->details().constEnd() ? std::nullopt : it->links.chart;
        },
        [this](const DesktopNotification &n) {
            // Met on the first takeover, not at start-up: asking the bus for
            // the notification service may start one, and most sessions never
            // see a takeover that notifies.
            if (!notifications_) {
                notifications_ = std::make_unique<FreedesktopNotifications>();
                notifications_->openUrl = [](const QUrl &url) { QDesktopServices::openUrl(url); };
            }
            notifications_->show(n);
        });
    statusItem_->onTakeover = [this](const Signal &s) { notifier_->takeover(s); };
    // The ticker on the session bus, for a piece of the desktop's own bar.
    tickerBus_ = std::make_unique<TickerBus>();
    tickerBus_->follow(statusItem_.get(), store_.get());
    tickerBus_->onTogglePanel = [this](const QRect &anchor) { togglePanelAt(anchor); };
    tickerBus_->onOpenPanel = [this](const QRect &anchor) { openPanelAt(anchor); };
    tickerBus_->onQuit = [] { QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection); };
    tickerBus_->publish();
    store_->start();
    return true;
}

void AppDelegate::togglePanel()
{
    if (statusItem_)
        togglePanelAt(statusItem_->anchorRect());
}

void AppDelegate::openPanel()
{
    if (statusItem_)
        openPanelAt(statusItem_->anchorRect());
}

void AppDelegate::togglePanelAt(const QRect &anchor)
{
    if (!panel_)
        return;
    if (panel_->isVisible()) {
        panel_->close();
        return;
    }
    if (shouldOpen(false, panel_->secondsSinceClosed()))
        panel_->show(anchor);
}

void AppDelegate::openPanelAt(const QRect &anchor)
{
    if (panel_ && !panel_->isVisible())
        panel_->show(anchor);
}

void AppDelegate::shutdown()
{
    if (terminated_ || !store_)
        return;
    terminated_ = true;
    store_->stop();
    // The close frame (1001) is only queued by stop(); give the socket a
    // moment of event loop to put it on the wire before the process ends.
    QEventLoop flush;
    QTimer::singleShot(250, &flush, &QEventLoop::quit);
    flush.exec();
}
