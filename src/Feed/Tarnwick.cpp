#include "Feed/Tarnwick.h"

#include "BuildConfig.h"

namespace Tarnwick {
QString httpBase()
{
    return QStringLiteral(LARKPIN_HTTP_BASE);
}
QString socketURL()
{
    return QStringLiteral(LARKPIN_SOCKET_URL);
}
QString siteURL()
{
    return QStringLiteral(LARKPIN_SITE_URL);
}
QByteArray userAgent()
{
    return QByteArrayLiteral("Larkpin/0.1 (+" LARKPIN_SITE_URL ")");
}
} // namespace Tarnwick
