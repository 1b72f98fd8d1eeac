// Loading a signal's evidence against the local tape service: one request chain
// per signal, loading / failed / loaded, what each kind asks for, which links survive.

#include "Feed/FeedStore.h"
#include "IsolatedSettings.h"
#include "Table.h"
#include "TarnwickSim.h"
#include "Wire/SignalRules.h"

#include <QSignalSpy>
#include <QTest>

using namespace tarnwick;
using namespace Qt::StringLiterals;

namespace {

// clang-format off
struct Failure { const char *name; QString endpoint; EndpointFaultKind kind; };
const Failure failureRows[] = {
    {.name = "tape 500", .endpoint = u"/tape"_s, .kind = EndpointFaultKind::Status500},
    {.name = "tape does not decode", .endpoint = u"/tape"_s, .kind = EndpointFaultKind::BadBody},
    {.name = "trader 204", .endpoint = u"/trader/"_s, .kind = EndpointFaultKind::Status204},
    {.name = "trader too slow", .endpoint = u"/trader/"_s, .kind = EndpointFaultKind::Delay},
};
// clang-format on
} // namespace

class DetailTest : public QObject {
    Q_OBJECT

    std::unique_ptr<SimServer> sim_;
    std::unique_ptr<FeedStore> store_;

    FeedStore &store() { return *store_; }
    TarnwickClient &client() { return store_->client(); }
    int requests(const char *path) const { return sim_->requestCount(QLatin1String(path)); }

    void makeStore()
    {
        auto *client =
            new TarnwickClient(sim_->httpBase(), sim_->socketURL(), {.requestTimeoutMs = 800}, systemNow);
        store_ = std::make_unique<FeedStore>(client, systemNow);
        client->ensureEnrichment();
        QVERIFY(QTest::qWaitFor([&] { return client->enrichmentFetchedAt().has_value(); }, 30000));
    }

    // A fresh fill from the service (it is on the tape now) and its signal.
    Signal fillSignal(bool stock = false)
    {
        for (int i = 0; i < 400; ++i) {
            const std::optional<TwFill> fill = TwDecode::fill(sim_->emitFills(1).first());
            if (!fill || fill->isStock != stock)
                continue;
            if (auto s =
                    SignalRules::signal(*fill, client().trader(fill->handle), client().token(fill->token)))
                return *s;
        }
        qFatal("the sim produced no suitable fill");
    }

    bool loadAndSettle(const Signal &s)
    {
        store().loadDetail(s);
        return QTest::qWaitFor([&] { return !store().loadingDetail().contains(s.id); }, 5000);
    }

private Q_SLOTS:
    void initTestCase() { isolateSettings(); }
    void init()
    {
        sim_ = std::make_unique<SimServer>(SimOptions{.port = 0, .seed = 5, .autoTape = false});
        QString error;
        QVERIFY2(sim_->start(&error), qPrintable(error));
        makeStore();
    }
    void cleanup()
    {
        store_.reset();
        sim_.reset();
    }

    void whaleLoadsOnceWithOneRequestChain()
    {
        const Signal s = fillSignal();
        QSignalSpy loading(&store(), &FeedStore::loadingDetailChanged);
        QSignalSpy failed(&store(), &FeedStore::failedDetailChanged);
        QSignalSpy details(&store(), &FeedStore::detailsChanged);
        const int tape = requests("/tape"), trader = requests("/trader/");
        store().loadDetail(s);
        QVERIFY(loadAndSettle(s)); // a second call while loading joins the first
        QCOMPARE(requests("/tape"), tape + 1);
        QCOMPARE(requests("/trader/"), trader + 1);
        QCOMPARE(std::tuple(loading.count(), details.count(), failed.count()),
                 std::tuple(2, 1, 0)); // in, out

        const SignalDetail d = store().details().value(s.id);
        QVERIFY(d.wallet && d.links.chart && !d.equity);
        // Links: the chart from the token table (else the fill), the profile from the trader table.
        const TwTrader *record = client().trader(s.wallet->label->mid(1));
        QVERIFY(record && record->profileURL);
        QCOMPARE(d.links.profile, std::optional(QUrl(*record->profileURL)));
        QCOMPARE(d.links.chart->scheme(), u"https"_s);

        store().loadDetail(s); // loaded is final: no request, no signal
        QVERIFY(!store().loadingDetail().contains(s.id));
        QCOMPARE(loading.count(), 2);
        QCOMPARE(requests("/tape"), tape + 1);
    }

    void failures_data() { rows(failureRows); }
    void failures()
    {
        const auto &[name, endpoint, kind] = row(failureRows);
        const Signal s = fillSignal();
        sim_->setEndpointFault(endpoint, EndpointFault{kind, 2000});
        QVERIFY(loadAndSettle(s));
        QVERIFY(store().failedDetail().contains(s.id) && !store().details().contains(s.id));

        // A retry clears the failure before its first request goes out, and
        // no observer ever sees the id loading and failed at once.
        sim_->clearFaults();
        QSignalSpy failed(&store(), &FeedStore::failedDetailChanged);
        bool both = false;
        const auto check = [&] {
            both = both || (store().loadingDetail().contains(s.id) && store().failedDetail().contains(s.id));
        };
        connect(&store(), &FeedStore::loadingDetailChanged, this, check);
        connect(&store(), &FeedStore::failedDetailChanged, this, check);
        store().loadDetail(s);
        QVERIFY(!both && !store().failedDetail().contains(s.id) && store().loadingDetail().contains(s.id));
        QCOMPARE(failed.count(), 1);
        QVERIFY(loadAndSettle(s));
        QVERIFY(store().details().contains(s.id) && store().failedDetail().isEmpty());
    }

    void pileInNeverAsksForATrader()
    {
        const TwRadar r{
            .token = u"PoolMintXYZ"_s, .symbol = u"POOL"_s, .buyers = 4, .firstTs = systemNow() - 60};
        const Signal s = *SignalRules::signal(r, systemNow());
        const int before = requests("");
        store().loadDetail(s);
        // Nothing to ask for, yet the load still ends later, not inside the call.
        QVERIFY(store().loadingDetail().contains(s.id));
        QVERIFY(loadAndSettle(s));
        QCOMPARE(requests(""), before); // no tape, no trader
        const SignalDetail d = store().details().value(s.id);
        QVERIFY(d.isBlank() && !d.wallet && !d.equity); // the token is not in the table either
        QVERIFY(!d.links.chart && !d.links.profile);
    }

    void missingEvidenceLeavesGaps()
    {
        // A wallet without a handle (no leading "@") asks for no trader.
        Signal s = fillSignal();
        s.wallet->label = u"kai"_s;
        const int trader = requests("/trader/");
        QVERIFY(loadAndSettle(s));
        QCOMPARE(requests("/trader/"), trader);
        QVERIFY(!store().details().value(s.id).wallet && !store().details().value(s.id).links.profile);

        // A fill gone from the tape and a token not in the table: no chart,
        // but the wallet still loads.
        s = fillSignal();
        s.id = u"tw-fill-999999999"_s;
        s.asset->address = u"NoSuchMint"_s;
        QVERIFY(loadAndSettle(s));
        QVERIFY(!store().details().value(s.id).links.chart && store().details().value(s.id).wallet);
    }

    void equityGetsItsMove()
    {
        const Signal s = fillSignal(true);
        QVERIFY(loadAndSettle(s));
        const SignalDetail d = store().details().value(s.id);
        QVERIFY(d.equity);
        QCOMPARE(d.equity->ticker, s.asset->symbol);
        QCOMPARE(d.equity->session, SignalRules::marketSession(d.fetchedAt));
        const TwToken *token = client().token(*s.asset->address);
        QVERIFY(token);
        QCOMPARE(d.equity->lastPrice, token->mark);
        QCOMPARE(d.equity->change, token->change24 ? std::optional(*token->change24 / 100.0) : std::nullopt);
    }

    void storeGoneMidLoad()
    {
        sim_->setEndpointFault(u"/tape"_s, EndpointFault{EndpointFaultKind::Delay, 150});
        const Signal s = fillSignal();
        store().loadDetail(s);
        store_.reset();
        // The tape request may already be on the wire (the network stack writes
        // from its own thread), so it may or may not reach the service; what
        // must not happen is a second step of the chain or a call into the dead
        // store when the delayed answer lands.
        QTest::qWait(300);
        QCOMPARE(requests("/trader/"), 0);
        QVERIFY(requests("/tape") <= 1);
        makeStore();
    }

    void webLinks()
    {
        for (const char *kept :
             {"https://charts.example/pool/abc", "http://charts.example/x?y=1", "HTTPS://charts.example/"})
            QVERIFY2(FeedStore::webLink(QLatin1String(kept)), kept);
        for (const char *dropped :
             {"javascript:alert(1)", "file:///etc/passwd", "https://", "", "https://charts example/"})
            QVERIFY2(!FeedStore::webLink(QLatin1String(dropped)), dropped);
        QVERIFY(!FeedStore::webLink(std::nullopt));
    }
};

QTEST_GUILESS_MAIN(DetailTest)
#include "tst_detail.moc"
