#include "Feed/TarnwickClient.h"

#include "Wire/Tarnwick.h"
#include "Feed/TlsTrust.h"
#include "Feed/WakeWatch.h"
#include "Support/Log.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QSslSocket>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>

#include <algorithm>
#include <cmath>

namespace {
// The session keeps no cookies: every request stands on its own.
class NoCookies : public QNetworkCookieJar {
public:
    using QNetworkCookieJar::QNetworkCookieJar;
    bool setCookiesFromUrl(const QList<QNetworkCookie> &, const QUrl &) override { return false; }
    QList<QNetworkCookie> cookiesForUrl(const QUrl &) const override { return {}; }
};

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
      now_(std::move(now)), verbose_(Log::enabledByEnvironment())
{
    // Only a service that speaks TLS loads the TLS library.
    if (httpBase_.startsWith(QLatin1String("https:")) || socketURL_.startsWith(QLatin1String("wss:")))
        tls_ = TlsTrust::forApp();
    rest_ = new QNetworkAccessManager(this);
    rest_->setCookieJar(new NoCookies(rest_));
    rest_->setTransferTimeout(timing_.requestTimeoutMs);
    rest_->setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);

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
    // Only the User-Agent is set: nothing is cached, so no cache headers are asked for.
    QNetworkRequest request(QUrl(httpBase_ + path));
    request.setHeader(QNetworkRequest::UserAgentHeader, Tarnwick::userAgent());
    request.setTransferTimeout(timing_.requestTimeoutMs);
    if (!tls_.isNull())
        request.setSslConfiguration(tls_);
    QElapsedTimer clock;
    clock.start();
    QNetworkReply *reply = rest_->get(request);
    // Certificate errors are noted for the log and the panel, never ignored:
    // the reply then fails with a handshake error.
    auto tlsErrors = std::make_shared<QList<QSslError>>();
    connect(reply, &QNetworkReply::sslErrors, this,
            [tlsErrors](const QList<QSslError> &errors) { *tlsErrors = errors; });
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, tlsErrors] { classifyReply(reply, *tlsErrors); });
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
    const qint64 maxBody = limits_.maxBodyBytes;
    auto cut = [this, reply, pending, what](const QString &why) {
        if (!pending->failure.isEmpty())
            return;
        pending->failure = why;
        pending->body.clear();
        pending->body.squeeze();
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
    const int deadlineMs = timing_.requestDeadlineMs;
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
                noteClock(reply->rawHeader("Date"));
                // The round trip counts even when the body turns out not to decode.
                if (onLatency)
                    onLatency(double(clock.nsecsElapsed()) / 1000000.0);
                done(std::move(pending->body), QString());
            });
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
    auto it = traders_.constFind(handle);
    return it == traders_.cend() ? nullptr : &it.value();
}

const TwToken *TarnwickClient::token(const QString &address) const
{
    auto it = tokens_.constFind(address.toLower());
    return it == tokens_.cend() ? nullptr : &it.value();
}

void TarnwickClient::noteClock(const QByteArray &dateHeader)
{
    if (dateHeader.isEmpty())
        return;
    // HTTP dates end in "GMT", which this Qt's RFC 2822 reader does not take.
    QString text = QString::fromLatin1(dateHeader).trimmed();
    if (text.endsWith(QLatin1String(" GMT")))
        text = text.chopped(3) + QStringLiteral("+0000");
    const QDateTime date = QDateTime::fromString(text, Qt::RFC2822Date);
    if (!date.isValid())
        return;
    // The header has whole seconds and the answer took its time: only a
    // difference well past both is a skew. Estimates of one skew differ by a
    // second or so; the offset moves only when the clocks really moved, or
    // every stamp would shift a little with each answer (and a fill seen
    // before could read as newer than the newest taken).
    const double offset = double(date.toSecsSinceEpoch()) - now_();
    if (std::fabs(offset - clockOffset_) > offsetSettle)
        clockOffset_ = std::fabs(offset) > skewThreshold ? offset : 0;
    if (clockOffset_ != 0 && !skewLogged_) {
        skewLogged_ = true;
        notice(QStringLiteral("clock skew: the tape service's clock is ") +
               QString::number(std::fabs(offset), 'f', 0) +
               (offset > 0 ? QStringLiteral(" s ahead of") : QStringLiteral(" s behind")) +
               QStringLiteral(" this machine's; its stamps are read in local time"));
    }
}

bool TarnwickClient::readStamp(double &ts, const char *what)
{
    const double now = now_();
    const double local = ts - clockOffset_;
    if (!std::isfinite(ts) || ts < earliestStamp || local > now + maxStampAhead) {
        notice(QLatin1String(what) + QStringLiteral(" stamped ") + QString::number(ts, 'g', 12) +
               QStringLiteral(" is out of range, dropped"));
        return false;
    }
    if (local > now) {
        // A stamp a little ahead happened now: it must not sit above newer
        // fills, nor outlive them.
        if (local - now > skewThreshold && !aheadLogged_) {
            aheadLogged_ = true;
            notice(QStringLiteral("clock skew: stamps run ") + QString::number(local - now, 'f', 0) +
                   QStringLiteral(" s ahead of this machine's clock; taken as now"));
        }
        ts = now;
        return true;
    }
    ts = local;
    return true;
}

void TarnwickClient::deliver(QList<TwFill> fills, bool gated)
{
    // Malformed stamps drop their fill here; the rest keep the service's own
    // stamp until they are handed on. The mark compares those: read in local
    // time (offset, clamped to now) one fill would read differently from one
    // answer to the next.
    const qsizetype before = fills.size();
    qsizetype good = 0;
    for (qsizetype i = 0; i < fills.size(); ++i)
        if (double local = fills[i].ts; readStamp(local, "a fill"))
            fills[good++] = std::move(fills[i]);
    fills.resize(good);
    fillsDropped_ += before - good;
    if (fills.isEmpty())
        return;

    const double newest = std::ranges::max(fills, {}, &TwFill::ts).ts;
    const bool noneAbove =
        std::ranges::all_of(fills, [this](const TwFill &f) { return f.id <= lastFillId_; });
    if (lastFillId_ > 0 && noneAbove && newest > markTs_) {
        // Fills newer than anything taken, all under the mark: the service
        // numbers its fills afresh (a redeploy). The mark follows it, and so
        // does everyone who remembers ids.
        const qint64 old = lastFillId_;
        lastFillId_ = 0;
        markTs_ = 0;
        leapCandidate_.reset();
        ++restarts_;
        notice(QStringLiteral("tape restarted: fill ids begin again below ") + QString::number(old) +
               QStringLiteral(", following the new numbering"));
        if (onRestart)
            onRestart();
    }

    QList<TwFill> kept;
    kept.reserve(fills.size());
    if (lastFillId_ == 0) {
        // Nothing taken yet: the mark is the newest id that sits with the
        // others. An id far above the median waits like a leap.
        std::vector<qint64> ids;
        ids.reserve(size_t(fills.size()));
        for (const TwFill &f : fills)
            ids.push_back(f.id);
        std::nth_element(ids.begin(), ids.begin() + qsizetype(ids.size() / 2), ids.end());
        const qint64 median = ids[ids.size() / 2];
        for (const TwFill &f : fills) {
            if (f.id <= median || f.id - median <= idLeap) {
                lastFillId_ = std::max(lastFillId_, f.id);
                markTs_ = std::max(markTs_, f.ts);
            } else {
                leapCandidate_ = f.id;
            }
        }
        kept = std::move(fills);
    } else {
        for (TwFill &f : fills) {
            if (f.id <= lastFillId_) {
                if (!gated)
                    kept.append(std::move(f)); // the backfill refills the panel
                continue;
            }
            if (f.id - lastFillId_ > idLeap) {
                if (leapCandidate_ && *leapCandidate_ != f.id &&
                    std::max(*leapCandidate_, f.id) - std::min(*leapCandidate_, f.id) <= idLeap) {
                    notice(QStringLiteral("fill ids leapt from ") + QString::number(lastFillId_) +
                           QStringLiteral(" to ") + QString::number(f.id) + QStringLiteral(", following"));
                    lastFillId_ = std::max(*leapCandidate_, f.id);
                    markTs_ = std::max(markTs_, f.ts);
                    leapCandidate_.reset();
                } else {
                    leapCandidate_ = f.id; // taken, but the mark stays
                }
                kept.append(std::move(f));
                continue;
            }
            lastFillId_ = f.id;
            markTs_ = std::max(markTs_, f.ts);
            kept.append(std::move(f));
        }
    }
    if (kept.isEmpty())
        return;
    for (TwFill &f : kept)
        readStamp(f.ts, "a fill"); // in range: only read in local time
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
    enrichmentFetchedAt_.reset();
}

void TarnwickClient::ensureEnrichment()
{
    if (enrichmentRunning_)
        return;
    if (enrichmentFetchedAt_ && now_() - *enrichmentFetchedAt_ < timing_.enrichmentFreshSeconds)
        return;
    loadEnrichment();
}

void TarnwickClient::loadEnrichment()
{
    enrichmentRunning_ = true;
    // Both tables are asked for together; each replaces its old copy only when
    // it arrives whole, so a failed half keeps the last good table.
    struct Pending {
        int left = 2;
    };
    auto pending = std::make_shared<Pending>();
    // A table is held whole for minutes: past its bound the rest is left out.
    auto cap = [this](auto &list, const char *what) {
        if (list.size() <= limits_.maxTableRows)
            return;
        notice(QStringLiteral("GET /") + QLatin1String(what) + QStringLiteral(" over ") +
               QString::number(limits_.maxTableRows) + QStringLiteral(" rows: the rest left out"));
        list.resize(limits_.maxTableRows);
    };
    auto finishOne = [this, pending] {
        if (--pending->left == 0) {
            enrichmentFetchedAt_ = now_();
            enrichmentRunning_ = false;
        }
    };
    fetch(QStringLiteral("/traders?window=24h&stocks=true"), this,
          [this, finishOne, cap](std::optional<QByteArray> body, QString) {
              if (body) {
                  if (auto list = TwDecode::traders(*body)) {
                      cap(*list, "traders");
                      QHash<QString, TwTrader> table;
                      for (const TwTrader &t : *list)
                          table.insert(t.handle, t);
                      traders_ = std::move(table);
                  }
              }
              finishOne();
          });
    fetch(QStringLiteral("/tokens?window=24h&stocks=true&limit=200"), this,
          [this, finishOne, cap](std::optional<QByteArray> body, QString) {
              if (body) {
                  if (auto list = TwDecode::tokens(*body)) {
                      cap(*list, "tokens");
                      QHash<QString, TwToken> table;
                      for (const TwToken &t : *list)
                          table.insert(t.token.toLower(), t);
                      tokens_ = std::move(table);
                  }
              }
              finishOne();
          });
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
                  if (readStamp(entry.firstTs, "a radar entry"))
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

    // Qt checks each frame's announced size, but it gathers the frames of one
    // message without a bound: the frames are counted here as they come, and
    // a message that grows past the limit ends its socket.
    auto counted = std::make_shared<qint64>(0);
    auto countFrame = [this, s, counted](qint64 size, bool last) {
        if (socket_ != s || *counted < 0)
            return;
        *counted += size;
        if (*counted > limits_.maxMessageBytes) {
            *counted = -1; // once
            log(QStringLiteral("receive FAILED: a message over ") + QString::number(limits_.maxMessageBytes) +
                QStringLiteral(" bytes, dropped; the socket is closed"));
            QMetaObject::invokeMethod(
                this,
                [this, s] {
                    if (socket_ == s)
                        socketDidClose();
                },
                Qt::QueuedConnection);
            return;
        }
        if (last)
            *counted = 0;
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
            [this, s, tlsErrors](QAbstractSocket::SocketError error) {
                if (socket_ == s)
                    classifySocketError(error, s->errorString(), *tlsErrors);
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
        log(QStringLiteral("ping ok · frames=") + QString::number(framesReceived_) +
            QStringLiteral(" fills=") + QString::number(fillsReceived_));
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
        diagnose();
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
        setTrouble({});
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

    ++framesReceived_;
    if (onFrame)
        onFrame();
    const auto frame = bytes.isEmpty() ? std::nullopt : TwDecode::socketFrame(bytes);
    const QString n = verbose_ ? QString::number(framesReceived_) : QString();
    if (!frame) {
        log(QStringLiteral("frame #") + n + QStringLiteral(" UNDECODABLE"));
        return;
    }
    if (frame->data) {
        QList<TwFill> fills = *frame->data;
        fillsReceived_ += fills.size();
        if (verbose_)
            log(QStringLiteral("frame #") + n + QStringLiteral(" fills=") + QString::number(fills.size()) +
                QStringLiteral(" (total ") + QString::number(fillsReceived_) + QLatin1Char(')'));
        if (frame->droppedFills > 0) {
            fillsDropped_ += frame->droppedFills;
            log(QStringLiteral("frame #") + n + QLatin1Char(' ') + QString::number(frame->droppedFills) +
                QStringLiteral(" fills did not decode, dropped"));
        }
        if (fills.size() > limits_.maxFillsPerFrame) {
            // A burst no service sends: the newest are kept, so the mark moves on.
            const qsizetype over = fills.size() - limits_.maxFillsPerFrame;
            fillsDropped_ += over;
            log(QStringLiteral("frame #") + n + QStringLiteral(" over ") +
                QString::number(limits_.maxFillsPerFrame) + QStringLiteral(" fills: the oldest ") +
                QString::number(over) + QStringLiteral(" dropped"));
            fills.remove(0, over);
        }
        newestDelivered_ = 0;
        deliver(std::move(fills), true);
        // The lateness is only known while both clocks agree.
        if (newestDelivered_ > 0 && clockOffset_ == 0) {
            const double now = now_();
            const double late = std::max(0.0, (now - newestDelivered_) * 1000);
            worstLateMs_ = std::max(worstLateMs_, late);
            windowLateMs_ = std::max(windowLateMs_, late);
            ++windowFrames_;
            if (!windowStart_)
                windowStart_ = now;
            if (now - *windowStart_ >= 20) {
                if (verbose_)
                    log(QStringLiteral("fills handled at most ") + QString::number(windowLateMs_, 'f', 0) +
                        QStringLiteral(" ms after their stamp in the last 20 s (") +
                        QString::number(windowFrames_) + QStringLiteral(" frames)"));
                windowStart_ = now;
                windowLateMs_ = 0;
                windowFrames_ = 0;
            }
        }
    } else if (verbose_) {
        // Wire text goes to the log as it came; it is never interpreted.
        log(QStringLiteral("frame #") + n + QStringLiteral(" type=") + frame->type);
    }
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

// ---- TLS and reachability ----

QString TarnwickClient::serviceAddress() const
{
    const QUrl url(httpBase_);
    return url.host() + QLatin1Char(':') +
           QString::number(url.port(url.scheme() == QLatin1String("https") ? 443 : 80));
}

void TarnwickClient::classifyReply(QNetworkReply *reply, const QList<QSslError> &tlsErrors)
{
    if (stopped_)
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

void TarnwickClient::classifySocketError(int error, const QString &errorString,
                                         const QList<QSslError> &tlsErrors)
{
    if (stopped_)
        return;
    switch (QAbstractSocket::SocketError(error)) {
    case QAbstractSocket::SslHandshakeFailedError:
        unverified(tlsErrors.isEmpty() ? TlsTrust::describeHandshake(errorString)
                                       : TlsTrust::describe(tlsErrors),
                   errorString);
        break;
    case QAbstractSocket::ConnectionRefusedError:
    case QAbstractSocket::HostNotFoundError:
        setTrouble({LinkTrouble::unreachable, serviceAddress(), {}}, errorString);
        break;
    default: break; // the REST side and the handshake clock tell the rest
    }
}

void TarnwickClient::unverified(const QString &why, const QString &detail)
{
    setTrouble({LinkTrouble::unverified, serviceAddress(), why}, detail);
}

void TarnwickClient::setTrouble(const LinkTrouble &trouble, const QString &detail)
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

void TarnwickClient::diagnose()
{
    if (stopped_ || probe_)
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
        if (verdict && !stopped_ && generation == generation_)
            setTrouble(*verdict, detail);
    };
    const QString where = serviceAddress();
    auto *clock = new QTimer(probe);
    clock->setSingleShot(true);
    connect(clock, &QTimer::timeout, this, [this, state, finish, where] {
        if (state->connected)
            finish(LinkTrouble{LinkTrouble::unverified, where,
                               QStringLiteral("no TLS handshake within ") +
                                   QString::number(timing_.handshakeTimeoutMs) + QStringLiteral(" ms")},
                   {});
        else
            finish(LinkTrouble{LinkTrouble::unreachable, where, {}},
                   QStringLiteral("no connection within ") + QString::number(timing_.handshakeTimeoutMs) +
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
    clock->start(timing_.handshakeTimeoutMs);
}
