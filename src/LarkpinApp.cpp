// Entry point: a top-bar-only application with no main window and no taskbar
// entry. One instance per user session; a second launch asks the first to open
// its panel and exits.

#include "AppDelegate.h"
#include "BuildConfig.h"
#include "Menu/StatusItemController.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int signalPipe[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] auto written = ::write(signalPipe[1], &byte, 1);
}

// Ctrl-C and SIGTERM end the event loop normally, so the socket still gets
// its close frame on the way out.
void installSignalHandlers(QCoreApplication &app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [notifier] {
        notifier->setEnabled(false);
        char byte;
        [[maybe_unused]] auto got = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// One instance per user session: keyed by the user and the settings folder,
// so a test run with its own XDG_CONFIG_HOME never talks to the real app.
QString instanceName()
{
    const QByteArray home = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toUtf8();
    const QByteArray key = QCryptographicHash::hash(home, QCryptographicHash::Sha1).toHex().left(10);
    return QStringLiteral("larkpin-") + QString::number(::getuid()) + QLatin1Char('-') +
           QString::fromLatin1(key);
}

// True when another instance took the request; this process should then exit.
bool handOverToRunningInstance()
{
    QLocalSocket socket;
    socket.connectToServer(instanceName());
    if (!socket.waitForConnected(300))
        return false;
    socket.write("open\n");
    socket.waitForBytesWritten(300);
    socket.disconnectFromServer();
    return true;
}
} // namespace

int main(int argc, char *argv[])
{
    const bool snapshotMode = qEnvironmentVariableIsSet("LARKPIN_SNAPSHOT");
    if (snapshotMode) {
        // Pictures need no screen: render off screen unless told otherwise.
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
    } else {
        StatusItemController::preferXcbOnWayland();
        // The strip is a few thousand pixels redrawn a dozen times per flip.
        // Through shared memory every frame ends in a round trip to the X
        // server that wakes two threads; plain requests cost less for an
        // image this small and leave the process asleep between frames.
        if (!qEnvironmentVariableIsSet("QT_XCB_NO_MITSHM"))
            qputenv("QT_XCB_NO_MITSHM", "1");
    }

    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Larkpin"));
    QApplication::setApplicationName(QStringLiteral("Larkpin"));
    QApplication::setApplicationVersion(QStringLiteral(LARKPIN_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("larkpin"));
    QApplication::setQuitOnLastWindowClosed(false);

    QLocalServer instanceServer;
    if (!snapshotMode) {
        if (handOverToRunningInstance()) {
            std::fprintf(stderr, "[Larkpin] already running; asked it to open its panel\n");
            return 0;
        }
        QLocalServer::removeServer(instanceName());
        instanceServer.setSocketOptions(QLocalServer::UserAccessOption);
        instanceServer.listen(instanceName());
    }

    installSignalHandlers(app);

    AppDelegate delegate;
    QObject::connect(&instanceServer, &QLocalServer::newConnection, &delegate, [&] {
        while (QLocalSocket *peer = instanceServer.nextPendingConnection()) {
            QObject::connect(peer, &QLocalSocket::readyRead, &delegate, [peer, &delegate] {
                if (peer->readAll().startsWith("open"))
                    delegate.openPanel();
                peer->disconnectFromServer();
            });
            QObject::connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
        }
    });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });

    if (!delegate.applicationDidFinishLaunching())
        return 1;
    return app.exec();
}
