#pragma once
// Developer mode: with LARKPIN_SNAPSHOT set, let the live feed fill the store
// for 8 s, write the pictures of every view into that directory and quit.

#include <QString>

#include <functional>

class FeedStore;

namespace Snapshot {
inline constexpr int settleMs = 8000;
// The names of the pictures, in the order they are written.
QStringList fileNames();
// Creates the directory when needed and proves it can be written to.
bool prepareDirectory(const QString &dir, QString *error);
// Waits settleMs on a monotonic timer, renders, then calls done(ok, error).
void run(const QString &dir, FeedStore &store, std::function<void(bool, QString)> done);
} // namespace Snapshot
