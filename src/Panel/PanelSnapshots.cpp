#include "Panel/PanelSnapshots.h"

#include "Feed/FeedStore.h"
#include "Panel/PanelController.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelQml.h"

#include <QDir>
#include <QPainter>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickRenderControl>
#include <QQuickRenderTarget>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QTimer>

OffscreenPanel::OffscreenPanel(FeedStore *store, double devicePixelRatio)
    : store_(store), dpr_(devicePixelRatio)
{
    // The pictures come from the software scene graph, whatever the GPU.
    // (Asked once: the scene graph takes the request only before it starts.)
    static const bool software = (QQuickWindow::setGraphicsApi(QSGRendererInterface::Software), true);
    Q_UNUSED(software);
    control_ = std::make_unique<QQuickRenderControl>();
    window_ = std::make_unique<QQuickWindow>(control_.get());
    window_->setColor(Qt::transparent);
    window_->setGeometry(0, 0, PanelController::width, PanelController::height);
    window_->contentItem()->setSize({double(PanelController::width), double(PanelController::height)});
    // The software adaptation needs (and must get) no initialize() call.
    target_ = QImage(QSize(PanelController::width, PanelController::height) * dpr_,
                     QImage::Format_ARGB32_Premultiplied);
    target_.setDevicePixelRatio(dpr_);
    target_.fill(Qt::transparent);
    QQuickRenderTarget rt = QQuickRenderTarget::fromPaintDevice(&target_);
    rt.setDevicePixelRatio(dpr_);
    window_->setRenderTarget(rt);
    engine_ = std::make_unique<QQmlEngine>();
    PanelQml::configureEngine(*engine_, dpr_);
    valid_ = true;
}

OffscreenPanel::~OffscreenPanel()
{
    closeTree();
}

PanelModel *OffscreenPanel::open()
{
    closeTree();
    if (!valid_)
        return nullptr;
    model_ = new PanelModel(store_);
    model_->setAnimated(false);
    root_ = PanelQml::createHud(*engine_, model_, &error_);
    if (!root_)
        return model_;
    root_->setParentItem(window_->contentItem());
    root_->setSize({double(PanelController::width), double(PanelController::height)});
    return model_;
}

void OffscreenPanel::closeTree()
{
    if (root_) {
        root_->setParentItem(nullptr);
        delete root_;
        root_ = nullptr;
    }
    delete model_;
    model_ = nullptr;
}

QImage OffscreenPanel::grab()
{
    if (!valid_)
        return {};
    target_.fill(Qt::transparent);
    // Repaint everything: the software renderer otherwise draws only what changed.
    window_->contentItem()->update();
    control_->polishItems();
    control_->beginFrame();
    control_->sync();
    control_->render();
    control_->endFrame();
    QImage out = target_.copy();
    out.setDevicePixelRatio(dpr_);
    return out;
}

namespace {

class SnapshotJob : public QObject {
public:
    SnapshotJob(FeedStore &store, const QString &dir, std::function<void(bool, QString)> done)
        : store_(&store), dir_(dir), done_(std::move(done)), panel_(&store)
    {
        deadline_.setSingleShot(true);
        connect(&deadline_, &QTimer::timeout, this,
                [this] { finish(false, QStringLiteral("rendering the panel timed out")); });
    }

    void start()
    {
        deadline_.start(PanelSnapshots::timeoutMs);
        if (!panel_.isValid())
            return finish(false, panel_.errorString());
        if (!QDir().mkpath(dir_))
            return finish(false, QStringLiteral("cannot create the snapshot directory ") + dir_);
        step(0);
    }

private:
    void later(int ms, std::function<void()> f)
    {
        QTimer::singleShot(ms, this, [this, f] {
            if (!finished_)
                f();
        });
    }

    bool save(const QString &name)
    {
        if (!panel_.rootItem()) {
            finish(false, QStringLiteral("the panel view did not load: ") + panel_.errorString());
            return false;
        }
        const QImage image = panel_.grab();
        const QString file = QDir(dir_).filePath(name);
        if (image.isNull() || !image.save(file, "PNG")) {
            finish(false, QStringLiteral("cannot write ") + file);
            return false;
        }
        return true;
    }

    // A whale with a wallet shows the richest evidence; any signal will do.
    std::optional<Signal> pickForInspector(PanelModel *model, bool wantUnloaded) const
    {
        QList<Signal> candidates = model->stream()->signalList();
        candidates += store_->heroSignals();
        const auto usable = [&](const Signal &s) {
            return !wantUnloaded ||
                   (!store_->details().contains(s.id) && !store_->loadingDetail().contains(s.id));
        };
        for (const Signal &s : candidates)
            if (s.kind == SignalKind::whale && s.wallet && s.wallet->label && usable(s))
                return s;
        for (const Signal &s : candidates)
            if (usable(s))
                return s;
        return std::nullopt;
    }

    void step(int n)
    {
        if (!store_)
            return finish(false, QStringLiteral("the store went away"));
        switch (n) {
        case 0: // the HUD as it opens
            panel_.open();
            return later(PanelSnapshots::settleMs, [this] {
                if (save(QStringLiteral("panel.png")))
                    step(1);
            });
        case 1: {
            PanelModel *model = panel_.open();
            model->setShowSettings(true);
            return later(PanelSnapshots::settleMs, [this] {
                if (save(QStringLiteral("settings.png")))
                    step(2);
            });
        }
        case 2: {
            PanelModel *model = panel_.open();
            const auto pick = pickForInspector(model, false);
            if (!pick) {
                return later(PanelSnapshots::settleMs, [this] {
                    if (save(QStringLiteral("inspector.png")))
                        step(3);
                });
            }
            model->toggle(pick->id);
            waitFor(pick->id, PanelSnapshots::detailWaitMs, QStringLiteral("inspector.png"), 3);
            return;
        }
        case 3: {
            // Grabbed before the event loop can deliver any reply.
            PanelModel *model = panel_.open();
            if (const auto pick = pickForInspector(model, true))
                model->toggle(pick->id);
            if (save(QStringLiteral("inspector-loading.png")))
                later(0, [this] { step(4); });
            return;
        }
        case 4: {
            PanelModel *model = panel_.open();
            const QList<Signal> heroes = store_->heroSignals();
            if (heroes.isEmpty()) {
                return later(PanelSnapshots::settleMs, [this] {
                    if (save(QStringLiteral("hero-detail.png")))
                        finish(true, {});
                });
            }
            model->showDetailCard(heroes.first().id);
            waitFor(heroes.first().id, PanelSnapshots::detailWaitMs, QStringLiteral("hero-detail.png"), 5);
            return;
        }
        }
    }

    // Waits (bounded) for a signal's evidence, then saves `name` and goes on to step `next`.
    void waitFor(const QString &id, int remainingMs, const QString &name, int next)
    {
        const bool settled = store_->details().contains(id) || store_->failedDetail().contains(id);
        if (settled || remainingMs <= 0) {
            return later(PanelSnapshots::settleMs / 3, [this, name, next] {
                if (!save(name))
                    return;
                if (next > 4)
                    finish(true, {});
                else
                    step(next);
            });
        }
        later(50, [this, id, remainingMs, name, next] { waitFor(id, remainingMs - 50, name, next); });
    }

    void finish(bool ok, const QString &error)
    {
        if (finished_)
            return;
        finished_ = true;
        deadline_.stop();
        panel_.closeTree();
        auto done = done_;
        deleteLater();
        if (done)
            done(ok, error);
    }

    QPointer<FeedStore> store_;
    QString dir_;
    std::function<void(bool, QString)> done_;
    OffscreenPanel panel_;
    QTimer deadline_;
    bool finished_ = false;
};

} // namespace

namespace PanelSnapshots {
void render(FeedStore &store, const QString &dir, std::function<void(bool ok, QString error)> done)
{
    auto *job = new SnapshotJob(store, dir.isEmpty() ? QStringLiteral(".") : dir, std::move(done));
    job->start();
}
} // namespace PanelSnapshots
