#pragma once
// The service's listening socket when it speaks TLS: every connection is
// handed on only once its handshake is done, as a QSslSocket that the HTTP
// and WebSocket code read and write like any TCP socket. A handshake not done
// in 10 s is dropped (a stalled one, in 60 s), so a silent peer holds nothing
// for long.

#include <QSslConfiguration>
#include <QString>
#include <QTcpServer>

#include <functional>

namespace tarnwick {

struct SimTls {
    QString certificateFile; // PEM; empty: plain http and ws
    QString keyFile;         // PEM, unencrypted
    // A service that never learnt TLS 1.2: it offers 1.0 and 1.1 only.
    bool legacyOnly = false;
    // Takes each connection and never answers its hello: a handshake that stalls.
    bool stallHandshake = false;
    int handshakeTimeoutMs = 10000;

    bool enabled() const { return !certificateFile.isEmpty(); }
};

class TlsListener : public QTcpServer {
    Q_OBJECT
public:
    TlsListener(QSslConfiguration configuration, SimTls tls, QObject *parent = nullptr);
    // The server's configuration from the files, or an error text.
    static bool configure(const SimTls &tls, QSslConfiguration *out, QString *error);

    int handshakesDone() const { return handshakesDone_; }
    int handshakesFailed() const { return handshakesFailed_; }
    std::function<void(const QString &)> log;

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    QSslConfiguration configuration_;
    SimTls tls_;
    int handshakesDone_ = 0;
    int handshakesFailed_ = 0;
};

} // namespace tarnwick
