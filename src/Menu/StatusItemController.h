#pragma once
// The application's top-bar presence on Linux: a small frameless strip at the
// top-right of the screen, just under the desktop's top bar, showing the
// ticker, and a tray icon where the desktop has a tray. Both toggle the panel
// on a left click and offer the same menu. On X11 the strip is a dock that
// reserves its own row, so maximized windows end below it. Where the strip
// cannot be placed (a compositor that ignores positions) and a tray exists,
// the app runs from the tray alone.

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
class QAction;
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
    static constexpr int barLookMs = 3000; // how often the bar's shade is looked at

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

    // Where the desktop's bar is and what colour it is. The strip takes the
    // bar's height (24 when there is no bar to measure) and sits at the top-right
    // of the area the bar leaves free.
    // Only a top bar counts: a bottom bar leaves the strip its usual height at
    // the top. `reserved` is the strip's own reservation in effect (empty when
    // none): a work area that ends exactly at it is the strip's own doing.
    static int topInset(const QRect &screen, const QRect &available, const QRect &reserved = {});
    static int barHeight(const QRect &screen, const QRect &available, const QRect &reserved = {});
    static QRect stripGeometry(const QRect &screen, const QRect &available, const QRect &reserved = {});
    // The same on X11, in device pixels, from what X says: the strip goes to
    // the monitor holding a top bar (the primary when it does), right under
    // the lowest bar there, at the right of that monitor's work area. Without
    // a bar it is the primary monitor and its work area. `scale` is the
    // device pixels per point.
    static QRect stripOnMonitors(const QList<QRect> &monitors, const QRect &workArea, const QList<QRect> &topBars,
                                 const QRect &reserved, double scale);
    // Device pixels (root coordinates) to Qt's logical ones: each screen
    // keeps its native top-left and scales from there.
    static QPoint logicalFromDevice(const QPoint &device);
    // Qt's X11 backend drops the work area as soon as there are two monitors
    // unless told to trust it. Call before the application object exists.
    static void trustWorkArea();
    // The part of the screen the bar colour is read from: the top bar above the
    // strip, or a bottom bar at the same columns; empty without a bar.
    static QRect barSample(const QRect &screen, const QRect &available, const QRect &strip);
    // A window manager honoured the position when the strip landed within a
    // few pixels of it.
    static bool placedAsAsked(const QRect &asked, const QRect &landed);
    // The panel's anchor when nothing on screen says where Larkpin is: the
    // top-right corner of the work area.
    static QRect cornerAnchor(const QRect &available);
    // The panel's anchor after a click on the tray icon: the icon when the
    // host says where it is; otherwise the pointer, which is on the icon
    // (X11); otherwise (native Wayland tells no one where the pointer is)
    // centred under the top of the work area.
    static QRect trayAnchor(const QRect &icon, const std::optional<QPoint> &pointer, const QRect &available);
    // The bar's colour read off the screen; none where the screen cannot be read.
    static std::optional<QColor> sampleBarColour(QScreen *screen, const QRect &region);
    static bool isDarkColour(const QColor &colour);
    // The strip as drawn on a bar of the given colour: background and brand mark
    // (the stream view draws over it from x = 22).
    // Square corners where no compositor blends the translucent ones.
    static void paintStrip(QPainter &p, const QSizeF &size, const QColor &bar, bool rounded = true);
    // The tray's monochrome mark, light on a dark panel and dark on a light one.
    static QImage trayMark(bool darkPanel, int size = 32);

Q_SIGNALS:
    // The takeover began, changed hands or ended.
    void focalChanged();

private Q_SLOTS:
    // The X11 tray manager came, went or changed hands.
    void trayManagerChanged();

private:
    friend class TickerStrip;
    void ensureTray();
    bool stripWanted() const;
    void applyStripMode(); // shows or hides the strip as the settings and the desktop allow
    void place();
    bool placeOnX11(); // false where X says too little
    void checkPlacement();
    void refreshTrayMenu();
    // Re-reads the bar's colour; without `now`, at most every two minutes.
    void followBarColour(bool now = false);

    FeedStore *store_;
    TickerStrip *strip_ = nullptr;
    StatusStreamView *view_ = nullptr;
    FocalDirector *focalDirector_ = nullptr;
    QElapsedTimer barSampled_;
    std::optional<bool> trayDark_; // the panel shade the tray icon was drawn for
    QPointer<QSystemTrayIcon> tray_;
    bool trayWatched_ = false; // listening for a tray manager to appear
    QMenu *trayMenu_ = nullptr;
    QAction *trayStatus_ = nullptr;
    QAction *trayPause_ = nullptr;
    QTimer *placeTask_ = nullptr;
    QTimer *barWatch_ = nullptr; // one look after the ticker stops flipping
    QRect asked_;       // where the strip was last put
    QRect askedDevice_; // the same in device pixels, where X placed it
    QRect reserved_;    // the strip's reservation in effect (device pixels on X11)
    bool positionsIgnored_ = false;
    int placementLooks_ = 0; // how often the strip's landing place was looked at
    bool trayClicked_ = false; // the last click came from the tray icon
    bool barPieceAttached_ = false;
};
