#pragma once
// The user's settings and their persistence in QSettings ("Larkpin"/"Larkpin").

#include "Model/Signal.h"

#include <QStringList>

#include <map>
#include <optional>

class QSettings;

struct Preferences {
    std::map<SignalKind, bool> streams; // whale, spike, stocks
    double minTradeUsd = 1000;
    bool paused = false;
    double focalUsd = 25000;
    bool notifyTakeovers = true; // a desktop notification when a trade takes the ticker over

    // Mute and watch. Tokens by symbol (no "$"), wallets by handle (no "@");
    // each list sorted, without repeats, at most maxListed entries.
    QStringList mutedTokens;
    QStringList mutedWallets;
    QStringList watchedWallets;
    static constexpr int maxListed = 200;
    static constexpr int maxNameLength = 64;
    // A name fit to keep in one of the lists: non-empty, short, no control
    // characters or spaces, no leading "$" or "@".
    static bool isListable(const QString &name);
    // Adds or removes `name`, keeping the list's order and bounds; says whether it changed.
    static bool setListed(QStringList &list, const QString &name, bool on);
    bool trayOnly = false; // no strip: the tray icon (or a corner) is Larkpin's only place

    static const Preferences &defaults();
    // A kind missing from the map is shown.
    bool shows(SignalKind kind) const;
    bool operator==(const Preferences &) const = default;
};

namespace PreferencesStore {
// The default overloads use QSettings("Larkpin", "Larkpin"); tests pass their own.
Preferences load();
Preferences load(QSettings &settings);
// Writes every entry and syncs: the file is replaced whole (a reader holding
// the old one sees it complete) or, when that fails (disk full, read-only),
// left as it was. A failure is said once through larkpin.app, until a save
// succeeds again; false when the settings did not reach the file.
bool save(const Preferences &prefs);
bool save(const Preferences &prefs, QSettings &settings);
// Settings are a few kilobytes; a file past this is not ours to read (it
// would cost seconds and hundreds of megabytes).
inline constexpr qint64 maxFileBytes = 1024 * 1024;
// Before anything reads `path`: an oversized file is renamed to
// "<path>.too-large" (kept, not read) with one line through larkpin.app, so
// the defaults apply. True when it was set aside.
bool setAsideIfOversized(const QString &path);
QString settingsPath(); // where QSettings("Larkpin", "Larkpin") keeps its file
// Why a settings file could not be read at all, or nothing when it could. Bad
// entries are not reported: each quietly falls back to its default.
std::optional<QString> unreadable(const QSettings &settings);

// Launch at login lives in the desktop's autostart folder, not in Preferences.
// Setting it writes or removes ~/.config/autostart/larkpin.desktop (honouring
// XDG_CONFIG_HOME); the getter reads the state back from that file.
void setLaunchAtLogin(bool on);
bool launchAtLogin();
QString autostartPath();
} // namespace PreferencesStore
