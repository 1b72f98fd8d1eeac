// Takeover notifications: when one is sent (on, once per signal), how a busy
// tape is folded into few bubbles, what they say, and the
// org.freedesktop.Notifications calls themselves against a fake notification
// service on a private session bus.

#include "Desktop/Notifier.h"
#include "PrivateBus.h"
#include "Table.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
QStringList L(const char *words)
{
    return QString::fromUtf8(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

Signal signalFor(const QString &id, const QString &ticker = QStringLiteral("BONK"))
{
    return Signal{.id = id, .line = {.ticker = ticker, .body = QStringLiteral("bought by 0x12…ef"),
                                     .figure = QStringLiteral("$48.2K")}};
}

// clang-format off
// Each step is "id:on" (a takeover by id while notifications are on/off);
// expected lists the ids that reached the sink, in order.
struct Notifies { const char *name, *steps, *expected; };
const Notifies notifies[] = {
    {.name = "one takeover", .steps = "a:1", .expected = "a"},
    {.name = "same signal twice", .steps = "a:1 a:1", .expected = "a"},
    {.name = "back after another", .steps = "a:1 b:1 a:1", .expected = "a b"},
    {.name = "off", .steps = "a:0 b:0", .expected = ""},
    {.name = "switched on later: old one stays quiet", .steps = "a:0 a:1 b:1", .expected = "b"},
    {.name = "no id", .steps = ":1", .expected = ""},
};

// Steps: "T:id" a takeover at T seconds, "T:id*" by a watched wallet, "x" the
// server closing the bubble on screen. Expected, per takeover: N a new bubble,
// U the bubble on screen updated, W a bubble of its own, - nothing.
struct Coalesces { const char *name, *steps, *expected; };
const Coalesces coalesces[] = {
    {.name = "a burst is one bubble", .steps = "0:a 5:b 12:c", .expected = "N U U"},
    {.name = "a pause starts a new bubble", .steps = "0:a 31:b", .expected = "N N"},
    {.name = "a burst is cut after a minute", .steps = "0:a 25:b 50:c 61:d 70:e", .expected = "N U U N U"},
    {.name = "after the server closed it, a new one", .steps = "0:a x 5:b", .expected = "N N"},
    {.name = "six new bubbles a minute", .steps = "0:a x 1:b x 2:c x 3:d x 4:e x 5:f x 6:g 7:h",
     .expected = "N N N N N N - -"},
    {.name = "over the limit, into the bubble on screen", .steps = "0:a x 1:b x 2:c x 3:d x 4:e x 5:f 40:g",
     .expected = "N N N N N N U"},
    {.name = "the minute moves on", .steps = "0:a x 1:b x 2:c x 3:d x 4:e x 5:f x 60:g",
     .expected = "N N N N N N N"},
    {.name = "watched wallets break through", .steps = "0:a x 1:b x 2:c x 3:d x 4:e x 5:f x 6:g* 7:h*",
     .expected = "N N N N N N W W"},
    {.name = "a watched one stays out of the burst", .steps = "0:a 5:b* 9:c", .expected = "N W U"},
};

// The summary says what, the body how big; only a web link is kept, the
// evidence's before the record's own.
const QString bonk = QStringLiteral("BONK"), whaleBonk = QStringLiteral("WHALE · BONK");
struct Compose { const char *name; QString ticker; const char *evidence, *record; QString summary; const char *kept; };
const Compose composes[] = {
    {.name = "https link", .ticker = bonk, .evidence = "https://dex.example/pair/1", .record = "",
     .summary = whaleBonk, .kept = "https://dex.example/pair/1"},
    {.name = "http link", .ticker = bonk, .evidence = "http://dex.example/p", .record = "",
     .summary = whaleBonk, .kept = "http://dex.example/p"},
    {.name = "no link", .ticker = bonk, .evidence = "", .record = "", .summary = whaleBonk, .kept = ""},
    {.name = "the record's own link", .ticker = bonk, .evidence = "",
     .record = "https://charts.example/pool/9", .summary = whaleBonk,
     .kept = "https://charts.example/pool/9"},
    {.name = "evidence before the record", .ticker = bonk, .evidence = "https://dex.example/a",
     .record = "https://charts.example/b", .summary = whaleBonk, .kept = "https://dex.example/a"},
    {.name = "bad evidence, the record's", .ticker = bonk, .evidence = "ftp://dex.example/a",
     .record = "https://charts.example/b", .summary = whaleBonk, .kept = "https://charts.example/b"},
    {.name = "javascript link dropped", .ticker = bonk, .evidence = "javascript:alert(1)",
     .record = "javascript:alert(2)", .summary = whaleBonk, .kept = ""},
    {.name = "file link dropped", .ticker = bonk, .evidence = "file:///etc/passwd",
     .record = "file:///etc/shadow", .summary = whaleBonk, .kept = ""},
    {.name = "line breaks in wire text", .ticker = QStringLiteral("BO\nNK\u2028"), .evidence = "",
     .record = "", .summary = QStringLiteral("WHALE · BO NK"), .kept = ""},
    {.name = "no ticker", .ticker = {}, .evidence = "", .record = "", .summary = QStringLiteral("WHALE"),
     .kept = ""},
    {.name = "long ticker cut", .ticker = QString(500, u'T'), .evidence = "", .record = "",
     .summary = QStringLiteral("WHALE · ") + QString(71, u'T') + QChar(0x2026), .kept = ""},
};

struct Tally { const char *name; int more; std::optional<SignalKind> kind; std::optional<double> usd; QString ticker;
               QString text; };
const Tally tallies[] = {
    {.name = "one more whale", .more = 1, .kind = SignalKind::whale, .usd = 48200, .ticker = u"$BONK"_s,
     .text = u"1 more whale · largest $48.2K on $BONK"_s},
    {.name = "several kinds", .more = 3, .kind = std::nullopt, .usd = 1.2e6, .ticker = u"$DOGO"_s,
     .text = u"3 more signals · largest $1.20M on $DOGO"_s},
    {.name = "pile-ins without a size", .more = 2, .kind = SignalKind::spike, .usd = std::nullopt,
     .ticker = u"$WIF"_s, .text = u"2 more pile-ins"_s},
    {.name = "stock trades", .more = 2, .kind = SignalKind::stocks, .usd = 5e5, .ticker = u"NVDA"_s,
     .text = u"2 more stock trades · largest $500.0K on NVDA"_s},
    {.name = "wire text in the ticker", .more = 2, .kind = SignalKind::whale, .usd = 5e4,
     .ticker = u"$A\nB"_s, .text = u"2 more whales · largest $50.0K on $A B"_s},
};
// clang-format on

QUrl urlOf(const char *text)
{
    return *text ? QUrl(QString::fromUtf8(text)) : QUrl();
}
} // namespace

// Stands in for a desktop's notification daemon: records the Notify calls and
// lets the test raise ActionInvoked and NotificationClosed as a click or a
// time-out would.
class FakeNotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QList<QVariantList> calls;
public Q_SLOTS:
    Q_SCRIPTABLE QStringList GetCapabilities() { return {QStringLiteral("actions"), QStringLiteral("body")}; }
    Q_SCRIPTABLE uint Notify(const QString &app, uint replaces, const QString &icon, const QString &summary,
                             const QString &body, const QStringList &actions, const QVariantMap &hints,
                             int timeout)
    {
        calls << QVariantList{app, replaces, icon, summary, body, actions, hints, timeout};
        return replaces != 0 ? replaces : uint(40 + calls.size());
    }
Q_SIGNALS:
    Q_SCRIPTABLE void ActionInvoked(uint id, const QString &action_key);
    Q_SCRIPTABLE void NotificationClosed(uint id, uint reason);
};

class NotifierTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void whenItNotifies_data() { rows(notifies); }
    void whenItNotifies()
    {
        const auto [name, steps, expected] = row(notifies);
        bool on = true;
        QStringList sent;
        QString lastId;
        TakeoverNotifier notifier([&] { return on; }, nullptr,
                                  [&](const DesktopNotification &) { sent << lastId; });
        for (const QString &step : L(steps)) {
            lastId = step.section(QLatin1Char(':'), 0, 0);
            on = step.endsWith(QLatin1String(":1"));
            notifier.takeover(signalFor(lastId));
        }
        QCOMPARE(sent, L(expected));
    }

    // Ids are remembered for a bounded number of takeovers.
    void memoryIsBounded()
    {
        int sent = 0;
        TakeoverNotifier notifier(nullptr, nullptr, [&](const DesktopNotification &) { ++sent; });
        for (int i = 0; i <= TakeoverNotifier::rememberedIds; ++i)
            notifier.takeover(signalFor(QString::number(i)));
        QCOMPARE(sent, TakeoverNotifier::rememberedIds + 1);
        QVERIFY(!notifier.takeover(signalFor(QString::number(TakeoverNotifier::rememberedIds)))); // recent
        QVERIFY(notifier.takeover(signalFor(QStringLiteral("0"))));                               // forgotten
    }

    // A busy tape on a stepped clock: bursts folded into the bubble on
    // screen, at most six new bubbles in any minute, watched wallets apart.
    void coalescing_data() { rows(coalesces); }
    void coalescing()
    {
        const Coalesces &r = row(coalesces);
        double now = 0;
        QList<DesktopNotification> sent;
        TakeoverNotifier notifier(nullptr, nullptr, [&](const DesktopNotification &n) { sent << n; });
        notifier.clock = [&] { return now; };
        notifier.isWatched = [](const Signal &s) { return s.id.endsWith(QLatin1Char('*')); };
        QSet<quint64> bubbles;
        quint64 onScreen = 0;
        QStringList got;
        for (const QString &step : L(r.steps)) {
            if (step == QLatin1String("x")) {
                notifier.bubbleClosed(onScreen);
                continue;
            }
            now = step.section(QLatin1Char(':'), 0, 0).toDouble();
            const qsizetype before = sent.size();
            notifier.takeover(signalFor(step.section(QLatin1Char(':'), 1)));
            if (sent.size() == before) {
                got << QStringLiteral("-");
                continue;
            }
            const DesktopNotification &n = sent.last();
            QCOMPARE(n.signalId, step.section(QLatin1Char(':'), 1)); // a bubble always shows the newest
            if (n.bubble == 0) {
                got << QStringLiteral("W");
            } else {
                got << (bubbles.contains(n.bubble) ? QStringLiteral("U") : QStringLiteral("N"));
                bubbles.insert(n.bubble);
                onScreen = n.bubble;
            }
        }
        QCOMPARE(got, L(r.expected));
    }

    // The updated bubble names the newest takeover and tallies the others:
    // their kind, and the largest of the whole burst.
    void burstTally()
    {
        double now = 0;
        QList<DesktopNotification> sent;
        TakeoverNotifier notifier(nullptr, nullptr, [&](const DesktopNotification &n) { sent << n; });
        notifier.clock = [&] { return now; };
        auto take = [&](const char *id, SignalKind kind, const char *ticker, double usd) {
            Signal s = signalFor(QString::fromUtf8(id), QString::fromUtf8(ticker));
            s.kind = kind;
            s.notionalUsd = usd;
            notifier.takeover(s);
            now += 5;
        };
        take("a", SignalKind::whale, "$BONK", 48200);
        QCOMPARE(sent.last().body, u"bought by 0x12…ef · $48.2K"_s);
        take("b", SignalKind::whale, "$DOGO", 1.2e6);
        take("c", SignalKind::whale, "$WIF", 90000);
        QCOMPARE(sent.size(), 3);
        QCOMPARE(sent.last().summary, u"WHALE · $WIF"_s);
        QCOMPARE(sent.last().body, u"bought by 0x12…ef · $48.2K\n2 more whales · largest $1.20M on $DOGO"_s);
        take("d", SignalKind::spike, "$PEPE", 1000);
        QCOMPARE(sent.last().body.section(QLatin1Char('\n'), 1), u"3 more whales · largest $1.20M on $DOGO"_s);
        take("e", SignalKind::whale, "$MEW", 1000);
        QCOMPARE(sent.last().body.section(QLatin1Char('\n'), 1), u"4 more signals · largest $1.20M on $DOGO"_s);
    }

    void tally_data() { rows(tallies); }
    void tally()
    {
        const Tally &r = row(tallies);
        QCOMPARE(TakeoverNotifier::tally(r.more, r.kind, r.usd, r.ticker), r.text);
    }

    void compose_data() { rows(composes); }
    void compose()
    {
        const Compose &r = row(composes);
        Signal s = signalFor(QStringLiteral("x"), r.ticker);
        if (*r.record)
            s.link = QUrl(QString::fromUtf8(r.record));
        const auto n = TakeoverNotifier::compose(s, *r.evidence ? std::optional<QUrl>(urlOf(r.evidence)) : std::nullopt);
        QCOMPARE(n.summary, r.summary);
        QCOMPARE(n.body, QStringLiteral("bought by 0x12…ef · $48.2K"));
        QCOMPARE(n.link, urlOf(r.kept));
        QCOMPARE(n.signalId, QStringLiteral("x"));
    }

    void longBodyIsCutAndMarkupEscapedOnlyWhereRendered()
    {
        Signal s = signalFor(QStringLiteral("x"));
        s.line.body = QString(5000, u'b');
        QCOMPARE(TakeoverNotifier::compose(s, std::nullopt).body, QString(199, u'b') + QChar(0x2026));
        const QString wire = QStringLiteral("<b>PEPE</b> & co");
        QCOMPARE(FreedesktopNotifications::bodyFor(wire, true),
                 QStringLiteral("&lt;b&gt;PEPE&lt;/b&gt; &amp; co"));
        QCOMPARE(FreedesktopNotifications::bodyFor(wire, false), wire);
    }

    // The real calls: payload, the default action always and the chart only
    // with a link, an update replacing its bubble, clicks opening the signal
    // or the link for our ids only, a closed bubble reported. Every wait is on
    // the event itself, bounded generously for a loaded machine.
    void overTheSessionBus()
    {
        constexpr int patience = 60000;
        PrivateBus bus;
        if (!bus.start())
            QSKIP("dbus-daemon is not installed");
        const QString address = bus.address;
        QVERIFY(!address.isEmpty());
        auto cleanup = qScopeGuard([&] {
            QDBusConnection::disconnectFromBus(QStringLiteral("app"));
            QDBusConnection::disconnectFromBus(QStringLiteral("server"));
        });
        QDBusConnection appBus = QDBusConnection::connectToBus(address, QStringLiteral("app"));
        QVERIFY(appBus.isConnected());
        { // before any service exists: nothing happens, nothing breaks
            FreedesktopNotifications absent(appBus);
            absent.show({QStringLiteral("s"), QStringLiteral("b"), QUrl()});
            QTest::qWait(200);
        }

        QDBusConnection serverBus = QDBusConnection::connectToBus(address, QStringLiteral("server"));
        FakeNotificationServer server;
        QVERIFY(serverBus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                                         QDBusConnection::ExportScriptableContents));
        QVERIFY(serverBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        FreedesktopNotifications notifications(appBus);
        QList<QUrl> opened;
        QStringList signalsOpened;
        QList<quint64> closed;
        notifications.openUrl = [&](const QUrl &u) { opened << u; };
        notifications.openSignal = [&](const QString &id) { signalsOpened << id; };
        notifications.onClosed = [&](quint64 bubble) { closed << bubble; };
        const QUrl chart(QStringLiteral("https://dex.example/pair/1"));
        notifications.show({u"WHALE · BONK"_s, u"bought <big> · $48.2K"_s, chart, u"tw-fill-1"_s, 7});
        notifications.show({QStringLiteral("SPIKE · WIF"), QStringLiteral("pile-in"), QUrl(), u"tw-radar-2"_s, 0});
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 2, patience);

        const QVariantList first = server.calls[0];
        // No body-markup among the server's capabilities: the body goes as is.
        QCOMPARE(first.mid(0, 6), (QVariantList{u"Larkpin"_s, 0u, u"larkpin"_s, u"WHALE · BONK"_s,
                                                u"bought <big> · $48.2K"_s,
                                                QStringList{u"default"_s, u"Open in Larkpin"_s, u"open-chart"_s,
                                                            u"Open chart"_s}}));
        QCOMPARE(first[6].toMap().value(u"desktop-entry"_s).toString(), u"org.larkpin.Larkpin"_s);
        QCOMPARE(server.calls[1][5].toStringList(), (QStringList{u"default"_s, u"Open in Larkpin"_s}));

        // The burst's next takeover updates bubble 7 in place.
        notifications.show({u"WHALE · DOGO"_s, u"sold · $1.2M\n1 more whale"_s, QUrl(), u"tw-fill-3"_s, 7});
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 3, patience);
        QCOMPARE(server.calls[2][1].toUInt(), 41u);
        QCOMPARE(server.calls[2][5].toStringList(), (QStringList{u"default"_s, u"Open in Larkpin"_s}));

        // Someone else's clicks, and a key we never offered, do nothing; what
        // comes after them on the same connection shows they were seen.
        Q_EMIT server.ActionInvoked(99, QStringLiteral("open-chart"));
        Q_EMIT server.ActionInvoked(99, QStringLiteral("default"));
        Q_EMIT server.ActionInvoked(42, QStringLiteral("open-chart")); // no link on that one
        Q_EMIT server.ActionInvoked(41, QStringLiteral("settings"));
        Q_EMIT server.ActionInvoked(41, QStringLiteral("default")); // the bubble shows the newest now
        Q_EMIT server.ActionInvoked(42, QStringLiteral("default"));
        // Signals arrive in order: anything opened by the clicks before would
        // come first, and the list would never be just these two.
        QTRY_COMPARE_WITH_TIMEOUT(signalsOpened, (QStringList{u"tw-fill-3"_s, u"tw-radar-2"_s}), patience);
        QVERIFY(opened.isEmpty());

        // The chart of a bubble still carrying one.
        notifications.show({u"WHALE · MEW"_s, u"bought"_s, chart, u"tw-fill-4"_s, 8});
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 4, patience);
        const uint mew = 44;
        Q_EMIT server.ActionInvoked(mew, QStringLiteral("open-chart"));
        QTRY_COMPARE_WITH_TIMEOUT(opened.size(), 1, patience);
        QCOMPARE(opened, QList<QUrl>{chart});

        // Closed by the server: reported for a bubble that can be updated,
        // and its clicks no longer count.
        Q_EMIT server.NotificationClosed(99, 1);
        Q_EMIT server.NotificationClosed(42, 1); // a bubble of its own: nothing to report
        Q_EMIT server.NotificationClosed(41, 2);
        QTRY_COMPARE_WITH_TIMEOUT(closed.size(), 1, patience);
        QCOMPARE(closed, QList<quint64>{7});
        Q_EMIT server.ActionInvoked(41, QStringLiteral("default"));
        Q_EMIT server.ActionInvoked(mew, QStringLiteral("default"));
        QTRY_COMPARE_WITH_TIMEOUT(signalsOpened, (QStringList{u"tw-fill-3"_s, u"tw-radar-2"_s, u"tw-fill-4"_s}),
                                  patience);

        // Bubble 7 again: gone from the screen, so a new one.
        notifications.show({u"WHALE · A"_s, u"b"_s, QUrl(), u"tw-fill-5"_s, 7});
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 5, patience);
        QCOMPARE(server.calls[4][1].toUInt(), 0u);
    }

    // An update sent before the server has answered for its bubble waits for
    // that answer and then replaces it; only the newest of several goes.
    void updateWaitsForItsBubble()
    {
        constexpr int patience = 60000;
        PrivateBus bus;
        if (!bus.start())
            QSKIP("dbus-daemon is not installed");
        const QString address = bus.address;
        QVERIFY(!address.isEmpty());
        auto cleanup = qScopeGuard([&] {
            QDBusConnection::disconnectFromBus(QStringLiteral("app2"));
            QDBusConnection::disconnectFromBus(QStringLiteral("server2"));
        });
        QDBusConnection serverBus = QDBusConnection::connectToBus(address, QStringLiteral("server2"));
        FakeNotificationServer server;
        QVERIFY(serverBus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server,
                                         QDBusConnection::ExportScriptableContents));
        QVERIFY(serverBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        FreedesktopNotifications notifications(QDBusConnection::connectToBus(address, QStringLiteral("app2")));
        notifications.show({u"WHALE"_s, u"0"_s, QUrl(), u"s0"_s, 0}); // the server's capabilities are known after it
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 1, patience);
        for (int i = 1; i <= 3; ++i)
            notifications.show({u"WHALE"_s, QString::number(i), QUrl(), u"s"_s + QString::number(i), 9});
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 3, patience);
        QCOMPARE(server.calls[1][1].toUInt(), 0u);
        QCOMPARE(server.calls[1][4].toString(), u"1"_s);
        QCOMPARE(server.calls[2][1].toUInt(), 42u);
        QCOMPARE(server.calls[2][4].toString(), u"3"_s);
        // Nothing else was held back: a fourth call comes only for a fourth show.
        notifications.show({u"WHALE"_s, u"4"_s, QUrl(), u"s4"_s, 9});
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 4, patience);
        QCOMPARE(server.calls[3][1].toUInt(), 42u);
        QCOMPARE(server.calls[3][4].toString(), u"4"_s);
    }
};

QTEST_GUILESS_MAIN(NotifierTest)
#include "tst_notifier.moc"
