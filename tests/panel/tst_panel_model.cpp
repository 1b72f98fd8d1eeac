// The panel's model over a real store: chips, navigation, bloom, settings
// edits, links and the inspector's content.

#include "Model/Preferences.h"
#include "Panel/PanelModel.h"
#include "PanelTestSupport.h"

#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

class PanelModelTest : public QObject {
    Q_OBJECT

    TestClock clock;
    std::unique_ptr<FeedStore> store;

    // Five whales of rising size, one minute apart, plus a second wallet's sell.
    void feed()
    {
        QList<TwFill> fills;
        for (int i = 0; i < 5; ++i)
            fills << whaleFill(100 + i, clock.t - 60 * (5 - i), 2000.0 * (i + 1),
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

    void chipsCountAndSelect()
    {
        feed();
        PanelModel model(store.get());
        QVariantList chips = model.chips();
        QCOMPARE(chips.size(), 4);
        QCOMPARE(chips[0].toMap()[QStringLiteral("label")].toString(), QStringLiteral("ALL"));
        QCOMPARE(chips[0].toMap()[QStringLiteral("trailing")].toString(), QStringLiteral("5"));
        QCOMPARE(chips[1].toMap()[QStringLiteral("trailing")].toString(), QStringLiteral("5"));
        QCOMPARE(chips[2].toMap()[QStringLiteral("trailing")].toString(), QStringLiteral("0"));
        QVERIFY(chips[0].toMap()[QStringLiteral("selected")].toBool());

        QSignalSpy changed(&model, &PanelModel::chipsChanged);
        model.selectFilter(2); // SPIKE
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));
        QVERIFY(changed.count() >= 1);
        chips = model.chips();
        QVERIFY(!chips[0].toMap()[QStringLiteral("selected")].toBool());
        QVERIFY(chips[2].toMap()[QStringLiteral("selected")].toBool());
        // The all chip still counts everything.
        QCOMPARE(chips[0].toMap()[QStringLiteral("trailing")].toString(), QStringLiteral("5"));
        QVERIFY(model.streamEmpty());
        QVERIFY(!model.hasHero());
        QCOMPARE(model.emptyMessage(), QStringLiteral("Connecting to the tape\u2026"));

        model.selectFilter(7); // out of range: ignored
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));
    }

    void heroesAndStreamSplitTheVisibleSignals()
    {
        feed();
        PanelModel model(store.get());
        QVERIFY(model.hasHero());
        QCOMPARE(model.minis()->count(), 2);
        QCOMPARE(model.stream()->count(), 2);
        QStringList all = model.stream()->ids() + model.minis()->ids();
        all << model.hero()[QStringLiteral("signalId")].toString();
        all.sort();
        QCOMPARE(all.size(), 5);
        QCOMPARE(all.removeDuplicates(), 0);
        QCOMPARE(model.emptyMessage(), QStringLiteral("Nothing in this stream right now."));
    }

    void toggleOpensOneAtATimeAndLoadsOnce()
    {
        feed();
        PanelModel model(store.get());
        const QString first = model.stream()->ids().at(0);
        const QString second = model.stream()->ids().at(1);

        model.toggle(first);
        QCOMPARE(model.openId(), first);
        QVERIFY(store->loadingDetail().contains(first));
        // The closed port fails the load.
        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(first); }, 10000));

        QSignalSpy loading(store.get(), &FeedStore::loadingDetailChanged);
        model.toggle(first); // tapping the open row closes it, and loads nothing
        QCOMPARE(model.openId(), QString());
        QCOMPARE(loading.count(), 0);
        QVERIFY(store->failedDetail().contains(first));

        model.toggle(first);
        model.toggle(second); // moves the expansion and loads that one
        QCOMPARE(model.openId(), second);
        QVERIFY(store->loadingDetail().contains(second));
    }

    // A mini hero opens onto the detail card; closing the card closes it and
    // loads nothing more. The big hero unfolds in place instead.
    void miniHeroOpensTheDetailCard()
    {
        feed();
        PanelModel model(store.get());
        QVERIFY(model.minis()->count() >= 1);
        const QString mini = model.minis()->ids().at(0);
        const QString hero = model.hero()[QStringLiteral("signalId")].toString();
        QVERIFY(model.detailCard().isEmpty());

        QSignalSpy card(&model, &PanelModel::detailCardChanged);
        model.toggle(mini);
        QVERIFY(card.count() >= 1);
        QCOMPARE(model.detailCard()[QStringLiteral("signalId")].toString(), mini);
        QVERIFY(store->loadingDetail().contains(mini));
        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(mini); }, 10000));

        QSignalSpy loading(store.get(), &FeedStore::loadingDetailChanged);
        model.closeDetailCard();
        QCOMPARE(model.openId(), QString());
        QVERIFY(model.detailCard().isEmpty());
        QCOMPARE(loading.count(), 0);

        model.toggle(hero);
        QCOMPARE(model.openId(), hero);
        QVERIFY(model.detailCard().isEmpty());
        model.closeDetailCard(); // no card: the open hero stays open
        QCOMPARE(model.openId(), hero);
    }

    void retryShowsLoadingAtOnce()
    {
        feed();
        PanelModel model(store.get());
        const QString id = model.stream()->ids().at(0);
        model.toggle(id);
        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(id); }, 10000));
        QCOMPARE(model.inspector(id)[QStringLiteral("state")].toString(), QStringLiteral("failed"));
        model.retry(id);
        QCOMPARE(model.inspector(id)[QStringLiteral("state")].toString(), QStringLiteral("loading"));
    }

    void bloomsOnlyForANewTopSignal()
    {
        feed();
        PanelModel model(store.get());
        QVERIFY2(!model.bloom(), "the top signal present at opening is not news");

        // A small newcomer does not take the top: no bloom.
        store->ingest({whaleFill(200, clock.t, 1500, QStringLiteral("small"), QStringLiteral("SML"))});
        QVERIFY(!model.bloom());

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
        QCOMPARE(model.clock()->interval(), 3000);
        QVERIFY(model.clock()->isActive());
        clock.t += 150;
        model.tick(clock.t);
        QCOMPARE(model.hero()[QStringLiteral("age")].toString(), QStringLiteral("3m"));
    }

    void settingsEdits_data()
    {
        QTest::addColumn<QString>("edit");
        QTest::newRow("minimum size") << QStringLiteral("minimum");
        QTest::newRow("focus size") << QStringLiteral("focus");
        QTest::newRow("stream switch") << QStringLiteral("stream");
        QTest::newRow("pause") << QStringLiteral("pause");
    }
    void settingsEdits()
    {
        QFETCH(QString, edit);
        PanelModel model(store.get());
        QSettings settings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin"));
        // A marker in the settings file shows whether anything was written.
        settings.setValue(QStringLiteral("minTradeUsd"), 777.0);
        settings.sync();
        const auto apply = [&](bool same) {
            if (edit == QLatin1String("minimum"))
                return model.setMinimumSize(same ? 1000 : 5000);
            if (edit == QLatin1String("focus"))
                return model.setFocusSize(same ? 25000 : 0);
            if (edit == QLatin1String("stream"))
                return model.setStreamEnabled(QStringLiteral("spike"), !same ? false : true);
            return model.setPaused(!same);
        };
        QSignalSpy prefs(store.get(), &FeedStore::preferencesChanged);
        QVERIFY2(!apply(true), "pressing the selected value saves nothing");
        QCOMPARE(prefs.count(), 0);
        settings.sync();
        QCOMPARE(settings.value(QStringLiteral("minTradeUsd")).toDouble(), 777.0);

        QVERIFY(apply(false));
        QCOMPARE(prefs.count(), 1);
        settings.sync();
        const Preferences saved = PreferencesStore::load();
        QCOMPARE(saved, store->preferences());
        if (edit == QLatin1String("minimum"))
            QCOMPARE(saved.minTradeUsd, 5000.0);
        else if (edit == QLatin1String("focus"))
            QCOMPARE(saved.focalUsd, 0.0);
        else if (edit == QLatin1String("stream"))
            QVERIFY(!saved.shows(SignalKind::spike));
        else
            QVERIFY(saved.paused);
    }

    void settingsChipsFollowThePreferences()
    {
        PanelModel model(store.get());
        model.setMinimumSize(25000);
        const QVariantList chips = model.minimumChips();
        QCOMPARE(chips.size(), 5);
        QCOMPARE(chips[4].toMap()[QStringLiteral("label")].toString(), QStringLiteral("$25K"));
        QVERIFY(chips[4].toMap()[QStringLiteral("selected")].toBool());
        QVERIFY(!chips[2].toMap()[QStringLiteral("selected")].toBool());
        QVERIFY(!model.setMinimumSize(-5));
        QCOMPARE(store->preferences().minTradeUsd, 25000.0);
    }

    void pauseButtonFlipsThePreference()
    {
        PanelModel model(store.get());
        QCOMPARE(model.pauseHelp(), QStringLiteral("Pause ticker"));
        model.togglePause();
        QVERIFY(store->preferences().paused);
        QCOMPARE(model.pauseSymbol(), QStringLiteral("play.fill"));
        QCOMPARE(model.pauseHelp(), QStringLiteral("Resume ticker"));
        model.togglePause();
        QVERIFY(!store->preferences().paused);
    }

    void launchAtLoginShowsWhatTheSystemHolds()
    {
        PanelModel model(store.get());
        bool registered = false;
        model.setLaunchAtLoginHook = [&](bool) {}; // the system refuses
        model.launchAtLoginHook = [&] { return registered; };
        model.setLaunchAtLogin(true);
        QVERIFY(!model.launchAtLogin());
        model.setLaunchAtLoginHook = [&](bool on) { registered = on; };
        model.setLaunchAtLogin(true);
        QVERIFY(model.launchAtLogin());
    }

    void launchAtLoginWritesTheAutostartEntry()
    {
        PanelModel model(store.get());
        model.setLaunchAtLogin(true);
        QVERIFY(model.launchAtLogin());
        QVERIFY(QFile::exists(PreferencesStore::autostartPath()));
        model.setLaunchAtLogin(false);
        QVERIFY(!model.launchAtLogin());
        QVERIFY(!QFile::exists(PreferencesStore::autostartPath()));
    }

    void onlyWebLinksOpen_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("opens");
        QTest::newRow("https") << QStringLiteral("https://dexscreener.com/solana/x") << true;
        QTest::newRow("http") << QStringLiteral("http://localhost:47800/p") << true;
        QTest::newRow("javascript") << QStringLiteral("javascript:alert(1)") << false;
        QTest::newRow("file") << QStringLiteral("file:///etc/passwd") << false;
        QTest::newRow("garbage") << QStringLiteral("ht!tp://::") << false;
    }
    void onlyWebLinksOpen()
    {
        QFETCH(QString, url);
        QFETCH(bool, opens);
        PanelModel model(store.get());
        QStringList opened;
        model.openUrlHook = [&](const QUrl &u) {
            opened << u.toString();
            return true;
        };
        QCOMPARE(model.openLink(url), opens);
        QCOMPARE(opened.size(), opens ? 1 : 0);
    }

    void settingsFooter()
    {
        PanelModel model(store.get());
        QVERIFY(model.versionText().startsWith(QStringLiteral("Version ")));
        QVERIFY(model.versionText().size() > 8);
        QCOMPARE(model.siteText(), QStringLiteral("LARKPIN.APP"));
        bool quit = false;
        model.quitHook = [&] { quit = true; };
        model.quit();
        QVERIFY(quit);
    }

    void inspectorModules()
    {
        const double now = 1'700'000'000;
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
        TokenProfile t;
        t.symbol = QStringLiteral("WIF");
        t.priceUsd = 2.3412;
        t.liquidityUsd = 4'200'000;
        t.holders = 152033;
        t.poolAgeHours = 30;
        t.buys24 = 812;
        t.sells24 = 640;
        d.token = t;
        d.equity = EquityMove{QStringLiteral("TSLA"), MarketSession::post, 0.021, 251.5};
        d.links.chart = QUrl(QStringLiteral("https://dexscreener.com/solana/x"));
        d.links.profile = QUrl(QStringLiteral("javascript:alert(1)"));

        const QVariantMap info = PanelModel::inspectorFor(id, {{id, d}}, {}, now);
        QCOMPARE(info[QStringLiteral("state")].toString(), QStringLiteral("details"));

        const QVariantMap wallet = info[QStringLiteral("wallet")].toMap();
        QCOMPARE(wallet[QStringLiteral("title")].toString(), QStringLiteral("@<b>ansem</b>"));
        const QVariantList stats = wallet[QStringLiteral("stats")].toList();
        QStringList pairs;
        for (const QVariant &s : stats)
            pairs << s.toMap()[QStringLiteral("label")].toString() + QLatin1Char('=') +
                         s.toMap()[QStringLiteral("value")].toString();
        QCOMPARE(pairs, (QStringList{QStringLiteral("WIN RATE=62%"), QStringLiteral("FILLS=-"),
                                     QStringLiteral("MEDIAN HOLD=-"), QStringLiteral("REALISED=$182.0K")}));
        QVERIFY(wallet[QStringLiteral("hasDelta")].toBool());
        QCOMPARE(wallet[QStringLiteral("delta")].toString(), QStringLiteral("-4.2%"));
        QVERIFY(wallet[QStringLiteral("deltaNegative")].toBool());
        QCOMPARE(wallet[QStringLiteral("deltaNote")].toString(), QStringLiteral("unrealised, open bags"));
        const QVariantList trades = wallet[QStringLiteral("trades")].toList();
        QCOMPARE(trades.size(), 4); // at most four
        const QVariantMap open = trades[0].toMap();
        QCOMPARE(open[QStringLiteral("side")].toString(), QStringLiteral("BUY"));
        QCOMPARE(open[QStringLiteral("amount")].toString(), QStringLiteral("$45.0K"));
        QCOMPARE(open[QStringLiteral("age")].toString(), QStringLiteral("5m"));
        QCOMPARE(open[QStringLiteral("pnl")].toString(), QStringLiteral("open"));
        const QVariantMap closed = trades[1].toMap();
        QCOMPARE(closed[QStringLiteral("side")].toString(), QStringLiteral("SELL"));
        QCOMPARE(closed[QStringLiteral("pnl")].toString(), QStringLiteral("+31.0%"));
        QCOMPARE(closed[QStringLiteral("age")].toString(), QStringLiteral("2h"));

        const QVariantMap token = info[QStringLiteral("token")].toMap();
        QCOMPARE(token[QStringLiteral("eyebrow")].toString(), QStringLiteral("TOKEN"));
        QCOMPARE(token[QStringLiteral("title")].toString(), QStringLiteral("$2.34"));
        pairs.clear();
        for (const QVariant &s : token[QStringLiteral("stats")].toList())
            pairs << s.toMap()[QStringLiteral("label")].toString() + QLatin1Char('=') +
                         s.toMap()[QStringLiteral("value")].toString();
        QCOMPARE(pairs, (QStringList{QStringLiteral("LIQUIDITY=$4.20M"), QStringLiteral("24H VOLUME=-"),
                                     QStringLiteral("HOLDERS=152,033"), QStringLiteral("POOL AGE=1d 6h")}));
        QCOMPARE(token[QStringLiteral("flowLine")].toString(), QStringLiteral("812 buys / 640 sells"));

        const QVariantMap equity = info[QStringLiteral("equity")].toMap();
        QCOMPARE(equity[QStringLiteral("eyebrow")].toString(), QStringLiteral("EQUITY"));
        QCOMPARE(equity[QStringLiteral("title")].toString(), QStringLiteral("$251.50"));
        QCOMPARE(equity[QStringLiteral("delta")].toString(), QStringLiteral("+2.1%"));
        QCOMPARE(equity[QStringLiteral("session")].toString(), QStringLiteral("After hours"));

        // Only the web link survives.
        const QVariantList links = info[QStringLiteral("links")].toList();
        QCOMPARE(links.size(), 1);
        QCOMPARE(links[0].toMap()[QStringLiteral("title")].toString(), QStringLiteral("CHART"));
    }

    void inspectorBlankAndLinks()
    {
        const QString id = QStringLiteral("tw-radar-x-1");
        SignalDetail d;
        d.signalId = id;
        d.links.chart = QUrl(QStringLiteral("https://a.example/c"));
        d.links.profile = QUrl(QStringLiteral("https://a.example/p"));
        QVariantMap info = PanelModel::inspectorFor(id, {{id, d}}, {}, 0);
        QCOMPARE(info[QStringLiteral("state")].toString(), QStringLiteral("blank"));
        QVERIFY(!info.contains(QStringLiteral("links")));

        TokenProfile token;
        token.symbol = QStringLiteral("X");
        d.token = token;
        info = PanelModel::inspectorFor(id, {{id, d}}, {}, 0);
        const QVariantList links = info[QStringLiteral("links")].toList();
        QCOMPARE(links.size(), 2);
        QCOMPARE(links[0].toMap()[QStringLiteral("title")].toString(), QStringLiteral("CHART"));
        QCOMPARE(links[1].toMap()[QStringLiteral("title")].toString(), QStringLiteral("WALLET"));
        QCOMPARE(info[QStringLiteral("token")].toMap()[QStringLiteral("title")].toString(),
                 QStringLiteral("-"));
    }
};

QTEST_MAIN(PanelModelTest)
#include "tst_panel_model.moc"
