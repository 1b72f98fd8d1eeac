// The real larkpin binary in snapshot mode against the local tape service on
// the address compiled into it: pictures, log lines and a clean socket close.

#include "TarnwickSim.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

class SnapshotEndToEnd : public QObject {
    Q_OBJECT

    QString binary() const
    {
        return QDir(qEnvironmentVariable("LARKPIN_BIN_DIR")).filePath(QStringLiteral("larkpin"));
    }

    QProcessEnvironment snapshotEnvironment(const QString &dir, quint16 port = 0) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        if (port != 0)
            env.insert(QStringLiteral("LARKPIN_SERVICE"),
                       QStringLiteral("127.0.0.1:") + QString::number(port));
        env.insert(QStringLiteral("LARKPIN_SNAPSHOT"), dir);
        env.insert(QStringLiteral("LARKPIN_LOG"), QStringLiteral("1"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        return env;
    }

private Q_SLOTS:
    void writesSevenPicturesOfLiveData()
    {
        tarnwick::SimOptions options;
        options.port = 0; // an ephemeral port, handed to the app below
        options.ratePerMinute = 240;
        options.seed = 11;
        tarnwick::SimServer sim(options);
        QString error;
        QVERIFY2(sim.start(&error), qPrintable(QStringLiteral("the tape service did not start: ") + error));

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        QProcess app;
        app.setProcessEnvironment(snapshotEnvironment(dir.path(), sim.port()));
        app.start(binary(), {});
        QVERIFY2(app.waitForStarted(5000), qPrintable(app.errorString()));
        // The sim lives on this thread: keep its event loop turning while the app works.
        QVERIFY(QTest::qWaitFor([&] { return app.state() == QProcess::NotRunning; }, 60000));
        const QString log = QString::fromUtf8(app.readAllStandardError());
        QVERIFY2(app.exitStatus() == QProcess::NormalExit && app.exitCode() == 0,
                 qPrintable(log.right(3000)));

        const struct {
            const char *name;
            QSize size;
        } expected[] = {
            {"statusbar-light.png", {392, 48}}, {"statusbar-dark.png", {392, 48}},
            {"panel.png", {800, 1240}},         {"settings.png", {800, 1240}},
            {"inspector.png", {800, 1240}},     {"inspector-loading.png", {800, 1240}},
            {"hero-detail.png", {800, 1240}},
        };
        for (const auto &file : expected) {
            const QString path = QDir(dir.path()).filePath(QLatin1String(file.name));
            QImage image;
            QVERIFY2(image.load(path, "PNG"), file.name);
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
    }

    void refusesAnUnwritableDirectory()
    {
        QProcess app;
        app.setProcessEnvironment(snapshotEnvironment(QStringLiteral("/proc/larkpin-cannot-write-here")));
        app.start(binary(), {});
        QVERIFY(app.waitForFinished(20000));
        QVERIFY(app.exitCode() != 0);
        const QString log = QString::fromUtf8(app.readAllStandardError());
        QVERIFY2(log.contains(QStringLiteral("snapshot")) &&
                     log.contains(QStringLiteral("/proc/larkpin-cannot-write-here")),
                 qPrintable(log));
    }
};

QTEST_GUILESS_MAIN(SnapshotEndToEnd)
#include "tst_snapshot_e2e.moc"
