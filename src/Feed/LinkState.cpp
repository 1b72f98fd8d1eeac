#include "Feed/LinkState.h"

namespace LinkStates {

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

namespace LinkStates {

QString troubleName(LinkTrouble::Kind kind)
{
    switch (kind) {
    case LinkTrouble::none: return QStringLiteral("none");
    case LinkTrouble::unreachable: return QStringLiteral("unreachable");
    case LinkTrouble::unverified: return QStringLiteral("unverified");
    }
    return {};
}

} // namespace LinkStates
