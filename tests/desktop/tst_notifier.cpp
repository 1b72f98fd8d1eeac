// Takeover notifications: when one is sent (on, once per signal), what it
// says, and the org.freedesktop.Notifications call itself against a fake
// notification service on a private session bus.

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
    {"one takeover", "a:1", "a"}, {"same signal twice", "a:1 a:1", "a"},
    {"back after another", "a:1 b:1 a:1", "a b"},
    {"off", "a:0 b:0", ""}, {"switched on later: old one stays quiet", "a:0 a:1 b:1", "b"},
    {"no id", ":1", ""}};

// The summary says what, the body how big; only a web link is kept.
const QString bonk = QStringLiteral("BONK"), whaleBonk = QStringLiteral("WHALE · BONK");
struct Compose { const char *name; QString ticker; const char *link; QString summary; bool kept; };
const Compose composes[] = {
    {"https link", bonk, "https://dex.example/pair/1", whaleBonk, true},
    {"http link", bonk, "http://dex.example/p", whaleBonk, true}, {"no link", bonk, "", whaleBonk, false},
    {"javascript link dropped", bonk, "javascript:alert(1)", whaleBonk, false},
    {"file link dropped", bonk, "file:///etc/passwd", whaleBonk, false},
    {"line breaks in wire text", QStringLiteral("BO\nNK\u2028"), "", QStringLiteral("WHALE · BO NK"), false},
    {"no ticker", {}, "", QStringLiteral("WHALE"), false},
    {"long ticker cut", QString(500, u'T'), "", QStringLiteral("WHALE · ") + QString(71, u'T') + QChar(0x2026),
     false}};
// clang-format on
} // namespace

// Stands in for a desktop's notification daemon: records the Notify calls and
// lets the test raise ActionInvoked as a click would.
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
        return uint(40 + calls.size());
    }
Q_SIGNALS:
    Q_SCRIPTABLE void ActionInvoked(uint id, const QString &action_key);
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

    void compose_data() { rows(composes); }
    void compose()
    {
        const Compose &r = row(composes);
        const QString link = QString::fromUtf8(r.link);
        const auto n =
            TakeoverNotifier::compose(signalFor(QStringLiteral("x"), r.ticker),
                                      link.isEmpty() ? std::nullopt : std::optional<QUrl>(QUrl(link)));
        QCOMPARE(n.summary, r.summary);
        QCOMPARE(n.body, QStringLiteral("bought by 0x12…ef · $48.2K"));
        QCOMPARE(n.link, r.kept ? QUrl(link) : QUrl());
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

    // The real call, once: payload, the action only with a link, an action
    // click opening the link, and other applications' clicks ignored.
    void overTheSessionBus()
    {
        QProcess daemon;
        QTemporaryDir busDir;
        startPrivateBus(daemon, busDir);
        if (!daemon.waitForStarted(5000))
            QSKIP("dbus-daemon is not installed");
        QVERIFY(QTest::qWaitFor([&] { return daemon.canReadLine(); }, 5000));
        const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
        auto cleanup = qScopeGuard([&] {
            QDBusConnection::disconnectFromBus(QStringLiteral("app"));
            QDBusConnection::disconnectFromBus(QStringLiteral("server"));
            daemon.terminate();
            daemon.waitForFinished(3000);
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
        notifications.openUrl = [&](const QUrl &u) { opened << u; };
        const QUrl chart(QStringLiteral("https://dex.example/pair/1"));
        notifications.show({u"WHALE · BONK"_s, u"bought <big> · $48.2K"_s, chart});
        notifications.show({QStringLiteral("SPIKE · WIF"), QStringLiteral("pile-in"), QUrl()});
        QVERIFY(QTest::qWaitFor([&] { return server.calls.size() == 2; }, 3000));

        const QVariantList first = server.calls[0];
        // No body-markup among the server's capabilities: the body goes as is.
        QCOMPARE(first.mid(0, 6), (QVariantList{u"Larkpin"_s, 0u, u"larkpin"_s, u"WHALE · BONK"_s,
                                                u"bought <big> · $48.2K"_s,
                                                QStringList{u"open-chart"_s, u"Open chart"_s}}));
        QCOMPARE(first[6].toMap().value(u"desktop-entry"_s).toString(), u"larkpin"_s);
        QVERIFY(server.calls[1][5].toStringList().isEmpty());

        Q_EMIT server.ActionInvoked(99, QStringLiteral("open-chart")); // someone else's
        Q_EMIT server.ActionInvoked(41, QStringLiteral("default"));    // ours, not the chart
        QTest::qWait(200);
        QVERIFY(opened.isEmpty());
        Q_EMIT server.ActionInvoked(41, QStringLiteral("open-chart"));
        QVERIFY(QTest::qWaitFor([&] { return !opened.isEmpty(); }, 3000));
        QTest::qWait(100);
        QCOMPARE(opened, QList<QUrl>{chart});
    }
};

QTEST_GUILESS_MAIN(NotifierTest)
#include "tst_notifier.moc"
