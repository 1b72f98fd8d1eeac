#pragma once
// The application's top-bar presence on Linux: a small frameless strip at the
// top-right of the screen showing the ticker, and a tray icon where the desktop
// has a tray. Both toggle the panel on a left click and offer the same menu.

#include "Feed/LinkState.h"

#include <QObject>
#include <QPointer>
#include <QRect>

#include <functional>

class FeedStore;
class QMenu;
class QSystemTrayIcon;
class QTimer;
class StatusStreamView;
class TickerStrip;

class StatusItemController : public QObject {
    Q_OBJECT
public:
    static constexpr int markWidth = 13;
    static constexpr int itemWidth = 196;

    explicit StatusItemController(FeedStore *store, QObject *parent = nullptr);
    ~StatusItemController() override;

    std::function<void()> onToggle;

    void render(bool paused);
    void handleClick(Qt::MouseButton button, const QPoint &globalPos);
    void openPanel();
    void togglePause();
    QMenu *buildMenu(); // a fresh menu each time; the caller owns it
    // Where the panel should hang from: the strip's global geometry.
    QRect anchorRect() const;
    StatusStreamView *view() const { return view_; }

    // The texts of the item, computable without a display.
    static QString statusLine(LinkState link, int whales, int spikes, int stocks);
    static QString tooltip(const FeedStore &store);
    static QString pauseTitle(bool paused) { return paused ? QStringLiteral("Resume ticker") : QStringLiteral("Pause ticker"); }

    // Wayland does not let a client place its windows; when XWayland is there
    // too, run through it so the strip lands at the top-right. Call before the
    // application object exists. An explicit QT_QPA_PLATFORM wins.
    static void preferXcbOnWayland();

private:
    void ensureTray();

    FeedStore *store_;
    TickerStrip *strip_ = nullptr;
    StatusStreamView *view_ = nullptr;
    QPointer<QSystemTrayIcon> tray_;
    QTimer *trayWatch_ = nullptr;
    QMenu *trayMenu_ = nullptr;
};
