#pragma once
// Pictures of the panel, rendered off screen at 2× by the software scene
// graph: the app's snapshot mode, the panel-render tool and the tests use it.

#include <QImage>
#include <QString>

#include <functional>
#include <memory>

class FeedStore;
class PanelModel;
class QQmlEngine;
class QQuickItem;
class QQuickRenderControl;
class QQuickWindow;

// One panel tree rendered into an image instead of a window.
class OffscreenPanel {
public:
    explicit OffscreenPanel(FeedStore *store, double devicePixelRatio = 2.0);
    ~OffscreenPanel();
    OffscreenPanel(const OffscreenPanel &) = delete;
    OffscreenPanel &operator=(const OffscreenPanel &) = delete;

    bool isValid() const { return valid_; }
    QString errorString() const { return error_; }

    // A fresh tree, as if the panel had just opened. Returns its model.
    PanelModel *open();
    void closeTree();
    PanelModel *model() const { return model_; }
    QQuickItem *rootItem() const { return root_; }
    QQuickWindow *window() const { return window_.get(); }
    // Polishes, syncs and renders the current tree.
    QImage grab();

private:
    FeedStore *store_;
    double dpr_;
    bool valid_ = false;
    QString error_;
    std::unique_ptr<QQuickRenderControl> control_;
    std::unique_ptr<QQuickWindow> window_;
    std::unique_ptr<QQmlEngine> engine_;
    QQuickItem *root_ = nullptr;
    PanelModel *model_ = nullptr;
    QImage target_;
};

namespace PanelSnapshots {
inline constexpr int timeoutMs = 10000;
inline constexpr int settleMs = 450; // enter animations finish before a picture
inline constexpr int detailWaitMs = 5000;
// Writes panel.png, settings.png, inspector.png, inspector-loading.png and
// hero-detail.png into dir, then calls done once (also on failure or timeout).
void render(FeedStore &store, const QString &dir, std::function<void(bool ok, QString error)> done);
} // namespace PanelSnapshots
