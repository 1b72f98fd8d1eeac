#include "Desktop/CommandLine.h"

#include "BuildConfig.h"
#include "History/HistoryText.h"

#include <QCommandLineParser>

namespace CommandLine {
namespace {

struct Parser {
    QCommandLineParser parser;
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Show this help and exit.")};
    QCommandLineOption version{{QStringLiteral("v"), QStringLiteral("version")},
                               QStringLiteral("Show the name and version and exit.")};
    QCommandLineOption snapshot{QStringLiteral("snapshot"),
                                QStringLiteral("Render the strip and panel pictures into <dir> without a "
                                               "screen, then exit (same as LARKPIN_SNAPSHOT=<dir>)."),
                                QStringLiteral("dir")};
    QCommandLineOption open{
        QStringLiteral("open"),
        QStringLiteral("Open the panel of the running instance (starting one if none runs).")};
    QCommandLineOption quit{QStringLiteral("quit"), QStringLiteral("Ask the running instance to quit.")};
    QCommandLineOption history{QStringLiteral("history"),
                               QStringLiteral("Print the kept history of signals, newest first, one a line, "
                                              "and exit (needs no display; never waits for the running app).")};
    QCommandLineOption since{QStringLiteral("since"),
                             QStringLiteral("With --history: only what happened in the last <duration> "
                                            "(90s, 45m, 12h, 7d, 2w, 1d12h)."),
                             QStringLiteral("duration")};
    QCommandLineOption json{QStringLiteral("json"),
                            QStringLiteral("With --history: one JSON object a line.")};

    Parser()
    {
        parser.setApplicationDescription(
            QStringLiteral("Watch a live tape of trades from the top bar and the tray."));
        parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
        parser.addOptions({help, version, snapshot, open, quit, history, since, json});
    }
};

} // namespace

Options parse(const QStringList &arguments, const QProcessEnvironment &env)
{
    Parser p;
    Options o;
    if (!p.parser.parse(arguments)) {
        o.action = Options::Action::Error;
        o.error = p.parser.errorText();
        return o;
    }
    if (!p.parser.positionalArguments().isEmpty()) {
        o.action = Options::Action::Error;
        o.error =
            QStringLiteral("Unexpected argument '%1'.").arg(p.parser.positionalArguments().constFirst());
        return o;
    }
    if (p.parser.isSet(p.help)) {
        o.action = Options::Action::Help;
        return o;
    }
    if (p.parser.isSet(p.version)) {
        o.action = Options::Action::Version;
        return o;
    }
    o.history = p.parser.isSet(p.history);
    o.json = p.parser.isSet(p.json);
    if ((p.parser.isSet(p.since) || o.json) && !o.history) {
        o.action = Options::Action::Error;
        o.error = QStringLiteral("--since and --json go with --history.");
        return o;
    }
    if (p.parser.isSet(p.since)) {
        const auto seconds = HistoryText::parseDuration(p.parser.value(p.since));
        if (!seconds) {
            o.action = Options::Action::Error;
            o.error = QStringLiteral("Cannot read the duration '%1' (try 90s, 45m, 12h, 7d or 1d12h).")
                          .arg(p.parser.value(p.since).left(40));
            return o;
        }
        o.sinceSeconds = *seconds;
    }
    o.open = p.parser.isSet(p.open);
    o.quit = p.parser.isSet(p.quit);
    if (p.parser.isSet(p.snapshot)) {
        o.snapshot = true;
        o.snapshotDir = p.parser.value(p.snapshot);
    } else if (env.contains(QStringLiteral("LARKPIN_SNAPSHOT")) && !o.history) {
        o.snapshot = true;
        o.snapshotDir = env.value(QStringLiteral("LARKPIN_SNAPSHOT"));
    }
    const int modes = int(o.open) + int(o.quit) + int(o.snapshot) + int(o.history);
    if (modes > 1) {
        o.action = Options::Action::Error;
        o.error = QStringLiteral("--snapshot, --open, --quit and --history cannot be combined.");
    }
    return o;
}

QString helpText()
{
    Parser p;
    return p.parser.helpText() +
           QStringLiteral("\nEnvironment:\n"
                          "  LARKPIN_SNAPSHOT=<dir>   same as --snapshot <dir>\n"
                          "  LARKPIN_LOG=1            log the link and the store in detail\n"
                          "  LARKPIN_REDUCE_MOTION=1  flip and fade instead of sliding\n"
                          "  LARKPIN_HISTORY=0        keep no history of signals\n");
}

QString versionText()
{
    return QStringLiteral("Larkpin " LARKPIN_VERSION);
}

bool hasDisplay(const QProcessEnvironment &env)
{
    const QString platform = env.value(QStringLiteral("QT_QPA_PLATFORM"));
    if (!platform.isEmpty() && !platform.startsWith(QLatin1String("xcb")) &&
        !platform.startsWith(QLatin1String("wayland")))
        return true; // offscreen, vnc, eglfs...: the user chose where to draw
    return !env.value(QStringLiteral("DISPLAY")).isEmpty() ||
           !env.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty();
}

QString noDisplayMessage()
{
    return QStringLiteral("larkpin: no display found (neither DISPLAY nor WAYLAND_DISPLAY is set); "
                          "to render pictures without a screen, run: larkpin --snapshot DIR");
}

} // namespace CommandLine
