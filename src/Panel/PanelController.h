#pragma once
// The floating panel: one frameless, translucent, always-on-top Qt Quick
// window. Nothing of Qt Quick exists until the first opening: the engine and
// the window are built then, and given back once the panel has stayed closed
// for releaseDelay(), so a panel nobody looks at costs nothing. Each opening
// builds a fresh HUDView tree (so its navigation state starts cleared) from
// the store, which holds everything the panel shows; each closing fades out
// and, 0.22 s later, tears the tree down unless the panel was reopened.

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRect>
#include <QTimer>

#include <functional>
#include <memory>

class FeedStore;
class HistoryStore;
class PanelModel;
class QQmlEngine;
class QQuickItem;
class QVariantAnimation;

// The window: Escape is taken here, before the QML sees it.
class HUDWindow : public QQuickWindow {
    Q_OBJECT
public:
    HUDWindow();
    std::function<void()> onEscape;

protected:
    bool event(QEvent *event) override;
};

class PanelController : public QObject {
    Q_OBJECT
public:
    static constexpr int width = 400;
    static constexpr int height = 620;
    static constexpr int slideInMs = 160;
    static constexpr int fadeOutMs = 100;
    static constexpr int teardownMs = 220;
    static constexpr int slideDistance = 8;
    // Long enough that closing and reopening within a glance keeps the window
    // warm; short enough that a panel opened once an hour costs nothing between.
    static constexpr int defaultReleaseMs = 30000;
    // After the release, before the freed memory is handed back.
    static constexpr int trimDelayMs = 1000;

    explicit PanelController(FeedStore *store, QObject *parent = nullptr);
    ~PanelController() override;
    // The app's history, handed to every panel built from now on.
    void setHistory(HistoryStore *history);

    // The scene graph the panel draws with, asked for once before the first
    // Qt Quick window exists: the software one unless the environment names
    // another (QT_QUICK_BACKEND, QSG_RHI_BACKEND). A software panel loads no
    // GL driver at all, and measured lighter at the same frame cost.
    static void chooseGraphicsApi();

    // Opens under `anchor` (global, top-down coordinates); an empty anchor
    // means under the mouse pointer.
    void show(const QRect &anchor);
    void close();
    // Opens (when closed) on one signal: its row opened, so the inspector
    // shows its evidence as that loads; the stream shows every kind if the
    // chosen one hides it. A signal no longer listed leaves the panel on the
    // stream. Returns whether the signal was found.
    bool showSignal(const QRect &anchor, const QString &id);
    // Open and not fading out.
    bool isVisible() const;
    // Monotonic; infinity before the first close.
    double secondsSinceClosed() const;
    qint64 generation() const { return generation_; }

    // How long the panel stays closed before its engine and window go.
    void setReleaseDelay(int ms) { releaseTimer_.setInterval(ms); }
    int releaseDelay() const { return releaseTimer_.interval(); }
    // The engine and the window exist (from the first opening until a release).
    bool isCreated() const { return window_ != nullptr; }

    // Top-left of the panel for an anchor inside an available screen area.
    static QPoint placement(const QRect &anchor, const QRect &available, int panelHeight = height);
    // The panel's height for an anchor: all of it where the work area has
    // room on the anchor's side, else what fits there (the stream scrolls),
    // but never less than minHeight.
    static constexpr int minHeight = 300;
    static int fittedHeight(const QRect &anchor, const QRect &available);
    int panelHeight() const { return panelHeight_; }

    // For tests.
    QQuickWindow *window() const { return window_.get(); }
    QQmlEngine *engine() const { return engine_.get(); }
    QQuickItem *rootItem() const { return root_; }
    PanelModel *model() const { return model_; }
    QPoint targetPosition() const { return target_; }

Q_SIGNALS:
    void opened();
    // The first frame of an opening is on screen.
    void shown();
    void closed();
    void tornDown();
    // The engine and the window are gone and their memory handed back.
    void released();

private:
    void create();
    void release();
    void build();
    void teardown();
    void applyInputRegion();

    QPointer<FeedStore> store_;
    QPointer<HistoryStore> history_;
    std::unique_ptr<QQmlEngine> engine_;
    std::unique_ptr<HUDWindow> window_;
    QVariantAnimation *animation_ = nullptr;
    QTimer releaseTimer_;
    QPointer<QQuickItem> root_;
    QPointer<PanelModel> model_;
    QElapsedTimer closedAt_;
    QElapsedTimer openedAt_;
    double createMs_ = 0;
    double buildMs_ = 0;
    qint64 generation_ = 0;
    bool open_ = false;
    bool wasActive_ = false;
    bool awaitingFrame_ = false;
    QPoint target_;
    int margin_ = 0; // the shadow's band around the panel, in the window
    int panelHeight_ = height;
};
