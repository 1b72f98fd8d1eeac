#include "TarnwickSim.h"

#include "Market.h"
#include "SimRest.h"
#include "SimScenario.h"
#include "SimStream.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>
#include <QWebSocketServer>

#include <cmath>
#include <cstdio>

namespace tarnwick {

namespace {
double wallNow()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

// A server frame header: no mask, the length in the shortest form.
QByteArray frameHeader(bool fin, quint8 opcode, qint64 length)
{
    QByteArray h;
    h.append(char((fin ? 0x80 : 0) | opcode));
    if (length < 126) {
        h.append(char(length));
    } else if (length <= 0xFFFF) {
        h.append(char(126));
        h.append(char(length >> 8)).append(char(length & 0xFF));
    } else {
        h.append(char(127));
        for (int shift = 56; shift >= 0; shift -= 8)
            h.append(char((length >> shift) & 0xFF));
    }
    return h;
}
} // namespace

SimServer::SimServer(SimOptions options, QObject *parent)
    : QObject(parent), options_(std::move(options)), market_(std::make_unique<Market>(options_.seed)),
      rest_(std::make_unique<SimRest>(*this))
{
    market_->seedHistory(250, 1800, now());
    tape_ = new QTimer(this);
    tape_->setSingleShot(true);
    connect(tape_, &QTimer::timeout, this, [this] {
        emitFills(1);
        scheduleNextFill();
    });
    stats_ = new QTimer(this);
    connect(stats_, &QTimer::timeout, this, [this] { sendFrameOfType(QStringLiteral("stats")); });
}

SimServer::~SimServer()
{
    stop();
}

void SimServer::log(const QString &line) const
{
    if (logging_)
        std::fprintf(stderr, "%s\n", qUtf8Printable(line));
}

bool SimServer::start(QString *error)
{
    if (options_.tls.enabled()) {
        QSslConfiguration tls;
        if (!TlsListener::configure(options_.tls, &tls, error))
            return false;
        auto *listener = new TlsListener(tls, options_.tls, this);
        listener->log = [this](const QString &line) { log(line); };
        http_ = listener;
    } else {
        http_ = new QTcpServer(this);
    }
    ws_ = new QWebSocketServer(QStringLiteral("tarnwick-sim"), QWebSocketServer::NonSecureMode, this);
    connect(http_, &QTcpServer::newConnection, this, &SimServer::onConnection);
    connect(ws_, &QWebSocketServer::newConnection, this, &SimServer::onSocketAccepted);
    QHostAddress address(options_.host);
    if (address.isNull()) {
        if (error)
            *error = QStringLiteral("not an address: ") + options_.host;
        return false;
    }
    if (!http_->listen(address, options_.port)) {
        if (error)
            *error = QStringLiteral("cannot listen on ") + options_.host + QLatin1Char(':') +
                     QString::number(options_.port) + QStringLiteral(": ") + http_->errorString();
        return false;
    }
    boundPort_ = http_->serverPort();
    if (!options_.scenarioFile.isEmpty() && !loadScenario(options_.scenarioFile, error))
        return false;
    stats_->start(15000);
    scheduleNextFill();
    return true;
}

void SimServer::stop()
{
    tape_->stop();
    stats_->stop();
    for (QWebSocket *s : std::as_const(sockets_)) {
        s->disconnect(this);
        s->close(QWebSocketProtocol::CloseCodeGoingAway, QStringLiteral("server going away"));
        s->flush();
        s->deleteLater();
    }
    sockets_.clear();
    if (http_)
        http_->close();
}

quint16 SimServer::port() const
{
    return boundPort_;
}

QString SimServer::httpBase() const
{
    return (secure() ? QStringLiteral("https://") : QStringLiteral("http://")) + options_.host +
           QLatin1Char(':') + QString::number(boundPort_) + QStringLiteral("/api");
}

QString SimServer::socketURL() const
{
    return (secure() ? QStringLiteral("wss://") : QStringLiteral("ws://")) + options_.host +
           QLatin1Char(':') + QString::number(boundPort_) + QStringLiteral("/ws");
}

qint64 SimServer::lastFillId() const
{
    return market_->lastId();
}

int SimServer::tlsHandshakesFailed() const
{
    const auto *listener = qobject_cast<const TlsListener *>(http_);
    return listener ? listener->handshakesFailed() : 0;
}

int SimServer::requestCount(const QString &pathPrefix) const
{
    int n = 0;
    for (auto it = requests_.cbegin(); it != requests_.cend(); ++it)
        if (it.key().startsWith(pathPrefix))
            n += it.value();
    return n;
}

// ---- the market's clock ----

void SimServer::scheduleNextFill()
{
    if (!options_.autoTape || options_.ratePerMinute <= 0 || options_.speed <= 0)
        return;
    // Poisson arrivals: exponential gaps at the rate, scaled by the speed.
    const double perSecond = options_.ratePerMinute * options_.speed / 60.0;
    const double u = std::max(QRandomGenerator::global()->generateDouble(), 1e-12);
    const double gap = -std::log(u) / perSecond;
    tape_->start(int(std::min(gap * 1000, 3600000.0)));
}

QList<QJsonObject> SimServer::emitFills(int n)
{
    QList<QJsonObject> made;
    QJsonArray data;
    const double at = now();
    for (int i = 0; i < n; ++i) {
        made.append(market_->nextFill(at));
        data.append(made.last());
    }
    fillsEmitted_ += n;
    QJsonObject frame{{QStringLiteral("type"), QStringLiteral("fills")}, {QStringLiteral("data"), data}};
    broadcast(QJsonDocument(frame).toJson(QJsonDocument::Compact));
    return made;
}

void SimServer::sendFrameOfType(const QString &type)
{
    QJsonObject data{{QStringLiteral("fills"), market_->lastId()},
                     {QStringLiteral("sockets"), sockets_.size()}};
    broadcast(QJsonDocument(QJsonObject{{QStringLiteral("type"), type}, {QStringLiteral("data"), data}})
                  .toJson(QJsonDocument::Compact));
}

void SimServer::sendRawFrame(const QByteArray &payload, bool binary)
{
    broadcast(payload, binary);
}

void SimServer::broadcast(const QByteArray &payload, bool binary)
{
    const auto sockets = sockets_;
    for (QWebSocket *s : sockets)
        send(s, payload, binary);
}

void SimServer::send(QWebSocket *s, const QByteArray &payload, bool binary)
{
    if (silent_ || streamingTo_.contains(s))
        return;
    if (binary)
        s->sendBinaryMessage(payload);
    else
        s->sendTextMessage(QString::fromUtf8(payload));
    const int sent = ++framesSent_[s];
    if (dropAfter_ > 0 && sent >= dropAfter_) {
        log(QStringLiteral("ws drop after ") + QString::number(sent) + QStringLiteral(" frames"));
        sockets_.removeAll(s);
        s->disconnect(this);
        s->flush(); // the last frame still goes out; then the line just dies
        s->abort();
        s->deleteLater();
    }
}

// ---- streamed faults ----

QTcpSocket *SimServer::tcpOf(QWebSocket *socket) const
{
    for (const QPointer<QTcpSocket> &tcp : upgraded_)
        if (tcp && tcp->peerPort() == socket->peerPort() && tcp->localPort() == socket->localPort())
            return tcp;
    return nullptr;
}

void SimServer::sendOversizedMessage(qint64 bytes, qint64 frameBytes)
{
    for (QWebSocket *s : std::as_const(sockets_)) {
        QTcpSocket *tcp = tcpOf(s);
        if (!tcp || streams_.contains(tcp))
            continue;
        auto stream = std::make_shared<Stream>();
        stream->kind = Stream::WsMessage;
        stream->remaining = bytes;
        stream->frameBytes = frameBytes > 0 ? std::min<qint64>(frameBytes, 1 << 20) : 0;
        stream->ws = s;
        streamingTo_.insert(s);
        log(QStringLiteral("ws oversized message of ") + QString::number(bytes) + QStringLiteral(" bytes"));
        startStream(tcp, stream);
    }
}

void SimServer::startStream(QTcpSocket *socket, std::shared_ptr<Stream> stream)
{
    streams_.insert(socket, stream);
    auto end = [this, socket] {
        if (auto it = streams_.find(socket); it != streams_.end()) {
            if (it.value()->ws)
                streamingTo_.remove(it.value()->ws.data());
            streams_.erase(it);
        }
    };
    connect(socket, &QTcpSocket::disconnected, this, end);
    connect(socket, &QObject::destroyed, this, end);
    if (stream->kind == Stream::Drip) {
        stream->drip = new QTimer(socket);
        connect(stream->drip, &QTimer::timeout, this, [this, socket] { pump(socket); });
        stream->drip->start(std::max(1, int(stream->frameBytes)));
        return;
    }
    connect(socket, &QTcpSocket::bytesWritten, this, [this, socket] { pump(socket); });
    pump(socket);
}

void SimServer::pump(QTcpSocket *socket)
{
    const auto found = streams_.constFind(socket);
    if (found == streams_.cend())
        return;
    const std::shared_ptr<Stream> st = found.value();
    constexpr qint64 piece = 256 * 1024;
    auto write = [&](const QByteArray &bytes) {
        socket->write(bytes);
        streamedBytes_ += bytes.size();
    };
    auto payload = [&](qint64 n) {
        QByteArray out;
        out.reserve(n);
        if (st->kind == Stream::WsMessage) {
            if (st->first)
                out = R"({"type":"noise","data":")";
            out.append(QByteArray(n - out.size(), 'x'));
            st->first = false;
            return out.left(n);
        }
        while (out.size() < n) {
            const qint64 take = std::min<qint64>(n - out.size(), st->data.size() - st->offset);
            out.append(st->data.constData() + st->offset, take);
            st->offset = (st->offset + take) % st->data.size();
        }
        return out;
    };
    auto finish = [&] {
        if (st->ws)
            streamingTo_.remove(st->ws.data());
        streams_.remove(socket);
        if (st->kind != Stream::WsMessage)
            socket->disconnectFromHost();
    };

    if (st->kind == Stream::Drip) {
        write(st->data.mid(st->offset, 1));
        if (++st->offset >= st->data.size()) {
            st->drip->stop();
            finish();
        }
        return;
    }
    while (socket->state() == QAbstractSocket::ConnectedState && socket->bytesToWrite() < 2 * piece) {
        if (st->remaining == 0) {
            if (st->kind == Stream::HttpChunked)
                write("0\r\n\r\n");
            finish();
            return;
        }
        const qint64 n = st->remaining < 0 ? piece : std::min(piece, st->remaining);
        switch (st->kind) {
        case Stream::WsMessage:
            if (st->frameBytes > 0) {
                // Whole frames only, so a pong may slip in between two of them.
                const qint64 f = std::min(st->frameBytes, st->remaining);
                const bool firstFrame = st->first;
                const QByteArray body = payload(f);
                write(frameHeader(f == st->remaining, firstFrame ? 0x1 : 0x0, f) + body);
                st->remaining -= f;
                continue;
            }
            if (st->first)
                write(frameHeader(true, 0x1, st->remaining));
            break;
        case Stream::HttpChunked: write(QByteArray::number(n, 16) + "\r\n" + payload(n) + "\r\n"); break;
        default: break;
        }
        if (st->kind != Stream::HttpChunked)
            write(payload(n));
        if (st->remaining > 0)
            st->remaining -= n;
    }
}

// ---- faults ----

double SimServer::now() const
{
    return wallNow() + skew_;
}

void SimServer::restartTape(qint64 firstId)
{
    log(QStringLiteral("tape restarted, ids from ") + QString::number(firstId));
    market_->restart(firstId);
    dropAllSockets();
}

void SimServer::injectFillId(qint64 id)
{
    market_->injectId(id);
}

void SimServer::sendLookAlikes(int count)
{
    market_->setLookAlikes(count);
}

void SimServer::setStampShift(double seconds)
{
    market_->setStampShift(seconds);
}

bool SimServer::flooding() const
{
    return flood_ && flood_->isActive();
}

void SimServer::startFlood(int perFrame, double framesPerSecond, double seconds)
{
    if (!flood_) {
        flood_ = new QTimer(this);
        flood_->setTimerType(Qt::PreciseTimer);
        connect(flood_, &QTimer::timeout, this, [this] {
            if (floodFramesLeft_-- <= 0) {
                flood_->stop();
                return;
            }
            QJsonArray data;
            const double at = now();
            for (int i = 0; i < floodPerFrame_; ++i)
                data.append(market_->floodFill(at));
            fillsEmitted_ += floodPerFrame_;
            broadcast(QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("fills")},
                                                {QStringLiteral("data"), data}})
                          .toJson(QJsonDocument::Compact));
        });
    }
    floodPerFrame_ = perFrame;
    floodFramesLeft_ = qint64(std::ceil(framesPerSecond * seconds));
    if (floodFramesLeft_ <= 0 || framesPerSecond <= 0) {
        flood_->stop();
        return;
    }
    log(QStringLiteral("flood: ") + QString::number(perFrame) + QStringLiteral(" fills a frame, ") +
        QString::number(framesPerSecond) + QStringLiteral(" frames a second"));
    flood_->start(int(1000 / framesPerSecond));
}

void SimServer::setEndpointFault(const QString &pathPrefix, EndpointFault fault)
{
    faults_.insert(pathPrefix, fault);
}

void SimServer::clearFaults()
{
    faults_.clear();
    handshake_ = HandshakeMode::Accept;
    silent_ = false;
    dropAfter_ = 0;
    skew_ = 0;
    market_->setStampShift(0);
}

void SimServer::setHandshakeMode(HandshakeMode mode)
{
    handshake_ = mode;
}

void SimServer::setAnswerPings(bool answer)
{
    answerPings_ = answer;
    // The WebSocket reads its TCP socket when that socket signals; a socket
    // that stays quiet leaves pings unread and unanswered.
    for (const QPointer<QTcpSocket> &tcp : std::as_const(upgraded_))
        if (tcp)
            tcp->blockSignals(!answer);
}

void SimServer::setSilent(bool silent)
{
    silent_ = silent;
}

void SimServer::dropSocketsAfterFrames(int frames)
{
    dropAfter_ = frames;
    framesSent_.clear();
}

void SimServer::dropAllSockets()
{
    const auto sockets = sockets_;
    sockets_.clear();
    for (QWebSocket *s : sockets) {
        s->disconnect(this);
        s->abort();
        s->deleteLater();
    }
}

void SimServer::restartSocketServer()
{
    dropAllSockets();
    ws_->deleteLater();
    ws_ = new QWebSocketServer(QStringLiteral("tarnwick-sim"), QWebSocketServer::NonSecureMode, this);
    connect(ws_, &QWebSocketServer::newConnection, this, &SimServer::onSocketAccepted);
}

bool SimServer::loadScenario(const QString &file, QString *error)
{
    return SimScenario::load(*this, file, error);
}

// ---- HTTP ----

void SimServer::onConnection()
{
    while (QTcpSocket *socket = http_->nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onRequestBytes(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void SimServer::onRequestBytes(QTcpSocket *socket)
{
    // Peek until the head is complete: a WebSocket upgrade is handed over
    // untouched, with its request still unread.
    const QByteArray head = socket->peek(64 * 1024);
    const qsizetype end = head.indexOf("\r\n\r\n");
    if (end < 0) {
        if (head.size() >= 64 * 1024)
            socket->abort();
        return;
    }
    const QList<QByteArray> lines = head.left(end).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    QByteArray userAgent;
    bool upgrade = false;
    for (const QByteArray &line : lines.mid(1)) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(colon).trimmed().toLower();
        const QByteArray value = line.mid(colon + 1).trimmed();
        if (name == "user-agent")
            userAgent = value;
        else if (name == "upgrade" && value.toLower() == "websocket")
            upgrade = true;
    }
    const QByteArray target = requestLine.value(1);
    if (upgrade && target.startsWith("/ws")) {
        socket->disconnect(this);
        disconnect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        lastUserAgent_ = userAgent;
        ++requests_[QStringLiteral("/ws")];
        if (handshake_ == HandshakeMode::Refuse) {
            socket->read(end + 4);
            rest_->reply(socket, 403, R"({"error":"socket refused"})");
            return;
        }
        if (handshake_ == HandshakeMode::Hang) {
            socket->read(end + 4);
            log(QStringLiteral("ws handshake left hanging"));
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            return;
        }
        upgraded_.removeAll(nullptr);
        upgraded_.append(socket);
        ws_->handleConnection(socket);
        if (!answerPings_)
            QTimer::singleShot(300, socket, [socket] { socket->blockSignals(true); });
        return;
    }
    socket->read(end + 4);
    lastHeaderNames_.clear();
    for (const QByteArray &line : lines.mid(1))
        if (line.contains(':'))
            lastHeaderNames_.append(line.left(line.indexOf(':')).trimmed().toLower());
    if (requestLine.value(0) != "GET") {
        rest_->reply(socket, 405, R"({"error":"only GET"})");
        return;
    }
    lastUserAgent_ = userAgent;
    rest_->serve(socket, target);
}

// ---- WebSocket ----

void SimServer::onSocketAccepted()
{
    while (QWebSocket *s = ws_->nextPendingConnection()) {
        s->setParent(this);
        ++handshakes_;
        sockets_.append(s);
        log(QStringLiteral("ws open (") + QString::number(sockets_.size()) + QStringLiteral(" open)"));
        connect(s, &QWebSocket::disconnected, this, [this, s] {
            if (sockets_.removeAll(s) == 0)
                return;
            const int code = int(s->closeCode());
            closeCodes_.append(code);
            log(QStringLiteral("ws closed by the client, code ") + QString::number(code));
            Q_EMIT clientClosed(code);
            s->deleteLater();
        });
        QJsonObject hello{{QStringLiteral("server"), QStringLiteral("tarnwick-sim")},
                          {QStringLiteral("last_id"), market_->lastId()}};
        send(s,
             QJsonDocument(QJsonObject{{QStringLiteral("type"), QStringLiteral("hello")},
                                       {QStringLiteral("data"), hello}})
                 .toJson(QJsonDocument::Compact),
             false);
    }
}

} // namespace tarnwick
