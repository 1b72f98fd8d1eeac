#pragma once
// "HH:mm:ss [tag] message" on standard error, one write per line, only when
// LARKPIN_LOG is exactly "1" (read once per process, or per object that asks).

#include <QString>

namespace Log {
bool enabledByEnvironment();                                                       // LARKPIN_LOG == "1"
void write(const char *tag, const QString &message);                               // tag is "Larkpin" or "tw"
QString formatLine(const char *tag, const QString &message, const QString &clock); // for tests
} // namespace Log
