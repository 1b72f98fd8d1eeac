#include "Look/Theme.h"

namespace Theme {

Rgba kindColour(SignalKind kind)
{
    switch (kind) {
    case SignalKind::whale: return lark;
    case SignalKind::spike: return amber;
    case SignalKind::stocks: return emerald;
    }
    return lark;
}

Rgba menuAccent(SignalKind kind, bool dark)
{
    if (dark)
        return kindColour(kind);
    // Darker, calmer variants that stay legible on a light bar.
    switch (kind) {
    case SignalKind::whale: return rgb8(83, 112, 10);
    case SignalKind::spike: return rgb8(143, 82, 0);
    case SignalKind::stocks: return rgb8(0, 107, 72);
    }
    return rgb8(83, 112, 10);
}

} // namespace Theme
