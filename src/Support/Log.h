#pragma once
// Two kinds of output:
// - "HH:mm:ss [tag] message" on standard error, one write per line, only when
//   LARKPIN_LOG is exactly "1" (read once per process, or per object that asks):
//   the developer's trace of the link and the store.
// - Qt logging categories for what a user's journal should hold: link trouble
//   (down, polling, bad or oversized input) is a warning and shows by default;
//   QT_LOGGING_RULES tunes it ("larkpin.*=false" silences it). When the trace
//   is on, the trace's own lines say the same and the warnings stay quiet.

#include <QLoggingCategory>
#include <QString>

Q_DECLARE_LOGGING_CATEGORY(lcLink)  // larkpin.link: the tape service's link
Q_DECLARE_LOGGING_CATEGORY(lcInput) // larkpin.input: what came from the service and was refused

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
// Whether a trace line of the link reports a failure or refused input.
bool isTrouble(const QString &traceLine);
} // namespace Log
