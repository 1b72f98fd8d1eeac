#pragma once
// What the inspector shows for one signal, built from its loaded evidence:
// pure functions from records to the maps the QML binds, so every text can be
// checked without a store, a model or a window.
//
// A module is {eyebrow, title, subtitle, stats: [{label, value}], hasDelta,
// delta, deltaNegative} plus its own extras: the wallet's deltaNote and up to
// four trades, the token's flowLine, the equity's session. A value the wire
// left out (or sent as NaN) reads as PanelText::dash().

#include "Model/Signal.h"

#include <QHash>
#include <QSet>
#include <QVariantList>
#include <QVariantMap>

namespace Evidence {

inline constexpr int maxTrades = 4;

QVariantMap walletModule(const WalletProfile &wallet, double now);
QVariantMap tokenModule(const TokenProfile &token);
QVariantMap equityModule(const EquityMove &equity);
// {title, url} for the chart and the wallet page, only those that are web addresses.
QVariantList links(const SignalLinks &links);
// A link from the wire as the opener takes it, or "" when it is no web address.
QString openableUrl(const std::optional<QUrl> &url);

// Everything the inspector shows for signal `id`: "state" (details, blank,
// failed, loading) and, with details, "wallet", "token", "equity", "links".
QVariantMap inspector(const QString &id, const QHash<QString, SignalDetail> &details,
                      const QSet<QString> &failed, double now);

// "7xKX…gAsU": long addresses keep their first and last four characters.
QString shortAddress(const QString &address);

} // namespace Evidence
