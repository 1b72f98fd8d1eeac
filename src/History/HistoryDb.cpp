#include "History/HistoryDb.h"

#include "Support/Log.h"

#include <QAtomicInt>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QStorageInfo>
#include <QVariant>

#include <algorithm>

namespace {
QAtomicInt connectionCounter;

// SQLite's primary result codes, as Qt reports them in nativeErrorCode().
constexpr int sqliteCorrupt = 11;
constexpr int sqliteFull = 13;
constexpr int sqliteNotADb = 26;

QSqlDatabase database(const QString &name)
{
    return QSqlDatabase::database(name, false);
}

QVariant text(const std::optional<QString> &s)
{
    return s ? QVariant(*s) : QVariant(QMetaType(QMetaType::QString));
}

QVariant real(const std::optional<double> &v)
{
    return v ? QVariant(*v) : QVariant(QMetaType(QMetaType::Double));
}

QVariant link(const std::optional<QUrl> &u)
{
    return u && u->isValid() ? QVariant(u->toString(QUrl::FullyEncoded))
                             : QVariant(QMetaType(QMetaType::QString));
}

std::optional<QString> optText(const QVariant &v)
{
    return v.isNull() ? std::nullopt : std::optional<QString>(v.toString());
}

std::optional<double> optReal(const QVariant &v)
{
    return v.isNull() ? std::nullopt : std::optional<double>(v.toDouble());
}

std::optional<QUrl> optLink(const QVariant &v)
{
    if (v.isNull())
        return std::nullopt;
    QUrl u(v.toString(), QUrl::StrictMode);
    const QString scheme = u.scheme().toLower();
    // What went in was checked; what comes out is checked again, since the
    // file is anyone's to edit.
    if (!u.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return std::nullopt;
    return u;
}

QString bareHandle(const Signal &s)
{
    if (!s.wallet || !s.wallet->label)
        return {};
    QString h = *s.wallet->label;
    if (h.startsWith(QLatin1Char('@')))
        h = h.mid(1);
    return h;
}

const char *columns = "row, id, kind, symbol, address, is_stock, ticker, body, figure, tag, detail, "
                      "label, wallet, win_rate, usd, priority, created_at, expires_at, chart, profile, "
                      "first_seen, updated_at";
} // namespace

HistoryDb::HistoryDb() : connection_(QStringLiteral("larkpin-history-%1").arg(connectionCounter.fetchAndAddRelaxed(1))) {}

HistoryDb::~HistoryDb()
{
    close();
}

void HistoryDb::close()
{
    if (QSqlDatabase::contains(connection_)) {
        {
            QSqlDatabase db = database(connection_);
            if (db.isOpen())
                db.close();
        }
        QSqlDatabase::removeDatabase(connection_);
    }
    if (state_ != State::newerFormat && state_ != State::failed)
        state_ = State::closed;
}

void HistoryDb::noteError(const QSqlError &error)
{
    lastError_ = error.text();
    lastCode_ = error.nativeErrorCode().toInt();
}

bool HistoryDb::noRoomFor(const QString &path) const
{
    if (lastCode_ == sqliteFull)
        return true;
    // SQLite reports a journal it cannot create as an I/O error, not as full.
    const QStorageInfo where(QFileInfo(path).absolutePath());
    return where.isValid() && where.bytesAvailable() < 256 * 1024;
}

bool HistoryDb::connected() const
{
    return QSqlDatabase::contains(connection_) && database(connection_).isOpen();
}

bool HistoryDb::isCorruption() const
{
    return lastCode_ == sqliteCorrupt || lastCode_ == sqliteNotADb;
}

bool HistoryDb::exec(const QString &sql)
{
    QSqlQuery q(database(connection_));
    if (q.exec(sql))
        return true;
    noteError(q.lastError());
    return false;
}

void HistoryDb::moveAside(const QString &why)
{
    close();
    const QString stamp = QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString target = path_ + QStringLiteral(".corrupt-") + stamp;
    for (int n = 1; QFileInfo::exists(target); ++n)
        target = path_ + QStringLiteral(".corrupt-") + stamp + QLatin1Char('-') + QString::number(n);
    const bool moved = QFile::rename(path_, target);
    // The journal belongs to the file it was written for.
    for (const char *suffix : {"-wal", "-shm"}) {
        const QString side = path_ + QLatin1String(suffix);
        if (QFileInfo::exists(side) && !(moved && QFile::rename(side, target + QLatin1String(suffix))))
            QFile::remove(side);
    }
    movedAside_ = moved ? target : QString();
    const QString head = QStringLiteral("history file was damaged (") + why + QStringLiteral(")");
    Log::warning(lcHistory(), moved ? QString(head + QStringLiteral("; moved it to ") + target + QStringLiteral(" and started a new one"))
                                    : QString(head + QStringLiteral(" and could not be moved aside; history is off")));
    if (!moved)
        state_ = State::failed;
}

bool HistoryDb::open(const QString &path, const Options &options)
{
    close();
    path_ = path;
    options_ = options;
    movedAside_.clear();
    lastError_.clear();
    lastCode_ = 0;
    state_ = State::closed;

    for (int attempt = 0; attempt < 2; ++attempt) {
        if (options.readOnly && !QFileInfo::exists(path)) {
            lastError_ = QStringLiteral("no history kept yet at ") + path;
            state_ = State::failed;
            return false;
        }
        if (!options.readOnly && !QDir().mkpath(QFileInfo(path).absolutePath())) {
            lastError_ = QStringLiteral("cannot create ") + QFileInfo(path).absolutePath();
            Log::warning(lcHistory(), QStringLiteral("history is off: ") + lastError_);
            state_ = State::failed;
            return false;
        }
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection_);
            if (!db.isValid()) {
                lastError_ = QStringLiteral("Qt's SQLite driver is not installed");
                Log::warning(lcHistory(), QStringLiteral("history is off: ") + lastError_);
                state_ = State::failed;
                QSqlDatabase::removeDatabase(connection_);
                return false;
            }
            db.setDatabaseName(path);
            db.setConnectOptions(options.readOnly ? QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=2000")
                                                  : QStringLiteral("QSQLITE_BUSY_TIMEOUT=2000"));
            if (!db.open()) {
                noteError(db.lastError());
                Log::warning(lcHistory(), QStringLiteral("history is off: cannot open ") + path + QStringLiteral(": ") +
                                              lastError_);
                state_ = State::failed;
                return false;
            }
        }
        // The version is read before anything could write: a newer file must
        // stay exactly as it is.
        int version = -1;
        QString damage;
        {
            QSqlQuery q(database(connection_));
            if (q.exec(QStringLiteral("PRAGMA user_version")) && q.next()) {
                version = q.value(0).toInt();
            } else {
                noteError(q.lastError());
                if (isCorruption())
                    damage = lastError_;
            }
        }
        if (version > schemaVersion) {
            close();
            state_ = State::newerFormat;
            lastError_ = QStringLiteral("the history file ") + path + QStringLiteral(" is of a newer format (") +
                         QString::number(version) + QStringLiteral(") than this Larkpin reads (") +
                         QString::number(schemaVersion) + QStringLiteral(")");
            Log::warning(lcHistory(), lastError_ + QStringLiteral("; left untouched, history is off"));
            return false;
        }
        if (version > 0 && damage.isEmpty() && !options.readOnly) {
            QSqlQuery q(database(connection_));
            if (!q.exec(QStringLiteral("PRAGMA quick_check(1)")) || !q.next()) {
                noteError(q.lastError());
                damage = lastError_.isEmpty() ? QStringLiteral("quick check failed") : lastError_;
            } else if (q.value(0).toString() != QLatin1String("ok")) {
                damage = q.value(0).toString().left(120);
            }
        }
        if (version < 0 && damage.isEmpty() && !options.readOnly && noRoomFor(path)) {
            // A full disk refuses even the journal's side files, so the file
            // cannot be read; that is a pause, not a fault: try again later.
            close();
            state_ = State::full;
            return false;
        }
        if (version < 0 && damage.isEmpty()) {
            state_ = State::failed;
            Log::warning(lcHistory(), QStringLiteral("history is off: cannot read ") + path + QStringLiteral(": ") +
                                          lastError_);
            close();
            state_ = State::failed;
            return false;
        }
        if (!damage.isEmpty()) {
            if (options.readOnly || attempt > 0) {
                lastError_ = QStringLiteral("the history file ") + path + QStringLiteral(" is damaged: ") + damage;
                close();
                state_ = State::failed;
                return false;
            }
            moveAside(damage);
            if (state_ == State::failed)
                return false;
            continue;
        }
        if (options.readOnly) {
            exec(QStringLiteral("PRAGMA query_only = 1"));
            exec(QStringLiteral("PRAGMA cache_size = -%1").arg(options.cacheKiB));
            lookForSizeIndex();
            state_ = State::readOnly;
            return true;
        }
        if (!initialise()) {
            if (isCorruption() && attempt == 0) {
                moveAside(lastError_);
                if (state_ == State::failed)
                    return false;
                continue;
            }
            Log::warning(lcHistory(), QStringLiteral("history is off: cannot prepare ") + path + QStringLiteral(": ") +
                                          lastError_);
            close();
            state_ = State::failed;
            return false;
        }
        state_ = State::open;
        return true;
    }
    state_ = State::failed;
    return false;
}

bool HistoryDb::initialise()
{
    // Incremental vacuum is chosen before the first table exists (it cannot
    // be turned on later without rewriting the file): pages freed by pruning
    // go back to the file system a few at a time.
    int version = 0;
    {
        QSqlQuery q(database(connection_));
        if (q.exec(QStringLiteral("PRAGMA user_version")) && q.next())
            version = q.value(0).toInt();
    }
    if (version == 0 && !exec(QStringLiteral("PRAGMA auto_vacuum = INCREMENTAL")))
        return false;
    if (!exec(QStringLiteral("PRAGMA journal_mode = WAL")) || !exec(QStringLiteral("PRAGMA synchronous = NORMAL")) ||
        !exec(QStringLiteral("PRAGMA cache_size = -%1").arg(options_.cacheKiB)))
        return false;
    if (options_.maxPageCount && !exec(QStringLiteral("PRAGMA max_page_count = %1").arg(*options_.maxPageCount)))
        return false;
    if (version == schemaVersion)
        return addSizeIndex();
    QSqlDatabase db = database(connection_);
    if (!db.transaction()) {
        noteError(db.lastError());
        return false;
    }
    const bool ok =
        exec(QStringLiteral("CREATE TABLE IF NOT EXISTS signals ("
                            " row INTEGER PRIMARY KEY,"
                            " id TEXT NOT NULL UNIQUE,"
                            " kind TEXT NOT NULL,"
                            " symbol TEXT, symbol_key TEXT, address TEXT, is_stock INTEGER NOT NULL DEFAULT 0,"
                            " ticker TEXT NOT NULL, body TEXT NOT NULL, figure TEXT, tag TEXT, detail TEXT,"
                            " label TEXT, handle_key TEXT, wallet TEXT, win_rate REAL,"
                            " usd REAL, priority INTEGER NOT NULL DEFAULT 0,"
                            " created_at REAL NOT NULL, expires_at REAL NOT NULL DEFAULT 0,"
                            " chart TEXT, profile TEXT,"
                            " first_seen REAL NOT NULL, updated_at REAL NOT NULL)")) &&
        exec(QStringLiteral("CREATE INDEX IF NOT EXISTS signals_time ON signals (created_at)")) &&
        exec(QStringLiteral("CREATE INDEX IF NOT EXISTS signals_symbol ON signals (symbol_key, created_at)")) &&
        exec(QStringLiteral("CREATE INDEX IF NOT EXISTS signals_handle ON signals (handle_key, created_at)")) &&
        exec(QStringLiteral("CREATE INDEX IF NOT EXISTS signals_kind ON signals (kind, created_at)")) &&
        exec(QStringLiteral("PRAGMA user_version = %1").arg(schemaVersion));
    if (!ok) {
        db.rollback();
        return false;
    }
    if (!db.commit()) {
        noteError(db.lastError());
        return false;
    }
    return addSizeIndex();
}

bool HistoryDb::addSizeIndex()
{
    // Added after the first files were written, and harmless to a Larkpin
    // that does not know it: no new format version, so going back to an
    // older build keeps the history. Building it over a full file takes a few
    // seconds, on the history's own thread.
    if (!exec(QStringLiteral("CREATE INDEX IF NOT EXISTS signals_usd ON signals (usd)")))
        return false;
    lookForSizeIndex();
    return true;
}

void HistoryDb::lookForSizeIndex()
{
    QSqlQuery q(database(connection_));
    sizeIndex_ = q.exec(QStringLiteral("SELECT 1 FROM sqlite_master WHERE type = 'index' AND name = 'signals_usd'")) &&
                 q.next();
}

bool HistoryDb::fewAtLeast(double usd)
{
    // Counted on the size index, and never past the bound, so the look costs
    // at most that many index steps however large the file.
    QSqlQuery q(database(connection_));
    q.setForwardOnly(true);
    if (!q.prepare(QStringLiteral("SELECT count(*) FROM (SELECT 1 FROM signals INDEXED BY signals_usd"
                                  " WHERE usd >= ? LIMIT ") +
                   QString::number(rareSizeRows) + QStringLiteral(")")))
        return false;
    q.addBindValue(usd);
    return q.exec() && q.next() && q.value(0).toInt() < rareSizeRows;
}

bool HistoryDb::write(const QList<HistoryEntry> &entries, double now)
{
    if (state_ != State::open)
        return false;
    if (entries.isEmpty())
        return true;
    QSqlDatabase db = database(connection_);
    if (!db.transaction()) {
        noteError(db.lastError());
        return false;
    }
    QSqlQuery q(db);
    bool ok = q.prepare(QStringLiteral(
        "INSERT INTO signals (id, kind, symbol, symbol_key, address, is_stock, ticker, body, figure, tag, detail,"
        " label, handle_key, wallet, win_rate, usd, priority, created_at, expires_at, chart, profile,"
        " first_seen, updated_at)"
        " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)"
        " ON CONFLICT (id) DO UPDATE SET kind = excluded.kind, symbol = excluded.symbol,"
        " symbol_key = excluded.symbol_key, address = COALESCE(excluded.address, address),"
        " is_stock = excluded.is_stock, ticker = excluded.ticker, body = excluded.body,"
        " figure = excluded.figure, tag = excluded.tag, detail = excluded.detail, label = excluded.label,"
        " handle_key = excluded.handle_key, wallet = excluded.wallet, win_rate = excluded.win_rate,"
        " usd = excluded.usd, priority = excluded.priority, created_at = excluded.created_at,"
        " expires_at = excluded.expires_at, chart = COALESCE(excluded.chart, chart),"
        " profile = COALESCE(excluded.profile, profile), updated_at = excluded.updated_at"));
    for (qsizetype i = 0; ok && i < entries.size(); ++i) {
        const HistoryEntry &e = entries.at(i);
        const Signal &s = e.signal;
        const QString handle = bareHandle(s);
        q.addBindValue(s.id);
        q.addBindValue(SignalKinds::rawValue(s.kind));
        q.addBindValue(s.asset ? QVariant(s.asset->symbol) : QVariant(QMetaType(QMetaType::QString)));
        q.addBindValue(s.asset ? QVariant(s.asset->symbol.toUpper()) : QVariant(QMetaType(QMetaType::QString)));
        q.addBindValue(s.asset ? text(s.asset->address) : QVariant(QMetaType(QMetaType::QString)));
        q.addBindValue(s.asset && s.asset->isStock ? 1 : 0);
        q.addBindValue(s.line.ticker);
        q.addBindValue(s.line.body);
        q.addBindValue(text(s.line.figure));
        q.addBindValue(text(s.line.tag));
        q.addBindValue(text(s.detail));
        q.addBindValue(s.wallet ? text(s.wallet->label) : QVariant(QMetaType(QMetaType::QString)));
        q.addBindValue(handle.isEmpty() ? QVariant(QMetaType(QMetaType::QString)) : QVariant(handle.toLower()));
        q.addBindValue(s.wallet ? QVariant(s.wallet->address) : QVariant(QMetaType(QMetaType::QString)));
        q.addBindValue(s.wallet ? real(s.wallet->winRate) : QVariant(QMetaType(QMetaType::Double)));
        q.addBindValue(real(s.notionalUsd));
        q.addBindValue(s.priority);
        q.addBindValue(s.createdAt);
        q.addBindValue(s.expiresAt);
        q.addBindValue(link(e.chart));
        q.addBindValue(link(e.profile));
        q.addBindValue(e.firstSeen > 0 ? e.firstSeen : now);
        q.addBindValue(now);
        ok = q.exec();
    }
    if (ok && db.commit())
        return true;
    noteError(ok ? db.lastError() : q.lastError());
    db.rollback();
    if (lastCode_ == sqliteFull) {
        state_ = State::full;
    } else if (isCorruption()) {
        // Found damaged while running: start again on a fresh file; the batch
        // is the caller's to offer again.
        const Options options = options_;
        moveAside(lastError_);
        if (state_ != State::failed)
            open(path_, options);
    }
    return false;
}

bool HistoryDb::mergeLinks(const QString &id, const std::optional<QUrl> &chart, const std::optional<QUrl> &profile)
{
    if (state_ != State::open)
        return false;
    QSqlQuery q(database(connection_));
    q.prepare(QStringLiteral("UPDATE signals SET chart = COALESCE(?, chart), profile = COALESCE(?, profile) WHERE id = ?"));
    q.addBindValue(link(chart));
    q.addBindValue(link(profile));
    q.addBindValue(id);
    if (q.exec())
        return true;
    noteError(q.lastError());
    if (lastCode_ == sqliteFull)
        state_ = State::full;
    return false;
}

qint64 HistoryDb::usedBytes()
{
    QSqlQuery q(database(connection_));
    qint64 pages = 0, freePages = 0, pageSize = 0;
    if (q.exec(QStringLiteral("PRAGMA page_count")) && q.next())
        pages = q.value(0).toLongLong();
    if (q.exec(QStringLiteral("PRAGMA freelist_count")) && q.next())
        freePages = q.value(0).toLongLong();
    if (q.exec(QStringLiteral("PRAGMA page_size")) && q.next())
        pageSize = q.value(0).toLongLong();
    return (pages - freePages) * pageSize;
}

qint64 HistoryDb::count()
{
    QSqlQuery q(database(connection_));
    if (q.exec(QStringLiteral("SELECT COUNT(*) FROM signals")) && q.next())
        return q.value(0).toLongLong();
    noteError(q.lastError());
    return -1;
}

qint64 HistoryDb::prune(double now)
{
    if (state_ != State::open && state_ != State::full)
        return 0;
    qint64 dropped = 0;
    QSqlQuery q(database(connection_));
    q.prepare(QStringLiteral("DELETE FROM signals WHERE created_at < ?"));
    q.addBindValue(now - options_.maxAgeSeconds);
    if (q.exec())
        dropped += q.numRowsAffected();
    else
        noteError(q.lastError());
    // The oldest go, a twentieth of what is kept at a time, until the pages
    // in use fit.
    while (usedBytes() > options_.maxBytes) {
        const qint64 rows = count();
        if (rows <= 0)
            break;
        QSqlQuery d(database(connection_));
        d.prepare(QStringLiteral(
            "DELETE FROM signals WHERE row IN (SELECT row FROM signals ORDER BY created_at, row LIMIT ?)"));
        d.addBindValue(std::max<qint64>(1, rows / 20));
        if (!d.exec()) {
            noteError(d.lastError());
            break;
        }
        dropped += d.numRowsAffected();
    }
    if (dropped > 0) {
        exec(QStringLiteral("PRAGMA incremental_vacuum"));
        if (state_ == State::full)
            state_ = State::open; // room again: the next write tries
    }
    return dropped;
}

HistoryPage HistoryDb::search(const HistoryQuery &query, const std::optional<HistoryCursor> &after, int limit)
{
    HistoryPage page;
    if ((state_ != State::open && state_ != State::readOnly && state_ != State::full) || !connected()) {
        page.error = lastError_.isEmpty() ? QStringLiteral("history is off") : lastError_;
        return page;
    }
    limit = std::clamp(limit, 1, 1000);
    QStringList where;
    QVariantList binds;
    if (!query.symbol.isEmpty()) {
        where << QStringLiteral("symbol_key = ?");
        binds << query.symbol.toUpper();
    }
    if (!query.handle.isEmpty()) {
        where << QStringLiteral("handle_key = ?");
        binds << query.handle.toLower();
    }
    if (query.kind) {
        // With a token or a handle their index is the narrow one: the unary
        // plus keeps SQLite from walking every row of a kind instead.
        where << (query.symbol.isEmpty() && query.handle.isEmpty() ? QStringLiteral("kind = ?")
                                                                   : QStringLiteral("+kind = ?"));
        binds << SignalKinds::rawValue(*query.kind);
    }
    if (query.minUsd > 0) {
        where << QStringLiteral("usd >= ?");
        binds << query.minUsd;
    }
    if (query.since) {
        where << QStringLiteral("created_at >= ?");
        binds << *query.since;
    }
    if (query.until) {
        where << QStringLiteral("created_at <= ?");
        binds << *query.until;
    }
    const auto notIn = [&](const QString &column, const QStringList &values, bool upper) {
        if (values.isEmpty())
            return;
        QStringList marks;
        for (const QString &v : values.mid(0, 400)) {
            marks << QStringLiteral("?");
            binds << (upper ? v.toUpper() : v.toLower());
        }
        where << QStringLiteral("(") + column + QStringLiteral(" IS NULL OR ") + column + QStringLiteral(" NOT IN (") +
                     marks.join(QLatin1Char(',')) + QStringLiteral("))");
    };
    notIn(QStringLiteral("symbol_key"), query.mutedSymbols, true);
    notIn(QStringLiteral("handle_key"), query.mutedHandles, false);
    if (after) {
        where << QStringLiteral("(created_at, row) < (?, ?)");
        binds << after->createdAt << after->row;
    }
    QString sql = QStringLiteral("SELECT ") + QLatin1String(columns) + QStringLiteral(" FROM signals");
    // Newest first walks the time index and stops at a page, which is quick
    // while most rows match. A size only a few rows reach would walk nearly
    // all of them: those few are taken by the size index and sorted instead.
    if (query.minUsd > 0 && query.symbol.isEmpty() && query.handle.isEmpty() && sizeIndex_ &&
        fewAtLeast(query.minUsd))
        sql += QStringLiteral(" INDEXED BY signals_usd");
    if (!where.isEmpty())
        sql += QStringLiteral(" WHERE ") + where.join(QStringLiteral(" AND "));
    sql += QStringLiteral(" ORDER BY created_at DESC, row DESC LIMIT ") + QString::number(limit + 1);

    QSqlQuery q(database(connection_));
    q.setForwardOnly(true);
    if (!q.prepare(sql)) {
        noteError(q.lastError());
        page.error = lastError_;
        return page;
    }
    for (const QVariant &b : std::as_const(binds))
        q.addBindValue(b);
    if (!q.exec()) {
        noteError(q.lastError());
        page.error = lastError_;
        return page;
    }
    while (q.next()) {
        if (page.entries.size() == limit) {
            const HistoryEntry &last = page.entries.constLast();
            page.next = HistoryCursor{last.signal.createdAt, last.row};
            break;
        }
        HistoryEntry e;
        e.row = q.value(0).toLongLong();
        Signal &s = e.signal;
        s.id = q.value(1).toString();
        s.kind = SignalKinds::fromRaw(q.value(2).toString()).value_or(SignalKind::whale);
        if (!q.value(3).isNull())
            s.asset = AssetRef{q.value(3).toString(), optText(q.value(4)), q.value(5).toInt() != 0};
        s.line.ticker = q.value(6).toString();
        s.line.body = q.value(7).toString();
        s.line.figure = optText(q.value(8));
        s.line.tag = optText(q.value(9));
        s.detail = optText(q.value(10));
        if (!q.value(12).isNull())
            s.wallet = WalletRef{q.value(12).toString(), optText(q.value(11)), optReal(q.value(13)), {}};
        s.notionalUsd = optReal(q.value(14));
        s.priority = q.value(15).toInt();
        s.createdAt = q.value(16).toDouble();
        s.expiresAt = q.value(17).toDouble();
        e.chart = optLink(q.value(18));
        e.profile = optLink(q.value(19));
        e.firstSeen = q.value(20).toDouble();
        e.updatedAt = q.value(21).toDouble();
        page.entries.append(std::move(e));
    }
    return page;
}
