#include "Feed/LinkDiagnosis.h"

#include "Feed/TlsTrust.h"
#include "Support/Log.h"

#include <QNetworkReply>
#include <QSslSocket>
#include <QTimer>
#include <QUrl>

#include <memory>
#include <optional>

LinkDiagnosis::LinkDiagnosis(QString httpBase, const QSslConfiguration &tls, int handshakeTimeoutMs,
                             bool verbose, QObject *parent)
    : QObject(parent), httpBase_(std::move(httpBase)), tls_(tls), handshakeTimeoutMs_(handshakeTimeoutMs),
      verbose_(verbose)
{
}

QString LinkDiagnosis::serviceAddress() const
{
    const QUrl url(httpBase_);
    return url.host() + QLatin1Char(':') +
           QString::number(url.port(url.scheme() == QLatin1String("https") ? 443 : 80));
}

void LinkDiagnosis::classifyReply(QNetworkReply *reply, const QList<QSslError> &tlsErrors)
{
    if (!running_)
        return;
    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 0) {
        setTrouble({}); // whatever it said, the service answered and proved who it is
        return;
    }
    switch (reply->error()) {
    case QNetworkReply::NoError: setTrouble({}); break;
    case QNetworkReply::SslHandshakeFailedError:
        unverified(tlsErrors.isEmpty() ? TlsTrust::describeHandshake(reply->errorString())
                                       : TlsTrust::describe(tlsErrors),
                   reply->errorString());
        break;
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::HostNotFoundError:
        setTrouble({LinkTrouble::unreachable, serviceAddress(), {}}, reply->errorString());
        break;
    default: diagnose(); break; // a time-out or a hang-up says nothing by itself
    }
}

void LinkDiagnosis::classifySocketError(int error, const QString &errorString,
                                        const QList<QSslError> &tlsErrors, bool upgradeSent)
{
    if (!running_)
        return;
    switch (QAbstractSocket::SocketError(error)) {
    case QAbstractSocket::SslHandshakeFailedError:
        unverified(tlsErrors.isEmpty() ? TlsTrust::describeHandshake(errorString)
                                       : TlsTrust::describe(tlsErrors),
                   errorString);
        break;
    case QAbstractSocket::ConnectionRefusedError:
        // Qt gives an upgrade answered with an HTTP status (403, 503) this
        // same error: that service answered, so it is no more than a failure.
        if (upgradeSent)
            break;
        [[fallthrough]];
    case QAbstractSocket::HostNotFoundError:
        setTrouble({LinkTrouble::unreachable, serviceAddress(), {}}, errorString);
        break;
    default: break; // the REST side and the handshake clock tell the rest
    }
}

void LinkDiagnosis::unverified(const QString &why, const QString &detail)
{
    setTrouble({LinkTrouble::unverified, serviceAddress(), why}, detail);
}

void LinkDiagnosis::setTrouble(const LinkTrouble &trouble, const QString &detail)
{
    if (trouble_ == trouble)
        return; // said once; every retry fails the same way
    const LinkTrouble before = trouble_;
    trouble_ = trouble;
    QString line;
    switch (trouble.kind) {
    case LinkTrouble::unverified:
        line =
            QStringLiteral("TLS FAILED at ") + trouble.where + QStringLiteral(": ") + trouble.why +
            (detail.isEmpty() || detail == trouble.why ? QString()
                                                       : QStringLiteral(" (") + detail + QLatin1Char(')')) +
            QStringLiteral("; the service is refused");
        break;
    case LinkTrouble::unreachable:
        line = QStringLiteral("connect FAILED: nothing answers at ") + trouble.where +
               (detail.isEmpty() ? QString() : QStringLiteral(" (") + detail + QLatin1Char(')'));
        break;
    case LinkTrouble::none:
        line = QStringLiteral("the service answers at ") + before.where + QStringLiteral(" again");
        break;
    }
    if (verbose_)
        Log::write("tw", line);
    else if (trouble.kind != LinkTrouble::none)
        Log::warning(lcLink(), line);
    if (onTrouble)
        onTrouble(trouble_);
}

void LinkDiagnosis::diagnose()
{
    if (!running_ || probe_)
        return;
    const QUrl url(httpBase_);
    const bool secure = url.scheme() == QLatin1String("https");
    QTcpSocket *probe = secure ? new QSslSocket(this) : new QTcpSocket(this);
    probe_ = probe;
    struct State {
        bool connected = false;
        QList<QSslError> tlsErrors;
    };
    auto state = std::make_shared<State>();
    const quint64 generation = generation_;
    auto finish = [this, probe, generation](std::optional<LinkTrouble> verdict, const QString &detail) {
        if (probe_ != probe)
            return;
        probe_.clear();
        probe->disconnect(this);
        probe->abort();
        probe->deleteLater();
        if (verdict && running_ && generation == generation_)
            setTrouble(*verdict, detail);
    };
    const QString where = serviceAddress();
    auto *clock = new QTimer(probe);
    clock->setSingleShot(true);
    connect(clock, &QTimer::timeout, this, [this, state, finish, where] {
        if (state->connected)
            finish(LinkTrouble{LinkTrouble::unverified, where,
                               QStringLiteral("no TLS handshake within ") +
                                   QString::number(handshakeTimeoutMs_) + QStringLiteral(" ms")},
                   {});
        else
            finish(LinkTrouble{LinkTrouble::unreachable, where, {}},
                   QStringLiteral("no connection within ") + QString::number(handshakeTimeoutMs_) +
                       QStringLiteral(" ms"));
    });
    connect(probe, &QAbstractSocket::errorOccurred, this,
            [probe, state, finish, where, secure](QAbstractSocket::SocketError e) {
                if (e == QAbstractSocket::SslHandshakeFailedError)
                    finish(LinkTrouble{LinkTrouble::unverified, where,
                                       state->tlsErrors.isEmpty()
                                           ? TlsTrust::describeHandshake(probe->errorString())
                                           : TlsTrust::describe(state->tlsErrors)},
                           probe->errorString());
                else if (!state->connected)
                    finish(LinkTrouble{LinkTrouble::unreachable, where, {}}, probe->errorString());
                else if (secure)
                    finish(LinkTrouble{LinkTrouble::unverified, where,
                                       QStringLiteral("it broke off the TLS handshake")},
                           probe->errorString());
                else
                    finish(std::nullopt, {}); // it hung up after connecting: nothing certain
            });
    connect(probe, &QAbstractSocket::connected, this, [state, finish, secure] {
        state->connected = true;
        if (!secure)
            finish(LinkTrouble{}, {}); // plain: it answers, so the trouble is elsewhere
    });
    if (auto *tls = qobject_cast<QSslSocket *>(probe)) {
        connect(tls, &QSslSocket::sslErrors, this,
                [state](const QList<QSslError> &errors) { state->tlsErrors = errors; });
        connect(tls, &QSslSocket::encrypted, this, [finish] { finish(LinkTrouble{}, {}); });
        tls->setSslConfiguration(tls_);
        tls->connectToHostEncrypted(url.host(), quint16(url.port(443)));
    } else {
        probe->connectToHost(url.host(), quint16(url.port(80)));
    }
    clock->start(handshakeTimeoutMs_);
}
