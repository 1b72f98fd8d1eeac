#include "History/HistoryStore.h"

#include "Support/Log.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <QThread>

// Lives on the worker thread; owns the connection.
class HistoryWorker : public QObject {
public:
    HistoryWorker(QString path, HistoryDb::Options options, int pruneIntervalMs)
        : path_(std::move(path)), options_(options), pruneIntervalMs_(pruneIntervalMs)
    {
    }

    static double now() { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; }

    void ensureOpen()
    {
        if (opened_)
            return;
        opened_ = true;
        if (db_.open(path_, options_)) {
            db_.prune(now());
            lastPrune_.start();
        }
    }

    // Returns the rows written; `unwritten` gets back what a full disk refused.
    qint64 write(const QList<HistoryEntry> &entries, const QList<std::tuple<QString, std::optional<QUrl>, std::optional<QUrl>>> &links,
                 QList<HistoryEntry> *unwritten)
    {
        if (db_.state() == HistoryDb::State::full && !db_.connected())
            opened_ = false; // the disk was full before the file could be opened: try that again
        ensureOpen();
        if (db_.state() == HistoryDb::State::full && db_.connected())
            db_.resume(); // try again: pruning or the user may have made room
        if (db_.state() != HistoryDb::State::open) {
            if (db_.state() == HistoryDb::State::full) {
                noteFull();
                *unwritten = entries;
            }
            return 0;
        }
        if (!db_.write(entries, now())) {
            if (db_.state() == HistoryDb::State::full) {
                noteFull();
                *unwritten = entries;
                return 0;
            }
            if (db_.state() == HistoryDb::State::open) {
                // A fresh file after a damaged one: once more.
                if (db_.write(entries, now()))
                    return qint64(entries.size());
            }
            if (db_.state() == HistoryDb::State::open)
                Log::trouble(lcHistory(), QStringLiteral("history: a batch of ") + QString::number(entries.size()) +
                                              QStringLiteral(" could not be written: ") + db_.lastError());
            return 0;
        }
        if (fullLogged_) {
            Log::info(lcHistory(), QStringLiteral("history resumed"));
            fullLogged_ = false;
        }
        for (const auto &[id, chart, profile] : links)
            db_.mergeLinks(id, chart, profile);
        if (!lastPrune_.isValid() || lastPrune_.elapsed() >= pruneIntervalMs_) {
            db_.prune(now());
            lastPrune_.start();
        } else if (db_.usedBytes() > options_.maxBytes) {
            db_.prune(now());
        }
        return qint64(entries.size());
    }

    HistoryPage search(const HistoryQuery &query, const std::optional<HistoryCursor> &after, int limit)
    {
        ensureOpen();
        return db_.search(query, after, limit);
    }

    void noteFull()
    {
        if (!fullLogged_)
            Log::warning(lcHistory(), QStringLiteral("history paused: no room to write ") + path_ + QStringLiteral(" (") +
                                          db_.lastError() + QStringLiteral("); the app goes on and tries again later"));
        fullLogged_ = true;
    }

    HistoryDb::State state() const { return db_.state(); }
    void closeDb() { db_.close(); }

private:
    QString path_;
    HistoryDb::Options options_;
    int pruneIntervalMs_;
    HistoryDb db_;
    bool opened_ = false;
    bool fullLogged_ = false;
    QElapsedTimer lastPrune_;
};

HistoryStore::HistoryStore(QObject *parent) : HistoryStore(Options{}, parent) {}

HistoryStore::HistoryStore(Options options, QObject *parent) : QObject(parent), options_(std::move(options))
{
    if (options_.path.isEmpty())
        options_.path = defaultPath();
    startedAt_ = QDateTime::currentMSecsSinceEpoch();
    batchTimer_.setSingleShot(true);
    connect(&batchTimer_, &QTimer::timeout, this, &HistoryStore::sendBatch);
    retryTimer_.setSingleShot(true);
    connect(&retryTimer_, &QTimer::timeout, this, [this] {
        retryArmed_ = false;
        sendBatch();
    });
}

HistoryStore::~HistoryStore()
{
    if (state_ != HistoryDb::State::newerFormat && state_ != HistoryDb::State::failed)
        sendBatch();
    if (thread_) {
        // Everything queued to the worker runs before this, in order; then
        // the connection is closed on the thread that owns it.
        HistoryWorker *worker = worker_;
        QMetaObject::invokeMethod(worker_, [worker] { worker->closeDb(); }, Qt::BlockingQueuedConnection);
        thread_->quit();
        thread_->wait();
        delete worker_;
        delete thread_;
    }
}

QString HistoryStore::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/larkpin/history.sqlite");
}

void HistoryStore::notePublished(const QList<Signal> &signals)
{
    QHash<QString, Signal> seen;
    seen.reserve(signals.size());
    for (const Signal &s : signals) {
        const auto before = lastSeen_.constFind(s.id);
        if (before == lastSeen_.constEnd() || !(*before == s)) {
            const auto queued = pendingIndex_.constFind(s.id);
            if (queued != pendingIndex_.constEnd()) {
                pending_[*queued].signal = s; // merged before it went out
            } else {
                HistoryEntry e;
                e.signal = s;
                pendingIndex_.insert(s.id, pending_.size());
                pending_.append(std::move(e));
            }
        }
        seen.insert(s.id, s);
    }
    lastSeen_ = std::move(seen);
    if (pending_.size() > options_.maxPending) {
        const qsizetype extra = pending_.size() - options_.maxPending;
        pending_.remove(0, extra);
        pendingIndex_.clear();
        for (qsizetype i = 0; i < pending_.size(); ++i)
            pendingIndex_.insert(pending_.at(i).signal.id, i);
        if (!droppedLogged_)
            Log::warning(lcHistory(), QStringLiteral("history: ") + QString::number(extra) +
                                          QStringLiteral(" signals could not wait for the file any longer and were left out"));
        droppedLogged_ = true;
    }
    scheduleBatch();
}

void HistoryStore::noteLinks(const QString &id, const std::optional<QUrl> &chart, const std::optional<QUrl> &profile)
{
    if ((!chart && !profile) || linked_.contains(id))
        return;
    if (linked_.size() > 4096)
        linked_.clear();
    linked_.insert(id);
    pendingLinks_.append(Links{id, chart, profile});
    scheduleBatch();
}

void HistoryStore::scheduleBatch()
{
    if (batchTimer_.isActive() || retryArmed_ || inFlight_)
        return;
    if (state_ == HistoryDb::State::newerFormat || state_ == HistoryDb::State::failed) {
        pending_.clear();
        pendingIndex_.clear();
        pendingLinks_.clear();
        return;
    }
    const qint64 sinceStart = QDateTime::currentMSecsSinceEpoch() - startedAt_;
    batchTimer_.start(int(std::max<qint64>(options_.batchIntervalMs, options_.startDelayMs - sinceStart)));
}

void HistoryStore::flush()
{
    batchTimer_.stop();
    sendBatch();
}

void HistoryStore::ensureWorker()
{
    if (thread_)
        return;
    thread_ = new QThread;
    thread_->setObjectName(QStringLiteral("larkpin-history"));
    worker_ = new HistoryWorker(options_.path, options_.db, options_.pruneIntervalMs);
    worker_->moveToThread(thread_);
    thread_->start(QThread::LowPriority);
}

void HistoryStore::sendBatch()
{
    if (pending_.isEmpty() && pendingLinks_.isEmpty())
        return;
    if (state_ == HistoryDb::State::newerFormat || state_ == HistoryDb::State::failed)
        return;
    ensureWorker();
    QList<HistoryEntry> batch = std::move(pending_);
    pending_.clear();
    pendingIndex_.clear();
    QList<std::tuple<QString, std::optional<QUrl>, std::optional<QUrl>>> links;
    for (const Links &l : std::as_const(pendingLinks_))
        links.append({l.id, l.chart, l.profile});
    pendingLinks_.clear();
    inFlight_ = true;
    // The worker posts its answer to this object; the destructor drains the
    // worker before this object goes, so the pointer is alive when it posts.
    HistoryStore *self = this;
    HistoryWorker *worker = worker_;
    QMetaObject::invokeMethod(worker_, [self, worker, batch = std::move(batch), links = std::move(links)] {
        QList<HistoryEntry> unwritten;
        const qint64 rows = worker->write(batch, links, &unwritten);
        const HistoryDb::State state = worker->state();
        QMetaObject::invokeMethod(self, [self, state, rows, unwritten = std::move(unwritten)]() mutable {
            self->onBatchDone(state, rows, std::move(unwritten));
        }, Qt::QueuedConnection);
    }, Qt::QueuedConnection);
}

void HistoryStore::onBatchDone(HistoryDb::State state, qint64 rows, QList<HistoryEntry> unwritten)
{
    inFlight_ = false;
    if (rows > 0) {
        ++batchesWritten_;
        rowsWritten_ += rows;
    }
    if (!unwritten.isEmpty()) {
        // Older than anything queued since: they go first next time, unless a
        // newer version of the same signal is already waiting.
        QList<HistoryEntry> merged;
        for (HistoryEntry &e : unwritten)
            if (!pendingIndex_.contains(e.signal.id))
                merged.append(std::move(e));
        merged.append(std::move(pending_));
        pending_ = std::move(merged);
        pendingIndex_.clear();
        for (qsizetype i = 0; i < pending_.size(); ++i)
            pendingIndex_.insert(pending_.at(i).signal.id, i);
    }
    const bool changed = state != state_;
    state_ = state;
    if (changed)
        Q_EMIT stateChanged();
    Q_EMIT batchWritten();
    if (state_ == HistoryDb::State::full) {
        retryArmed_ = true;
        retryTimer_.start(options_.retryFullMs);
        return;
    }
    if (!pending_.isEmpty() || !pendingLinks_.isEmpty())
        scheduleBatch();
}

void HistoryStore::search(const HistoryQuery &query, const std::optional<HistoryCursor> &after, int limit,
                          QObject *context, PageHandler done)
{
    if (state_ == HistoryDb::State::newerFormat || state_ == HistoryDb::State::failed) {
        HistoryPage page;
        page.error = QStringLiteral("History is off.");
        QMetaObject::invokeMethod(context ? context : this, [page, done] { done(page); }, Qt::QueuedConnection);
        return;
    }
    // What is queued goes first, so the answer includes it.
    if (!pending_.isEmpty() || !pendingLinks_.isEmpty()) {
        batchTimer_.stop();
        sendBatch();
    }
    ensureWorker();
    QPointer<QObject> target(context ? context : this);
    HistoryStore *self = this;
    HistoryWorker *worker = worker_;
    QMetaObject::invokeMethod(worker_, [self, target, worker, query, after, limit, done] {
        HistoryPage page = worker->search(query, after, limit);
        const HistoryDb::State state = worker->state();
        QMetaObject::invokeMethod(self, [self, target, state, page = std::move(page), done] {
            if (self->state_ != state) {
                self->state_ = state;
                Q_EMIT self->stateChanged();
            }
            if (target)
                done(page);
        }, Qt::QueuedConnection);
    }, Qt::QueuedConnection);
}

void HistoryStore::setAway(const Away &away)
{
    if (away_ == away)
        return;
    away_ = away;
    Q_EMIT awayChanged();
}
