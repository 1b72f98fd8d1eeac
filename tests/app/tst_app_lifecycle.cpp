// The real larkpin binary in normal mode (off screen): one instance per
// graphical session over a private D-Bus session bus (and over the local
// socket when there is no bus), --open/--quit reaching the running instance,
// and SIGTERM/SIGHUP/--quit all closing the feed socket with 1001 before exit 0.

#include "PrivateBus.h"
#include "TarnwickSim.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

class AppLifecycle : public QObject {
    Q_OBJECT

    QTemporaryDir home_;
    std::optional<PrivateBus> bus_;
    QString busAddress_;
    std::unique_ptr<tarnwick::SimServer> sim_;

    // display: the session the launch belongs to (the app runs off screen, so
    // DISPLAY only keys the instance). busAddress empty: no session bus at all.
    QProcessEnvironment environment(const QString &display, const QString &busAddress) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("LARKPIN_SNAPSHOT"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        const QString noBus = QStringLiteral("unix:path=") + home_.filePath(QStringLiteral("no-bus"));
        for (const auto &[name, value] :
             {std::pair{"LARKPIN_SERVICE", u"127.0.0.1:%1"_s.arg(sim_->port())}, {"DISPLAY", display},
              {"QT_QPA_PLATFORM", u"offscreen"_s}, {"XDG_CONFIG_HOME", home_.path()},
              {"DBUS_SESSION_BUS_ADDRESS", busAddress.isEmpty() ? noBus : busAddress}})
            env.insert(QLatin1String(name), value);
        return env;
    }

    void start(QProcess &p, const QProcessEnvironment &env, const QStringList &args = {}) const
    {
        p.setProcessEnvironment(env);
        p.start(QDir(qEnvironmentVariable("LARKPIN_BIN_DIR")).filePath(QStringLiteral("larkpin")), args);
    }

    // Runs a short-lived launch to the end; returns its exit code, stderr in *err.
    int runToEnd(const QProcessEnvironment &env, const QStringList &args, QString *err) const
    {
        QProcess p;
        start(p, env, args);
        if (!p.waitForFinished(10000)) {
            p.kill();
            p.waitForFinished();
            return -1;
        }
        *err = QString::fromUtf8(p.readAllStandardError());
        return p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    }

    bool startFirst(QProcess &first, const QProcessEnvironment &env, int handshakes)
    {
        start(first, env);
        return first.waitForStarted(5000) &&
               QTest::qWaitFor([&] { return sim_->handshakesCompleted() >= handshakes; }, 20000);
    }

    static bool endedCleanly(QProcess &p)
    {
        return QTest::qWaitFor([&] { return p.state() == QProcess::NotRunning; }, 10000) &&
               p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    }

    QStringList larkpinNamesOnBus() const
    {
        QDBusConnection probe = QDBusConnection::connectToBus(busAddress_, QStringLiteral("probe"));
        QStringList names;
        if (probe.isConnected())
            for (const QString &n : probe.interface()->registeredServiceNames().value())
                if (n.startsWith(QLatin1String("org.larkpin.Larkpin.")))
                    names << n;
        return names;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(home_.isValid());
        if (!bus_.emplace().start())
            QSKIP("dbus-daemon is not installed; the D-Bus cases need a private session bus");
        busAddress_ = bus_->address;
        QVERIFY(!busAddress_.isEmpty());
    }

    void init()
    {
        sim_ = std::make_unique<tarnwick::SimServer>(tarnwick::SimOptions{.port = 0, .ratePerMinute = 60});
        QString error;
        QVERIFY2(sim_->start(&error), qPrintable(error));
    }

    void cleanup() { sim_.reset(); }

    void cleanupTestCase()
    {
        bus_.reset();
    }

    // The same session, reached over the bus or, without one, the local
    // socket: the second launch hands over and never goes on the wire.
    void secondLaunchHandsOver_data()
    {
        QTest::addColumn<bool>("withBus");
        QTest::newRow("session bus") << true;
        QTest::newRow("no bus: local socket") << false;
    }
    void secondLaunchHandsOver()
    {
        QFETCH(bool, withBus);
        const QProcessEnvironment env = environment(QStringLiteral(":51"), withBus ? busAddress_ : QString());
        QProcess first;
        QVERIFY2(startFirst(first, env, 1), qPrintable(QString::fromUtf8(first.readAllStandardError())));
        if (withBus)
            QVERIFY(QTest::qWaitFor([&] { return larkpinNamesOnBus().size() == 1; }, 30000));

        QString err; // a plain launch and --open take the same way
        QCOMPARE(runToEnd(env, {QStringLiteral("--open")}, &err), 0);
        QVERIFY2(err.contains(QStringLiteral("already running")), qPrintable(err));
        QCOMPARE(first.state(), QProcess::Running);
        QCOMPARE(sim_->handshakesCompleted(), 1);

        // --quit goes through the same door and ends it the graceful way.
        QCOMPARE(runToEnd(env, {QStringLiteral("--quit")}, &err), 0);
        QVERIFY(endedCleanly(first));
        QVERIFY(QTest::qWaitFor([&] { return sim_->closeCodesReceived().contains(1001); }, 30000));
        if (withBus)
            QVERIFY(QTest::qWaitFor([&] { return larkpinNamesOnBus().isEmpty(); }, 30000));

        // Nothing left to quit.
        QCOMPARE(runToEnd(env, {QStringLiteral("--quit")}, &err), 1);
        QVERIFY2(err.contains(QStringLiteral("no running instance")), qPrintable(err));
    }

    // A launch on another display of the same user (same bus, same settings)
    // is another session: it runs its own instance. Each ends on a signal
    // (SIGTERM, and SIGHUP as at logout) with its close frame and exit 0.
    void otherDisplayRunsItsOwnInstance()
    {
        QProcess first, second;
        QVERIFY(startFirst(first, environment(QStringLiteral(":51"), busAddress_), 1));
        QVERIFY2(startFirst(second, environment(QStringLiteral(":52.0"), busAddress_), 2),
                 qPrintable(QString::fromUtf8(second.readAllStandardError())));
        QCOMPARE(first.state(), QProcess::Running);
        QCOMPARE(larkpinNamesOnBus().size(), 2);

        ::kill(pid_t(first.processId()), SIGTERM);
        ::kill(pid_t(second.processId()), SIGHUP);
        QVERIFY(endedCleanly(first));
        QVERIFY(endedCleanly(second));
        QVERIFY(QTest::qWaitFor([&] { return sim_->closeCodesReceived().count(1001) == 2; }, 30000));
    }
};

QTEST_GUILESS_MAIN(AppLifecycle)
#include "tst_app_lifecycle.moc"
