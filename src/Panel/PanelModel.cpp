#include "Panel/PanelModel.h"

#include "Feed/FeedStore.h"
#include "Panel/Evidence.h"
#include "Panel/PanelStyle.h"
#include "Panel/PanelText.h"
#include "Support/Log.h"
#include "Wire/Tarnwick.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cmath>

PanelModel::PanelModel(FeedStore *store, QObject *parent)
    : QObject(parent), store_(store), minis_(new SignalListModel(store, this)),
      stream_(new SignalListModel(store, this)), settings_(new SettingsModel(store, this)),
      history_(new HistoryModel(store, nullptr, this)),
      telemetry_(new PanelTelemetry(store, [this] { return now_; }, this))
{
    now_ = store ? store->now() : 0;
    if (const auto *motion = ReducedMotion::watcher())
        connect(motion, &ReducedMotion::Watcher::changed, this, &PanelModel::setReduceMotion);

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
        Q_EMIT telemetry_->changed();
    });
    connect(store, &FeedStore::troubleChanged, this, &PanelModel::emptyChanged);
    connect(store, &FeedStore::lastUpdateChanged, this, &PanelModel::linkChanged);
    connect(store, &FeedStore::preferencesChanged, this, &PanelModel::preferencesChanged);
    connect(store, &FeedStore::preferencesChanged, this, [this] {
        // Watching changes no list, only how rows are marked.
        minis_->watchedChanged();
        stream_->watchedChanged();
        Q_EMIT heroChanged();
        Q_EMIT detailCardChanged();
    });
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
    Q_EMIT telemetry_->changed();
    bumpDetails();
}

void PanelModel::rebuildLists()
{
    if (!store_)
        return;
    const bool mainWasOpen = !openId_.isEmpty() && !heroes_.isEmpty() && heroes_.first().id == openId_;
    heroes_ = store_->heroSignals();
    // The open main hero pushed aside by a new top signal folds away: as a
    // mini it would show its evidence on the detail card, which nobody asked for.
    if (mainWasOpen && !openMiniId().isEmpty()) {
        openId_.clear();
        Q_EMIT openIdChanged();
    }
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
    return settings_->paused();
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

SignalCard PanelModel::hero() const
{
    if (heroes_.isEmpty())
        return {};
    return SignalCard::of(heroes_.first(), now_, store_);
}

QString PanelModel::bundledService()
{
    // Looked for once: a package is not installed under a running app.
    static const QString path = [] {
        const QFileInfo bundled(QString::fromLatin1(PanelText::bundledServicePath));
        return bundled.isFile() && bundled.isExecutable() ? bundled.filePath() : QString();
    }();
    return path;
}

QString PanelModel::emptySymbol() const
{
    if (!store_)
        return {};
    return PanelText::emptyState(store_->visibleSignals().isEmpty(), store_->link(), store_->trouble(),
                                 bundledService())
        .symbol;
}

QString PanelModel::emptyMessage() const
{
    if (!store_)
        return {};
    return PanelText::emptyState(store_->visibleSignals().isEmpty(), store_->link(), store_->trouble(),
                                 bundledService())
        .message;
}

const Signal *PanelModel::findSignal(const QString &id) const
{
    for (const Signal &s : heroes_)
        if (s.id == id)
            return &s;
    for (const Signal &s : stream_->signalList())
        if (s.id == id)
            return &s;
    if (menuSignal_ && menuSignal_->id == id)
        return &*menuSignal_;
    // A kept signal opened in the History view.
    return history_->find(id);
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

SignalCard PanelModel::detailCard() const
{
    // A mini hero has no room to unfold: once opened, its evidence shows on
    // the detail card over the content.
    const QString id = detailCardId_.isEmpty() ? openMiniId() : detailCardId_;
    if (id.isEmpty())
        return {};
    if (const Signal *s = findSignal(id))
        return SignalCard::of(*s, now_, store_);
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
    settings_->setPaused(!paused());
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

InspectorInfo PanelModel::inspector(const QString &id) const
{
    if (!store_)
        return InspectorInfo::fromMap(
            {{QStringLiteral("state"), PanelText::inspectorStateName(PanelText::InspectorState::loading)}});
    return InspectorInfo::fromMap(Evidence::inspector(id, store_->details(), store_->failedDetail(), now_));
}

namespace {
QVariantMap entry(const QString &action, const QString &title)
{
    return {{QStringLiteral("action"), action}, {QStringLiteral("title"), title}};
}
} // namespace

QVariantList PanelModel::menuEntries(const QString &id) const
{
    QVariantList out;
    if (settings_->canUndo())
        out << entry(QStringLiteral("undo"), settings_->undoText());
    const Signal *s = findSignal(id);
    if (!s || !store_)
        return out;
    if (const auto token = FeedStore::tokenOf(*s))
        out << entry(QStringLiteral("muteToken"),
                     QStringLiteral("Mute ") + SettingsModel::listedLabel(QStringLiteral("token"), *token));
    if (const auto handle = FeedStore::handleOf(*s)) {
        const QString at = SettingsModel::listedLabel(QStringLiteral("wallet"), *handle);
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
        return settings_->undoMute();
    const Signal *s = findSignal(id);
    if (!s) {
        Log::write("Larkpin",
                   QStringLiteral("menu action ") + action + QStringLiteral(" for a signal no longer shown"));
        return false;
    }
    const auto token = FeedStore::tokenOf(*s);
    const auto handle = FeedStore::handleOf(*s);
    if (action == QLatin1String("muteToken") && token)
        return settings_->setListed(QStringLiteral("token"), *token, true);
    if (action == QLatin1String("muteWallet") && handle)
        return settings_->setListed(QStringLiteral("wallet"), *handle, true);
    if ((action == QLatin1String("watch") || action == QLatin1String("unwatch")) && handle)
        return settings_->setListed(QStringLiteral("watch"), *handle, action == QLatin1String("watch"));
    Log::write("Larkpin",
               QStringLiteral("menu action ") + action + QStringLiteral(" does not apply to ") + id);
    return false;
}

void PanelModel::menuShown(bool shown)
{
    openMenus_ = std::max(0, openMenus_ + (shown ? 1 : -1));
}

bool PanelModel::stepBack()
{
    if (dismissMenus())
        return true;
    if (showSettings_) {
        setShowSettings(false);
        return true;
    }
    if (!detailCardId_.isEmpty() || !openMiniId().isEmpty()) {
        closeDetailCard();
        return true;
    }
    if (!openId_.isEmpty()) {
        toggle(openId_);
        return true;
    }
    return false;
}

void PanelModel::requestMenu(const QString &id, double sceneX, double sceneY)
{
    const Signal *s = findSignal(id);
    if (!s)
        return;
    menuSignal_ = *s;
    Q_EMIT menuRequested(id, sceneX, sceneY);
}

bool PanelModel::dismissMenus()
{
    if (openMenus_ == 0)
        return false;
    Q_EMIT dismissMenusRequested();
    openMenus_ = 0;
    return true;
}
