// The history file against real SQLite files in a scratch folder: what is
// written comes back, merges keep links, the bounds drop the oldest, searches
// find by token, handle, kind, size and time, a restart keeps everything, and
// bad ground (a damaged file, a full disk, a newer format, a reader holding
// the file) never stops the app.

#include "History/HistoryDb.h"
#include "History/HistoryStore.h"
#include "History/HistoryText.h"
#include "Table.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QCryptographicHash>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

namespace {
constexpr double T0 = 1'800'000'000;

Signal whale(qint64 n, double at, const char *symbol, const char *handle, double usd)
{
    Signal s;
    s.id = QStringLiteral("tw-fill-%1").arg(n);
    s.kind = SignalKind::whale;
    s.line = Headline{u'$' + QLatin1String(symbol), u'@' + QLatin1String(handle) + QStringLiteral(" bought"),
                      QStringLiteral("$%1").arg(usd), std::nullopt};
    s.priority = 60;
    s.createdAt = at;
    s.expiresAt = at + 3600;
    s.asset = AssetRef{QLatin1String(symbol), QStringLiteral("addr-") + QLatin1String(symbol), false};
    s.wallet = WalletRef{QStringLiteral("W") + QLatin1String(handle), u'@' + QLatin1String(handle), 0.5};
    s.notionalUsd = usd;
    return s;
}

Signal spike(const char *symbol, double at, double usd)
{
    Signal s;
    s.id = QStringLiteral("tw-radar-%1-%2").arg(QLatin1String(symbol)).arg(qint64(at));
    s.kind = SignalKind::spike;
    s.line = Headline{u'$' + QLatin1String(symbol), QStringLiteral("5 wallets piling in"), std::nullopt, QStringLiteral("×5")};
    s.createdAt = at;
    s.expiresAt = at + 1200;
    s.asset = AssetRef{QLatin1String(symbol), std::nullopt, false};
    s.notionalUsd = usd;
    return s;
}

HistoryEntry entry(const Signal &s)
{
    HistoryEntry e;
    e.signal = s;
    return e;
}

QList<HistoryEntry> entries(std::initializer_list<Signal> list)
{
    QList<HistoryEntry> out;
    for (const Signal &s : list)
        out << entry(s);
    return out;
}

QStringList ids(const HistoryPage &page)
{
    QStringList out;
    for (const HistoryEntry &e : page.entries)
        out << e.signal.id;
    return out;
}

QByteArray digest(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha256);
}

// 400 signals with long texts: more than a few pages of the file.
QList<Signal> bulkyBatch()
{
    QList<Signal> out;
    for (int i = 0; i < 400; ++i) {
        Signal s = whale(i, T0 + i, "DOGO", "ana", 1000);
        s.detail = QString(200, QLatin1Char('y'));
        out << s;
    }
    return out;
}

// A mixed history: four whales, one spike, over ten minutes.
QList<HistoryEntry> sample()
{
    return entries({whale(1, T0, "DOGO", "ana", 50'000), whale(2, T0 + 60, "BONK", "ben", 1'200'000),
                    spike("PEPE", T0 + 120, 90'000), whale(3, T0 + 180, "dogo", "Cat", 300'000),
                    whale(4, T0 + 600, "WIF", "ana", 8'000)});
}

// clang-format off
struct Search { const char *name, *text; const char *expected; };
const Search searches[] = {
    {.name = "everything, newest first", .text = "",
     .expected = "tw-fill-4 tw-fill-3 tw-radar-PEPE-1800000120 tw-fill-2 tw-fill-1"},
    {.name = "$TOKEN, any case", .text = "$dogo", .expected = "tw-fill-3 tw-fill-1"},
    {.name = "bare symbol", .text = "BONK", .expected = "tw-fill-2"},
    {.name = "@handle, any case", .text = "@cat", .expected = "tw-fill-3"},
    {.name = "kind", .text = "spike", .expected = "tw-radar-PEPE-1800000120"},
    {.name = "minimum size", .text = "$250K", .expected = "tw-fill-3 tw-fill-2"},
    {.name = "size exactly at the minimum is kept", .text = ">=300000", .expected = "tw-fill-3 tw-fill-2"},
    {.name = "handle and size", .text = "@ana 10k", .expected = "tw-fill-1"},
    {.name = "kind and size", .text = "whale 1m", .expected = "tw-fill-2"},
    {.name = "nothing matches", .text = "$NOPE", .expected = ""},
};

struct QueryText { const char *name, *text, *symbol, *handle, *kind; double minUsd; const char *ignored; };
const QueryText queryTexts[] = {
    {.name = "token", .text = "$DOGO", .symbol = "DOGO", .handle = "", .kind = "", .minUsd = 0,
     .ignored = ""},
    {.name = "handle", .text = "@whale_bird", .symbol = "", .handle = "whale_bird", .kind = "", .minUsd = 0,
     .ignored = ""},
    {.name = "stock alias", .text = "stock", .symbol = "", .handle = "", .kind = "stocks", .minUsd = 0,
     .ignored = ""},
    {.name = "size units", .text = "1.5m", .symbol = "", .handle = "", .kind = "", .minUsd = 1'500'000,
     .ignored = ""},
    {.name = "dollar size", .text = "$250K", .symbol = "", .handle = "", .kind = "", .minUsd = 250'000,
     .ignored = ""},
    {.name = "min: prefix", .text = "min:2b", .symbol = "", .handle = "", .kind = "", .minUsd = 2e9,
     .ignored = ""},
    {.name = "all at once", .text = "whale @ana $WIF 50k", .symbol = "WIF", .handle = "ana", .kind = "whale",
     .minUsd = 50'000, .ignored = ""},
    {.name = "markup is not a name", .text = "@<b>x</b> $DOGO", .symbol = "DOGO", .handle = "", .kind = "",
     .minUsd = 0, .ignored = "@<b>x</b>"},
    {.name = "past a trillion is no size", .text = "2000b", .symbol = "", .handle = "", .kind = "",
     .minUsd = 0, .ignored = "2000b"},
};

struct Duration { const char *name, *text; double seconds; };
const Duration durations[] = {
    {.name = "seconds", .text = "90s", .seconds = 90},
    {.name = "minutes", .text = "45m", .seconds = 2700},
    {.name = "hours", .text = "12h", .seconds = 43200},
    {.name = "days", .text = "7d", .seconds = 604800},
    {.name = "weeks", .text = "2w", .seconds = 1209600},
    {.name = "combined", .text = "1d12h", .seconds = 129600},
    {.name = "upper case", .text = "2H", .seconds = 7200},
    {.name = "no unit", .text = "12", .seconds = -1},
    {.name = "negative", .text = "-5m", .seconds = -1},
    {.name = "past a year", .text = "400d", .seconds = -1},
    {.name = "words", .text = "yesterday", .seconds = -1},
    {.name = "empty", .text = "", .seconds = -1},
};
// clang-format on
} // namespace

class HistoryTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    int serial_ = 0;
    QString fresh() { return dir_.filePath(QStringLiteral("h%1/history.sqlite").arg(++serial_)); }

private Q_SLOTS:
    void writeAndReadBack()
    {
        HistoryDb db;
        QVERIFY(db.open(fresh(), {}));
        const Signal s = whale(7, T0, "DOGO", "ana", 1'234'567);
        HistoryEntry e = entry(s);
        e.chart = QUrl(QStringLiteral("https://charts.example/dogo"));
        QVERIFY(db.write({e}, T0 + 5));
        const HistoryPage page = db.search({}, std::nullopt, 10);
        QCOMPARE(page.entries.size(), 1);
        QCOMPARE(page.entries.first().signal, s);
        QCOMPARE(page.entries.first().chart, e.chart);
        QCOMPARE(page.entries.first().firstSeen, T0 + 5);
    }

    // A later merge replaces what the signal says and keeps the links it does
    // not bring; the row is kept once.
    void mergeKeepsLinks()
    {
        HistoryDb db;
        QVERIFY(db.open(fresh(), {}));
        Signal s = spike("PEPE", T0, 50'000);
        QVERIFY(db.write({entry(s)}, T0));
        QVERIFY(db.mergeLinks(s.id, QUrl(QStringLiteral("https://c.example/p")), std::nullopt));
        s.line.body = QStringLiteral("9 wallets piling in");
        s.notionalUsd = 400'000;
        QVERIFY(db.write({entry(s)}, T0 + 30));
        const HistoryPage page = db.search({}, std::nullopt, 10);
        QCOMPARE(page.entries.size(), 1);
        QCOMPARE(page.entries.first().signal, s);
        QCOMPARE(page.entries.first().chart, QUrl(QStringLiteral("https://c.example/p")));
        QCOMPARE(page.entries.first().firstSeen, T0);
        QCOMPARE(page.entries.first().updatedAt, T0 + 30);
        // Only web links come back out, whatever the file holds.
        QVERIFY(db.mergeLinks(s.id, std::nullopt, QUrl(QStringLiteral("javascript:alert(1)"))));
        QVERIFY(!db.search({}, std::nullopt, 10).entries.first().profile);
    }

    void search_data() { rows(searches); }
    void search()
    {
        const Search &r = row(searches);
        HistoryDb db;
        QVERIFY(db.open(fresh(), {}));
        QVERIFY(db.write(sample(), T0));
        const HistoryPage page = db.search(HistoryQuery::parse(QLatin1String(r.text)), std::nullopt, 50);
        QVERIFY2(page.error.isEmpty(), qPrintable(page.error));
        QCOMPARE(ids(page).join(QLatin1Char(' ')), QLatin1String(r.expected));
    }

    // Pages follow one another without a gap or a repeat, even through rows
    // of the same second; mutes and a time range apply to every page.
    void pagesAndMutesAndTime()
    {
        HistoryDb db;
        QVERIFY(db.open(fresh(), {}));
        QList<HistoryEntry> many;
        for (int i = 0; i < 25; ++i)
            many << entry(whale(100 + i, T0 + (i / 3), i % 5 == 0 ? "MUTED" : "OK", i % 7 == 0 ? "shh" : "ana", 1000));
        QVERIFY(db.write(many, T0));
        QStringList expected;
        for (int i = 24; i >= 0; --i)
            if (i % 5 != 0 && i % 7 != 0)
                expected << QStringLiteral("tw-fill-%1").arg(100 + i);
        // Without a size the time index is walked; with one that few rows
        // reach, the size index: both must page alike.
        for (const double minUsd : {0.0, 500.0}) {
            HistoryQuery q;
            q.mutedSymbols = {QStringLiteral("muted")};
            q.mutedHandles = {QStringLiteral("SHH")};
            q.minUsd = minUsd;
            QStringList seen;
            std::optional<HistoryCursor> after;
            int pages = 0;
            do {
                const HistoryPage page = db.search(q, after, 4);
                seen << ids(page);
                after = page.next;
                QVERIFY(++pages < 20);
            } while (after);
            QCOMPARE(seen, expected);
        }

        HistoryQuery range;
        range.since = T0 + 2;
        range.until = T0 + 3;
        QCOMPARE(db.search(range, std::nullopt, 50).entries.size(), 6);
    }

    void boundByAge()
    {
        HistoryDb db;
        QVERIFY(db.open(fresh(), {.maxAgeSeconds = 3600}));
        QVERIFY(db.write(sample(), T0));
        // At T0 + 3600 + 120 the first three are past the hour (the third is
        // exactly at it and stays).
        QCOMPARE(db.prune(T0 + 3600 + 120), qint64(2));
        QCOMPARE(ids(db.search({}, std::nullopt, 10)).join(QLatin1Char(' ')),
                 QStringLiteral("tw-fill-4 tw-fill-3 tw-radar-PEPE-1800000120"));
    }

    // Past the size bound the oldest go first, until the pages in use fit;
    // the newest are kept.
    void boundBySize()
    {
        HistoryDb db;
        const QString path = fresh();
        const qint64 maxBytes = 256 * 1024;
        QVERIFY(db.open(path, {.maxBytes = maxBytes}));
        QList<HistoryEntry> batch;
        for (int i = 0; i < 4000; ++i) {
            Signal s = whale(i, T0 + i, "DOGO", "ana", 1000 + i);
            s.detail = QString(120, QLatin1Char('x'));
            batch << entry(s);
        }
        QVERIFY(db.write(batch, T0));
        QVERIFY(db.usedBytes() > maxBytes);
        const qint64 dropped = db.prune(T0 + 4000);
        QVERIFY(dropped > 0);
        QVERIFY2(db.usedBytes() <= maxBytes, qPrintable(QString::number(db.usedBytes())));
        const HistoryPage newest = db.search({}, std::nullopt, 1);
        QCOMPARE(newest.entries.first().signal.id, QStringLiteral("tw-fill-3999"));
        QCOMPARE(db.count(), 4000 - dropped);
        // The oldest that is left is younger than every dropped one.
        HistoryQuery before;
        before.until = T0 + double(dropped) - 1;
        QCOMPARE(db.search(before, std::nullopt, 5).entries.size(), 0);
    }

    // Close, open again: everything is there and more can be added.
    void surviveRestart()
    {
        const QString path = fresh();
        {
            HistoryStore store({.path = path, .startDelayMs = 0, .batchIntervalMs = 10});
            store.notePublished({whale(1, T0, "DOGO", "ana", 5e5), whale(2, T0 + 1, "WIF", "ben", 6e5)});
            QSignalSpy written(&store, &HistoryStore::batchWritten);
            QVERIFY(written.wait(10000));
            QCOMPARE(store.rowsWritten(), qint64(2));
            // Pending at exit: written by the destructor.
            store.notePublished({whale(3, T0 + 2, "BONK", "cat", 7e5), whale(1, T0, "DOGO", "ana", 5e5)});
        }
        HistoryStore again({.path = path});
        HistoryPage got;
        bool answered = false;
        again.search({}, std::nullopt, 10, this, [&](const HistoryPage &p) {
            got = p;
            answered = true;
        });
        QTRY_VERIFY_WITH_TIMEOUT(answered, 10000);
        QCOMPARE(ids(got), (QStringList{QStringLiteral("tw-fill-3"), QStringLiteral("tw-fill-2"), QStringLiteral("tw-fill-1")}));
    }

    // Only what is new or changed goes to the file: a list published again
    // unchanged writes nothing.
    void onlyChangesAreQueued()
    {
        HistoryStore store({.path = fresh(), .startDelayMs = 60'000}); // nothing leaves during the test
        const QList<Signal> list{whale(1, T0, "A", "a", 1), whale(2, T0, "B", "b", 2)};
        store.notePublished(list);
        QCOMPARE(store.pendingCount(), 2);
        store.notePublished(list);
        QCOMPARE(store.pendingCount(), 2);
        QList<Signal> changed = list;
        changed[0].notionalUsd = 9;
        store.notePublished(changed);
        QCOMPARE(store.pendingCount(), 2); // merged into the queued row
        store.notePublished({whale(3, T0, "C", "c", 3)});
        QCOMPARE(store.pendingCount(), 3);
    }

    // Not a database at all, or a database with a damaged page: moved aside
    // with one line, a new file started, and writing goes on.
    void corruptFile_data()
    {
        QTest::addColumn<bool>("garbage");
        QTest::newRow("not a database") << true;
        QTest::newRow("damaged page") << false;
    }
    void corruptFile()
    {
        QFETCH(bool, garbage);
        const QString path = fresh();
        if (garbage) {
            QDir().mkpath(QFileInfo(path).absolutePath());
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(QByteArray(8192, 'Z'));
        } else {
            {
                HistoryDb db;
                QVERIFY(db.open(path, {}));
                QList<HistoryEntry> many;
                for (int i = 0; i < 2000; ++i)
                    many << entry(whale(i, T0 + i, "DOGO", "ana", 1000));
                QVERIFY(db.write(many, T0));
            }
            // Checkpointed into the main file on close; scribble over pages
            // past the header.
            QFile f(path);
            QVERIFY(f.open(QIODevice::ReadWrite));
            QVERIFY(f.size() > 40000);
            f.seek(16384);
            f.write(QByteArray(16384, '\x5a'));
        }
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("history file was damaged .*moved it to .*corrupt-")));
        HistoryDb db;
        QVERIFY(db.open(path, {}));
        QVERIFY(!db.movedAside().isEmpty());
        QVERIFY(QFileInfo::exists(db.movedAside()));
        QCOMPARE(db.count(), qint64(0));
        QVERIFY(db.write({entry(whale(1, T0, "NEW", "ana", 1))}, T0));
        QCOMPARE(db.count(), qint64(1));
    }

    // The page limit stands in for a full disk (SQLite answers SQLITE_FULL at
    // max_page_count exactly as when the file system refuses to grow): the
    // store pauses with one line and keeps what it could not write (and
    // what comes after), to try again later. The app never waits on it.
    void fullDisk()
    {
        const QString path = fresh();
        {
            HistoryDb db;
            QVERIFY(db.open(path, {}));
        }
        HistoryStore store({.path = path,
                            .db = {.maxPageCount = 12},
                            .startDelayMs = 0,
                            .batchIntervalMs = 10,
                            .retryFullMs = 50});
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("history paused: no room to write")));
        store.notePublished(bulkyBatch());
        QTRY_COMPARE_WITH_TIMEOUT(store.state(), HistoryDb::State::full, 30000);
        QCOMPARE(store.pendingCount(), 400); // kept, not lost
        // Later signals still queue while paused.
        store.notePublished({whale(9000, T0 + 9000, "LATE", "ben", 1)});
        QCOMPARE(store.pendingCount(), 401);
        QVERIFY(store.rowsWritten() == 0);
    }

    // The same on a file system that is really full (the history.full_fs
    // check runs this inside a small tmpfs of its own): what could not be
    // written is kept, and written once room comes back.
    void fullFileSystem()
    {
        const QString dir = qEnvironmentVariable("LARKPIN_TINY_FS");
        if (dir.isEmpty())
            QSKIP("needs a small file system of its own: ctest -R history.full_fs");
        const QString path = dir + QStringLiteral("/history.sqlite");
        {
            HistoryDb db;
            QVERIFY(db.open(path, {}));
        }
        QFile filler(dir + QStringLiteral("/filler"));
        QVERIFY(filler.open(QIODevice::WriteOnly));
        const QByteArray block(4096, 'x');
        while (filler.write(block) == block.size() && filler.flush()) {
        }
        filler.close();
        HistoryStore store({.path = path, .startDelayMs = 0, .batchIntervalMs = 10, .retryFullMs = 50});
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("history paused: no room to write")));
        store.notePublished(bulkyBatch());
        QTRY_COMPARE_WITH_TIMEOUT(store.state(), HistoryDb::State::full, 30000);
        QCOMPARE(store.pendingCount(), 400);
        QVERIFY(QFile::remove(filler.fileName()));
        QTRY_COMPARE_WITH_TIMEOUT(store.rowsWritten(), qint64(400), 30000);
        QCOMPARE(store.pendingCount(), 0);
    }

    // A file written by a newer Larkpin: not a byte changes, history is off
    // with one clear line, and asking it answers "off" at once.
    void newerFormat()
    {
        const QString path = fresh();
        {
            HistoryDb db;
            QVERIFY(db.open(path, {}));
            QVERIFY(db.write(sample(), T0));
        }
        {
            QSqlDatabase raw = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("raw"));
            raw.setDatabaseName(path);
            QVERIFY(raw.open());
            QSqlQuery(raw).exec(QStringLiteral("PRAGMA user_version = 9"));
            QSqlQuery(raw).exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"));
            raw.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("raw"));
        const QByteArray before = digest(path);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("newer format \\(9\\).*left untouched, history is off")));
        HistoryDb db;
        QVERIFY(!db.open(path, {}));
        QCOMPARE(db.state(), HistoryDb::State::newerFormat);
        QVERIFY(!db.write(sample(), T0));
        db.close();
        QCOMPARE(digest(path), before);

        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("newer format")));
        HistoryStore store({.path = path, .startDelayMs = 0, .batchIntervalMs = 10});
        store.notePublished({whale(50, T0, "X", "x", 1)});
        QTRY_COMPARE_WITH_TIMEOUT(store.state(), HistoryDb::State::newerFormat, 10000);
        QCOMPARE(digest(path), before);
    }

    // A reader in the middle of a read (the command line paging through a
    // month) does not hold the writer up, and a writer in the middle of a
    // transaction does not hold the reader up.
    void concurrentReader()
    {
        const QString path = fresh();
        HistoryDb writer;
        QVERIFY(writer.open(path, {}));
        QList<HistoryEntry> many;
        for (int i = 0; i < 3000; ++i)
            many << entry(whale(i, T0 + i, "DOGO", "ana", 1000));
        QVERIFY(writer.write(many, T0));

        HistoryDb reader;
        HistoryDb::Options ro;
        ro.readOnly = true;
        QVERIFY(reader.open(path, ro));
        QCOMPARE(reader.state(), HistoryDb::State::readOnly);
        {
            // An open read, part-way through its rows.
            QSqlDatabase raw = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("holder"));
            raw.setDatabaseName(path);
            raw.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
            QVERIFY(raw.open());
            QSqlQuery held(raw);
            QVERIFY(held.exec(QStringLiteral("SELECT id FROM signals ORDER BY created_at")));
            QVERIFY(held.next());
            QElapsedTimer t;
            t.start();
            QVERIFY(writer.write({entry(whale(5000, T0 + 5000, "NEW", "ben", 1))}, T0));
            // Well under the 2 s the writer would wait on a lock.
            QVERIFY2(t.elapsed() < 1500, qPrintable(QString::number(t.elapsed())));
            QVERIFY(held.next());
            held.finish();
            raw.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("holder"));
        {
            QSqlDatabase raw = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("busy"));
            raw.setDatabaseName(path);
            QVERIFY(raw.open());
            QVERIFY(QSqlQuery(raw).exec(QStringLiteral("BEGIN IMMEDIATE")));
            QVERIFY(QSqlQuery(raw).exec(QStringLiteral("DELETE FROM signals WHERE id = 'tw-fill-0'")));
            QElapsedTimer t;
            t.start();
            const HistoryPage page = reader.search(HistoryQuery::parse(QStringLiteral("$NEW")), std::nullopt, 5);
            QVERIFY2(t.elapsed() < 1500, qPrintable(QString::number(t.elapsed())));
            QCOMPARE(ids(page), QStringList{QStringLiteral("tw-fill-5000")});
            QSqlQuery(raw).exec(QStringLiteral("ROLLBACK"));
            raw.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("busy"));
        // A reader never creates a file that is not there.
        HistoryDb none;
        QVERIFY(!none.open(dir_.filePath(QStringLiteral("nowhere/history.sqlite")), ro));
        QVERIFY(!QFileInfo::exists(dir_.filePath(QStringLiteral("nowhere"))));
    }

    void queryText_data() { rows(queryTexts); }
    void queryText()
    {
        const QueryText &r = row(queryTexts);
        QStringList ignored;
        const HistoryQuery q = HistoryQuery::parse(QLatin1String(r.text), &ignored);
        QCOMPARE(q.symbol, QLatin1String(r.symbol));
        QCOMPARE(q.handle, QLatin1String(r.handle));
        QCOMPARE(q.kind ? SignalKinds::rawValue(*q.kind) : QString(), QLatin1String(r.kind));
        QCOMPARE(q.minUsd, r.minUsd);
        QCOMPARE(ignored.join(QLatin1Char(' ')), QLatin1String(r.ignored));
    }

    void duration_data() { rows(durations); }
    void duration()
    {
        const Duration &r = row(durations);
        const auto got = HistoryText::parseDuration(QLatin1String(r.text));
        QCOMPARE(got.value_or(-1), r.seconds);
    }

    // What the command line prints: plain one-line text, and JSON a script
    // can read, whatever a hand-edited file holds.
    void printedLines()
    {
        HistoryEntry e = entry(whale(42, T0, "DOGO", "ana", 1'200'000));
        e.signal.line.body = QStringLiteral("@ana\nbought\u202e");
        e.chart = QUrl(QStringLiteral("https://c.example/d"));
        const QString text = HistoryText::line(e);
        QVERIFY(!text.contains(QLatin1Char('\n')));
        QVERIFY(!text.contains(QChar(0x202e)));
        QVERIFY(text.contains(QStringLiteral("WHALE  $DOGO · @ana bought")));
        QVERIFY(text.endsWith(QStringLiteral("tw-fill-42")));
        const QJsonObject o = QJsonDocument::fromJson(HistoryText::json(e).toUtf8()).object();
        QCOMPARE(o.value(QStringLiteral("symbol")).toString(), QStringLiteral("DOGO"));
        QCOMPARE(o.value(QStringLiteral("handle")).toString(), QStringLiteral("@ana"));
        QCOMPARE(o.value(QStringLiteral("usd")).toDouble(), 1'200'000.0);
        QCOMPARE(o.value(QStringLiteral("time")).toDouble(), T0);
        QCOMPARE(o.value(QStringLiteral("chart")).toString(), QStringLiteral("https://c.example/d"));
        QVERIFY(!HistoryText::json(e).contains(QLatin1Char('\n')));
    }
};

QTEST_GUILESS_MAIN(HistoryTest)
#include "tst_history.moc"
