#include "Panel/HistoryModel.h"

#include "Feed/FeedStore.h"
#include "Panel/Evidence.h"
#include "Panel/PanelValues.h"

#include <QDateTime>

HistoryModel::HistoryModel(FeedStore *store, HistoryStore *history, QObject *parent)
    : QAbstractListModel(parent), store_(store), history_(history)
{
    if (store) {
        // Mutes change what may show; watching only changes the marks.
        connect(store, &FeedStore::preferencesChanged, this, [this] {
            if (started_)
                reload();
        });
    }
    setHistoryStore(history);
}

void HistoryModel::setHistoryStore(HistoryStore *history)
{
    if (history_ == history)
        return;
    if (history_)
        disconnect(history_, nullptr, this, nullptr);
    history_ = history;
    if (history) {
        connect(history, &HistoryStore::awayChanged, this, &HistoryModel::awayChanged);
        connect(history, &HistoryStore::showRequested, this, &HistoryModel::showRange);
        connect(history, &HistoryStore::stateChanged, this, &HistoryModel::stateChanged);
        // Asked for before this panel was built (the notification opened it).
        if (const auto range = history->takeShowRequest())
            showRange(range->first, range->second);
    }
    Q_EMIT awayChanged();
    if (started_)
        reload();
}

int HistoryModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(entries_.size());
}

QHash<int, QByteArray> HistoryModel::roleNames() const
{
    return {{IdRole, "signalId"}, {KindRole, "kind"},       {TickerRole, "ticker"},
            {BodyRole, "body"},   {FigureRole, "figure"},   {DetailRole, "detail"},
            {TimeRole, "time"},   {WatchedRole, "watched"}, {ChartUrlRole, "chartUrl"}};
}

QString HistoryModel::timeText(double at, double now)
{
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(qint64(at * 1000));
    const QDateTime today = QDateTime::fromMSecsSinceEpoch(qint64(now * 1000));
    // Month names in English whatever the locale, as every other text here.
    static const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const QString clock = when.toString(QStringLiteral("HH:mm"));
    if (when.date() == today.date())
        return clock;
    return QLatin1String(months[when.date().month() - 1]) + QLatin1Char(' ') + QString::number(when.date().day()) +
           QLatin1Char(' ') + clock;
}

QVariant HistoryModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= entries_.size())
        return {};
    const HistoryEntry &e = entries_.at(index.row());
    const Signal &s = e.signal;
    switch (role) {
    case IdRole: return s.id;
    case KindRole: return int(PanelKind::of(s.kind));
    case TickerRole: return s.line.ticker;
    case BodyRole: return s.line.body;
    case FigureRole: return s.line.figure.value_or(QString());
    case DetailRole: return s.detail.value_or(QString());
    case TimeRole: return timeText(s.createdAt, store_ ? store_->now() : s.createdAt);
    case WatchedRole: return store_ && store_->isWatched(s);
    case ChartUrlRole: {
        // Loaded again, or as it was kept.
        if (store_) {
            const auto it = store_->details().constFind(s.id);
            if (it != store_->details().constEnd() && it->links.chart)
                return Evidence::openableUrl(it->links.chart);
        }
        return Evidence::openableUrl(e.chart);
    }
    }
    return {};
}

HistoryQuery HistoryModel::query() const
{
    HistoryQuery q = HistoryQuery::parse(queryText_);
    q.since = since_;
    q.until = until_;
    if (store_) {
        q.mutedSymbols = store_->preferences().mutedTokens;
        q.mutedHandles = store_->preferences().mutedWallets;
    }
    return q;
}

bool HistoryModel::canFetchMore(const QModelIndex &parent) const
{
    return !parent.isValid() && shown_ && started_ && next_.has_value() && !loading_;
}

void HistoryModel::fetchMore(const QModelIndex &parent)
{
    if (canFetchMore(parent))
        request();
}

void HistoryModel::setShown(bool shown)
{
    if (shown_ == shown)
        return;
    shown_ = shown;
    Q_EMIT shownChanged();
    if (shown)
        reload();
}

void HistoryModel::setQueryText(const QString &text)
{
    const QString bounded = text.left(256);
    if (bounded == queryText_)
        return;
    queryText_ = bounded;
    Q_EMIT queryChanged();
    if (shown_)
        reload();
}

QString HistoryModel::rangeText() const
{
    if (!since_)
        return {};
    const double now = store_ ? store_->now() : *since_;
    return timeText(*since_, now) + QStringLiteral(" – ") + (until_ ? timeText(*until_, now) : QStringLiteral("now"));
}

void HistoryModel::showRange(double since, double until)
{
    if (history_)
        history_->takeShowRequest();
    since_ = since;
    until_ = until;
    Q_EMIT queryChanged();
    if (!shown_)
        setShown(true); // reloads
    else
        reload();
}

void HistoryModel::clearRange()
{
    if (!since_ && !until_)
        return;
    since_.reset();
    until_.reset();
    Q_EMIT queryChanged();
    if (shown_)
        reload();
}

QString HistoryModel::awayText() const
{
    return history_ ? history_->away().text : QString();
}

void HistoryModel::openAway()
{
    if (!history_ || history_->away().text.isEmpty())
        return;
    // The summary counted from the threshold up; the list shows all of the
    // time away, the biggest first to find by the size in the field.
    showRange(history_->away().since, history_->away().until + 60);
}

void HistoryModel::dismissAway()
{
    if (history_)
        history_->setAway({});
}

void HistoryModel::reload()
{
    ++generation_;
    beginResetModel();
    entries_.clear();
    next_.reset();
    error_.clear();
    loading_ = false;
    started_ = true;
    endResetModel();
    request();
}

void HistoryModel::request()
{
    if (!history_) {
        error_ = QStringLiteral("History is off.");
        Q_EMIT stateChanged();
        return;
    }
    loading_ = true;
    Q_EMIT stateChanged();
    const int generation = generation_;
    history_->search(query(), next_, pageSize, this, [this, generation](const HistoryPage &page) {
        if (generation != generation_)
            return; // the query changed meanwhile
        loading_ = false;
        error_ = page.error;
        if (!page.entries.isEmpty()) {
            beginInsertRows({}, int(entries_.size()), int(entries_.size() + page.entries.size() - 1));
            entries_.append(page.entries);
            endInsertRows();
        }
        next_ = page.next;
        Q_EMIT stateChanged();
    });
}

QString HistoryModel::message() const
{
    if (!history_ || history_->state() == HistoryDb::State::newerFormat ||
        history_->state() == HistoryDb::State::failed)
        return history_ && history_->state() == HistoryDb::State::newerFormat
                   ? QStringLiteral("History is off: its file is from a newer Larkpin.")
                   : QStringLiteral("History is off.");
    if (!error_.isEmpty())
        return QStringLiteral("History could not be read.");
    if (loading_)
        return QStringLiteral("Reading history…");
    if (!entries_.isEmpty())
        return next_ ? QString() : QStringLiteral("That is everything kept.");
    if (since_)
        return QStringLiteral("Nothing kept for that time.");
    return queryText_.trimmed().isEmpty() ? QStringLiteral("Nothing kept yet.")
                                          : QStringLiteral("Nothing kept matches.");
}

const Signal *HistoryModel::find(const QString &id) const
{
    for (const HistoryEntry &e : entries_)
        if (e.signal.id == id)
            return &e.signal;
    return nullptr;
}

QString HistoryModel::evidenceNote(const QString &id) const
{
    if (!store_)
        return QStringLiteral("The tape service can't be asked from here.");
    if (store_->details().contains(id) || store_->loadingDetail().contains(id))
        return {};
    if (store_->link() == LinkState::down)
        return QStringLiteral("The tape service can't be reached, so this one's evidence can't be loaded now.");
    if (store_->failedDetail().contains(id))
        return QStringLiteral("The tape service no longer answers for this one; what was kept is shown above.");
    return {};
}
