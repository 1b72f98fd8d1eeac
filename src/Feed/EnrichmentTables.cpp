#include "Feed/EnrichmentTables.h"

#include <memory>

const TwTrader *EnrichmentTables::trader(const QString &handle) const
{
    auto it = traders_.constFind(handle);
    return it == traders_.cend() ? nullptr : &it.value();
}

const TwToken *EnrichmentTables::token(const QString &address) const
{
    auto it = tokens_.constFind(address.toLower());
    return it == tokens_.cend() ? nullptr : &it.value();
}

void EnrichmentTables::ensure(int maxRows)
{
    if (running_)
        return;
    if (fetchedAt_ && now_() - *fetchedAt_ < freshSeconds_)
        return;
    load(maxRows);
}

void EnrichmentTables::load(int maxRows)
{
    running_ = true;
    // Both tables are asked for together; each replaces its old copy only when
    // it arrives whole, so a failed half keeps the last good table.
    struct Pending {
        int left = 2;
    };
    auto pending = std::make_shared<Pending>();
    // A table is held whole for minutes: past its bound the rest is left out.
    auto cap = [this, maxRows](auto &list, const char *what) {
        if (list.size() <= maxRows)
            return;
        if (notice)
            notice(QStringLiteral("GET /") + QLatin1String(what) + QStringLiteral(" over ") +
                   QString::number(maxRows) + QStringLiteral(" rows: the rest left out"));
        list.resize(maxRows);
    };
    auto finishOne = [this, pending] {
        if (--pending->left == 0) {
            fetchedAt_ = now_();
            running_ = false;
        }
    };
    fetch_(QStringLiteral("/traders?window=24h&stocks=true"),
           [this, finishOne, cap](std::optional<QByteArray> body, QString) {
               if (body) {
                   if (auto list = TwDecode::traders(*body)) {
                       cap(*list, "traders");
                       QHash<QString, TwTrader> table;
                       for (const TwTrader &t : *list)
                           table.insert(t.handle, t);
                       traders_ = std::move(table);
                   }
               }
               finishOne();
           });
    fetch_(QStringLiteral("/tokens?window=24h&stocks=true&limit=200"),
           [this, finishOne, cap](std::optional<QByteArray> body, QString) {
               if (body) {
                   if (auto list = TwDecode::tokens(*body)) {
                       cap(*list, "tokens");
                       QHash<QString, TwToken> table;
                       for (const TwToken &t : *list)
                           table.insert(t.token.toLower(), t);
                       tokens_ = std::move(table);
                   }
               }
               finishOne();
           });
}
