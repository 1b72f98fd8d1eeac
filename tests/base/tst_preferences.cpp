// Preferences on disk: fresh, partial, malformed and corrupt files fall back
// field by field; a round trip gives back the same value.

#include "Model/Preferences.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

Q_DECLARE_METATYPE(Preferences)

namespace {
QStringList names(const char *spaced)
{
    return QString::fromLatin1(spaced).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}
} // namespace

class PreferencesTest : public QObject {
    Q_OBJECT
    QTemporaryDir dir_;
    int n_ = 0;
    QString nextFile() { return dir_.filePath(QStringLiteral("prefs-%1.ini").arg(++n_)); }
    static QVariantMap streams(std::initializer_list<std::pair<const char *, QVariant>> entries)
    {
        QVariantMap m;
        for (const auto &[key, value] : entries)
            m.insert(QLatin1String(key), value);
        return m;
    }
    void writeEntry(const QString &path, const QByteArray &entry)
    {
        QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(entry);
    }

private Q_SLOTS:
    void load_data()
    {
        QTest::addColumn<QString>("key"); // empty: a fresh file
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<Preferences>("expected");
        const Preferences d = Preferences::defaults();
        auto with = [d](auto change) {
            Preferences p = d;
            change(p);
            return p;
        };
        const QString s = QStringLiteral("streams"), min = QStringLiteral("minTradeUsd"),
                      focal = QStringLiteral("focalUsd"), paused = QStringLiteral("paused");
        const Preferences isPaused = with([](Preferences &p) { p.paused = true; });
        QTest::newRow("fresh") << QString() << QVariant() << d;
        QTest::newRow("whale off only") << s << QVariant(streams({{"whale", false}}))
                                        << with([](Preferences &p) { p.streams[SignalKind::whale] = false; });
        // One value that is not a real boolean spoils the whole map, wherever it sits.
        QTest::newRow("a text \"false\" is not a switch")
            << s << QVariant(streams({{"whale", false}, {"spike", QStringLiteral("false")}})) << d;
        QTest::newRow("a number under an unknown key")
            << s << QVariant(streams({{"whale", false}, {"zzz", 3}})) << d;
        QTest::newRow("streams not a map") << s << QVariant(42) << d;
        QTest::newRow("unknown kinds ignored")
            << s << QVariant(streams({{"stocks", false}, {"stock", true}}))
            << with([](Preferences &p) { p.streams[SignalKind::stocks] = false; });
        QTest::newRow("negative min") << min << QVariant(-5.0) << d;
        QTest::newRow("NaN min") << min << QVariant(QStringLiteral("nan")) << d;
        QTest::newRow("zero min kept")
            << min << QVariant(0.0) << with([](Preferences &p) { p.minTradeUsd = 0; });
        QTest::newRow("text focal") << focal << QVariant(QStringLiteral("lots")) << d;
        QTest::newRow("negative focal") << focal << QVariant(-0.01) << d;
        QTest::newRow("zero focal kept")
            << focal << QVariant(0.0) << with([](Preferences &p) { p.focalUsd = 0; });
        QTest::newRow("paused 1") << paused << QVariant(1) << isPaused;
        QTest::newRow("paused YES") << paused << QVariant(QStringLiteral("YES")) << isPaused;
        QTest::newRow("paused 0") << paused << QVariant(0) << d;

        // Mute and watch lists: a value of the wrong shape leaves the list
        // empty; entries that are not names are skipped, the rest kept sorted.
        const QString tokens = QStringLiteral("mutedTokens"), wallets = QStringLiteral("mutedWallets"),
                      watched = QStringLiteral("watchedWallets");
        QTest::newRow("muted tokens with bad entries")
            << tokens
            << QVariant(names("WIF $PEPE") +
                        QStringList{QString(), QStringLiteral("two words"), QString(65, u'x'),
                                    QStringLiteral("tab\there")} +
                        names("BONK WIF"))
            << with([](Preferences &p) { p.mutedTokens = names("BONK WIF"); });
        QTest::newRow("control character in a handle")
            << wallets << QVariant(QStringList{QStringLiteral("kai") + QChar(7), QStringLiteral("mo")})
            << with([](Preferences &p) { p.mutedWallets = names("mo"); });
        QTest::newRow("muted wallets of another type") << wallets << QVariant(QSize(4, 2)) << d;
        QTest::newRow("muted tokens a map") << tokens << QVariant(streams({{"WIF", true}})) << d;
        QTest::newRow("one watched wallet reads back as text")
            << watched << QVariant(QStringLiteral("kim"))
            << with([](Preferences &p) { p.watchedWallets = names("kim"); });
        QStringList many;
        for (int i = 0; i < 300; ++i)
            many << QStringLiteral("w%1").arg(i, 3, 10, QLatin1Char('0'));
        QTest::newRow("too many kept to the bound")
            << watched << QVariant(many)
            << with([many](Preferences &p) { p.watchedWallets = many.mid(0, 200); });
    }
    void load()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QFETCH(Preferences, expected);
        const QString file = nextFile();
        if (!key.isEmpty())
            QSettings(file, QSettings::IniFormat).setValue(key, value);
        QSettings reread(file, QSettings::IniFormat); // through the file, as after a restart
        QCOMPARE(PreferencesStore::load(reread), expected);
    }

    void roundTrip_data()
    {
        QTest::addColumn<Preferences>("value");
        Preferences a = Preferences::defaults();
        a.streams[SignalKind::spike] = false;
        a.focalUsd = 0;
        a.paused = true;
        QTest::newRow("everything changed") << a;
        a.streams = {{SignalKind::whale, false}, {SignalKind::spike, false}, {SignalKind::stocks, false}};
        a.minTradeUsd = 0.5;
        a.focalUsd = std::numeric_limits<double>::infinity();
        QTest::newRow("all off, fractional, infinite focal") << a;
        a.mutedTokens = names("BONK WIF");
        a.mutedWallets = names("kai"); // a list of one is stored as plain text
        a.watchedWallets = names("a,b kim");
        QTest::newRow("muted and watched") << a;
        a.mutedTokens.clear(); // an empty list is stored as nothing at all
        QTest::newRow("emptied list") << a;
    }

    void setListed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("on");
        QTest::addColumn<bool>("changed");
        QTest::addColumn<QStringList>("after");
        const QStringList start = names("BONK WIF");
        QTest::newRow("added in order") << "MEW" << true << true << names("BONK MEW WIF");
        QTest::newRow("already there") << "WIF" << true << false << start;
        QTest::newRow("removed") << "BONK" << false << true << names("WIF");
        QTest::newRow("removing a stranger") << "MEW" << false << false << start;
        QTest::newRow("not a name") << "$MEW" << true << false << start;
        QTest::newRow("a handle written with its @") << "@kai" << true << false << start;
        QTest::newRow("full list") << "full" << true << false << start;
    }
    void setListed()
    {
        QFETCH(QString, name);
        QFETCH(bool, on);
        QFETCH(bool, changed);
        QFETCH(QStringList, after);
        QStringList list = names("BONK WIF");
        if (name == QLatin1String("full")) {
            while (list.size() < Preferences::maxListed)
                list << QStringLiteral("z%1").arg(list.size(), 3, 10, QLatin1Char('0'));
            after = list;
        }
        QCOMPARE(Preferences::setListed(list, name, on), changed);
        QCOMPARE(list, after);
    }
    void roundTrip()
    {
        QFETCH(Preferences, value);
        const QString file = nextFile();
        {
            QSettings s(file, QSettings::IniFormat);
            PreferencesStore::save(value, s);
        }
        QSettings s(file, QSettings::IniFormat);
        QCOMPARE(PreferencesStore::load(s), value);
    }

    // A file that cannot be read at all is named with the reason; a readable
    // file with bad entries is not (each entry falls back on its own).
    void unreadableFilesAreNamed_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<bool>("asFolder");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<double>("minTrade");
        const double d = Preferences::defaults().minTradeUsd;
        QTest::newRow("fine") << QByteArray("[General]\nminTradeUsd=500\n") << false << QString() << 500.0;
        QTest::newRow("bad entries only")
            << QByteArray("[General]\nminTradeUsd=abc\npaused=maybe\n") << false << QString() << d;
        QTest::newRow("missing") << QByteArray() << false << QString() << d;
        QTest::newRow("corrupt entries") << QByteArray("\x00\xff[General\nstreams=@Variant(\x01\x02garbage\n"
                                                       "minTradeUsd=@ByteArray(\xfe)\npaused=maybe\n",
                                                       70)
                                         << false << QString() << d;
        QTest::newRow("binary junk") << QByteArray("[General]\nminTradeUsd=500\n[broken\nx=\x00\x01\n", 39)
                                     << false << QStringLiteral("is not a settings file") << 500.0;
        QTest::newRow("a folder in its place")
            << QByteArray() << true << QStringLiteral("cannot be read") << d;
    }
    void unreadableFilesAreNamed()
    {
        QFETCH(QByteArray, contents);
        QFETCH(bool, asFolder);
        QFETCH(QString, reason);
        QFETCH(double, minTrade);
        const QString path =
            dir_.filePath(QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".conf"));
        if (asFolder)
            QVERIFY(QDir().mkpath(path));
        else if (!contents.isEmpty())
            writeEntry(path, contents);
        QSettings settings(path, QSettings::IniFormat);
        const std::optional<QString> why = PreferencesStore::unreadable(settings);
        QCOMPARE(why.has_value(), !reason.isEmpty());
        if (why)
            QVERIFY2(why->contains(path) && why->endsWith(reason), qPrintable(*why));
        Preferences expected = Preferences::defaults();
        expected.minTradeUsd = minTrade;
        QCOMPARE(PreferencesStore::load(settings), expected);
    }

    void launchAtLoginWritesAndRemovesTheAutostartEntry()
    {
        qputenv("XDG_CONFIG_HOME", dir_.filePath(QStringLiteral("config")).toUtf8());
        QVERIFY(PreferencesStore::autostartPath().startsWith(dir_.path()));
        QVERIFY(!PreferencesStore::launchAtLogin());
        PreferencesStore::setLaunchAtLogin(true);
        QVERIFY(PreferencesStore::launchAtLogin());
        QFile entry(PreferencesStore::autostartPath());
        QVERIFY(entry.open(QIODevice::ReadOnly));
        const QByteArray text = entry.readAll();
        QVERIFY(text.contains("[Desktop Entry]") && text.contains("Exec=\""));
        PreferencesStore::setLaunchAtLogin(false);
        QVERIFY(!PreferencesStore::launchAtLogin());
    }

    // An entry the user or another tool edited is read the way a desktop reads it.
    void launchAtLoginReadsForeignEntries_data()
    {
        QTest::addColumn<QByteArray>("entry");
        QTest::addColumn<bool>("on");
        QTest::newRow("plain") << QByteArray("[Desktop Entry]\nType=Application\nExec=larkpin\n") << true;
        QTest::newRow("hidden") << QByteArray("[Desktop Entry]\nExec=larkpin\nHidden=true\n") << false;
        QTest::newRow("session switch off")
            << QByteArray("[Desktop Entry]\nExec=larkpin\nX-GNOME-Autostart-enabled=false\n") << false;
        QTest::newRow("hidden only in another group")
            << QByteArray("[Desktop Entry]\nExec=larkpin\n[Desktop Action x]\nHidden=true\n") << true;
        QTest::newRow("escapes in Exec")
            << QByteArray("[Desktop Entry]\nExec=\"/opt/a \\\"b\\\"/larkpin\"\n") << true;
    }
    void launchAtLoginReadsForeignEntries()
    {
        QFETCH(QByteArray, entry);
        QFETCH(bool, on);
        qputenv("XDG_CONFIG_HOME", dir_.filePath(QStringLiteral("foreign")).toUtf8());
        writeEntry(PreferencesStore::autostartPath(), entry);
        QCOMPARE(PreferencesStore::launchAtLogin(), on);
    }

    void launchAtLoginFailureLeavesItOff()
    {
        // A file where the autostart folder should be: the entry cannot be written.
        const QString config = dir_.filePath(QStringLiteral("blocked"));
        writeEntry(config + QStringLiteral("/autostart"), QByteArray());
        qputenv("XDG_CONFIG_HOME", config.toUtf8());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^\\[Larkpin\\] launch at login toggle failed: ")));
        PreferencesStore::setLaunchAtLogin(true);
        QVERIFY(!PreferencesStore::launchAtLogin());
    }
};

QTEST_GUILESS_MAIN(PreferencesTest)
#include "tst_preferences.moc"
