#pragma once
// The command line, read before any application object exists: a launch that
// only asks for help, the version, or to talk to a running instance must work
// on a machine without a display.

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace CommandLine {

struct Options {
    enum class Action { Run, Help, Version, Error };
    Action action = Action::Run;
    bool snapshot = false; // --snapshot DIR or LARKPIN_SNAPSHOT
    QString snapshotDir;
    bool open = false; // ask the running instance (or this one) to open its panel
    bool quit = false; // ask the running instance to quit
    // --history [--since DURATION] [--json]: print the kept history, read-only,
    // without a display or the running instance.
    bool history = false;
    double sinceSeconds = 0; // 0: all of it
    bool json = false;
    QString error;     // set with Action::Error
};

// env supplies LARKPIN_SNAPSHOT; --snapshot wins over it.
Options parse(const QStringList &arguments, const QProcessEnvironment &env);

// The --help text (needs a QCoreApplication for the program name).
QString helpText();
QString versionText(); // "Larkpin 0.1.0"

// Whether a graphical session is reachable: an X11 or Wayland display, or a
// platform chosen explicitly (offscreen, vnc...) through QT_QPA_PLATFORM.
bool hasDisplay(const QProcessEnvironment &env);
QString noDisplayMessage();

} // namespace CommandLine
