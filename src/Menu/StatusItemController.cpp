#include "Menu/StatusItemController.h"

#include "Feed/FeedStore.h"
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
        : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus),
          owner_(owner)
    {
        setAttribute(Qt::WA_ShowWithoutActivating);
        setAttribute(Qt::WA_TranslucentBackground);
        setFixedSize(StatusItemController::itemWidth, 24);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        QPainterPath bg;
        bg.addRoundedRect(QRectF(rect()), 6, 6);
        p.fillPath(bg, QColor(6, 7, 10, 235));
        paintMark(p, QRectF(4, 0, 13, height()), QColor(237, 241, 244));
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
            return;
        }
        owner_->handleClick(e->button(), e->globalPosition().toPoint());
    }

public:
    // Three bars, 2 high with radius 1, 4 apart around the middle.
    static void paintMark(QPainter &p, const QRectF &box, const QColor &colour)
    {
        p.setPen(Qt::NoPen);
        p.setBrush(colour);
        const double mid = box.center().y();
        for (double dy : {-5.0, -1.0, 3.0})
            p.drawRoundedRect(QRectF(box.left(), mid + dy, 13, 2), 1, 1);
    }

private:
    StatusItemController *owner_;
    QPoint pressAt_, startPos_;
    bool dragged_ = false;
};

namespace {
QIcon brandIcon()
{
    QImage image(QSize(32, 32), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    // A dark chip behind the bars keeps the mark visible on light and dark panels.
    p.setBrush(QColor(6, 7, 10));
    p.setPen(Qt::NoPen);
    p.drawRoundedRect(QRectF(1, 1, 30, 30), 7, 7);
    p.setBrush(toQColor(Theme::lark));
    for (double y : {9.0, 15.0, 21.0})
        p.drawRoundedRect(QRectF(7, y, 18, 3), 1.5, 1.5);
    return QIcon(QPixmap::fromImage(image));
}
} // namespace

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
    view_->setGeometry(4 + markWidth + 5, 0, itemWidth - (4 + markWidth + 5) - 4, strip_->height());

    QPoint place;
    if (QScreen *screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        place = QPoint(area.right() + 1 - itemWidth - 8, area.top() + 4);
    }
    const QVariant saved = QSettings().value(QStringLiteral("stripPosition"));
    if (saved.canConvert<QPoint>()) {
        const QPoint p = saved.toPoint();
        for (QScreen *s : QGuiApplication::screens())
            if (s->availableGeometry().contains(QRect(p, strip_->size())))
                place = p;
    }
    strip_->move(place);
    strip_->show();

    auto renderNow = [this] {
        // Focal takeovers come with the full ticker; the cycling rows work now.
        render(store_->preferences().paused);
    };
    connect(store_, &FeedStore::signalsChanged, this, renderNow);
    connect(store_, &FeedStore::preferencesChanged, this, renderNow);
    connect(store_, &FeedStore::telemetryChanged, this, [this] {
        if (store_->telemetry().rail != view_->rail())
            view_->setRail(store_->telemetry().rail);
    });
    connect(store_, &FeedStore::linkChanged, this, [this] {
        if (store_->link() != view_->linkState())
            view_->setLinkState(store_->link());
    });
    connect(store_, &FeedStore::heartbeatChanged, view_, &StatusStreamView::ping);
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

void StatusItemController::ensureTray()
{
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        return;
    if (!tray_) {
        tray_ = new QSystemTrayIcon(brandIcon(), this);
        connect(tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger)
                openPanel();
        });
        trayMenu_ = new QMenu();
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
    const FeedFilter kinds[] = {FeedFilter::of(SignalKind::whale), FeedFilter::of(SignalKind::spike),
                                FeedFilter::of(SignalKind::stocks)};
    QAction *status = menu->addAction(statusLine(store_->link(), store_->count(kinds[0]), store_->count(kinds[1]),
                                                 store_->count(kinds[2])));
    status->setEnabled(false);
    menu->addSeparator();
    connect(menu->addAction(QStringLiteral("Open Larkpin")), &QAction::triggered, this, &StatusItemController::openPanel);
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
