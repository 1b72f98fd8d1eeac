#pragma once
// The application's top-bar presence on Linux: a small frameless strip at the
// top-right of the screen, just under the desktop's top bar, showing the
// ticker, and a tray icon where the desktop has a tray. Both toggle the panel
// on a left click and offer the same menu. On X11 the strip is a dock that
// reserves its own row, so maximized windows end below it. Where the strip
// cannot be placed (a compositor that ignores positions) and a tray exists,
// the app runs from the tray alone.
//
// This class holds the tray, the menus and the wiring; the strip's window is
// StripWindow, where it goes is StripPlacement and the bar colour it follows
// is BarShade.

#include "Feed/LinkState.h"
#include "Menu/BarShade.h"
#include "Menu/StripPlacement.h"
#include "Menu/StripWindow.h"

#include "Model/Signal.h"

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QRect>

#include <functional>
#include <optional>

class FeedStore;
class FocalDirector;
class QAction;
class QMenu;
class QSystemTrayIcon;
class QTimer;
class QWidget;
class StatusStreamView;

class StatusItemController : public QObject {
    Q_OBJECT
public:
    static constexpr int markWidth = StripWindow::markWidth;
    static constexpr int itemWidth = StripPlacement::itemWidth;
    static constexpr int defaultBarHeight = StripPlacement::defaultBarHeight;
    static constexpr int barLookMs = BarShade::lookMs;

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
    // The tray's menu: complete from creation (a StatusNotifierItem host reads
    // it once, before anyone opens it) and kept current. Exists without a tray.
    QMenu *trayMenu() const { return trayMenu_; }
    // Where the panel should hang from: the tray icon after a click on it when
    // the host says where it is, else the strip, else the top-right corner.
    QRect anchorRect() const;
    // False in tray-only mode.
    bool stripShown() const;
    // A piece of the desktop's own bar draws the ticker: no strip, no reserved
    // row, until it goes away.
    void setBarPieceAttached(bool attached);
    bool barPieceAttached() const { return barPieceAttached_; }
    StatusStreamView *view() const { return view_; }
    FocalDirector *focalDirector() const { return focalDirector_; }
    QWidget *strip() const;

    // The texts of the item, computable without a display.
    static QString statusLine(LinkState link, int whales, int spikes, int stocks);
    static QString tooltip(const FeedStore &store);
    // The tooltip while the link fails for a known cause (empty: none).
    static QString troubleTip(const LinkTrouble &trouble);
    static QString pauseTitle(bool paused)
    {
        return paused ? QStringLiteral("Resume ticker") : QStringLiteral("Pause ticker");
    }

    // Wayland does not let a client place its windows; when XWayland is there
    // too, run through it so the strip lands at the top-right. Call before the
    // application object exists. An explicit QT_QPA_PLATFORM wins.
    static void preferXcbOnWayland();

    // Qt's X11 backend drops the work area as soon as there are two monitors
    // unless told to trust it. Call before the application object exists.
    static void trustWorkArea();

Q_SIGNALS:
    // The takeover began, changed hands or ended.
    void focalChanged();

private Q_SLOTS:
    // The X11 tray manager came, went or changed hands.
    void trayManagerChanged();

private:
    void ensureTray();
    bool stripWanted() const;
    void applyStripMode(); // shows or hides the strip as the settings and the desktop allow
    void place();
    bool placeOnX11(); // false where X says too little
    void checkPlacement();
    void refreshTrayMenu();
    // Re-reads the bar's colour; without `now`, at most every two minutes.
    void followBarColour(bool now = false);
    // The strip's fill, the stream's ink and the tray mark on the bar's colour.
    void applyBarColour(const std::optional<QColor> &bar);

    FeedStore *store_;
    StripWindow *strip_ = nullptr;
    StatusStreamView *view_ = nullptr;
    FocalDirector *focalDirector_ = nullptr;
    BarShade *barShade_ = nullptr;
    std::optional<bool> trayDark_; // the panel shade the tray icon was drawn for
    QPointer<QSystemTrayIcon> tray_;
    bool trayWatched_ = false; // listening for a tray manager to appear
    QMenu *trayMenu_ = nullptr;
    QAction *trayStatus_ = nullptr;
    QAction *trayPause_ = nullptr;
    QTimer *placeTask_ = nullptr;
    QRect asked_;       // where the strip was last put
    QRect askedDevice_; // the same in device pixels, where X placed it
    QRect reserved_;    // the strip's reservation in effect (device pixels on X11)
    bool positionsIgnored_ = false;
    int placementLooks_ = 0; // how often the strip's landing place was looked at
    bool trayClicked_ = false; // the last click came from the tray icon
    bool barPieceAttached_ = false;
};
