#include "Feed/FeedStore.h"

#include "Support/Format.h"
#include "Support/Log.h"
#include "Wire/SignalRules.h"

#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <array>
#include <cmath>

namespace {
constexpr int maxSignals = 120;
constexpr double actorWindow = 300;
constexpr double stockWindow = 900;
// Far more than a backfill (200) or a poll (60) can bring back.
constexpr size_t seenFillsKept = 4096;
constexpr int maxListedPerBatch = 50;
} // namespace

std::optional<QUrl> FeedStore::webLink(const std::optional<QString> &text)
{
    return SignalRules::webLink(text);
}

FeedStore::FeedStore(QObject *parent) : FeedStore(new TarnwickClient(), systemNow, 15000, parent) {}

FeedStore::FeedStore(TarnwickClient *client, Clock now, int pruneIntervalMs, QObject *parent)
    : QObject(parent), client_(client), now_(std::move(now)), pruneIntervalMs_(pruneIntervalMs),
      verbose_(Log::enabledByEnvironment()), preferences_(PreferencesStore::load())
{
    client_->setParent(this);
    pruneTimer_ = new QTimer(this);
    pruneTimer_->setTimerType(Qt::CoarseTimer);
    connect(pruneTimer_, &QTimer::timeout, this, &FeedStore::rebuild);
    details_ = new DetailLoader(*client_, now_, this);
    connect(details_, &DetailLoader::detailsChanged, this, &FeedStore::detailsChanged);
    connect(details_, &DetailLoader::loadingChanged, this, &FeedStore::loadingDetailChanged);
    connect(details_, &DetailLoader::failedChanged, this, &FeedStore::failedDetailChanged);
    wireClient();
    refreshMuteSets();
}

FeedStore::~FeedStore()
{
    // The client dies with us; its callbacks must not reach a half-destroyed store.
    client_->onFills = nullptr;
    client_->onRadar = nullptr;
    client_->onLink = nullptr;
    client_->onLatency = nullptr;
    client_->onFrame = nullptr;
    client_->onBackfill = nullptr;
    client_->onRestart = nullptr;
    client_->onTrouble = nullptr;
}

void FeedStore::log(const QString &message) const
{
    // Log::write flattens control characters, so wire text cannot split a line.
    if (verbose_)
        Log::write("Larkpin", message);
}

void FeedStore::wireClient()
{
    QPointer<FeedStore> self(this);
    client_->onFills = [self](const QList<TwFill> &fills) {
        if (self)
            self->ingest(fills);
    };
    client_->onRadar = [self](const QList<TwRadar> &radar) {
        if (self)
            self->ingest(radar);
    };
    client_->onLink = [self](LinkState state) {
        if (!self)
            return;
        self->log(QStringLiteral("link → ") + LinkStates::caseName(state));
        if (self->link_ != state) {
            if (state == LinkState::down || state == LinkState::polling)
                Log::trouble(lcLink(),
                             QStringLiteral("link to the tape service is ") + LinkStates::caseName(state) +
                                 (state == LinkState::polling ? QStringLiteral(": the socket failed, polling")
                                                              : QStringLiteral(": retrying")));
            self->link_ = state;
            Q_EMIT self->linkChanged();
        }
    };
    client_->onTrouble = [self](const LinkTrouble &trouble) {
        if (self && self->trouble_ != trouble) {
            self->trouble_ = trouble;
            Q_EMIT self->troubleChanged();
        }
    };
    client_->onLatency = [self](double ms) {
        if (!self)
            return;
        auto &latency = self->window_.latencyMs;
        latency = latency ? ms * 0.3 + *latency * 0.7 : ms;
    };
    client_->onBackfill = [self] {
        if (self && !self->backfilled_) {
            self->backfilled_ = true;
            Q_EMIT self->backfillArrived();
        }
    };
    client_->onRestart = [self] {
        // The old ids mean nothing now, and the new ones start below them:
        // kept, they would push out every new id first.
        if (!self)
            return;
        self->log(QStringLiteral("tape restarted: ") + QString::number(self->seenFills_.size()) +
                  QStringLiteral(" fill ids of the old numbering forgotten"));
        self->seenFills_.clear();
    };
    client_->onFrame = [self] {
        if (!self)
            return;
        self->window_.lastFrameAt = self->now_();
        ++self->heartbeat_;
        Q_EMIT self->heartbeatChanged();
    };
}

void FeedStore::start()
{
    client_->start();
    pruneTimer_->start(pruneIntervalMs_);
}

void FeedStore::stop()
{
    pruneTimer_->stop();
    client_->stop();
}

bool FeedStore::pruneTimerActive() const
{
    return pruneTimer_->isActive();
}

void FeedStore::refresh()
{
    client_->clearEnrichmentStamp();
    client_->ensureEnrichment();
    client_->refresh();
}

void FeedStore::setFilter(const FeedFilter &filter)
{
    if (filter_ == filter)
        return;
    filter_ = filter;
    Q_EMIT filterChanged();
}

void FeedStore::setPreferences(const Preferences &prefs)
{
    if (preferences_ == prefs)
        return;
    preferences_ = prefs;
    refreshMuteSets();
    Q_EMIT preferencesChanged();
}

// ---- mute and watch ----

void FeedStore::refreshMuteSets()
{
    mutedTokens_ = QSet<QString>(preferences_.mutedTokens.cbegin(), preferences_.mutedTokens.cend());
    mutedWallets_ = QSet<QString>(preferences_.mutedWallets.cbegin(), preferences_.mutedWallets.cend());
    watched_ = QSet<QString>(preferences_.watchedWallets.cbegin(), preferences_.watchedWallets.cend());
}

std::optional<QString> FeedStore::tokenOf(const Signal &signal)
{
    if (!signal.asset || signal.asset->symbol.isEmpty())
        return std::nullopt;
    return signal.asset->symbol;
}

std::optional<QString> FeedStore::handleOf(const Signal &signal)
{
    // Only a labelled wallet has a handle; a bare address cannot be muted by name.
    if (!signal.wallet || !signal.wallet->label || !signal.wallet->label->startsWith(QLatin1Char('@')) ||
        signal.wallet->label->size() < 2)
        return std::nullopt;
    return signal.wallet->label->mid(1);
}

bool FeedStore::isMuted(const Signal &signal) const
{
    if (!mutedTokens_.isEmpty())
        if (const auto token = tokenOf(signal); token && mutedTokens_.contains(*token))
            return true;
    if (!mutedWallets_.isEmpty())
        if (const auto handle = handleOf(signal); handle && mutedWallets_.contains(*handle))
            return true;
    return false;
}

bool FeedStore::isWatched(const Signal &signal) const
{
    if (watched_.isEmpty())
        return false;
    const auto handle = handleOf(signal);
    return handle && watched_.contains(*handle);
}

bool FeedStore::updatePreferences(const Preferences &prefs)
{
    if (preferences_ == prefs)
        return false;
    setPreferences(prefs);
    PreferencesStore::save(preferences_);
    rebuild();
    return true;
}

// ---- inbox ----

const Signal *FeedStore::held(const QString &id) const
{
    auto it = inbox_.constFind(id);
    return it == inbox_.cend() ? nullptr : &it.value()->second;
}

bool FeedStore::holdable(const Signal &signal) const
{
    // Times that do not order (never sent by the service, but a record fed in
    // by hand could carry them) would break both indexes.
    if (std::isfinite(signal.createdAt) && std::isfinite(signal.expiresAt))
        return true;
    log(QStringLiteral("drop  ") + signal.id + QStringLiteral(" — time out of range"));
    return false;
}

bool FeedStore::hold(const Signal &signal)
{
    if (!holdable(signal))
        return false;
    release(signal.id); // a signal with the same id is replaced
    auto placed = ordered_.emplace(std::pair(signal.createdAt, signal.id), signal).first;
    inbox_.insert(signal.id, placed);
    expiry_.emplace(signal.expiresAt, signal.id);
    return true;
}

bool FeedStore::release(const QString &id)
{
    auto it = inbox_.find(id);
    if (it == inbox_.end())
        return false;
    const Ordered::iterator placed = it.value();
    expiry_.erase(std::pair(placed->second.expiresAt, id));
    ordered_.erase(placed);
    inbox_.erase(it);
    return true;
}

void FeedStore::setLastUpdate(double at)
{
    if (lastUpdate_ == at)
        return;
    lastUpdate_ = at;
    Q_EMIT lastUpdateChanged();
}

// ---- ingest ----

void FeedStore::ingest(const QList<TwFill> &fills)
{
    if (fills.isEmpty())
        return;
    bool changed = false;
    const qint64 repeatedBefore = fillsRepeated_;
    const qint64 ingestedBefore = fillsIngested_;
    // The trace lists a batch's fills up to a point: a flood's thousands
    // would cost more than taking them in.
    int listed = 0;
    auto listing = [&] { return verbose_ && listed++ < maxListedPerBatch; };
    for (const TwFill &fill : fills) {
        // A fill is counted once however it came: the socket and the backfill
        // race at start, and a wake catches up through REST.
        if (!seenFills_.insert(fill.id).second) {
            ++fillsRepeated_;
            continue;
        }
        if (seenFills_.size() > seenFillsKept)
            seenFills_.erase(seenFills_.begin());
        ++fillsIngested_;
        window_.append(fill.ts, fill.usd, fill.side == QLatin1String("buy"));
        const TwTrader *trader = client_->trader(fill.handle);
        const TwToken *token = client_->token(fill.token);
        const std::optional<Signal> made = SignalRules::signal(fill, trader, token);
        if (!made) {
            if (listing())
                log(QStringLiteral("drop  ") + fill.symbol + QLatin1Char(' ') + Format::usd(fill.usd) +
                    QStringLiteral(" — ") + fill.flags.join(QStringLiteral(", ")));
            continue;
        }
        // Checked before anything is merged or replaced: a fill that cannot be
        // held must not push out the one it would have replaced.
        if (!holdable(*made))
            continue;
        if (fill.isStock) {
            changed = ingestStock(fill, *made) || changed;
            continue;
        }
        const QString key = QStringLiteral("whale:") + fill.handle + QLatin1Char(':') + fill.token +
                            QLatin1Char(':') + fill.side;
        const auto previous = recentByActor_.constFind(key);
        // A fill older than the stored one also counts as inside the window.
        if (previous != recentByActor_.cend() && made->createdAt - previous->at < actorWindow) {
            if (fill.usd <= previous->usd)
                continue;          // a smaller repeat of the same move
            release(previous->id); // the larger trade replaces it
        }
        recentByActor_.insert(key, ActorMark{made->id, fill.usd, made->createdAt});
        hold(*made);
        if (listing())
            log(QStringLiteral("keep  [") + SignalKinds::label(made->kind) + QStringLiteral("] p") +
                QString::number(made->priority) + QLatin1Char(' ') + made->line.text());
        changed = true;
    }
    if (listed > maxListedPerBatch)
        log(QStringLiteral("...   ") + QString::number(listed - maxListedPerBatch) +
            QStringLiteral(" more fills of this batch not listed"));
    // The running counts, when a repeat was passed over and at every
    // hundredth fill, for whoever watches a long run.
    if (verbose_ && (fillsRepeated_ > repeatedBefore || fillsIngested_ / 100 > ingestedBefore / 100))
        log(QStringLiteral("fills ingested ") + QString::number(fillsIngested_) +
            QStringLiteral(", repeated ") + QString::number(fillsRepeated_));
    enforceBounds();
    if (changed) {
        setLastUpdate(now_());
        rebuild();
    }
}

void FeedStore::enforceBounds()
{
    // The oldest held signal goes first: it is the last the list would show.
    while (inbox_.size() > maxHeld) {
        const QString id = std::prev(ordered_.end())->first.second; // a copy: release() erases the node
        release(id);
        ++dropped_.signals;
    }
    // The older half of a table at once, so a flood pays for it once in many fills.
    auto trim = [](auto &table, int cap, qint64 &count) {
        if (table.size() <= cap)
            return;
        std::vector<double> ats;
        ats.reserve(size_t(table.size()));
        for (auto it = table.cbegin(); it != table.cend(); ++it)
            ats.push_back(it->at);
        std::nth_element(ats.begin(), ats.begin() + qsizetype(ats.size() / 2), ats.end());
        const double cut = ats[ats.size() / 2];
        const qsizetype before = table.size();
        table.removeIf([cut](auto it) { return it->at <= cut; });
        count += before - table.size();
    };
    trim(recentByActor_, maxActorMarks, dropped_.actorMarks);
    trim(stockGroups_, maxStockGroups, dropped_.stockGroups);
}

void FeedStore::reportDrops(double now)
{
    const qint64 ticks = window_.ticksDropped();
    if (dropped_ == droppedReported_ && ticks == ticksReported_)
        return;
    if (lastDropReport_ && std::fabs(now - *lastDropReport_) < 60)
        return; // once a minute, whatever the rate
    const QString message = QStringLiteral("store full, the oldest dropped: ") +
                            QString::number(dropped_.signals - droppedReported_.signals) +
                            QStringLiteral(" signals, ") + QString::number(ticks - ticksReported_) +
                            QStringLiteral(" telemetry ticks, ") +
                            QString::number(dropped_.actorMarks - droppedReported_.actorMarks) +
                            QStringLiteral(" merge marks, ") +
                            QString::number(dropped_.stockGroups - droppedReported_.stockGroups) +
                            QStringLiteral(" equity groups");
    if (verbose_)
        log(message);
    else
        Log::trouble(lcInput(), message);
    lastDropReport_ = now;
    droppedReported_ = dropped_;
    ticksReported_ = ticks;
}

bool FeedStore::ingestStock(const TwFill &fill, const Signal &signal)
{
    const QString key = QStringLiteral("stock:") + fill.symbol + QLatin1Char(':') + fill.side;
    const double t = fill.ts;
    StockGroup group;
    auto existing = stockGroups_.constFind(key);
    if (existing != stockGroups_.cend() && t - existing->at < stockWindow) {
        group = *existing;
        release(group.signalId);
        if (group.handles.size() < maxGroupHandles)
            group.handles.insert(fill.handle);
        group.totalUsd += fill.usd;
        if (group.largest.usd < fill.usd)
            group.largest = fill; // the first one keeps a tie
        group.at = std::max(group.at, t);
    } else {
        group.signalId = signal.id;
        group.handles = {fill.handle};
        group.totalUsd = fill.usd;
        group.largest = fill;
        group.at = t;
    }
    Signal base = SignalRules::signal(group.largest, client_->trader(group.largest.handle),
                                      client_->token(group.largest.token))
                      .value_or(signal);
    group.signalId = base.id;
    const int n = int(group.handles.size());
    stockGroups_.insert(key, std::move(group));

    // One wallet's equity trade is never a signal on its own, however large.
    if (n < 2)
        return false;

    const StockGroup &g = stockGroups_[key];
    base.line.ticker = SignalRules::shownTicker(fill.symbol, true);
    base.line.body = QString::number(n) + QStringLiteral(" wallets ") +
                     (fill.side == QLatin1String("buy") ? QStringLiteral("added") : QStringLiteral("dumped"));
    base.line.figure = Format::usd(g.totalUsd);
    base.line.tag = QStringLiteral("×") + QString::number(n);
    base.detail.reset();
    base.notionalUsd = g.totalUsd;
    base.createdAt = g.at;
    base.expiresAt = g.at + 3600;

    const Signal *before = held(base.id);
    const bool same = before && before->line.text() == base.line.text();
    hold(base);
    if (same)
        return false;
    if (verbose_)
        log(QStringLiteral("keep  [STOCK] ") + base.line.text());
    return true;
}

void FeedStore::ingest(const QList<TwRadar> &radar)
{
    if (radar.isEmpty())
        return;
    const double now = now_();
    bool changed = false;
    for (const TwRadar &entry : radar) {
        const std::optional<Signal> made = SignalRules::signal(entry, now);
        if (!made)
            continue;
        // The service answers with two hours of pile-ins; one already past
        // its expiry would be pruned again at once.
        if (!(made->expiresAt > now))
            continue;
        const Signal *before = held(made->id);
        if (before && before->line.text() == made->line.text())
            continue; // re-sent on every poll
        if (!hold(*made))
            continue;
        changed = true;
        if (verbose_)
            log(QStringLiteral("radar [") + SignalKinds::label(made->kind) + QStringLiteral("] ") +
                made->line.text());
    }
    enforceBounds();
    if (changed) {
        setLastUpdate(now);
        rebuild();
    }
}

void FeedStore::rebuild()
{
    const double now = now_();
    while (!expiry_.empty() && !(expiry_.begin()->first > now)) {
        const QString id = expiry_.begin()->second; // a copy: release() erases the node
        if (!release(id))
            expiry_.erase(expiry_.begin());
    }
    recentByActor_.removeIf(
        [now](const QHash<QString, ActorMark>::iterator it) { return now - it->at >= actorWindow; });
    stockGroups_.removeIf(
        [now](const QHash<QString, StockGroup>::iterator it) { return now - it->at >= stockWindow; });

    // The inbox is already newest first: take the first 120 that pass. The
    // published list is only copied when it differs, and the first
    // difference is usually at the top, so an unchanged or barely changed
    // list costs little.
    const bool showsWhale = preferences_.shows(SignalKind::whale);
    const bool showsSpike = preferences_.shows(SignalKind::spike);
    const bool showsStocks = preferences_.shows(SignalKind::stocks);
    const double minUsd = preferences_.minTradeUsd;
    std::array<const Signal *, maxSignals> picked{};
    qsizetype count = 0;
    bool same = true;
    for (auto it = ordered_.cbegin(); it != ordered_.cend() && count < maxSignals; ++it) {
        const Signal &s = it->second;
        const bool shown = s.kind == SignalKind::whale   ? showsWhale
                           : s.kind == SignalKind::spike ? showsSpike
                                                         : showsStocks;
        if (!shown)
            continue;
        if (isMuted(s))
            continue;
        // A size exactly at the minimum is kept; pile-ins and equities are never sized out.
        if (s.kind == SignalKind::whale && s.notionalUsd && *s.notionalUsd < minUsd)
            continue;
        if (same && (count >= signals_.size() || !(signals_.at(count) == s)))
            same = false;
        picked[size_t(count++)] = &s;
    }
    if (!same || count != signals_.size()) {
        QList<Signal> selected;
        selected.reserve(count);
        for (qsizetype i = 0; i < count; ++i)
            selected.append(*picked[size_t(i)]);
        signals_ = std::move(selected);
        Q_EMIT signalsChanged();
    }

    reportDrops(now);
    Telemetry snapshot = window_.snapshot(now, int(inbox_.size()), int(signals_.size()));
    if (!(snapshot == telemetry_)) {
        telemetry_ = std::move(snapshot);
        Q_EMIT telemetryChanged();
    }
    if (verbose_)
        log(QStringLiteral("feed  ") + QString::number(signals_.size()) + QStringLiteral(" visible / ") +
            QString::number(inbox_.size()) + QStringLiteral(" held"));
}

// ---- detail loading ----

void FeedStore::loadDetail(const Signal &signal)
{
    details_->load(signal);
}
