#pragma once
// One REST GET held to bounds while it runs: the body is measured as it
// arrives (a declared or a streamed answer over the limit is cut), the whole
// request has a deadline however steadily its bytes come, redirects are not
// followed, no cookie is kept, and only exactly 200 carries a body.

#include <QObject>
#include <QSslConfiguration>
#include <QString>

#include <functional>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QSslError;

class BoundedFetch : public QObject {
    Q_OBJECT
public:
    // `transferTimeoutMs`: silence allowed within a request.
    BoundedFetch(int transferTimeoutMs, QObject *parent);

    struct Bounds {
        int silenceMs = 12000;  // no byte for this long fails the request
        int deadlineMs = 30000; // the whole request
        qint64 maxBody = 1024 * 1024;
    };
    using Done = std::function<void(std::optional<QByteArray>, QString error)>;
    // GET base + path. `done` runs with the body of a 200, or with nullopt and
    // an error text; `context` ends its delivery when destroyed.
    void get(const QString &base, const QString &path, const QSslConfiguration &tls, const Bounds &bounds,
             QObject *context, Done done);

    // Every finished reply, for what it says about the service (before `done`).
    std::function<void(QNetworkReply *, const QList<QSslError> &)> onFinished;
    // A 200 answered: its Date header and the round trip in ms (before `done`).
    std::function<void(const QByteArray &dateHeader, double ms)> onAnswered;
    std::function<void(const QString &)> log; // a request cut, once

private:
    QNetworkAccessManager *rest_ = nullptr;
};
