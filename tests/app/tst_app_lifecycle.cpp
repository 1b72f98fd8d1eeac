// The real larkpin binary in normal mode (off screen): one instance per
// session, and quitting closes the feed socket with 1001 before it exits.

#include "TarnwickSim.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

class AppLifecycle : public QObject {
    Q_OBJECT

    QTemporaryDir home_;

    QProcessEnvironment environment(quint16 port) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("LARKPIN_SERVICE"), QStringLiteral("127.0.0.1:") + QString::number(port));
        env.remove(QStringLiteral("LARKPIN_SNAPSHOT"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home_.path());
        return env;
    }

    QString binary() const
    {
        return QDir(qEnvironmentVariable("LARKPIN_BIN_DIR")).filePath(QStringLiteral("larkpin"));
    }

private Q_SLOTS:
    void secondLaunchHandsOverAndQuitClosesTheSocket()
    {
        QVERIFY(home_.isValid());
        tarnwick::SimOptions options;
        options.port = 0;
        options.ratePerMinute = 60;
        tarnwick::SimServer sim(options);
        QString error;
        QVERIFY2(sim.start(&error), qPrintable(error));

        QProcess first;
        first.setProcessEnvironment(environment(sim.port()));
        first.start(binary(), {});
        QVERIFY(first.waitForStarted(5000));
        QVERIFY2(QTest::qWaitFor([&] { return sim.handshakesCompleted() >= 1; }, 20000),
                 qPrintable(QString::fromUtf8(first.readAllStandardError())));

        QProcess second;
        second.setProcessEnvironment(environment(sim.port()));
        second.start(binary(), {});
        QVERIFY(QTest::qWaitFor([&] { return second.state() == QProcess::NotRunning; }, 10000));
        QCOMPARE(second.exitCode(), 0);
        QVERIFY(QString::fromUtf8(second.readAllStandardError()).contains(QStringLiteral("already running")));
        QCOMPARE(first.state(), QProcess::Running);
        QCOMPARE(sim.handshakesCompleted(), 1); // the second never went on the wire

        ::kill(pid_t(first.processId()), SIGTERM);
        QVERIFY(QTest::qWaitFor([&] { return first.state() == QProcess::NotRunning; }, 10000));
        QCOMPARE(first.exitStatus(), QProcess::NormalExit);
        QCOMPARE(first.exitCode(), 0);
        QVERIFY(QTest::qWaitFor([&] { return sim.closeCodesReceived().contains(1001); }, 3000));
    }
};

QTEST_GUILESS_MAIN(AppLifecycle)
#include "tst_app_lifecycle.moc"
