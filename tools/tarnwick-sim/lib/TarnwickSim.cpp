#include "TarnwickSim.h"

#include "Market.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>
#include <QWebSocket>
#include <QWebSocketServer>

#include <cmath>
#include <cstdio>
#include <limits>

namespace tarnwick {

namespace {
double wallNow()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

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

SimServer::SimServer(SimOptions options, QObject *parent)
    : QObject(parent), options_(std::move(options)), market_(std::make_unique<Market>(options_.seed))
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
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("cannot read scenario ") + file + QStringLiteral(": ") + f.errorString();
        return false;
    }
    QJsonParseError parse{};
    const QJsonDocument doc = QJsonDocument::fromJson(f.readAll(), &parse);
    if (!doc.isArray()) {
        if (error)
            *error = QStringLiteral("scenario ") + file + QStringLiteral(" is not a JSON list: ") +
                     parse.errorString();
        return false;
    }
    for (const QJsonValue &v : doc.array()) {
        const QJsonObject step = v.toObject();
        QTimer::singleShot(int(step.value(QStringLiteral("at")).toDouble() * 1000), this,
                           [this, step] { applyStep(step); });
    }
    return true;
}

void SimServer::applyStep(const QJsonObject &step)
{
    log(QStringLiteral("scenario: ") + QString::fromUtf8(QJsonDocument(step).toJson(QJsonDocument::Compact)));
    if (step.contains(QStringLiteral("endpoint"))) {
        const QString fault = step.value(QStringLiteral("fault")).toString();
        EndpointFault f;
        const int status = step.value(QStringLiteral("status")).toInt();
        f.kind = status == 500                            ? EndpointFaultKind::Status500
                 : status == 204                          ? EndpointFaultKind::Status204
                 : status == 304                          ? EndpointFaultKind::Status304
                 : fault == QLatin1String("bad_body")     ? EndpointFaultKind::BadBody
                 : fault == QLatin1String("delay")        ? EndpointFaultKind::Delay
                 : fault == QLatin1String("endless")      ? EndpointFaultKind::Endless
                 : fault == QLatin1String("huge")         ? EndpointFaultKind::Huge
                 : fault == QLatin1String("drip")         ? EndpointFaultKind::Drip
                 : fault == QLatin1String("socket_first") ? EndpointFaultKind::SocketFirst
                                                          : EndpointFaultKind::None;
        f.delayMs = step.value(QStringLiteral("delay_ms"))
                        .toInt(f.kind == EndpointFaultKind::Drip          ? 3000
                               : f.kind == EndpointFaultKind::SocketFirst ? 300
                                                                          : 15000);
        f.bytes = qint64(step.value(QStringLiteral("bytes")).toDouble(300.0 * 1024 * 1024));
        f.declareLength = step.value(QStringLiteral("declare_length")).toBool(true);
        setEndpointFault(step.value(QStringLiteral("endpoint")).toString(), f);
    }
    const QString handshake = step.value(QStringLiteral("handshake")).toString();
    if (handshake == QLatin1String("refuse"))
        setHandshakeMode(HandshakeMode::Refuse);
    else if (handshake == QLatin1String("hang"))
        setHandshakeMode(HandshakeMode::Hang);
    else if (handshake == QLatin1String("accept"))
        setHandshakeMode(HandshakeMode::Accept);
    const QString fault = step.value(QStringLiteral("fault")).toString();
    if (fault == QLatin1String("drop_sockets"))
        dropAllSockets();
    else if (fault == QLatin1String("silent"))
        setSilent(true);
    else if (fault == QLatin1String("speak"))
        setSilent(false);
    else if (fault == QLatin1String("clear"))
        clearFaults();
    else if (fault == QLatin1String("restart_socket_server"))
        restartSocketServer();
    else if (fault == QLatin1String("non_json"))
        sendRawFrame("this is not json");
    else if (fault == QLatin1String("binary_json"))
        sendRawFrame(R"({"type":"stats","data":{}})", true);
    else if (fault == QLatin1String("broken_fills"))
        sendRawFrame(R"({"type":"fills","data":{"oops":true}})");
    else if (fault == QLatin1String("oversized_message"))
        sendOversizedMessage(qint64(step.value(QStringLiteral("bytes")).toDouble(100.0 * 1024 * 1024)),
                             qint64(step.value(QStringLiteral("frame_bytes")).toDouble(0)));
    else if (fault == QLatin1String("restart_lower_ids"))
        restartTape(qint64(step.value(QStringLiteral("first_id")).toDouble(1000)));
    else if (fault == QLatin1String("look_alikes"))
        sendLookAlikes(step.value(QStringLiteral("count")).toInt(20));
    else if (fault == QLatin1String("absurd_id"))
        injectFillId(std::numeric_limits<qint64>::max());
    else if (fault == QLatin1String("stamps_ahead"))
        setStampShift(step.value(QStringLiteral("seconds")).toDouble(10 * 365.25 * 86400));
    else if (fault == QLatin1String("clock_skew"))
        setClockSkew(step.value(QStringLiteral("seconds")).toDouble(2 * 86400));
    else if (fault == QLatin1String("flood"))
        startFlood(step.value(QStringLiteral("per_frame")).toInt(2000),
                   step.value(QStringLiteral("frames_per_second")).toDouble(2),
                   step.value(QStringLiteral("seconds")).toDouble(60));
    else if (fault == QLatin1String("huge_frame"))
        sendRawFrame(R"({"type":"noise","data":")" + QByteArray(4 * 1024 * 1024, 'x') + "\"}");
    if (step.contains(QStringLiteral("drop_after_frames")))
        dropSocketsAfterFrames(step.value(QStringLiteral("drop_after_frames")).toInt());
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
            reply(socket, 403, R"({"error":"socket refused"})");
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
        reply(socket, 405, R"({"error":"only GET"})");
        return;
    }
    lastUserAgent_ = userAgent;
    serveRest(socket, target, userAgent);
}

void SimServer::reply(QTcpSocket *socket, int status, const QByteArray &body)
{
    QByteArray out = "HTTP/1.1 " + QByteArray::number(status) + ' ' + statusText(status) + "\r\n";
    // The service's clock, as every HTTP server tells it.
    out += "Date: " +
           QDateTime::fromMSecsSinceEpoch(qint64(now() * 1000), Qt::UTC)
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

void SimServer::serveRest(QTcpSocket *socket, const QByteArray &target, const QByteArray &)
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
              QJsonDocument(QJsonObject{{QStringLiteral("fills_emitted"), fillsEmitted_},
                                        {QStringLiteral("last_id"), market_->lastId()},
                                        {QStringLiteral("sockets"), int(sockets_.size())}})
                  .toJson(QJsonDocument::Compact));
        return;
    }
    ++requests_[route];

    EndpointFault fault;
    for (auto it = faults_.cbegin(); it != faults_.cend(); ++it)
        if (route.startsWith(it.key()))
            fault = it.value();

    const double now = this->now();
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
            if (sockets_.isEmpty() && tries < 60) {
                QTimer::singleShot(50, this, [strong = weak.lock(), tries] {
                    if (strong)
                        (*strong)(tries + 1);
                });
                return;
            }
            emitFills(2);
            QTimer::singleShot(delay, this, [this, guard, limit, stocks] {
                if (guard)
                    reply(guard, 200,
                          QJsonDocument(market_->tape(limit, stocks)).toJson(QJsonDocument::Compact));
            });
        };
        (*race)(0);
        log(QStringLiteral("GET ") + QString::fromLatin1(target) + QStringLiteral(" -> socket first"));
        Q_EMIT requestServed(route, 200);
        return;
    }
    if (route == QLatin1String("/tape")) {
        body = QJsonDocument(market_->tape(limit, stocks)).toJson(QJsonDocument::Compact);
    } else if (route == QLatin1String("/radar")) {
        const double minutes = query.hasQueryItem(QStringLiteral("minutes"))
                                   ? query.queryItemValue(QStringLiteral("minutes")).toDouble()
                                   : 120;
        body = QJsonDocument(market_->radar(now, minutes, limit)).toJson(QJsonDocument::Compact);
    } else if (route == QLatin1String("/traders")) {
        body = QJsonDocument(market_->traders(stocks)).toJson(QJsonDocument::Compact);
    } else if (route == QLatin1String("/tokens")) {
        body = QJsonDocument(market_->tokens(stocks, limit, now)).toJson(QJsonDocument::Compact);
    } else if (route.startsWith(QLatin1String("/trader/"))) {
        const QString handle = QUrl::fromPercentEncoding(route.mid(8).toUtf8());
        if (const auto detail = market_->traderDetail(handle, now)) {
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
        log(QStringLiteral("GET ") + QString::fromLatin1(target) + QStringLiteral(" -> cut short"));
        Q_EMIT requestServed(route, 200);
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                      QByteArray::number(body.size() + 4000) + "\r\n\r\n" + body.left(body.size() / 2));
        socket->disconnectFromHost();
        return;
    case EndpointFaultKind::Delay:
    case EndpointFaultKind::SocketFirst: break;
    case EndpointFaultKind::Endless:
    case EndpointFaultKind::Huge:
    case EndpointFaultKind::Drip: {
        auto stream = std::make_shared<Stream>();
        QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n";
        if (fault.kind == EndpointFaultKind::Drip) {
            stream->kind = Stream::Drip;
            stream->data = body;
            stream->frameBytes = fault.delayMs; // the drip's period
            head += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
        } else if (fault.kind == EndpointFaultKind::Huge && fault.declareLength) {
            stream->kind = Stream::HttpLength;
            stream->remaining = fault.bytes;
            stream->data = filler;
            head += "Content-Length: " + QByteArray::number(fault.bytes) + "\r\n";
        } else {
            stream->kind = Stream::HttpChunked;
            stream->remaining = fault.kind == EndpointFaultKind::Endless ? -1 : fault.bytes;
            stream->data = filler;
            head += "Transfer-Encoding: chunked\r\n";
        }
        socket->write(head + "Connection: close\r\n\r\n");
        log(QStringLiteral("GET ") + QString::fromLatin1(target) + QStringLiteral(" -> streamed fault"));
        Q_EMIT requestServed(route, 200);
        startStream(socket, stream);
        return;
    }
    }
    log(QStringLiteral("GET ") + QString::fromLatin1(target) + QStringLiteral(" -> ") +
        QString::number(status));
    Q_EMIT requestServed(route, status);
    if (fault.kind == EndpointFaultKind::Delay) {
        QTimer::singleShot(fault.delayMs, socket,
                           [this, socket, status, body] { reply(socket, status, body); });
        return;
    }
    reply(socket, status, body);
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
