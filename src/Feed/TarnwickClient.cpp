#include "Feed/TarnwickClient.h"

#include "Feed/BoundedFetch.h"
#include "Feed/LinkDiagnosis.h"
#include "Feed/LiveFrames.h"
#include "Feed/TlsTrust.h"
#include "Feed/WakeWatch.h"
#include "Support/Log.h"
#include "Wire/Tarnwick.h"

#include <QNetworkReply>
#include <QRandomGenerator>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>

#include <algorithm>
#include <cmath>

namespace {
QTimer *makeTimer(QObject *owner, bool singleShot)
{
    auto *t = new QTimer(owner);
    t->setSingleShot(singleShot);
    return t;
}
} // namespace

TarnwickClient::TarnwickClient(QObject *parent)
    : TarnwickClient(Tarnwick::httpBase(), Tarnwick::socketURL(), TarnwickTiming{}, systemNow, parent)
{
    // The app's client follows the machine's sleep and network; where neither
    // source exists the watch stays silent.
    watch(new WakeWatch(WakeWatch::AllSources, this));
}

TarnwickClient::TarnwickClient(QString httpBase, QString socketURL, TarnwickTiming timing, Clock now,
                               QObject *parent)
    : QObject(parent), httpBase_(std::move(httpBase)), socketURL_(std::move(socketURL)), timing_(timing),
      now_(now), gate_(now), tables_(now, timing_.enrichmentFreshSeconds,
                                     [this](const QString &path, EnrichmentTables::BodyCallback done) {
                                         fetch(path, this, std::move(done));
                                     }),
      verbose_(Log::enabledByEnvironment()), frames_(verbose_, [this](const QString &line) { log(line); })
{
    // Only a service that speaks TLS loads the TLS library.
    if (httpBase_.startsWith(QLatin1String("https:")) || socketURL_.startsWith(QLatin1String("wss:")))
        tls_ = TlsTrust::forApp();
    diagnosis_ = new LinkDiagnosis(httpBase_, tls_, timing_.handshakeTimeoutMs, verbose_, this);
    diagnosis_->onTrouble = [this](const LinkTrouble &trouble) {
        if (onTrouble)
            onTrouble(trouble);
    };
    fetcher_ = new BoundedFetch(timing_.requestTimeoutMs, this);
    fetcher_->onFinished = [this](QNetworkReply *reply, const QList<QSslError> &tlsErrors) {
        diagnosis_->classifyReply(reply, tlsErrors);
    };
    fetcher_->onAnswered = [this](const QByteArray &dateHeader, double ms) {
        gate_.noteClock(dateHeader);
        if (onLatency)
            onLatency(ms);
    };
    fetcher_->log = [this](const QString &line) { log(line); };
    gate_.notice = [this](const QString &line) { notice(line); };
    tables_.notice = gate_.notice;
    gate_.onRestart = [this] {
        if (onRestart)
            onRestart();
    };

    pingTimer_ = makeTimer(this, false);
    pollTimer_ = makeTimer(this, true);  // re-armed after each answer
    radarTimer_ = makeTimer(this, true); // likewise
    reconnectTimer_ = makeTimer(this, true);
    openWatchdog_ = makeTimer(this, true);
    handshakeTimer_ = makeTimer(this, true);
    wakeTimer_ = makeTimer(this, true);
    backfillTimer_ = makeTimer(this, true);
    // The open watchdog and reconnect wait run on the monotonic clock.
    openWatchdog_->setTimerType(Qt::PreciseTimer);
    reconnectTimer_->setTimerType(Qt::PreciseTimer);
    connect(wakeTimer_, &QTimer::timeout, this, [this] {
        if (stopped_)
            return;
        ++wakes_;
        log(QStringLiteral("wake: ") + wakeReason_ + QStringLiteral(", reconnecting now"));
        reconnectTimer_->stop();
        if (QWebSocket *s = socket_.data()) {
            socket_.clear();
            dropSocket(s);
        }
        connectSocket();
        // Fills of the time asleep; the socket that opens next need not ask again.
        reconnecting_ = false;
        catchUp();
    });

    connect(pollTimer_, &QTimer::timeout, this, &TarnwickClient::pollOnce);
    connect(radarTimer_, &QTimer::timeout, this, [this] {
        if (!stopped_)
            fetchRadar(true);
    });
    connect(reconnectTimer_, &QTimer::timeout, this, [this] {
        if (!stopped_)
            connectSocket();
    });
}

TarnwickClient::~TarnwickClient()
{
    if (socket_)
        socket_->disconnect(this);
}

void TarnwickClient::log(const QString &message) const
{
    // Log::write flattens control characters, so wire text cannot split a line.
    if (verbose_)
        Log::write("tw", message);
    else if (Log::isTrouble(message))
        Log::trouble(lcLink(), message); // failures reach the journal without the trace
}

// ---- REST ----

void TarnwickClient::fetch(const QString &path, QObject *context, BodyCallback done)
{
    fetcher_->get(httpBase_, path, tls_,
                  {.silenceMs = timing_.requestTimeoutMs,
                   .deadlineMs = timing_.requestDeadlineMs,
                   .maxBody = limits_.maxBodyBytes},
                  context ? context : this, std::move(done));
}

void TarnwickClient::tape(int limit, QObject *context, TapeCallback done)
{
    fetch(QStringLiteral("/tape?limit=") + QString::number(limit) + QStringLiteral("&stocks=true"), context,
          [done](std::optional<QByteArray> body, QString error) {
              if (!body)
                  return done(std::nullopt, error);
              auto fills = TwDecode::fills(*body);
              done(fills, fills ? QString() : QStringLiteral("the tape did not decode"));
          });
}

QString TarnwickClient::traderPath(const QString &handle)
{
    // Letters, digits, "-._~" and the sub-delimiters that a path segment may
    // carry stay as they are; everything else, "/" included (a handle is one
    // segment), is percent-encoded as UTF-8.
    return QStringLiteral("/trader/") +
           QString::fromLatin1(QUrl::toPercentEncoding(handle, QByteArrayLiteral("!$&'()*+,;=:@"))) +
           QStringLiteral("?window=24h&stocks=true");
}

void TarnwickClient::traderDetail(const QString &handle, QObject *context, TraderDetailCallback done)
{
    fetch(traderPath(handle), context, [done](std::optional<QByteArray> body, QString error) {
        if (!body)
            return done(std::nullopt, error);
        auto detail = TwDecode::traderDetail(*body);
        done(detail, detail ? QString() : QStringLiteral("the trader did not decode"));
    });
}

const TwTrader *TarnwickClient::trader(const QString &handle) const
{
    return tables_.trader(handle);
}

const TwToken *TarnwickClient::token(const QString &address) const
{
    return tables_.token(address);
}

void TarnwickClient::deliver(QList<TwFill> fills, bool gated)
{
    const QList<TwFill> kept = gate_.admit(std::move(fills), gated);
    if (kept.isEmpty())
        return;
    newestDelivered_ = std::ranges::max(kept, {}, &TwFill::ts).ts;
    ensureEnrichment();
    if (onFills)
        onFills(kept);
}

void TarnwickClient::catchUp()
{
    // Gated: a short outage loses nothing the tape still holds, and repeats nothing.
    ++catchUps_;
    const quint64 generation = generation_;
    tape(200, this, [this, generation](std::optional<QList<TwFill>> fills, QString) {
        if (!fills || generation != generation_)
            return;
        std::reverse(fills->begin(), fills->end());
        deliver(std::move(*fills), true);
    });
}

void TarnwickClient::notice(const QString &message) const
{
    // Worth the journal even without the trace, at most a few a minute.
    if (verbose_)
        Log::write("tw", message);
    else
        Log::trouble(lcLink(), message);
}

void TarnwickClient::clearEnrichmentStamp()
{
    tables_.clearStamp();
}

void TarnwickClient::ensureEnrichment()
{
    tables_.ensure(limits_.maxTableRows);
}

void TarnwickClient::startRadarLoop()
{
    radarTimer_->stop();
    fetchRadar(true);
}

void TarnwickClient::refresh()
{
    fetchRadar(false); // the loop keeps its own schedule
}

void TarnwickClient::fetchRadar(bool loop)
{
    const quint64 generation = generation_;
    fetch(QStringLiteral("/radar?minutes=120&limit=40"), this,
          [this, generation, loop](std::optional<QByteArray> body, QString) {
              if (generation != generation_)
                  return; // stopped meanwhile
              // The next fetch is due a full period after this one answered,
              // so a slow service never has two radar requests in flight.
              if (loop && !stopped_)
                  radarTimer_->start(timing_.radarIntervalMs);
              if (!body)
                  return;
              auto list = TwDecode::radars(*body);
              if (!list)
                  return;
              QList<TwRadar> kept;
              for (TwRadar &entry : *list)
                  if (gate_.readStamp(entry.firstTs, "a radar entry"))
                      kept.append(std::move(entry));
              if (onRadar)
                  onRadar(kept);
          });
}

bool TarnwickClient::isPolling() const
{
    return polling_;
}

int TarnwickClient::pendingReconnectMs() const
{
    return reconnectTimer_->isActive() ? reconnectTimer_->interval() : -1;
}

bool TarnwickClient::hasSocket() const
{
    return !socket_.isNull();
}

void TarnwickClient::startPolling()
{
    if (polling_ || stopped_)
        return;
    polling_ = true;
    ++pollGeneration_;
    if (onLink)
        onLink(LinkState::polling);
    pollOnce();
}

void TarnwickClient::stopPolling()
{
    polling_ = false;
    ++pollGeneration_; // an answer still in flight is dropped
    pollTimer_->stop();
}

void TarnwickClient::pollOnce()
{
    if (!polling_ || stopped_)
        return;
    const quint64 generation = pollGeneration_;
    tape(60, this, [this, generation](std::optional<QList<TwFill>> fills, QString) {
        if (generation != pollGeneration_)
            return;                                // polling ended while the request ran
        pollTimer_->start(timing_.pollIntervalMs); // failures are silent; try again next period
        if (!fills)
            return;
        std::reverse(fills->begin(), fills->end());
        deliver(std::move(*fills), true);
    });
}

// ---- socket ----

double TarnwickClient::reconnectBaseDelay(int failures)
{
    return std::min(2.0 * failures + 2.0, 30.0);
}

double TarnwickClient::jitter()
{
    const quint64 bits = QRandomGenerator::global()->generate64() >> 11; // 53 random bits
    return double(bits) / 9007199254740992.0 * 4.0;
}

void TarnwickClient::start()
{
    if (!stopped_)
        return; // already running: a second socket would only orphan the first
    stopped_ = false;
    diagnosis_->start();
    reconnecting_ = false; // the backfill catches up on the first socket
    if (onLink)
        onLink(LinkState::connecting);
    startRadarLoop();
    connectSocket();
    backfill(0);
}

void TarnwickClient::backfill(int attempt)
{
    const quint64 generation = generation_;
    tape(200, this, [this, generation, attempt](std::optional<QList<TwFill>> fills, QString error) {
        if (generation != generation_)
            return;
        if (!fills) {
            // A backfill cut short (a drip, a body over the limit, a failure)
            // is tried again on the reconnect schedule.
            const double seconds = (reconnectBaseDelay(attempt + 1) + jitter()) * timing_.reconnectScale;
            log(QStringLiteral("backfill FAILED: ") + error + QStringLiteral(", again in ") +
                QString::number(seconds, 'f', 1) + QStringLiteral(" s"));
            backfillTimer_->disconnect();
            connect(backfillTimer_, &QTimer::timeout, this, [this, attempt] {
                if (!stopped_)
                    backfill(attempt + 1);
            });
            backfillTimer_->start(int(seconds * 1000));
            // The warm-up waits for the backfill, but not for ever: a first
            // failure ends it as an arrival would.
            if (onBackfill)
                onBackfill();
            return;
        }
        std::reverse(fills->begin(), fills->end());
        deliver(std::move(*fills), false);
        if (onBackfill)
            onBackfill();
    });
}

void TarnwickClient::watch(WakeWatch *watch)
{
    connect(watch, &WakeWatch::woke, this, &TarnwickClient::wake);
}

void TarnwickClient::wake(const QString &reason)
{
    if (stopped_)
        return;
    wakeReason_ = reason;
    if (!wakeTimer_->isActive())
        wakeTimer_->start(250);
}

void TarnwickClient::stop()
{
    stopped_ = true;
    ++generation_;
    diagnosis_->stop();
    pingTimer_->stop();
    stopPolling();
    radarTimer_->stop();
    reconnectTimer_->stop();
    openWatchdog_->stop();
    handshakeTimer_->stop();
    wakeTimer_->stop();
    backfillTimer_->stop();
    if (QWebSocket *s = socket_.data()) {
        s->disconnect(this);
        // Let the close frame reach the wire before the object goes.
        connect(s, &QWebSocket::disconnected, s, &QObject::deleteLater);
        QTimer::singleShot(3000, s, &QObject::deleteLater);
        s->close(QWebSocketProtocol::CloseCodeGoingAway);
        socket_.clear();
    }
    socketOpenedOnce_ = false;
    socketFailures_ = 0;
}

void TarnwickClient::connectSocket()
{
    if (stopped_)
        return;
    auto *s = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket_ = s;
    awaitingPong_ = false;
    // Qt refuses a frame whose header announces more before reading its
    // payload; the socket is then closed with 1009 and reconnects under the
    // back-off. (Its message limit only bites once the message is whole.)
    s->setMaxAllowedIncomingFrameSize(quint64(limits_.maxMessageBytes));
    s->setMaxAllowedIncomingMessageSize(quint64(limits_.maxMessageBytes));
    // Qt reads a frame only once all of it is buffered: room for the largest
    // allowed frame and its header, and no more.
    s->setReadBufferSize(limits_.maxMessageBytes + 1024);
    if (!tls_.isNull())
        s->setSslConfiguration(tls_);
    auto tlsErrors = std::make_shared<QList<QSslError>>();
    connect(s, &QWebSocket::sslErrors, this,
            [tlsErrors](const QList<QSslError> &errors) { *tlsErrors = errors; });
    // The upgrade request goes out only over a connection that was made: a
    // refusal after it came from something that answers.
    auto upgradeSent = std::make_shared<bool>(false);
    connect(s, &QWebSocket::bytesWritten, this, [upgradeSent](qint64) { *upgradeSent = true; });

    // Qt checks each frame's announced size, but it gathers the frames of one
    // message without a bound: the frames are counted here as they come, and
    // a message that grows past the limit ends its socket.
    auto bound = std::make_shared<MessageBound>(limits_.maxMessageBytes);
    auto countFrame = [this, s, bound](qint64 size, bool last) {
        if (socket_ != s || !bound->overflows(size, last))
            return;
        log(QStringLiteral("receive FAILED: a message over ") + QString::number(limits_.maxMessageBytes) +
            QStringLiteral(" bytes, dropped; the socket is closed"));
        QMetaObject::invokeMethod(
            this,
            [this, s] {
                if (socket_ == s)
                    socketDidClose();
            },
            Qt::QueuedConnection);
    };
    connect(s, &QWebSocket::textFrameReceived, this,
            [countFrame](const QString &frame, bool last) { countFrame(frame.size(), last); });
    connect(s, &QWebSocket::binaryFrameReceived, this,
            [countFrame](const QByteArray &frame, bool last) { countFrame(frame.size(), last); });
    connect(s, &QWebSocket::textMessageReceived, this,
            [this, s](const QString &message) { onMessage(s, message.toUtf8(), true); });
    connect(s, &QWebSocket::binaryMessageReceived, this,
            [this, s](const QByteArray &message) { onMessage(s, message, false); });
    // Qt 6.4 names the error signal error(); errorOccurred came later.
    connect(s, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            [this, s, tlsErrors, upgradeSent](QAbstractSocket::SocketError error) {
                if (socket_ == s)
                    diagnosis_->classifySocketError(error, s->errorString(), *tlsErrors, *upgradeSent);
                log(QStringLiteral("receive FAILED: ") + s->errorString());
                if (socket_ == s)
                    socketDidClose();
            });
    connect(s, &QWebSocket::disconnected, this, [this, s] {
        if (socket_ != s)
            return;
        if (s->closeCode() == QWebSocketProtocol::CloseCodeTooMuchData) {
            log(QStringLiteral("receive FAILED: a message over ") + QString::number(limits_.maxMessageBytes) +
                QStringLiteral(" bytes, dropped; the socket is closed"));
            socketDidClose();
            return;
        }
        log(QStringLiteral("receive FAILED: ") +
            (s->closeReason().isEmpty() ? QStringLiteral("the socket closed (code ") +
                                              QString::number(int(s->closeCode())) + QLatin1Char(')')
                                        : s->closeReason()));
        socketDidClose();
    });
    connect(s, &QWebSocket::pong, this, [this, s](quint64, const QByteArray &) {
        if (socket_ != s)
            return;
        awaitingPong_ = false;
        log(QStringLiteral("ping ok · frames=") + QString::number(frames_.frames()) +
            QStringLiteral(" fills=") + QString::number(frames_.fills()));
    });

    QNetworkRequest request{QUrl(socketURL_)};
    request.setHeader(QNetworkRequest::UserAgentHeader, Tarnwick::userAgent());
    s->open(request);

    // A handshake that never completes is given up on its own clock; pings
    // only start once the socket is open.
    handshakeTimer_->disconnect();
    connect(handshakeTimer_, &QTimer::timeout, this, [this, s] {
        if (socket_ != s || stopped_)
            return;
        log(QStringLiteral("connect FAILED: no handshake within ") +
            QString::number(timing_.handshakeTimeoutMs) + QStringLiteral(" ms"));
        diagnosis_->diagnose();
        socketDidClose();
    });
    handshakeTimer_->start(timing_.handshakeTimeoutMs);
    connect(s, &QWebSocket::connected, this, [this, s] {
        if (socket_ != s)
            return;
        handshakeTimer_->stop();
        pingTimer_->start(timing_.pingIntervalMs);
        // Back after a drop: what the tape took in meanwhile comes by REST.
        if (reconnecting_) {
            reconnecting_ = false;
            catchUp();
        }
        diagnosis_->answered();
    });

    openWatchdog_->disconnect();
    connect(openWatchdog_, &QTimer::timeout, this, [this, s] {
        if (socket_ == s && !socketOpenedOnce_)
            startPolling(); // the socket may still open later; it is not closed
    });
    openWatchdog_->start(timing_.openWatchdogMs);

    // Keep-alive: a ping whose pong has not come back by the next tick failed.
    pingTimer_->disconnect();
    connect(pingTimer_, &QTimer::timeout, this, [this, s] {
        if (socket_ != s || stopped_)
            return;
        if (awaitingPong_) {
            log(QStringLiteral("ping FAILED: no pong within ") + QString::number(timing_.pingIntervalMs) +
                QStringLiteral(" ms"));
            socketDidClose();
            return;
        }
        awaitingPong_ = true;
        s->ping();
    });
}

void TarnwickClient::onMessage(QWebSocket *socket, const QByteArray &bytes, bool)
{
    if (socket_ != socket)
        return; // a stale socket
    if (!socketOpenedOnce_) {
        // Once per start(): a socket that reopens after a drop does not
        // announce live again.
        socketOpenedOnce_ = true;
        socketFailures_ = 0;
        stopPolling();
        if (onLink)
            onLink(LinkState::live);
    }
    ensureEnrichment();

    frames_.count();
    if (onFrame)
        onFrame();
    auto fills = frames_.read(bytes, limits_.maxFillsPerFrame);
    if (!fills)
        return;
    newestDelivered_ = 0;
    deliver(std::move(*fills), true);
    // The lateness is only known while both clocks agree.
    if (newestDelivered_ > 0 && gate_.clockOffset() == 0)
        if (const auto line = lateness_.note(now_(), newestDelivered_); line && verbose_)
            log(*line);
}

void TarnwickClient::dropSocket(QWebSocket *s)
{
    pingTimer_->stop();
    handshakeTimer_->stop();
    s->disconnect(this);
    s->abort();
    s->deleteLater();
}

void TarnwickClient::socketDidClose()
{
    pingTimer_->stop();
    openWatchdog_->stop();
    handshakeTimer_->stop();
    if (QWebSocket *s = socket_.data()) {
        socket_.clear();
        dropSocket(s);
    }
    ++socketFailures_;
    reconnecting_ = true;
    if (socketOpenedOnce_ && socketFailures_ < 2) {
        if (onLink)
            onLink(LinkState::down);
    } else {
        startPolling();
    }
    scheduleReconnect();
}

void TarnwickClient::scheduleReconnect()
{
    if (stopped_ || reconnectTimer_->isActive())
        return;
    lastReconnectDelay_ = reconnectBaseDelay(socketFailures_) + jitter();
    reconnectTimer_->start(int(lastReconnectDelay_ * timing_.reconnectScale * 1000));
}
