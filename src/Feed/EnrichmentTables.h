#pragma once
// The service's trader and token tables, kept for lookups without the
// network: both asked for together, each replacing its old copy only when it
// arrives whole (a failed half keeps the last good table), each capped in
// rows, fetched again once they are older than their freshness.

#include "Model/Clock.h"
#include "Wire/TarnwickModels.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <functional>
#include <optional>

class EnrichmentTables {
public:
    using BodyCallback = std::function<void(std::optional<QByteArray>, QString error)>;
    using Fetch = std::function<void(const QString &path, BodyCallback done)>;
    EnrichmentTables(Clock now, double freshSeconds, Fetch fetch)
        : now_(std::move(now)), freshSeconds_(freshSeconds), fetch_(std::move(fetch))
    {
    }

    const TwTrader *trader(const QString &handle) const;
    const TwToken *token(const QString &address) const; // case-insensitive
    // Loads both tables unless a load runs or they are fresh; a table longer
    // than `maxRows` keeps its first rows.
    void ensure(int maxRows);
    void clearStamp() { fetchedAt_.reset(); }

    bool running() const { return running_; }
    std::optional<double> fetchedAt() const { return fetchedAt_; }
    int traderCount() const { return int(traders_.size()); }
    int tokenCount() const { return int(tokens_.size()); }
    std::function<void(const QString &)> notice;

private:
    void load(int maxRows);

    Clock now_;
    double freshSeconds_;
    Fetch fetch_;
    QHash<QString, TwTrader> traders_;
    QHash<QString, TwToken> tokens_;
    std::optional<double> fetchedAt_;
    bool running_ = false;
};
