#pragma once

#include <QString>

enum class LinkState { connecting, live, polling, down };

namespace LinkStates {
QString pillText(LinkState state); // "LINKING", "LIVE", "POLLING", "OFFLINE"
QString caseName(LinkState state); // "connecting", "live", "polling", "down"
} // namespace LinkStates
