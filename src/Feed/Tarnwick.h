#pragma once
// The service's addresses, fixed at build time (see LARKPIN_HTTP_BASE,
// LARKPIN_SOCKET_URL and LARKPIN_SITE_URL in CMakeLists.txt).

#include <QByteArray>
#include <QString>

namespace Tarnwick {
QString httpBase(); // no trailing slash; every REST path starts with "/"
QString socketURL();
QString siteURL();
QByteArray userAgent(); // "Larkpin/0.1 (+<site>)"
} // namespace Tarnwick
