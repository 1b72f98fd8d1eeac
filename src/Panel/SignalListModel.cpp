#include "Panel/SignalListModel.h"

#include "Feed/FeedStore.h"
#include "Panel/PanelText.h"
#include "Support/Format.h"

#include <algorithm>
#include <cmath>

SignalListModel::SignalListModel(const FeedStore *store, QObject *parent)
    : QAbstractListModel(parent), store_(store)
{
}

int SignalListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(signals_.size());
}

QHash<int, QByteArray> SignalListModel::roleNames() const
{
    return {{IdRole, "signalId"},       {KindRole, "kind"},      {KindLabelRole, "kindLabel"},
            {TickerRole, "ticker"},     {BodyRole, "body"},      {FigureRole, "figure"},
            {HeadlineRole, "headline"}, {DetailRole, "detail"},  {MetaRole, "meta"},
            {AgeRole, "age"},           {AmountRole, "amount"},  {WinRateRole, "winRate"},
            {ChartUrlRole, "chartUrl"}, {WatchedRole, "watched"}};
}

QString SignalListModel::chartUrl(const QString &id, const FeedStore *store)
{
    if (!store)
        return {};
    const auto it = store->details().constFind(id);
    if (it == store->details().constEnd() || !it->links.chart || !PanelText::isOpenableUrl(*it->links.chart))
        return {};
    // Encoded as it came: a decoded form ("%20" as a space) would fail the
    // strict parse that stands before the opener.
    return it->links.chart->toString(QUrl::FullyEncoded);
}

QVariantMap SignalListModel::describe(const Signal &s, double now, const FeedStore *store)
{
    QVariantMap m;
    m[QStringLiteral("signalId")] = s.id;
    m[QStringLiteral("kind")] = SignalKinds::rawValue(s.kind);
    m[QStringLiteral("kindLabel")] = SignalKinds::label(s.kind);
    m[QStringLiteral("ticker")] = s.line.ticker;
    m[QStringLiteral("body")] = s.line.body;
    m[QStringLiteral("figure")] = s.line.figure.value_or(QString());
    m[QStringLiteral("headline")] = s.line.text();
    m[QStringLiteral("detail")] = s.detail.value_or(QString());
    m[QStringLiteral("meta")] = PanelText::metaText(s, now);
    m[QStringLiteral("age")] = Format::relative(s.createdAt, now);
    m[QStringLiteral("amount")] =
        s.notionalUsd && std::isfinite(*s.notionalUsd) ? Format::usd(*s.notionalUsd) : QString();
    const bool hasWinRate = s.wallet && s.wallet->winRate && std::isfinite(*s.wallet->winRate);
    // A wallet that never won still has a win rate: 0 shows an empty ring.
    m[QStringLiteral("hasWinRate")] = hasWinRate;
    m[QStringLiteral("winRate")] = hasWinRate ? std::clamp(*s.wallet->winRate, 0.0, 1.0) : 0.0;
    m[QStringLiteral("winRateText")] =
        hasWinRate ? PanelText::winRatePercent(*s.wallet->winRate) + QStringLiteral(" WR") : QString();
    m[QStringLiteral("chartUrl")] = chartUrl(s.id, store);
    m[QStringLiteral("watched")] = store && store->isWatched(s);
    return m;
}

QVariant SignalListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= signals_.size())
        return {};
    const Signal &s = signals_.at(index.row());
    switch (role) {
    case IdRole: return s.id;
    case KindRole: return SignalKinds::rawValue(s.kind);
    case KindLabelRole: return SignalKinds::label(s.kind);
    case TickerRole: return s.line.ticker;
    case BodyRole: return s.line.body;
    case FigureRole: return s.line.figure.value_or(QString());
    case HeadlineRole: return s.line.text();
    case DetailRole: return s.detail.value_or(QString());
    case MetaRole: return PanelText::metaText(s, now_);
    case AgeRole: return Format::relative(s.createdAt, now_);
    case AmountRole:
        return s.notionalUsd && std::isfinite(*s.notionalUsd) ? Format::usd(*s.notionalUsd) : QString();
    case WinRateRole:
        return s.wallet && s.wallet->winRate && std::isfinite(*s.wallet->winRate) ? *s.wallet->winRate : -1.0;
    case ChartUrlRole: return chartUrl(s.id, store_);
    case WatchedRole: return store_ && store_->isWatched(s);
    default: return {};
    }
}

QStringList SignalListModel::ids() const
{
    QStringList out;
    out.reserve(signals_.size());
    for (const Signal &s : signals_)
        out << s.id;
    return out;
}

int SignalListModel::indexOf(const QString &id) const
{
    for (int i = 0; i < signals_.size(); ++i)
        if (signals_.at(i).id == id)
            return i;
    return -1;
}

void SignalListModel::setSignals(const QList<Signal> &next, double now)
{
    now_ = now;
    const int before = int(signals_.size());
    QStringList nextIds;
    for (const Signal &s : next)
        nextIds << s.id;
    const QSet<QString> nextSet(nextIds.cbegin(), nextIds.cend());

    // Remove rows that left, back to front.
    for (int i = int(signals_.size()) - 1; i >= 0; --i) {
        if (!nextSet.contains(signals_.at(i).id)) {
            beginRemoveRows({}, i, i);
            signals_.removeAt(i);
            endRemoveRows();
        }
    }
    // What stays must keep its relative order; otherwise start over.
    int cursor = 0;
    bool ordered = true;
    for (const Signal &s : std::as_const(signals_)) {
        const int at = int(nextIds.indexOf(s.id, cursor));
        if (at < 0) {
            ordered = false;
            break;
        }
        cursor = at + 1;
    }
    if (!ordered) {
        beginResetModel();
        signals_ = next;
        endResetModel();
    } else {
        for (int i = 0; i < next.size(); ++i) {
            if (i < signals_.size() && signals_.at(i).id == next.at(i).id) {
                signals_[i] = next.at(i);
                continue;
            }
            beginInsertRows({}, i, i);
            signals_.insert(i, next.at(i));
            endInsertRows();
        }
        if (!signals_.isEmpty())
            Q_EMIT dataChanged(index(0), index(int(signals_.size()) - 1));
    }
    if (before != signals_.size())
        Q_EMIT countChanged();
}

void SignalListModel::setNow(double now)
{
    now_ = now;
    if (!signals_.isEmpty())
        Q_EMIT dataChanged(index(0), index(int(signals_.size()) - 1), {MetaRole, AgeRole});
}

void SignalListModel::detailsChanged()
{
    if (!signals_.isEmpty())
        Q_EMIT dataChanged(index(0), index(int(signals_.size()) - 1), {ChartUrlRole});
}

void SignalListModel::watchedChanged()
{
    if (!signals_.isEmpty())
        Q_EMIT dataChanged(index(0), index(int(signals_.size()) - 1), {WatchedRole});
}
