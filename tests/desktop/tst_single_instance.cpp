// The running instance without a session bus: its socket lives in a folder
// only this user may enter, so a name taken first in the shared temporary
// folder (as another user could) neither blocks the launch nor receives its
// requests; a folder that is not private is not trusted at all.

#include "Desktop/SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class SingleInstanceTest : public QObject {
    Q_OBJECT
    QTemporaryDir dir_;
    QString tmp_, runtime_;

    QString ownFolder() const { return tmp_ + u"/larkpin-"_s + QString::number(::getuid()); }
    static QProcessEnvironment env()
    {
        QProcessEnvironment e;
        e.insert(u"DISPLAY"_s, u":7"_s);
        return e;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // No session bus: the local socket is the only way in.
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    }
    void init()
    {
        tmp_ = dir_.filePath(QString::fromLatin1(QTest::currentTestFunction()) + u"-tmp"_s);
        runtime_ = dir_.filePath(QString::fromLatin1(QTest::currentTestFunction()) + u"-run"_s);
        QVERIFY(QDir().mkpath(tmp_) && QDir().mkpath(runtime_));
        QVERIFY(::chmod(QFile::encodeName(runtime_).constData(), 0700) == 0);
        qputenv("TMPDIR", QFile::encodeName(tmp_));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime_));
    }

    // The runtime folder when it is ours alone, else a 0700 folder of our own
    // in the temporary one; a folder open to others, or a link, is not used.
    void privateFolderIsChecked()
    {
        QCOMPARE(SingleInstance::privateFolder(), runtime_);
        QVERIFY(::chmod(QFile::encodeName(runtime_).constData(), 0755) == 0);
        QCOMPARE(SingleInstance::privateFolder(), ownFolder());
        struct stat st {};
        QVERIFY(::lstat(QFile::encodeName(ownFolder()).constData(), &st) == 0);
        QCOMPARE(int(st.st_mode & 0777), 0700);
        QVERIFY(::chmod(QFile::encodeName(ownFolder()).constData(), 0777) == 0);
        QCOMPARE(SingleInstance::privateFolder(), QString());
        QVERIFY(QDir(ownFolder()).removeRecursively());
        QVERIFY(QFile::link(runtime_, ownFolder()));
        QCOMPARE(SingleInstance::privateFolder(), QString());
    }

    // Someone took the old shared name first: our launch still claims its
    // own socket, and a second launch reaches us, not them.
    void squatterNeitherBlocksNorReceives()
    {
        SingleInstance first(env());
        QLocalServer squatter;
        const QString key = QFileInfo(first.socketName()).fileName().mid(8); // after "larkpin-"
        const QString shared = tmp_ + u"/larkpin-"_s + QString::number(::getuid()) + u'-' + key;
        squatter.setSocketOptions(QLocalServer::WorldAccessOption);
        QVERIFY(squatter.listen(shared));
        int squatted = 0;
        connect(&squatter, &QLocalServer::newConnection, this, [&] { ++squatted; });

        QVERIFY(first.claim());
        QCOMPARE(first.transport(), u"socket"_s);
        QVERIFY(first.socketName().startsWith(runtime_ + u'/'));
        int opened = 0;
        first.onOpen = [&] { ++opened; };
        SingleInstance second(env());
        QVERIFY(!second.claim()); // the first holds it
        QVERIFY(second.send(SingleInstance::Request::Open));
        QVERIFY(QTest::qWaitFor([&] { return opened == 1; }, 30000));
        QCOMPARE(squatted, 0);
    }

    // Without a private folder the launch runs on, reachable by no one.
    void noPrivateFolderStillRuns()
    {
        QVERIFY(::chmod(QFile::encodeName(runtime_).constData(), 0755) == 0);
        QVERIFY(QDir().mkpath(ownFolder()));
        QVERIFY(::chmod(QFile::encodeName(ownFolder()).constData(), 0777) == 0);
        SingleInstance instance(env());
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"no private folder for the instance socket"_s));
        QVERIFY(instance.claim());
        QCOMPARE(instance.transport(), u"none"_s);
        QVERIFY(!SingleInstance(env()).send(SingleInstance::Request::Open));
    }

    // Each end learns the other's uid from the kernel.
    void peerUidIsTheKernels()
    {
        QLocalServer server;
        QVERIFY(server.listen(runtime_ + u"/probe"_s));
        QLocalSocket client;
        client.connectToServer(server.fullServerName());
        QVERIFY(client.waitForConnected(30000));
        QVERIFY(server.waitForNewConnection(30000));
        QLocalSocket *peer = server.nextPendingConnection();
        QCOMPARE(SingleInstance::peerUid(client.socketDescriptor()), long(::getuid()));
        QCOMPARE(SingleInstance::peerUid(peer->socketDescriptor()), long(::getuid()));
        QCOMPARE(SingleInstance::peerUid(-1), -1L);
    }
};

QTEST_GUILESS_MAIN(SingleInstanceTest)
#include "tst_single_instance.moc"
