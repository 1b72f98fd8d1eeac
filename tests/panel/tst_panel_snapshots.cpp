// Off-screen pictures of the panel: sizes, files, errors, and no hang.

#include "Panel/PanelModel.h"
#include "Panel/PanelSnapshots.h"
#include "PanelTestSupport.h"

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

private Q_SLOTS:
    void init()
    {
        QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
        clock = TestClock{};
        clock.t = systemNow();
        store = unreachableStore(clock);
        store->setPreferences(Preferences::defaults());
    }
    void cleanup() { store.reset(); }

    void writesTheFivePicturesAtTwice()
    {
        QList<TwFill> fills;
        for (int i = 0; i < 7; ++i)
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
        for (const char *name :
             {"panel.png", "settings.png", "inspector.png", "inspector-loading.png", "hero-detail.png"}) {
            const QImage image(dir.filePath(QString::fromLatin1(name)));
            QVERIFY2(!image.isNull(), name);
            QCOMPARE(image.size(), QSize(800, 1240));
            // The rounded corner stays clear; the middle is the dark panel.
            QCOMPARE(qAlpha(image.pixel(0, 0)), 0);
            const QRgb middle = image.pixel(400, 620);
            QVERIFY2(qAlpha(middle) > 200 && qRed(middle) < 90, name);
        }
        // The loading picture was taken with the evidence still on its way.
        QVERIFY(!store->loadingDetail().isEmpty() || !store->failedDetail().isEmpty());
    }

    void anEmptyStoreStillRenders()
    {
        QTemporaryDir dir;
        const Result result = renderInto(dir.path());
        QVERIFY2(result.ok, qPrintable(result.error));
        QVERIFY(QFile::exists(dir.filePath(QStringLiteral("hero-detail.png"))));
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

    // Nothing of the panel shows outside its rounded edge: the four corner
    // areas beyond the 14-pt radius stay fully transparent, settings open or not.
    void nothingShowsOutsideTheRoundedCorners()
    {
        store->ingest({whaleFill(1, clock.t, 5000)});
        OffscreenPanel panel(store.get());
        QVERIFY(panel.isValid());
        for (bool settings : {false, true}) {
            panel.open()->setShowSettings(settings);
            const QImage image = panel.grab().convertToFormat(QImage::Format_ARGB32);
            const int w = image.width(), h = image.height();
            const double r = 14 * 2; // pixels at 2x
            for (int y = 0; y < r; ++y)
                for (int x = 0; x < r; ++x) {
                    // Outside the corner's circle, with a pixel of antialiasing.
                    if (std::hypot(r - (x + 0.5), r - (y + 0.5)) < r + 1.5)
                        continue;
                    for (const QPoint p : {QPoint(x, y), QPoint(w - 1 - x, y), QPoint(x, h - 1 - y),
                                           QPoint(w - 1 - x, h - 1 - y)})
                        QVERIFY2(
                            qAlpha(image.pixel(p)) == 0,
                            qPrintable(
                                QStringLiteral("%1,%2 settings %3").arg(p.x()).arg(p.y()).arg(settings)));
                }
        }
    }

    void offscreenPanelIsTwiceTheSize()
    {
        store->ingest({whaleFill(1, clock.t, 5000)});
        OffscreenPanel panel(store.get());
        QVERIFY(panel.isValid());
        PanelModel *model = panel.open();
        QVERIFY(model);
        QVERIFY(panel.rootItem());
        const QImage image = panel.grab();
        QCOMPARE(image.size(), QSize(800, 1240));
        QCOMPARE(image.devicePixelRatio(), 2.0);
        panel.closeTree();
        QVERIFY(!panel.rootItem());
    }
};

QTEST_MAIN(PanelSnapshotsTest)
#include "tst_panel_snapshots.moc"
