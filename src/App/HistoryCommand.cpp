#include "App/HistoryCommand.h"

#include "History/HistoryDb.h"
#include "History/HistoryText.h"

#include <QDateTime>
#include <QFileInfo>

namespace HistoryCommand {

int run(const CommandLine::Options &options, const QString &path, std::FILE *out, std::FILE *err)
{
    if (!QFileInfo::exists(path))
        return 0; // nothing kept yet: an empty history, not an error
    HistoryDb db;
    HistoryDb::Options dbOptions;
    dbOptions.readOnly = true;
    if (!db.open(path, dbOptions)) {
        std::fprintf(err, "larkpin: %s\n", qUtf8Printable(db.lastError()));
        return 1;
    }
    HistoryQuery query;
    if (options.sinceSeconds > 0)
        query.since = double(QDateTime::currentMSecsSinceEpoch()) / 1000.0 - options.sinceSeconds;
    // Page by page, so a month of history never sits in memory at once.
    std::optional<HistoryCursor> after;
    do {
        const HistoryPage page = db.search(query, after, 500);
        if (!page.error.isEmpty()) {
            std::fprintf(err, "larkpin: cannot read %s: %s\n", qUtf8Printable(path), qUtf8Printable(page.error));
            return 1;
        }
        for (const HistoryEntry &e : page.entries) {
            const QString text = options.json ? HistoryText::json(e) : HistoryText::line(e);
            std::fprintf(out, "%s\n", qUtf8Printable(text));
        }
        after = page.next;
    } while (after);
    std::fflush(out);
    return 0;
}

} // namespace HistoryCommand
