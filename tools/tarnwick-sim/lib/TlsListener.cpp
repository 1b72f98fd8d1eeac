#include "TlsListener.h"

#include <QFile>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>
#include <QTimer>

namespace tarnwick {

TlsListener::TlsListener(QSslConfiguration configuration, SimTls tls, QObject *parent)
    : QTcpServer(parent), configuration_(std::move(configuration)), tls_(std::move(tls))
{
}

bool TlsListener::configure(const SimTls &tls, QSslConfiguration *out, QString *error)
{
    auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    if (!QSslSocket::supportsSsl())
        return fail(QStringLiteral("this Qt has no TLS backend"));
    QFile certFile(tls.certificateFile);
    if (!certFile.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read certificate ") + tls.certificateFile + QStringLiteral(": ") +
                    certFile.errorString());
    const QList<QSslCertificate> chain = QSslCertificate::fromData(certFile.readAll(), QSsl::Pem);
    if (chain.isEmpty())
        return fail(QStringLiteral("no PEM certificate in ") + tls.certificateFile);
    QFile keyFile(tls.keyFile.isEmpty() ? tls.certificateFile : tls.keyFile);
    if (!keyFile.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read key ") + keyFile.fileName() + QStringLiteral(": ") +
                    keyFile.errorString());
    const QByteArray keyBytes = keyFile.readAll();
    QSslKey key(keyBytes, QSsl::Ec, QSsl::Pem);
    if (key.isNull())
        key = QSslKey(keyBytes, QSsl::Rsa, QSsl::Pem);
    if (key.isNull())
        return fail(QStringLiteral("no unencrypted EC or RSA PEM key in ") + keyFile.fileName());

    QSslConfiguration c = QSslConfiguration::defaultConfiguration();
    c.setLocalCertificateChain(chain);
    c.setPrivateKey(key);
    c.setPeerVerifyMode(QSslSocket::VerifyNone); // clients bring no certificate
    if (tls.legacyOnly) {
        // OpenSSL 3 refuses the old versions at its default security level.
        c.setProtocol(QSsl::AnyProtocol);
        c.setBackendConfigurationOption(QByteArrayLiteral("MinProtocol"), QByteArrayLiteral("TLSv1"));
        c.setBackendConfigurationOption(QByteArrayLiteral("MaxProtocol"), QByteArrayLiteral("TLSv1.1"));
        c.setBackendConfigurationOption(QByteArrayLiteral("CipherString"),
                                        QByteArrayLiteral("DEFAULT:@SECLEVEL=0"));
    }
    *out = c;
    return true;
}

void TlsListener::incomingConnection(qintptr descriptor)
{
    auto *socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(descriptor)) {
        delete socket;
        return;
    }
    // Every connection that ends before its handshake is done counts once,
    // whoever ended it (the peer refusing the certificate, the deadline).
    connect(socket, &QSslSocket::disconnected, this, [this, socket] {
        if (!socket->isEncrypted())
            ++handshakesFailed_;
        socket->deleteLater();
    });
    auto *deadline = new QTimer(socket);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, socket, [this, socket] {
        if (log)
            log(QStringLiteral("tls handshake not done in time, dropped"));
        socket->abort();
    });
    // A stall is held well past any client's own bound, so that the client,
    // not this deadline, is what ends it.
    deadline->start(tls_.stallHandshake ? 6 * tls_.handshakeTimeoutMs : tls_.handshakeTimeoutMs);
    if (tls_.stallHandshake) {
        // Read the hello and never answer it.
        connect(socket, &QSslSocket::readyRead, socket, [socket] { socket->readAll(); });
        if (log)
            log(QStringLiteral("tls handshake left hanging"));
        return;
    }
    connect(socket, &QSslSocket::encrypted, this, [this, socket, deadline] {
        deadline->stop();
        socket->disconnect(this); // from here its owner is whoever takes it
        ++handshakesDone_;
        addPendingConnection(socket);
        Q_EMIT newConnection();
    });
    connect(socket, &QSslSocket::errorOccurred, socket, [this, socket](QAbstractSocket::SocketError) {
        if (socket->isEncrypted())
            return; // the HTTP side sees it
        if (log)
            log(QStringLiteral("tls handshake failed: ") + socket->errorString());
        // Nothing more: the backend closes the connection itself, after the
        // alert that tells the peer why (aborting here would drop the alert).
    });
    socket->setSslConfiguration(configuration_);
    socket->startServerEncryption();
}

} // namespace tarnwick
