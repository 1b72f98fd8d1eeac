// Entry point: a top-bar-only application with no main window and no taskbar
// entry. The command line is read before any application object exists, so
// --help, --version and the no-display answer work on a bare terminal. One
// instance per graphical session; a second launch hands its request (open the
// panel, or quit) to the first and exits.

#include "App/AppDelegate.h"
#include "BuildConfig.h"
#include "Desktop/CommandLine.h"
#include "Desktop/SingleInstance.h"
#include "App/HistoryCommand.h"
#include "History/HistoryStore.h"
#include "Support/Log.h"
#include "Menu/StatusItemController.h"

#include <QApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int signalPipe[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] auto written = ::write(signalPipe[1], &byte, 1);
}

// Ctrl-C, SIGTERM and SIGHUP (the session ending) end the event loop
// normally, so the socket still gets its close frame on the way out.
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
    sigaction(SIGHUP, &action, nullptr);
}

void printLine(FILE *stream, const QString &line)
{
    std::fprintf(stream, "%s\n", qUtf8Printable(line));
}

void describeApplication()
{
    QCoreApplication::setOrganizationName(QStringLiteral("Larkpin"));
    QCoreApplication::setApplicationName(QStringLiteral("Larkpin"));
    QCoreApplication::setApplicationVersion(QStringLiteral(LARKPIN_VERSION));
}

// --quit, or --open / a plain launch without a display: only a running
// instance can act, and no GUI object is needed to reach it.
int talkToRunningInstance(int argc, char *argv[], const CommandLine::Options &options,
                          const QProcessEnvironment &env)
{
    QCoreApplication core(argc, argv);
    describeApplication();
    const SingleInstance instance(env);
    if (options.quit) {
        if (instance.send(SingleInstance::Request::Quit)) {
            Log::info(lcApp(), QStringLiteral("asked the running instance to quit"));
            return 0;
        }
        std::fprintf(stderr, "larkpin: no running instance in this session\n");
        return 1;
    }
    if (instance.send(SingleInstance::Request::Open)) {
        Log::info(lcApp(), QStringLiteral("already running; asked it to open its panel"));
        return 0;
    }
    printLine(stderr, CommandLine::noDisplayMessage());
    return 1;
}
} // namespace

int main(int argc, char *argv[])
{
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const CommandLine::Options options = CommandLine::parse(arguments, env);

    switch (options.action) {
    case CommandLine::Options::Action::Error:
        std::fprintf(stderr, "larkpin: %s\nTry 'larkpin --help'.\n", qUtf8Printable(options.error));
        return 2;
    case CommandLine::Options::Action::Help: {
        // The help text names the program from the application object.
        QCoreApplication core(argc, argv);
        describeApplication();
        std::fputs(qUtf8Printable(CommandLine::helpText()), stdout);
        return 0;
    }
    case CommandLine::Options::Action::Version: printLine(stdout, CommandLine::versionText()); return 0;
    case CommandLine::Options::Action::Run: break;
    }

    if (options.history) {
        // The data folder is named by the application, as the app itself sees it.
        QCoreApplication core(argc, argv);
        describeApplication();
        return HistoryCommand::run(options, HistoryStore::defaultPath(), stdout, stderr);
    }

    const bool snapshotMode = options.snapshot;
    if (snapshotMode) {
        // AppDelegate reads the directory from the environment.
        qputenv("LARKPIN_SNAPSHOT", options.snapshotDir.toLocal8Bit());
        // Pictures need no screen: render off screen unless told otherwise.
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
    } else {
        if (options.quit || !CommandLine::hasDisplay(env))
            return talkToRunningInstance(argc, argv, options, env);
        StatusItemController::preferXcbOnWayland();
        StatusItemController::trustWorkArea();
        // The strip is a few thousand pixels redrawn a dozen times per flip.
        // Through shared memory every frame ends in a round trip to the X
        // server that wakes two threads; plain requests cost less for an
        // image this small and leave the process asleep between frames.
        if (!qEnvironmentVariableIsSet("QT_XCB_NO_MITSHM"))
            qputenv("QT_XCB_NO_MITSHM", "1");
    }

    QApplication app(argc, argv);
    describeApplication();
    QApplication::setDesktopFileName(QStringLiteral("org.larkpin.Larkpin")); // the installed desktop entry
    QApplication::setQuitOnLastWindowClosed(false);

    std::unique_ptr<SingleInstance> instance;
    if (!snapshotMode) {
        instance = std::make_unique<SingleInstance>(env);
        if (instance->send(SingleInstance::Request::Open)) {
            Log::info(lcApp(), QStringLiteral("already running; asked it to open its panel"));
            return 0;
        }
        if (!instance->claim() && instance->send(SingleInstance::Request::Open)) {
            // Another launch won the race for the name between the two steps.
            Log::info(lcApp(), QStringLiteral("already running; asked it to open its panel"));
            return 0;
        }
    }

    installSignalHandlers(app);

    AppDelegate delegate;
    if (instance) {
        instance->onOpen = [&delegate] { delegate.openPanel(); };
        instance->onQuit = [] { QCoreApplication::quit(); };
    }
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.shutdown(); });

    if (!delegate.start())
        return 1;
    if (options.open)
        delegate.openPanel();
    return app.exec();
}
