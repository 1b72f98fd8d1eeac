#include "Model/Preferences.h"

#include "Support/Log.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>
#include <QVariantMap>

#include <algorithm>

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

bool Preferences::isListable(const QString &name)
{
    if (name.isEmpty() || name.size() > maxNameLength || name.startsWith(QLatin1Char('$')) ||
        name.startsWith(QLatin1Char('@')))
        return false;
    return std::none_of(name.cbegin(), name.cend(), [](QChar c) {
        return c.isSpace() || c.category() == QChar::Other_Control || c.category() == QChar::Other_Format;
    });
}

bool Preferences::setListed(QStringList &list, const QString &name, bool on)
{
    const auto at = std::lower_bound(list.begin(), list.end(), name);
    const bool present = at != list.end() && *at == name;
    if (on == present)
        return false;
    if (!on) {
        list.erase(at);
        return true;
    }
    if (!isListable(name) || list.size() >= maxListed)
        return false;
    list.insert(at, name);
    return true;
}

namespace {
QSettings &standardSettings()
{
    static const bool setAside = PreferencesStore::setAsideIfOversized(PreferencesStore::settingsPath());
    Q_UNUSED(setAside);
    static QSettings settings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin"));
    // A bad entry quietly falls back to its default; a file that cannot be
    // read at all is worth one line, or the user would never learn why their
    // settings are gone.
    static const bool checked = [] {
        if (const auto why = PreferencesStore::unreadable(settings))
            Log::warning(lcApp(), *why + QStringLiteral("; what it spoils keeps its default"));
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

// A mute or watch list. An INI file gives back one entry as plain text and no
// entries as nothing, so both are read as lists. A value of another shape
// leaves the list empty; an entry that is not a name is skipped, the rest
// are kept (losing every mute to one bad line would flood the ticker again).
QStringList nameList(const QVariant &v)
{
    QVariantList items;
    switch (v.typeId()) {
    case QMetaType::QString: items = {v}; break;
    case QMetaType::QStringList:
    case QMetaType::QVariantList: items = v.toList(); break;
    default: return {};
    }
    QStringList out;
    for (const QVariant &item : std::as_const(items)) {
        if (item.typeId() != QMetaType::QString)
            continue;
        const QString name = item.toString();
        if (Preferences::isListable(name))
            out << name;
        if (out.size() >= Preferences::maxListed)
            break;
    }
    out.sort();
    out.removeDuplicates();
    return out;
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

    p.mutedTokens = nameList(settings.value(QStringLiteral("mutedTokens")));
    p.mutedWallets = nameList(settings.value(QStringLiteral("mutedWallets")));
    p.watchedWallets = nameList(settings.value(QStringLiteral("watchedWallets")));
    if (settings.contains(QStringLiteral("notifyTakeovers")))
        p.notifyTakeovers = flag(settings.value(QStringLiteral("notifyTakeovers")));
    p.trayOnly = flag(settings.value(QStringLiteral("trayOnly")));
    return p;
}

QString settingsPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Larkpin/Larkpin.conf");
}

bool setAsideIfOversized(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile() || info.size() <= maxFileBytes)
        return false;
    const QString aside = path + QStringLiteral(".too-large");
    QFile::remove(aside);
    const bool moved = QFile::rename(path, aside);
    Log::warning(lcApp(), QStringLiteral("settings file ") + path + QStringLiteral(" is ") +
                              QString::number(info.size()) + QStringLiteral(" bytes, over the limit of ") +
                              QString::number(maxFileBytes) +
                              (moved ? QStringLiteral("; set aside as ") + aside
                                     : QStringLiteral("; it could not be set aside and may be overwritten")) +
                              QStringLiteral(", the defaults apply"));
    return moved;
}

bool save(const Preferences &prefs)
{
    return save(prefs, standardSettings());
}

bool save(const Preferences &prefs, QSettings &settings)
{
    QVariantMap streams;
    for (const auto &[kind, on] : prefs.streams)
        streams.insert(SignalKinds::rawValue(kind), on);
    settings.setValue(QStringLiteral("streams"), streams);
    settings.setValue(QStringLiteral("minTradeUsd"), prefs.minTradeUsd);
    settings.setValue(QStringLiteral("focalUsd"), prefs.focalUsd);
    settings.setValue(QStringLiteral("paused"), prefs.paused);

    settings.setValue(QStringLiteral("mutedTokens"), prefs.mutedTokens);
    settings.setValue(QStringLiteral("mutedWallets"), prefs.mutedWallets);
    settings.setValue(QStringLiteral("watchedWallets"), prefs.watchedWallets);
    settings.setValue(QStringLiteral("notifyTakeovers"), prefs.notifyTakeovers);
    settings.setValue(QStringLiteral("trayOnly"), prefs.trayOnly);

    // Written now, not at some later idle moment, so a failure can be told.
    settings.sync();
    static bool failing = false;
    if (settings.status() == QSettings::NoError) {
        failing = false;
        return true;
    }
    if (!failing)
        Log::warning(lcApp(),
                     QStringLiteral("settings could not be saved to ") + settings.fileName() +
                         QStringLiteral(" (disk full or read-only?); the change holds until Larkpin quits"));
    failing = true;
    return false;
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
            Log::warning(lcApp(), QStringLiteral("launch at login toggle failed: cannot remove ") + path);
        return;
    }
    if (!QDir().mkpath(QFileInfo(path).absolutePath())) {
        Log::warning(lcApp(), QStringLiteral("launch at login toggle failed: cannot create ") +
                                QFileInfo(path).absolutePath());
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
        Log::warning(lcApp(), QStringLiteral("launch at login toggle failed: ") + file.errorString());
        return;
    }
    const QString entry =
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Larkpin\nExec=\"") + quoted +
        QStringLiteral("\"\nIcon=larkpin\nTerminal=false\nX-GNOME-Autostart-enabled=true\n");
    file.write(entry.toUtf8());
    if (!file.commit())
        Log::warning(lcApp(), QStringLiteral("launch at login toggle failed: ") + file.errorString());
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
