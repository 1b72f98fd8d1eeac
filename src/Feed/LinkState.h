#pragma once

#include <QString>

enum class LinkState { connecting, live, polling, down };

namespace LinkStates {
QString caseName(LinkState state); // "connecting", "live", "polling", "down"
} // namespace LinkStates
