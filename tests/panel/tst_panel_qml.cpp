// The real QML panel in a real window (offscreen), driven with mouse and key
// events: rows, heroes, chips, retry, settings, hovers, plain text, Escape
// and tear-down.

#include "Panel/PanelController.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelStyle.h"
#include "PanelTestSupport.h"

#include <QEasingCurve>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <memory>

namespace {
QList<QQuickItem *> allItems(QQuickItem *root)
{
    QList<QQuickItem *> out;
    if (root) {
        out << root;
        for (QQuickItem *child : root->childItems())
            out += allItems(child);
    }
    return out;
}

QList<QQuickItem *> itemsNamed(QQuickItem *root, const QString &name, bool visibleOnly = false)
{
    QList<QQuickItem *> out;
    for (QQuickItem *item : allItems(root))
        if (item->objectName() == name && (!visibleOnly || (item->isVisible() && item->width() > 0)))
            out << item;
    return out;
}

QList<QQuickItem *> visibleNamed(QQuickItem *root, const QString &name)
{
    return itemsNamed(root, name, true);
}

// Positioners lay out at the next frame: let one pass before aiming.
void settleFrame(QQuickWindow *window)
{
    QSignalSpy frame(window, &QQuickWindow::afterRendering);
    window->update();
    frame.wait(300);
}

void click(QQuickItem *item)
{
    QVERIFY(item);
    settleFrame(item->window());
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(item->window(), Qt::LeftButton, {}, centre.toPoint());
}

// The row whose summary belongs to signal `id`.
QQuickItem *summaryOf(QQuickItem *root, const QString &id)
{
    for (QQuickItem *summary : itemsNamed(root, QStringLiteral("summary"))) {
        QQuickItem *row = summary->parentItem() ? summary->parentItem()->parentItem() : nullptr;
        if (row && row->property("signalId").toString() == id)
            return summary;
    }
    return nullptr;
}
} // namespace

class PanelQmlTest : public QObject {
    Q_OBJECT

    TestClock clock;
    std::unique_ptr<FeedStore> store;
    std::unique_ptr<PanelController> panel;

    void feed(int n)
    {
        QList<TwFill> fills;
        for (int i = 0; i < n; ++i)
            fills << whaleFill(100 + i, clock.t - 30 * (n - i), 2000.0 * (i + 1),
                               QStringLiteral("w%1").arg(i), QStringLiteral("T%1").arg(i));
        store->ingest(fills);
    }

    QQuickItem *root() const { return panel->rootItem(); }

    // Whether a load of `id` starts while the watch is on. A load may be over
    // by the time the click that started it returns, so it is caught as it happens.
    std::pair<std::shared_ptr<bool>, QMetaObject::Connection> startedLoading(const QString &id)
    {
        auto seen = std::make_shared<bool>(store->loadingDetail().contains(id));
        const auto watch = connect(store.get(), &FeedStore::loadingDetailChanged, this, [this, seen, id] {
            *seen = *seen || store->loadingDetail().contains(id);
        });
        return {seen, watch};
    }

    void open()
    {
        panel->show(QRect(900, 0, 24, 24));
        QVERIFY(panel->rootItem());
        QVERIFY(QTest::qWaitForWindowExposed(panel->window()));
        panel->model()->setAnimated(false);
    }

private Q_SLOTS:
    void init()
    {
        QSettings(QStringLiteral("Larkpin"), QStringLiteral("Larkpin")).clear();
        clock = TestClock{};
        store = unreachableStore(clock);
        store->setPreferences(Preferences::defaults());
        panel = std::make_unique<PanelController>(store.get());
    }
    void cleanup()
    {
        panel.reset();
        store.reset();
    }

    void placement_data()
    {
        QTest::addColumn<QRect>("anchor");
        QTest::addColumn<QRect>("screen");
        QTest::addColumn<QPoint>("topLeft");
        const QRect wide(0, 0, 1920, 1080);
        QTest::newRow("under the button, right edges 10 apart")
            << QRect(1500, 0, 30, 24) << wide << QPoint(1530 - 400 + 10, 24 + 6);
        QTest::newRow("far right stops 8 inside")
            << QRect(1900, 0, 20, 24) << wide << QPoint(1920 - 400 - 8, 30);
        QTest::newRow("far left stops 8 inside") << QRect(0, 0, 20, 24) << wide << QPoint(8, 30);
        QTest::newRow("offset screen")
            << QRect(1930, 30, 20, 20) << QRect(1920, 28, 1280, 1000) << QPoint(1928, 56);
        QTest::newRow("narrow screen: the right margin wins")
            << QRect(100, 0, 20, 24) << QRect(0, 0, 410, 800) << QPoint(410 - 400 - 8, 30);
    }
    void placement()
    {
        QFETCH(QRect, anchor);
        QFETCH(QRect, screen);
        QFETCH(QPoint, topLeft);
        QCOMPARE(PanelController::placement(anchor, screen), topLeft);
    }

    // A frameless tool window that slides into place; closing drops the whole
    // tree after the fade, and the next opening starts with nothing open.
    void openAndClose()
    {
        QCOMPARE(panel->secondsSinceClosed(), std::numeric_limits<double>::infinity());
        QVERIFY(!panel->isVisible());
        feed(6);
        open();
        QQuickWindow *w = panel->window();
        QVERIFY(w->flags() & Qt::FramelessWindowHint);
        QVERIFY(w->flags() & Qt::WindowStaysOnTopHint);
        QCOMPARE(w->flags() & Qt::Tool, Qt::Tool);
        QCOMPARE(w->size(), QSize(400, 620));
        QCOMPARE(w->color().alpha(), 0);
        QVERIFY(QTest::qWaitFor([&] { return w->position() == panel->targetPosition(); }, 2000));
        const qint64 opened = panel->generation();
        panel->model()->toggle(panel->model()->stream()->ids().first());
        panel->model()->setShowSettings(true);

        QSignalSpy torn(panel.get(), &PanelController::tornDown);
        panel->close();
        QVERIFY(!panel->isVisible());
        QVERIFY(panel->generation() > opened);
        QVERIFY(panel->secondsSinceClosed() < 0.2);
        QVERIFY(torn.wait(2000));
        QVERIFY(!w->isVisible());
        QVERIFY(w->contentItem()->childItems().isEmpty());
        QVERIFY(!panel->model());
        panel->close(); // closing a closed panel does nothing
        QCOMPARE(torn.count(), 1);

        open();
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(!panel->model()->showSettings());
    }

    void reopeningDuringTheFadeKeepsThePanel()
    {
        open();
        panel->close();
        QSignalSpy torn(panel.get(), &PanelController::tornDown);
        QTest::qWait(50);
        open();
        const qint64 generation = panel->generation();
        QTest::qWait(PanelController::teardownMs + 150);
        QCOMPARE(torn.count(), 0);
        QVERIFY(panel->isVisible());
        QVERIFY(panel->window()->isVisible());
        QVERIFY(root());
        QCOMPARE(panel->generation(), generation);
    }

    void escapeClosesAndGoesNoFurther()
    {
        open();
        QTest::keyClick(panel->window(), Qt::Key_A);
        QCOMPARE(root()->property("lastKey").toInt(), int(Qt::Key_A));
        QTest::keyClick(panel->window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return !panel->isVisible(); }, 1000));
        QVERIFY(root() == nullptr || root()->property("lastKey").toInt() == int(Qt::Key_A));
    }

    void closesWhenFocusLeavesAfterActivation()
    {
        open();
        QQuickWindow *w = panel->window();
        w->requestActivate();
        if (!QTest::qWaitForWindowActive(w, 1000))
            QSKIP("this platform never activates windows");
        QWindow other;
        other.resize(50, 50);
        other.show();
        other.requestActivate();
        QVERIFY(QTest::qWaitFor([&] { return !panel->isVisible(); }, 2000));
    }

    // Tapping a row opens it and starts its load; a failed load offers a retry
    // that shows the loading bar at once; tapping the open row closes it
    // without a reload, and tapping another moves the expansion.
    void tappingRowsOpensOneAndLoadsOnce()
    {
        feed(7);
        open();
        const QStringList ids = panel->model()->stream()->ids();
        QVERIFY(ids.size() >= 2);
        auto [firstSeen, firstWatch] = startedLoading(ids[0]);
        click(summaryOf(root(), ids[0]));
        disconnect(firstWatch);
        QCOMPARE(panel->model()->openId(), ids[0]);
        QVERIFY(*firstSeen);
        // One inspector under the open row: loading, or already failed.
        const auto inspectors = [&] {
            return visibleNamed(root(), QStringLiteral("inspectorLoading")).size() +
                   visibleNamed(root(), QStringLiteral("retryAction")).size();
        };
        QVERIFY(QTest::qWaitFor([&] { return inspectors() == 1; }, 1000));

        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(ids[0]); }, 10000));
        QVERIFY(QTest::qWaitFor(
            [&] { return !visibleNamed(root(), QStringLiteral("retryAction")).isEmpty(); }, 1000));
        QVERIFY(visibleNamed(root(), QStringLiteral("inspectorLoading")).isEmpty());
        click(visibleNamed(root(), QStringLiteral("retryAction")).first());
        QVERIFY(store->loadingDetail().contains(ids[0]));
        QCOMPARE(visibleNamed(root(), QStringLiteral("inspectorLoading")).size(), 1);
        QCOMPARE(inspectors(), 1);

        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(ids[0]); }, 10000));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(summaryOf(root(), ids[0]));
        QCOMPARE(panel->model()->openId(), QString());
        QCOMPARE(loads.count(), 0);
        QVERIFY(visibleNamed(root(), QStringLiteral("rowInspector")).isEmpty());

        auto [secondSeen, secondWatch] = startedLoading(ids[1]);
        click(summaryOf(root(), ids[1]));
        disconnect(secondWatch);
        QCOMPARE(panel->model()->openId(), ids[1]);
        QVERIFY(*secondSeen);
    }

    // The big hero unfolds its evidence in place; a mini hero opens onto the
    // detail card, and closing the card closes it without a reload.
    void heroesOpenTheirEvidence()
    {
        feed(6);
        open();
        const QString hero = panel->model()->hero()[QStringLiteral("signalId")].toString();
        QQuickItem *evidence = visibleNamed(root(), QStringLiteral("heroEvidence")).value(0);
        QVERIFY(evidence);
        QCOMPARE(evidence->property("title").toString(), QStringLiteral("EVIDENCE"));
        click(evidence);
        QCOMPARE(panel->model()->openId(), hero);
        QCOMPARE(evidence->property("title").toString(), QStringLiteral("HIDE"));
        QCOMPARE(visibleNamed(root(), QStringLiteral("heroInspector")).size(), 1);
        QVERIFY(visibleNamed(root(), QStringLiteral("heroDetail")).isEmpty());
        click(evidence);
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(visibleNamed(root(), QStringLiteral("heroInspector")).isEmpty());

        QQuickItem *mini = visibleNamed(root(), QStringLiteral("miniHero")).value(0);
        QVERIFY(mini);
        const QString id = mini->property("signalId").toString();
        auto [seen, watch] = startedLoading(id);
        click(mini);
        disconnect(watch);
        QVERIFY(*seen);
        QCOMPARE(panel->model()->openId(), id);
        QCOMPARE(visibleNamed(root(), QStringLiteral("heroDetail")).size(), 1);
        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(id); }, 10000));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(visibleNamed(root(), QStringLiteral("closeDetail")).value(0));
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(visibleNamed(root(), QStringLiteral("heroDetail")).isEmpty());
        QCOMPARE(loads.count(), 0);
    }

    void filterChipsChangeTheList()
    {
        feed(6);
        open();
        const auto chip = [&](const char *label) {
            return visibleNamed(root(), QStringLiteral("chip-") + QLatin1String(label)).value(0);
        };
        const auto shown = [&] {
            QQuickItem *list = visibleNamed(root(), QStringLiteral("streamList")).value(0);
            return list ? list->property("count").toInt() : 0;
        };
        QCOMPARE(shown(), 3);
        QQuickItem *spike = chip("SPIKE");
        QVERIFY(spike && chip("ALL"));
        QCOMPARE(spike->property("trailing").toString(), QStringLiteral("0"));
        click(spike);
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));
        QVERIFY(spike->property("selected").toBool());
        QVERIFY(!chip("ALL")->property("selected").toBool());
        QCOMPARE(chip("ALL")->property("trailing").toString(), QStringLiteral("6")); // still counts all
        QCOMPARE(shown(), 0);
        QQuickItem *message = visibleNamed(root(), QStringLiteral("emptyMessage")).value(0);
        QVERIFY(message);
        QCOMPARE(message->property("text").toString(), QStringLiteral("Connecting to the tape\u2026"));
        panel->model()->selectFilter(7); // no such chip: ignored
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));

        click(chip("ALL"));
        QCOMPARE(store->filter(), FeedFilter::all());
        QCOMPARE(shown(), 3);
    }

    // A headline too long for its row loses its middle: the ticker's start and
    // the body's end stay, and the meta column keeps its 42 pt.
    void longHeadlineIsCutInTheMiddle()
    {
        feed(4);
        const QString handle = QStringLiteral("averyveryverylonghandlethatgoesonandonforeverandever");
        store->ingest({whaleFill(900, clock.t - 5, 1200, handle, QStringLiteral("LONGTICKER"))});
        open();
        settleFrame(panel->window());
        QQuickItem *summary = summaryOf(root(), QStringLiteral("tw-fill-900"));
        QVERIFY(summary);
        QQuickItem *ticker = itemsNamed(summary, QStringLiteral("tickerText")).value(0);
        QQuickItem *body = itemsNamed(summary, QStringLiteral("bodyText")).value(0);
        QQuickItem *meta = itemsNamed(summary, QStringLiteral("metaText")).value(0);
        QVERIFY(ticker && body && meta);
        const QString shown = ticker->property("text").toString() + body->property("text").toString();
        QVERIFY2(shown.contains(QChar(0x2026)), qPrintable(shown));
        QVERIFY2(shown.startsWith(QStringLiteral("$LONG")), qPrintable(shown));
        QVERIFY2(!shown.endsWith(QChar(0x2026)), qPrintable(shown));
        QCOMPARE(meta->width(), 42.0);
        // The cut text stays clear of the figure and the meta column.
        QQuickItem *figure = itemsNamed(summary, QStringLiteral("figureText")).value(0);
        QVERIFY(figure);
        const double headlineRight =
            ticker->mapToItem(summary, QPointF(0, 0)).x() + ticker->width() + body->width();
        QVERIFY2(headlineRight <= figure->x() + 0.5,
                 qPrintable(QStringLiteral("%1 > %2").arg(headlineRight).arg(figure->x())));
    }

    void wireTextIsPlainEverywhere()
    {
        QList<TwFill> fills;
        for (int i = 0; i < 5; ++i)
            fills << whaleFill(300 + i, clock.t - i, 3000.0 * (i + 1), QStringLiteral("<b>x</b>"),
                               QStringLiteral("<i>T%1</i>").arg(i));
        store->ingest(fills);
        open();
        panel->model()->setShowSettings(true); // every page in the tree
        QTest::qWait(50);
        int texts = 0, markup = 0;
        for (QQuickItem *item : allItems(root())) {
            if (!item->inherits("QQuickText"))
                continue;
            ++texts;
            QVERIFY2(item->property("textFormat").toInt() == Qt::PlainText,
                     qPrintable(QStringLiteral("rich text in ") + item->property("text").toString()));
            if (item->property("text").toString().contains(QStringLiteral("<b>x</b>")))
                ++markup;
        }
        QVERIFY(texts > 30);
        QVERIFY2(markup > 0, "a handle with markup shows its brackets");
    }

    // The rail's pause button and the settings page edit the same preferences,
    // and every control shows what they hold.
    void settingsAndPause()
    {
        open();
        QQuickItem *railPause = visibleNamed(root(), QStringLiteral("pauseButton")).value(0);
        QVERIFY(railPause);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Pause ticker"));
        click(railPause);
        QVERIFY(store->preferences().paused);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Resume ticker"));
        QCOMPARE(railPause->property("systemName").toString(), QStringLiteral("play.fill"));
        QVERIFY(railPause->property("active").toBool());

        click(visibleNamed(root(), QStringLiteral("settingsButton")).value(0));
        QVERIFY(panel->model()->showSettings());
        QVERIFY(QTest::qWaitFor(
            [&] { return !visibleNamed(root(), QStringLiteral("settingsView")).isEmpty(); }, 1000));
        QQuickItem *chips = visibleNamed(root(), QStringLiteral("minimumChips")).value(0);
        QVERIFY(chips);
        QList<QQuickItem *> buttons;
        for (QQuickItem *child : chips->childItems())
            if (child->property("label").isValid())
                buttons << child;
        QCOMPARE(buttons.size(), 5);
        click(buttons[3]); // "$5K"
        QCOMPARE(store->preferences().minTradeUsd, 5000.0);
        QVERIFY(buttons[3]->property("selected").toBool());
        QVERIFY(!buttons[2]->property("selected").toBool());

        QQuickItem *pauseSwitch = visibleNamed(root(), QStringLiteral("pauseSwitch")).value(0);
        QVERIFY(pauseSwitch);
        click(visibleNamed(pauseSwitch, QStringLiteral("toggle")).value(0));
        QVERIFY(!store->preferences().paused);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Pause ticker"));
        click(visibleNamed(root(), QStringLiteral("backButton")).value(0));
        QVERIFY(!panel->model()->showSettings());
    }

    // Rows and the telemetry band sit dimmed and lift under the pointer; an
    // open row stays lifted when the pointer leaves.
    void hoverLifts()
    {
        feed(6);
        open();
        const QStringList ids = panel->model()->stream()->ids();
        QQuickItem *summary = summaryOf(root(), ids[0]);
        QQuickItem *row = summary->parentItem()->parentItem();
        QCOMPARE(row->opacity(), 0.72);
        QTest::mouseMove(panel->window(), summary->mapToScene(QPointF(10, 5)).toPoint());
        QVERIFY(QTest::qWaitFor([&] { return row->opacity() == 1.0; }, 1000));
        click(summary);
        QTest::mouseMove(panel->window(), QPoint(200, 5));
        QVERIFY(QTest::qWaitFor([&] { return !row->property("hovering").toBool(); }, 1000));
        QCOMPARE(row->opacity(), 1.0);
        QCOMPARE(summaryOf(root(), ids[1])->parentItem()->parentItem()->opacity(), 0.72);

        QQuickItem *band = visibleNamed(root(), QStringLiteral("telemetryBand")).value(0);
        QVERIFY(band);
        QCOMPARE(band->opacity(), 0.66);
        QTest::mouseMove(panel->window(),
                         band->mapToScene(QPointF(band->width() / 2, band->height() / 2)).toPoint());
        QVERIFY(QTest::qWaitFor([&] { return band->opacity() == 1.0; }, 1000));
        QTest::mouseMove(panel->window(), QPoint(200, 5));
        QVERIFY(QTest::qWaitFor([&] { return band->opacity() == 0.66; }, 1000));
    }

    void rollingTextMovesOnlyChangedCharacters()
    {
        open();
        QQuickItem *amount = itemsNamed(root(), QStringLiteral("heroAmount")).value(0);
        QVERIFY(amount);
        amount->setProperty("text", QStringLiteral("1,234"));
        QTest::qWait(20);
        const auto cells = [&] {
            QList<QQuickItem *> out;
            for (QQuickItem *child : amount->childItems())
                if (child->property("leaving").isValid())
                    out << child;
            return out;
        };
        QCOMPARE(cells().size(), 5);
        for (QQuickItem *cell : cells())
            cell->setProperty("leaving", QString());
        amount->setProperty("text", QStringLiteral("1,235"));
        QTest::qWait(20);
        QStringList leaving;
        for (QQuickItem *cell : cells())
            leaving << cell->property("leaving").toString();
        QCOMPARE(leaving, (QStringList{QString(), QString(), QString(), QString(), QStringLiteral("4")}));
        // Digits keep a fixed width, so numbers do not jitter.
        QCOMPARE(cells()[0]->width(), cells()[3]->width());
    }

    // Hovers (QML, through "hud") and the slide-in (C++) follow the theme's
    // glide, not the toolkit's own cubic; a control point list that QML
    // failed to read would leave them linear.
    void animationsUseTheThemeGlide()
    {
        open();
        QQmlComponent component(qmlEngine(root()));
        component.setData("import QtQuick\nNumberAnimation {\n"
                          "  easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve }\n",
                          QUrl());
        std::unique_ptr<QObject> animation(component.create(qmlContext(root())));
        QVERIFY2(animation, qPrintable(component.errorString()));
        const QEasingCurve qml = animation->property("easing").value<QEasingCurve>();
        const auto theme = [](double t) { return Motion::glide.valueAt(t * Motion::glide.response); };
        for (int i = 0; i <= 20; ++i) {
            const double t = i / 20.0;
            QVERIFY2(std::abs(qml.valueForProgress(t) - theme(t)) < 2e-3, qPrintable(QString::number(t)));
            QVERIFY(std::abs(PanelStyle::easeOut().valueForProgress(t) - theme(t)) < 2e-3);
        }
        QVERIFY(std::abs(QEasingCurve(QEasingCurve::OutCubic).valueForProgress(0.2) - theme(0.2)) > 0.05);
    }
};

QTEST_MAIN(PanelQmlTest)
#include "tst_panel_qml.moc"
