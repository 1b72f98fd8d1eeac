// When the panel's engine and window exist: not before the first opening,
// not after it has stayed closed for its release delay. What it shows comes
// from the store, so an opening after a release shows the same rows.

#include "PanelTestSupport.h"
#include "Table.h"

#include <QGuiApplication>
#include <QPointer>
#include <QQmlEngine>
#include <QSGRendererInterface>

#include <algorithm>

namespace {
int quickWindows()
{
    int n = 0;
    for (QWindow *w : QGuiApplication::allWindows())
        n += qobject_cast<QQuickWindow *>(w) != nullptr;
    return n;
}

// The signal ids of the rows on screen, top to bottom (a row may tag
// more than one of its items with its id).
QStringList rowsShown(QQuickItem *root)
{
    QStringList out;
    for (QQuickItem *item : allItems(root))
        if (item->isVisible() && item->height() > 0 && !item->property("signalId").toString().isEmpty())
            out << item->property("signalId").toString();
    out.removeDuplicates();
    return out;
}
// clang-format off
// Whether a reopening finds the same window depends on when it comes: during
// the fade or before the release delay it does; after, it gets a new one, and
// the old window and engine are gone.
struct Reopening { const char *name; int releaseMs; bool waitForTeardown, waitForRelease, sameWindow; };
const Reopening reopenings[] = {
    {.name = "during the fade", .releaseMs = 60000, .waitForTeardown = false, .waitForRelease = false,
     .sameWindow = true},
    {.name = "closed, before the release delay", .releaseMs = 60000, .waitForTeardown = true,
     .waitForRelease = false, .sameWindow = true},
    {.name = "closed, reopened with the release due", .releaseMs = 300, .waitForTeardown = true,
     .waitForRelease = false, .sameWindow = true},
    {.name = "after the release", .releaseMs = 50, .waitForTeardown = true, .waitForRelease = true,
     .sameWindow = false},
    {.name = "no delay at all", .releaseMs = 0, .waitForTeardown = true, .waitForRelease = true,
     .sameWindow = false},
};
// clang-format on
} // namespace

class PanelLifecycleTest : public QObject, private PanelRig {
    Q_OBJECT

    // Closes and waits for the tree to go (the window and engine may stay).
    void closeAndTearDown()
    {
        QSignalSpy torn(panel.get(), &PanelController::tornDown);
        panel->close();
        QVERIFY(torn.wait(30000));
    }

private Q_SLOTS:
    void init()
    {
        freshPanel();
        store->ingest(whaleRun(5, clock.t));
    }
    void cleanup()
    {
        dropAll();
        QCOMPARE(quickWindows(), 0);
    }

    void nothingOfQtQuickUntilTheFirstOpening()
    {
        QVERIFY(!panel->isCreated());
        QVERIFY(!panel->window());
        QVERIFY(!panel->engine());
        QCOMPARE(quickWindows(), 0);
        QVERIFY(!panel->isVisible());
        panel->close(); // closing a panel never opened builds nothing either
        QVERIFY(!panel->isCreated());

        open();
        QVERIFY(panel->isCreated());
        QVERIFY(panel->engine());
        QCOMPARE(quickWindows(), 1);
        if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND") && qEnvironmentVariableIsEmpty("QSG_RHI_BACKEND"))
            QCOMPARE(panel->window()->rendererInterface()->graphicsApi(), QSGRendererInterface::Software);
    }

    void reopening_data() { rows(reopenings); }
    void reopening()
    {
        const auto &[name, releaseMs, waitForTeardown, waitForRelease, sameWindow] = row(reopenings);
        panel->setReleaseDelay(releaseMs);
        open();
        // Rows lay out over the first frames: wait for them.
        QTRY_COMPARE(rowsShown(panel->rootItem()).size(), 5);
        const QStringList before = rowsShown(panel->rootItem());
        const QPointer<QQuickWindow> window = panel->window();
        const QPointer<QQmlEngine> engine = panel->engine();

        QSignalSpy released(panel.get(), &PanelController::released);
        if (waitForTeardown)
            closeAndTearDown();
        else
            panel->close();
        if (waitForRelease) {
            QVERIFY(released.count() == 1 || released.wait(5000));
            QVERIFY(!panel->isCreated());
            QVERIFY(window.isNull());
            QVERIFY(engine.isNull());
            QCOMPARE(quickWindows(), 0);
        }

        open();
        QCOMPARE(panel->window() == window.data(), sameWindow);
        QTRY_COMPARE(rowsShown(panel->rootItem()), before);
        // Open again: no release and no teardown comes while it is open, however long.
        QTest::qWait(std::min(releaseMs, 400) + 100);
        QVERIFY(panel->isCreated() && panel->isVisible());
        QCOMPARE(rowsShown(panel->rootItem()), before);
        QCOMPARE(released.count(), waitForRelease ? 1 : 0);
    }
};

QTEST_MAIN(PanelLifecycleTest)
#include "tst_panel_lifecycle.moc"
