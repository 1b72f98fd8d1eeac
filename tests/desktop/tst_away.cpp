// "While you were away": the desktop's signals of a return (resume from a
// stand-in logind on a private bus, the screen saver's ActiveChanged on a
// private session bus), the one line that sums up what history kept, and the
// notifier sending one summary per return, only when there is something.

#include "Desktop/AwayWatch.h"
#include "PrivateBus.h"
#include "Table.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

namespace {
HistoryEntry kept(SignalKind kind, const char *ticker, std::optional<double> usd)
{
    HistoryEntry e;
    e.signal.id = QStringLiteral("id-") + QLatin1String(ticker) + QString::number(usd.value_or(0));
    e.signal.kind = kind;
    e.signal.line.ticker = QLatin1String(ticker);
    e.signal.notionalUsd = usd;
    return e;
}

using K = SignalKind;
// clang-format off
struct Sum { const char *name; QList<HistoryEntry> entries; const char *text; };
const Sum sums[] = {
    {.name = "nothing", .entries = {}, .text = ""},
    {.name = "four whales",
     .entries = {kept(K::whale, "$DOGO", 1.2e6), kept(K::whale, "$WIF", 3e5), kept(K::whale, "$BONK", 9e5), kept(K::whale, "$PEPE", 2e5)},
     .text = "While you were away: 4 whales, largest $1.2M on $DOGO"},
    {.name = "one of each, in kind order",
     .entries = {kept(K::stocks, "NVDAx", 4e5), kept(K::spike, "$MOO", std::nullopt), kept(K::whale, "$WIF", 2e5)},
     .text = "While you were away: 1 whale, 1 spike, 1 stock move, largest $400K on NVDAx"},
    {.name = "no size known",
     .entries = {kept(K::spike, "$MOO", std::nullopt), kept(K::spike, "$COW", std::nullopt)},
     .text = "While you were away: 2 spikes"},
    {.name = "a ticker that is not one line", .entries = {kept(K::whale, "$A\nB", 5e4)},
     .text = "While you were away: 1 whale, largest $50K on $A B"},
};
// clang-format on

} // namespace

class AwayTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void summary_data() { rows(sums); }
    void summary()
    {
        const Sum &r = row(sums);
        QCOMPARE(AwaySummary::text(r.entries), QString::fromUtf8(r.text));
    }

    // Locked, then asleep, then resumed: one return, from the first of them.
    // A return without a departure says nothing.
    void returns()
    {
        double now = 1000;
        AwayWatch watch(0, QDBusConnection(QString()), QDBusConnection(QString()), [&] { return now; });
        QSignalSpy back(&watch, &AwayWatch::cameBack);
        watch.screenSaverActiveChanged(false);
        watch.prepareForSleep(false);
        QCOMPARE(back.size(), 0);
        watch.screenSaverActiveChanged(true);
        now = 1100;
        watch.prepareForSleep(true);
        now = 4000;
        watch.prepareForSleep(false);
        QCOMPARE(back.size(), 1);
        QCOMPARE(back.at(0).at(0).toDouble(), 1000.0);
        QCOMPARE(back.at(0).at(1).toDouble(), 4000.0);
        QCOMPARE(back.at(0).at(2).toString(), QStringLiteral("resume"));
        watch.screenSaverActiveChanged(false); // already back
        QCOMPARE(back.size(), 1);
    }

    // The real signals, over private buses: the screen saver on a session
    // bus (from whoever sends it), PrepareForSleep only from the owner of
    // logind's name on a system bus.
    void overTheBuses()
    {
        PrivateBus session, system;
        if (!session.start() || !system.start())
            QSKIP("dbus-daemon is not installed");
        QVERIFY(!session.address.isEmpty() && !system.address.isEmpty());
        auto cleanup = qScopeGuard([] {
            for (const char *n : {"app-session", "app-system", "saver", "logind", "stranger"})
                QDBusConnection::disconnectFromBus(QLatin1String(n));
        });
        QDBusConnection appSession = QDBusConnection::connectToBus(session.address, QStringLiteral("app-session"));
        QDBusConnection appSystem = QDBusConnection::connectToBus(system.address, QStringLiteral("app-system"));
        QVERIFY(appSession.isConnected() && appSystem.isConnected());
        double now = 500;
        AwayWatch watch(AwayWatch::Sleep | AwayWatch::ScreenSaver, appSystem, appSession, [&] { return now; });
        QVERIFY(watch.watchesSleep());
        QVERIFY(watch.watchesScreenSaver());
        QSignalSpy away(&watch, &AwayWatch::wentAway);
        QSignalSpy back(&watch, &AwayWatch::cameBack);

        QDBusConnection saver = QDBusConnection::connectToBus(session.address, QStringLiteral("saver"));
        const auto saverSays = [&](const char *path, const char *iface, bool active) {
            QDBusMessage m = QDBusMessage::createSignal(QLatin1String(path), QLatin1String(iface),
                                                        QStringLiteral("ActiveChanged"));
            m << active;
            QVERIFY(saver.send(m));
        };
        saverSays("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", true);
        QVERIFY(away.wait(10000));
        now = 900;
        saverSays("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", false);
        QVERIFY(back.wait(10000));
        QCOMPARE(back.last().at(2).toString(), QStringLiteral("unlock"));
        QCOMPARE(back.last().at(1).toDouble() - back.last().at(0).toDouble(), 400.0);

        // Someone who is not logind cannot put the app to sleep.
        QDBusConnection stranger = QDBusConnection::connectToBus(system.address, QStringLiteral("stranger"));
        QDBusMessage fake = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                                       QStringLiteral("org.freedesktop.login1.Manager"),
                                                       QStringLiteral("PrepareForSleep"));
        fake << true;
        QVERIFY(stranger.send(fake));

        QDBusConnection logind = QDBusConnection::connectToBus(system.address, QStringLiteral("logind"));
        QVERIFY(logind.registerService(QStringLiteral("org.freedesktop.login1")));
        const auto sleep = [&](bool going) {
            QDBusMessage m = QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                                        QStringLiteral("org.freedesktop.login1.Manager"),
                                                        QStringLiteral("PrepareForSleep"));
            m << going;
            QVERIFY(logind.send(m));
        };
        now = 1000;
        sleep(true);
        QVERIFY(away.wait(10000));
        QCOMPARE(away.last().at(0).toDouble(), 1000.0); // not the stranger's 900
        now = 5000;
        sleep(false);
        QVERIFY(back.wait(10000));
        QCOMPARE(back.last().at(0).toDouble(), 1000.0);
        QCOMPARE(back.last().at(2).toString(), QStringLiteral("resume"));
    }

    // One summary per return, after the feed has had time to catch up, of
    // the whole time away; short absences and quiet ones say nothing.
    void notifier()
    {
        QList<HistoryQuery> asked;
        QList<HistoryEntry> answer;
        QList<AwayNotifier::Summary> sent;
        AwayNotifier n(
            nullptr, [] { HistoryQuery q; q.minUsd = 250'000; return q; },
            [&](const HistoryQuery &q, std::function<void(const QList<HistoryEntry> &)> done) {
                asked << q;
                done(answer);
            },
            [&](const AwayNotifier::Summary &s) { sent << s; });
        n.setSettleMs(20);

        n.comeBack(1000, 1000 + AwayNotifier::minAwaySeconds - 1);
        QTest::qWait(100);
        QVERIFY(asked.isEmpty());

        n.comeBack(1000, 2000); // nothing kept: nothing said
        QTRY_COMPARE_WITH_TIMEOUT(asked.size(), 1, 30000);
        QCOMPARE(asked.last().minUsd, 250'000.0);
        QCOMPARE(asked.last().since.value_or(0), 1000.0);
        QVERIFY(asked.last().until.value_or(0) >= 2000.0);
        QVERIFY(sent.isEmpty());

        answer = {kept(K::whale, "$DOGO", 1.2e6)};
        n.comeBack(3000, 4000);
        n.comeBack(3500, 4100); // unlock, then resume: one summary
        QTRY_COMPARE_WITH_TIMEOUT(sent.size(), 1, 30000);
        QTest::qWait(100);
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent.first().since, 3000.0);
        QCOMPARE(sent.first().until, 4100.0);
        QCOMPARE(sent.first().text, QStringLiteral("While you were away: 1 whale, largest $1.2M on $DOGO"));
        QCOMPARE(sent.first().body, QStringLiteral("1 whale, largest $1.2M on $DOGO"));
    }
};

QTEST_GUILESS_MAIN(AwayTest)
#include "tst_away.moc"
