#include "Feed/LinkState.h"

namespace LinkStates {

QString pillText(LinkState state)
{
    switch (state) {
    case LinkState::connecting: return QStringLiteral("LINKING");
    case LinkState::live: return QStringLiteral("LIVE");
    case LinkState::polling: return QStringLiteral("POLLING");
    case LinkState::down: return QStringLiteral("OFFLINE");
    }
    return {};
}

QString caseName(LinkState state)
{
    switch (state) {
    case LinkState::connecting: return QStringLiteral("connecting");
    case LinkState::live: return QStringLiteral("live");
    case LinkState::polling: return QStringLiteral("polling");
    case LinkState::down: return QStringLiteral("down");
    }
    return {};
}

} // namespace LinkStates
