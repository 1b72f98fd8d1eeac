// The panel's texts and its model over a real store, without a window.

#include "Model/Preferences.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelText.h"
#include "PanelTestSupport.h"

#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <limits>

namespace {
constexpr double now = 1'700'000'000;
const double notANumber = std::numeric_limits<double>::quiet_NaN();
using Maybe = std::optional<double>;
using Edit = std::function<bool(PanelModel &, bool same)>;
using Saved = std::function<bool(const Preferences &)>;

Signal whale(Maybe winRate, double createdAt, SignalKind kind = SignalKind::whale)
{
    Signal s;
    s.id = QStringLiteral("tw-fill-1");
    s.kind = kind;
    s.createdAt = createdAt;
    s.expiresAt = createdAt + 3600;
    if (winRate)
        s.wallet = WalletRef{QStringLiteral("addr"), QStringLiteral("@ansem"), winRate};
    return s;
}

QString emptyState(bool visibleEmpty, LinkState link)
{
    const PanelText::EmptyState state = PanelText::emptyState(visibleEmpty, link);
    return state.symbol + QStringLiteral(" / ") + state.message;
}

QString counters(Maybe latency, Maybe lastFrameAge, LinkState link)
{
    Telemetry t;
    t.visible = 7;
    t.held = 31;
    t.latencyMs = latency;
    if (lastFrameAge)
        t.lastFrameAt = now - *lastFrameAge;
    return PanelText::counters(t, link, now).join(QLatin1Char('|'));
}

QString winRing(Maybe winRate)
{
    const QVariantMap hero = SignalListModel::describe(whale(winRate, now), now, nullptr);
    return hero[QStringLiteral("hasWinRate")].toBool() ? hero[QStringLiteral("winRateText")].toString()
                                                       : QStringLiteral("no ring");
}

// One line per entry of an inspector list: the chosen fields, joined.
QStringList rows(const QVariant &list, const QStringList &keys, QChar separator = QLatin1Char(' '))
{
    QStringList out;
    for (const QVariant &item : list.toList()) {
        QStringList fields;
        for (const QString &key : keys)
            fields << item.toMap()[key].toString();
        out << fields.join(separator);
    }
    return out;
}
const QStringList stat{QStringLiteral("label"), QStringLiteral("value")};
} // namespace

Q_DECLARE_METATYPE(Edit)
Q_DECLARE_METATYPE(Saved)

class PanelModelTest : public QObject {
    Q_OBJECT

    TestClock clock;
    std::unique_ptr<FeedStore> store;

    // Whales of rising size, one minute apart.
    void feed(int n)
    {
        QList<TwFill> fills;
        for (int i = 0; i < n; ++i)
            fills << whaleFill(100 + i, clock.t - 60 * (n - i), 2000.0 * (i + 1),
                               QStringLiteral("w%1").arg(i), QStringLiteral("T%1").arg(i));
        store->ingest(fills);
    }

private Q_SLOTS:
    void init()
    {
        QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
        clock = TestClock{};
        store = unreachableStore(clock);
        store->setPreferences(Preferences::defaults());
    }
    void cleanup() { store.reset(); }

    void texts_data()
    {
        QTest::addColumn<QString>("actual");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QString &actual, const char *expected) {
            QTest::newRow(name) << actual << QString::fromUtf8(expected);
        };
        using LS = LinkState;
        row("link: connecting", PanelText::linkLabel(LS::connecting, now, now), "LINKING");
        row("link: live, no update yet", PanelText::linkLabel(LS::live, {}, now), "LIVE");
        row("link: live, two minutes", PanelText::linkLabel(LS::live, now - 150, now), "LIVE \u00B7 2m");
        row("link: polling", PanelText::linkLabel(LS::polling, now - 150, now), "POLLING");
        row("link: down", PanelText::linkLabel(LS::down, {}, now), "OFFLINE");
        // The symbol follows the link; with every visible signal already a
        // hero, the stream's own message wins.
        row("empty: heroes only, offline", emptyState(false, LS::down),
            "antenna.radiowaves.left.and.right.slash / Nothing in this stream right now.");
        row("empty: connecting", emptyState(true, LS::connecting),
            "antenna.radiowaves.left.and.right / Connecting to the tape\u2026");
        row("empty: offline", emptyState(true, LS::down),
            "antenna.radiowaves.left.and.right.slash / Can't reach the tape right now.");
        row("empty: live", emptyState(true, LS::live), "wave.3.right / Nothing on the wire right now.");
        row("counters: nothing measured", counters({}, {}, LS::connecting), "7 shown|31 held");
        row("counters: rtt once a call completed", counters(41.6, {}, LS::polling),
            "RTT 42ms|7 shown|31 held");
        row("counters: tape age only when live", counters(12.4, 3.2, LS::live),
            "RTT 12ms|TAPE 3s|7 shown|31 held");
        row("counters: no tape while down", counters({}, 90, LS::down), "7 shown|31 held");
        row("counters: a frame newer than the clock is fresh", counters({}, -1.4, LS::live),
            "TAPE 0s|7 shown|31 held");
        row("counters: a mad clock shows no numbers",
            counters(notANumber, std::numeric_limits<double>::infinity(), LS::live), "7 shown|31 held");
        row("flow: buy rounded", PanelText::buyText(0.6271), "BUY 63%");
        row("flow: sell is the rest", PanelText::sellText(0.6271), "SELL 37%");
        row("flow rate", PanelText::flowRate(12.46), "12.5/m");
        row("money: truncates", PanelText::money(999.99), "$999");
        row("money: thousands truncate", PanelText::money(1999), "$1K");
        row("money: millions truncate", PanelText::money(1'500'000), "$1M");
        row("no minimum", PanelText::minimumSizeLabel(0), "Any");
        row("no focus", PanelText::focusLabel(0), "Off");
        row("version", PanelText::versionText(QStringLiteral("0.1.0")), "Version 0.1.0");
        row("unknown version", PanelText::versionText(QStringLiteral(" ")), "Version \u2014");
        row("buys unknown", PanelText::buysSellsText(std::nullopt, 3), "- buys / 3 sells");
        row("meta: win rate over age", PanelText::metaText(whale(0.62, now - 600), now), "62% WR");
        row("meta: no win rate, age", PanelText::metaText(whale({}, now - 600), now), "10m");
        row("meta: broken win rate, age", PanelText::metaText(whale(notANumber, now - 600), now), "10m");
        row("meta: an old pile-in", PanelText::metaText(whale({}, now - 3 * 3600, SignalKind::spike), now),
            "3h");
        row("ring: known", winRing(0.62), "62% WR");
        row("ring: never won", winRing(0.0), "0% WR");
        row("ring: unknown", winRing({}), "no ring");
    }
    void texts()
    {
        QFETCH(QString, actual);
        QFETCH(QString, expected);
        QCOMPARE(actual, expected);
    }

    // Every visible signal shows exactly once: the hero, two minis, then the stream.
    void heroesAndStreamSplitTheVisibleSignals_data()
    {
        QTest::addColumn<int>("visible");
        QTest::addColumn<int>("streamRows");
        QTest::newRow("heroes only") << 3 << 0;
        QTest::newRow("heroes and stream") << 5 << 2;
    }
    void heroesAndStreamSplitTheVisibleSignals()
    {
        QFETCH(int, visible);
        QFETCH(int, streamRows);
        feed(visible);
        PanelModel model(store.get());
        QVERIFY(model.hasHero());
        QCOMPARE(model.minis()->count(), 2);
        QCOMPARE(model.stream()->count(), streamRows);
        QStringList all = model.stream()->ids() + model.minis()->ids();
        all << model.hero()[QStringLiteral("signalId")].toString();
        QCOMPARE(all.removeDuplicates(), 0);
        QCOMPARE(all.size(), visible);
        QCOMPARE(model.emptyMessage(), QStringLiteral("Nothing in this stream right now."));
    }

    void bloomsOnlyForANewTopSignal()
    {
        feed(5);
        PanelModel model(store.get());
        QVERIFY2(!model.bloom(), "the top signal present at opening is not news");
        store->ingest({whaleFill(200, clock.t, 1500, QStringLiteral("small"), QStringLiteral("SML"))});
        QVERIFY2(!model.bloom(), "a small newcomer does not take the top");

        QSignalSpy bloom(&model, &PanelModel::bloomChanged);
        store->ingest({whaleFill(201, clock.t, 900000, QStringLiteral("big"), QStringLiteral("BIG"))});
        QCOMPARE(model.hero()[QStringLiteral("signalId")].toString(), QStringLiteral("tw-fill-201"));
        QVERIFY(model.bloom());
        QVERIFY(QTest::qWaitFor([&] { return !model.bloom(); }, 3000));
        QCOMPARE(bloom.count(), 2);
    }

    void clockAdvancesAges()
    {
        store->ingest({whaleFill(1, clock.t - 30, 5000)});
        PanelModel model(store.get());
        QCOMPARE(model.hero()[QStringLiteral("age")].toString(), QStringLiteral("now"));
        QVERIFY(model.clock()->isActive());
        clock.t += 150;
        model.tick(clock.t);
        QCOMPARE(model.hero()[QStringLiteral("age")].toString(), QStringLiteral("3m"));
    }

    // Each edit saves once and persists; pressing the selected value or
    // passing nonsense saves nothing.
    void settingsEdits_data()
    {
        QTest::addColumn<Edit>("edit");
        QTest::addColumn<Saved>("saved");
        QTest::newRow("minimum size")
            << Edit([](PanelModel &m, bool same) { return m.setMinimumSize(same ? 1000 : 5000); })
            << Saved([](const Preferences &p) { return p.minTradeUsd == 5000; });
        QTest::newRow("focus size") << Edit([](PanelModel &m, bool same) {
            return m.setFocusSize(same ? 25000 : 0);
        }) << Saved([](const Preferences &p) { return p.focalUsd == 0; });
        QTest::newRow("stream switch") << Edit([](PanelModel &m, bool same) {
            return m.setStreamEnabled(QStringLiteral("spike"), same);
        }) << Saved([](const Preferences &p) { return !p.shows(SignalKind::spike); });
        QTest::newRow("pause") << Edit([](PanelModel &m, bool same) { return m.setPaused(!same); })
                               << Saved([](const Preferences &p) { return p.paused; });
    }
    void settingsEdits()
    {
        QFETCH(Edit, edit);
        QFETCH(Saved, saved);
        PanelModel model(store.get());
        QSettings settings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin"));
        // A marker in the settings file shows whether anything was written.
        settings.setValue(QStringLiteral("minTradeUsd"), 777.0);
        settings.sync();
        QSignalSpy prefs(store.get(), &FeedStore::preferencesChanged);
        QVERIFY(!edit(model, true));
        QCOMPARE(prefs.count(), 0);
        settings.sync();
        QCOMPARE(settings.value(QStringLiteral("minTradeUsd")).toDouble(), 777.0);

        QVERIFY(edit(model, false));
        QCOMPARE(prefs.count(), 1);
        QCOMPARE(PreferencesStore::load(), store->preferences());
        QVERIFY(saved(PreferencesStore::load()));

        QVERIFY(!model.setMinimumSize(-5));
        QVERIFY(!model.setFocusSize(notANumber));
        QVERIFY(!model.setStreamEnabled(QStringLiteral("nonsense"), false));
        QCOMPARE(prefs.count(), 1);
    }

    // The switch shows what the system holds, not what was asked for.
    void launchAtLogin()
    {
        PanelModel model(store.get());
        model.setLaunchAtLogin(true);
        QVERIFY(model.launchAtLogin());
        QVERIFY(QFile::exists(PreferencesStore::autostartPath()));
        model.setLaunchAtLogin(false);
        QVERIFY(!model.launchAtLogin());
        QVERIFY(!QFile::exists(PreferencesStore::autostartPath()));

        model.setLaunchAtLoginHook = [](bool) {}; // the system refuses
        model.launchAtLoginHook = [] { return false; };
        model.setLaunchAtLogin(true);
        QVERIFY(!model.launchAtLogin());
    }

    // Links come from the wire: only web addresses reach the desktop.
    void onlyWebLinksOpen_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("opens");
        QTest::newRow("https") << QStringLiteral("https://dexscreener.com/solana/abc") << true;
        QTest::newRow("http") << QStringLiteral("http://127.0.0.1:47800/pair/1") << true;
        QTest::newRow("upper-case scheme") << QStringLiteral("HTTPS://example.org/x") << true;
        QTest::newRow("javascript") << QStringLiteral("javascript:alert(1)") << false;
        QTest::newRow("file") << QStringLiteral("file:///etc/passwd") << false;
        QTest::newRow("no host") << QStringLiteral("https:///nohost") << false;
        QTest::newRow("relative") << QStringLiteral("/pair/1") << false;
        QTest::newRow("empty") << QString() << false;
    }
    void onlyWebLinksOpen()
    {
        QFETCH(QString, url);
        QFETCH(bool, opens);
        PanelModel model(store.get());
        int opened = 0;
        model.openUrlHook = [&](const QUrl &) {
            ++opened;
            return true;
        };
        QCOMPARE(model.openLink(url), opens);
        QCOMPARE(opened, opens ? 1 : 0);
    }

    // Which body the inspector shows, and that blank evidence offers no links.
    void inspectorState_data()
    {
        QTest::addColumn<bool>("hasDetail");
        QTest::addColumn<bool>("blank");
        QTest::addColumn<bool>("failed");
        QTest::addColumn<QString>("state");
        QTest::addColumn<QStringList>("links");
        const QStringList none, both{QStringLiteral("CHART"), QStringLiteral("WALLET")};
        QTest::newRow("nothing yet") << false << false << false << QStringLiteral("loading") << none;
        QTest::newRow("failed") << false << false << true << QStringLiteral("failed") << none;
        QTest::newRow("details") << true << false << false << QStringLiteral("details") << both;
        QTest::newRow("blank details") << true << true << false << QStringLiteral("blank") << none;
        // Evidence once loaded wins over any stale failure mark.
        QTest::newRow("details beat a failure") << true << false << true << QStringLiteral("details") << both;
    }
    void inspectorState()
    {
        QFETCH(bool, hasDetail);
        QFETCH(bool, blank);
        QFETCH(bool, failed);
        QFETCH(QString, state);
        QFETCH(QStringList, links);
        const QString id = QStringLiteral("tw-fill-9");
        QHash<QString, SignalDetail> details;
        QSet<QString> failures;
        if (hasDetail) {
            SignalDetail d;
            d.signalId = id;
            d.links.chart = QUrl(QStringLiteral("https://a.example/c"));
            d.links.profile = QUrl(QStringLiteral("https://a.example/p"));
            if (!blank)
                d.token.emplace().symbol = QStringLiteral("WIF");
            details.insert(id, d);
        }
        if (failed)
            failures.insert(id);
        const QVariantMap info = PanelModel::inspectorFor(id, details, failures, now);
        QCOMPARE(info[QStringLiteral("state")].toString(), state);
        QCOMPARE(rows(info[QStringLiteral("links")], {QStringLiteral("title")}), links);
        // Another signal's evidence says nothing about this one.
        QCOMPARE(PanelModel::inspectorFor(QStringLiteral("other"), details, {}, now)[QStringLiteral("state")],
                 QVariant(QStringLiteral("loading")));
    }

    void inspectorModules()
    {
        const QString id = QStringLiteral("tw-fill-7");
        SignalDetail d;
        d.signalId = id;
        WalletProfile w;
        w.address = QStringLiteral("7xKXtg2CW87d97TXJSDpbD5jBkheTqA83TZRuJosgAsU");
        w.label = QStringLiteral("@<b>ansem</b>");
        w.winRate = 0.62;
        w.realizedPnlUsd = 182000;
        w.pnlRatio = -0.042;
        w.recentTrades = {{TradeSide::buy, QStringLiteral("WIF"), 45000, now - 300, std::nullopt},
                          {TradeSide::sell, QStringLiteral("BONK"), 12000, now - 7200, 0.31},
                          {TradeSide::buy, QStringLiteral("A"), 1, now, std::nullopt},
                          {TradeSide::buy, QStringLiteral("B"), 1, now, std::nullopt},
                          {TradeSide::buy, QStringLiteral("C"), 1, now, std::nullopt}};
        d.wallet = w;
        TokenProfile &t = d.token.emplace();
        t.symbol = QStringLiteral("WIF");
        t.priceUsd = 2.3412;
        t.liquidityUsd = 4'200'000;
        t.holders = 152033;
        t.poolAgeHours = 30;
        t.buys24 = 812;
        t.sells24 = 640;
        d.equity = EquityMove{QStringLiteral("TSLA"), MarketSession::post, 0.021, 251.5};
        d.links.chart = QUrl(QStringLiteral("https://dexscreener.com/solana/x"));
        d.links.profile = QUrl(QStringLiteral("javascript:alert(1)"));

        const QVariantMap info = PanelModel::inspectorFor(id, {{id, d}}, {}, now);
        const QVariantMap wallet = info[QStringLiteral("wallet")].toMap();
        QCOMPARE(wallet[QStringLiteral("title")].toString(), QStringLiteral("@<b>ansem</b>"));
        QCOMPARE(rows(wallet[QStringLiteral("stats")], stat, QLatin1Char('=')),
                 (QStringList{QStringLiteral("WIN RATE=62%"), QStringLiteral("FILLS=-"),
                              QStringLiteral("MEDIAN HOLD=-"), QStringLiteral("REALISED=$182.0K")}));
        QCOMPARE(wallet[QStringLiteral("delta")].toString(), QStringLiteral("-4.2%"));
        QVERIFY(wallet[QStringLiteral("deltaNegative")].toBool());
        const QStringList trades =
            rows(wallet[QStringLiteral("trades")], {QStringLiteral("side"), QStringLiteral("amount"),
                                                    QStringLiteral("age"), QStringLiteral("pnl")});
        QCOMPARE(trades.size(), 4); // at most four
        QCOMPARE(trades.mid(0, 2), (QStringList{QStringLiteral("BUY $45.0K 5m open"),
                                                QStringLiteral("SELL $12.0K 2h +31.0%")}));

        const QVariantMap token = info[QStringLiteral("token")].toMap();
        QCOMPARE(token[QStringLiteral("title")].toString(), QStringLiteral("$2.34"));
        QCOMPARE(rows(token[QStringLiteral("stats")], stat, QLatin1Char('=')),
                 (QStringList{QStringLiteral("LIQUIDITY=$4.20M"), QStringLiteral("24H VOLUME=-"),
                              QStringLiteral("HOLDERS=152,033"), QStringLiteral("POOL AGE=1d 6h")}));
        QCOMPARE(token[QStringLiteral("flowLine")].toString(), QStringLiteral("812 buys / 640 sells"));
        QCOMPARE(rows(QVariantList{info[QStringLiteral("equity")]},
                      {QStringLiteral("title"), QStringLiteral("delta"), QStringLiteral("session")}),
                 QStringList{QStringLiteral("$251.50 +2.1% After hours")});
        QCOMPARE(rows(info[QStringLiteral("links")], {QStringLiteral("title")}),
                 QStringList{QStringLiteral("CHART")}); // the script link is dropped
    }
};

QTEST_MAIN(PanelModelTest)
#include "tst_panel_model.moc"
