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

using Writer = std::function<void(QSettings &)>;
Q_DECLARE_METATYPE(Writer)
Q_DECLARE_METATYPE(Preferences)

class PreferencesTest : public QObject {
    Q_OBJECT
    QTemporaryDir dir_;
    int n_ = 0;
    QString nextFile() { return dir_.filePath(QStringLiteral("prefs-%1.ini").arg(++n_)); }

private Q_SLOTS:
    void load_data()
    {
        QTest::addColumn<Writer>("write");
        QTest::addColumn<Preferences>("expected");
        const Preferences d = Preferences::defaults();
        auto with = [d](auto change) {
            Preferences p = d;
            change(p);
            return p;
        };
        QTest::newRow("fresh") << Writer([](QSettings &) {}) << d;
        QTest::newRow("whale off only") << Writer([](QSettings &s) {
            s.setValue(QStringLiteral("streams"), QVariantMap{{QStringLiteral("whale"), false}});
        }) << with([](Preferences &p) { p.streams[SignalKind::whale] = false; });
        QTest::newRow("non-boolean keeps the whole default map") << Writer([](QSettings &s) {
            s.setValue(QStringLiteral("streams"),
                       QVariantMap{{QStringLiteral("whale"), false},
                                   {QStringLiteral("spike"), QStringLiteral("yes")}});
        }) << d;
        QTest::newRow("a text \"false\" is not a switch either") << Writer([](QSettings &s) {
            s.setValue(QStringLiteral("streams"),
                       QVariantMap{{QStringLiteral("whale"), false},
                                   {QStringLiteral("spike"), QStringLiteral("false")}});
        }) << d;
        QTest::newRow("a number is not a switch") << Writer([](QSettings &s) {
            s.setValue(QStringLiteral("streams"), QVariantMap{{QStringLiteral("whale"), 0}});
        }) << d;
        QTest::newRow("non-boolean under an unknown key spoils the map too") << Writer([](QSettings &s) {
            s.setValue(QStringLiteral("streams"),
                       QVariantMap{{QStringLiteral("whale"), false}, {QStringLiteral("zzz"), 3}});
        }) << d;
        QTest::newRow("streams not a map")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("streams"), 42); }) << d;
        QTest::newRow("unknown kinds ignored") << Writer([](QSettings &s) {
            s.setValue(QStringLiteral("streams"),
                       QVariantMap{{QStringLiteral("stocks"), false}, {QStringLiteral("stock"), true}});
        }) << with([](Preferences &p) { p.streams[SignalKind::stocks] = false; });
        QTest::newRow("negative min falls back")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("minTradeUsd"), -5.0); }) << d;
        QTest::newRow("zero min is kept")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("minTradeUsd"), 0.0); })
            << with([](Preferences &p) { p.minTradeUsd = 0; });
        QTest::newRow("text focal falls back")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("focalUsd"), QStringLiteral("lots")); })
            << d;
        QTest::newRow("zero focal kept")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("focalUsd"), 0.0); })
            << with([](Preferences &p) { p.focalUsd = 0; });
        QTest::newRow("NaN min falls back")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("minTradeUsd"), QStringLiteral("nan")); })
            << d;
        QTest::newRow("negative focal falls back")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("focalUsd"), -0.01); }) << d;
        QTest::newRow("whole number paused flag")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("paused"), 1); })
            << with([](Preferences &p) { p.paused = true; });
        QTest::newRow("YES paused flag")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("paused"), QStringLiteral("YES")); })
            << with([](Preferences &p) { p.paused = true; });
        QTest::newRow("zero paused flag")
            << Writer([](QSettings &s) { s.setValue(QStringLiteral("paused"), 0); }) << d;
        QTest::newRow("paused") << Writer([](QSettings &s) { s.setValue(QStringLiteral("paused"), true); })
                                << with([](Preferences &p) { p.paused = true; });
    }
    void load()
    {
        QFETCH(Writer, write);
        QFETCH(Preferences, expected);
        const QString file = nextFile();
        {
            QSettings s(file, QSettings::IniFormat);
            write(s);
        }
        QSettings reread(file, QSettings::IniFormat); // through the file, as after a restart
        QCOMPARE(PreferencesStore::load(reread), expected);
    }

    void corruptFileLoadsDefaults()
    {
        const QString file = nextFile();
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("\x00\xff[General\nstreams=@Variant(\x01\x02garbage\nminTradeUsd=@ByteArray(\xfe)\npaused="
                "maybe\n",
                70);
        f.close();
        QSettings s(file, QSettings::IniFormat);
        QCOMPARE(PreferencesStore::load(s), Preferences::defaults());
    }

    void roundTrip_data()
    {
        QTest::addColumn<Preferences>("value");
        Preferences a = Preferences::defaults();
        QTest::newRow("defaults") << a;
        a.streams[SignalKind::spike] = false;
        a.minTradeUsd = 5000;
        a.focalUsd = 0;
        a.paused = true;
        QTest::newRow("everything changed") << a;
        a.streams = {{SignalKind::whale, false}, {SignalKind::spike, false}, {SignalKind::stocks, false}};
        a.minTradeUsd = 0.5;
        QTest::newRow("all off, fractional") << a;
        a.focalUsd = std::numeric_limits<double>::infinity();
        QTest::newRow("infinite focal is not negative") << a;
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
        QVERIFY(text.contains("[Desktop Entry]"));
        QVERIFY(text.contains("Exec=\""));
        entry.close();
        PreferencesStore::setLaunchAtLogin(false);
        QVERIFY(!PreferencesStore::launchAtLogin());
    }

    // A file that cannot be read at all is reported once; a readable file with
    // bad entries is not (each entry falls back on its own).
    void unreadableFilesAreNamed_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<bool>("asFolder");
        QTest::addColumn<QString>("reason");
        QTest::newRow("fine") << QByteArray("[General]\nminTradeUsd=500\n") << false << QString();
        QTest::newRow("bad entries only")
            << QByteArray("[General]\nminTradeUsd=abc\npaused=maybe\n") << false << QString();
        QTest::newRow("missing") << QByteArray() << false << QString();
        QTest::newRow("binary junk") << QByteArray("[General]\nminTradeUsd=500\n[broken\nx=\x00\x01\n", 39)
                                     << false << QStringLiteral("is not a settings file");
        QTest::newRow("a folder in its place") << QByteArray() << true << QStringLiteral("cannot be read");
    }
    void unreadableFilesAreNamed()
    {
        QFETCH(QByteArray, contents);
        QFETCH(bool, asFolder);
        QFETCH(QString, reason);
        const QString path =
            dir_.filePath(QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".conf"));
        if (asFolder)
            QVERIFY(QDir().mkpath(path));
        else if (!contents.isEmpty()) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(contents);
        }
        QSettings settings(path, QSettings::IniFormat);
        const std::optional<QString> why = PreferencesStore::unreadable(settings);
        QCOMPARE(why.has_value(), !reason.isEmpty());
        if (why)
            QVERIFY2(why->contains(path) && why->endsWith(reason), qPrintable(*why));
        PreferencesStore::load(settings); // whatever it held, reading it is safe
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
        QTest::newRow("session switch on")
            << QByteArray("[Desktop Entry]\nExec=larkpin\nX-GNOME-Autostart-enabled=true\n") << true;
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
        QVERIFY(QDir().mkpath(QFileInfo(PreferencesStore::autostartPath()).absolutePath()));
        QFile file(PreferencesStore::autostartPath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(entry);
        file.close();
        QCOMPARE(PreferencesStore::launchAtLogin(), on);
    }

    void launchAtLoginFailureLeavesItOff()
    {
        // A file where the autostart folder should be: the entry cannot be written.
        const QString config = dir_.filePath(QStringLiteral("blocked"));
        QDir().mkpath(config);
        QFile blocker(config + QStringLiteral("/autostart"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        qputenv("XDG_CONFIG_HOME", config.toUtf8());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^\\[Larkpin\\] launch at login toggle failed: ")));
        PreferencesStore::setLaunchAtLogin(true);
        QVERIFY(!PreferencesStore::launchAtLogin());
    }
};

QTEST_GUILESS_MAIN(PreferencesTest)
#include "tst_preferences.moc"
