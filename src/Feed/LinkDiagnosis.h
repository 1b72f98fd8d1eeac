#pragma once
// What a failure says about the tape service: a refused certificate or a TLS
// handshake that never ends (unverified), nothing answering at its address
// (unreachable), or nothing certain. A failure of no clear cause is probed
// with one bare TLS (or TCP) connection. Each trouble is logged once.

#include "Feed/LinkState.h"

#include <QObject>
#include <QPointer>
#include <QSslConfiguration>

#include <functional>

class QNetworkReply;
class QSslError;
class QTcpSocket;

class LinkDiagnosis : public QObject {
    Q_OBJECT
public:
    // `tls` is read at each probe: the owner may set it until then.
    LinkDiagnosis(QString httpBase, const QSslConfiguration &tls, int handshakeTimeoutMs, bool verbose,
                  QObject *parent);

    // Between start() and stop() failures are classified; stop() also ends a
    // probe's verdict quietly.
    void start() { running_ = true; }
    void stop()
    {
        running_ = false;
        ++generation_;
    }

    void classifyReply(QNetworkReply *reply, const QList<QSslError> &tlsErrors);
    // upgradeSent: the upgrade request went out, so a connection was made.
    void classifySocketError(int error, const QString &errorString, const QList<QSslError> &tlsErrors,
                             bool upgradeSent);
    void answered() { setTrouble({}); } // the socket opened
    void diagnose();                    // a failure of no clear cause: one bare TLS (or TCP) connection tells

    const LinkTrouble &trouble() const { return trouble_; }
    QString serviceAddress() const; // host:port of the REST base
    std::function<void(const LinkTrouble &)> onTrouble;

private:
    void unverified(const QString &why, const QString &detail);
    void setTrouble(const LinkTrouble &trouble, const QString &detail = {});

    QString httpBase_;
    const QSslConfiguration &tls_;
    int handshakeTimeoutMs_;
    bool verbose_;
    bool running_ = false;
    quint64 generation_ = 0;
    LinkTrouble trouble_;
    QPointer<QTcpSocket> probe_;
};
