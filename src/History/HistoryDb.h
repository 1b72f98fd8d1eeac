#pragma once
// The history file itself: one SQLite database through Qt SQL, used from one
// thread (the connection belongs to the thread that opened it). The app's
// HistoryStore drives one on its worker thread; `larkpin --history` and the
// tests open one directly.
//
// Schema version in PRAGMA user_version. A file that is not a database, or
// fails SQLite's quick check, is moved aside and a new one started; a file of
// a newer version is left untouched and the history stays off; a full disk
// pauses writing (the caller keeps what it could not write). WAL journal, so a
// reader never waits for the writer nor the writer for a reader.

#include "History/HistoryQuery.h"

#include <QString>

#include <optional>

class HistoryDb {
public:
    static constexpr int schemaVersion = 1;
    static constexpr double defaultMaxAgeSeconds = 30.0 * 86400;
    static constexpr qint64 defaultMaxBytes = 100LL * 1024 * 1024;

    enum class State {
        closed,
        open,
        readOnly,
        newerFormat, // left untouched; history off
        full,        // the disk (or the size cap) refused a write; paused
        failed,      // could not open or create at all
    };

    struct Options {
        bool readOnly = false;
        double maxAgeSeconds = defaultMaxAgeSeconds;
        qint64 maxBytes = defaultMaxBytes;
        // Tests: SQLite's own page limit, so a write can meet a "full disk".
        std::optional<int> maxPageCount;
        // Small page cache: the history is written a few rows at a time and
        // read a page at a time, so a big cache buys nothing at rest.
        int cacheKiB = 512;
    };

    HistoryDb();
    ~HistoryDb();
    HistoryDb(const HistoryDb &) = delete;
    HistoryDb &operator=(const HistoryDb &) = delete;

    // Opens (creating the folder and the file unless read-only). Logs one line
    // for a file moved aside, a newer format or a failure. Returns state()==open
    // (or readOnly).
    bool open(const QString &path, const Options &options);
    void close();
    State state() const { return state_; }
    bool isUsable() const { return state_ == State::open || state_ == State::readOnly; }
    QString path() const { return path_; }
    // Where a bad file went, when open() moved one aside.
    QString movedAside() const { return movedAside_; }
    QString lastError() const { return lastError_; }

    // Upserts by signal id in one transaction: a later merge replaces what the
    // signal says and keeps links it does not bring. Returns false (nothing
    // written) on failure; state() tells a full disk from other trouble.
    bool write(const QList<HistoryEntry> &entries, double now);
    // Adds links to a signal already kept (a later merge of loaded evidence).
    bool mergeLinks(const QString &id, const std::optional<QUrl> &chart, const std::optional<QUrl> &profile);
    // Drops what is older than the age bound, then the oldest until the file's
    // used pages fit the size bound. Returns the rows dropped.
    qint64 prune(double now);

    HistoryPage search(const HistoryQuery &query, const std::optional<HistoryCursor> &after, int limit);
    qint64 count();
    qint64 usedBytes();
    // Whether a paused (full) history may write again, tried with a write.
    // Open, as opposed to paused before it could even open the file.
    bool connected() const;
    void resume() { if (state_ == State::full) state_ = State::open; }

private:
    bool exec(const QString &sql);
    bool initialise();
    bool noRoomFor(const QString &path) const;
    bool addSizeIndex();
    void lookForSizeIndex();
    bool fewAtLeast(double usd);
    // Below this many rows at or above a size, a search by size alone sorts
    // them rather than walking the whole time index.
    static constexpr int rareSizeRows = 2000;
    bool isCorruption() const;
    void moveAside(const QString &why);
    void noteError(const class QSqlError &error);

    QString connection_;
    QString path_;
    QString movedAside_;
    QString lastError_;
    int lastCode_ = 0;
    Options options_;
    State state_ = State::closed;
    bool sizeIndex_ = false;
};
