#include "Panel/PanelModel.h"

#include "BuildConfig.h"
#include "Feed/FeedStore.h"
#include "Wire/Tarnwick.h"
#include "Model/Preferences.h"
#include "Panel/PanelStyle.h"
#include "Panel/PanelText.h"
#include "Support/Format.h"
#include "Support/Log.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cmath>

namespace {
QVariantMap stat(const QString &label, const std::optional<QString> &value)
{
    return {{QStringLiteral("label"), label}, {QStringLiteral("value"), value.value_or(PanelText::dash())}};
}

template <typename T, typename F> std::optional<QString> fmt(const std::optional<T> &v, F f)
{
    if (!v)
        return std::nullopt;
    if constexpr (std::is_floating_point_v<T>) {
        if (!std::isfinite(double(*v)))
            return std::nullopt;
    }
    return QString(f(*v));
}

QVariantMap delta(const std::optional<double> &ratio)
{
    QVariantMap m;
    const bool present = ratio && std::isfinite(*ratio);
    m[QStringLiteral("hasDelta")] = present;
    m[QStringLiteral("delta")] = present ? Format::signedPercent(*ratio, 1) : QString();
    m[QStringLiteral("deltaNegative")] = present && *ratio < 0;
    return m;
}

void merge(QVariantMap &into, const QVariantMap &from)
{
    for (auto it = from.cbegin(); it != from.cend(); ++it)
        into.insert(it.key(), it.value());
}

QString shortAddress(const QString &address)
{
    if (address.size() <= 12)
        return address;
    return address.left(4) + QStringLiteral("\u2026") + address.right(4);
}

QVariantMap walletModule(const WalletProfile &w, double now)
{
    QVariantMap m;
    m[QStringLiteral("eyebrow")] = QStringLiteral("WALLET");
    m[QStringLiteral("title")] = w.label.value_or(shortAddress(w.address));
    m[QStringLiteral("subtitle")] = w.label ? shortAddress(w.address) : QString();
    m[QStringLiteral("stats")] = QVariantList{
        stat(QStringLiteral("WIN RATE"),
             fmt(w.winRate,
                 [](double r) -> QString { return Format::fixed(r * 100, 0) + QStringLiteral("%"); })),
        stat(QStringLiteral("FILLS"),
             fmt(w.tradeCount, [](qint64 n) -> QString { return Format::count(n); })),
        stat(QStringLiteral("MEDIAN HOLD"),
             fmt(w.medianHoldMinutes, [](qint64 n) -> QString { return Format::duration(double(n)); })),
        stat(QStringLiteral("REALISED"),
             fmt(w.realizedPnlUsd, [](double v) -> QString { return Format::usd(v); })),
    };
    merge(m, delta(w.pnlRatio));
    m[QStringLiteral("deltaNote")] = QStringLiteral("unrealised, open bags");
    QVariantList trades;
    for (const WalletTrade &t : w.recentTrades) {
        if (trades.size() == 4)
            break;
        QVariantMap row;
        row[QStringLiteral("tradeId")] = t.id();
        row[QStringLiteral("side")] = PanelText::sideText(t.side);
        row[QStringLiteral("buy")] = t.side == TradeSide::buy;
        row[QStringLiteral("symbol")] = t.tokenSymbol;
        row[QStringLiteral("amount")] =
            std::isfinite(t.amountUsd) ? Format::usd(t.amountUsd) : PanelText::dash();
        row[QStringLiteral("age")] = std::isfinite(t.at) ? Format::relative(t.at, now) : PanelText::dash();
        const bool hasPnl = t.pnlRatio && std::isfinite(*t.pnlRatio);
        row[QStringLiteral("open")] = !hasPnl;
        row[QStringLiteral("pnl")] = hasPnl ? Format::signedPercent(*t.pnlRatio, 1) : QStringLiteral("open");
        row[QStringLiteral("pnlNegative")] = hasPnl && *t.pnlRatio < 0;
        trades << row;
    }
    m[QStringLiteral("trades")] = trades;
    return m;
}

QVariantMap tokenModule(const TokenProfile &t)
{
    QVariantMap m;
    m[QStringLiteral("eyebrow")] = QStringLiteral("TOKEN");
    m[QStringLiteral("title")] =
        fmt(t.priceUsd, [](double p) -> QString { return Format::price(p); }).value_or(PanelText::dash());
    QString subtitle = QStringLiteral("$") + t.symbol;
    if (t.name)
        subtitle += QStringLiteral(" \u00B7 ") + *t.name;
    m[QStringLiteral("subtitle")] = subtitle;
    merge(m, delta(t.change24h));
    m[QStringLiteral("stats")] = QVariantList{
        stat(QStringLiteral("LIQUIDITY"),
             fmt(t.liquidityUsd, [](double v) -> QString { return Format::usd(v); })),
        stat(QStringLiteral("24H VOLUME"),
             fmt(t.volume24hUsd, [](double v) -> QString { return Format::usd(v); })),
        stat(QStringLiteral("HOLDERS"), fmt(t.holders, [](qint64 n) -> QString { return Format::count(n); })),
        stat(QStringLiteral("POOL AGE"),
             fmt(t.poolAgeHours, [](double h) -> QString { return Format::duration(h * 60); })),
    };
    m[QStringLiteral("flowLine")] = PanelText::buysSellsText(t.buys24, t.sells24);
    return m;
}

QVariantMap equityModule(const EquityMove &e)
{
    QVariantMap m;
    m[QStringLiteral("eyebrow")] = QStringLiteral("EQUITY");
    m[QStringLiteral("title")] =
        fmt(e.lastPrice, [](double p) -> QString { return Format::price(p); }).value_or(PanelText::dash());
    m[QStringLiteral("subtitle")] = e.ticker;
    merge(m, delta(e.change));
    m[QStringLiteral("session")] = PanelText::sessionText(e.session);
    return m;
}
} // namespace

PanelModel::PanelModel(FeedStore *store, QObject *parent)
    : QObject(parent), store_(store), minis_(new SignalListModel(store, this)),
      stream_(new SignalListModel(store, this))
{
    now_ = store ? store->now() : 0;
    launchAtLogin_ = PreferencesStore::launchAtLogin();

    clock_ = new QTimer(this);
    clock_->setInterval(clockIntervalMs);
    clock_->setTimerType(Qt::PreciseTimer);
    connect(clock_, &QTimer::timeout, this, [this] { tick(store_ ? store_->now() : now_); });
    clock_->start();

    bloomTimer_ = new QTimer(this);
    bloomTimer_->setSingleShot(true);
    bloomTimer_->setInterval(bloomMs);
    connect(bloomTimer_, &QTimer::timeout, this, [this] {
        bloom_ = false;
        Q_EMIT bloomChanged();
    });

    undoTimer_ = new QTimer(this);
    undoTimer_->setSingleShot(true);
    undoTimer_->setInterval(undoMs);
    connect(undoTimer_, &QTimer::timeout, this, [this] {
        undo_.reset();
        Q_EMIT undoChanged();
    });

    if (!store)
        return;
    const auto lists = [this] {
        rebuildLists();
        Q_EMIT chipsChanged();
        Q_EMIT emptyChanged();
    };
    connect(store, &FeedStore::signalsChanged, this, lists);
    connect(store, &FeedStore::filterChanged, this, lists);
    connect(store, &FeedStore::linkChanged, this, [this] {
        Q_EMIT linkChanged();
        Q_EMIT emptyChanged();
        Q_EMIT telemetryChanged();
    });
    connect(store, &FeedStore::lastUpdateChanged, this, &PanelModel::linkChanged);
    connect(store, &FeedStore::preferencesChanged, this, &PanelModel::preferencesChanged);
    connect(store, &FeedStore::preferencesChanged, this, [this] {
        // Watching changes no list, only how rows are marked.
        minis_->watchedChanged();
        stream_->watchedChanged();
        Q_EMIT heroChanged();
        Q_EMIT detailCardChanged();
    });
    connect(store, &FeedStore::telemetryChanged, this, &PanelModel::telemetryChanged);
    connect(store, &FeedStore::detailsChanged, this, &PanelModel::bumpDetails);
    connect(store, &FeedStore::loadingDetailChanged, this, &PanelModel::bumpDetails);
    connect(store, &FeedStore::failedDetailChanged, this, &PanelModel::bumpDetails);

    // The top signal present at opening is not news: only a change blooms.
    const QList<Signal> heroes = store->heroSignals();
    firstHeroId_ = heroes.isEmpty() ? QString() : heroes.first().id;
    rebuildLists();
}

PanelModel::~PanelModel() = default;

void PanelModel::tick(double now)
{
    now_ = now;
    minis_->setNow(now);
    stream_->setNow(now);
    Q_EMIT nowChanged();
    Q_EMIT linkChanged();
    Q_EMIT heroChanged();
    Q_EMIT telemetryChanged();
    bumpDetails();
}

void PanelModel::rebuildLists()
{
    if (!store_)
        return;
    heroes_ = store_->heroSignals();
    minis_->setSignals(heroes_.mid(1), now_);
    stream_->setSignals(store_->streamSignals(), now_);
    Q_EMIT heroChanged();
    Q_EMIT detailCardChanged();
    Q_EMIT listsChanged();
    const QString first = heroes_.isEmpty() ? QString() : heroes_.first().id;
    if (first != firstHeroId_) {
        firstHeroId_ = first;
        flash();
    }
}

void PanelModel::flash()
{
    if (heroes_.isEmpty())
        return;
    if (!bloom_) {
        bloom_ = true;
        Q_EMIT bloomChanged();
    }
    bloomTimer_->start();
}

void PanelModel::bumpDetails()
{
    ++detailRevision_;
    minis_->detailsChanged();
    stream_->detailsChanged();
    Q_EMIT heroChanged();
    Q_EMIT detailCardChanged();
    Q_EMIT detailRevisionChanged();
}

QString PanelModel::linkText() const
{
    return store_ ? PanelText::linkLabel(store_->link(), store_->lastUpdate(), now_) : QString();
}

QColor PanelModel::linkColour() const
{
    return PanelStyle::toQColor(PanelText::linkDotColour(store_ ? store_->link() : LinkState::connecting));
}

bool PanelModel::linkAlive() const
{
    return store_ && PanelText::linkDotAlive(store_->link());
}

bool PanelModel::paused() const
{
    return store_ && store_->preferences().paused;
}

QString PanelModel::pauseSymbol() const
{
    return PanelText::pauseSymbol(paused());
}

QString PanelModel::pauseHelp() const
{
    return PanelText::pauseHelp(paused());
}

void PanelModel::setShowSettings(bool show)
{
    if (showSettings_ == show)
        return;
    showSettings_ = show;
    Q_EMIT showSettingsChanged();
}

QVariantList PanelModel::chips() const
{
    QVariantList out;
    if (!store_)
        return out;
    for (const FeedFilter &f : FeedFilter::allCases()) {
        out << QVariantMap{{QStringLiteral("label"), PanelText::chipLabel(f)},
                           {QStringLiteral("trailing"), QString::number(store_->count(f))},
                           {QStringLiteral("selected"), f == store_->filter()}};
    }
    return out;
}

QVariantMap PanelModel::hero() const
{
    if (heroes_.isEmpty())
        return {};
    return SignalListModel::describe(heroes_.first(), now_, store_);
}

QString PanelModel::emptySymbol() const
{
    if (!store_)
        return {};
    return PanelText::emptyState(store_->visibleSignals().isEmpty(), store_->link()).symbol;
}

QString PanelModel::emptyMessage() const
{
    if (!store_)
        return {};
    return PanelText::emptyState(store_->visibleSignals().isEmpty(), store_->link()).message;
}

QString PanelModel::flowText() const
{
    return store_ ? PanelText::flowRate(store_->telemetry().fillsPerMinute) : QString();
}

QVariantList PanelModel::buckets() const
{
    QVariantList out;
    if (store_)
        for (double b : store_->telemetry().buckets)
            out << (std::isfinite(b) ? b : 0.0);
    return out;
}

bool PanelModel::hasVolume() const
{
    if (!store_)
        return false;
    for (double b : store_->telemetry().buckets)
        if (b > 0)
            return true;
    return false;
}

bool PanelModel::hasFlow() const
{
    return store_ && store_->telemetry().buyShare.has_value();
}

double PanelModel::buyShare() const
{
    if (!hasFlow())
        return 0;
    const double s = *store_->telemetry().buyShare;
    return std::isfinite(s) ? std::clamp(s, 0.0, 1.0) : 0.0;
}

QString PanelModel::buyText() const
{
    return hasFlow() ? PanelText::buyText(*store_->telemetry().buyShare) : QString();
}

QString PanelModel::sellText() const
{
    return hasFlow() ? PanelText::sellText(*store_->telemetry().buyShare) : QString();
}

QStringList PanelModel::counters() const
{
    return store_ ? PanelText::counters(store_->telemetry(), store_->link(), now_) : QStringList();
}

QVariantList PanelModel::streamSwitches() const
{
    static const QString subtitles[] = {
        QStringLiteral("Tracked wallets entering or exiting a position"),
        QStringLiteral("Several tracked wallets piling into the same new pool"),
        QStringLiteral("Several tracked wallets moving the same tokenised equity"),
    };
    QVariantList out;
    if (!store_)
        return out;
    for (SignalKind k : SignalKinds::allCases) {
        out << QVariantMap{{QStringLiteral("kind"), SignalKinds::rawValue(k)},
                           {QStringLiteral("title"), SignalKinds::label(k)},
                           {QStringLiteral("subtitle"), subtitles[int(k)]},
                           {QStringLiteral("on"), store_->preferences().shows(k)}};
    }
    return out;
}

QVariantList PanelModel::minimumChips() const
{
    QVariantList out;
    const double selected = store_ ? store_->preferences().minTradeUsd : -1;
    for (double v : PanelText::minimumSizeValues())
        out << QVariantMap{{QStringLiteral("label"), PanelText::minimumSizeLabel(v)},
                           {QStringLiteral("value"), v},
                           {QStringLiteral("selected"), v == selected}};
    return out;
}

QVariantList PanelModel::focusChips() const
{
    QVariantList out;
    const double selected = store_ ? store_->preferences().focalUsd : -1;
    for (double v : PanelText::focusValues())
        out << QVariantMap{{QStringLiteral("label"), PanelText::focusLabel(v)},
                           {QStringLiteral("value"), v},
                           {QStringLiteral("selected"), v == selected}};
    return out;
}

QString PanelModel::versionText() const
{
    QString version = QCoreApplication::applicationVersion();
    if (version.isEmpty())
        version = QStringLiteral(LARKPIN_VERSION);
    return PanelText::versionText(version);
}

const Signal *PanelModel::findSignal(const QString &id) const
{
    for (const Signal &s : heroes_)
        if (s.id == id)
            return &s;
    for (const Signal &s : stream_->signalList())
        if (s.id == id)
            return &s;
    return nullptr;
}

void PanelModel::toggle(const QString &id)
{
    const bool opening = openId_ != id;
    openId_ = opening ? id : QString();
    Q_EMIT openIdChanged();
    Q_EMIT detailCardChanged();
    if (!opening || !store_)
        return;
    if (const Signal *s = findSignal(id)) {
        const Signal copy = *s; // loadDetail may publish and rebuild our lists
        store_->loadDetail(copy);
    }
}

void PanelModel::showDetailCard(const QString &id)
{
    detailCardId_ = id;
    Q_EMIT detailCardChanged();
    if (!store_)
        return;
    if (const Signal *s = findSignal(id)) {
        const Signal copy = *s;
        store_->loadDetail(copy);
    }
}

void PanelModel::closeDetailCard()
{
    if (!detailCardId_.isEmpty()) {
        detailCardId_.clear();
        Q_EMIT detailCardChanged();
        return;
    }
    // Closing an opened mini hero is the same tap that opened it.
    if (!openMiniId().isEmpty())
        toggle(openId_);
}

QString PanelModel::openMiniId() const
{
    if (openId_.isEmpty())
        return {};
    for (qsizetype i = 1; i < heroes_.size(); ++i)
        if (heroes_.at(i).id == openId_)
            return openId_;
    return {};
}

QVariantMap PanelModel::detailCard() const
{
    // A mini hero has no room to unfold: once opened, its evidence shows on
    // the detail card over the content.
    const QString id = detailCardId_.isEmpty() ? openMiniId() : detailCardId_;
    if (id.isEmpty())
        return {};
    if (const Signal *s = findSignal(id))
        return SignalListModel::describe(*s, now_, store_);
    return {};
}

void PanelModel::setReduceMotion(bool on)
{
    if (reduceMotion_ == on)
        return;
    reduceMotion_ = on;
    Q_EMIT animatedChanged();
}

void PanelModel::setAnimated(bool on)
{
    if (animated_ == on)
        return;
    animated_ = on;
    Q_EMIT animatedChanged();
}

void PanelModel::retry(const QString &id)
{
    if (!store_)
        return;
    if (const Signal *s = findSignal(id)) {
        const Signal copy = *s;
        store_->loadDetail(copy);
    }
}

void PanelModel::selectFilter(int index)
{
    const auto &all = FeedFilter::allCases();
    if (!store_ || index < 0 || index >= int(all.size()))
        return;
    store_->setFilter(all[size_t(index)]);
}

void PanelModel::togglePause()
{
    setPaused(!paused());
}

void PanelModel::refresh()
{
    if (store_)
        store_->refresh();
}

bool PanelModel::openLink(const QString &url)
{
    const QUrl parsed(url, QUrl::StrictMode);
    if (!PanelText::isOpenableUrl(parsed)) {
        if (!url.isEmpty())
            Log::write("Larkpin", QStringLiteral("panel: not opening a link that is not a web address (") +
                                      QString::number(url.size()) + QStringLiteral(" chars)"));
        return false;
    }
    return openUrlHook ? openUrlHook(parsed) : QDesktopServices::openUrl(parsed);
}

void PanelModel::openSite()
{
    openLink(Tarnwick::siteURL());
}

void PanelModel::quit()
{
    if (quitHook)
        quitHook();
    else
        QCoreApplication::quit();
}

bool PanelModel::setStreamEnabled(const QString &kindRaw, bool on)
{
    const auto kind = SignalKinds::fromRaw(kindRaw);
    if (!store_ || !kind)
        return false;
    Preferences next = store_->preferences();
    next.streams[*kind] = on;
    return store_->updatePreferences(next);
}

bool PanelModel::setMinimumSize(double usd)
{
    if (!store_ || !std::isfinite(usd) || usd < 0)
        return false;
    Preferences next = store_->preferences();
    next.minTradeUsd = usd;
    return store_->updatePreferences(next);
}

bool PanelModel::setFocusSize(double usd)
{
    if (!store_ || !std::isfinite(usd) || usd < 0)
        return false;
    Preferences next = store_->preferences();
    next.focalUsd = usd;
    return store_->updatePreferences(next);
}

bool PanelModel::trayOnly() const
{
    return store_ && store_->preferences().trayOnly;
}

bool PanelModel::setTrayOnly(bool on)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    next.trayOnly = on;
    return store_->updatePreferences(next);
}

bool PanelModel::setPaused(bool paused)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    next.paused = paused;
    return store_->updatePreferences(next);
}

bool PanelModel::notifyTakeovers() const
{
    return !store_ || store_->preferences().notifyTakeovers;
}

bool PanelModel::setNotifyTakeovers(bool on)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    next.notifyTakeovers = on;
    return store_->updatePreferences(next);
}

void PanelModel::setLaunchAtLogin(bool on)
{
    if (setLaunchAtLoginHook)
        setLaunchAtLoginHook(on);
    else
        PreferencesStore::setLaunchAtLogin(on);
    // Show what the system holds now, so a refused change flips back.
    launchAtLogin_ = launchAtLoginHook ? launchAtLoginHook() : PreferencesStore::launchAtLogin();
    Q_EMIT launchAtLoginChanged();
}

QVariantMap PanelModel::inspector(const QString &id) const
{
    if (!store_)
        return {{QStringLiteral("state"), PanelText::inspectorStateName(PanelText::InspectorState::loading)}};
    return inspectorFor(id, store_->details(), store_->failedDetail(), now_);
}

QVariantMap PanelModel::inspectorFor(const QString &id, const QHash<QString, SignalDetail> &details,
                                     const QSet<QString> &failed, double now)
{
    QVariantMap out;
    const auto state = PanelText::inspectorState(id, details, failed);
    out[QStringLiteral("state")] = PanelText::inspectorStateName(state);
    if (state != PanelText::InspectorState::details)
        return out;
    const SignalDetail d = details.value(id);
    if (d.wallet)
        out[QStringLiteral("wallet")] = walletModule(*d.wallet, now);
    if (d.token)
        out[QStringLiteral("token")] = tokenModule(*d.token);
    if (d.equity)
        out[QStringLiteral("equity")] = equityModule(*d.equity);
    QVariantList links;
    if (d.links.chart && PanelText::isOpenableUrl(*d.links.chart))
        links << QVariantMap{{QStringLiteral("title"), QStringLiteral("CHART")},
                             {QStringLiteral("url"), d.links.chart->toString(QUrl::FullyEncoded)}};
    if (d.links.profile && PanelText::isOpenableUrl(*d.links.profile))
        links << QVariantMap{{QStringLiteral("title"), QStringLiteral("WALLET")},
                             {QStringLiteral("url"), d.links.profile->toString(QUrl::FullyEncoded)}};
    out[QStringLiteral("links")] = links;
    return out;
}

// ---- mute and watch ----

namespace {
QString labelFor(const QString &kind, const QString &name)
{
    return (kind == QLatin1String("token") ? QStringLiteral("$") : QStringLiteral("@")) + name;
}

QStringList *listFor(Preferences &p, const QString &kind)
{
    if (kind == QLatin1String("token"))
        return &p.mutedTokens;
    if (kind == QLatin1String("wallet"))
        return &p.mutedWallets;
    if (kind == QLatin1String("watch"))
        return &p.watchedWallets;
    return nullptr;
}

QVariantMap entry(const QString &action, const QString &title)
{
    return {{QStringLiteral("action"), action}, {QStringLiteral("title"), title}};
}
} // namespace

QVariantList PanelModel::menuEntries(const QString &id) const
{
    QVariantList out;
    if (undo_)
        out << entry(QStringLiteral("undo"), undoText());
    const Signal *s = findSignal(id);
    if (!s || !store_)
        return out;
    if (const auto token = FeedStore::tokenOf(*s))
        out << entry(QStringLiteral("muteToken"),
                     QStringLiteral("Mute ") + labelFor(QStringLiteral("token"), *token));
    if (const auto handle = FeedStore::handleOf(*s)) {
        const QString at = labelFor(QStringLiteral("wallet"), *handle);
        out << entry(QStringLiteral("muteWallet"), QStringLiteral("Mute ") + at);
        out << (store_->isWatched(*s)
                    ? entry(QStringLiteral("unwatch"), QStringLiteral("Stop watching ") + at)
                    : entry(QStringLiteral("watch"), QStringLiteral("Watch ") + at));
    }
    return out;
}

bool PanelModel::runMenuAction(const QString &id, const QString &action)
{
    if (action == QLatin1String("undo"))
        return undoMute();
    const Signal *s = findSignal(id);
    if (!s) {
        Log::write("Larkpin",
                   QStringLiteral("menu action ") + action + QStringLiteral(" for a signal no longer shown"));
        return false;
    }
    const auto token = FeedStore::tokenOf(*s);
    const auto handle = FeedStore::handleOf(*s);
    if (action == QLatin1String("muteToken") && token)
        return setListed(QStringLiteral("token"), *token, true);
    if (action == QLatin1String("muteWallet") && handle)
        return setListed(QStringLiteral("wallet"), *handle, true);
    if ((action == QLatin1String("watch") || action == QLatin1String("unwatch")) && handle)
        return setListed(QStringLiteral("watch"), *handle, action == QLatin1String("watch"));
    Log::write("Larkpin",
               QStringLiteral("menu action ") + action + QStringLiteral(" does not apply to ") + id);
    return false;
}

bool PanelModel::setListed(const QString &kind, const QString &name, bool on)
{
    if (!store_)
        return false;
    Preferences next = store_->preferences();
    QStringList *list = listFor(next, kind);
    if (!list)
        return false;
    if (on && !Preferences::isListable(name)) {
        Log::write("Larkpin", QStringLiteral("cannot list ") + name.left(Preferences::maxNameLength) +
                                  QStringLiteral(": not a plain symbol or handle"));
        return false;
    }
    if (!Preferences::setListed(*list, name, on))
        return false;
    if (!store_->updatePreferences(next))
        return false;
    const bool isMute = kind != QLatin1String("watch");
    if (isMute && on) {
        undo_ = Undo{kind, name};
        undoTimer_->start();
        Q_EMIT undoChanged();
    } else if (undo_ && undo_->kind == kind && undo_->name == name) {
        // Taken back some other way (from settings): nothing left to undo.
        undo_.reset();
        undoTimer_->stop();
        Q_EMIT undoChanged();
    }
    return true;
}

bool PanelModel::undoMute()
{
    if (!undo_)
        return false;
    const Undo was = *undo_;
    undo_.reset();
    undoTimer_->stop();
    Q_EMIT undoChanged();
    return setListed(was.kind, was.name, false);
}

void PanelModel::menuShown(bool shown)
{
    openMenus_ = std::max(0, openMenus_ + (shown ? 1 : -1));
}

bool PanelModel::dismissMenus()
{
    if (openMenus_ == 0)
        return false;
    Q_EMIT dismissMenusRequested();
    openMenus_ = 0;
    return true;
}

QString PanelModel::undoText() const
{
    return undo_ ? QStringLiteral("Undo mute ") + labelFor(undo_->kind, undo_->name) : QString();
}

QVariantList PanelModel::mutedList() const
{
    QVariantList out;
    if (!store_)
        return out;
    const Preferences &p = store_->preferences();
    for (const QString &name : p.mutedTokens)
        out << QVariantMap{{QStringLiteral("kind"), QStringLiteral("token")},
                           {QStringLiteral("name"), name},
                           {QStringLiteral("label"), labelFor(QStringLiteral("token"), name)}};
    for (const QString &name : p.mutedWallets)
        out << QVariantMap{{QStringLiteral("kind"), QStringLiteral("wallet")},
                           {QStringLiteral("name"), name},
                           {QStringLiteral("label"), labelFor(QStringLiteral("wallet"), name)}};
    return out;
}

QVariantList PanelModel::watchedList() const
{
    QVariantList out;
    if (!store_)
        return out;
    for (const QString &name : store_->preferences().watchedWallets)
        out << QVariantMap{{QStringLiteral("kind"), QStringLiteral("watch")},
                           {QStringLiteral("name"), name},
                           {QStringLiteral("label"), labelFor(QStringLiteral("watch"), name)}};
    return out;
}
