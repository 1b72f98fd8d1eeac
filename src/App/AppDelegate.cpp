#include "App/AppDelegate.h"

#include "Desktop/AwayWatch.h"
#include "Desktop/Notifier.h"
#include "Feed/FeedStore.h"
#include "History/HistoryStore.h"
#include "Menu/StatusItemController.h"
#include "Menu/TickerBus.h"
#include "Panel/PanelController.h"
#include "Panel/PanelModel.h" // the controller's inline accessors need it whole
#include "App/Snapshot.h"
#include "Support/Log.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QEventLoop>
#include <QProcess>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>


AppDelegate::AppDelegate(QObject *parent) : QObject(parent), store_(std::make_unique<FeedStore>()) {}

AppDelegate::~AppDelegate()
{
    shutdown();
    // The views observe the store: they go first.
    tickerBus_.reset();
    statusItem_.reset();
    awayNotifier_.reset();
    away_.reset();
    panel_.reset();
    history_.reset();
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
        [this](const DesktopNotification &n) { notify(n); });
    notifier_->isWatched = [store](const Signal &s) { return store->isWatched(s); };
    statusItem_->onTakeover = [this](const Signal &s) { notifier_->takeover(s); };
    startHistory();
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

void AppDelegate::notify(const DesktopNotification &n)
{
    // Met on the first notification, not at start-up: asking the bus for
    // the notification service may start one, and most sessions never
    // see a takeover that notifies.
    if (!notifications_) {
        notifications_ = std::make_unique<FreedesktopNotifications>();
        notifications_->openUrl = [](const QUrl &url) {
            // A platform without a URL handler of its own (offscreen,
            // some minimal ones) still has the desktop's opener.
            if (!QDesktopServices::openUrl(url))
                QProcess::startDetached(QStringLiteral("xdg-open"), {url.toString(QUrl::FullyEncoded)});
        };
        notifications_->openSignal = [this](const QString &id) {
            if (panel_ && statusItem_)
                panel_->showSignal(statusItem_->anchorRect(), id);
        };
        notifications_->onActivate = [this](const QString &activation) { activate(activation); };
        notifications_->onClosed = [this](quint64 bubble) { notifier_->bubbleClosed(bubble); };
        // The icon as a file, for servers that show an image rather than
        // look the name up in the icon theme, and for a run from the build
        // tree or a private prefix, whose icon no theme knows: beside the
        // binary first (bin/../share), then where the desktop looks.
        const QString file = QStringLiteral("icons/hicolor/128x128/apps/larkpin.png");
        QString icon = QCoreApplication::applicationDirPath() + QStringLiteral("/../share/") + file;
        if (!QFileInfo::exists(icon))
            icon = QStandardPaths::locate(QStandardPaths::GenericDataLocation, file);
        if (!icon.isEmpty())
            notifications_->icon = QFileInfo(icon).canonicalFilePath();
    }
    notifications_->show(n);
}

void AppDelegate::activate(const QString &activation)
{
    // "history:<since>:<until>": open History at that time.
    const QStringList parts = activation.split(QLatin1Char(':'));
    if (parts.size() != 3 || parts.first() != QLatin1String("history") || !history_)
        return;
    history_->requestShow(parts.at(1).toDouble(), parts.at(2).toDouble());
    openPanel();
}

void AppDelegate::startHistory()
{
    // LARKPIN_HISTORY=0 keeps nothing (and measures the app without it).
    if (qEnvironmentVariable("LARKPIN_HISTORY") == QLatin1String("0"))
        return;
    // Opens nothing yet: the first batch waits out the start-up.
    history_ = std::make_unique<HistoryStore>();
    FeedStore *store = store_.get();
    HistoryStore *history = history_.get();
    connect(store, &FeedStore::signalsChanged, history, [store, history] { history->notePublished(store->signalList()); });
    connect(store, &FeedStore::detailsChanged, history, [store, history] {
        for (auto it = store->details().cbegin(); it != store->details().cend(); ++it)
            history->noteLinks(it.key(), it->links.chart, it->links.profile);
    });
    if (panel_)
        panel_->setHistory(history);

    // While you were away: what history kept at or above the focus size, once
    // per return, as a banner and one notification.
    away_ = std::make_unique<AwayWatch>();
    awayNotifier_ = std::make_unique<AwayNotifier>(
        away_.get(),
        [store] {
            HistoryQuery q;
            q.minUsd = store->preferences().focalUsd;
            q.mutedSymbols = store->preferences().mutedTokens;
            q.mutedHandles = store->preferences().mutedWallets;
            return q;
        },
        [history](const HistoryQuery &q, std::function<void(const QList<HistoryEntry> &)> done) {
            history->search(q, std::nullopt, 1000, history,
                            [done](const HistoryPage &page) { done(page.entries); });
        },
        [this, history](const AwayNotifier::Summary &s) {
            history->setAway({s.since, s.until, s.text});
            DesktopNotification n;
            n.summary = QStringLiteral("While you were away");
            n.body = s.body;
            n.activation = QStringLiteral("history:") + QString::number(s.since, 'f', 3) + QLatin1Char(':') +
                           QString::number(s.until + 60, 'f', 3);
            notify(n);
        });
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
