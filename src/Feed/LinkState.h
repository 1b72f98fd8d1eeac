#pragma once

#include <QString>

enum class LinkState { connecting, live, polling, down };

// Why the link fails, when the cause is known: nothing answers at the
// service's address, or something answers that cannot prove it is the
// service (its certificate is refused, or its TLS handshake never ends).
// Neither is a quiet tape.
struct LinkTrouble {
    enum Kind { none, unreachable, unverified };
    Kind kind = none;
    QString where; // host:port looked at
    QString why;   // unverified: the TLS error, in a few words
    bool operator==(const LinkTrouble &) const = default;
};

namespace LinkStates {
QString caseName(LinkState state);           // "connecting", "live", "polling", "down"
QString troubleName(LinkTrouble::Kind kind); // "none", "unreachable", "unverified"
} // namespace LinkStates
