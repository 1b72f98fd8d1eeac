#pragma once
// The fixed rules that turn wire records into signals and evidence.

#include "Wire/TarnwickModels.h"
#include "Model/Signal.h"

#include <optional>

namespace SignalRules {
// A link from the wire, kept only when a browser may be sent to it (http(s), a host, bounded).
std::optional<QUrl> webLink(const std::optional<QString> &text);
std::optional<Signal> signal(const TwFill &fill, const TwTrader *trader, const TwToken *token);
std::optional<Signal> signal(const TwRadar &radar, double now);

// The ticker as shown: "$" before a token's symbol (an equity's stands bare),
// and a warning sign after a symbol that may pass for another one, so a copy
// of a famous ticker cannot look like the original in the strip or the panel.
QString shownTicker(const QString &symbol, bool isStock);
inline constexpr char16_t lookAlikeMark[] = u"\u2009\u26A0";

// Steps of the fill rule, public so they can be tested on their own.
bool isNoise(const TwFill &fill);
Headline headline(const TwFill &fill);
std::optional<QString> detail(const TwFill &fill, const TwTrader *trader);
qint64 pileInCount(const TwFill &fill);
int notionalPriority(double usd);

TokenProfile tokenProfile(const TwToken &token, double now);
WalletProfile walletProfile(const TwTraderDetail &detail, const TwTrader *trader);
MarketSession marketSession(double at); // seconds since 1970, judged in New York time
} // namespace SignalRules
