#pragma once
// How `larkpin --history` prints what was kept: one signal a line, oldest
// first, as text for people or as one JSON object a line for scripts.

#include "History/HistoryQuery.h"

#include <QString>

#include <optional>

namespace HistoryText {
// "90s", "45m", "12h", "7d", "2w", "1d12h": seconds; nothing when unreadable
// or past a year.
std::optional<double> parseDuration(const QString &text);
// "2026-11-25 13:01:02  WHALE  $DOGO · @whalebird bought  $1.2M  tw-fill-42"
// in local time; wire text is cleaned again (the file is anyone's to edit).
QString line(const HistoryEntry &entry);
// {"id":..., "kind":..., "time": seconds, "at": ISO 8601 UTC, "symbol":...,
//  "handle":..., "usd":..., "ticker":..., "body":..., "figure":..., "chart":..., "profile":...}
QString json(const HistoryEntry &entry);
} // namespace HistoryText
