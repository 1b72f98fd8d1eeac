#include "Wire/Tarnwick.h"

#include "BuildConfig.h"

#include <QRegularExpression>

namespace Tarnwick {
namespace {
// A developer's switch: LARKPIN_SERVICE=host:port points a built binary at
// another tape service (a second local one, a test's ephemeral port) without
// a rebuild. Read only when set; anything that is not host:port with a port in
// 1..65535 is ignored and the build's addresses stay.
QString serviceOverride()
{
    static const QString value = []() -> QString {
        const QString raw = qEnvironmentVariable("LARKPIN_SERVICE").trimmed();
        if (raw.isEmpty())
            return QString();
        const qsizetype colon = raw.lastIndexOf(QLatin1Char(':'));
        bool ok = false;
        const uint port = colon > 0 ? raw.mid(colon + 1).toUInt(&ok) : 0;
        const QString host = colon > 0 ? raw.left(colon) : QString();
        static const QRegularExpression hostShape(QStringLiteral("^[A-Za-z0-9.\\-]+$"));
        if (!ok || port == 0 || port > 65535 || !hostShape.match(host).hasMatch())
            return QString();
        return host + QLatin1Char(':') + QString::number(port);
    }();
    return value;
}
} // namespace

QString httpBase()
{
    const QString override = serviceOverride();
    return override.isEmpty() ? QStringLiteral(LARKPIN_HTTP_BASE)
                              : QStringLiteral("http://") + override + QStringLiteral("/api");
}
QString socketURL()
{
    const QString override = serviceOverride();
    return override.isEmpty() ? QStringLiteral(LARKPIN_SOCKET_URL)
                              : QStringLiteral("ws://") + override + QStringLiteral("/ws");
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
