#pragma once
// The one observable object at the centre: owns the client, ingests batches,
// merges repeats, groups equity trades, prunes, scores and publishes. One
// change signal per published property. Main thread only.

#include "Feed/DetailLoader.h"
#include "Feed/LinkState.h"
#include "Feed/TarnwickClient.h"
#include "Model/Clock.h"
#include "Model/Preferences.h"
#include "Model/Signal.h"
#include "Wire/Telemetry.h"

#include <QHash>
#include <QObject>
#include <QSet>

#include <map>
#include <optional>
#include <set>

class QTimer;

class FeedStore : public QObject {
    Q_OBJECT
public:
    // The app's store: build-time addresses, real clock, preferences from QSettings.
    explicit FeedStore(QObject *parent = nullptr);
    // Tests: a client of their own (the store takes ownership), an injectable
    // clock and a prune interval.
    FeedStore(TarnwickClient *client, Clock now, int pruneIntervalMs = 15000, QObject *parent = nullptr);
    ~FeedStore() override;

    // Published state.
    const QList<Signal> &signalList() const { return signals_; } // newest first, at most 120
    LinkState link() const { return link_; }
    // Why the link fails, when the client could tell (see LinkTrouble).
    const LinkTrouble &trouble() const { return trouble_; }
    std::optional<double> lastUpdate() const { return lastUpdate_; }
    FeedFilter filter() const { return filter_; }
    void setFilter(const FeedFilter &filter);
    const Preferences &preferences() const { return preferences_; }
    // Assigns without saving; emits preferencesChanged when it differs.
    void setPreferences(const Preferences &prefs);
    // What every editor does: equal -> false, nothing saved; otherwise assign,
    // save the whole value, rebuild, return true.
    bool updatePreferences(const Preferences &prefs);
    const Telemetry &telemetry() const { return telemetry_; }
    qint64 heartbeat() const { return heartbeat_; }
    const QHash<QString, SignalDetail> &details() const { return details_->details(); }
    const QSet<QString> &loadingDetail() const { return details_->loading(); }
    const QSet<QString> &failedDetail() const { return details_->failed(); }

    // Derived lists.
    QList<Signal> tickerSignals() const;  // all signals by score, top 8
    QList<Signal> visibleSignals() const; // filtered, newest first
    QList<Signal> heroSignals() const;    // visible by score, top 3
    QList<Signal> streamSignals() const;  // visible minus heroes
    int count(const FeedFilter &filter) const;
    double score(const Signal &s, double now) const;

    void start();
    void stop(); // stops the prune timer and the client's socket (close code 1001)
    void refresh();
    void rebuild();
    void loadDetail(const Signal &signal);

    void ingest(const QList<TwFill> &fills);
    void ingest(const QList<TwRadar> &radar);

    // Mute and watch. A muted signal is held (and counted in telemetry) but
    // never published; a watched wallet's trades always reach the ticker.
    // The names are the bare symbol and handle, as Preferences keeps them.
    static std::optional<QString> tokenOf(const Signal &signal);
    static std::optional<QString> handleOf(const Signal &signal);
    bool isMuted(const Signal &signal) const;
    bool isWatched(const Signal &signal) const;
    const QSet<QString> &watchedHandles() const { return watched_; }

    // A link from the wire, kept only when it is a well-formed http(s) address.
    static std::optional<QUrl> webLink(const std::optional<QString> &text);

    TarnwickClient &client() { return *client_; }
    int heldCount() const { return int(inbox_.size()); }
    int telemetryTickCount() const { return window_.tickCount(); }
    // Fills taken in once, and fills that came again (a backfill repeating
    // what the socket already brought) and were passed over.
    qint64 fillsIngested() const { return fillsIngested_; }
    qint64 fillsRepeated() const { return fillsRepeated_; }
    // Bounds on what the store holds, whatever the rate: past them the
    // oldest go first, counted here and logged at most once a minute.
    static constexpr int maxHeld = 2000;         // signals in the inbox (120 are shown)
    static constexpr int maxActorMarks = 4096;   // wallets whose repeats are merged
    static constexpr int maxStockGroups = 1024;  // equity groups
    static constexpr int maxGroupHandles = 1000; // wallets named in one group
    struct Dropped {
        qint64 signals = 0, actorMarks = 0, stockGroups = 0;
        bool operator==(const Dropped &) const = default;
    };
    const Dropped &dropped() const { return dropped_; }
    int actorMarkCount() const { return int(recentByActor_.size()); }
    int stockGroupCount() const { return int(stockGroups_.size()); }
    int seenFillCount() const { return int(seenFills_.size()); }
    bool pruneTimerActive() const;
    double now() const { return now_(); }
    // The tape's first backfill has been answered (delivered or failed).
    bool backfilled() const { return backfilled_; }

Q_SIGNALS:
    void signalsChanged();
    void linkChanged();
    void troubleChanged();
    void lastUpdateChanged();
    void filterChanged();
    void preferencesChanged();
    void telemetryChanged();
    void heartbeatChanged();
    void detailsChanged();
    void loadingDetailChanged();
    void failedDetailChanged();
    void backfillArrived();

private:
    struct ActorMark {
        QString id;
        double usd = 0;
        double at = 0;
    };
    struct StockGroup {
        QString signalId;
        QSet<QString> handles;
        double totalUsd = 0;
        TwFill largest;
        double at = 0;
    };
    // The inbox is ordered newest first (what rebuild publishes) and indexed
    // by id and by expiry, so neither pruning nor publishing scans every held
    // signal.
    struct Newest {
        bool operator()(const std::pair<double, QString> &a, const std::pair<double, QString> &b) const
        {
            if (a.first != b.first)
                return a.first > b.first;
            return a.second < b.second; // equal times keep one order, so nothing flickers
        }
    };
    using Ordered = std::map<std::pair<double, QString>, Signal, Newest>;

    void wireClient();
    bool ingestStock(const TwFill &fill, const Signal &signal);
    const Signal *held(const QString &id) const;
    bool holdable(const Signal &signal) const; // logs why not
    bool hold(const Signal &signal);
    bool release(const QString &id);
    void setLastUpdate(double at);
    void enforceBounds();
    void reportDrops(double now);
    void log(const QString &message) const;

    TarnwickClient *client_ = nullptr;
    Clock now_;
    int pruneIntervalMs_ = 15000;
    QTimer *pruneTimer_ = nullptr;
    bool verbose_ = false;
    bool backfilled_ = false;

    QList<Signal> signals_;
    LinkState link_ = LinkState::connecting;
    LinkTrouble trouble_;
    std::optional<double> lastUpdate_;
    FeedFilter filter_;
    Preferences preferences_;
    Telemetry telemetry_;
    qint64 heartbeat_ = 0;
    DetailLoader *details_ = nullptr;

    Ordered ordered_;
    QHash<QString, Ordered::iterator> inbox_;
    std::set<std::pair<double, QString>> expiry_;
    QHash<QString, ActorMark> recentByActor_;
    QHash<QString, StockGroup> stockGroups_;
    TelemetryWindow window_;

    // Lookup copies of the preference lists, refreshed whenever they change.
    void refreshMuteSets();
    QSet<QString> mutedTokens_;
    QSet<QString> mutedWallets_;
    QSet<QString> watched_;
    // Ids of the fills taken in lately, bounded; ids rise with time, so the
    // smallest goes first.
    std::set<qint64> seenFills_;
    qint64 fillsIngested_ = 0;
    Dropped dropped_;
    Dropped droppedReported_;
    qint64 ticksReported_ = 0;
    std::optional<double> lastDropReport_;
    qint64 fillsRepeated_ = 0;
};
