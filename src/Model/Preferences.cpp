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
    // A bad entry quietly falls back to its default; a file that cannot be
    // read at all is worth one line, or the user would never learn why their
    // settings are gone.
    static const bool checked = [] {
        if (const auto why = PreferencesStore::unreadable(settings))
            qWarning("[Larkpin] %s; what it spoils keeps its default", qPrintable(*why));
        return true;
    }();
    Q_UNUSED(checked);
    return settings;
}

// Inside the stored "streams" map every value keeps its type through the
// file, so only a real boolean counts as a switch.
std::optional<bool> strictBool(const QVariant &v)
{
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    return std::nullopt;
}

// "paused" reads the way a defaults database reads a flag: a top-level scalar
// comes back from the INI file as text, and a number or "yes"/"true" (any case)
// or a non-zero whole number turns it on; anything else, or nothing, is off.
bool flag(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::Bool: return v.toBool();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::Double: return v.toDouble() != 0;
    case QMetaType::QString: {
        const QString s = v.toString().trimmed();
        if (s.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0 ||
            s.compare(QLatin1String("yes"), Qt::CaseInsensitive) == 0)
            return true;
        bool ok = false;
        const qint64 n = s.toLongLong(&ok);
        return ok && n != 0;
    }
    default: return false;
    }
}

// A malformed or negative amount silently keeps the default; any amount at or
// above zero, infinity included, is taken as saved.
double amount(QSettings &settings, const char *key, double fallback)
{
    const QString k = QLatin1String(key);
    if (!settings.contains(k))
        return fallback;
    bool ok = false;
    const double value = settings.value(k).toDouble(&ok);
    return ok && value >= 0 ? value : fallback;
}
} // namespace

namespace PreferencesStore {

Preferences load()
{
    return load(standardSettings());
}

std::optional<QString> unreadable(const QSettings &settings)
{
    switch (settings.status()) {
    case QSettings::NoError: return std::nullopt;
    case QSettings::FormatError:
        return QStringLiteral("settings file ") + settings.fileName() +
               QStringLiteral(" is not a settings file");
    case QSettings::AccessError: break;
    }
    return QStringLiteral("settings file ") + settings.fileName() + QStringLiteral(" cannot be read");
}

Preferences load(QSettings &settings)
{
    Preferences p = Preferences::defaults();
    const QVariant streams = settings.value(QStringLiteral("streams"));
    if (streams.typeId() == QMetaType::QVariantMap) {
        // One value that is not a switch spoils the whole map: the default stays.
        const QVariantMap map = streams.toMap();
        std::map<QString, bool> read;
        bool allBooleans = true;
        for (auto it = map.cbegin(); it != map.cend() && allBooleans; ++it) {
            const auto b = strictBool(it.value());
            allBooleans = b.has_value();
            if (b)
                read[it.key()] = *b;
        }
        if (allBooleans) {
            for (SignalKind k : SignalKinds::allCases) {
                const auto found = read.find(SignalKinds::rawValue(k));
                p.streams[k] = found == read.end() ? true : found->second;
            }
        }
    }
    p.minTradeUsd = amount(settings, "minTradeUsd", 1000);
    p.focalUsd = amount(settings, "focalUsd", 25000);
    p.paused = flag(settings.value(QStringLiteral("paused")));
    p.trayOnly = flag(settings.value(QStringLiteral("trayOnly")));
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
    settings.setValue(QStringLiteral("trayOnly"), prefs.trayOnly);
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
    const QString entry =
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Larkpin\nExec=\"") + quoted +
        QStringLiteral("\"\nIcon=larkpin\nTerminal=false\nX-GNOME-Autostart-enabled=true\n");
    file.write(entry.toUtf8());
    if (!file.commit())
        qWarning("[Larkpin] launch at login toggle failed: %s", qPrintable(file.errorString()));
}

bool launchAtLogin()
{
    // Read the entry as a desktop would: it is off when it is hidden or when
    // the session's own switch for it is off. (A desktop entry is not an INI
    // file: its Exec line has its own escapes, so it is read line by line.)
    QFile file(autostartPath());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(QLatin1Char('['))) {
            inMainGroup = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inMainGroup)
            continue;
        const qsizetype eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        const QString key = line.left(eq).trimmed(), value = line.mid(eq + 1).trimmed();
        if (key == QLatin1String("Hidden") && value == QLatin1String("true"))
            return false;
        if (key == QLatin1String("X-GNOME-Autostart-enabled") && value == QLatin1String("false"))
            return false;
    }
    return true;
}

} // namespace PreferencesStore
