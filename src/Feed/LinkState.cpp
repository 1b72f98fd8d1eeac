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
