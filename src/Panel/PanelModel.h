#pragma once
// The panel's view state and the store, as QML sees them ("panel"). One is
// built for every opening of the panel, so its navigation state (open signal,
// settings shown, bloom) always starts cleared. All decisions live here, in
// SettingsModel ("panel.settings"), Evidence or PanelText; the QML only binds
// and calls.

#include "Feed/LinkState.h"
#include "Look/Motion.h"
#include "Look/ReducedMotion.h"
#include "Model/Clock.h"
#include "Model/Signal.h"
#include "Panel/HistoryModel.h"
#include "Panel/PanelTelemetry.h"
#include "Panel/PanelValues.h"
#include "Panel/SettingsModel.h"
#include "Panel/SignalListModel.h"

#include <QColor>
#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantList>

#include <functional>
#include <optional>

class FeedStore;
class QTimer;

class PanelModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(double now READ now NOTIFY nowChanged)
    // Command rail
    Q_PROPERTY(QString linkText READ linkText NOTIFY linkChanged)
    Q_PROPERTY(QColor linkColour READ linkColour NOTIFY linkChanged)
    Q_PROPERTY(bool linkAlive READ linkAlive NOTIFY linkChanged)
    Q_PROPERTY(bool paused READ paused NOTIFY preferencesChanged)
    Q_PROPERTY(QString pauseSymbol READ pauseSymbol NOTIFY preferencesChanged)
    Q_PROPERTY(QString pauseHelp READ pauseHelp NOTIFY preferencesChanged)
    // Navigation
    Q_PROPERTY(QString openId READ openId NOTIFY openIdChanged)
    Q_PROPERTY(bool showSettings READ showSettings WRITE setShowSettings NOTIFY showSettingsChanged)
    Q_PROPERTY(bool bloom READ bloom NOTIFY bloomChanged)
    // A stand-alone detail card of one signal over the content (empty: none):
    // the opened mini hero, or one asked for by showDetailCard.
    Q_PROPERTY(SignalCard detailCard READ detailCard NOTIFY detailCardChanged)
    // Off for still pictures: every transition jumps to its end.
    Q_PROPERTY(bool animated READ animated NOTIFY animatedChanged)
    // The desktop asks for less motion: slides and springs become short fades.
    Q_PROPERTY(bool reduceMotion READ reduceMotion NOTIFY animatedChanged)
    // Content
    Q_PROPERTY(QVariantList chips READ chips NOTIFY chipsChanged)
    Q_PROPERTY(bool hasHero READ hasHero NOTIFY heroChanged)
    Q_PROPERTY(SignalCard hero READ hero NOTIFY heroChanged)
    Q_PROPERTY(SignalListModel *minis READ minis CONSTANT)
    Q_PROPERTY(SignalListModel *stream READ stream CONSTANT)
    Q_PROPERTY(bool streamEmpty READ streamEmpty NOTIFY listsChanged)
    Q_PROPERTY(QString emptySymbol READ emptySymbol NOTIFY emptyChanged)
    Q_PROPERTY(QString emptyMessage READ emptyMessage NOTIFY emptyChanged)
    // Telemetry band
    Q_PROPERTY(PanelTelemetry *telemetry READ telemetry CONSTANT)
    // Inspector: bumps whenever anything an inspector shows may have changed.
    Q_PROPERTY(int detailRevision READ detailRevision NOTIFY detailRevisionChanged)
    // The settings page and the muted and watched lists.
    Q_PROPERTY(SettingsModel *settings READ settings CONSTANT)
    Q_PROPERTY(QString siteText READ siteText CONSTANT)
    // The kept history and the "while you were away" banner.
    Q_PROPERTY(HistoryModel *history READ history CONSTANT)

public:
    explicit PanelModel(FeedStore *store, QObject *parent = nullptr);
    ~PanelModel() override;

    // Seams for tests and the snapshot renderer.
    std::function<bool(const QUrl &)> openUrlHook; // default: QDesktopServices
    std::function<void()> quitHook;                // default: QCoreApplication::quit
    static constexpr int clockIntervalMs = 3000;
    static constexpr int bloomMs = 800;

    double now() const { return now_; }
    QString linkText() const;
    QColor linkColour() const;
    bool linkAlive() const;
    bool paused() const;
    QString pauseSymbol() const;
    QString pauseHelp() const;
    QString openId() const { return openId_; }
    bool showSettings() const { return showSettings_; }
    void setShowSettings(bool show);
    bool bloom() const { return bloom_; }
    SignalCard detailCard() const;
    bool animated() const { return animated_; }
    void setAnimated(bool on);
    bool reduceMotion() const { return reduceMotion_; }
    void setReduceMotion(bool on);
    QVariantList chips() const;
    bool hasHero() const { return !heroes_.isEmpty(); }
    SignalCard hero() const;
    SignalListModel *minis() { return minis_; }
    SignalListModel *stream() { return stream_; }
    bool streamEmpty() const { return stream_->count() == 0; }
    QString emptySymbol() const;
    QString emptyMessage() const;
    // The bundled tape service's path when it is installed, else empty.
    static QString bundledService();
    PanelTelemetry *telemetry() const { return telemetry_; }
    int detailRevision() const { return detailRevision_; }
    SettingsModel *settings() const { return settings_; }
    QString siteText() const { return QStringLiteral("LARKPIN.APP"); }
    HistoryModel *history() const { return history_; }

    // Actions the QML calls.
    Q_INVOKABLE void toggle(const QString &id);
    Q_INVOKABLE void showDetailCard(const QString &id);
    Q_INVOKABLE void closeDetailCard();
    Q_INVOKABLE void retry(const QString &id);
    Q_INVOKABLE void selectFilter(int index);
    Q_INVOKABLE void togglePause();
    Q_INVOKABLE void refresh();
    Q_INVOKABLE bool openLink(const QString &url);
    Q_INVOKABLE void openSite();
    Q_INVOKABLE void quit();
    // Mute and watch from the context menu of one signal: menuEntries lists
    // what it offers ({action, title}, the pending undo first); runMenuAction
    // does one through the settings.
    Q_INVOKABLE QVariantList menuEntries(const QString &id) const;
    Q_INVOKABLE bool runMenuAction(const QString &id, const QString &action);
    // Menus report being shown; Escape (taken by the window) closes them
    // first, and dismissMenus says whether there was one.
    Q_INVOKABLE void menuShown(bool shown);
    // The one signal menu of the panel lives at its root, not in the row or
    // card it was asked from (a list update may destroy those while the menu
    // is up): a hook asks here with a point in scene coordinates, and the
    // signal is remembered, so the menu's choice applies to it even when it
    // has left the lists meanwhile.
    // Escape steps back one level: the menu, then the settings page, then
    // the detail card, then the open row or card. False when there was
    // nothing left to step back from (the panel itself closes then).
    bool stepBack();
    Q_INVOKABLE void requestMenu(const QString &id, double sceneX, double sceneY);
    bool dismissMenus();

    // Everything the inspector shows for one signal (see Evidence::inspector).
    Q_INVOKABLE InspectorInfo inspector(const QString &id) const;

    // For tests: advance the clock as if the 3 s timer fired.
    void tick(double now);
    const Signal *findSignal(const QString &id) const;
    QTimer *clock() const { return clock_; }

Q_SIGNALS:
    void nowChanged();
    void linkChanged();
    void preferencesChanged();
    void openIdChanged();
    void showSettingsChanged();
    void bloomChanged();
    void detailCardChanged();
    void animatedChanged();
    void chipsChanged();
    void heroChanged();
    void listsChanged();
    void emptyChanged();
    void detailRevisionChanged();
    void dismissMenusRequested();
    void menuRequested(const QString &id, double sceneX, double sceneY);

private:
    void rebuildLists();
    // openId when it names one of the mini heroes, else empty.
    QString openMiniId() const;
    void bumpDetails();
    void flash();

    QPointer<FeedStore> store_;
    double now_ = 0;
    QTimer *clock_ = nullptr;
    QTimer *bloomTimer_ = nullptr;
    QString openId_;
    bool showSettings_ = false;
    bool bloom_ = false;
    bool animated_ = true;
    bool reduceMotion_ = ReducedMotion::reduced();
    QString detailCardId_;
    int detailRevision_ = 0;
    QString firstHeroId_;
    QList<Signal> heroes_;
    SignalListModel *minis_;
    SignalListModel *stream_;
    SettingsModel *settings_;
    int openMenus_ = 0;
    HistoryModel *history_;
    PanelTelemetry *telemetry_;
    std::optional<Signal> menuSignal_; // the signal the menu was last asked for
};
