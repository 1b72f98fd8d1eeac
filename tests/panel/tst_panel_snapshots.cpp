// Off-screen pictures of the panel, and the panel against the local tape
// service: real evidence in the inspector and pictures of live data.

#include "Panel/PanelModel.h"
#include "Panel/PanelSnapshots.h"
#include "PanelTestSupport.h"
#include "TarnwickSim.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QQuickItem>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

class PanelSnapshotsTest : public QObject {
    Q_OBJECT

    TestClock clock;
    std::unique_ptr<tarnwick::SimServer> sim;
    std::unique_ptr<FeedStore> store;

    struct Result {
        int calls = 0;
        bool ok = false;
        QString error;
    };

    Result renderInto(const QString &dir)
    {
        Result result;
        PanelSnapshots::render(*store, dir, [&result](bool ok, QString error) {
            ++result.calls;
            result.ok = ok;
            result.error = error;
        });
        if (!QTest::qWaitFor([&] { return result.calls > 0; }, PanelSnapshots::timeoutMs + 2000))
            result.error = QStringLiteral("done was never called");
        QTest::qWait(50); // a second call would show up here
        return result;
    }

    // The five pictures at twice the size. Nothing shows outside the rounded
    // edge: the corner areas beyond the 14-pt radius stay fully transparent.
    // With known content, the middle is the dark panel.
    void checkPictures(const QDir &dir, bool knownContent)
    {
        const double r = 14 * 2;
        for (const char *name :
             {"panel.png", "settings.png", "inspector.png", "inspector-loading.png", "hero-detail.png"}) {
            const QImage image =
                QImage(dir.filePath(QString::fromLatin1(name))).convertToFormat(QImage::Format_ARGB32);
            QVERIFY2(!image.isNull(), name);
            QCOMPARE(image.size(), QSize(800, 1240));
            const int w = image.width(), h = image.height();
            for (int y = 0; y < r; ++y)
                for (int x = 0; x < r; ++x) {
                    if (std::hypot(r - (x + 0.5), r - (y + 0.5)) < r + 1.5) // a pixel of antialiasing
                        continue;
                    for (const QPoint p : {QPoint(x, y), QPoint(w - 1 - x, y), QPoint(x, h - 1 - y),
                                           QPoint(w - 1 - x, h - 1 - y)})
                        QVERIFY2(qAlpha(image.pixel(p)) == 0, qPrintable(QStringLiteral("%1 at %2,%3")
                                                                             .arg(QLatin1String(name))
                                                                             .arg(p.x())
                                                                             .arg(p.y())));
                }
            const QRgb middle = image.pixel(400, 620);
            QVERIFY2(!knownContent || (qAlpha(middle) > 200 && qRed(middle) < 90), name);
        }
    }

private Q_SLOTS:
    void init()
    {
        QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
        clock = TestClock{};
        clock.t = systemNow();
        store = unreachableStore(clock);
        store->setPreferences(Preferences::defaults());
    }
    void cleanup()
    {
        if (store)
            store->stop();
        store.reset();
        sim.reset();
    }

    // Every rule and every edge is one device pixel at 1x and at 2x, in the
    // tree and in the picture: the rail's rule is a single row of pixels.
    void hairlinesAreOneDevicePixel_data()
    {
        QTest::addColumn<double>("dpr");
        QTest::newRow("1x") << 1.0;
        QTest::newRow("2x") << 2.0;
    }
    void hairlinesAreOneDevicePixel()
    {
        QFETCH(double, dpr);
        QList<TwFill> fills;
        for (int i = 0; i < 7; ++i)
            fills << whaleFill(100 + i, clock.t - 30 * (7 - i), 2000.0 * (i + 1));
        store->ingest(fills);
        OffscreenPanel panel(store.get(), dpr);
        QVERIFY(panel.open());
        QVERIFY(panel.rootItem());
        QTest::qWait(PanelSnapshots::settleMs);
        const QImage image = panel.grab();

        QList<QQuickItem *> items{panel.rootItem()};
        for (int i = 0; i < items.size(); ++i)
            items += items.at(i)->childItems();
        int rules = 0, edges = 0;
        QQuickItem *railRule = nullptr;
        for (QQuickItem *item : std::as_const(items)) {
            if (!item->isVisible())
                continue;
            if (item->objectName() == QLatin1String("hairline")) {
                ++rules;
                QVERIFY2(qFuzzyCompare(item->height() * dpr, 1.0),
                         qPrintable(QString::number(item->height() * dpr)));
                // The topmost rule is the rail's.
                if (!railRule ||
                    item->mapToScene(QPointF(0, 0)).y() < railRule->mapToScene(QPointF(0, 0)).y())
                    railRule = item;
            }
            if (item->inherits("QQuickRectangle")) {
                const auto *border = item->property("border").value<QObject *>();
                const double width = border ? border->property("width").toReal() : 0;
                // An untouched border reads as 1-pt opaque black but is never drawn.
                const QColor colour = border ? border->property("color").value<QColor>() : QColor();
                if (width > 0 && colour.alpha() > 0 && colour != QColor(Qt::black)) {
                    ++edges;
                    QVERIFY2(width * dpr <= 1.0 + 1e-9,
                             qPrintable(QString::number(width * dpr) + QLatin1Char(' ') +
                                        QString::fromLatin1(item->metaObject()->className())));
                }
            }
        }
        QVERIFY(rules >= 1);
        QVERIFY(edges >= 5);
        QVERIFY(railRule);

        // Down the middle of the picture, the rule is one row unlike its
        // neighbours, which are alike.
        const int x = int(image.width() / 2);
        const int y = int(std::lround(railRule->mapToScene(QPointF(0, 0)).y() * dpr));
        const auto grey = [&](int row) { return qGray(image.pixel(x, row)); };
        QVERIFY2(std::abs(grey(y) - grey(y - 1)) >= 6 && std::abs(grey(y) - grey(y + 1)) >= 6,
                 qPrintable(QStringLiteral("%1 %2 %3").arg(grey(y - 1)).arg(grey(y)).arg(grey(y + 1))));
        QVERIFY2(std::abs(grey(y - 1) - grey(y + 1)) <= 3,
                 qPrintable(QStringLiteral("%1 %2 %3").arg(grey(y - 1)).arg(grey(y)).arg(grey(y + 1))));
    }

    void writesTheFivePictures_data()
    {
        QTest::addColumn<int>("whales");
        QTest::newRow("empty store") << 0;
        QTest::newRow("whales, evidence failing") << 7;
    }
    void writesTheFivePictures()
    {
        QFETCH(int, whales);
        QList<TwFill> fills;
        for (int i = 0; i < whales; ++i)
            fills << whaleFill(10 + i, clock.t - 20 * i, 4000.0 * (i + 1), QStringLiteral("w%1").arg(i),
                               QStringLiteral("S%1").arg(i));
        store->ingest(fills);
        QTemporaryDir temporary;
        QVERIFY(temporary.isValid());
        // LARKPIN_KEEP_PICTURES=<dir> keeps them for a look.
        const QDir dir(qEnvironmentVariableIsSet("LARKPIN_KEEP_PICTURES")
                           ? qEnvironmentVariable("LARKPIN_KEEP_PICTURES")
                           : temporary.path());
        QElapsedTimer timer;
        timer.start();
        const Result result = renderInto(dir.path());
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.calls, 1);
        QVERIFY(timer.elapsed() < PanelSnapshots::timeoutMs);
        checkPictures(dir, whales > 0);
        // The loading picture was taken with the evidence still on its way.
        QVERIFY(whales == 0 || !store->loadingDetail().isEmpty() || !store->failedDetail().isEmpty());
    }

    void anUnwritableDirectoryIsAClearError()
    {
        QTemporaryDir dir;
        const QString blocker = dir.filePath(QStringLiteral("a-file"));
        QFile file(blocker);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        const Result result = renderInto(blocker + QStringLiteral("/pictures"));
        QCOMPARE(result.calls, 1);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.contains(QStringLiteral("cannot")), qPrintable(result.error));
    }

    void liveTape()
    {
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
        const auto whaleWithWallet = [&]() -> std::optional<Signal> {
            for (const Signal &s : store->signalList())
                if (s.kind == SignalKind::whale && s.wallet && s.wallet->label)
                    return s;
            return std::nullopt;
        };
        QVERIFY(QTest::qWaitFor([&] { return store->signalList().size() >= 6 && whaleWithWallet(); }, 20000));

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

        QTemporaryDir dir;
        const Result result = renderInto(dir.path());
        QVERIFY2(result.ok, qPrintable(result.error));
        checkPictures(QDir(dir.path()), false);
    }
};

QTEST_MAIN(PanelSnapshotsTest)
#include "tst_panel_snapshots.moc"
