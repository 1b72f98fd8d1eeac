#include "Feed/TlsTrust.h"

#include "Support/Log.h"
#include "Wire/Tarnwick.h"

#include <QFile>
#include <QSslCertificate>
#include <QSslError>

namespace TlsTrust {

QSslConfiguration configuration(const QString &extraCaFile, QString *error)
{
    QSslConfiguration c = QSslConfiguration::defaultConfiguration();
    c.setProtocol(QSsl::TlsV1_2OrLater);
    c.setPeerVerifyMode(QSslSocket::VerifyPeer);
    if (extraCaFile.isEmpty())
        return c;
    QFile file(extraCaFile);
    if (!file.open(QIODevice::ReadOnly) || file.size() > 1024 * 1024) {
        if (error)
            *error = QStringLiteral("cannot read the CA file ") + extraCaFile;
        return c;
    }
    const QList<QSslCertificate> extra = QSslCertificate::fromData(file.readAll(), QSsl::Pem);
    if (extra.isEmpty()) {
        if (error)
            *error = QStringLiteral("no PEM certificate in the CA file ") + extraCaFile;
        return c;
    }
    c.addCaCertificates(extra);
    return c;
}

const QSslConfiguration &forApp()
{
    static const QSslConfiguration app = [] {
        QString error;
        QSslConfiguration c = configuration(Tarnwick::extraCaFile(), &error);
        if (!error.isEmpty())
            Log::warning(lcLink(), error);
        return c;
    }();
    return app;
}

QString describe(const QList<QSslError> &errors)
{
    QStringList parts;
    for (const QSslError &e : errors) {
        QString text;
        switch (e.error()) {
        case QSslError::CertificateExpired: text = QStringLiteral("certificate expired"); break;
        case QSslError::CertificateNotYetValid: text = QStringLiteral("certificate not yet valid"); break;
        case QSslError::HostNameMismatch:
            text = QStringLiteral("certificate is for another host name");
            break;
        case QSslError::SelfSignedCertificate:
        case QSslError::SelfSignedCertificateInChain: text = QStringLiteral("self-signed certificate"); break;
        case QSslError::UnableToGetLocalIssuerCertificate:
        case QSslError::UnableToGetIssuerCertificate:
        case QSslError::UnableToVerifyFirstCertificate:
        case QSslError::CertificateUntrusted:
            text = QStringLiteral("certificate from an unknown authority");
            break;
        case QSslError::CertificateRevoked: text = QStringLiteral("certificate revoked"); break;
        default: text = e.errorString(); break;
        }
        if (!parts.contains(text))
            parts.append(text);
    }
    return parts.join(QStringLiteral(", "));
}

QString describeHandshake(const QString &errorString)
{
    if (errorString.contains(QLatin1String("protocol version")) ||
        errorString.contains(QLatin1String("unsupported protocol")) ||
        errorString.contains(QLatin1String("no protocols available")))
        return QStringLiteral("it offers no TLS 1.2 or later");
    return QStringLiteral("TLS handshake failed");
}

} // namespace TlsTrust
