#pragma once
// The only contact with the tape service: REST (backfill, polling, radar,
// enrichment tables, trader detail) and the live WebSocket with its watchdog,
// keep-alive pings and reconnect schedule. Everything runs on the thread that
// owns the client (the main thread); callbacks are invoked there.

#include "Feed/EnrichmentTables.h"
#include "Feed/FillGate.h"
#include "Feed/LinkDiagnosis.h"
#include "Feed/LinkState.h"
#include "Feed/LiveFrames.h"
#include "Model/Clock.h"
#include "Wire/TarnwickModels.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSslConfiguration>

#include <functional>
#include <optional>

class BoundedFetch;
class QNetworkReply;
class QSslError;
class QTcpSocket;
class QTimer;
class QWebSocket;
class WakeWatch;

// Every interval the link uses, in one place. Tests shorten them.
struct TarnwickTiming {
    int requestTimeoutMs = 12000;  // silence within a request
    int requestDeadlineMs = 30000; // a whole request, however steadily its bytes come
    int openWatchdogMs = 8000;
    int handshakeTimeoutMs = 10000; // a socket not open by then is given up
    int pingIntervalMs = 20000;
    int pollIntervalMs = 5000;
    int radarIntervalMs = 45000;
    double enrichmentFreshSeconds = 120;
    // Reconnect delay is (min(2 × failures + 2, 30) + jitter in [0, 4)) seconds,
    // multiplied by this factor (1 in the app; tests shrink it).
    double reconnectScale = 1.0;
};

// How much the service may send. Both sizes are checked while the bytes
// arrive: nothing larger is ever held whole.
struct TarnwickLimits {
    // Parsing 1 MiB of JSON takes ~20 ms, a frame or two of the views.
    qint64 maxMessageBytes = 1024 * 1024; // one socket message (a real frame is a few KB)
    qint64 maxBodyBytes = 1024 * 1024;    // one REST answer (the largest, 200 fills, is ~100 KB)
    int maxFillsPerFrame = 2000;          // beyond this the oldest of a frame are dropped
    int maxTableRows = 5000;              // per enrichment table (a real one holds a few hundred)
};

class TarnwickClient : public QObject {
    Q_OBJECT
public:
    explicit TarnwickClient(QObject *parent = nullptr); // build-time addresses, standard timing
    TarnwickClient(QString httpBase, QString socketURL, TarnwickTiming timing, Clock now,
                   QObject *parent = nullptr);
    ~TarnwickClient() override;

    void start();
    void stop();
    // Set before start(); tests lower them.
    void setLimits(const TarnwickLimits &limits) { limits_ = limits; }
    const TarnwickLimits &limits() const { return limits_; }
    // The machine woke or the network came back: drop the socket that may
    // lead nowhere, connect again at once and catch up on the tape. Bursts
    // of calls within a quarter second make one reconnect.
    void wake(const QString &reason);
    // Wakes the link on every `woke` of this watch (the app's client makes
    // its own; tests pass one they drive).
    void watch(WakeWatch *watch);

    std::function<void(const QList<TwFill> &)> onFills;
    std::function<void(const QList<TwRadar> &)> onRadar;
    std::function<void(LinkState)> onLink;
    std::function<void(double)> onLatency; // REST round trip in ms
    std::function<void()> onFrame;
    std::function<void()> onBackfill; // after start()'s backfill, delivered or failed
    // The service's fill ids began again below the mark (a redeploy): whatever
    // remembers fill ids must forget the old numbering.
    std::function<void()> onRestart;
    // The cause of the failures, when known; `none` again once the service answers.
    std::function<void(const LinkTrouble &)> onTrouble;

    // What TLS trusts; set before start(). A client of an https/wss service
    // trusts the system's authorities and LARKPIN_CA_FILE's.
    void setTlsConfiguration(const QSslConfiguration &configuration) { tls_ = configuration; }
    const QSslConfiguration &tlsConfiguration() const { return tls_; }
    const LinkTrouble &trouble() const { return diagnosis_->trouble(); }
    QString serviceAddress() const { return diagnosis_->serviceAddress(); } // host:port of the REST base

    // Enrichment tables (no network).
    const TwTrader *trader(const QString &handle) const;
    const TwToken *token(const QString &address) const; // case-insensitive
    void ensureEnrichment();
    void clearEnrichmentStamp();
    void refresh(); // one radar fetch

    // REST on demand. The callback runs on the client's thread with the
    // decoded value, or with nullopt and an error text. `context` ends the
    // request's delivery when it is destroyed.
    using TraderDetailCallback = std::function<void(std::optional<TwTraderDetail>, QString error)>;
    void traderDetail(const QString &handle, QObject *context, TraderDetailCallback done);
    using TapeCallback = std::function<void(std::optional<QList<TwFill>>, QString error)>;
    void tape(int limit, QObject *context, TapeCallback done);

    // Pure helpers, public for tests.
    static QString traderPath(const QString &handle);
    static double reconnectBaseDelay(int failures); // min(2f + 2, 30) seconds
    static double jitter();                         // uniform in [0, 4)
    // The gate's bounds (see FillGate).
    static constexpr qint64 idLeap = FillGate::idLeap;
    static constexpr double earliestStamp = FillGate::earliestStamp;
    static constexpr double maxStampAhead = FillGate::maxStampAhead;
    static constexpr double skewThreshold = FillGate::skewThreshold;
    static constexpr double offsetSettle = FillGate::offsetSettle;

    // State, for tests and the measuring scripts.
    bool isStopped() const { return stopped_; }
    bool socketOpenedOnce() const { return socketOpenedOnce_; }
    int socketFailures() const { return socketFailures_; }
    qint64 lastFillId() const { return gate_.lastFillId(); }
    qint64 framesReceived() const { return frames_.frames(); }
    qint64 fillsReceived() const { return frames_.fills(); }
    // Fills undecodable, over the per-frame cap or stamped out of range.
    qint64 fillsDropped() const { return frames_.dropped() + gate_.stampsDropped(); }
    int restarts() const { return gate_.restarts(); } // times the service's ids began again lower
    // The service's clock minus ours, 0 while they agree within the threshold.
    double clockOffset() const { return gate_.clockOffset(); }
    // The last reconnect wait scheduled, in seconds before the test scale
    // (back-off and jitter), and how many were scheduled.
    double lastReconnectDelay() const { return lastReconnectDelay_; }
    int catchUps() const { return catchUps_; } // gated tape requests after a reconnect or a wake
    int pendingReconnectMs() const;            // the wait the reconnect timer was started with, or -1
    // How late live fills are taken in: from the newest fill's own stamp to the
    // end of its frame's handling (the store's work included), at most, since
    // start. With the trace on, the worst of every 20 s is logged too.
    double worstLatenessMs() const { return lateness_.worstMs(); }
    int wakes() const { return wakes_; }
    bool isPolling() const;
    bool hasSocket() const;
    bool enrichmentRunning() const { return tables_.running(); }
    std::optional<double> enrichmentFetchedAt() const { return tables_.fetchedAt(); }
    int traderCount() const { return tables_.traderCount(); }
    int tokenCount() const { return tables_.tokenCount(); }
    const TarnwickTiming &timing() const { return timing_; }
    QString httpBase() const { return httpBase_; }

private:
    using BodyCallback = std::function<void(std::optional<QByteArray>, QString error)>;
    void fetch(const QString &path, QObject *context, BodyCallback done);
    void backfill(int attempt);
    void connectSocket();
    void dropSocket(QWebSocket *s);
    void onMessage(QWebSocket *socket, const QByteArray &bytes, bool text);
    void deliver(QList<TwFill> fills, bool gated);
    void catchUp();
    void startPolling();
    void stopPolling();
    void pollOnce();
    void startRadarLoop();
    void fetchRadar(bool loop);
    void socketDidClose();
    void scheduleReconnect();
    void log(const QString &message) const;
    void notice(const QString &message) const; // the trace, or the journal without it
    QSslConfiguration tls_;
    LinkDiagnosis *diagnosis_ = nullptr;
    BoundedFetch *fetcher_ = nullptr;
    QString httpBase_;
    QString socketURL_;
    TarnwickTiming timing_;
    Clock now_;
    FillGate gate_;
    EnrichmentTables tables_;
    QPointer<QWebSocket> socket_;
    QTimer *pingTimer_ = nullptr;
    QTimer *pollTimer_ = nullptr;
    QTimer *radarTimer_ = nullptr;
    QTimer *reconnectTimer_ = nullptr;
    QTimer *openWatchdog_ = nullptr;
    QTimer *handshakeTimer_ = nullptr;
    QTimer *wakeTimer_ = nullptr;
    QTimer *backfillTimer_ = nullptr;
    QString wakeReason_;
    TarnwickLimits limits_;
    bool awaitingPong_ = false;
    bool polling_ = false;
    quint64 pollGeneration_ = 0;
    bool socketOpenedOnce_ = false;
    int socketFailures_ = 0;
    bool stopped_ = true;
    bool reconnecting_ = false; // the next open socket follows a drop: catch up
    double lastReconnectDelay_ = 0;
    int catchUps_ = 0;
    double newestDelivered_ = 0; // local stamp of the newest fill of the last delivery
    LatenessMeter lateness_;
    bool verbose_ = false;
    FrameReader frames_; // after verbose_
    int wakes_ = 0;
    quint64 generation_ = 0; // bumps on stop(): stale replies and timers end quietly
};
