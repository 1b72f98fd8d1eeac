#include "SimRest.h"

#include "Market.h"
#include "SimStream.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

#include <algorithm>
#include <functional>
#include <memory>

namespace tarnwick {

namespace {
QByteArray statusText(int status)
{
    switch (status) {
    case 200: return "OK";
    case 204: return "No Content";
    case 304: return "Not Modified";
    case 400: return "Bad Request";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    default: return "Internal Server Error";
    }
}

// A fill as the service would send it, repeated to fill huge and endless bodies.
const QByteArray filler =
    R"({"id":1,"ts":1700000000,"side":"buy","usd":10,"handle":"h","wallet":"w","token":"t","symbol":"S"},)";

} // namespace

void SimRest::reply(QTcpSocket *socket, int status, const QByteArray &body)
{
    QByteArray out = "HTTP/1.1 " + QByteArray::number(status) + ' ' + statusText(status) + "\r\n";
    // The service's clock, as every HTTP server tells it.
    out += "Date: " +
           QDateTime::fromMSecsSinceEpoch(qint64(server_.now() * 1000), Qt::UTC)
               .toString(u"ddd, dd MMM yyyy hh:mm:ss 'GMT'")
               .toLatin1() +
           "\r\n";
    if (status != 204 && status != 304)
        out +=
            "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n";
    out += "Connection: close\r\n\r\n";
    if (status != 204 && status != 304)
        out += body;
    socket->write(out);
    socket->disconnectFromHost();
}

void SimRest::serve(QTcpSocket *socket, const QByteArray &target)
{
    const QUrl url(QString::fromLatin1(target));
    const QString path = url.path(QUrl::FullyEncoded);
    const QUrlQuery query(url);
    const bool stocks = query.queryItemValue(QStringLiteral("stocks")) != QLatin1String("false");
    const int limit = query.hasQueryItem(QStringLiteral("limit"))
                          ? std::clamp(query.queryItemValue(QStringLiteral("limit")).toInt(), 0, 2000)
                          : 100;
    if (!path.startsWith(QLatin1String("/api/"))) {
        reply(socket, 404, R"({"error":"not found"})");
        return;
    }
    const QString route = path.mid(4);
    if (route == QLatin1String("/sim/stats")) {
        // For soak runs and scripts; never faulted.
        reply(socket, 200,
              QJsonDocument(QJsonObject{{QStringLiteral("fills_emitted"), server_.fillsEmitted_},
                                        {QStringLiteral("last_id"), server_.market_->lastId()},
                                        {QStringLiteral("sockets"), int(server_.sockets_.size())}})
                  .toJson(QJsonDocument::Compact));
        return;
    }
    ++server_.requests_[route];

    EndpointFault fault;
    for (auto it = server_.faults_.cbegin(); it != server_.faults_.cend(); ++it)
        if (route.startsWith(it.key()))
            fault = it.value();

    const double now = server_.now();
    int status = 200;
    QByteArray body;
    if (fault.kind == EndpointFaultKind::SocketFirst && route == QLatin1String("/tape")) {
        // The live frame wins the race: what the answer holds was on the socket
        // first. A client opens its socket and asks for the backfill together,
        // so the frame waits (up to 3 s) for a socket to carry it.
        QPointer<QTcpSocket> guard(socket);
        // Only a waiting timer keeps the attempt alive: nothing is left behind
        // once the answer is sent or the peer is gone.
        auto race = std::make_shared<std::function<void(int)>>();
        std::weak_ptr<std::function<void(int)>> weak = race;
        *race = [this, guard, limit, stocks, delay = fault.delayMs, weak](int tries) {
            if (!guard)
                return;
            if (server_.sockets_.isEmpty() && tries < 60) {
                QTimer::singleShot(50, &server_, [strong = weak.lock(), tries] {
                    if (strong)
                        (*strong)(tries + 1);
                });
                return;
            }
            server_.emitFills(2);
            QTimer::singleShot(delay, &server_, [this, guard, limit, stocks] {
                if (guard)
                    reply(guard, 200,
                          QJsonDocument(server_.market_->tape(limit, stocks)).toJson(QJsonDocument::Compact));
            });
        };
        (*race)(0);
        server_.log(QStringLiteral("GET ") + QString::fromLatin1(target) +
                    QStringLiteral(" -> socket first"));
        Q_EMIT server_.requestServed(route, 200);
        return;
    }
    if (route == QLatin1String("/tape")) {
        body = QJsonDocument(server_.market_->tape(limit, stocks)).toJson(QJsonDocument::Compact);
    } else if (route == QLatin1String("/radar")) {
        const double minutes = query.hasQueryItem(QStringLiteral("minutes"))
                                   ? query.queryItemValue(QStringLiteral("minutes")).toDouble()
                                   : 120;
        body = QJsonDocument(server_.market_->radar(now, minutes, limit)).toJson(QJsonDocument::Compact);
    } else if (route == QLatin1String("/traders")) {
        body = QJsonDocument(server_.market_->traders(stocks)).toJson(QJsonDocument::Compact);
    } else if (route == QLatin1String("/tokens")) {
        body = QJsonDocument(server_.market_->tokens(stocks, limit, now)).toJson(QJsonDocument::Compact);
    } else if (route.startsWith(QLatin1String("/trader/"))) {
        const QString handle = QUrl::fromPercentEncoding(route.mid(8).toUtf8());
        if (const auto detail = server_.market_->traderDetail(handle, now)) {
            body = QJsonDocument(*detail).toJson(QJsonDocument::Compact);
        } else {
            status = 404;
            body = R"({"error":"unknown trader"})";
        }
    } else {
        status = 404;
        body = R"({"error":"not found"})";
    }

    switch (fault.kind) {
    case EndpointFaultKind::None: break;
    case EndpointFaultKind::Status500:
        status = 500;
        body = R"({"error":"scripted failure"})";
        break;
    case EndpointFaultKind::Status204: status = 204; break;
    case EndpointFaultKind::Status304: status = 304; break;
    case EndpointFaultKind::BadBody:
        status = 200;
        body = R"([{"id":"not a number"}, {"half":)";
        break;
    case EndpointFaultKind::Canned:
        status = 200;
        body = fault.body;
        break;
    case EndpointFaultKind::CutShort:
        server_.log(QStringLiteral("GET ") + QString::fromLatin1(target) + QStringLiteral(" -> cut short"));
        Q_EMIT server_.requestServed(route, 200);
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(body.size() + 4000) + "\r\n\r\n" + body.left(body.size() / 2));
        socket->disconnectFromHost();
        return;
    case EndpointFaultKind::Delay:
    case EndpointFaultKind::SocketFirst: break;
    case EndpointFaultKind::Endless:
    case EndpointFaultKind::Huge:
    case EndpointFaultKind::Drip: {
        auto stream = std::make_shared<SimServer::Stream>();
        QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n";
        if (fault.kind == EndpointFaultKind::Drip) {
            stream->kind = SimServer::Stream::Drip;
            stream->data = body;
            stream->frameBytes = fault.delayMs; // the drip's period
            head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        } else if (fault.kind == EndpointFaultKind::Huge && fault.declareLength) {
            stream->kind = SimServer::Stream::HttpLength;
            stream->remaining = fault.bytes;
            stream->data = filler;
            head += "Content-Length: " + QByteArray::number(fault.bytes) + "\r\n";
        } else {
            stream->kind = SimServer::Stream::HttpChunked;
            stream->remaining = fault.kind == EndpointFaultKind::Endless ? -1 : fault.bytes;
            stream->data = filler;
            head += "Transfer-Encoding: chunked\r\n";
        }
        socket->write(head + "Connection: close\r\n\r\n");
        server_.log(QStringLiteral("GET ") + QString::fromLatin1(target) +
                    QStringLiteral(" -> streamed fault"));
        Q_EMIT server_.requestServed(route, 200);
        server_.startStream(socket, stream);
        return;
    }
    }
    server_.log(QStringLiteral("GET ") + QString::fromLatin1(target) + QStringLiteral(" -> ") +
                QString::number(status));
    Q_EMIT server_.requestServed(route, status);
    if (fault.kind == EndpointFaultKind::Delay) {
        QTimer::singleShot(fault.delayMs, socket,
                           [this, socket, status, body] { reply(socket, status, body); });
        return;
    }
    reply(socket, status, body);
}

} // namespace tarnwick
