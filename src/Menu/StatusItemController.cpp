#include "Menu/StatusItemController.h"

#include "Feed/FeedStore.h"
#include "Menu/FocalDirector.h"
#include "Menu/MenuLook.h"
#include "Menu/Paint.h"
#include "Menu/StatusStreamView.h"

#include <QAction>
#include <QCoreApplication>
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

// The strip itself: owns the clicks (the stream view is transparent to them)
// and can be dragged; it remembers where it was put.
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
        setFixedSize(StatusItemController::itemWidth, StatusItemController::defaultBarHeight);
    }

    QColor bar{24, 25, 29}; // the desktop bar's colour, when it could be read

protected:
    void paintEvent(QPaintEvent *) override
    {
        // Every frame of the ticker repaints the strip beneath it (the strip is
        // translucent at its corners), so its face is drawn once and reused.
        const qreal scale = devicePixelRatioF();
        if (faceSize_ != size() || face_.devicePixelRatio() != scale || faceBar_ != bar) {
            face_ = clearImage(size(), scale);
            faceSize_ = size();
            QPainter fp(&face_);
            StatusItemController::paintStrip(fp, size(), bar);
            faceBar_ = bar;
        }
        QPainter p(this);
        p.drawImage(QPointF(0, 0), face_);
    }
    // A new desktop theme or palette usually comes with a new bar colour, and
    // is the moment to look rather than waiting for the next slow check.
    bool event(QEvent *e) override
    {
        if (e->type() == QEvent::ThemeChange || e->type() == QEvent::PaletteChange ||
            e->type() == QEvent::StyleChange)
            owner_->followBarColour(true);
        return QWidget::event(e);
    }
    void mousePressEvent(QMouseEvent *e) override
    {
        pressAt_ = e->globalPosition().toPoint();
        startPos_ = pos();
        dragged_ = false;
    }
    void mouseMoveEvent(QMouseEvent *e) override
    {
        if (!(e->buttons() & Qt::LeftButton))
            return;
        const QPoint delta = e->globalPosition().toPoint() - pressAt_;
        if (delta.manhattanLength() > 4)
            dragged_ = true;
        if (dragged_)
            move(startPos_ + delta);
    }
    void mouseReleaseEvent(QMouseEvent *e) override
    {
        if (dragged_) {
            QSettings().setValue(QStringLiteral("stripPosition"), pos());
            owner_->followBarColour(true); // it may sit on another bar now
            return;
        }
        owner_->handleClick(e->button(), e->globalPosition().toPoint());
    }

private:
    StatusItemController *owner_;
    QImage face_;
    QSize faceSize_;
    QColor faceBar_;
    QPoint pressAt_, startPos_;
    bool dragged_ = false;
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
} // namespace

int StatusItemController::barHeight(const QRect &screen, const QRect &available)
{
    const int top = available.top() - screen.top();
    const int bottom = screen.bottom() - available.bottom();
    const int h = top > 0 ? top : bottom;
    // A bar too thin for the 17-point pill, or no bar at all, gets the usual height.
    return h >= 17 && h <= 64 ? h : defaultBarHeight;
}

QRect StatusItemController::stripGeometry(const QRect &screen, const QRect &available)
{
    const int h = barHeight(screen, available);
    return QRect(available.right() + 1 - itemWidth, available.top(), itemWidth, h);
}

std::optional<QColor> StatusItemController::sampleBarColour(QScreen *screen)
{
    if (!screen)
        return std::nullopt;
    const QRect g = screen->geometry(), a = screen->availableGeometry();
    QRect bar;
    if (a.top() > g.top())
        bar = QRect(g.left(), g.top(), g.width(), a.top() - g.top());
    else if (a.bottom() < g.bottom())
        bar = QRect(g.left(), a.bottom() + 1, g.width(), g.bottom() - a.bottom());
    else
        return std::nullopt;
    const QImage shot =
        screen->grabWindow(0, bar.x() - g.x(), bar.y() - g.y(), bar.width(), bar.height()).toImage();
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

void StatusItemController::paintStrip(QPainter &p, const QSizeF &size, const QColor &bar)
{
    p.setRenderHint(QPainter::Antialiasing);
    QColor background = bar;
    background.setAlpha(255);
    QPainterPath bg;
    bg.addRoundedRect(QRectF(QPointF(0, 0), size), 6, 6);
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
    view_ = new StatusStreamView(strip_);
    // The director ages trades on the store's clock, the one their times were taken on.
    focalDirector_ = new FocalDirector([store] { return store->now(); }, FocalDirector::holdMs, this);

    QRect place(QPoint(0, 0), QSize(itemWidth, defaultBarHeight));
    if (QScreen *screen = QGuiApplication::primaryScreen())
        place = stripGeometry(screen->geometry(), screen->availableGeometry());
    strip_->setFixedSize(place.size());
    view_->setGeometry(4 + markWidth + 5, 0, itemWidth - (4 + markWidth + 5) - 4, place.height());
    const QVariant saved = QSettings().value(QStringLiteral("stripPosition"));
    if (saved.canConvert<QPoint>()) {
        const QPoint p = saved.toPoint();
        for (QScreen *s : QGuiApplication::screens())
            if (s->availableGeometry().contains(QRect(p, place.size())))
                place.moveTopLeft(p);
    }
    strip_->move(place.topLeft());
    followBarColour();
    strip_->show();

    auto considerAndRender = [this] {
        focalDirector_->consider(store_->signalList(), store_->preferences().focalUsd,
                                 store_->watchedHandles());
        render(store_->preferences().paused);
    };
    connect(store_, &FeedStore::signalsChanged, this, considerAndRender);
    connect(store_, &FeedStore::preferencesChanged, this, considerAndRender);
    connect(store_, &FeedStore::telemetryChanged, this, [this] {
        // The rail is drawn apart from the row, so a new rail never cuts a flip short.
        if (store_->telemetry().rail != view_->rail())
            view_->setRail(store_->telemetry().rail);
    });
    connect(store_, &FeedStore::linkChanged, this, [this] {
        if (store_->link() != view_->linkState()) {
            view_->setLinkState(store_->link());
            view_->applyLinkColour();
            if (view_->rows().isEmpty())
                view_->redrawRow(false);
        }
    });
    connect(store_, &FeedStore::heartbeatChanged, view_, &StatusStreamView::ping);
    focalDirector_->onChange = [this](const std::optional<Signal> &s) {
        applyFocal(s);
        if (s && onTakeover)
            onTakeover(*s);
    };
    // No look at the (still empty) list here: the director's first look must be
    // the initial fetch, whose trades never take the strip over.
    render(store_->preferences().paused);

    // A tray may appear after we start, or its host may restart: keep looking.
    trayWatch_ = new QTimer(this);
    trayWatch_->setInterval(5000);
    connect(trayWatch_, &QTimer::timeout, this, &StatusItemController::ensureTray);
    ensureTray();
    trayWatch_->start();
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

void StatusItemController::followBarColour(bool now)
{
    if (!strip_ || !view_)
        return; // a palette event while the strip is still being built
    // Reading the screen is cheap but not free; theme changes and moves ask
    // at once, the slow check only catches what sent no event.
    if (!now && barSampled_.isValid() && barSampled_.elapsed() < 120000)
        return;
    barSampled_.start();
    const std::optional<QColor> bar = sampleBarColour(strip_->screen());
    if (bar) {
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
    followBarColour();
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        // Look often at first (a tray host often starts just after us), then
        // back off to once a minute: a desktop without a tray stays that way.
        trayWatch_->setInterval(std::min(trayWatch_->interval() * 2, 60000));
        return;
    }
    if (!tray_) {
        trayDark_ = isDarkColour(strip_->bar);
        tray_ = new QSystemTrayIcon(QIcon(QPixmap::fromImage(trayMark(*trayDark_))), this);
        connect(tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger)
                openPanel();
        });
        trayMenu_ = new QMenu();
        MenuLook::apply(trayMenu_);
        connect(trayMenu_, &QMenu::aboutToShow, this, [this] {
            trayMenu_->clear();
            QMenu *fresh = buildMenu();
            for (QAction *a : fresh->actions()) {
                a->setParent(trayMenu_);
                trayMenu_->addAction(a);
            }
            delete fresh;
        });
        tray_->setContextMenu(trayMenu_);
        tray_->setToolTip(tooltip(*store_));
    }
    if (!tray_->isVisible())
        tray_->show();
    trayWatch_->setInterval(30000);
}

void StatusItemController::render(bool paused)
{
    QList<StreamSegment> rows;
    for (const Signal &s : store_->tickerSignals())
        rows.append(StreamSegment{s.kind, s.line});
    view_->update(rows, paused);
    const QString tip = tooltip(*store_);
    strip_->setToolTip(tip);
    if (tray_)
        tray_->setToolTip(tip);
}

QString StatusItemController::tooltip(const FeedStore &store)
{
    const QList<Signal> ticker = store.tickerSignals();
    if (ticker.isEmpty())
        return QStringLiteral("Larkpin");
    return SignalKinds::label(ticker.first().kind) + QStringLiteral("  ") + ticker.first().line.text();
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
    return strip_ ? QRect(strip_->mapToGlobal(QPoint(0, 0)), strip_->size()) : QRect();
}
