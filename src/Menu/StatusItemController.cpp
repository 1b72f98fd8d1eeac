#include "Menu/StatusItemController.h"

#include "Feed/FeedStore.h"
#include "Menu/BarShade.h"
#include "Menu/FocalDirector.h"
#include "Menu/MenuLook.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StripPlacement.h"
#include "Menu/StripWindow.h"
#include "Menu/X11Desktop.h"
#include "Support/Log.h"
#include "Support/StallProbe.h"

#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTimer>

#include <cmath>

void StatusItemController::trustWorkArea()
{
    if (!qEnvironmentVariableIsSet("QT_RELY_ON_NET_WORKAREA_ATOM"))
        qputenv("QT_RELY_ON_NET_WORKAREA_ATOM", "1");
}

void StatusItemController::preferXcbOnWayland()
{
    if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        return;
    if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && qEnvironmentVariableIsSet("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

StatusItemController::StatusItemController(FeedStore *store, QObject *parent) : QObject(parent), store_(store)
{
    // First of all: the strip's first placement already looks at the bar.
    barShade_ = new BarShade(this);
    barShade_->where = [this]() -> std::optional<BarShade::Spot> {
        if (!strip_ || !view_)
            return std::nullopt;
        return BarShade::Spot{strip_->screen(),
                              asked_.isEmpty() ? QRect(strip_->pos(), strip_->size()) : asked_};
    };
    barShade_->onLook = [this](const std::optional<QColor> &bar) { applyBarColour(bar); };
    strip_ = new StripWindow();
    strip_->onClick = [this](Qt::MouseButton button, const QPoint &at) {
        trayClicked_ = false;
        handleClick(button, at);
    };
    strip_->onPress = [this] { openPanel(); };
    strip_->onShowMenu = [this](const QPoint &at) { handleClick(Qt::RightButton, at); };
    strip_->onThemeChange = [this] { followBarColour(true); };
    MenuLook::applyToolTips();
    view_ = new StatusStreamView(strip_);
    // The director ages trades on the store's clock, the one their times were taken on.
    focalDirector_ = new FocalDirector([store] { return store->now(); }, FocalDirector::holdMs, this);
    // Whatever comes before the tape's own backfill (the radar often answers
    // first) is part of the start, not news: the warm-up lasts until then.
    if (!store_->backfilled()) {
        focalDirector_->holdWarmUp();
        connect(store_, &FeedStore::backfillArrived, this, [this] {
            focalDirector_->releaseWarmUp();
            focalDirector_->consider(store_->signalList(), store_->preferences().focalUsd,
                                     store_->watchedHandles());
        });
    }

    // Work-area and screen changes come in bursts (a panel starting sets its
    // strut, then resizes): one placement after the burst.
    placeTask_ = new QTimer(this);
    placeTask_->setSingleShot(true);
    placeTask_->setInterval(150);
    connect(placeTask_, &QTimer::timeout, this, &StatusItemController::place);
    const auto watch = [this](QScreen *screen) {
        connect(screen, &QScreen::availableGeometryChanged, placeTask_, qOverload<>(&QTimer::start));
        connect(screen, &QScreen::geometryChanged, placeTask_, qOverload<>(&QTimer::start));
    };
    for (QScreen *screen : QGuiApplication::screens())
        watch(screen);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, [this, watch](QScreen *screen) {
        watch(screen);
        placeTask_->start();
    });
    connect(qGuiApp, &QGuiApplication::screenRemoved, placeTask_, qOverload<>(&QTimer::start));
    connect(qGuiApp, &QGuiApplication::primaryScreenChanged, placeTask_, qOverload<>(&QTimer::start));
    // Qt does not tell of every change X knows (a bar's strut on a second
    // monitor, monitors redrawn by RandR): listen to X as well.
    X11Desktop::watchLayout(this, [this] { placeTask_->start(); });

    strip_->winId(); // the native window, so the dock hints are there before it is mapped
    X11Desktop::markDock(strip_->windowHandle());
    applyStripMode();
    // A compositor that ignores positions shows where the strip really went
    // only once it is mapped.
    QTimer::singleShot(800, this, &StatusItemController::checkPlacement);

    auto considerAndRender = [this] {
        focalDirector_->consider(store_->signalList(), store_->preferences().focalUsd,
                                 store_->watchedHandles());
        render(store_->preferences().paused);
    };
    connect(store_, &FeedStore::signalsChanged, this, considerAndRender);
    connect(store_, &FeedStore::preferencesChanged, this, considerAndRender);
    connect(store_, &FeedStore::preferencesChanged, this, &StatusItemController::applyStripMode);
    connect(store_, &FeedStore::telemetryChanged, this, [this] {
        // The rail is drawn apart from the row, so a new rail never cuts a flip short.
        if (store_->telemetry().rail != view_->rail())
            view_->setRail(store_->telemetry().rail);
    });
    connect(store_, &FeedStore::linkChanged, this, [this] {
        refreshTrayMenu();
        if (store_->link() != view_->linkState()) {
            view_->setLinkState(store_->link());
            view_->applyLinkColour();
            if (view_->rows().isEmpty())
                view_->redrawRow(false);
        }
    });
    connect(store_, &FeedStore::troubleChanged, this, [this] {
        const QString tip = tooltip(*store_);
        strip_->setToolTip(tip);
        if (tray_)
            tray_->setToolTip(tip);
    });
    connect(store_, &FeedStore::heartbeatChanged, view_, &StatusStreamView::ping);
    focalDirector_->onChange = [this](const std::optional<Signal> &s) {
        applyFocal(s);
        if (s && onTakeover)
            onTakeover(*s);
        Q_EMIT focalChanged();
    };
    // No look at the (still empty) list here: the director's first look must be
    // the initial fetch, whose trades never take the strip over.

    // The tray menu exists, whole, before any tray does: a StatusNotifierItem
    // host reads the exported menu once, when the icon appears.
    trayMenu_ = new QMenu();
    MenuLook::apply(trayMenu_);
    trayStatus_ = trayMenu_->addAction(QString());
    trayStatus_->setEnabled(false);
    trayMenu_->addSeparator();
    connect(trayMenu_->addAction(QStringLiteral("Open Larkpin")), &QAction::triggered, this,
            &StatusItemController::openPanel);
    trayPause_ = trayMenu_->addAction(QString());
    connect(trayPause_, &QAction::triggered, this, &StatusItemController::togglePause);
    trayMenu_->addSeparator();
    QAction *quit = trayMenu_->addAction(QStringLiteral("Quit Larkpin"));
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    render(store_->preferences().paused);

    // The bar's shade follows the ticker's flips (see BarShade).
    connect(view_, &StatusStreamView::flipped, barShade_, &BarShade::flipped);
    barShade_->start();

    ensureTray();
    StallProbe::startIfAsked(this);
}

StatusItemController::~StatusItemController()
{
    delete strip_;
    delete trayMenu_;
}

QWidget *StatusItemController::strip() const
{
    return strip_;
}

bool StatusItemController::stripShown() const
{
    return strip_ && strip_->isVisible();
}

bool StatusItemController::stripWanted() const
{
    return !store_->preferences().trayOnly && !(positionsIgnored_ && tray_) && !barPieceAttached_;
}

void StatusItemController::setBarPieceAttached(bool attached)
{
    if (barPieceAttached_ == attached)
        return;
    barPieceAttached_ = attached;
    applyStripMode();
}

void StatusItemController::applyStripMode()
{
    const bool wanted = stripWanted();
    if (wanted == strip_->isVisible())
        return;
    if (wanted) {
        asked_ = QRect(); // placed afresh: the work area may have changed meanwhile
        askedDevice_ = QRect();
        place();
        strip_->show();
        X11Desktop::reassertDock(strip_->windowHandle());
        return;
    }
    strip_->hide();
    if (!reserved_.isEmpty()) {
        X11Desktop::reserve(strip_->windowHandle(), QRect()); // give the row back
        reserved_ = QRect();
    }
    if (!tray_ && !barPieceAttached_)
        Log::write("Larkpin",
                   QStringLiteral("no strip and no tray yet: launch Larkpin again to open its panel"));
}

bool StatusItemController::placeOnX11()
{
    const std::optional<X11Desktop::Layout> layout = X11Desktop::readLayout(strip_->windowHandle());
    if (!layout)
        return false;
    QScreen *primary = QGuiApplication::primaryScreen();
    const double scale = primary ? primary->devicePixelRatio() : 1.0;
    const QRect device = StripPlacement::stripOnMonitors(layout->monitors, layout->workArea, layout->topBars,
                                                         reserved_, scale);
    if (device.isEmpty())
        return false;
    const bool rounded = X11Desktop::compositorRunning();
    if (strip_->rounded != rounded) {
        strip_->rounded = rounded;
        strip_->update();
    }
    if (device == askedDevice_)
        return true;
    askedDevice_ = device;
    const QPoint at = StripPlacement::logicalFromDevice(device.topLeft());
    const QSize size(itemWidth, int(std::lround(device.height() / scale)));
    asked_ = QRect(at, size);
    strip_->setFixedSize(size);
    view_->setGeometry(4 + markWidth + 5, 0, itemWidth - (4 + markWidth + 5) - 4, size.height());
    strip_->move(at);
    if (!positionsIgnored_) {
        // Struts are counted in the root window's pixels, whatever Qt's scale.
        reserved_ = device;
        X11Desktop::reserve(strip_->windowHandle(), device);
    }
    followBarColour(true); // it may sit under another bar now
    return true;
}

void StatusItemController::place()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    if (!screen || !strip_ || !stripWanted())
        return;
    if (X11Desktop::active() && placeOnX11())
        return;
    const QRect reserved = screen->geometry().contains(reserved_.topLeft()) ? reserved_ : QRect();
    const QRect place =
        StripPlacement::stripGeometry(screen->geometry(), screen->availableGeometry(), reserved);
    const bool rounded = X11Desktop::compositorRunning();
    if (strip_->rounded != rounded) {
        strip_->rounded = rounded;
        strip_->update();
    }
    if (place == asked_)
        return;
    asked_ = place;
    strip_->setFixedSize(place.size());
    view_->setGeometry(4 + markWidth + 5, 0, itemWidth - (4 + markWidth + 5) - 4, place.height());
    strip_->move(place.topLeft());
    if (X11Desktop::active() && !positionsIgnored_) {
        reserved_ = place;
        X11Desktop::reserve(strip_->windowHandle(), place);
    }
    followBarColour(true); // it may sit under another bar now
}

void StatusItemController::checkPlacement()
{
    if (!strip_ || !strip_->isVisible())
        return;
    const QRect landed(strip_->mapToGlobal(QPoint(0, 0)), strip_->size());
    // Native Wayland never tells a client where its window is; a compositor
    // that ignores positions puts it top-left or mid-screen.
    const bool wayland = QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    if (!wayland && StripPlacement::placedAsAsked(asked_, landed))
        return;
    // On a busy machine the window manager may not have placed a fresh
    // window yet: look again a few times before deciding it ignores us.
    if (!wayland && ++placementLooks_ < 5) {
        QTimer::singleShot(1000, this, &StatusItemController::checkPlacement);
        return;
    }
    const auto text = [](const QRect &r) {
        return QStringLiteral("%1x%2+%3+%4").arg(r.width()).arg(r.height()).arg(r.x()).arg(r.y());
    };
    Log::write("Larkpin", QStringLiteral("the strip landed at ") + text(landed) + QStringLiteral(", asked for ") +
                              text(asked_));
    positionsIgnored_ = true;
    X11Desktop::reserve(strip_->windowHandle(),
                        QRect()); // reserving a row where we are not would only waste it
    reserved_ = QRect();
    if (tray_) {
        Log::write("Larkpin",
                   QStringLiteral("the window manager does not place the strip; running from the tray"));
        applyStripMode();
    } else {
        Log::write("Larkpin",
                   QStringLiteral("the window manager does not place the strip and there is no tray; "
                                  "keeping the strip where it landed"));
    }
}

void StatusItemController::followBarColour(bool now)
{
    barShade_->look(now);
}

void StatusItemController::applyBarColour(const std::optional<QColor> &bar)
{
    if (bar && *bar != strip_->bar) {
        Log::write("Larkpin", QStringLiteral("bar → ") + bar->name());
        strip_->bar = *bar;
        strip_->update();
    }
    view_->setDark(BarShade::isDark(strip_->bar));
    if (tray_ && trayDark_ != BarShade::isDark(strip_->bar)) {
        trayDark_ = BarShade::isDark(strip_->bar);
        tray_->setIcon(QIcon(QPixmap::fromImage(StripWindow::trayMark(*trayDark_))));
    }
}

void StatusItemController::applyFocal(const std::optional<Signal> &signal)
{
    if (!signal) {
        view_->snap(std::nullopt);
        return;
    }
    view_->snap(Focal{StreamSegment{signal->kind, signal->line}, signal->notionalUsd});
}

void StatusItemController::ensureTray()
{
    // Asked once at the start and then only when a tray manager appears, never
    // on a timer: each answer is costly where a StatusNotifierItem host exists
    // (Qt opens and closes a session-bus connection for it and blocks on its
    // calls). Once the icon is shown Qt follows the host by itself: it
    // registers again with a StatusNotifierWatcher that restarts, and docks
    // again in a new X11 tray manager.
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        // Qt decides once per process whether the D-Bus tray exists, so a
        // tray that comes later can only be an X11 one: its manager announces
        // itself on the root window, and the xcb plugin passes that on.
        if (!trayWatched_ && QGuiApplication::platformName() == QLatin1String("xcb")) {
            // The native interface is a plain QObject underneath (single
            // inheritance), and its header is not public.
            auto *native = reinterpret_cast<QObject *>(QGuiApplication::platformNativeInterface());
            trayWatched_ = native && bool(connect(native, SIGNAL(systemTrayWindowChanged(QScreen *)), this,
                                                  SLOT(trayManagerChanged())));
        }
        return;
    }
    if (!tray_) {
        trayDark_ = BarShade::isDark(strip_->bar);
        tray_ = new QSystemTrayIcon(QIcon(QPixmap::fromImage(StripWindow::trayMark(*trayDark_))), this);
        connect(tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger) {
                trayClicked_ = true;
                openPanel();
            }
        });
        tray_->setContextMenu(trayMenu_);
        tray_->setToolTip(tooltip(*store_));
        Log::write("Larkpin", QStringLiteral("tray → shown"));
        if (positionsIgnored_ && strip_->isVisible())
            Log::write("Larkpin", QStringLiteral("a tray appeared; running from the tray"));
        applyStripMode();
    }
    if (!tray_->isVisible())
        tray_->show();
}

void StatusItemController::trayManagerChanged()
{
    if (tray_)
        return; // Qt re-docks the icon it shows
    ensureTray();
}

void StatusItemController::refreshTrayMenu()
{
    if (!trayMenu_)
        return;
    const FeedFilter kinds[] = {FeedFilter::of(SignalKind::whale), FeedFilter::of(SignalKind::spike),
                                FeedFilter::of(SignalKind::stocks)};
    const QString status =
        statusLine(store_->link(), store_->count(kinds[0]), store_->count(kinds[1]), store_->count(kinds[2]));
    // Only real changes: each one is a layout update sent to the tray host.
    if (trayStatus_->text() != status)
        trayStatus_->setText(status);
    const QString pause = pauseTitle(store_->preferences().paused);
    if (trayPause_->text() != pause)
        trayPause_->setText(pause);
}

void StatusItemController::render(bool paused)
{
    QList<StreamSegment> rows;
    for (const Signal &s : store_->tickerSignals())
        rows.append(StreamSegment{s.kind, s.line});
    view_->update(rows, paused);
    const QString tip = tooltip(*store_);
    if (strip_->toolTip() != tip) {
        strip_->setToolTip(tip);
        strip_->setAccessibleDescription(tip); // announced as it changes
    }
    if (tray_ && tray_->toolTip() != tip)
        tray_->setToolTip(tip);
    refreshTrayMenu();
}

QString StatusItemController::tooltip(const FeedStore &store)
{
    const QList<Signal> ticker = store.tickerSignals();
    if (ticker.isEmpty()) {
        const QString trouble = troubleTip(store.trouble());
        return trouble.isEmpty() ? QStringLiteral("Larkpin") : trouble;
    }
    return SignalKinds::label(ticker.first().kind) + QStringLiteral("  ") + ticker.first().line.text();
}

QString StatusItemController::troubleTip(const LinkTrouble &trouble)
{
    switch (trouble.kind) {
    case LinkTrouble::none: return {};
    case LinkTrouble::unreachable:
        return QStringLiteral("Larkpin \u2014 can't reach the tape service at ") + trouble.where;
    case LinkTrouble::unverified:
        return QStringLiteral("Larkpin \u2014 can't verify the tape service at ") + trouble.where +
               QStringLiteral(" (") + trouble.why + QLatin1Char(')');
    }
    return {};
}

QString StatusItemController::statusLine(LinkState link, int whales, int spikes, int stocks)
{
    QStringList counts;
    if (whales)
        counts << QString::number(whales) + QStringLiteral(" WHALE");
    if (spikes)
        counts << QString::number(spikes) + QStringLiteral(" SPIKE");
    if (stocks)
        counts << QString::number(stocks) + QStringLiteral(" STOCK");
    const QString joined = counts.join(QStringLiteral(" · "));
    switch (link) {
    case LinkState::connecting: return QStringLiteral("Connecting…");
    case LinkState::live: return joined.isEmpty() ? QStringLiteral("Waiting for signals") : joined;
    case LinkState::polling: return joined.isEmpty() ? QStringLiteral("Reconnecting…") : joined;
    case LinkState::down: return QStringLiteral("Feed offline");
    }
    return joined;
}

QMenu *StatusItemController::buildMenu()
{
    auto *menu = new QMenu();
    MenuLook::apply(menu);
    const FeedFilter kinds[] = {FeedFilter::of(SignalKind::whale), FeedFilter::of(SignalKind::spike),
                                FeedFilter::of(SignalKind::stocks)};
    QAction *status = menu->addAction(statusLine(store_->link(), store_->count(kinds[0]),
                                                 store_->count(kinds[1]), store_->count(kinds[2])));
    status->setEnabled(false);
    menu->addSeparator();
    connect(menu->addAction(QStringLiteral("Open Larkpin")), &QAction::triggered, this,
            &StatusItemController::openPanel);
    connect(menu->addAction(pauseTitle(store_->preferences().paused)), &QAction::triggered, this,
            &StatusItemController::togglePause);
    menu->addSeparator();
    QAction *quit = menu->addAction(QStringLiteral("Quit Larkpin"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    return menu;
}

void StatusItemController::handleClick(Qt::MouseButton button, const QPoint &globalPos)
{
    if (button == Qt::RightButton) {
        QMenu *menu = buildMenu();
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(globalPos);
        return;
    }
    if (button == Qt::LeftButton && onToggle)
        onToggle();
}

void StatusItemController::openPanel()
{
    if (onToggle)
        onToggle();
}

void StatusItemController::togglePause()
{
    Preferences p = store_->preferences();
    p.paused = !p.paused;
    store_->updatePreferences(p);
}

QRect StatusItemController::anchorRect() const
{
    if (trayClicked_ && tray_ && tray_->isVisible()) {
        // A StatusNotifierItem host (KDE, Xfce, tint2) never says where the
        // icon is; the pointer that just clicked it does, except on Wayland.
        const bool wayland = QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
        QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
        if (!screen || wayland)
            screen = QGuiApplication::primaryScreen();
        return StripPlacement::trayAnchor(tray_->geometry(),
                                          wayland ? std::nullopt : std::optional<QPoint>(QCursor::pos()),
                                          screen ? screen->availableGeometry() : QRect());
    }
    if (stripShown()) {
        // Where we put the strip, while the window manager honours that: Qt
        // hears of a move only when the window manager confirms it, and a
        // click that lands right after a move (a monitor added, a bar that
        // moved) would otherwise open the panel where the strip used to be.
        if (!positionsIgnored_ && !asked_.isEmpty())
            return asked_;
        return QRect(strip_->mapToGlobal(QPoint(0, 0)), strip_->size());
    }
    if (tray_ && tray_->isVisible() && !tray_->geometry().isEmpty())
        return tray_->geometry();
    QScreen *screen = QGuiApplication::primaryScreen();
    return screen ? StripPlacement::cornerAnchor(screen->availableGeometry()) : QRect();
}
