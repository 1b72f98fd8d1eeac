#include "Panel/PanelController.h"

#include "Feed/FeedStore.h"
#include "History/HistoryStore.h"
#include "Menu/X11Desktop.h"
#include "Panel/MemoryRelease.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelQml.h"
#include "Panel/PanelStyle.h"
#include "Support/Log.h"

#include <QCursor>
#include <QEasingCurve>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QRegion>
#include <QSGRendererInterface>
#include <QScreen>
#include <QTimer>
#include <QVariantAnimation>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
// A line per opening, closing and release for scripts/measure, with the
// figure a user feels: how long an opening took to its first frame.
void note(const QString &what)
{
    static const bool log = Log::enabledByEnvironment();
    if (log)
        Log::write("Larkpin", QStringLiteral("panel → ") + what);
}

// Headless platforms draw no windows: they fade nothing and say so on every frame.
bool fades()
{
    static const bool headless = QGuiApplication::platformName() == QLatin1String("offscreen") ||
                                 QGuiApplication::platformName() == QLatin1String("minimal");
    return !headless;
}
void setWindowOpacity(QWindow *window, double opacity)
{
    // Wayland has no window opacity: its plugin only warns, on every frame.
    static const bool opacityWorks = !QGuiApplication::platformName().startsWith(QLatin1String("wayland"));
    if (fades() && opacityWorks)
        window->setOpacity(opacity);
}
} // namespace

HUDWindow::HUDWindow()
{
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    QSurfaceFormat format = this->format();
    format.setAlphaBufferSize(8);
    setFormat(format);
    setColor(Qt::transparent);
}

bool HUDWindow::event(QEvent *event)
{
    if (event->type() == QEvent::KeyPress || event->type() == QEvent::ShortcutOverride) {
        auto *key = static_cast<QKeyEvent *>(event);
        if (key->key() == Qt::Key_Escape) {
            event->accept();
            if (event->type() == QEvent::KeyPress && onEscape)
                onEscape();
            return true; // the key goes no further
        }
    }
    return QQuickWindow::event(event);
}

PanelController::PanelController(FeedStore *store, QObject *parent) : QObject(parent), store_(store)
{
    animation_ = new QVariantAnimation(this);
    animation_->setStartValue(0.0);
    animation_->setEndValue(1.0);
    releaseTimer_.setSingleShot(true);
    releaseTimer_.setInterval(defaultReleaseMs);
    connect(&releaseTimer_, &QTimer::timeout, this, &PanelController::release);
}

PanelController::~PanelController()
{
    animation_->stop();
    teardown();
    window_.reset(); // before the engine its items came from
    engine_.reset();
}

void PanelController::chooseGraphicsApi()
{
    static const bool chosen = [] {
        if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND") && !qEnvironmentVariableIsSet("QSG_RHI_BACKEND"))
            QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        return true;
    }();
    Q_UNUSED(chosen);
}

void PanelController::create()
{
    chooseGraphicsApi();
    engine_ = std::make_unique<QQmlEngine>();
    window_ = std::make_unique<HUDWindow>();
    // Where a compositor runs, the window is larger than the panel by a
    // transparent margin its soft shadow falls into.
    margin_ = PanelStyle::compositorRunning() ? PanelStyle::shadowMarginWanted : 0;
    PanelQml::configureEngine(*engine_, window_->devicePixelRatio(), margin_);
    window_->setTitle(QStringLiteral("Larkpin"));
    window_->onEscape = [this] {
        // Escape steps back one level (a menu, the settings, an open card);
        // only with nothing left to step back from does the panel close.
        if (model_ && model_->stepBack())
            return;
        // Leave the key handler before the tree can go.
        QTimer::singleShot(0, this, [this] { close(); });
    };
    connect(window_.get(), &QWindow::activeChanged, this, [this] {
        if (window_->isActive()) {
            wasActive_ = true;
            return;
        }
        // Only a deactivation that follows an activation counts: some
        // platforms (offscreen) never activate at all.
        if (open_ && wasActive_)
            close();
    });
    connect(window_.get(), &QQuickWindow::frameSwapped, this, [this] {
        if (!awaitingFrame_)
            return;
        awaitingFrame_ = false;
        // Mapped now, so a window manager that frames the panel has taken it
        // on and hears of this change; one that read the region while taking
        // the window on got it from the call before the mapping.
        applyInputRegion();
        // Where an opening's time goes: the engine and window (first opening
        // after a release only), the view's compilation and creation, the first frame.
        const double total = double(openedAt_.nsecsElapsed()) / 1e6;
        note(QStringLiteral("shown in %1 ms (engine and window %2 ms, view %3 ms, first frame %4 ms)")
                 .arg(total, 0, 'f', 1)
                 .arg(createMs_, 0, 'f', 1)
                 .arg(buildMs_, 0, 'f', 1)
                 .arg(total - createMs_ - buildMs_, 0, 'f', 1));
        Q_EMIT shown();
    });
}

void PanelController::release()
{
    if (open_ || !window_)
        return;
    teardown();
    // The window takes its scene graph with it; the engine its compiled
    // components, image provider and JavaScript heap.
    window_.reset();
    engine_.reset();
    // Some of it goes by deferred deletion and with the image loader's
    // thread: give that a moment before counting what is free.
    QTimer::singleShot(trimDelayMs, this, [this] {
        if (window_)
            return; // reopened meanwhile
        // What would otherwise stay resident for good (see MemoryRelease).
        MemoryRelease::dropFontCaches();
        MemoryRelease::trimHeap();
        MemoryRelease::dropPanelOnlyPages();
        note(QStringLiteral("released"));
        Q_EMIT released();
    });
}

int PanelController::fittedHeight(const QRect &anchor, const QRect &available)
{
    const bool below = anchor.center().y() < available.center().y();
    const int room = below ? available.y() + available.height() - (anchor.y() + anchor.height() + 6) - 8
                           : anchor.y() - 6 - available.top() - 8;
    return std::clamp(room, std::min(minHeight, int(height)), int(height));
}

QPoint PanelController::placement(const QRect &anchor, const QRect &available, int panelHeight)
{
    const int height = panelHeight;
    int x = anchor.x() + anchor.width() - width + 10;
    x = std::max(x, available.left() + 8);
    x = std::min(x, available.x() + available.width() - width - 8); // the right margin wins
    // An anchor in the lower half (a tray icon in a bottom bar) opens the
    // panel above it; either way it stays inside the work area.
    const bool below = anchor.center().y() < available.center().y();
    int y = below ? anchor.y() + anchor.height() + 6 : anchor.y() - 6 - height;
    y = std::max(available.top(), std::min(y, available.y() + available.height() - height));
    return {x, y};
}

void PanelController::show(const QRect &requested)
{
    QRect anchor = requested;
    if (anchor.isEmpty())
        anchor = QRect(QCursor::pos(), QSize(1, 1));
    QScreen *screen = QGuiApplication::screenAt(anchor.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    const QRect available = screen ? screen->availableGeometry() : QRect(0, 0, width, height);
    panelHeight_ = fittedHeight(anchor, available);
    target_ = placement(anchor, available, panelHeight_);

    openedAt_.start();
    releaseTimer_.stop();
    ++generation_;
    open_ = true;
    wasActive_ = false;
    awaitingFrame_ = true;
    teardown(); // a reopening during the fade starts from a new tree too
    createMs_ = 0;
    if (!window_) {
        create();
        createMs_ = double(openedAt_.nsecsElapsed()) / 1e6;
    }
    const QSize outer(width + 2 * margin_, panelHeight_ + 2 * margin_);
    window_->setMinimumSize(outer);
    window_->setMaximumSize(outer);
    build();
    buildMs_ = double(openedAt_.nsecsElapsed()) / 1e6 - createMs_;

    animation_->stop();
    animation_->disconnect(this);
    window_->setGeometry(target_.x() - margin_, target_.y() - margin_ - slideDistance, width + 2 * margin_,
                         panelHeight_ + 2 * margin_);
    applyInputRegion();
    setWindowOpacity(window_.get(), 0);
    window_->show();
    if (fades())
        window_->raise();
    window_->requestActivate();
    animation_->setDuration(slideInMs);
    animation_->setEasingCurve(PanelStyle::easeOut());
    connect(animation_, &QVariantAnimation::valueChanged, this, [this](const QVariant &v) {
        const double t = v.toDouble();
        window_->setPosition(target_.x() - margin_,
                             target_.y() - margin_ - int(std::lround(slideDistance * (1 - t))));
        setWindowOpacity(window_.get(), t);
    });
    animation_->start();
    Q_EMIT opened();
}

void PanelController::applyInputRegion()
{
    // The shadow's band is only drawn: clicks there reach what lies beneath
    // (the strip, another window), as if the panel ended at its edge.
    if (margin_ <= 0 || !window_)
        return;
    const QRect plate(margin_, margin_, width, panelHeight_);
    if (X11Desktop::active()) {
        const double dpr = window_->devicePixelRatio();
        X11Desktop::setInputRegion(window_.get(), QRect(int(std::lround(plate.x() * dpr)),
                                                        int(std::lround(plate.y() * dpr)),
                                                        int(std::lround(plate.width() * dpr)),
                                                        int(std::lround(plate.height() * dpr))));
    } else {
        window_->setMask(QRegion(plate)); // an input region where the platform has one (Wayland)
    }
}

void PanelController::close()
{
    if (!open_)
        return;
    open_ = false;
    closedAt_.start();
    const qint64 g = ++generation_;

    animation_->stop();
    animation_->disconnect(this);
    const double from = window_->opacity();
    animation_->setDuration(fadeOutMs);
    animation_->setEasingCurve(QEasingCurve::Linear);
    connect(animation_, &QVariantAnimation::valueChanged, this,
            [this, from](const QVariant &v) { setWindowOpacity(window_.get(), from * (1 - v.toDouble())); });
    animation_->start();
    note(QStringLiteral("closed"));
    Q_EMIT closed();

    QTimer::singleShot(teardownMs, Qt::PreciseTimer, this, [this, g] {
        // A reopening during the fade moved the generation on: leave it be.
        if (generation_ != g)
            return;
        window_->hide();
        teardown();
        releaseTimer_.start();
        Q_EMIT tornDown();
    });
}

bool PanelController::showSignal(const QRect &anchor, const QString &id)
{
    if (!isVisible())
        show(anchor);
    if (!model_ || id.isEmpty())
        return false;
    if (model_->showSettings())
        model_->setShowSettings(false);
    if (!model_->findSignal(id))
        model_->selectFilter(0); // every kind
    if (!model_->findSignal(id))
        return false;
    if (model_->openId() != id)
        model_->toggle(id);
    note(QStringLiteral("opened on ") + model_->openId());
    return true;
}

bool PanelController::isVisible() const
{
    return open_ && window_ && window_->isVisible();
}

double PanelController::secondsSinceClosed() const
{
    if (!closedAt_.isValid())
        return std::numeric_limits<double>::infinity();
    return double(closedAt_.nsecsElapsed()) / 1e9;
}

void PanelController::setHistory(HistoryStore *history)
{
    history_ = history;
}

void PanelController::build()
{
    model_ = new PanelModel(store_, this);
    model_->history()->setHistoryStore(history_);
    QString error;
    root_ = PanelQml::createHud(*engine_, model_, &error);
    if (!root_)
        return;
    root_->setParentItem(window_->contentItem());
    root_->setSize({double(width), double(panelHeight_)});
    root_->setPosition({double(margin_), double(margin_)});
    root_->forceActiveFocus();
}

void PanelController::teardown()
{
    if (root_) {
        root_->setParentItem(nullptr);
        delete root_.data();
    }
    if (model_)
        delete model_.data();
}
