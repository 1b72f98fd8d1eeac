#include "Menu/StatusItemController.h"

#include "Feed/FeedStore.h"
#include "Menu/FocalDirector.h"
#include "Menu/MenuLook.h"
#include "Menu/Paint.h"
#include "Menu/StatusStreamView.h"
#include "Menu/X11Desktop.h"
#include "Support/Log.h"
#include "Support/StallProbe.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QTimer>

#include <xcb/xcb.h>

#include <cstdlib>

namespace {
// The strip for a screen reader: a button named for what it is, described by
// what it shows (its tooltip, the ticker's first signal), that opens the panel
// or its menu as a click does.
class StripAccessible : public QAccessibleWidget {
public:
    StripAccessible(QWidget *strip, StatusItemController *owner)
        : QAccessibleWidget(strip, QAccessible::Button), owner_(owner)
    {
    }
    QStringList actionNames() const override { return {pressAction(), showMenuAction()}; }
    QString localizedActionDescription(const QString &name) const override
    {
        if (name == pressAction())
            return QStringLiteral("Open or close the Larkpin panel");
        if (name == showMenuAction())
            return QStringLiteral("Show the Larkpin menu");
        return QAccessibleWidget::localizedActionDescription(name);
    }
    void doAction(const QString &name) override
    {
        const QRect r(widget()->mapToGlobal(QPoint(0, 0)), widget()->size());
        if (name == pressAction())
            owner_->openPanel();
        else if (name == showMenuAction())
            owner_->handleClick(Qt::RightButton, r.bottomLeft());
    }
    QAccessible::State state() const override
    {
        QAccessible::State s = QAccessibleWidget::state();
        s.focusable = false; // it never takes the focus from the user's window
        return s;
    }

private:
    StatusItemController *owner_;
};

} // namespace

// The strip itself: owns the clicks (the stream view is transparent to them).
// Its place is the desktop's to decide, so it is not dragged around.
class TickerStrip : public QWidget {
public:
    explicit TickerStrip(StatusItemController *owner)
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                               Qt::WindowDoesNotAcceptFocus),
          owner_(owner)
    {
        setAttribute(Qt::WA_ShowWithoutActivating);
        setAttribute(Qt::WA_X11DoNotAcceptFocus);
        setAttribute(Qt::WA_TranslucentBackground);
        // A window that never takes focus is never active: without this Qt
        // shows it no tooltip at all.
        setAttribute(Qt::WA_AlwaysShowToolTips);
        setFixedSize(StatusItemController::itemWidth, StatusItemController::defaultBarHeight);
        setAccessibleName(QStringLiteral("Larkpin ticker"));
        static const bool factory = [] {
            QAccessible::installFactory([](const QString &, QObject *o) -> QAccessibleInterface * {
                auto *strip = dynamic_cast<TickerStrip *>(o);
                return strip ? new StripAccessible(strip, strip->owner_) : nullptr;
            });
            return true;
        }();
        Q_UNUSED(factory);
        // With a reader running, QWidget's own constructor (and the name just
        // set) already made a plain interface for it, when it was no
        // TickerStrip yet: replace it with ours.
        QAccessibleInterface *made = QAccessible::queryAccessibleInterface(this);
        if (made && !dynamic_cast<StripAccessible *>(made)) {
            QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(made));
            made = QAccessible::queryAccessibleInterface(this);
            if (!dynamic_cast<StripAccessible *>(made))
                Log::write("Larkpin", QStringLiteral("the strip has no accessible interface of its own"));
        }
    }

    QColor bar{24, 25, 29}; // the desktop bar's colour, when it could be read
    bool rounded = true;    // false while no compositor blends the corners

protected:
    void paintEvent(QPaintEvent *) override
    {
        // Every frame of the ticker repaints the strip beneath it (the strip is
        // translucent at its corners), so its face is drawn once and reused.
        const qreal scale = devicePixelRatioF();
        if (faceSize_ != size() || face_.devicePixelRatio() != scale || faceBar_ != bar ||
            faceRounded_ != rounded) {
            face_ = clearImage(size(), scale);
            faceSize_ = size();
            QPainter fp(&face_);
            StatusItemController::paintStrip(fp, size(), bar, rounded);
            faceBar_ = bar;
            faceRounded_ = rounded;
        }
        QPainter p(this);
        p.drawImage(QPointF(0, 0), face_);
    }
    // A new desktop theme or palette usually comes with a new bar colour, and
    // is the moment to look rather than waiting for the next check.
    bool event(QEvent *e) override
    {
        if (e->type() == QEvent::ThemeChange || e->type() == QEvent::PaletteChange ||
            e->type() == QEvent::StyleChange)
            owner_->followBarColour(true);
        return QWidget::event(e);
    }
    void mouseReleaseEvent(QMouseEvent *e) override
    {
        owner_->trayClicked_ = false;
        owner_->handleClick(e->button(), e->globalPosition().toPoint());
    }

private:
    StatusItemController *owner_;
    QImage face_;
    QSize faceSize_;
    QColor faceBar_;
    bool faceRounded_ = true;
};

namespace {
// Three bars as wide as the box, each a sixth of its height with round ends,
// two sixths apart around the middle: the 13 × 12 design at any size.
void paintMark(QPainter &p, const QRectF &box, const QColor &colour)
{
    const double unit = box.height() / 6;
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    const double mid = box.center().y();
    for (double dy : {-2.5, -0.5, 1.5})
        p.drawRoundedRect(QRectF(box.left(), mid + dy * unit, box.width(), unit), unit / 2, unit / 2);
}

QColor markInk(bool dark)
{
    return dark ? QColor(237, 241, 244) : QColor(20, 22, 28);
}

// The mean colour of a part of the X11 root window, read with one GetImage.
// Qt's grabWindow() adds a pixmap and a copy into it, whose NoExposure event
// wakes the event thread and then the main thread again: at a look every few
// seconds that was most of the strip's wake-ups at rest. None off X11, or
// for a pixel format other than 32 bits per pixel.
std::optional<QColor> meanOfRoot(const QRect &device)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    xcb_connection_t *c = x11 ? x11->connection() : nullptr;
    if (!c || device.isEmpty())
        return std::nullopt;
    const xcb_screen_t *root = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    if (!root || (root->root_depth != 24 && root->root_depth != 32) ||
        xcb_get_setup(c)->image_byte_order != XCB_IMAGE_ORDER_LSB_FIRST)
        return std::nullopt;
    const QRect r = device.intersected(QRect(0, 0, root->width_in_pixels, root->height_in_pixels));
    if (r.isEmpty())
        return std::nullopt;
    xcb_get_image_reply_t *reply = xcb_get_image_reply(
        c,
        xcb_get_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, root->root, int16_t(r.x()), int16_t(r.y()),
                      uint16_t(r.width()), uint16_t(r.height()), ~0u),
        nullptr);
    if (!reply)
        return std::nullopt;
    std::optional<QColor> mean;
    const int bytes = xcb_get_image_data_length(reply);
    if (bytes == r.width() * r.height() * 4) {
        const uint8_t *px = xcb_get_image_data(reply);
        quint64 sum[3] = {0, 0, 0};
        for (int i = 0; i < bytes; i += 4) { // B, G, R, pad in LSB-first order
            sum[0] += px[i + 2];
            sum[1] += px[i + 1];
            sum[2] += px[i];
        }
        const quint64 n = quint64(bytes / 4);
        mean = QColor(int(sum[0] / n), int(sum[1] / n), int(sum[2] / n));
    }
    free(reply);
    return mean;
}
} // namespace

int StatusItemController::topInset(const QRect &screen, const QRect &available, const QRect &reserved)
{
    // The work area's top is ours when it ends exactly where our own
    // reservation does: the bar (if any) is what lies above the strip.
    if (!reserved.isEmpty() && screen.contains(reserved.topLeft()) &&
        available.top() == reserved.bottom() + 1)
        return reserved.top() - screen.top();
    return std::max(0, available.top() - screen.top());
}

int StatusItemController::barHeight(const QRect &screen, const QRect &available, const QRect &reserved)
{
    const int h = topInset(screen, available, reserved);
    // A bar too thin for the 17-point pill, or no top bar at all, gets the usual height.
    return h >= 17 && h <= 64 ? h : defaultBarHeight;
}

QRect StatusItemController::stripGeometry(const QRect &screen, const QRect &available, const QRect &reserved)
{
    const int top = screen.top() + topInset(screen, available, reserved);
    const int right = std::min(screen.right(), available.right());
    return QRect(right + 1 - itemWidth, top, itemWidth, barHeight(screen, available, reserved));
}

QRect StatusItemController::barSample(const QRect &screen, const QRect &available, const QRect &strip)
{
    const int top = strip.top() - screen.top();
    if (top > 0)
        return QRect(strip.left(), screen.top(), strip.width(), top);
    if (available.bottom() < screen.bottom())
        return QRect(strip.left(), available.bottom() + 1, strip.width(),
                     screen.bottom() - available.bottom());
    return {};
}

QRect StatusItemController::stripOnMonitors(const QList<QRect> &monitors, const QRect &workArea,
                                            const QList<QRect> &topBars, const QRect &reserved, double scale)
{
    if (monitors.isEmpty())
        return {};
    // A bar counts for a monitor when it covers some of its columns and ends
    // in its upper half, below its top edge.
    qsizetype chosen = -1;
    int inset = 0;
    for (qsizetype i = 0; i < monitors.size() && chosen < 0; ++i) {
        const QRect &m = monitors.at(i);
        for (const QRect &bar : topBars) {
            if (bar.left() > m.right() || bar.right() < m.left() || bar.bottom() < m.top() ||
                bar.bottom() >= m.top() + m.height() / 2)
                continue;
            chosen = i;
            inset = std::max(inset, bar.bottom() + 1 - m.top());
        }
    }
    const QRect m = monitors.at(std::max<qsizetype>(chosen, 0));
    QRect available = workArea.isEmpty() ? m : (m & workArea);
    if (available.isEmpty())
        available = m;
    if (chosen < 0)
        inset = topInset(m, available, reserved);
    const int width = int(std::lround(itemWidth * scale));
    const int height = inset >= 17 * scale && inset <= 64 * scale ? inset : int(std::lround(defaultBarHeight * scale));
    const int right = std::min(m.right(), available.right());
    return QRect(right + 1 - width, m.top() + inset, width, height);
}

QPoint StatusItemController::logicalFromDevice(const QPoint &device)
{
    for (QScreen *s : QGuiApplication::screens()) {
        const QRect g = s->geometry();
        const double dpr = s->devicePixelRatio();
        const QRect native(g.topLeft(), QSize(int(std::lround(g.width() * dpr)), int(std::lround(g.height() * dpr))));
        if (native.contains(device))
            return g.topLeft() + QPoint(int(std::lround((device.x() - g.x()) / dpr)),
                                        int(std::lround((device.y() - g.y()) / dpr)));
    }
    const double dpr = qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
    return QPoint(int(std::lround(device.x() / dpr)), int(std::lround(device.y() / dpr)));
}

void StatusItemController::trustWorkArea()
{
    if (!qEnvironmentVariableIsSet("QT_RELY_ON_NET_WORKAREA_ATOM"))
        qputenv("QT_RELY_ON_NET_WORKAREA_ATOM", "1");
}

bool StatusItemController::placedAsAsked(const QRect &asked, const QRect &landed)
{
    return (asked.topLeft() - landed.topLeft()).manhattanLength() <= 4;
}

QRect StatusItemController::cornerAnchor(const QRect &available)
{
    return QRect(available.right(), available.top(), 1, 1);
}

std::optional<QColor> StatusItemController::sampleBarColour(QScreen *screen, const QRect &region)
{
    if (!screen || region.isEmpty())
        return std::nullopt;
    if (QGuiApplication::platformName() == QLatin1String("xcb")) {
        // Device pixels: X11 knows nothing of Qt's scaling.
        const qreal dpr = screen->devicePixelRatio();
        const QRect device(QPoint(qRound(region.x() * dpr), qRound(region.y() * dpr)),
                           QSize(std::max(1, qRound(region.width() * dpr)), std::max(1, qRound(region.height() * dpr))));
        if (const std::optional<QColor> mean = meanOfRoot(device))
            return mean;
    }
    const QRect g = screen->geometry();
    const QImage shot =
        screen->grabWindow(0, region.x() - g.x(), region.y() - g.y(), region.width(), region.height())
            .toImage();
    if (shot.isNull())
        return std::nullopt;
    // Icons and clock text are a small part of a bar: the mean is its background.
    const QColor mean = shot.convertToFormat(QImage::Format_RGB32)
                            .scaled(1, 1, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                            .pixelColor(0, 0);
    return mean;
}

bool StatusItemController::isDarkColour(const QColor &colour)
{
    // Relative luminance of sRGB, by the usual weights.
    const double y = 0.2126 * colour.redF() + 0.7152 * colour.greenF() + 0.0722 * colour.blueF();
    return y < 0.5;
}

void StatusItemController::paintStrip(QPainter &p, const QSizeF &size, const QColor &bar, bool rounded)
{
    p.setRenderHint(QPainter::Antialiasing);
    QColor background = bar;
    background.setAlpha(255);
    QPainterPath bg;
    const double radius = rounded ? 6 : 0;
    bg.addRoundedRect(QRectF(QPointF(0, 0), size), radius, radius);
    p.fillPath(bg, background);
    paintMark(p, QRectF(4, size.height() / 2 - 6, markWidth, 12), markInk(isDarkColour(background)));
}

QImage StatusItemController::trayMark(bool darkPanel, int size)
{
    QImage image(QSize(size, size), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const double w = size * 13.0 / 16, h = size * 12.0 / 16;
    paintMark(p, QRectF((size - w) / 2, (size - h) / 2, w, h), markInk(darkPanel));
    return image;
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
    strip_ = new TickerStrip(this);
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

    // The bar's shade is looked at (a small read of the bar above the strip)
    // on the ticker's flips, when the process is awake anyway, so a light/dark
    // switch shows within seconds. When the flips stop (a takeover holds the
    // strip, the ticker is paused or down to one row) it is looked at once
    // more, and then only on a theme, palette or placement change and at the
    // next flip: a ticker at rest wakes nothing for it.
    barWatch_ = new QTimer(this);
    barWatch_->setSingleShot(true);
    barWatch_->setInterval(barLookMs + 1000);
    barWatch_->setTimerType(Qt::CoarseTimer);
    connect(barWatch_, &QTimer::timeout, this, [this] { followBarColour(true); });
    connect(view_, &StatusStreamView::flipped, this, [this] {
        if (barSampled_.elapsed() >= barLookMs - 500)
            followBarColour(true);
        barWatch_->start();
    });
    followBarColour(true);
    barWatch_->start();

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
    const QRect device = stripOnMonitors(layout->monitors, layout->workArea, layout->topBars, reserved_, scale);
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
    const QPoint at = logicalFromDevice(device.topLeft());
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
    const QRect place = stripGeometry(screen->geometry(), screen->availableGeometry(), reserved);
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
    if (!wayland && placedAsAsked(asked_, landed))
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
    if (!strip_ || !view_)
        return; // a palette event while the strip is still being built
    // Theme changes and the few-second check ask at once; anything else at
    // most every two minutes.
    if (!now && barSampled_.isValid() && barSampled_.elapsed() < 120000)
        return;
    barSampled_.start();
    QScreen *screen = strip_->screen();
    const QRect strip = asked_.isEmpty() ? QRect(strip_->pos(), strip_->size()) : asked_;
    const std::optional<QColor> bar =
        screen ? sampleBarColour(screen, barSample(screen->geometry(), screen->availableGeometry(), strip))
               : std::nullopt;
    if (bar && *bar != strip_->bar) {
        Log::write("Larkpin", QStringLiteral("bar → ") + bar->name());
        strip_->bar = *bar;
        strip_->update();
    }
    view_->setDark(isDarkColour(strip_->bar));
    if (tray_ && trayDark_ != isDarkColour(strip_->bar)) {
        trayDark_ = isDarkColour(strip_->bar);
        tray_->setIcon(QIcon(QPixmap::fromImage(trayMark(*trayDark_))));
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
        trayDark_ = isDarkColour(strip_->bar);
        tray_ = new QSystemTrayIcon(QIcon(QPixmap::fromImage(trayMark(*trayDark_))), this);
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

QRect StatusItemController::trayAnchor(const QRect &icon, const std::optional<QPoint> &pointer,
                                       const QRect &available)
{
    if (!icon.isEmpty())
        return icon;
    if (pointer)
        return QRect(*pointer, QSize(1, 1));
    // A rectangle whose right end puts the panel's middle at the screen's.
    constexpr int span = 380;
    return QRect(available.center().x() + 1 - span / 2, available.top(), span, 1);
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
        return trayAnchor(tray_->geometry(), wayland ? std::nullopt : std::optional<QPoint>(QCursor::pos()),
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
    return screen ? cornerAnchor(screen->availableGeometry()) : QRect();
}
