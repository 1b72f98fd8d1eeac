// The ticker on the session bus, as a bar piece sees it over a private bus:
// the state it reads and the changes it hears, the requests it makes, and the
// strip that steps aside while a piece is attached and comes back when the
// piece's connection goes.

#include "IsolatedSettings.h"
#include "PrivateBus.h"
#include "Table.h"

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Menu/StatusItemController.h"
#include "Menu/TickerBus.h"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

using namespace Qt::StringLiterals;

namespace {
// Nested maps come off the bus still marshalled.
QVariant plain(const QVariant &v)
{
    if (v.userType() == qMetaTypeId<QDBusVariant>())
        return plain(v.value<QDBusVariant>().variant());
    if (v.userType() == qMetaTypeId<QDBusArgument>()) {
        QVariantMap m = qdbus_cast<QVariantMap>(v.value<QDBusArgument>());
        for (auto it = m.begin(); it != m.end(); ++it)
            *it = plain(*it);
        return m;
    }
    return v;
}

// clang-format off
// A request as a piece sends it, and what the app was asked to do ("" for nothing).
struct Request { const char *name, *method; QVariantList args; const char *done; };
const Request requests[] = {
    {.name = "click opens or closes the panel at the piece", .method = "TogglePanel",
     .args = {10, 20, 30, 40}, .done = "toggle 10,20 30x40"},
    {.name = "open at a bottom panel's applet", .method = "OpenPanel", .args = {1500, 860, 120, 40},
     .done = "open 1500,860 120x40"},
    {.name = "menu at the pointer", .method = "ShowMenu", .args = {1400, 16}, .done = "menu 1400,16"},
    {.name = "pause", .method = "SetPaused", .args = {true}, .done = "paused 1"},
    {.name = "resume", .method = "SetPaused", .args = {false}, .done = "paused 0"},
    {.name = "quit from a piece's own menu", .method = "Quit", .args = {}, .done = "quit"},
    {.name = "nowhere on any screen", .method = "TogglePanel", .args = {1 << 30, 0, 10, 10}, .done = ""},
    {.name = "negative size", .method = "OpenPanel", .args = {0, 0, -5, 10}, .done = ""},
    {.name = "menu far away", .method = "ShowMenu", .args = {0, -(1 << 29)}, .done = ""},
};
// clang-format on
} // namespace

// Listens on a piece's connection the way an extension does.
class ChangeLog : public QObject {
    Q_OBJECT
public:
    QList<QVariantMap> changes;
public Q_SLOTS:
    void changed(const QString &interface, const QVariantMap &props, const QStringList &)
    {
        if (interface != TickerBus::interfaceName())
            return;
        QVariantMap m;
        for (auto it = props.cbegin(); it != props.cend(); ++it)
            m.insert(it.key(), plain(it.value()));
        changes << m;
    }
};

class TickerBusTest : public QObject {
    Q_OBJECT

    std::optional<PrivateBus> bus_;
    QString address_;
    double clock_ = 1'700'000'000;

    QDBusConnection piece(const QString &name) { return QDBusConnection::connectToBus(address_, name); }
    QDBusConnection app() { return QDBusConnection::connectToBus(address_, u"app"_s); }

    // Every call is asynchronous: the app answers on this same thread.
    static QDBusMessage call(const QDBusConnection &bus, const QString &method, const QVariantList &args = {},
                             const QString &interface = TickerBus::interfaceName())
    {
        QDBusMessage m = QDBusMessage::createMethodCall(TickerBus::serviceName(), TickerBus::objectPath(),
                                                        interface, method);
        m.setArguments(args);
        QDBusPendingCall pending = bus.asyncCall(m, 20000);
        if (!QTest::qWaitFor([&] { return pending.isFinished(); }, 30000))
            return {};
        return pending.reply();
    }
    static QVariantMap all(const QDBusConnection &bus)
    {
        const QDBusMessage reply =
            call(bus, u"GetAll"_s, {TickerBus::interfaceName()}, u"org.freedesktop.DBus.Properties"_s);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return {};
        return plain(reply.arguments().first()).toMap();
    }
    std::unique_ptr<FeedStore> quietStore()
    {
        auto *client = new TarnwickClient(u"http://127.0.0.1:1/api"_s, u"ws://127.0.0.1:1/ws"_s, TarnwickTiming{},
                                          [this] { return clock_; });
        return std::make_unique<FeedStore>(client, [this] { return clock_; });
    }
    TwFill fill(qint64 id, double usd, const char *side = "buy") const
    {
        const QString n = QString::number(id);
        return TwFill{.id = id, .ts = clock_ - 2, .side = QLatin1String(side), .usd = usd, .price = 2.5,
                      .handle = u"kai"_s + n, .wallet = u"Wallet"_s + n, .token = u"TokenWIF"_s + n,
                      .symbol = u"WIF"_s + n};
    }

private Q_SLOTS:
    void initTestCase()
    {
        isolateSettings();
        if (!bus_.emplace().start())
            QSKIP("dbus-daemon is not installed");
        address_ = bus_->address;
        QVERIFY(!address_.isEmpty());
        QVERIFY(app().isConnected());
    }
    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(u"app"_s);
        bus_.reset();
    }

    // What a piece reads at once, then only what changed, once per change.
    void statePublished()
    {
        TickerBus bus(app());
        QVERIFY(bus.publish());
        TickerState s;
        s.row = {.kind = u"whale"_s, .symbol = u"$WIF"_s, .direction = u"buy"_s, .amount = u"$48.2K"_s,
                 .text = u"@kai aped"_s, .usd = 48200};
        s.rowCount = 3;
        s.link = u"live"_s;
        s.whales = 2;
        s.stocks = 1;
        s.status = u"2 WHALE · 1 STOCK"_s;
        bus.setState(s);

        QDBusConnection p = piece(u"reader"_s);
        const QVariantMap props = all(p);
        QCOMPARE(props.value(u"Version"_s).toUInt(), 1u);
        const QVariantMap row = props.value(u"Row"_s).toMap();
        QCOMPARE(row.value(u"kind"_s).toString(), u"whale"_s);
        QCOMPARE(row.value(u"symbol"_s).toString(), u"$WIF"_s);
        QCOMPARE(row.value(u"direction"_s).toString(), u"buy"_s);
        QCOMPARE(row.value(u"amount"_s).toString(), u"$48.2K"_s);
        QCOMPARE(row.value(u"usd"_s).toDouble(), 48200.0);
        QCOMPARE(props.value(u"RowCount"_s).toInt(), 3);
        QCOMPARE(props.value(u"Link"_s).toString(), u"live"_s);
        QCOMPARE(props.value(u"Counts"_s).toMap().value(u"whale"_s).toInt(), 2);
        QCOMPARE(props.value(u"Counts"_s).toMap().value(u"stocks"_s).toInt(), 1);
        QCOMPARE(props.value(u"Paused"_s).toBool(), false);
        QVERIFY(props.value(u"Takeover"_s).toMap().isEmpty());
        QCOMPARE(props.value(u"Status"_s).toString(), u"2 WHALE · 1 STOCK"_s);
        // The pieces draw with the app's own accents.
        QCOMPARE(props.value(u"Accents"_s).toMap().value(u"whale"_s).toString(), u"#ccff00"_s);
        QCOMPARE(props.value(u"Accents"_s).toMap().value(u"spike-light"_s).toString(), u"#8f5200"_s);

        ChangeLog log;
        QVERIFY(p.connect(TickerBus::serviceName(), TickerBus::objectPath(), u"org.freedesktop.DBus.Properties"_s,
                          u"PropertiesChanged"_s, &log, SLOT(changed(QString, QVariantMap, QStringList))));
        all(p); // the match rule is in place once a round trip has been made

        bus.setState(s); // nothing new: nothing sent
        s.link = u"down"_s;
        s.status = u"Feed offline"_s;
        bus.setState(s);
        QTRY_COMPARE_WITH_TIMEOUT(log.changes.size(), 1, 20000);
        QCOMPARE(log.changes[0], (QVariantMap{{u"Link"_s, u"down"_s}, {u"Status"_s, u"Feed offline"_s}}));

        s.takeover = TickerRow{.kind = u"spike"_s, .symbol = u"$PEPE"_s, .amount = u"$1.2M"_s};
        s.holdMs = 7000;
        bus.takeoverRemainingMs = [] { return 6500; };
        bus.setState(s);
        QTRY_COMPARE_WITH_TIMEOUT(log.changes.size(), 2, 20000);
        const QVariantMap took = log.changes[1].value(u"Takeover"_s).toMap();
        QCOMPARE(took.value(u"symbol"_s).toString(), u"$PEPE"_s);
        QCOMPARE(took.value(u"holdMs"_s).toInt(), 7000);
        QCOMPARE(log.changes[1].value(u"TakeoverRemainingMs"_s).toInt(), 6500);
        QCOMPARE(log.changes[1].size(), 2);

        s.takeover.reset();
        bus.setState(s);
        QTRY_COMPARE_WITH_TIMEOUT(log.changes.size(), 3, 20000);
        QVERIFY(log.changes[2].value(u"Takeover"_s).toMap().isEmpty());
        QCOMPARE(log.changes[2].value(u"TakeoverRemainingMs"_s).toInt(), 0);
        QDBusConnection::disconnectFromBus(u"reader"_s);
    }

    void requestsHonoured_data() { rows(requests); }
    void requestsHonoured()
    {
        const auto &[name, method, args, done] = row(requests);
        TickerBus bus(app());
        QVERIFY(bus.publish());
        QStringList heard;
        const auto rect = [](const QRect &r) {
            return QStringLiteral("%1,%2 %3x%4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
        };
        bus.onTogglePanel = [&](const QRect &r) { heard << u"toggle "_s + rect(r); };
        bus.onOpenPanel = [&](const QRect &r) { heard << u"open "_s + rect(r); };
        bus.onShowMenu = [&](const QPoint &at) { heard << u"menu %1,%2"_s.arg(at.x()).arg(at.y()); };
        bus.onSetPaused = [&](bool paused) { heard << u"paused %1"_s.arg(int(paused)); };
        bus.onQuit = [&] { heard << u"quit"_s; };
        QDBusConnection p = piece(u"asker"_s);
        QCOMPARE(call(p, QLatin1String(method), args).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(heard, *done ? QStringList{QLatin1String(done)} : QStringList{});
        QDBusConnection::disconnectFromBus(u"asker"_s);
    }

    // The app's own ticker behind the bus: its row, a takeover, pause from a
    // piece; the strip hidden while any piece is attached, back when the
    // last one's connection goes, and nothing else of the strip touched.
    void stripStepsAsideForAPiece()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        TickerBus bus(app());
        QVERIFY(bus.publish());
        bus.follow(&item, store.get());
        QVERIFY(item.stripShown());

        store->ingest(QList<TwFill>{fill(1, 90000), fill(2, 60000, "sell")});
        store->client().onBackfill();
        QDBusConnection a = piece(u"pieceA"_s);
        QVariantMap props = all(a);
        QCOMPARE(props.value(u"RowCount"_s).toInt(), 2);
        const QVariantMap first = props.value(u"Row"_s).toMap();
        QCOMPARE(first.value(u"kind"_s).toString(), u"whale"_s);
        QCOMPARE(first.value(u"symbol"_s).toString(), store->tickerSignals().first().line.ticker);
        QCOMPARE(first.value(u"direction"_s).toString(),
                 store->tickerSignals().first().line.tag == u"▼"_s ? u"sell"_s : u"buy"_s);
        QCOMPARE(props.value(u"Counts"_s).toMap().value(u"whale"_s).toInt(), 2);

        store->ingest(QList<TwFill>{fill(3, 400000)}); // a live trade far over the threshold
        props = all(a);
        QCOMPARE(props.value(u"Takeover"_s).toMap().value(u"symbol"_s).toString(), u"$WIF3"_s);
        const int left = props.value(u"TakeoverRemainingMs"_s).toInt();
        QVERIFY2(left > 0 && left <= 7000, qPrintable(QString::number(left)));

        QCOMPARE(call(a, u"SetPaused"_s, {true}).type(), QDBusMessage::ReplyMessage);
        QVERIFY(store->preferences().paused);
        QCOMPARE(all(a).value(u"Paused"_s).toBool(), true);

        QCOMPARE(call(a, u"Attach"_s).type(), QDBusMessage::ReplyMessage);
        QVERIFY(!item.stripShown());
        QCOMPARE(all(a).value(u"Attached"_s).toUInt(), 1u);
        QDBusConnection b = piece(u"pieceB"_s);
        QCOMPARE(call(b, u"Attach"_s).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(call(b, u"Attach"_s).type(), QDBusMessage::ReplyMessage); // twice counts once
        QCOMPARE(bus.attachedCount(), 2);

        // A shell restarted: its connection is gone, no Detach said.
        a = QDBusConnection(u"none"_s);
        QDBusConnection::disconnectFromBus(u"pieceA"_s);
        QTRY_COMPARE_WITH_TIMEOUT(bus.attachedCount(), 1, 20000);
        QVERIFY(!item.stripShown());
        QCOMPARE(call(b, u"Detach"_s).type(), QDBusMessage::ReplyMessage);
        QVERIFY(item.stripShown());
        QCOMPARE(call(b, u"Attach"_s).type(), QDBusMessage::ReplyMessage);
        QVERIFY(!item.stripShown());
        b = QDBusConnection(u"none"_s);
        QDBusConnection::disconnectFromBus(u"pieceB"_s);
        QTRY_VERIFY_WITH_TIMEOUT(item.stripShown(), 20000);
        QCOMPARE(bus.attachedCount(), 0);

        // The other reasons to hide the strip still hold without a piece.
        Preferences prefs = store->preferences();
        prefs.trayOnly = true;
        store->updatePreferences(prefs);
        QVERIFY(!item.stripShown());
    }

    // A row's side comes from its tag: a fill's arrow, a pile-in's count.
    void rowDirection()
    {
        Signal s{.kind = SignalKind::spike, .line = {.ticker = u"$PILE"_s, .body = u"9 wallets piling in"_s,
                                                      .figure = u"$400K"_s, .tag = u"×9"_s}};
        QCOMPARE(TickerRow::of(s).direction, u"buy"_s);
        s.line.tag = u"▼"_s;
        QCOMPARE(TickerRow::of(s).direction, u"sell"_s);
        s.line.tag.reset();
        QCOMPARE(TickerRow::of(s).direction, QString());
        QCOMPARE(TickerRow::of(s).kind, u"spike"_s);
        QCOMPARE(TickerRow::of(s).amount, u"$400K"_s);
    }
};

QTEST_MAIN(TickerBusTest)
#include "tst_ticker_bus.moc"
