#include "Panel/PanelController.h"

#include "Feed/FeedStore.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelQml.h"
#include "Panel/PanelStyle.h"

#include <QCursor>
#include <QEasingCurve>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QScreen>
#include <QTimer>
#include <QVariantAnimation>

#include <limits>

namespace {
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

PanelController::PanelController(FeedStore *store, QObject *parent)
    : QObject(parent), store_(store), engine_(std::make_unique<QQmlEngine>()),
      window_(std::make_unique<HUDWindow>())
{
    PanelQml::configureEngine(*engine_, window_->devicePixelRatio());
    // Where a compositor runs, the window is larger than the panel by a
    // transparent margin its soft shadow falls into.
    margin_ = PanelStyle::compositorRunning() ? PanelStyle::shadowMarginWanted : 0;
    if (auto *style = qobject_cast<PanelStyle *>(
            engine_->rootContext()->contextProperty(QStringLiteral("hud")).value<QObject *>()))
        style->setShadowMargin(margin_);
    const QSize outer(width + 2 * margin_, height + 2 * margin_);
    window_->resize(outer);
    window_->setMinimumSize(outer);
    window_->setMaximumSize(outer);
    window_->setTitle(QStringLiteral("Larkpin"));
    window_->onEscape = [this] {
        // An open context menu takes the Escape; the panel stays.
        if (model_ && model_->dismissMenus())
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

    animation_ = new QVariantAnimation(this);
    animation_->setStartValue(0.0);
    animation_->setEndValue(1.0);
}

PanelController::~PanelController()
{
    animation_->stop();
    teardown();
}

QPoint PanelController::placement(const QRect &anchor, const QRect &available)
{
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
    target_ = placement(anchor, available);

    ++generation_;
    open_ = true;
    wasActive_ = false;
    teardown(); // a reopening during the fade starts from a new tree too
    build();

    animation_->stop();
    animation_->disconnect(this);
    window_->setGeometry(target_.x() - margin_, target_.y() - margin_ - slideDistance, width + 2 * margin_,
                         height + 2 * margin_);
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
    Q_EMIT closed();

    QTimer::singleShot(teardownMs, Qt::PreciseTimer, this, [this, g] {
        // A reopening during the fade moved the generation on: leave it be.
        if (generation_ != g)
            return;
        window_->hide();
        teardown();
        Q_EMIT tornDown();
    });
}

bool PanelController::isVisible() const
{
    return open_ && window_->isVisible();
}

double PanelController::secondsSinceClosed() const
{
    if (!closedAt_.isValid())
        return std::numeric_limits<double>::infinity();
    return double(closedAt_.nsecsElapsed()) / 1e9;
}

void PanelController::build()
{
    model_ = new PanelModel(store_, this);
    QString error;
    root_ = PanelQml::createHud(*engine_, model_, nullptr, &error);
    if (!root_)
        return;
    root_->setParentItem(window_->contentItem());
    root_->setSize({double(width), double(height)});
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
