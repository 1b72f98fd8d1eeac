// The real larkpin binary as a user meets it on a bare terminal (no display,
// no session bus) and in snapshot mode against the local tape service, and
// the parser's choices on their own.

#include "BuildConfig.h"
#include "Desktop/CommandLine.h"
#include "History/HistoryDb.h"
#include "Table.h"
#include "TarnwickSim.h"

#include <QDir>
#include <QDateTime>
#include <QFileInfo>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {
QStringList A(const char *words)
{
    return QString::fromUtf8(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

// clang-format off
struct BareRun { const char *name, *args; int exitCode; const char *out, *err; };
const BareRun bareRuns[] = {
    {.name = "--version", .args = "--version", .exitCode = 0, .out = "Larkpin " LARKPIN_VERSION "\n",
     .err = ""},
    {.name = "--help", .args = "--help", .exitCode = 0, .out = "--snapshot <dir>", .err = ""},
    {.name = "plain launch (or --open)", .args = "", .exitCode = 1, .out = "",
     .err = "no display found (neither DISPLAY nor WAYLAND_DISPLAY is set); " "to render pictures without a screen, run: larkpin --snapshot DIR\n"},
    {.name = "--quit, nothing running", .args = "--quit", .exitCode = 1, .out = "",
     .err = "no running instance in this session\n"},
    {.name = "unknown option", .args = "--bogus", .exitCode = 2, .out = "",
     .err = "larkpin: Unknown option 'bogus'.\nTry 'larkpin --help'.\n"},
};

// --snapshot is a synonym of LARKPIN_SNAPSHOT and wins over it; an error
// holds what the launch prints before it exits with 2. dir: the snapshot
// folder, or a part of the error.
using Act = CommandLine::Options::Action;
struct Parse { const char *name, *args, *envSnapshot; Act action; const char *dir; };
const Parse parses[] = {
    {.name = "flag", .args = "--snapshot /tmp/a", .envSnapshot = "", .action = Act::Run, .dir = "/tmp/a"},
    {.name = "flag=", .args = "--snapshot=/tmp/a", .envSnapshot = "", .action = Act::Run, .dir = "/tmp/a"},
    {.name = "environment", .args = "", .envSnapshot = "/tmp/e", .action = Act::Run, .dir = "/tmp/e"},
    {.name = "flag wins", .args = "--snapshot /tmp/a", .envSnapshot = "/tmp/e", .action = Act::Run,
     .dir = "/tmp/a"},
    {.name = "neither", .args = "", .envSnapshot = "", .action = Act::Run, .dir = ""},
    {.name = "-v", .args = "-v", .envSnapshot = "", .action = Act::Version, .dir = ""},
    {.name = "stray argument", .args = "chart", .envSnapshot = "", .action = Act::Error,
     .dir = "Unexpected argument 'chart'"},
    {.name = "--snapshot without dir", .args = "--snapshot", .envSnapshot = "", .action = Act::Error,
     .dir = "Missing value after '--snapshot'"},
    {.name = "two modes", .args = "--open --quit", .envSnapshot = "", .action = Act::Error,
     .dir = "cannot be combined"},
    {.name = "history and snapshot", .args = "--history --snapshot /tmp/a", .envSnapshot = "",
     .action = Act::Error, .dir = "cannot be combined"},
    {.name = "history leaves the environment's snapshot", .args = "--history", .envSnapshot = "/tmp/e",
     .action = Act::Run, .dir = ""},
    {.name = "--since alone", .args = "--since 2h", .envSnapshot = "", .action = Act::Error,
     .dir = "go with --history"},
    {.name = "--since unreadable", .args = "--history --since soon", .envSnapshot = "", .action = Act::Error,
     .dir = "Cannot read the duration 'soon'"},
};

struct Display { const char *name, *vars; bool has; };
const Display displays[] = {
    {.name = "nothing", .vars = "", .has = false},
    {.name = "x11", .vars = "DISPLAY=:0", .has = true},
    {.name = "wayland", .vars = "WAYLAND_DISPLAY=wayland-0", .has = true},
    {.name = "offscreen by hand", .vars = "QT_QPA_PLATFORM=offscreen", .has = true},
    {.name = "xcb asked, no display", .vars = "QT_QPA_PLATFORM=xcb", .has = false},
    {.name = "empty DISPLAY", .vars = "DISPLAY=", .has = false},
};
// clang-format on
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
    void withoutDisplay_data() { rows(bareRuns); }
    void withoutDisplay()
    {
        const auto [name, args, exitCode, outText, errText] = row(bareRuns);
        const QString out = QString::fromUtf8(outText), err = QString::fromUtf8(errText);
        QVERIFY(home_.isValid());
        QProcess p;
        QVERIFY(run(p, A(args), {QStringLiteral("XDG_CONFIG_HOME=") + home_.path()}));
        const QString gotOut = QString::fromUtf8(p.readAllStandardOutput());
        const QString gotErr = QString::fromUtf8(p.readAllStandardError());
        QCOMPARE(p.exitStatus(), QProcess::NormalExit); // never an abort
        QCOMPARE(p.exitCode(), exitCode);
        QVERIFY2(gotOut.contains(out), qPrintable(gotOut));
        QVERIFY2(gotErr.contains(err), qPrintable(gotErr));
        if (exitCode == 0)
            QVERIFY2(gotErr.isEmpty(), qPrintable(gotErr));
    }

    void parse_data() { rows(parses); }
    void parse()
    {
        const auto [name, args, envSnapshot, action, dirText] = row(parses);
        const QString dir = QString::fromUtf8(dirText);
        QProcessEnvironment env;
        if (*envSnapshot)
            env.insert(QStringLiteral("LARKPIN_SNAPSHOT"), QString::fromUtf8(envSnapshot));
        const auto o = CommandLine::parse(QStringList{QStringLiteral("larkpin")} + A(args), env);
        QCOMPARE(int(o.action), int(action));
        if (o.action == CommandLine::Options::Action::Error) {
            QVERIFY2(o.error.contains(dir), qPrintable(o.error));
            return;
        }
        QCOMPARE(o.snapshot, !dir.isEmpty());
        QCOMPARE(o.snapshotDir, dir);
    }

    void display_data() { rows(displays); }
    void display()
    {
        const auto [name, vars, has] = row(displays);
        QProcessEnvironment env;
        for (const QString &v : A(vars))
            env.insert(v.section(QLatin1Char('='), 0, 0), v.section(QLatin1Char('='), 1));
        QCOMPARE(CommandLine::hasDisplay(env), has);
    }

    // Against the tape service on an ephemeral port: seven pictures of live
    // data, the trace's lines, and a clean socket close on the way out.
    // --history on a bare terminal: newest first, one a line, --since and
    // --json, nothing kept yet, and a writer in the middle of a transaction
    // (the running app) that does not hold the reader up.
    void history()
    {
        QTemporaryDir data;
        const QString path = data.filePath(QStringLiteral("larkpin/history.sqlite"));
        const QStringList env{QStringLiteral("XDG_DATA_HOME=") + data.path()};
        QProcess p;
        QVERIFY(run(p, {QStringLiteral("--history")}, env));
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(p.readAllStandardOutput(), QByteArray());
        QVERIFY(!QFileInfo::exists(path)); // a reader creates nothing

        const double now = double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
        {
            HistoryDb db;
            QVERIFY(db.open(path, {}));
            QList<HistoryEntry> kept;
            for (int i = 0; i < 3; ++i) {
                HistoryEntry e;
                e.signal.id = QStringLiteral("tw-fill-%1").arg(i);
                e.signal.line = Headline{QStringLiteral("$DOGO"), QStringLiteral("@ana bought"), QStringLiteral("$1.2M"), std::nullopt};
                e.signal.createdAt = now - (2 - i) * 3 * 3600.0; // 6 h, 3 h and 0 h ago
                e.signal.asset = AssetRef{QStringLiteral("DOGO"), std::nullopt, false};
                e.signal.notionalUsd = 1.2e6;
                kept << e;
            }
            QVERIFY(db.write(kept, now));
        }
        QSqlDatabase writer = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("writer"));
        writer.setDatabaseName(path);
        QVERIFY(writer.open());
        QVERIFY(QSqlQuery(writer).exec(QStringLiteral("BEGIN IMMEDIATE")));
        QVERIFY(QSqlQuery(writer).exec(QStringLiteral("DELETE FROM signals")));

        QVERIFY(run(p, {QStringLiteral("--history")}, env));
        QCOMPARE(p.exitCode(), 0);
        const QStringList lines = QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines.first().endsWith(QStringLiteral("WHALE  $DOGO · @ana bought  $1.2M  tw-fill-2")));
        QVERIFY(lines.last().endsWith(QStringLiteral("tw-fill-0")));

        QVERIFY(run(p, {QStringLiteral("--history"), QStringLiteral("--since"), QStringLiteral("4h"), QStringLiteral("--json")}, env));
        QCOMPARE(p.exitCode(), 0);
        const QList<QByteArray> json = p.readAllStandardOutput().split('\n');
        QCOMPARE(json.size(), 3); // two objects and the last line break
        QCOMPARE(QJsonDocument::fromJson(json.at(1)).object().value(QStringLiteral("id")).toString(), QStringLiteral("tw-fill-1"));
        QCOMPARE(QJsonDocument::fromJson(json.at(0)).object().value(QStringLiteral("usd")).toDouble(), 1.2e6);

        QSqlQuery(writer).exec(QStringLiteral("ROLLBACK"));
        writer.close();
        writer = QSqlDatabase();
        QSqlDatabase::removeDatabase(QStringLiteral("writer"));
    }

    void snapshotOfLiveData()
    {
        tarnwick::SimServer sim({.port = 0, .ratePerMinute = 240, .seed = 11});
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

        const QSize strip(392, 48), panel(800, 1240);
        const struct { const char *name; QSize size; } expected[] = { // clang-format off
            {"statusbar-light.png", strip}, {"statusbar-dark.png", strip}, {"panel.png", panel},
            {"settings.png", panel}, {"inspector.png", panel}, {"inspector-loading.png", panel},
            {"hero-detail.png", panel}}; // clang-format on
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
        QVERIFY(QTest::qWaitFor([&] { return sim.closeCodesReceived().contains(1001); }, 30000));

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
