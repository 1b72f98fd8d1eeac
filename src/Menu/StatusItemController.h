#pragma once
// The application's top-bar presence on Linux: a small frameless strip at the
// top-right of the screen showing the ticker, and a tray icon where the desktop
// has a tray. Both toggle the panel on a left click and offer the same menu.

#include "Feed/LinkState.h"

#include "Model/Signal.h"

#include <QColor>
#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QRect>

#include <functional>
#include <optional>

class FeedStore;
class FocalDirector;
class QPainter;
class QScreen;
class QMenu;
class QSystemTrayIcon;
class QTimer;
class QWidget;
class StatusStreamView;
class TickerStrip;

class StatusItemController : public QObject {
    Q_OBJECT
public:
    static constexpr int markWidth = 13;
    static constexpr int itemWidth = 196;
    static constexpr int defaultBarHeight = 24;

    explicit StatusItemController(FeedStore *store, QObject *parent = nullptr);
    ~StatusItemController() override;

    std::function<void()> onToggle;
    // A signal just took the ticker over (the notifier listens).
    std::function<void(const Signal &)> onTakeover;

    void render(bool paused);
    void applyFocal(const std::optional<Signal> &signal);
    void handleClick(Qt::MouseButton button, const QPoint &globalPos);
    void openPanel();
    void togglePause();
    QMenu *buildMenu(); // a fresh menu each time; the caller owns it
    // Where the panel should hang from: the strip's global geometry.
    QRect anchorRect() const;
    StatusStreamView *view() const { return view_; }
    FocalDirector *focalDirector() const { return focalDirector_; }
    QWidget *strip() const;

    // The texts of the item, computable without a display.
    static QString statusLine(LinkState link, int whales, int spikes, int stocks);
    static QString tooltip(const FeedStore &store);
    static QString pauseTitle(bool paused)
    {
        return paused ? QStringLiteral("Resume ticker") : QStringLiteral("Pause ticker");
    }

    // Wayland does not let a client place its windows; when XWayland is there
    // too, run through it so the strip lands at the top-right. Call before the
    // application object exists. An explicit QT_QPA_PLATFORM wins.
    static void preferXcbOnWayland();

    // Where the desktop's bar is and what colour it is. The strip takes the
    // bar's height (24 when there is no bar to measure) and sits at the top-right
    // of the area the bar leaves free.
    static int barHeight(const QRect &screen, const QRect &available);
    static QRect stripGeometry(const QRect &screen, const QRect &available);
    // The bar's colour read off the screen; none where the screen cannot be read.
    static std::optional<QColor> sampleBarColour(QScreen *screen);
    static bool isDarkColour(const QColor &colour);
    // The strip as drawn on a bar of the given colour: background and brand mark
    // (the stream view draws over it from x = 22).
    static void paintStrip(QPainter &p, const QSizeF &size, const QColor &bar);
    // The tray's monochrome mark, light on a dark panel and dark on a light one.
    static QImage trayMark(bool darkPanel, int size = 32);

private:
    friend class TickerStrip;
    void ensureTray();
    // Re-reads the bar's colour; without `now`, at most every two minutes.
    void followBarColour(bool now = false);

    FeedStore *store_;
    TickerStrip *strip_ = nullptr;
    StatusStreamView *view_ = nullptr;
    FocalDirector *focalDirector_ = nullptr;
    QElapsedTimer barSampled_;
    std::optional<bool> trayDark_; // the panel shade the tray icon was drawn for
    QPointer<QSystemTrayIcon> tray_;
    QTimer *trayWatch_ = nullptr;
    QMenu *trayMenu_ = nullptr;
};
