// Off-screen pictures of the panel: every view written, nothing drawn outside
// the rounded edge, and every rule and edge one device pixel.

#include "Panel/PanelSnapshots.h"
#include "PanelTestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <cmath>

class PanelSnapshotsTest : public QObject, private PanelRig {
    Q_OBJECT

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
                        QVERIFY2(qAlpha(image.pixel(p)) == 0,
                                 QByteArray(QByteArray(name) + ' ' + QByteArray::number(p.x()) + ',' +
                                            QByteArray::number(p.y()))
                                     .constData());
                }
            const QRgb middle = image.pixel(400, 620);
            QVERIFY2(!knownContent || (qAlpha(middle) > 200 && qRed(middle) < 90), name);
        }
    }

private Q_SLOTS:
    void init()
    {
        freshStore();
        clock.t = systemNow();
    }
    void cleanup() { dropAll(); }

    // Every rule and every edge is one device pixel at 1x and at 2x, in the
    // tree and in the picture: the rail's rule is a single row of pixels.
    void hairlinesAreOneDevicePixel_data() { eitherWay("twice", "1x", "2x"); }
    void hairlinesAreOneDevicePixel()
    {
        QFETCH(bool, twice);
        const double dpr = twice ? 2.0 : 1.0;
        store->ingest(whaleRun(7, clock.t));
        OffscreenPanel offscreen(store.get(), dpr);
        QVERIFY(offscreen.open());
        QVERIFY(offscreen.rootItem());
        QTest::qWait(PanelSnapshots::settleMs);
        const QImage image = offscreen.grab();

        int rules = 0, edges = 0;
        QQuickItem *railRule = nullptr;
        for (QQuickItem *item : allItems(offscreen.rootItem())) {
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
        const int above = qGray(image.pixel(x, y - 1)), at = qGray(image.pixel(x, y)),
                  below = qGray(image.pixel(x, y + 1));
        const QByteArray greys =
            QByteArray::number(above) + ' ' + QByteArray::number(at) + ' ' + QByteArray::number(below);
        QVERIFY2(std::abs(at - above) >= 6 && std::abs(at - below) >= 6, greys.constData());
        QVERIFY2(std::abs(above - below) <= 3, greys.constData());
    }

    void writesTheFivePictures_data() { eitherWay("whales", "empty store", "whales, evidence failing"); }
    void writesTheFivePictures()
    {
        QFETCH(bool, whales);
        store->ingest(whaleRun(whales ? 7 : 0, clock.t, 20, 4000));
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
        checkPictures(dir, whales);
        // The loading picture was taken with the evidence still on its way.
        QVERIFY(!whales || !store->loadingDetail().isEmpty() || !store->failedDetail().isEmpty());
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
};

QTEST_MAIN(PanelSnapshotsTest)
#include "tst_panel_snapshots.moc"
