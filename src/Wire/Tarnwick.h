#pragma once
// The service's addresses, fixed at build time (see LARKPIN_HTTP_BASE,
// LARKPIN_SOCKET_URL and LARKPIN_SITE_URL in CMakeLists.txt). For development,
// LARKPIN_SERVICE=host:port in the environment replaces the REST and socket
// addresses with plain http/ws ones on that host and port.

#include <QByteArray>
#include <QString>

namespace Tarnwick {
QString httpBase(); // no trailing slash; every REST path starts with "/"
QString socketURL();
QString siteURL();
QByteArray userAgent(); // "Larkpin/0.1 (+<site>)"
} // namespace Tarnwick
