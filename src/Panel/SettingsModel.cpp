#include "Panel/SettingsModel.h"

#include "BuildConfig.h"
#include "Feed/FeedStore.h"
#include "Model/Preferences.h"
#include "Panel/PanelText.h"
#include "Support/Log.h"

#include <QCoreApplication>
#include <QTimer>

#include <cmath>

namespace {
QStringList *listFor(Preferences &p, const QString &kind)
{
    if (kind == QLatin1String("token"))
        return &p.mutedTokens;
    if (kind == QLatin1String("wallet"))
        return &p.mutedWallets;
    if (kind == QLatin1String("watch"))
        return &p.watchedWallets;
    return nullptr;
}

QVariantMap listed(const QString &kind, const QString &name)
{
    return {{QStringLiteral("kind"), kind},
            {QStringLiteral("name"), name},
            {QStringLiteral("label"), SettingsModel::listedLabel(kind, name)}};
}
} // namespace

SettingsModel::SettingsModel(FeedStore *store, QObject *parent) : QObject(parent), store_(store)
{
    launchAtLogin_ = PreferencesStore::launchAtLogin();

    undoTimer_ = new QTimer(this);
    undoTimer_->setSingleShot(true);
    undoTimer_->setInterval(undoMs);
    connect(undoTimer_, &QTimer::timeout, this, [this] {
        undo_.reset();
        Q_EMIT undoChanged();
    });

    if (store)
        connect(store, &FeedStore::preferencesChanged, this, &SettingsModel::preferencesChanged);
}

QString SettingsModel::listedLabel(const QString &kind, const QString &name)
{
    return (kind == QLatin1String("token") ? QStringLiteral("$") : QStringLiteral("@")) + name;
}

QVariantList SettingsModel::streamSwitches() const
{
    static const QString subtitles[] = {
        QStringLiteral("Tracked wallets entering or exiting a position"),
        QStringLiteral("Several tracked wallets piling into the same new pool"),
        QStringLiteral("Several tracked wallets moving the same tokenised equity"),
    };
    QVariantList out;
    if (!store_)
        return out;
    for (SignalKind k : SignalKinds::allCases) {
        out << QVariantMap{{QStringLiteral("kind"), SignalKinds::rawValue(k)},
                           {QStringLiteral("title"), SignalKinds::label(k)},
                           {QStringLiteral("subtitle"), subtitles[int(k)]},
                           {QStringLiteral("on"), store_->preferences().shows(k)}};
    }
    return out;
}

QVariantList SettingsModel::minimumChips() const
{
    QVariantList out;
    const double selected = store_ ? store_->preferences().minTradeUsd : -1;
    for (double v : PanelText::minimumSizeValues())
        out << QVariantMap{{QStringLiteral("label"), PanelText::minimumSizeLabel(v)},
                           {QStringLiteral("value"), v},
                           {QStringLiteral("selected"), v == selected}};
    return out;
}

QVariantList SettingsModel::focusChips() const
{
    QVariantList out;
    const double selected = store_ ? store_->preferences().focalUsd : -1;
    for (double v : PanelText::focusValues())
        out << QVariantMap{{QStringLiteral("label"), PanelText::focusLabel(v)},
                           {QStringLiteral("value"), v},
                           {QStringLiteral("selected"), v == selected}};
    return out;
}

bool SettingsModel::paused() const
{
    return store_ && store_->preferences().paused;
}

bool SettingsModel::trayOnly() const
{
    return store_ && store_->preferences().trayOnly;
}

bool SettingsModel::notifyTakeovers() const
{
    return !store_ || store_->preferences().notifyTakeovers;
}

QString SettingsModel::versionText() const
{
    QString version = QCoreApplication::applicationVersion();
    if (version.isEmpty())
        version = QStringLiteral(LARKPIN_VERSION);
    return PanelText::versionText(version);
}

bool SettingsModel::setStreamEnabled(const QString &kindRaw, bool on)
{
    const auto kind = SignalKinds::fromRaw(kindRaw);
    if (!store_ || !kind)
        return false;
    Preferences next = store_->preferences();
    next.streams[*kind] = on;
    return store_->updatePreferences(next);
}

bool SettingsModel::setMinimumSize(double usd)
{
    if (!store_ || !std::isfinite(usd) || usd < 0)
        return false;
    Preferences next = store_->preferences();
    next.minTradeUsd = usd;
    return store_->updatePreferences(next);
}

bool SettingsModel::setFocusSize(double usd)
{
    if (!store_ || !std::isfinite(usd) || usd < 0)
        return false;
    Preferences next = store_->preferences();
    next.focalUsd = usd;
    return store_->updatePreferences(next);
}

bool SettingsModel::setPaused(bool paused)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    next.paused = paused;
    return store_->updatePreferences(next);
}

bool SettingsModel::setTrayOnly(bool on)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    next.trayOnly = on;
    return store_->updatePreferences(next);
}

bool SettingsModel::setNotifyTakeovers(bool on)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    next.notifyTakeovers = on;
    return store_->updatePreferences(next);
}

void SettingsModel::setLaunchAtLogin(bool on)
{
    if (setLaunchAtLoginHook)
        setLaunchAtLoginHook(on);
    else
        PreferencesStore::setLaunchAtLogin(on);
    // Show what the system holds now, so a refused change flips back.
    launchAtLogin_ = launchAtLoginHook ? launchAtLoginHook() : PreferencesStore::launchAtLogin();
    Q_EMIT launchAtLoginChanged();
}

bool SettingsModel::setListed(const QString &kind, const QString &name, bool on)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    QStringList *list = listFor(next, kind);
    if (!list)
        return false;
    if (on && !Preferences::isListable(name)) {
        Log::write("Larkpin", QStringLiteral("cannot list ") + name.left(Preferences::maxNameLength) +
                                  QStringLiteral(": not a plain symbol or handle"));
        return false;
    }
    if (!Preferences::setListed(*list, name, on))
        return false;
    if (!store_->updatePreferences(next))
        return false;
    const bool isMute = kind != QLatin1String("watch");
    if (isMute && on) {
        undo_ = Undo{kind, name};
        undoTimer_->start();
        Q_EMIT undoChanged();
    } else if (undo_ && undo_->kind == kind && undo_->name == name) {
        // Taken back some other way (from settings): nothing left to undo.
        undo_.reset();
        undoTimer_->stop();
        Q_EMIT undoChanged();
    }
    return true;
}

bool SettingsModel::undoMute()
{
    if (!undo_)
        return false;
    const Undo was = *undo_;
    undo_.reset();
    undoTimer_->stop();
    Q_EMIT undoChanged();
    return setListed(was.kind, was.name, false);
}

QString SettingsModel::undoText() const
{
    return undo_ ? QStringLiteral("Undo mute ") + listedLabel(undo_->kind, undo_->name) : QString();
}

QVariantList SettingsModel::mutedList() const
{
    QVariantList out;
    if (!store_)
        return out;
    const Preferences &p = store_->preferences();
    for (const QString &name : p.mutedTokens)
        out << listed(QStringLiteral("token"), name);
    for (const QString &name : p.mutedWallets)
        out << listed(QStringLiteral("wallet"), name);
    return out;
}

QVariantList SettingsModel::watchedList() const
{
    QVariantList out;
    if (!store_)
        return out;
    for (const QString &name : store_->preferences().watchedWallets)
        out << listed(QStringLiteral("watch"), name);
    return out;
}
