#pragma once
// What the History view and `larkpin --history` ask for: a token, a handle, a
// kind, a minimum size and a time range, newest first, a page at a time.

#include "Model/Signal.h"

#include <QList>
#include <QLoggingCategory>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

Q_DECLARE_LOGGING_CATEGORY(lcHistory) // larkpin.history: the history file

struct HistoryQuery {
    QString symbol;                  // bare symbol, any case ("DOGO")
    QString handle;                  // bare handle, any case ("whalebird")
    std::optional<SignalKind> kind;
    double minUsd = 0;               // 0: any size
    std::optional<double> since;     // createdAt >= since
    std::optional<double> until;     // createdAt <= until
    // Mutes: rows of these symbols and handles are left out.
    QStringList mutedSymbols;
    QStringList mutedHandles;

    bool operator==(const HistoryQuery &) const = default;
    bool isEmpty() const { return symbol.isEmpty() && handle.isEmpty() && !kind && minUsd <= 0 && !since && !until; }

    // The search field: "$DOGO", "@whalebird", "whale" / "spike" / "stocks"
    // (or "stock"), a size ("1M", "$250K", ">=50k", "min:2m"), a bare word as a
    // symbol. What cannot be read is returned in `ignored`, the rest applies.
    static HistoryQuery parse(const QString &text, QStringList *ignored = nullptr);
    // "1.5m" -> 1500000; nothing when it is not a size.
    static std::optional<double> parseSize(QString text);
    // The field text that parse() reads back to the same query (time range aside).
    QString text() const;
};

// Where the next page starts: after this row, newest first.
struct HistoryCursor {
    double createdAt = 0;
    qint64 row = 0;
    bool operator==(const HistoryCursor &) const = default;
};

struct HistoryEntry {
    qint64 row = 0;
    Signal signal;
    std::optional<QUrl> chart;
    std::optional<QUrl> profile;
    double firstSeen = 0; // when this app first recorded it
    double updatedAt = 0; // the last merge into it
    bool operator==(const HistoryEntry &) const = default;
};

struct HistoryPage {
    QList<HistoryEntry> entries;
    std::optional<HistoryCursor> next; // absent: this was the last page
    QString error;                     // non-empty: history could not answer
};
