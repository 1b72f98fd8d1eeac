// Takeover notifications: when one is sent (on, once per signal), what it
// says, and the org.freedesktop.Notifications call itself against a fake
// notification service on a private session bus.

#include "Desktop/Notifier.h"
#include "Model/Preferences.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

namespace {
QString S(const char *utf8)
{
    return QString::fromUtf8(utf8);
}
QStringList L(const char *words)
{
    return S(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

Signal signalFor(const QString &id, const QString &ticker = QStringLiteral("BONK"))
{
    Signal s;
    s.id = id;
    s.kind = SignalKind::whale;
    s.line.ticker = ticker;
    s.line.body = QStringLiteral("bought by 0x12…ef");
    s.line.figure = QStringLiteral("$48.2K");
    return s;
}
} // namespace

// Stands in for a desktop's notification daemon: records the Notify calls and
// lets the test raise ActionInvoked as a click would.
class FakeNotificationServer : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QList<QVariantList> calls;
    QStringList capabilities{QStringLiteral("actions"), QStringLiteral("body")};
public Q_SLOTS:
    Q_SCRIPTABLE QStringList GetCapabilities() { return capabilities; }
    Q_SCRIPTABLE uint Notify(const QString &app, uint replaces, const QString &icon, const QString &summary,
                             const QString &body, const QStringList &actions, const QVariantMap &hints,
                             int timeout)
    {
        calls << QVariantList{app, replaces, icon, summary, body, actions, hints, timeout};
        return uint(40 + calls.size());
    }
Q_SIGNALS:
    Q_SCRIPTABLE void ActionInvoked(uint id, const QString &action_key);
    Q_SCRIPTABLE void NotificationClosed(uint id, uint reason);
};

class NotifierTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Each step is "id:on" (a takeover by id while notifications are on/off);
    // expected lists the ids that reached the sink, in order.
    void whenItNotifies_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("one takeover") << L("a:1") << L("a");
        QTest::newRow("same signal twice") << L("a:1 a:1") << L("a");
        QTest::newRow("back after another") << L("a:1 b:1 a:1") << L("a b");
        QTest::newRow("off") << L("a:0 b:0") << L("");
        QTest::newRow("switched on later: old one stays quiet") << L("a:0 a:1 b:1") << L("b");
        QTest::newRow("no id") << L(":1") << L("");
    }
    void whenItNotifies()
    {
        QFETCH(QStringList, steps);
        QFETCH(QStringList, expected);
        bool on = true;
        QStringList sent;
        QString lastId;
        TakeoverNotifier notifier([&] { return on; }, nullptr,
                                  [&](const DesktopNotification &) { sent << lastId; });
        for (const QString &step : steps) {
            lastId = step.section(QLatin1Char(':'), 0, 0);
            on = step.endsWith(QLatin1String(":1"));
            notifier.takeover(signalFor(lastId));
        }
        QCOMPARE(sent, expected);
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

    void compose_data()
    {
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("summary");
        QTest::addColumn<QString>("bodyStart");
        QTest::addColumn<QString>("keptLink");
        QTest::newRow("https link") << S("BONK") << S("https://dex.example/pair/1") << S("WHALE · BONK")
                                    << S("bought by 0x12…ef · $48.2K") << S("https://dex.example/pair/1");
        QTest::newRow("http link") << S("BONK") << S("http://dex.example/p") << S("WHALE · BONK")
                                   << S("bought") << S("http://dex.example/p");
        QTest::newRow("no link") << S("BONK") << S("") << S("WHALE · BONK") << S("bought") << S("");
        QTest::newRow("javascript link dropped")
            << S("BONK") << S("javascript:alert(1)") << S("WHALE · BONK") << S("bought") << S("");
        QTest::newRow("file link dropped")
            << S("BONK") << S("file:///etc/passwd") << S("WHALE · BONK") << S("bought") << S("");
        QTest::newRow("line breaks in wire text")
            << S("BO\nNK\u2028") << S("") << S("WHALE · BO NK") << S("bought") << S("");
        QTest::newRow("no ticker") << S("") << S("") << S("WHALE") << S("bought") << S("");
    }
    void compose()
    {
        QFETCH(QString, ticker);
        QFETCH(QString, link);
        QFETCH(QString, summary);
        QFETCH(QString, bodyStart);
        QFETCH(QString, keptLink);
        const auto n =
            TakeoverNotifier::compose(signalFor(QStringLiteral("x"), ticker),
                                      link.isEmpty() ? std::nullopt : std::optional<QUrl>(QUrl(link)));
        QCOMPARE(n.summary, summary);
        QVERIFY2(n.body.startsWith(bodyStart), qPrintable(n.body));
        QCOMPARE(n.link, QUrl(keptLink));
    }

    void longTextIsCut()
    {
        Signal s = signalFor(QStringLiteral("x"), QString(500, QLatin1Char('T')));
        s.line.body = QString(5000, QLatin1Char('b'));
        const auto n = TakeoverNotifier::compose(s, std::nullopt);
        QCOMPARE(n.summary.size(), TakeoverNotifier::maxSummaryChars);
        QCOMPARE(n.body.size(), TakeoverNotifier::maxBodyChars);
    }

    void markupIsEscapedOnlyWhereRendered()
    {
        const QString wire = QStringLiteral("<b>PEPE</b> & co");
        QCOMPARE(FreedesktopNotifications::bodyFor(wire, true),
                 QStringLiteral("&lt;b&gt;PEPE&lt;/b&gt; &amp; co"));
        QCOMPARE(FreedesktopNotifications::bodyFor(wire, false), wire);
    }

    // Stored with the other preferences; on when never set.
    void settingIsStored()
    {
        QTemporaryDir dir;
        QSettings settings(dir.filePath(QStringLiteral("prefs.ini")), QSettings::IniFormat);
        QVERIFY(PreferencesStore::load(settings).notifyTakeovers);
        Preferences p = Preferences::defaults();
        p.notifyTakeovers = false;
        PreferencesStore::save(p, settings);
        QCOMPARE(PreferencesStore::load(settings), p);
    }

    // The real call, once: payload, the action only with a link, an action
    // click opening the link, and other applications' clicks ignored.
    void overTheSessionBus()
    {
        QProcess daemon;
        daemon.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                     QStringLiteral("--print-address")});
        if (!daemon.waitForStarted(5000))
            QSKIP("dbus-daemon is not installed");
        QVERIFY(QTest::qWaitFor([&] { return daemon.canReadLine(); }, 5000));
        const QString address = QString::fromUtf8(daemon.readLine()).trimmed();
        auto cleanup = qScopeGuard([&] {
            daemon.terminate();
            daemon.waitForFinished(3000);
        });

        QDBusConnection appBus = QDBusConnection::connectToBus(address, QStringLiteral("app"));
        QVERIFY(appBus.isConnected());

        // Before any service exists: nothing happens, nothing breaks.
        {
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
        notifications.show({QStringLiteral("WHALE · BONK"), QStringLiteral("bought <big> · $48.2K"), chart});
        notifications.show({QStringLiteral("SPIKE · WIF"), QStringLiteral("pile-in"), QUrl()});
        QVERIFY(QTest::qWaitFor([&] { return server.calls.size() == 2; }, 3000));

        const QVariantList first = server.calls[0];
        QCOMPARE(first[0].toString(), QStringLiteral("Larkpin"));
        QCOMPARE(first[2].toString(), QStringLiteral("larkpin"));
        QCOMPARE(first[3].toString(), QStringLiteral("WHALE · BONK"));
        QCOMPARE(first[4].toString(), QStringLiteral("bought <big> · $48.2K")); // no body-markup: as is
        QCOMPARE(first[5].toStringList(),
                 L("open-chart Open_chart").replaceInStrings(QStringLiteral("_"), QStringLiteral(" ")));
        QCOMPARE(first[6].toMap().value(QStringLiteral("desktop-entry")).toString(),
                 QStringLiteral("larkpin"));
        QVERIFY(server.calls[1][5].toStringList().isEmpty());

        Q_EMIT server.ActionInvoked(99, QStringLiteral("open-chart")); // someone else's
        Q_EMIT server.ActionInvoked(42, QStringLiteral("default"));    // ours, not the chart
        Q_EMIT server.ActionInvoked(41, QStringLiteral("open-chart"));
        QVERIFY(QTest::qWaitFor([&] { return !opened.isEmpty(); }, 3000));
        QTest::qWait(100);
        QCOMPARE(opened, QList<QUrl>{chart});
        QDBusConnection::disconnectFromBus(QStringLiteral("app"));
        QDBusConnection::disconnectFromBus(QStringLiteral("server"));
    }
};

QTEST_GUILESS_MAIN(NotifierTest)
#include "tst_notifier.moc"
