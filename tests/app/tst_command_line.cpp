// The real larkpin binary as a user meets it on a bare terminal (no display,
// no session bus) and in snapshot mode against the local tape service, and
// the parser's choices on their own.

#include "BuildConfig.h"
#include "Desktop/CommandLine.h"
#include "TarnwickSim.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {
QStringList A(const char *words)
{
    return QString::fromUtf8(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}
} // namespace

class CommandLineTest : public QObject {
    Q_OBJECT

    QTemporaryDir home_;

    // Runs the binary to its end in env (a bare terminal plus `extra`).
    static bool run(QProcess &p, const QStringList &args, const QStringList &extra = {}, int ms = 15000)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "LARKPIN_SNAPSHOT"})
            env.remove(QString::fromLatin1(name));
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QStringLiteral("unix:path=/nonexistent/bus"));
        for (const QString &v : extra)
            env.insert(v.section(QLatin1Char('='), 0, 0), v.section(QLatin1Char('='), 1));
        p.setProcessEnvironment(env);
        p.start(QDir(qEnvironmentVariable("LARKPIN_BIN_DIR")).filePath(QStringLiteral("larkpin")), args);
        // The sim, when there is one, lives on this thread: keep its event loop turning.
        return QTest::qWaitFor([&] { return p.state() == QProcess::NotRunning; }, ms);
    }

private Q_SLOTS:
    void withoutDisplay_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::newRow("--version") << A("--version") << 0 << QStringLiteral("Larkpin " LARKPIN_VERSION "\n")
                                   << QString();
        QTest::newRow("--help") << A("--help") << 0 << QStringLiteral("--snapshot <dir>") << QString();
        QTest::newRow("plain launch (or --open)")
            << A("") << 1 << QString()
            << QStringLiteral("no display found (neither DISPLAY nor WAYLAND_DISPLAY is set); to render "
                              "pictures without a screen, run: larkpin --snapshot DIR\n");
        QTest::newRow("--quit, nothing running")
            << A("--quit") << 1 << QString() << QStringLiteral("no running instance in this session\n");
        QTest::newRow("unknown option")
            << A("--bogus") << 2 << QString()
            << QStringLiteral("larkpin: Unknown option 'bogus'.\nTry 'larkpin --help'.\n");
    }
    void withoutDisplay()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, err);
        QVERIFY(home_.isValid());
        QProcess p;
        QVERIFY(run(p, args, {QStringLiteral("XDG_CONFIG_HOME=") + home_.path()}));
        const QString gotOut = QString::fromUtf8(p.readAllStandardOutput());
        const QString gotErr = QString::fromUtf8(p.readAllStandardError());
        QCOMPARE(p.exitStatus(), QProcess::NormalExit); // never an abort
        QCOMPARE(p.exitCode(), exitCode);
        QVERIFY2(gotOut.contains(out), qPrintable(gotOut));
        QVERIFY2(gotErr.contains(err), qPrintable(gotErr));
        if (exitCode == 0)
            QVERIFY2(gotErr.isEmpty(), qPrintable(gotErr));
    }

    // --snapshot is a synonym of LARKPIN_SNAPSHOT and wins over it; an error
    // holds what the launch prints before it exits with 2.
    void parse_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("envSnapshot");
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("dir"); // the snapshot folder, or a part of the error
        using Act = CommandLine::Options::Action;
        QTest::newRow("flag") << A("--snapshot /tmp/a") << QString() << int(Act::Run)
                              << QStringLiteral("/tmp/a");
        QTest::newRow("flag=") << A("--snapshot=/tmp/a") << QString() << int(Act::Run)
                               << QStringLiteral("/tmp/a");
        QTest::newRow("environment") << A("") << QStringLiteral("/tmp/e") << int(Act::Run)
                                     << QStringLiteral("/tmp/e");
        QTest::newRow("flag wins") << A("--snapshot /tmp/a") << QStringLiteral("/tmp/e") << int(Act::Run)
                                   << QStringLiteral("/tmp/a");
        QTest::newRow("neither") << A("") << QString() << int(Act::Run) << QString();
        QTest::newRow("-v") << A("-v") << QString() << int(Act::Version) << QString();
        QTest::newRow("stray argument")
            << A("chart") << QString() << int(Act::Error) << QStringLiteral("Unexpected argument 'chart'");
        QTest::newRow("--snapshot without dir") << A("--snapshot") << QString() << int(Act::Error)
                                                << QStringLiteral("Missing value after '--snapshot'");
        QTest::newRow("two modes") << A("--open --quit") << QString() << int(Act::Error)
                                   << QStringLiteral("cannot be combined");
    }
    void parse()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, envSnapshot);
        QFETCH(int, action);
        QFETCH(QString, dir);
        QProcessEnvironment env;
        if (!envSnapshot.isEmpty())
            env.insert(QStringLiteral("LARKPIN_SNAPSHOT"), envSnapshot);
        const auto o = CommandLine::parse(QStringList{QStringLiteral("larkpin")} + args, env);
        QCOMPARE(int(o.action), action);
        if (o.action == CommandLine::Options::Action::Error) {
            QVERIFY2(o.error.contains(dir), qPrintable(o.error));
            return;
        }
        QCOMPARE(o.snapshot, !dir.isEmpty());
        QCOMPARE(o.snapshotDir, dir);
    }

    void display_data()
    {
        QTest::addColumn<QStringList>("vars");
        QTest::addColumn<bool>("has");
        QTest::newRow("nothing") << A("") << false;
        QTest::newRow("x11") << A("DISPLAY=:0") << true;
        QTest::newRow("wayland") << A("WAYLAND_DISPLAY=wayland-0") << true;
        QTest::newRow("offscreen by hand") << A("QT_QPA_PLATFORM=offscreen") << true;
        QTest::newRow("xcb asked, no display") << A("QT_QPA_PLATFORM=xcb") << false;
        QTest::newRow("empty DISPLAY") << A("DISPLAY=") << false;
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

    // Against the tape service on an ephemeral port: seven pictures of live
    // data, the trace's lines, and a clean socket close on the way out.
    void snapshotOfLiveData()
    {
        tarnwick::SimOptions options;
        options.port = 0;
        options.ratePerMinute = 240;
        options.seed = 11;
        tarnwick::SimServer sim(options);
        QString error;
        QVERIFY2(sim.start(&error), qPrintable(QStringLiteral("the tape service did not start: ") + error));
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        QProcess app;
        QVERIFY(run(
            app, A("--snapshot ") + QStringList{dir.path()},
            {QStringLiteral("LARKPIN_SERVICE=127.0.0.1:%1").arg(sim.port()), QStringLiteral("LARKPIN_LOG=1")},
            60000));
        const QString log = QString::fromUtf8(app.readAllStandardError());
        QVERIFY2(app.exitStatus() == QProcess::NormalExit && app.exitCode() == 0,
                 qPrintable(log.right(3000)));

        const struct {
            const char *name;
            QSize size;
        } expected[] = {{"statusbar-light.png", {392, 48}}, {"statusbar-dark.png", {392, 48}},
                        {"panel.png", {800, 1240}},         {"settings.png", {800, 1240}},
                        {"inspector.png", {800, 1240}},     {"inspector-loading.png", {800, 1240}},
                        {"hero-detail.png", {800, 1240}}};
        for (const auto &file : expected) {
            QImage image;
            QVERIFY2(image.load(QDir(dir.path()).filePath(QLatin1String(file.name)), "PNG"), file.name);
            QCOMPARE(image.size(), file.size);
            // A picture of live data is not one flat colour.
            const QRgb first = image.pixel(image.width() / 2, image.height() / 2);
            bool varied = false;
            for (int y = 0; y < image.height() && !varied; y += 7)
                for (int x = 0; x < image.width() && !varied; x += 7)
                    varied = image.pixel(x, y) != first;
            QVERIFY2(varied, file.name);
        }
        QVERIFY2(log.contains(QStringLiteral("[Larkpin] link → live")), qPrintable(log.left(2000)));
        QVERIFY2(log.contains(QStringLiteral("[Larkpin] keep  [")), "no signal was kept");
        QVERIFY(log.contains(QStringLiteral(" [tw] frame #")));
        QVERIFY(log.contains(QStringLiteral("[Larkpin] snapshots written to ") + dir.path()));
        QVERIFY(QTest::qWaitFor([&] { return sim.closeCodesReceived().contains(1001); }, 3000));

        // A folder it cannot write to: it says so and fails.
        QVERIFY(run(app, A("--snapshot /proc/larkpin-cannot-write-here"), {}, 20000));
        QVERIFY(app.exitCode() != 0);
        const QString refused = QString::fromUtf8(app.readAllStandardError());
        QVERIFY2(refused.contains(QStringLiteral("snapshot")) &&
                     refused.contains(QStringLiteral("/proc/larkpin-cannot-write-here")),
                 qPrintable(refused));
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_command_line.moc"
