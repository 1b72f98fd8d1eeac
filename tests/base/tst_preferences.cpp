// Preferences on disk: fresh, partial, malformed and corrupt files fall back
// field by field; a round trip gives back the same value.

#include "Model/Preferences.h"

#include "Table.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>

#include <functional>
#include <memory>

#include <csignal>

#include <limits>
#include <sys/resource.h>
#include <unistd.h>

namespace {
using namespace Qt::StringLiterals;
using P = Preferences;
using enum SignalKind;

QStringList names(const char *spaced)
{
    return QString::fromLatin1(spaced).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QStringList numbered(int count)
{
    QStringList out;
    for (int i = 0; i < count; ++i)
        out << u"w%1"_s.arg(i, 3, 10, QLatin1Char('0'));
    return out;
}

void writeFile(const QString &path, const QByteArray &contents)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(contents);
}

// clang-format off
// One entry written to a file and read back as after a restart (no key: a
// fresh file), and how that differs from the defaults (no change: it does not).
struct Load { const char *name, *key; QVariant value; std::function<void(P &)> change; };
const Load loads[] = {
    {.name = "fresh", .key = nullptr, .value = {}},
    {.name = "whale off only", .key = "streams", .value = QVariantMap{{u"whale"_s, false}},
     .change = [](P &p) { p.streams[whale] = false; }},
    // One value that is not a real boolean spoils the whole map, wherever it sits.
    {.name = "a text is not a switch", .key = "streams",
     .value = QVariantMap{{u"whale"_s, false}, {u"spike"_s, u"false"_s}}},
    {.name = "a number under an unknown key", .key = "streams",
     .value = QVariantMap{{u"whale"_s, false}, {u"zzz"_s, 3}}},
    {.name = "streams not a map", .key = "streams", .value = 42},
    {.name = "unknown kinds ignored", .key = "streams",
     .value = QVariantMap{{u"stocks"_s, false}, {u"stock"_s, true}},
     .change = [](P &p) { p.streams[stocks] = false; }},
    {.name = "negative min", .key = "minTradeUsd", .value = -5.0},
    {.name = "NaN min", .key = "minTradeUsd", .value = u"nan"_s},
    {.name = "zero min kept", .key = "minTradeUsd", .value = 0.0, .change = [](P &p) { p.minTradeUsd = 0; }},
    {.name = "text focal", .key = "focalUsd", .value = u"lots"_s},
    {.name = "negative focal", .key = "focalUsd", .value = -0.01},
    {.name = "zero focal kept", .key = "focalUsd", .value = 0.0, .change = [](P &p) { p.focalUsd = 0; }},
    {.name = "paused 1", .key = "paused", .value = 1, .change = [](P &p) { p.paused = true; }},
    {.name = "paused 0", .key = "paused", .value = 0},
    {.name = "paused YES", .key = "paused", .value = u"YES"_s, .change = [](P &p) { p.paused = true; }},
    // Mute and watch lists: a value of the wrong shape leaves the list empty;
    // entries that are not names are skipped, the rest kept sorted.
    {.name = "muted tokens with bad entries", .key = "mutedTokens",
     .value = QStringList{u"WIF"_s, u"$PEPE"_s, {}, u"two words"_s, QString(65, u'x'), u"tab\there"_s, u"BONK"_s, u"WIF"_s},
     .change = [](P &p) { p.mutedTokens = names("BONK WIF"); }},
    {.name = "control character in a handle", .key = "mutedWallets",
     .value = QStringList{u"kai\a"_s, u"mo"_s}, .change = [](P &p) { p.mutedWallets = names("mo"); }},
    {.name = "muted wallets of another type", .key = "mutedWallets", .value = QSize(4, 2)},
    {.name = "muted tokens a map", .key = "mutedTokens", .value = QVariantMap{{u"WIF"_s, true}}},
    {.name = "a list of one read as text", .key = "watchedWallets", .value = u"kim"_s,
     .change = [](P &p) { p.watchedWallets = {u"kim"_s}; }},
    {.name = "kept to the bound", .key = "watchedWallets", .value = numbered(300),
     .change = [](P &p) { p.watchedWallets = numbered(200); }},
};

// On a list of BONK and WIF (nullptr: filled up to the bound first, and left so).
struct Listed { const char *name, *entry; bool on, changed; const char *after; };
const Listed listed[] = {
    {.name = "added in order", .entry = "MEW", .on = true, .changed = true, .after = "BONK MEW WIF"},
    {.name = "already there", .entry = "WIF", .on = true, .changed = false, .after = "BONK WIF"},
    {.name = "removed", .entry = "BONK", .on = false, .changed = true, .after = "WIF"},
    {.name = "removing a stranger", .entry = "MEW", .on = false, .changed = false, .after = "BONK WIF"},
    {.name = "not a name", .entry = "$MEW", .on = true, .changed = false, .after = "BONK WIF"},
    {.name = "a handle with its @", .entry = "@kai", .on = true, .changed = false, .after = "BONK WIF"},
    {.name = "full list", .entry = "full", .on = true, .changed = false, .after = nullptr},
};

// A file that cannot be read at all is named with the reason; a readable file
// with bad entries is not (each entry falls back on its own). No contents: no
// file; no reason: readable.
const double defaultMin = P::defaults().minTradeUsd;
struct File { const char *name; QByteArray contents; bool asFolder; const char *reason; double minTrade; };
const File files[] = {
    {.name = "fine", .contents = "[General]\nminTradeUsd=500\n", .asFolder = false, .reason = nullptr,
     .minTrade = 500},
    {.name = "bad entries only", .contents = "[General]\nminTradeUsd=abc\npaused=maybe\n", .asFolder = false,
     .reason = nullptr, .minTrade = defaultMin},
    {.name = "missing", .contents = {}, .asFolder = false, .reason = nullptr, .minTrade = defaultMin},
    {.name = "corrupt entries",
     .contents = QByteArray("\x00\xff[General\nstreams=@Variant(\x01\x02garbage\n" "minTradeUsd=@ByteArray(\xfe)\npaused=maybe\n", 70),
     .asFolder = false, .reason = nullptr, .minTrade = defaultMin},
    {.name = "binary junk", .contents = QByteArray("[General]\nminTradeUsd=500\n[broken\nx=\x00\x01\n", 39),
     .asFolder = false, .reason = "is not a settings file", .minTrade = 500},
    {.name = "a folder in its place", .contents = {}, .asFolder = true, .reason = "cannot be read",
     .minTrade = defaultMin},
};

// An entry the user or another tool edited is read the way a desktop reads it.
struct Entry { const char *name; QByteArray text; bool on; };
const Entry entries[] = {
    {.name = "plain", .text = "[Desktop Entry]\nType=Application\nExec=larkpin\n", .on = true},
    {.name = "hidden", .text = "[Desktop Entry]\nExec=larkpin\nHidden=true\n", .on = false},
    {.name = "session switch off", .text = "[Desktop Entry]\nExec=larkpin\nX-GNOME-Autostart-enabled=false\n",
     .on = false},
    {.name = "hidden in another group",
     .text = "[Desktop Entry]\nExec=larkpin\n[Desktop Action x]\nHidden=true\n", .on = true},
    {.name = "escapes in Exec", .text = "[Desktop Entry]\nExec=\"/opt/a \\\"b\\\"/larkpin\"\n", .on = true},
};
// clang-format on
} // namespace

class PreferencesTest : public QObject {
    Q_OBJECT
    QTemporaryDir dir_;
    // A file of its own for every row.
    QString file() const
    {
        return dir_.filePath(QLatin1String(QTest::currentTestFunction()) + u'-' +
                             QString::fromUtf8(QTest::currentDataTag()));
    }
    void configAt(const QString &folder) { qputenv("XDG_CONFIG_HOME", dir_.filePath(folder).toUtf8()); }

    // Warnings of larkpin.app while `body` runs.
    static QStringList warningsDuring(const std::function<void()> &body)
    {
        static QStringList *seen = nullptr;
        QStringList caught;
        seen = &caught;
        const QtMessageHandler previous =
            qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &c, const QString &message) {
                if (type == QtWarningMsg && c.category && QByteArray(c.category) == "larkpin.app")
                    seen->append(message);
            });
        body();
        qInstallMessageHandler(previous);
        seen = nullptr;
        return caught;
    }

private Q_SLOTS:
    // First, while nothing has read the app's own settings yet: a file of
    // 50 MB is never parsed; it is set aside with one line, the defaults
    // apply, and the session's saves go on in a fresh file.
    void oversizedFileIsRefused()
    {
        configAt(u"oversized"_s);
        const QString path = PreferencesStore::settingsPath();
        QCOMPARE(path, QSettings(u"Larkpin"_s, u"Larkpin"_s).fileName());
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write("[General]\nminTradeUsd=5\nmutedTokens=");
            const QByteArray entry = "WIFWIFWIF, ";
            for (qint64 written = 0; written < 50 * 1024 * 1024; written += entry.size() * 4096)
                f.write(entry.repeated(4096));
        }
        const QStringList told = warningsDuring([] { QCOMPARE(PreferencesStore::load(), P::defaults()); });
        QCOMPARE(told.size(), 1);
        QVERIFY2(QRegularExpression(
                     u"^\\[Larkpin\\] settings file .*Larkpin.conf is \\d+ bytes, over the limit of "
                     u"1048576; set aside as .*Larkpin.conf.too-large, the defaults apply$"_s)
                     .match(told.first())
                     .hasMatch(),
                 qPrintable(told.first()));
        QVERIFY(QFileInfo(path + u".too-large"_s).size() > 50 * 1024 * 1024); // kept, not lost
        P changed = P::defaults();
        changed.paused = true;
        QVERIFY(PreferencesStore::save(changed));
        QVERIFY(QFileInfo(path).size() < 4096);
        // At the limit a file is read as usual.
        const QString atLimit = file();
        writeFile(atLimit, "[General]\nx=" + QByteArray(PreferencesStore::maxFileBytes - 12, 'a'));
        QCOMPARE(QFileInfo(atLimit).size(), PreferencesStore::maxFileBytes);
        QVERIFY(!PreferencesStore::setAsideIfOversized(atLimit));
        QVERIFY(QFile::exists(atLimit));
    }

    // A save writes a new file and puts it in place whole: a reader holding
    // the old one reads it complete, and a save that cannot write (a
    // read-only folder) leaves the old file and says so once.
    void saveReplacesTheFileWhole()
    {
        const QString folder = dir_.filePath(u"whole"_s);
        QVERIFY(QDir().mkpath(folder));
        const QString path = folder + u"/Larkpin.conf"_s;
        P first = P::defaults();
        first.mutedTokens = numbered(150);
        P second = P::defaults();
        second.minTradeUsd = 25000;
        QSettings settings(path, QSettings::IniFormat);
        QVERIFY(PreferencesStore::save(first, settings));
        QFile held(path);
        QVERIFY(held.open(QIODevice::ReadOnly));
        const QByteArray before = held.peek(1 << 20);
        QVERIFY(before.contains("w149"));
        QVERIFY(PreferencesStore::save(second, settings));
        QCOMPARE(held.readAll(), before); // the old file, whole, for whoever had it open
        QCOMPARE(PreferencesStore::load(*std::make_unique<QSettings>(path, QSettings::IniFormat)), second);

        // A full disk, for root as for anyone: no file may grow past 64 bytes.
        P third = second;
        third.paused = true;
        const QByteArray kept = [&] {
            QFile f(path);
            return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
        }();
        QVERIFY(kept.size() > 64);
        bool saved = true;
        const QStringList told = warningsDuring([&] {
            const auto previous = ::signal(SIGXFSZ, SIG_IGN);
            rlimit limit{};
            ::getrlimit(RLIMIT_FSIZE, &limit);
            const rlimit full{64, limit.rlim_max}; // the soft limit only: it can be raised again
            ::setrlimit(RLIMIT_FSIZE, &full);
            saved = PreferencesStore::save(third, settings);
            third.focalUsd = 1;
            saved = PreferencesStore::save(third, settings) || saved;
            ::setrlimit(RLIMIT_FSIZE, &limit);
            ::signal(SIGXFSZ, previous);
        });
        QVERIFY(!saved);
        QCOMPARE(told.size(), 1);
        QVERIFY2(told.first().startsWith(u"[Larkpin] settings could not be saved to "_s + path),
                 qPrintable(told.first()));
        QFile after(path);
        QVERIFY(after.open(QIODevice::ReadOnly));
        QCOMPARE(after.readAll(), kept);
    }

    void load_data() { rows(loads); }
    void load()
    {
        const Load &r = row(loads);
        if (r.key)
            QSettings(file(), QSettings::IniFormat).setValue(QLatin1String(r.key), r.value);
        QSettings reread(file(), QSettings::IniFormat); // through the file, as after a restart
        P expected = P::defaults();
        if (r.change)
            r.change(expected);
        QCOMPARE(PreferencesStore::load(reread), expected);
    }

    // Everything changed from the defaults, through the file and back.
    void roundTrip()
    {
        P p{.streams = {{whale, false}, {spike, false}, {stocks, false}}, .minTradeUsd = 0.5, .paused = true,
            .focalUsd = std::numeric_limits<double>::infinity(), .notifyTakeovers = false,
            .mutedWallets = names("kai"), // a list of one is stored as plain text, an empty one as nothing
            .watchedWallets = names("a,b kim"), .trayOnly = true};
        {
            QSettings s(file(), QSettings::IniFormat);
            PreferencesStore::save(p, s);
        }
        QSettings reread(file(), QSettings::IniFormat);
        QCOMPARE(PreferencesStore::load(reread), p);
    }

    void setListed_data() { rows(listed); }
    void setListed()
    {
        const Listed &r = row(listed);
        QStringList list = names("BONK WIF") + (r.after ? QStringList() : numbered(P::maxListed - 2));
        const QStringList after = r.after ? names(r.after) : list;
        QCOMPARE(P::setListed(list, QLatin1String(r.entry), r.on), r.changed);
        QCOMPARE(list, after);
    }

    void unreadableFilesAreNamed_data() { rows(files); }
    void unreadableFilesAreNamed()
    {
        const File &r = row(files);
        const QString path = file();
        if (r.asFolder)
            QVERIFY(QDir().mkpath(path));
        else if (!r.contents.isEmpty())
            writeFile(path, r.contents);
        QSettings settings(path, QSettings::IniFormat);
        const std::optional<QString> why = PreferencesStore::unreadable(settings);
        QCOMPARE(why.has_value(), r.reason != nullptr);
        if (why)
            QVERIFY2(why->contains(path) && why->endsWith(QLatin1String(r.reason)), qPrintable(*why));
        P expected = P::defaults();
        expected.minTradeUsd = r.minTrade;
        QCOMPARE(PreferencesStore::load(settings), expected);
    }

    void launchAtLoginWritesAndRemovesTheAutostartEntryOrStaysOff()
    {
        configAt(u"config"_s);
        QVERIFY(PreferencesStore::autostartPath().startsWith(dir_.path()));
        PreferencesStore::setLaunchAtLogin(true);
        QVERIFY(PreferencesStore::launchAtLogin());
        QFile entry(PreferencesStore::autostartPath());
        QVERIFY(entry.open(QIODevice::ReadOnly));
        const QByteArray text = entry.readAll();
        QVERIFY(text.contains("[Desktop Entry]") && text.contains("Exec=\""));
        PreferencesStore::setLaunchAtLogin(false);
        QVERIFY(!PreferencesStore::launchAtLogin()); // as when there never was an entry

        // A file where the autostart folder should be: the entry cannot be written.
        configAt(u"blocked"_s);
        writeFile(dir_.filePath(u"blocked/autostart"_s), QByteArray());
        const QRegularExpression warning(u"^\\[Larkpin\\] launch at login toggle failed: "_s);
        QTest::ignoreMessage(QtWarningMsg, warning);
        PreferencesStore::setLaunchAtLogin(true);
        QVERIFY(!PreferencesStore::launchAtLogin());
    }

    void launchAtLoginReadsForeignEntries_data() { rows(entries); }
    void launchAtLoginReadsForeignEntries()
    {
        configAt(u"foreign"_s);
        writeFile(PreferencesStore::autostartPath(), row(entries).text);
        QCOMPARE(PreferencesStore::launchAtLogin(), row(entries).on);
    }
};

QTEST_GUILESS_MAIN(PreferencesTest)
#include "tst_preferences.moc"
