#pragma once
// A local tape service: REST under /api and a WebSocket at /ws on one port,
// fed by a deterministic market, with faults that tests and demos can switch
// on. Bound to 127.0.0.1 by default.

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>

#include "TlsListener.h"

#include <memory>

class QTcpServer;
class QTcpSocket;
class QTimer;
class QWebSocket;
class QWebSocketServer;

namespace tarnwick {

class Market;
class SimRest;
class SimScenario;

struct SimOptions {
    QString host = QStringLiteral("127.0.0.1");
    quint16 port = 47800;
    double ratePerMinute = 30; // fills per minute of market time; 0 = none
    quint64 seed = 1;
    double speed = 1.0; // market time runs this many times faster than the wall clock
    QString scenarioFile;
    bool autoTape = true; // false: fills only when a test asks for them
    SimTls tls;           // a certificate makes it https and wss
};

// Endless: a chunked 200 that never ends, as fast as the peer reads.
// Huge: a 200 whose Content-Length is `bytes`, streamed (never built whole).
// Drip: a 200 whose body comes one byte every `delayMs`.
// SocketFirst: the fills of the answer go out on the socket first, the
// answer follows `delayMs` later (the race of a backfill and a live frame).
// Canned: a 200 with `body`, whatever the market holds.
// CutShort: a 200 that promises more body than it sends, then hangs up.
enum class EndpointFaultKind {
    None,
    Status500,
    Status204,
    Status304,
    BadBody,
    Delay,
    Endless,
    Huge,
    Drip,
    SocketFirst,
    Canned,
    CutShort
};
struct EndpointFault {
    EndpointFaultKind kind = EndpointFaultKind::None;
    int delayMs = 0;
    qint64 bytes = 0;
    bool declareLength = true; // Huge: false sends it chunked, with no length up front
    QByteArray body;           // Canned
};
enum class HandshakeMode { Accept, Refuse, Hang };

class SimServer : public QObject {
    Q_OBJECT
public:
    explicit SimServer(SimOptions options, QObject *parent = nullptr);
    ~SimServer() override;

    bool start(QString *error = nullptr);
    void stop(); // every socket gets a close frame with 1001
    quint16 port() const;
    QString httpBase() const;
    QString socketURL() const;
    bool secure() const { return options_.tls.enabled(); }
    int tlsHandshakesFailed() const; // refused or never finished

    // Scripting.
    QList<QJsonObject> emitFills(int n); // n new fills, one "fills" frame, oldest first
    void sendRawFrame(const QByteArray &payload, bool binary = false);
    // One text message of `bytes` bytes to every open socket, cut into frames
    // of `frameBytes` (0: one frame), written as the socket drains so that the
    // service never holds it whole.
    void sendOversizedMessage(qint64 bytes, qint64 frameBytes = 0);
    void sendFrameOfType(const QString &type);
    void setEndpointFault(const QString &pathPrefix, EndpointFault fault);
    void clearFaults();
    void setHandshakeMode(HandshakeMode mode);
    void setSilent(bool silent);
    void dropSocketsAfterFrames(int frames); // 0 = off
    void dropAllSockets();
    void restartSocketServer();
    // false: the peer freezes, reading nothing, so client pings get no pong.
    void setAnswerPings(bool answer);
    // The service's own bookkeeping going wrong. A redeploy: every socket
    // drops and the tape begins again, ids from `firstId` (below what was sent).
    void restartTape(qint64 firstId = 1000);
    // The next `count` fills copy their symbol with a Cyrillic look-alike letter.
    void sendLookAlikes(int count);
    // The next fill emitted carries this id (2^63-1, say); ids then go on as before.
    void injectFillId(qint64 id);
    // Fill and pile-in stamps run this far ahead of the service's clock.
    void setStampShift(double seconds);
    // The service's clock (stamps and the Date header alike) runs this far
    // off the machine's: to the client, its own clock is wrong.
    void setClockSkew(double seconds) { skew_ = seconds; }
    // Frames of `perFrame` fills, each of a new wallet and token, at
    // `framesPerSecond`, for `seconds` (0 stops a running flood).
    void startFlood(int perFrame, double framesPerSecond, double seconds);
    bool flooding() const;
    // Runs a scenario: a JSON list of {"at": seconds, ...} steps (see README).
    bool loadScenario(const QString &file, QString *error);

    // Observation.
    int handshakesCompleted() const { return handshakes_; }
    int openSockets() const { return int(sockets_.size()); }
    QList<int> closeCodesReceived() const { return closeCodes_; }
    int requestCount(const QString &pathPrefix) const;
    QByteArray lastUserAgent() const { return lastUserAgent_; }
    qint64 lastFillId() const;
    qint64 fillsEmitted() const { return fillsEmitted_; }
    // Bytes of streamed faults (oversized messages, huge and endless bodies)
    // that went onto the wire before the peer stopped reading or hung up.
    qint64 streamedBytes() const { return streamedBytes_; }
    int streamsRunning() const { return int(streams_.size()); }
    QList<QByteArray> lastRequestHeaderNames() const { return lastHeaderNames_; }
    void setLogging(bool on) { logging_ = on; }

Q_SIGNALS:
    void clientClosed(int closeCode);
    void requestServed(const QString &path, int status);

private:
    friend class SimRest;     // the REST side reads the market, counts requests and streams faults
    friend class SimScenario; // its steps are logged as the service's own lines
    void onConnection();
    void onRequestBytes(QTcpSocket *socket);
    void onSocketAccepted();
    void send(QWebSocket *socket, const QByteArray &payload, bool binary);
    void broadcast(const QByteArray &payload, bool binary = false);
    void scheduleNextFill();
    void log(const QString &line) const;
    double now() const; // the service's clock, skew included
    struct Stream;
    void startStream(QTcpSocket *socket, std::shared_ptr<Stream> stream);
    void pump(QTcpSocket *socket);
    QTcpSocket *tcpOf(QWebSocket *socket) const;

    SimOptions options_;
    std::unique_ptr<Market> market_;
    std::unique_ptr<SimRest> rest_;
    QTcpServer *http_ = nullptr;
    QWebSocketServer *ws_ = nullptr;
    QTimer *tape_ = nullptr;
    QTimer *stats_ = nullptr;
    QList<QWebSocket *> sockets_;
    QList<QPointer<QTcpSocket>> upgraded_;
    bool answerPings_ = true;
    QHash<QWebSocket *, int> framesSent_;
    QHash<QString, EndpointFault> faults_;
    QHash<QString, int> requests_;
    QList<int> closeCodes_;
    QByteArray lastUserAgent_;
    HandshakeMode handshake_ = HandshakeMode::Accept;
    bool silent_ = false;
    int dropAfter_ = 0;
    int handshakes_ = 0;
    bool logging_ = false;
    quint16 boundPort_ = 0;
    qint64 fillsEmitted_ = 0;
    double skew_ = 0;
    QTimer *flood_ = nullptr;
    int floodPerFrame_ = 0;
    qint64 floodFramesLeft_ = 0;
    qint64 streamedBytes_ = 0;
    QList<QByteArray> lastHeaderNames_;
    QHash<QTcpSocket *, std::shared_ptr<Stream>> streams_;
    QSet<QWebSocket *> streamingTo_; // no other frame may cut into a streamed message
};

} // namespace tarnwick
