#include "App/Snapshot.h"

#include "Feed/FeedStore.h"
#include "Menu/MenuSnapshots.h"
#include "Panel/PanelSnapshots.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QPointer>
#include <QTemporaryFile>
#include <QTimer>

namespace Snapshot {

QStringList fileNames()
{
    return {QStringLiteral("statusbar-light.png"), QStringLiteral("statusbar-dark.png"),
            QStringLiteral("panel.png"),           QStringLiteral("settings.png"),
            QStringLiteral("inspector.png"),       QStringLiteral("inspector-loading.png"),
            QStringLiteral("hero-detail.png")};
}

bool prepareDirectory(const QString &dir, QString *error)
{
    const QString path = dir.isEmpty() ? QStringLiteral(".") : dir;
    if (!QDir().mkpath(path)) {
        if (error)
            *error = QStringLiteral("cannot create the snapshot directory ") + path;
        return false;
    }
    QTemporaryFile probe(QDir(path).filePath(QStringLiteral(".larkpin-probe-XXXXXX")));
    if (!probe.open()) {
        if (error)
            *error = QStringLiteral("cannot write into the snapshot directory ") + path +
                     QStringLiteral(": ") + probe.errorString();
        return false;
    }
    return true;
}

namespace {
bool writeStatusBars(const QString &dir, FeedStore &store, QString *error)
{
    const struct {
        bool dark;
        QString name;
    } bars[] = {{false, QStringLiteral("statusbar-light.png")}, {true, QStringLiteral("statusbar-dark.png")}};
    for (const auto &bar : bars) {
        const QImage image = MenuSnapshots::statusBar(store, bar.dark, 2.0);
        const QString file = QDir(dir).filePath(bar.name);
        if (image.isNull() || !image.save(file, "PNG")) {
            *error = QStringLiteral("cannot write ") + file;
            return false;
        }
    }
    return true;
}
} // namespace

void run(const QString &dir, FeedStore &store, std::function<void(bool, QString)> done)
{
    const QString path = dir.isEmpty() ? QStringLiteral(".") : dir;
    QPointer<FeedStore> guard(&store);
    // A precise timer runs on the monotonic clock, so a wall-clock jump during
    // the wait neither shortens nor stretches it.
    QTimer::singleShot(settleMs, Qt::PreciseTimer, &store, [guard, path, done] {
        if (!guard)
            return;
        QString error;
        if (!writeStatusBars(path, *guard, &error)) {
            done(false, error);
            return;
        }
        PanelSnapshots::render(*guard, path, done);
    });
}

} // namespace Snapshot
