// The panel against the local tape service: real evidence in the inspector
// and the snapshot renderer with live data.

#include "Panel/PanelModel.h"
#include "Panel/PanelSnapshots.h"
#include "PanelTestSupport.h"
#include "TarnwickSim.h"

#include <QImage>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

class PanelLiveTest : public QObject {
    Q_OBJECT

    std::unique_ptr<tarnwick::SimServer> sim;
    std::unique_ptr<FeedStore> store;

    std::optional<Signal> whaleWithWallet() const
    {
        for (const Signal &s : store->signalList())
            if (s.kind == SignalKind::whale && s.wallet && s.wallet->label)
                return s;
        return std::nullopt;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
        tarnwick::SimOptions options;
        options.port = 0;
        options.ratePerMinute = 240;
        options.seed = 7;
        sim = std::make_unique<tarnwick::SimServer>(options);
        QString error;
        QVERIFY2(sim->start(&error), qPrintable(error));
        store = std::make_unique<FeedStore>(
            new TarnwickClient(sim->httpBase(), sim->socketURL(), TarnwickTiming{}, systemNow), systemNow);
        store->setPreferences(Preferences::defaults());
        store->start();
        QVERIFY(QTest::qWaitFor([&] { return store->signalList().size() >= 6 && whaleWithWallet(); }, 20000));
    }
    void cleanupTestCase()
    {
        if (store)
            store->stop();
        store.reset();
        sim.reset();
    }

    void openingAWhaleShowsItsEvidence()
    {
        PanelModel model(store.get());
        const Signal whale = *whaleWithWallet();
        model.toggle(whale.id);
        QCOMPARE(model.inspector(whale.id)[QStringLiteral("state")].toString(), QStringLiteral("loading"));
        QVERIFY(QTest::qWaitFor([&] { return store->details().contains(whale.id); }, 10000));
        const QVariantMap info = model.inspector(whale.id);
        QCOMPARE(info[QStringLiteral("state")].toString(), QStringLiteral("details"));
        const QVariantMap wallet = info[QStringLiteral("wallet")].toMap();
        QCOMPARE(wallet[QStringLiteral("title")].toString(), *whale.wallet->label);
        QCOMPARE(wallet[QStringLiteral("stats")].toList().size(), 4);
        for (const QVariant &link : info[QStringLiteral("links")].toList())
            QVERIFY(link.toMap()[QStringLiteral("url")].toString().startsWith(QStringLiteral("http")));
        // Loaded once: opening again sends nothing.
        model.toggle(whale.id);
        model.toggle(whale.id);
        QVERIFY(!store->loadingDetail().contains(whale.id));
    }

    void snapshotsOfLiveData()
    {
        QTemporaryDir dir;
        int calls = 0;
        bool ok = false;
        QString error;
        PanelSnapshots::render(*store, dir.path(), [&](bool success, QString why) {
            ++calls;
            ok = success;
            error = why;
        });
        QVERIFY(QTest::qWaitFor([&] { return calls > 0; }, PanelSnapshots::timeoutMs + 2000));
        QVERIFY2(ok, qPrintable(error));
        for (const char *name :
             {"panel.png", "settings.png", "inspector.png", "inspector-loading.png", "hero-detail.png"})
            QCOMPARE(QImage(dir.filePath(QString::fromLatin1(name))).size(), QSize(800, 1240));
    }
};

QTEST_MAIN(PanelLiveTest)
#include "tst_panel_live.moc"
