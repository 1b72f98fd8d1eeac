#include "Wire/Tarnwick.h"

#include "BuildConfig.h"

#include <QRegularExpression>
#include <QUrl>

namespace Tarnwick {

// A developer's switch: LARKPIN_SERVICE points a built binary at another tape
// service (a second local one, a test's ephemeral port, one that speaks TLS)
// without a rebuild. Anything that does not parse is ignored and the build's
// addresses stay.
Service parseService(const QString &value)
{
    const QString raw = value.trimmed();
    static const QRegularExpression hostShape(QStringLiteral("^[A-Za-z0-9.\\-]+$"));
    if (raw.contains(QLatin1String("://"))) {
        // A full base: its scheme decides plain or TLS; only the host and
        // port are taken, the paths stay the service's own.
        const QUrl url(raw, QUrl::StrictMode);
        const QString scheme = url.scheme().toLower();
        const bool secure = scheme == QLatin1String("https");
        if (!url.isValid() || (!secure && scheme != QLatin1String("http")) ||
            !hostShape.match(url.host()).hasMatch() || !url.userInfo().isEmpty() ||
            !(url.path().isEmpty() || url.path() == QLatin1String("/")) || url.hasQuery() ||
            url.hasFragment())
            return {};
        const int port = url.port(secure ? 443 : 80);
        if (port <= 0 || port > 65535)
            return {};
        const QString authority = url.host() + QLatin1Char(':') + QString::number(port);
        return {(secure ? QStringLiteral("https://") : QStringLiteral("http://")) + authority +
                    QStringLiteral("/api"),
                (secure ? QStringLiteral("wss://") : QStringLiteral("ws://")) + authority +
                    QStringLiteral("/ws")};
    }
    const qsizetype colon = raw.lastIndexOf(QLatin1Char(':'));
    bool ok = false;
    const uint port = colon > 0 ? raw.mid(colon + 1).toUInt(&ok) : 0;
    const QString host = colon > 0 ? raw.left(colon) : QString();
    if (!ok || port == 0 || port > 65535 || !hostShape.match(host).hasMatch())
        return {};
    const QString authority = host + QLatin1Char(':') + QString::number(port);
    return {QStringLiteral("http://") + authority + QStringLiteral("/api"),
            QStringLiteral("ws://") + authority + QStringLiteral("/ws")};
}

namespace {
const Service &serviceOverride()
{
    static const Service value = []() -> Service {
        const QString raw = qEnvironmentVariable("LARKPIN_SERVICE");
        return raw.trimmed().isEmpty() ? Service{} : parseService(raw);
    }();
    return value;
}
} // namespace

QString httpBase()
{
    const Service &override = serviceOverride();
    return override.httpBase.isEmpty() ? QStringLiteral(LARKPIN_HTTP_BASE) : override.httpBase;
}
QString socketURL()
{
    const Service &override = serviceOverride();
    return override.socketURL.isEmpty() ? QStringLiteral(LARKPIN_SOCKET_URL) : override.socketURL;
}
QString siteURL()
{
    return QStringLiteral(LARKPIN_SITE_URL);
}
QByteArray userAgent()
{
    return QByteArrayLiteral("Larkpin/0.1 (+" LARKPIN_SITE_URL ")");
}
QString extraCaFile()
{
    return qEnvironmentVariable("LARKPIN_CA_FILE").trimmed();
}
} // namespace Tarnwick
