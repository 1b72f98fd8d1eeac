// The link over TLS against the local tape service with a throw-away CA: the
// whole link works over https and wss when the certificate is trusted; every
// certificate or handshake that cannot prove the service's identity is refused
// before a single request goes through, said once in the log and published as
// the link's trouble; nothing answering at the address is told apart from both.

#include "CaptureStderr.h"
#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Feed/TlsTrust.h"
#include "IsolatedSettings.h"
#include "Table.h"
#include "TarnwickSim.h"
#include "TestCa.h"
#include "Wire/Tarnwick.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

using namespace tarnwick;
using namespace Qt::StringLiterals;

namespace {
// clang-format off
// `cert`: the service's certificate (its key has the same name); `trusted`:
// the client is given the test CA; `why`: what the trouble says.
struct Refusal { const char *name; const char *cert; bool trusted, legacy, stall; QString why; };
const Refusal refusals[] = {
    {.name = "self-signed", .cert = "selfsigned", .trusted = true, .legacy = false, .stall = false,
     .why = u"self-signed certificate"_s},
    {.name = "expired", .cert = "expired", .trusted = true, .legacy = false, .stall = false,
     .why = u"certificate expired"_s},
    {.name = "for another host name", .cert = "otherhost", .trusted = true, .legacy = false, .stall = false,
     .why = u"certificate is for another host name"_s},
    {.name = "unknown authority (an intercepting proxy)", .cert = "server", .trusted = false, .legacy = false,
     .stall = false, .why = u"certificate from an unknown authority"_s},
    {.name = "TLS 1.1 at most", .cert = "server", .trusted = true, .legacy = true, .stall = false,
     .why = u"it offers no TLS 1.2 or later"_s},
    {.name = "handshake stalls", .cert = "server", .trusted = true, .legacy = false, .stall = true,
     .why = u"no TLS handshake within 1000 ms"_s},
};
struct Switch { const char *name; QString value, httpBase, socketURL; };
const Switch switches[] = {
    {.name = "host:port stays plain", .value = u"127.0.0.1:47800"_s,
     .httpBase = u"http://127.0.0.1:47800/api"_s, .socketURL = u"ws://127.0.0.1:47800/ws"_s},
    {.name = "https base", .value = u"https://127.0.0.1:8443"_s, .httpBase = u"https://127.0.0.1:8443/api"_s,
     .socketURL = u"wss://127.0.0.1:8443/ws"_s},
    {.name = "https, default port", .value = u"https://tape.example"_s,
     .httpBase = u"https://tape.example:443/api"_s, .socketURL = u"wss://tape.example:443/ws"_s},
    {.name = "http base, trailing slash", .value = u" http://localhost:9/ "_s,
     .httpBase = u"http://localhost:9/api"_s, .socketURL = u"ws://localhost:9/ws"_s},
    {.name = "other scheme", .value = u"ftp://127.0.0.1:21"_s, .httpBase = {}, .socketURL = {}},
    {.name = "a path", .value = u"https://127.0.0.1:8443/v2"_s, .httpBase = {}, .socketURL = {}},
    {.name = "credentials", .value = u"https://me:pw@127.0.0.1:8443"_s, .httpBase = {}, .socketURL = {}},
    {.name = "a query", .value = u"https://127.0.0.1:8443?x=1"_s, .httpBase = {}, .socketURL = {}},
    {.name = "port 0", .value = u"127.0.0.1:0"_s, .httpBase = {}, .socketURL = {}},
    {.name = "no port", .value = u"127.0.0.1"_s, .httpBase = {}, .socketURL = {}},
};
// clang-format on

TarnwickTiming quick()
{
    return {.requestTimeoutMs = 1500,
            .requestDeadlineMs = 5000,
            .openWatchdogMs = 1500,
            .handshakeTimeoutMs = 1000,
            .pingIntervalMs = 2000,
            .pollIntervalMs = 300,
            .radarIntervalMs = 1000,
            .reconnectScale = 0.05};
}

// A trouble as one line, so that a failed comparison shows both.
QString text(const LinkTrouble &t)
{
    return LinkStates::troubleName(t.kind) + u" at "_s + t.where + u": "_s + t.why;
}

// A port nothing listens on (taken and given back at once).
quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}
} // namespace

class TlsTest : public QObject {
    Q_OBJECT

    TestCa ca_;
    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<FeedStore> store_;

    bool startSim(SimTls tls, quint16 port = 0)
    {
        sim_ =
            std::make_unique<SimServer>(SimOptions{.port = port, .seed = 3, .autoTape = false, .tls = tls});
        QString error;
        const bool ok = sim_->start(&error);
        if (!ok)
            qWarning("%s", qPrintable(error));
        return ok;
    }
    SimTls serving(const char *cert) const
    {
        return {.certificateFile = ca_.cert(cert), .keyFile = ca_.key(cert)};
    }

    FeedStore &makeStore(const QString &httpBase, const QString &socketURL, bool trusted = true)
    {
        auto *client = new TarnwickClient(httpBase, socketURL, quick(), systemNow);
        client->setTlsConfiguration(TlsTrust::configuration(trusted ? ca_.ca() : QString()));
        store_ = std::make_unique<FeedStore>(client, systemNow);
        return *store_;
    }

    // The store is on the link as the app's is, until every part of it has worked.
    void provesTheWholeLink(FeedStore &store)
    {
        TarnwickClient &client = store.client();
        int radars = 0;
        const auto storeRadar = client.onRadar;
        client.onRadar = [&](const QList<TwRadar> &radar) {
            ++radars;
            storeRadar(radar);
        };
        store.start();
        QTRY_VERIFY_WITH_TIMEOUT(store.link() == LinkState::live, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(store.backfilled() && store.fillsIngested() > 0, 20000); // backfill
        QTRY_VERIFY_WITH_TIMEOUT(radars > 0, 20000);                                      // radar loop
        const qint64 before = store.fillsIngested();
        const qint64 framesBefore = client.framesReceived();
        sim_->emitFills(3); // socket
        QTRY_VERIFY_WITH_TIMEOUT(client.framesReceived() > framesBefore, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(store.fillsIngested(), before + 3, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(!store.signalList().isEmpty(), 20000);
        const Signal s = store.signalList().first(); // detail
        store.loadDetail(s);
        QTRY_VERIFY_WITH_TIMEOUT(store.details().contains(s.id), 20000);
        QVERIFY(store.failedDetail().isEmpty());
        QCOMPARE(store.link(), LinkState::live);
        QCOMPARE(text(store.trouble()), text({}));
        QCOMPARE(sim_->tlsHandshakesFailed(), 0);
        client.onRadar = storeRadar;
    }

private Q_SLOTS:
    void initTestCase()
    {
        isolateSettings();
        qputenv("LARKPIN_LOG", "1");
        QString error;
        QVERIFY2(ca_.make(&error), qPrintable(error));
        QVERIFY(QSslSocket::supportsSsl());
    }
    void cleanup()
    {
        store_.reset();
        sim_.reset();
    }

    // First: the switch and the CA file are read once per process.
    void appClientFollowsTheSwitch()
    {
        QVERIFY(startSim(serving("server")));
        qputenv("LARKPIN_SERVICE", sim_->httpBase().chopped(4).toUtf8()); // https://127.0.0.1:port
        qputenv("LARKPIN_CA_FILE", ca_.ca().toUtf8());
        QCOMPARE(Tarnwick::httpBase(), sim_->httpBase());
        QCOMPARE(Tarnwick::socketURL(), sim_->socketURL());
        store_ = std::make_unique<FeedStore>(); // the app's store, addresses and trust as built
        provesTheWholeLink(*store_);
    }

    void switchParsing_data() { rows(switches); }
    void switchParsing()
    {
        const Switch &r = row(switches);
        const Tarnwick::Service s = Tarnwick::parseService(r.value);
        QCOMPARE(s.httpBase, r.httpBase);
        QCOMPARE(s.socketURL, r.socketURL);
    }

    void trustIsStrict()
    {
        const QSslConfiguration withCa = TlsTrust::configuration(ca_.ca());
        QCOMPARE(withCa.protocol(), QSsl::TlsV1_2OrLater);
        QCOMPARE(withCa.peerVerifyMode(), QSslSocket::VerifyPeer);
        const QSslCertificate ours = QSslCertificate::fromPath(ca_.ca()).value(0);
        QVERIFY(withCa.caCertificates().contains(ours));
        // A CA file that cannot be read is said, and nothing extra is trusted.
        QString error;
        const QSslConfiguration without = TlsTrust::configuration(ca_.file("missing.pem"), &error);
        QVERIFY(error.contains(u"cannot read the CA file"_s));
        QVERIFY(!without.caCertificates().contains(ours));
        error.clear();
        TlsTrust::configuration(ca_.key("server"), &error); // a key is no certificate
        QVERIFY(error.contains(u"no PEM certificate"_s));
    }

    void wholeLinkOverHttpsAndWss()
    {
        QVERIFY(startSim(serving("server")));
        QVERIFY(sim_->httpBase().startsWith(u"https://"_s) && sim_->socketURL().startsWith(u"wss://"_s));
        provesTheWholeLink(makeStore(sim_->httpBase(), sim_->socketURL()));
    }

    void refused_data() { rows(refusals); }
    void refused()
    {
        const Refusal &r = row(refusals);
        SimTls tls = serving(r.cert);
        tls.legacyOnly = r.legacy;
        tls.stallHandshake = r.stall;
        QVERIFY(startSim(tls));
        CaptureStderr err;
        FeedStore &store = makeStore(sim_->httpBase(), sim_->socketURL(), r.trusted);
        QSignalSpy troubles(&store, &FeedStore::troubleChanged);
        store.start();
        const LinkTrouble expected{LinkTrouble::unverified, u"127.0.0.1:%1"_s.arg(sim_->port()), r.why};
        QTRY_COMPARE_WITH_TIMEOUT(text(store.trouble()), text(expected), 20000);
        // The link fails as for any other failure, and keeps trying: let a few
        // more attempts fail the same way.
        QTRY_COMPARE_WITH_TIMEOUT(store.link(), LinkState::polling, 20000);
        const int attempts = sim_->tlsHandshakesFailed();
        QTRY_VERIFY_WITH_TIMEOUT(sim_->tlsHandshakesFailed() >= attempts + 4, 30000);
        // Nothing went past the handshake: not one request nor socket was served.
        QCOMPARE(sim_->requestCount(u"/"_s), 0);
        QCOMPARE(sim_->handshakesCompleted(), 0);
        QCOMPARE(store.fillsIngested(), 0);
        QCOMPARE(text(store.trouble()), text(expected));
        QCOMPARE(troubles.size(), 1);
        // Said once, with the TLS error.
        const QStringList said = err.messages(u"tw"_s).filter(u"TLS FAILED"_s);
        QCOMPARE(said.size(), 1);
        QVERIFY2(said.first().startsWith(u"TLS FAILED at %1: %2"_s.arg(expected.where, r.why)),
                 qPrintable(said.first()));
    }

    // Nothing listening: told apart from a refused identity, and cleared once
    // the service is there.
    void unreachableThenBack()
    {
        const quint16 port = closedPort();
        CaptureStderr err;
        FeedStore &store =
            makeStore(u"https://127.0.0.1:%1/api"_s.arg(port), u"wss://127.0.0.1:%1/ws"_s.arg(port));
        store.start();
        const LinkTrouble expected{LinkTrouble::unreachable, u"127.0.0.1:%1"_s.arg(port), {}};
        QTRY_COMPARE_WITH_TIMEOUT(text(store.trouble()), text(expected), 20000);
        QVERIFY(startSim(serving("server"), port));
        QTRY_COMPARE_WITH_TIMEOUT(text(store.trouble()), text({}), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(store.fillsIngested() > 0, 20000);
        const QStringList said = err.messages(u"tw"_s);
        QCOMPARE(said.filter(u"connect FAILED: nothing answers at 127.0.0.1:%1"_s.arg(port)).size(), 1);
        QCOMPARE(said.filter(u"the service answers at 127.0.0.1:%1 again"_s.arg(port)).size(), 1);
        QVERIFY(said.filter(u"TLS FAILED"_s).isEmpty());
    }
};

QTEST_MAIN(TlsTest)
#include "tst_tls.moc"
