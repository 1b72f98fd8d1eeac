#include "Feed/BoundedFetch.h"

#include "Wire/Tarnwick.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QTimer>
#include <QUrl>

#include <memory>

namespace {
// The session keeps no cookies: every request stands on its own.
class NoCookies : public QNetworkCookieJar {
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    bool setCookiesFromUrl(const QList<QNetworkCookie> &, const QUrl &) override { return false; }
    QList<QNetworkCookie> cookiesForUrl(const QUrl &) const override { return {}; }
};
} // namespace

BoundedFetch::BoundedFetch(int transferTimeoutMs, QObject *parent) : QObject(parent)
{
    rest_ = new QNetworkAccessManager(this);
    rest_->setCookieJar(new NoCookies(rest_));
    rest_->setTransferTimeout(transferTimeoutMs);
    rest_->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
}

void BoundedFetch::get(const QString &base, const QString &path, const QSslConfiguration &tls,
                       const Bounds &bounds, QObject *context, Done done)
{
    // Only the User-Agent is set: nothing is cached, so no cache headers are asked for.
    QNetworkRequest request(QUrl(base + path));
    request.setHeader(QNetworkRequest::UserAgentHeader, Tarnwick::userAgent());
    request.setTransferTimeout(bounds.silenceMs);
    if (!tls.isNull())
        request.setSslConfiguration(tls);
    QElapsedTimer clock;
    clock.start();
    QNetworkReply *reply = rest_->get(request);
    // Certificate errors are noted for the log and the panel, never ignored:
    // the reply then fails with a handshake error.
    auto tlsErrors = std::make_shared<QList<QSslError>>();
    connect(reply, &QNetworkReply::sslErrors, this,
            [tlsErrors](const QList<QSslError> &errors) { *tlsErrors = errors; });
    connect(reply, &QNetworkReply::finished, this, [this, reply, tlsErrors] {
        if (onFinished)
            onFinished(reply, *tlsErrors);
    });
    // Qt stops reading the connection while this much is waiting for us, so
    // a fast sender cannot pile bytes up between two readyRead calls.
    reply->setReadBufferSize(256 * 1024);

    // The body is taken as it arrives and measured on the way; a body over
    // the limit or a request over its deadline is cut, logged once and fails.
    struct Pending {
        QByteArray body;
        QString failure;
    };
    auto pending = std::make_shared<Pending>();
    const QString what = path.section(QLatin1Char('?'), 0, 0);
    const qint64 maxBody = bounds.maxBody;
    auto cut = [this, reply, pending, what](const QString &why) {
        if (!pending->failure.isEmpty())
            return;
        pending->failure = why;
        pending->body.clear();
        pending->body.squeeze();
        if (log)
            log(QStringLiteral("GET ") + what + QStringLiteral(" FAILED: ") + why);
        reply->abort();
    };
    connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, cut, maxBody] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > maxBody)
            cut(QStringLiteral("answer of ") + QString::number(length.toLongLong()) +
                QStringLiteral(" bytes is over the limit of ") + QString::number(maxBody));
    });
    connect(reply, &QNetworkReply::readyRead, reply, [reply, pending, cut, maxBody] {
        if (!pending->failure.isEmpty())
            return;
        const qint64 room = maxBody - pending->body.size();
        if (reply->bytesAvailable() > room) {
            cut(QStringLiteral("answer over the limit of ") + QString::number(maxBody) +
                QStringLiteral(" bytes"));
            return;
        }
        pending->body.append(reply->readAll());
    });
    auto *deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    const int deadlineMs = bounds.deadlineMs;
    connect(deadline, &QTimer::timeout, reply, [cut, deadlineMs] {
        cut(QStringLiteral("no whole answer within ") + QString::number(deadlineMs) + QStringLiteral(" ms"));
    });
    deadline->start(deadlineMs);

    // The reply is freed even when the context is gone before it finishes.
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    connect(reply, &QNetworkReply::finished, context ? context : this,
            [this, reply, clock, done, pending, maxBody] {
                if (!pending->failure.isEmpty()) {
                    done(std::nullopt, pending->failure);
                    return;
                }
                const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
                if (status != 200) {
                    // Only exactly 200 carries a body we trust; 204 and 304 fail like 500.
                    done(std::nullopt, status ? QStringLiteral("bad server response (status ") +
                                                    QString::number(status) + QLatin1Char(')')
                                              : reply->errorString());
                    return;
                }
                if (reply->error() != QNetworkReply::NoError) {
                    // The head said 200 but the body never arrived whole (connection
                    // lost, time-out mid-body): a transport failure, not a round trip.
                    done(std::nullopt, reply->errorString());
                    return;
                }
                if (pending->body.size() + reply->bytesAvailable() > maxBody) {
                    done(std::nullopt, QStringLiteral("answer over the limit of ") +
                                           QString::number(maxBody) + QStringLiteral(" bytes"));
                    return;
                }
                pending->body.append(reply->readAll());
                // The round trip counts even when the body turns out not to decode.
                if (onAnswered)
                    onAnswered(reply->rawHeader("Date"), double(clock.nsecsElapsed()) / 1000000.0);
                done(std::move(pending->body), QString());
            });
}
