#include "Look/ReducedMotion.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>

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

Sources readSystem()
{
    Sources s;
    if (qEnvironmentVariableIsSet("LARKPIN_REDUCE_MOTION"))
        s.override = qEnvironmentVariable("LARKPIN_REDUCE_MOTION");

    const QString gsettings = QStandardPaths::findExecutable(QStringLiteral("gsettings"));
    if (!gsettings.isEmpty()) {
        QProcess p;
        p.start(gsettings, {QStringLiteral("get"), QStringLiteral("org.gnome.desktop.interface"),
                            QStringLiteral("enable-animations")});
        // A missing schema answers at once with an error; a hung dconf must
        // not hold the start-up for long.
        if (p.waitForFinished(1000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0)
            s.gnomeEnableAnimations = QString::fromUtf8(p.readAllStandardOutput().left(64)).trimmed();
        else
            p.kill();
    }

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

bool reduced()
{
    static const bool value = reducedFrom(readSystem());
    return value;
}

} // namespace ReducedMotion
