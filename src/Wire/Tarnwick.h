#pragma once
// The service's addresses, fixed at build time (see LARKPIN_HTTP_BASE,
// LARKPIN_SOCKET_URL and LARKPIN_SITE_URL in CMakeLists.txt). For development,
// LARKPIN_SERVICE in the environment replaces the REST and socket addresses:
// host:port gives plain http/ws on that host and port, a full base
// (https://host:port or http://host:port) gives https/wss or http/ws there.
// LARKPIN_CA_FILE names a PEM file of certificate authorities trusted besides
// the system's (a test CA). Both are read only when set.

#include <QByteArray>
#include <QString>

namespace Tarnwick {
QString httpBase(); // no trailing slash; every REST path starts with "/"
QString socketURL();
QString siteURL();
QByteArray userAgent(); // "Larkpin/0.1 (+<site>)"
QString extraCaFile();  // LARKPIN_CA_FILE, or empty

// The switch's value as (REST base, socket URL), or empty strings when the
// value is neither host:port nor an http(s) base with a host. Public for tests.
struct Service {
    QString httpBase;
    QString socketURL;
};
Service parseService(const QString &value);
} // namespace Tarnwick
