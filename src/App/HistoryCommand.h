#pragma once
// `larkpin --history`: the kept history on standard output, read-only. Needs
// no display and no running instance, and never makes the running app wait
// (the file is in WAL mode: a reader and the writer pass each other).

#include "Desktop/CommandLine.h"

#include <cstdio>

namespace HistoryCommand {
// Returns the exit status: 0 (also for an empty or missing history), 1 when
// the file cannot be read (why goes to standard error).
int run(const CommandLine::Options &options, const QString &path, std::FILE *out, std::FILE *err);
} // namespace HistoryCommand
