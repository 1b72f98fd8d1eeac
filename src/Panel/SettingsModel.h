#pragma once
// The settings page as QML sees it ("panel.settings"): the stored
// preferences it edits, the muted and watched lists, and launch at login,
// which the desktop holds rather than the preferences. Each edit saves
// through the store at once and says whether anything was saved.

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantList>

#include <functional>
#include <optional>

class FeedStore;
class QTimer;

class SettingsModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList streamSwitches READ streamSwitches NOTIFY preferencesChanged)
    Q_PROPERTY(QVariantList minimumChips READ minimumChips NOTIFY preferencesChanged)
    Q_PROPERTY(QVariantList focusChips READ focusChips NOTIFY preferencesChanged)
    Q_PROPERTY(bool paused READ paused NOTIFY preferencesChanged)
    Q_PROPERTY(bool trayOnly READ trayOnly NOTIFY preferencesChanged)
    Q_PROPERTY(bool notifyTakeovers READ notifyTakeovers NOTIFY preferencesChanged)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin NOTIFY launchAtLoginChanged)
    Q_PROPERTY(QString versionText READ versionText CONSTANT)
    // Mute and watch: the lists ({kind: token|wallet|watch, name, label}) and
    // the last mute, undoable for a few seconds ("" when none).
    Q_PROPERTY(QVariantList mutedList READ mutedList NOTIFY preferencesChanged)
    Q_PROPERTY(QVariantList watchedList READ watchedList NOTIFY preferencesChanged)
    Q_PROPERTY(QString undoText READ undoText NOTIFY undoChanged)

public:
    explicit SettingsModel(FeedStore *store, QObject *parent = nullptr);

    // Seams for tests: where launch at login is written and read back
    // (default: the XDG autostart entry through PreferencesStore).
    std::function<void(bool)> setLaunchAtLoginHook;
    std::function<bool()> launchAtLoginHook;
    static constexpr int undoMs = 6000;

    QVariantList streamSwitches() const;
    QVariantList minimumChips() const;
    QVariantList focusChips() const;
    bool paused() const;
    bool trayOnly() const;
    bool notifyTakeovers() const;
    bool launchAtLogin() const { return launchAtLogin_; }
    QString versionText() const;
    QVariantList mutedList() const;
    QVariantList watchedList() const;
    QString undoText() const;
    bool canUndo() const { return undo_.has_value(); }
    QTimer *undoTimer() const { return undoTimer_; }

    Q_INVOKABLE bool setStreamEnabled(const QString &kindRaw, bool on);
    Q_INVOKABLE bool setMinimumSize(double usd);
    Q_INVOKABLE bool setFocusSize(double usd);
    Q_INVOKABLE bool setPaused(bool paused);
    Q_INVOKABLE bool setTrayOnly(bool on);
    Q_INVOKABLE bool setNotifyTakeovers(bool on);
    Q_INVOKABLE void setLaunchAtLogin(bool on);
    // kind is "token", "wallet" (muted) or "watch"; names are bare. A mute
    // can be taken back with undoMute until the undo timer runs out.
    Q_INVOKABLE bool setListed(const QString &kind, const QString &name, bool on);
    Q_INVOKABLE bool undoMute();

    // "$WIF" for a token, "@ansem" for a wallet.
    static QString listedLabel(const QString &kind, const QString &name);

Q_SIGNALS:
    void preferencesChanged();
    void launchAtLoginChanged();
    void undoChanged();

private:
    QPointer<FeedStore> store_;
    bool launchAtLogin_ = false;

    // The last mute, while it can still be taken back.
    struct Undo {
        QString kind;
        QString name;
    };
    std::optional<Undo> undo_;
    QTimer *undoTimer_ = nullptr;
};
