#pragma once
// The tape service's REST side: the /api routes answered from the market, and
// each endpoint's scripted fault applied on the way out (a status, a bad or
// canned body, a delay, a body cut short, streamed or dripping, a live frame
// that races the answer).

#include <QByteArray>

class QTcpSocket;

namespace tarnwick {

class SimServer;

class SimRest {
public:
    explicit SimRest(SimServer &server) : server_(server) {}

    // A GET whose head has been read; `target` is its path and query.
    void serve(QTcpSocket *socket, const QByteArray &target);
    // A whole answer, dated by the service's clock; the connection closes after it.
    void reply(QTcpSocket *socket, int status, const QByteArray &body);

private:
    SimServer &server_;
};

} // namespace tarnwick
