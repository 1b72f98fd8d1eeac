#include "Panel/PanelValues.h"

#include "Panel/SignalListModel.h"

namespace PanelKind {

Kind of(std::optional<SignalKind> kind)
{
    if (!kind)
        return NoKind;
    switch (*kind) {
    case SignalKind::whale: return Whale;
    case SignalKind::spike: return Spike;
    case SignalKind::stocks: return Stocks;
    }
    return NoKind;
}

Kind fromRaw(const QString &raw)
{
    return of(SignalKinds::fromRaw(raw));
}

std::optional<SignalKind> toModel(int kind)
{
    switch (kind) {
    case Whale: return SignalKind::whale;
    case Spike: return SignalKind::spike;
    case Stocks: return SignalKind::stocks;
    default: return std::nullopt;
    }
}

} // namespace PanelKind

SignalCard SignalCard::of(const Signal &s, double now, const FeedStore *store)
{
    using M = SignalListModel;
    const auto text = [&](int role) { return M::value(s, role, now, store).toString(); };
    SignalCard c;
    c.valid = true;
    c.signalId = text(M::IdRole);
    c.kind = PanelKind::of(s.kind);
    c.kindLabel = text(M::KindLabelRole);
    c.ticker = text(M::TickerRole);
    c.body = text(M::BodyRole);
    c.figure = text(M::FigureRole);
    c.headline = text(M::HeadlineRole);
    c.detail = text(M::DetailRole);
    c.meta = text(M::MetaRole);
    c.age = text(M::AgeRole);
    c.amount = text(M::AmountRole);
    c.hasWinRate = M::value(s, M::HasWinRateRole, now, store).toBool();
    c.winRate = M::value(s, M::WinRateRole, now, store).toDouble();
    c.winRateText = text(M::WinRateTextRole);
    c.chartUrl = text(M::ChartUrlRole);
    c.watched = M::value(s, M::WatchedRole, now, store).toBool();
    return c;
}

InspectorInfo InspectorInfo::fromMap(const QVariantMap &map)
{
    InspectorInfo i;
    i.state = map.value(QStringLiteral("state")).toString();
    i.hasWallet = map.contains(QStringLiteral("wallet"));
    i.hasToken = map.contains(QStringLiteral("token"));
    i.hasEquity = map.contains(QStringLiteral("equity"));
    i.wallet = map.value(QStringLiteral("wallet")).toMap();
    i.token = map.value(QStringLiteral("token")).toMap();
    i.equity = map.value(QStringLiteral("equity")).toMap();
    i.links = map.value(QStringLiteral("links")).toList();
    return i;
}
