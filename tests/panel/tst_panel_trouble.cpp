// What the panel's empty state and the strip's tooltip say when the link
// fails for a known cause: nothing answers at the address (and where it
// looked, and how to start the bundled service when it is installed), or the
// service cannot prove who it is. Both differ from a quiet tape.

#include "Feed/TlsTrust.h"
#include "Menu/StatusItemController.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelText.h"
#include "PanelTestSupport.h"
#include "Table.h"
#include "TestCa.h"

using namespace tarnwick;
using namespace Qt::StringLiterals;

namespace {
const QString slashed = u"antenna.radiowaves.left.and.right.slash"_s;
const QString wave = u"wave.3.right"_s;
const QString bundled = QString::fromLatin1(PanelText::bundledServicePath);
const LinkTrouble unreachable{LinkTrouble::unreachable, u"127.0.0.1:47800"_s, {}};
const LinkTrouble expired{LinkTrouble::unverified, u"tape.example:443"_s, u"certificate expired"_s};

// clang-format off
struct Empty { const char *name; bool visibleEmpty; LinkState link; LinkTrouble trouble; QString bundled, symbol, message; };
const Empty empties[] = {
    {.name = "quiet tape", .visibleEmpty = true, .link = LinkState::live, .trouble = {}, .bundled = bundled,
     .symbol = wave, .message = u"Nothing on the wire right now."_s},
    {.name = "polling, no known cause", .visibleEmpty = true, .link = LinkState::polling, .trouble = {},
     .bundled = {}, .symbol = wave, .message = u"Nothing on the wire right now."_s},
    {.name = "unreachable, bundled service installed", .visibleEmpty = true, .link = LinkState::polling,
     .trouble = unreachable, .bundled = bundled, .symbol = slashed,
     .message = u"Can't reach the tape service at 127.0.0.1:47800.\nStart the bundled one: /usr/libexec/larkpin/tarnwick-sim"_s},
    {.name = "unreachable elsewhere: no local service offered", .visibleEmpty = true,
     .link = LinkState::polling, .trouble = {LinkTrouble::unreachable, u"tape.example:443"_s, {}},
     .bundled = bundled, .symbol = slashed,
     .message = u"Can't reach the tape service at tape.example:443."_s},
    {.name = "unreachable, nothing installed", .visibleEmpty = true, .link = LinkState::connecting,
     .trouble = unreachable, .bundled = {}, .symbol = slashed,
     .message = u"Can't reach the tape service at 127.0.0.1:47800."_s},
    {.name = "unverified", .visibleEmpty = true, .link = LinkState::polling, .trouble = expired,
     .bundled = bundled, .symbol = slashed,
     .message = u"Can't verify the identity of the tape service at tape.example:443.\nCertificate expired: the link stays closed."_s},
    {.name = "unverified while down", .visibleEmpty = true, .link = LinkState::down, .trouble = expired,
     .bundled = {}, .symbol = slashed,
     .message = u"Can't verify the identity of the tape service at tape.example:443.\nCertificate expired: the link stays closed."_s},
    {.name = "signals shown: the stream's own text", .visibleEmpty = false, .link = LinkState::polling,
     .trouble = unreachable, .bundled = bundled, .symbol = wave,
     .message = u"Nothing in this stream right now."_s},
};
struct Tip { const char *name; LinkTrouble trouble; QString tip; };
const Tip tips[] = {
    {.name = "none", .trouble = {}, .tip = {}},
    {.name = "unreachable", .trouble = unreachable,
     .tip = u"Larkpin \u2014 can't reach the tape service at 127.0.0.1:47800"_s},
    {.name = "unverified", .trouble = expired,
     .tip = u"Larkpin \u2014 can't verify the tape service at tape.example:443 (certificate expired)"_s},
};
// clang-format on

quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}
} // namespace

class PanelTroubleTest : public QObject {
    Q_OBJECT

    TestCa ca_;

    static std::unique_ptr<FeedStore> storeFor(const QString &scheme, quint16 port,
                                               const QString &caFile = {})
    {
        const QString authority = u"127.0.0.1:%1"_s.arg(port);
        TarnwickTiming timing;
        timing.requestTimeoutMs = 1500;
        timing.openWatchdogMs = 1500;
        timing.handshakeTimeoutMs = 1000;
        timing.reconnectScale = 0.05;
        const bool tls = scheme == u"https"_s;
        auto *client =
            new TarnwickClient(scheme + u"://"_s + authority + u"/api"_s,
                               (tls ? u"wss://"_s : u"ws://"_s) + authority + u"/ws"_s, timing, systemNow);
        client->setTlsConfiguration(TlsTrust::configuration(caFile));
        return std::make_unique<FeedStore>(client, systemNow);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QString error;
        QVERIFY2(ca_.make(&error), qPrintable(error));
    }

    void emptyStates_data() { rows(empties); }
    void emptyStates()
    {
        const Empty &r = row(empties);
        const PanelText::EmptyState state =
            PanelText::emptyState(r.visibleEmpty, r.link, r.trouble, r.bundled);
        QCOMPARE(state.message, r.message);
        QCOMPARE(state.symbol, r.symbol);
    }

    void tooltips_data() { rows(tips); }
    void tooltips()
    {
        const Tip &r = row(tips);
        QCOMPARE(StatusItemController::troubleTip(r.trouble), r.tip);
    }

    // A store whose service is not there: the panel and the tooltip say where it looked.
    void nothingAnswers()
    {
        const quint16 port = closedPort();
        auto store = storeFor(u"http"_s, port);
        PanelModel model(store.get());
        QSignalSpy empty(&model, &PanelModel::emptyChanged);
        store->start();
        const QString where = u"127.0.0.1:%1"_s.arg(port);
        QString expected = u"Can't reach the tape service at %1."_s.arg(where);
        if (!PanelModel::bundledService().isEmpty())
            expected += u"\nStart the bundled one: "_s + PanelModel::bundledService();
        QTRY_COMPARE_WITH_TIMEOUT(model.emptyMessage(), expected, 20000);
        QVERIFY(!empty.isEmpty());
        QCOMPARE(model.emptySymbol(), slashed);
        QCOMPARE(StatusItemController::tooltip(*store),
                 u"Larkpin \u2014 can't reach the tape service at "_s + where);
    }

    // A service that answers with a certificate that proves nothing.
    void identityNotVerified()
    {
        SimServer sim(
            SimOptions{.port = 0,
                       .autoTape = false,
                       .tls = {.certificateFile = ca_.cert("expired"), .keyFile = ca_.key("expired")}});
        QString error;
        QVERIFY2(sim.start(&error), qPrintable(error));
        auto store = storeFor(u"https"_s, sim.port(), ca_.ca());
        PanelModel model(store.get());
        store->start();
        const QString where = u"127.0.0.1:%1"_s.arg(sim.port());
        QTRY_COMPARE_WITH_TIMEOUT(
            model.emptyMessage(),
            u"Can't verify the identity of the tape service at %1.\nCertificate expired: the link stays closed."_s
                .arg(where),
            20000);
        QCOMPARE(StatusItemController::tooltip(*store),
                 u"Larkpin \u2014 can't verify the tape service at %1 (certificate expired)"_s.arg(where));
        QCOMPARE(sim.requestCount(u"/"_s), 0);
    }
};

QTEST_MAIN(PanelTroubleTest)
#include "tst_panel_trouble.moc"
