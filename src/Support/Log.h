#pragma once
// Every line the app writes goes through here, in two kinds:
// - The developer's trace: "HH:mm:ss [tag] message" on standard error, one
//   write per line, only when LARKPIN_LOG is exactly "1" (read once per
//   process, or per object that asks).
// - What a user's journal should hold, through Qt logging categories:
//   link trouble (down, polling, bad or oversized input), settings that
//   cannot be read or written, views that fail to load, failures of snapshot
//   mode. Warnings show by default; QT_LOGGING_RULES tunes them
//   ("larkpin.*=false" silences them). When the trace is on, the trace's own
//   lines say the same about the link and those warnings stay quiet.
// Both flatten what they are given, so wire text can never split or forge a
// line. Only the command line's own answers (usage, --help) print directly.

#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(lcLink)  // larkpin.link: the tape service's link
Q_DECLARE_LOGGING_CATEGORY(lcInput) // larkpin.input: what came from the service and was refused
Q_DECLARE_LOGGING_CATEGORY(lcNotify) // larkpin.notify: the desktop's notification service
Q_DECLARE_LOGGING_CATEGORY(lcApp)   // larkpin.app: settings, views, snapshot mode, the running instance

namespace Log {
bool enabledByEnvironment();                                                       // LARKPIN_LOG == "1"
void write(const char *tag, const QString &message);                               // tag is "Larkpin" or "tw"
QString formatLine(const char *tag, const QString &message, const QString &clock); // for tests
// A warning in the category unless the trace is on; wire text is flattened.
// At most troubleBurst lines per category and minute, then one line saying
// the rest is held back until the minute is over: a service that fails
// every second must not flood the journal.
void trouble(const QLoggingCategory &category, const QString &message);
inline constexpr int troubleBurst = 10;
// "[Larkpin] " + message in the category, whatever the trace says: the few
// lines a user needs to see once (a setting that could not be saved, a view
// that did not load). info() is for what a command did on request.
void warning(const QLoggingCategory &category, const QString &message);
void info(const QLoggingCategory &category, const QString &message);
// The process cannot do what it was asked (snapshot mode).
void critical(const QLoggingCategory &category, const QString &message);
// Whether a trace line of the link reports a failure or refused input.
bool isTrouble(const QString &traceLine);
} // namespace Log
