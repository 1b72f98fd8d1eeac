#include "Feed/FeedStore.h"

#include "Feed/SignalRules.h"
#include "Support/Format.h"
#include "Support/Log.h"

#include <QPointer>
#include <QTimer>

#include <algorithm>

namespace {
constexpr int maxSignals = 120;
constexpr int tickerCount = 8;
constexpr int heroCount = 3;
constexpr double actorWindow = 300;
constexpr double stockWindow = 900;

std::optional<QUrl> webLink(const std::optional<QString> &text)
{
    if (!text)
        return std::nullopt;
    const QUrl url(*text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return std::nullopt;
    return url;
}
} // namespace

FeedStore::FeedStore(QObject *parent) : FeedStore(new TarnwickClient(), systemNow, 15000, parent) {}

FeedStore::FeedStore(TarnwickClient *client, Clock now, int pruneIntervalMs, QObject *parent)
    : QObject(parent), client_(client), now_(std::move(now)), pruneIntervalMs_(pruneIntervalMs),
      verbose_(Log::enabledByEnvironment()), preferences_(PreferencesStore::load())
{
    client_->setParent(this);
    pruneTimer_ = new QTimer(this);
    pruneTimer_->setTimerType(Qt::CoarseTimer);
    connect(pruneTimer_, &QTimer::timeout, this, &FeedStore::rebuild);
    wireClient();
}

FeedStore::~FeedStore()
{
    // The client dies with us; its callbacks must not reach a half-destroyed store.
    client_->onFills = nullptr;
    client_->onRadar = nullptr;
    client_->onLink = nullptr;
    client_->onLatency = nullptr;
    client_->onFrame = nullptr;
}

void FeedStore::log(const QString &message) const
{
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
            self->link_ = state;
            Q_EMIT self->linkChanged();
        }
    };
    client_->onLatency = [self](double ms) {
        if (!self)
            return;
        auto &latency = self->window_.latencyMs;
        latency = latency ? ms * 0.3 + *latency * 0.7 : ms;
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
    Q_EMIT preferencesChanged();
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

// MARK: derived lists

double FeedStore::score(const Signal &s, double now) const
{
    return s.priority - 0.5 * std::max(0.0, (now - s.createdAt) / 60.0);
}

namespace {
QList<Signal> topByScore(QList<Signal> list, qsizetype n, const FeedStore &store)
{
    const double now = store.now();
    std::sort(list.begin(), list.end(),
              [&](const Signal &a, const Signal &b) { return store.score(a, now) > store.score(b, now); });
    if (list.size() > n)
        list.resize(n);
    return list;
}
} // namespace

QList<Signal> FeedStore::tickerSignals() const
{
    return topByScore(signals_, tickerCount, *this);
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
    return int(std::count_if(signals_.begin(), signals_.end(), [&](const Signal &s) { return filter.matches(s.kind); }));
}

// MARK: ingest

void FeedStore::ingest(const QList<TwFill> &fills)
{
    if (fills.isEmpty())
        return;
    bool changed = false;
    for (const TwFill &fill : fills) {
        window_.append(fill.ts, fill.usd, fill.side == QLatin1String("buy"));
        const TwTrader *trader = client_->trader(fill.handle);
        const TwToken *token = client_->token(fill.token);
        const std::optional<Signal> made = SignalRules::signal(fill, trader, token);
        if (!made) {
            if (verbose_)
                log(QStringLiteral("drop  ") + fill.symbol + QLatin1Char(' ') + Format::usd(fill.usd) +
                    QStringLiteral(" — ") + fill.flags.join(QStringLiteral(", ")));
            continue;
        }
        if (fill.isStock) {
            changed = ingestStock(fill, *made) || changed;
            continue;
        }
        const QString key = QStringLiteral("whale:") + fill.handle + QLatin1Char(':') + fill.token + QLatin1Char(':') +
                            fill.side;
        const auto previous = recentByActor_.constFind(key);
        if (previous != recentByActor_.cend() && made->createdAt - previous->at < actorWindow) {
            if (fill.usd <= previous->usd)
                continue; // a smaller repeat of the same move
            inbox_.remove(previous->id);
        }
        recentByActor_.insert(key, ActorMark{made->id, fill.usd, made->createdAt});
        inbox_.insert(made->id, *made);
        if (verbose_)
            log(QStringLiteral("keep  [") + SignalKinds::label(made->kind) + QStringLiteral("] p") +
                QString::number(made->priority) + QLatin1Char(' ') + made->line.text());
        changed = true;
    }
    if (changed) {
        lastUpdate_ = now_();
        Q_EMIT lastUpdateChanged();
        rebuild();
    }
}

bool FeedStore::ingestStock(const TwFill &fill, const Signal &signal)
{
    const QString key = QStringLiteral("stock:") + fill.symbol + QLatin1Char(':') + fill.side;
    const double t = fill.ts;
    StockGroup group;
    auto existing = stockGroups_.find(key);
    if (existing != stockGroups_.end() && t - existing->at < stockWindow) {
        group = *existing;
        inbox_.remove(group.signalId);
        group.handles.insert(fill.handle);
        group.totalUsd += fill.usd;
        if (group.largest.usd < fill.usd)
            group.largest = fill;
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
    stockGroups_.insert(key, group);

    // One wallet's equity trade is never a signal on its own, however large.
    if (group.handles.size() < 2)
        return false;

    const int n = int(group.handles.size());
    base.line.ticker = fill.symbol;
    base.line.body = QString::number(n) + QStringLiteral(" wallets ") +
                     (fill.side == QLatin1String("buy") ? QStringLiteral("added") : QStringLiteral("dumped"));
    base.line.figure = Format::usd(group.totalUsd);
    base.line.tag = QStringLiteral("×") + QString::number(n);
    base.detail.reset();
    base.notionalUsd = group.totalUsd;
    base.createdAt = group.at;
    base.expiresAt = group.at + 3600;

    const auto before = inbox_.constFind(base.id);
    const bool same = before != inbox_.cend() && before->line.text() == base.line.text();
    inbox_.insert(base.id, base);
    if (same)
        return false;
    log(QStringLiteral("keep  [STOCK] ") + base.line.text());
    return true;
}

void FeedStore::ingest(const QList<TwRadar> &radar)
{
    const double now = now_();
    bool changed = false;
    for (const TwRadar &entry : radar) {
        const std::optional<Signal> made = SignalRules::signal(entry, now);
        if (!made)
            continue;
        const auto held = inbox_.constFind(made->id);
        if (held != inbox_.cend() && held->line.text() == made->line.text())
            continue; // re-sent on every poll
        inbox_.insert(made->id, *made);
        changed = true;
        log(QStringLiteral("radar [") + SignalKinds::label(made->kind) + QStringLiteral("] ") + made->line.text());
    }
    if (changed) {
        lastUpdate_ = now;
        Q_EMIT lastUpdateChanged();
        rebuild();
    }
}

void FeedStore::rebuild()
{
    const double now = now_();
    inbox_.removeIf([now](const QHash<QString, Signal>::iterator it) { return !(it->expiresAt > now); });
    recentByActor_.removeIf(
        [now](const QHash<QString, ActorMark>::iterator it) { return now - it->at >= actorWindow; });
    stockGroups_.removeIf([now](const QHash<QString, StockGroup>::iterator it) { return now - it->at >= stockWindow; });

    QList<Signal> selected;
    selected.reserve(inbox_.size());
    for (const Signal &s : std::as_const(inbox_)) {
        if (!preferences_.shows(s.kind))
            continue;
        if (s.kind == SignalKind::whale && s.notionalUsd && *s.notionalUsd < preferences_.minTradeUsd)
            continue;
        selected.append(s);
    }
    std::sort(selected.begin(), selected.end(), [](const Signal &a, const Signal &b) {
        if (a.createdAt != b.createdAt)
            return a.createdAt > b.createdAt;
        return a.id < b.id; // a stable order for equal times, so nothing flickers
    });
    if (selected.size() > maxSignals)
        selected.resize(maxSignals);
    if (selected != signals_) {
        signals_ = std::move(selected);
        Q_EMIT signalsChanged();
    }

    Telemetry snapshot = window_.snapshot(now, int(inbox_.size()), int(signals_.size()));
    if (!(snapshot == telemetry_)) {
        telemetry_ = std::move(snapshot);
        Q_EMIT telemetryChanged();
    }
    log(QStringLiteral("feed  ") + QString::number(signals_.size()) + QStringLiteral(" visible / ") +
        QString::number(inbox_.size()) + QStringLiteral(" held"));
}

// MARK: detail loading

void FeedStore::loadDetail(const Signal &signal)
{
    const QString id = signal.id;
    if (details_.contains(id) || loadingDetail_.contains(id))
        return;
    loadingDetail_.insert(id);
    Q_EMIT loadingDetailChanged();
    if (failedDetail_.remove(id))
        Q_EMIT failedDetailChanged();

    struct Work {
        Signal signal;
        const TwToken *tokenRecord = nullptr;
        std::optional<TwToken> token;
        std::optional<TwFill> fill;
    };
    auto work = std::make_shared<Work>();
    work->signal = signal;
    if (signal.asset && signal.asset->address)
        if (const TwToken *t = client_->token(*signal.asset->address))
            work->token = *t;

    auto fail = [this, id] {
        loadingDetail_.remove(id);
        failedDetail_.insert(id);
        Q_EMIT failedDetailChanged();
        Q_EMIT loadingDetailChanged();
    };
    auto finish = [this, id, work](std::optional<WalletProfile> wallet, const TwTrader *trader) {
        SignalDetail detail;
        detail.signalId = id;
        detail.fetchedAt = now_();
        detail.wallet = std::move(wallet);
        const double now = now_();
        if (work->token)
            detail.token = SignalRules::tokenProfile(*work->token, now);
        if (work->signal.asset && work->signal.asset->isStock) {
            EquityMove move;
            move.ticker = work->signal.asset->symbol;
            move.session = SignalRules::marketSession(now);
            if (work->token && work->token->change24)
                move.change = *work->token->change24 / 100.0;
            if (work->token)
                move.lastPrice = work->token->mark;
            detail.equity = move;
        }
        if (work->token && work->token->pairURL)
            detail.links.chart = webLink(work->token->pairURL);
        else if (work->fill)
            detail.links.chart = webLink(work->fill->pairURL);
        if (trader)
            detail.links.profile = webLink(trader->profileURL);
        details_.insert(id, detail);
        loadingDetail_.remove(id);
        Q_EMIT detailsChanged();
        Q_EMIT loadingDetailChanged();
    };
    auto walletStep = [this, work, fail, finish] {
        const auto &wallet = work->signal.wallet;
        if (!wallet || !wallet->label || !wallet->label->startsWith(QLatin1Char('@'))) {
            finish(std::nullopt, nullptr);
            return;
        }
        const QString handle = wallet->label->mid(1);
        client_->traderDetail(handle, this, [this, handle, fail, finish](std::optional<TwTraderDetail> detail, QString) {
            if (!detail)
                return fail();
            const TwTrader *trader = client_->trader(handle);
            finish(SignalRules::walletProfile(*detail, trader), trader);
        });
    };
    if (signal.kind == SignalKind::spike) {
        walletStep();
        return;
    }
    client_->tape(200, this, [work, fail, walletStep](std::optional<QList<TwFill>> fills, QString) {
        if (!fills)
            return fail();
        for (const TwFill &f : *fills) {
            if (QStringLiteral("tw-fill-") + QString::number(f.id) == work->signal.id) {
                work->fill = f;
                break;
            }
        }
        walletStep();
    });
}
