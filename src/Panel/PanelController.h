#pragma once
// The floating panel: one frameless, translucent, always-on-top Qt Quick
// window, reused for every opening. Each opening builds a fresh HUDView tree
// (so its navigation state starts cleared); each closing fades out and,
// 0.22 s later, tears the tree down unless the panel was reopened meanwhile.

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRect>

#include <functional>
#include <memory>

class FeedStore;
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

    explicit PanelController(FeedStore *store, QObject *parent = nullptr);
    ~PanelController() override;

    // Opens under `anchor` (global, top-down coordinates); an empty anchor
    // means under the mouse pointer.
    void show(const QRect &anchor);
    void close();
    // Open and not fading out.
    bool isVisible() const;
    // Monotonic; infinity before the first close.
    double secondsSinceClosed() const;
    qint64 generation() const { return generation_; }

    // Top-left of the panel for an anchor inside an available screen area.
    static QPoint placement(const QRect &anchor, const QRect &available);

    // For tests.
    QQuickWindow *window() const { return window_.get(); }
    QQuickItem *rootItem() const { return root_; }
    PanelModel *model() const { return model_; }
    QPoint targetPosition() const { return target_; }

Q_SIGNALS:
    void opened();
    void closed();
    void tornDown();

private:
    void build();
    void teardown();

    QPointer<FeedStore> store_;
    std::unique_ptr<QQmlEngine> engine_;
    std::unique_ptr<HUDWindow> window_;
    QVariantAnimation *animation_ = nullptr;
    QPointer<QQuickItem> root_;
    QPointer<PanelModel> model_;
    QElapsedTimer closedAt_;
    qint64 generation_ = 0;
    bool open_ = false;
    bool wasActive_ = false;
    QPoint target_;
    int margin_ = 0; // the shadow's band around the panel, in the window
};
