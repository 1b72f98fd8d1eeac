#include "Look/ReducedMotion.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QPointer>
#include <QStandardPaths>
#include <QTimer>

namespace ReducedMotion {

bool reducedFrom(const Sources &s)
{
    if (s.override) {
        const QString v = s.override->trimmed();
        if (v == QLatin1String("1"))
            return true;
        if (v == QLatin1String("0"))
            return false;
    }
    if (s.gnomeEnableAnimations && s.gnomeEnableAnimations->trimmed() == QLatin1String("false"))
        return true;
    if (s.kdeAnimationDurationFactor) {
        bool ok = false;
        const double factor = s.kdeAnimationDurationFactor->trimmed().toDouble(&ok);
        if (ok && factor == 0)
            return true;
    }
    return false;
}

namespace {
const QString gsettingsKey[] = {QStringLiteral("get"), QStringLiteral("org.gnome.desktop.interface"),
                                QStringLiteral("enable-animations")};
bool overrideDecides(const Sources &s)
{
    if (!s.override)
        return false;
    const QString v = s.override->trimmed();
    return v == QLatin1String("1") || v == QLatin1String("0");
}
} // namespace

Sources readLocal()
{
    Sources s;
    if (qEnvironmentVariableIsSet("LARKPIN_REDUCE_MOTION"))
        s.override = qEnvironmentVariable("LARKPIN_REDUCE_MOTION");
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    const QString kdeglobals = config + QStringLiteral("/kdeglobals");
    if (QFileInfo(kdeglobals).isFile() && QFileInfo(kdeglobals).size() < 1024 * 1024) {
        const QSettings kde(kdeglobals, QSettings::IniFormat);
        const QVariant factor = kde.value(QStringLiteral("KDE/AnimationDurationFactor"));
        if (factor.isValid())
            s.kdeAnimationDurationFactor = factor.toString();
    }
    return s;
}

Sources readSystem()
{
    Sources s = readLocal();
    const QString gsettings = QStandardPaths::findExecutable(QStringLiteral("gsettings"));
    if (!gsettings.isEmpty() && !overrideDecides(s)) {
        QProcess p;
        p.start(gsettings, {gsettingsKey[0], gsettingsKey[1], gsettingsKey[2]});
        // A missing schema answers at once with an error; a hung dconf must
        // not hold the caller for long.
        if (p.waitForFinished(1000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0)
            s.gnomeEnableAnimations = QString::fromUtf8(p.readAllStandardOutput().left(64)).trimmed();
        else
            p.kill();
    }
    return s;
}

Watcher::Watcher(QObject *parent, int askAfterMs) : QObject(parent), sources_(readLocal())
{
    reduced_ = reducedFrom(sources_);
    if (!overrideDecides(sources_))
        QTimer::singleShot(askAfterMs, this, &Watcher::ask);
}

void Watcher::ask()
{
    const QString gsettings = QStandardPaths::findExecutable(QStringLiteral("gsettings"));
    if (gsettings.isEmpty())
        return;
    auto *p = new QProcess(this);
    connect(p, &QProcess::finished, this, [this, p](int code, QProcess::ExitStatus status) {
        p->deleteLater();
        if (status != QProcess::NormalExit || code != 0)
            return;
        sources_.gnomeEnableAnimations = QString::fromUtf8(p->readAllStandardOutput().left(64)).trimmed();
        const bool now = reducedFrom(sources_);
        if (now != reduced_) {
            reduced_ = now;
            Q_EMIT changed(now);
        }
    });
    // A hung dconf: give up rather than keep a child around.
    QTimer::singleShot(5000, p, [p] { p->kill(); });
    p->start(gsettings, {gsettingsKey[0], gsettingsKey[1], gsettingsKey[2]});
}

Watcher *watcher()
{
    static QPointer<Watcher> instance;
    static bool made = false;
    if (!made && QCoreApplication::instance()) {
        made = true;
        instance = new Watcher(QCoreApplication::instance());
    }
    return instance;
}

bool reduced()
{
    if (const Watcher *w = watcher())
        return w->reduced();
    static const bool value = reducedFrom(readSystem());
    return value;
}

} // namespace ReducedMotion
