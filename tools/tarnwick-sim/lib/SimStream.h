#pragma once
// The state of one streamed fault (an oversized socket message, a huge,
// endless or dripping REST body), shared by the transport and the REST side.

#include "TarnwickSim.h"

#include <QPointer>
#include <QTimer>
#include <QWebSocket>

namespace tarnwick {

// One answer or message written piece by piece as the peer drains it.
struct SimServer::Stream {
    enum Kind { WsMessage, HttpLength, HttpChunked, Drip };
    Kind kind = HttpLength;
    qint64 remaining = 0; // payload bytes still to go; negative: endless
    qint64 frameBytes = 0;
    qint64 frameLeft = 0; // a one-frame message: payload of the open frame still to go
    bool first = true;
    QByteArray data; // drip: the body; otherwise the unit that is repeated
    qint64 offset = 0;
    QPointer<QWebSocket> ws;
    QTimer *drip = nullptr;
};

} // namespace tarnwick
