#pragma once
// The app's history: takes what the feed store publishes, keeps what is new
// or changed, and hands it in batches to a worker thread that owns the
// SQLite connection. Nothing here opens a file or starts a thread until the
// first batch is due, and the first batch waits out the start-up (the first
// live frame, the strip's first flips), so history costs the start nothing.
// Searches run on the same worker and answer on the main thread.
//
// Bad ground never reaches the app: a damaged file is moved aside, a newer
// format turns history off, a full disk pauses it (what could not be written
// waits, bounded, and is tried again), each with one log line.

#include "History/HistoryDb.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <optional>
#include <utility>
#include <memory>

class QThread;
class HistoryWorker;

class HistoryStore : public QObject {
    Q_OBJECT
public:
    struct Options {
        QString path;              // empty: defaultPath()
        HistoryDb::Options db;
        int startDelayMs = 8000;   // before the first batch may go
        int batchIntervalMs = 2000;
        int pruneIntervalMs = 3600 * 1000;
        int retryFullMs = 60 * 1000; // a paused (full) history tries again
        int maxPending = 20000;      // rows waiting while paused; the oldest go first
    };

    explicit HistoryStore(QObject *parent = nullptr);
    explicit HistoryStore(Options options, QObject *parent = nullptr);
    ~HistoryStore() override; // writes what is pending, then stops the worker

    // $XDG_DATA_HOME/larkpin/history.sqlite
    static QString defaultPath();
    QString path() const { return options_.path; }

    // The store published this list (newest first): whatever is new or
    // differs from what was last seen of it is queued. Cheap: a hash lookup
    // and a comparison per signal.
    void notePublished(const QList<Signal> &signals);
    // Evidence loaded for a signal brings its links: merged into the row.
    void noteLinks(const QString &id, const std::optional<QUrl> &chart, const std::optional<QUrl> &profile);

    // Sends what is queued now (tests, shutdown, before a summary is read).
    void flush();
    int pendingCount() const { return int(pending_.size() + pendingLinks_.size()); }

    using PageHandler = std::function<void(const HistoryPage &)>;
    // Newest first; answers on the main thread, after every batch queued
    // before it has been written. `context` going away drops the answer.
    void search(const HistoryQuery &query, const std::optional<HistoryCursor> &after, int limit, QObject *context,
                PageHandler done);

    // What the worker last said about the file.
    HistoryDb::State state() const { return state_; }
    bool writing() const { return state_ == HistoryDb::State::open; }
    qint64 batchesWritten() const { return batchesWritten_; }
    qint64 rowsWritten() const { return rowsWritten_; }

    // "While you were away": the last summary, kept for the panel's banner.
    struct Away {
        double since = 0;
        double until = 0;
        QString text; // empty: nothing to say
        bool operator==(const Away &) const = default;
    };
    const Away &away() const { return away_; }
    void setAway(const Away &away);
    // Asks the History view to show [since, until] (the notification's action).
    // Kept until a History view takes it, so a panel built after the request
    // still shows that range.
    void requestShow(double since, double until)
    {
        showRequest_ = std::pair{since, until};
        Q_EMIT showRequested(since, until);
    }
    std::optional<std::pair<double, double>> takeShowRequest() { return std::exchange(showRequest_, std::nullopt); }

Q_SIGNALS:
    void stateChanged();
    void batchWritten(); // after each batch, on the main thread
    void awayChanged();
    void showRequested(double since, double until);

private:
    void scheduleBatch();
    void ensureWorker();
    void sendBatch();
    void onBatchDone(HistoryDb::State state, qint64 rows, QList<HistoryEntry> unwritten);

    Options options_;
    QHash<QString, Signal> lastSeen_; // the last published list, by id
    QHash<QString, qsizetype> pendingIndex_;
    QList<HistoryEntry> pending_;
    struct Links {
        QString id;
        std::optional<QUrl> chart;
        std::optional<QUrl> profile;
    };
    QList<Links> pendingLinks_;
    QSet<QString> linked_; // ids whose links were already sent
    QTimer batchTimer_;
    QTimer retryTimer_;
    qint64 startedAt_ = 0;
    bool retryArmed_ = false;
    bool inFlight_ = false;
    QThread *thread_ = nullptr;
    HistoryWorker *worker_ = nullptr;
    HistoryDb::State state_ = HistoryDb::State::closed;
    qint64 batchesWritten_ = 0;
    qint64 rowsWritten_ = 0;
    bool droppedLogged_ = false;
    Away away_;
    std::optional<std::pair<double, double>> showRequest_;
};
