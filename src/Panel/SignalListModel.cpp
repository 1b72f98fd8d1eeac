#include "Panel/SignalListModel.h"

#include "Feed/FeedStore.h"
#include "Panel/Evidence.h"
#include "Panel/PanelText.h"
#include "Panel/PanelValues.h"
#include "Support/Format.h"

#include <algorithm>
#include <cmath>
#include <optional>

SignalListModel::SignalListModel(const FeedStore *store, QObject *parent)
    : QAbstractListModel(parent), store_(store)
{
}

int SignalListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(signals_.size());
}

namespace {
const QHash<int, QByteArray> &names()
{
    using M = SignalListModel;
    static const QHash<int, QByteArray> roles{
        {M::IdRole, "signalId"},         {M::KindRole, "kind"},
        {M::KindLabelRole, "kindLabel"}, {M::TickerRole, "ticker"},
        {M::BodyRole, "body"},           {M::FigureRole, "figure"},
        {M::HeadlineRole, "headline"},   {M::DetailRole, "detail"},
        {M::MetaRole, "meta"},           {M::AgeRole, "age"},
        {M::AmountRole, "amount"},       {M::HasWinRateRole, "hasWinRate"},
        {M::WinRateRole, "winRate"},     {M::WinRateTextRole, "winRateText"},
        {M::ChartUrlRole, "chartUrl"},   {M::WatchedRole, "watched"}};
    return roles;
}

std::optional<double> winRateOf(const Signal &s)
{
    if (s.wallet && s.wallet->winRate && std::isfinite(*s.wallet->winRate))
        return *s.wallet->winRate;
    return std::nullopt;
}
} // namespace

QHash<int, QByteArray> SignalListModel::roleNames() const
{
    return names();
}

QString SignalListModel::chartUrl(const QString &id, const FeedStore *store)
{
    if (!store)
        return {};
    const auto it = store->details().constFind(id);
    return it == store->details().constEnd() ? QString() : Evidence::openableUrl(it->links.chart);
}

QVariant SignalListModel::value(const Signal &s, int role, double now, const FeedStore *store)
{
    switch (role) {
    case IdRole: return s.id;
    case KindRole: return int(PanelKind::of(s.kind));
    case KindLabelRole: return SignalKinds::label(s.kind);
    case TickerRole: return s.line.ticker;
    case BodyRole: return s.line.body;
    case FigureRole: return s.line.figure.value_or(QString());
    case HeadlineRole: return s.line.text();
    case DetailRole: return s.detail.value_or(QString());
    case MetaRole: return PanelText::metaText(s, now);
    case AgeRole: return Format::relative(s.createdAt, now);
    case AmountRole:
        return s.notionalUsd && std::isfinite(*s.notionalUsd) ? Format::usd(*s.notionalUsd) : QString();
    // A wallet that never won still has a win rate: 0 shows an empty ring.
    case HasWinRateRole: return winRateOf(s).has_value();
    case WinRateRole: return std::clamp(winRateOf(s).value_or(0.0), 0.0, 1.0);
    case WinRateTextRole: {
        const auto rate = winRateOf(s);
        return rate ? PanelText::winRatePercent(*rate) + QStringLiteral(" WR") : QString();
    }
    case ChartUrlRole: return chartUrl(s.id, store);
    case WatchedRole: return store && store->isWatched(s);
    default: return {};
    }
}

QVariantMap SignalListModel::describe(const Signal &s, double now, const FeedStore *store)
{
    QVariantMap m;
    for (auto it = names().cbegin(); it != names().cend(); ++it)
        m.insert(QString::fromLatin1(it.value()), value(s, it.key(), now, store));
    return m;
}

QVariant SignalListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= signals_.size())
        return {};
    return value(signals_.at(index.row()), role, now_, store_);
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
