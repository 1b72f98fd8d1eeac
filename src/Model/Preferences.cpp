#include "Model/Preferences.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>
#include <QVariantMap>

const Preferences &Preferences::defaults()
{
    static const Preferences value = [] {
        Preferences p;
        for (SignalKind k : SignalKinds::allCases)
            p.streams[k] = true;
        return p;
    }();
    return value;
}

bool Preferences::shows(SignalKind kind) const
{
    const auto it = streams.find(kind);
    return it == streams.end() || it->second;
}

namespace {
QSettings &standardSettings()
{
    static QSettings settings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin"));
    return settings;
}

// The INI backend hands booleans back as the strings "true"/"false" after a
// round trip through the file; anything else is not a boolean.
std::optional<bool> asBool(const QVariant &v)
{
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString();
        if (s == QLatin1String("true"))
            return true;
        if (s == QLatin1String("false"))
            return false;
    }
    return std::nullopt;
}

double amount(QSettings &settings, const char *key, double fallback)
{
    const QString k = QLatin1String(key);
    if (!settings.contains(k))
        return fallback;
    bool ok = false;
    const double value = settings.value(k).toDouble(&ok);
    if (!ok || !(value >= 0) || !std::isfinite(value)) {
        qWarning("[Larkpin] preference %s holds %s; using %g", key,
                 qPrintable(settings.value(k).toString()), fallback);
        return fallback;
    }
    return value;
}
} // namespace

namespace PreferencesStore {

Preferences load()
{
    return load(standardSettings());
}

Preferences load(QSettings &settings)
{
    Preferences p = Preferences::defaults();
    const QVariant streams = settings.value(QStringLiteral("streams"));
    if (streams.canConvert<QVariantMap>() && streams.typeId() == QMetaType::QVariantMap) {
        const QVariantMap map = streams.toMap();
        bool allBooleans = true;
        std::map<QString, bool> read;
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            const auto b = asBool(it.value());
            if (!b) {
                allBooleans = false;
                break;
            }
            read[it.key()] = *b;
        }
        if (allBooleans) {
            for (SignalKind k : SignalKinds::allCases) {
                const auto found = read.find(SignalKinds::rawValue(k));
                p.streams[k] = found == read.end() ? true : found->second;
            }
        } else {
            qWarning("[Larkpin] preference streams holds a value that is not a switch; showing every kind");
        }
    } else if (settings.contains(QStringLiteral("streams"))) {
        qWarning("[Larkpin] preference streams is not a map; showing every kind");
    }
    p.minTradeUsd = amount(settings, "minTradeUsd", 1000);
    p.focalUsd = amount(settings, "focalUsd", 25000);
    p.paused = asBool(settings.value(QStringLiteral("paused"))).value_or(false);
    return p;
}

void save(const Preferences &prefs)
{
    save(prefs, standardSettings());
}

void save(const Preferences &prefs, QSettings &settings)
{
    QVariantMap streams;
    for (const auto &[kind, on] : prefs.streams)
        streams.insert(SignalKinds::rawValue(kind), on);
    settings.setValue(QStringLiteral("streams"), streams);
    settings.setValue(QStringLiteral("minTradeUsd"), prefs.minTradeUsd);
    settings.setValue(QStringLiteral("focalUsd"), prefs.focalUsd);
    settings.setValue(QStringLiteral("paused"), prefs.paused);
}

QString autostartPath()
{
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty())
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart/larkpin.desktop");
}

void setLaunchAtLogin(bool on)
{
    const QString path = autostartPath();
    if (!on) {
        if (QFile::exists(path) && !QFile::remove(path))
            qWarning("[Larkpin] launch at login toggle failed: cannot remove %s", qPrintable(path));
        return;
    }
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        qWarning("[Larkpin] launch at login toggle failed: cannot create %s",
                 qPrintable(QFileInfo(path).absolutePath()));
        return;
    }
    QString exec = QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
    if (exec.isEmpty())
        exec = QStringLiteral("larkpin");
    // Desktop entries quote arguments with double quotes and escape \ " ` $.
    QString quoted = exec;
    for (const char *c : {"\\", "\"", "`", "$"})
        quoted.replace(QLatin1String(c), QLatin1String("\\") + QLatin1String(c));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        qWarning("[Larkpin] launch at login toggle failed: %s", qPrintable(file.errorString()));
        return;
    }
    const QString entry = QStringLiteral("[Desktop Entry]\nType=Application\nName=Larkpin\nExec=\"") + quoted +
                          QStringLiteral("\"\nIcon=larkpin\nTerminal=false\nX-GNOME-Autostart-enabled=true\n");
    file.write(entry.toUtf8());
    if (!file.commit())
        qWarning("[Larkpin] launch at login toggle failed: %s", qPrintable(file.errorString()));
}

bool launchAtLogin()
{
    QSettings entry(autostartPath(), QSettings::IniFormat);
    if (!QFile::exists(autostartPath()))
        return false;
    return entry.value(QStringLiteral("Desktop Entry/Hidden")).toString() != QLatin1String("true");
}

} // namespace PreferencesStore
