// tarnwick-sim: the local tape service, on its own.

#include "TarnwickSim.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int signalPipe[2] = {-1, -1};
void onSignal(int)
{
    const char b = 1;
    [[maybe_unused]] auto n = ::write(signalPipe[1], &b, 1);
}

bool number(const QString &text, double &out)
{
    bool ok = false;
    out = text.toDouble(&ok);
    return ok;
}

int fail(const QString &message)
{
    std::fprintf(stderr, "tarnwick-sim: %s\n", qUtf8Printable(message));
    return 2;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tarnwick-sim"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A local tape service: REST under /api, a WebSocket at /ws."));
    parser.addHelpOption();
    const QCommandLineOption host(QStringLiteral("host"), QStringLiteral("Address to bind."),
                                  QStringLiteral("address"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Port (0 picks a free one)."),
                                  QStringLiteral("port"), QStringLiteral("47800"));
    const QCommandLineOption rate(QStringLiteral("rate"), QStringLiteral("Fills per minute (0: none)."),
                                  QStringLiteral("fills"), QStringLiteral("30"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed of the market."),
                                  QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption speed(QStringLiteral("speed"), QStringLiteral("Market time per wall second."),
                                   QStringLiteral("x"), QStringLiteral("1"));
    const QCommandLineOption scenario(QStringLiteral("scenario"),
                                      QStringLiteral("JSON file of timed faults."), QStringLiteral("file"));
    const QCommandLineOption quiet(QStringLiteral("quiet"),
                                   QStringLiteral("Do not log requests and sockets."));
    const QCommandLineOption cert(QStringLiteral("cert"),
                                  QStringLiteral("PEM certificate (chain): serve https and wss."),
                                  QStringLiteral("file"));
    const QCommandLineOption key(QStringLiteral("key"),
                                 QStringLiteral("PEM private key of --cert (default: the --cert file)."),
                                 QStringLiteral("file"));
    const QCommandLineOption tlsLegacy(QStringLiteral("tls-legacy"),
                                       QStringLiteral("With --cert: offer only TLS 1.0 and 1.1."));
    const QCommandLineOption tlsStall(QStringLiteral("tls-stall"),
                                      QStringLiteral("With --cert: never answer a TLS hello."));
    parser.addOptions({host, port, rate, seed, speed, scenario, quiet, cert, key, tlsLegacy, tlsStall});
    if (!parser.parse(app.arguments()))
        return fail(parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (!parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("unexpected argument ") + parser.positionalArguments().first());

    tarnwick::SimOptions options;
    options.host = parser.value(host);
    bool ok = false;
    const uint p = parser.value(port).toUInt(&ok);
    if (!ok || p > 65535)
        return fail(QStringLiteral("--port wants a number from 0 to 65535, not ") + parser.value(port));
    options.port = quint16(p);
    if (!number(parser.value(rate), options.ratePerMinute) || options.ratePerMinute < 0)
        return fail(QStringLiteral("--rate wants a number of fills per minute, not ") + parser.value(rate));
    if (!number(parser.value(speed), options.speed) || options.speed <= 0)
        return fail(QStringLiteral("--speed wants a positive number, not ") + parser.value(speed));
    options.seed = parser.value(seed).toULongLong(&ok);
    if (!ok)
        return fail(QStringLiteral("--seed wants a whole number, not ") + parser.value(seed));
    options.scenarioFile = parser.value(scenario);
    options.tls.certificateFile = parser.value(cert);
    options.tls.keyFile = parser.value(key);
    options.tls.legacyOnly = parser.isSet(tlsLegacy);
    options.tls.stallHandshake = parser.isSet(tlsStall);
    if (!options.tls.enabled() && (parser.isSet(key) || options.tls.legacyOnly || options.tls.stallHandshake))
        return fail(QStringLiteral("--key, --tls-legacy and --tls-stall need --cert"));

    tarnwick::SimServer server(options);
    server.setLogging(!parser.isSet(quiet));
    QString error;
    if (!server.start(&error))
        return fail(error);
    std::printf("tarnwick-sim listening %s %s\n", qUtf8Printable(server.httpBase()),
                qUtf8Printable(server.socketURL()));
    std::fflush(stdout);

    // Ctrl-C and SIGTERM close every socket with a proper close frame.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signalPipe) == 0) {
        auto *notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
        QObject::connect(notifier, &QSocketNotifier::activated, &app, [&server] {
            server.stop();
            QTimer::singleShot(200, qApp, &QCoreApplication::quit);
        });
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, nullptr);
        sigaction(SIGTERM, &action, nullptr);
    }
    return app.exec();
}
