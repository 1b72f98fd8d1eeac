// The store's derived lists, all made from what rebuild published: the
// ticker (by score, watched trades given room), the visible signals under the
// filter, the heroes and the stream beneath them.

#include "Feed/FeedStore.h"

#include <algorithm>

namespace {
constexpr int tickerCount = 8;
constexpr int heroCount = 3;
} // namespace

double FeedStore::score(const Signal &s, double now) const
{
    return s.priority - 0.5 * std::max(0.0, (now - s.createdAt) / 60.0);
}

namespace {
QList<Signal> topByScore(const QList<Signal> &list, qsizetype n, const FeedStore &store)
{
    // Scores are taken once, at one "now"; equal scores fall back to the
    // published order (newest first), so the ticker and the heroes do not
    // swap places between two reads.
    const double now = store.now();
    std::vector<std::pair<double, qsizetype>> ranked;
    ranked.reserve(size_t(list.size()));
    for (qsizetype i = 0; i < list.size(); ++i)
        ranked.emplace_back(store.score(list[i], now), i);
    const auto keep = std::min<size_t>(size_t(n), ranked.size());
    std::partial_sort(ranked.begin(), ranked.begin() + qsizetype(keep), ranked.end(),
                      [](const auto &a, const auto &b) {
                          return a.first != b.first ? a.first > b.first : a.second < b.second;
                      });
    QList<Signal> out;
    out.reserve(qsizetype(keep));
    for (size_t i = 0; i < keep; ++i)
        out.append(list[ranked[i].second]);
    return out;
}
} // namespace

QList<Signal> FeedStore::tickerSignals() const
{
    QList<Signal> top = topByScore(signals_, tickerCount, *this);
    if (watched_.isEmpty())
        return top;
    // A watched wallet's trade is always in the rotation: it takes the place
    // of the weakest unwatched one (the published list already holds only
    // trades at or above the minimum size).
    QList<Signal> missing;
    for (const Signal &s : signals_) {
        if (!isWatched(s))
            continue;
        if (std::none_of(top.cbegin(), top.cend(), [&](const Signal &t) { return t.id == s.id; }))
            missing.append(s);
    }
    if (missing.isEmpty())
        return top;
    qsizetype needed = missing.size() - (tickerCount - top.size());
    for (qsizetype i = top.size() - 1; i >= 0 && needed > 0; --i) {
        if (!isWatched(top[i])) {
            top.removeAt(i);
            --needed;
        }
    }
    for (const Signal &s : std::as_const(missing))
        if (top.size() < tickerCount)
            top.append(s);
    return topByScore(top, tickerCount, *this);
}

QList<Signal> FeedStore::visibleSignals() const
{
    if (filter_.isAll())
        return signals_;
    QList<Signal> out;
    for (const Signal &s : signals_)
        if (filter_.matches(s.kind))
            out.append(s);
    return out;
}

QList<Signal> FeedStore::heroSignals() const
{
    return topByScore(visibleSignals(), heroCount, *this);
}

QList<Signal> FeedStore::streamSignals() const
{
    const QList<Signal> visible = visibleSignals();
    QSet<QString> heroes;
    for (const Signal &s : topByScore(visible, heroCount, *this))
        heroes.insert(s.id);
    QList<Signal> out;
    for (const Signal &s : visible)
        if (!heroes.contains(s.id))
            out.append(s);
    return out;
}

int FeedStore::count(const FeedFilter &filter) const
{
    if (filter.isAll())
        return int(signals_.size());
    return int(std::count_if(signals_.begin(), signals_.end(),
                             [&](const Signal &s) { return filter.matches(s.kind); }));
}
