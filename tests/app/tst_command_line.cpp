// The command line as a user meets it on a bare terminal: the real binary with
// no display and no session bus, and the parser's choices on their own.

#include "BuildConfig.h"
#include "Desktop/CommandLine.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class CommandLineTest : public QObject {
    Q_OBJECT

    QTemporaryDir home_;

    QProcessEnvironment bareTerminal() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "LARKPIN_SNAPSHOT"})
            env.remove(QString::fromLatin1(name));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home_.path());
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"),
                   QStringLiteral("unix:path=") + home_.filePath(QStringLiteral("no-bus")));
        return env;
    }

private Q_SLOTS:
    void withoutDisplay_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        const QString version = QStringLiteral("Larkpin " LARKPIN_VERSION "\n");
        QTest::newRow("--version") << QStringList{QStringLiteral("--version")} << 0 << version << QString();
        QTest::newRow("-v") << QStringList{QStringLiteral("-v")} << 0 << version << QString();
        QTest::newRow("--help") << QStringList{QStringLiteral("--help")} << 0
                                << QStringLiteral("--snapshot <dir>") << QString();
        QTest::newRow("plain launch")
            << QStringList{} << 1 << QString()
            << QStringLiteral("no display found (neither DISPLAY nor WAYLAND_DISPLAY is "
                              "set); to render pictures without a screen, run: larkpin "
                              "--snapshot DIR\n");
        QTest::newRow("--open, nothing running")
            << QStringList{QStringLiteral("--open")} << 1 << QString() << QStringLiteral("no display found");
        QTest::newRow("--quit, nothing running") << QStringList{QStringLiteral("--quit")} << 1 << QString()
                                                 << QStringLiteral("no running instance in this session\n");
        QTest::newRow("unknown option") << QStringList{QStringLiteral("--bogus")} << 2 << QString()
                                        << QStringLiteral("Unknown option 'bogus'");
        QTest::newRow("stray argument") << QStringList{QStringLiteral("chart")} << 2 << QString()
                                        << QStringLiteral("Unexpected argument 'chart'");
        QTest::newRow("--snapshot without dir") << QStringList{QStringLiteral("--snapshot")} << 2 << QString()
                                                << QStringLiteral("Missing value after '--snapshot'");
        QTest::newRow("two modes") << QStringList{QStringLiteral("--open"), QStringLiteral("--quit")} << 2
                                   << QString() << QStringLiteral("cannot be combined");
    }
    void withoutDisplay()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, err);
        QVERIFY(home_.isValid());
        QProcess p;
        p.setProcessEnvironment(bareTerminal());
        p.start(QDir(qEnvironmentVariable("LARKPIN_BIN_DIR")).filePath(QStringLiteral("larkpin")), args);
        QVERIFY(p.waitForFinished(15000));
        const QString gotOut = QString::fromUtf8(p.readAllStandardOutput());
        const QString gotErr = QString::fromUtf8(p.readAllStandardError());
        QCOMPARE(p.exitStatus(), QProcess::NormalExit); // never an abort
        QCOMPARE(p.exitCode(), exitCode);
        QVERIFY2(gotOut.contains(out), qPrintable(gotOut));
        QVERIFY2(gotErr.contains(err), qPrintable(gotErr));
        if (exitCode == 0)
            QVERIFY2(gotErr.isEmpty(), qPrintable(gotErr));
    }

    // --snapshot is a synonym of LARKPIN_SNAPSHOT and wins over it; a
    // platform chosen by hand counts as a display.
    void choices_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("envSnapshot");
        QTest::addColumn<bool>("snapshot");
        QTest::addColumn<QString>("dir");
        QTest::newRow("flag") << QStringList{QStringLiteral("--snapshot"), QStringLiteral("/tmp/a")}
                              << QString() << true << QStringLiteral("/tmp/a");
        QTest::newRow("flag=") << QStringList{QStringLiteral("--snapshot=/tmp/a")} << QString() << true
                               << QStringLiteral("/tmp/a");
        QTest::newRow("environment") << QStringList{} << QStringLiteral("/tmp/e") << true
                                     << QStringLiteral("/tmp/e");
        QTest::newRow("flag wins") << QStringList{QStringLiteral("--snapshot"), QStringLiteral("/tmp/a")}
                                   << QStringLiteral("/tmp/e") << true << QStringLiteral("/tmp/a");
        QTest::newRow("neither") << QStringList{} << QString() << false << QString();
    }
    void choices()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, envSnapshot);
        QFETCH(bool, snapshot);
        QFETCH(QString, dir);
        QProcessEnvironment env;
        if (!envSnapshot.isEmpty())
            env.insert(QStringLiteral("LARKPIN_SNAPSHOT"), envSnapshot);
        const auto o = CommandLine::parse(QStringList{QStringLiteral("larkpin")} + args, env);
        QCOMPARE(int(o.action), int(CommandLine::Options::Action::Run));
        QCOMPARE(o.snapshot, snapshot);
        QCOMPARE(o.snapshotDir, dir);
    }

    void display_data()
    {
        QTest::addColumn<QStringList>("vars");
        QTest::addColumn<bool>("has");
        QTest::newRow("nothing") << QStringList{} << false;
        QTest::newRow("x11") << QStringList{QStringLiteral("DISPLAY=:0")} << true;
        QTest::newRow("wayland") << QStringList{QStringLiteral("WAYLAND_DISPLAY=wayland-0")} << true;
        QTest::newRow("offscreen by hand")
            << QStringList{QStringLiteral("QT_QPA_PLATFORM=offscreen")} << true;
        QTest::newRow("xcb asked, no display") << QStringList{QStringLiteral("QT_QPA_PLATFORM=xcb")} << false;
        QTest::newRow("empty DISPLAY") << QStringList{QStringLiteral("DISPLAY=")} << false;
    }
    void display()
    {
        QFETCH(QStringList, vars);
        QFETCH(bool, has);
        QProcessEnvironment env;
        for (const QString &v : vars)
            env.insert(v.section(QLatin1Char('='), 0, 0), v.section(QLatin1Char('='), 1));
        QCOMPARE(CommandLine::hasDisplay(env), has);
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_command_line.moc"
