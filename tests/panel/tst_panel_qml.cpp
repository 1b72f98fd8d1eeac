// The real QML panel in a real window (offscreen), driven with mouse and key
// events: rows, chips, retry, settings, plain text, Escape and tear-down.

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
QList<QQuickItem *> itemsNamed(QQuickItem *root, const QString &name)
{
    QList<QQuickItem *> out;
    if (!root)
        return out;
    if (root->objectName() == name)
        out << root;
    for (QQuickItem *child : root->childItems())
        out += itemsNamed(child, name);
    return out;
}

QList<QQuickItem *> visibleNamed(QQuickItem *root, const QString &name)
{
    QList<QQuickItem *> out;
    for (QQuickItem *item : itemsNamed(root, name))
        if (item->isVisible() && item->width() > 0)
            out << item;
    return out;
}

QList<QQuickItem *> allItems(QQuickItem *root)
{
    QList<QQuickItem *> out{root};
    for (QQuickItem *child : root->childItems())
        out += allItems(child);
    return out;
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

    void windowShape()
    {
        open();
        QQuickWindow *w = panel->window();
        QVERIFY(w->flags() & Qt::FramelessWindowHint);
        QVERIFY(w->flags() & Qt::WindowStaysOnTopHint);
        QCOMPARE(w->flags() & Qt::Tool, Qt::Tool);
        QCOMPARE(w->size(), QSize(400, 620));
        QCOMPARE(w->color().alpha(), 0);
        QCOMPARE(root()->size(), QSizeF(400, 620));
        // Slides down into place.
        QVERIFY(QTest::qWaitFor([&] { return w->position() == panel->targetPosition(); }, 2000));
    }

    void closeTearsDownTheTree()
    {
        QCOMPARE(panel->secondsSinceClosed(), std::numeric_limits<double>::infinity());
        QVERIFY(!panel->isVisible());
        open();
        QVERIFY(panel->isVisible());
        const qint64 opened = panel->generation();
        QVERIFY(!panel->window()->contentItem()->childItems().isEmpty());

        QSignalSpy torn(panel.get(), &PanelController::tornDown);
        panel->close();
        QVERIFY(!panel->isVisible());
        QVERIFY(panel->generation() > opened);
        QVERIFY(panel->secondsSinceClosed() < 0.2);
        QVERIFY(torn.wait(2000));
        QVERIFY(!panel->window()->isVisible());
        QVERIFY(panel->window()->contentItem()->childItems().isEmpty());
        QVERIFY(!panel->model());
        panel->close(); // closing a closed panel does nothing
        QCOMPARE(torn.count(), 1);
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

    void eachOpeningStartsCleared()
    {
        feed(6);
        open();
        const QString id = panel->model()->stream()->ids().first();
        panel->model()->toggle(id);
        panel->model()->setShowSettings(true);
        panel->close();
        QTest::qWait(PanelController::teardownMs + 100);
        open();
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(!panel->model()->showSettings());
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

    void tappingRowsOpensOneAndLoadsOnce()
    {
        feed(7);
        open();
        const QStringList ids = panel->model()->stream()->ids();
        QVERIFY(ids.size() >= 2);
        QQuickItem *first = summaryOf(root(), ids[0]);
        QVERIFY(first);
        // The service here refuses at once, so a load may already have failed
        // by the time a click returns: what counts is that it started.
        const auto startedLoading = [&](const QString &id) {
            auto seen = std::make_shared<bool>(store->loadingDetail().contains(id));
            const auto watch = connect(store.get(), &FeedStore::loadingDetailChanged, this, [this, seen, id] {
                *seen = *seen || store->loadingDetail().contains(id);
            });
            return std::make_pair(seen, watch);
        };
        auto [firstSeen, firstWatch] = startedLoading(ids[0]);
        click(first);
        disconnect(firstWatch);
        QCOMPARE(panel->model()->openId(), ids[0]);
        QVERIFY(*firstSeen);
        // One inspector under the open row: loading, or already failed.
        QVERIFY(QTest::qWaitFor(
            [&] {
                return visibleNamed(root(), QStringLiteral("inspectorLoading")).size() +
                           visibleNamed(root(), QStringLiteral("retryAction")).size() ==
                       1;
            },
            1000));

        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(ids[0]); }, 10000));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(summaryOf(root(), ids[0])); // tapping the open row closes it
        QCOMPARE(panel->model()->openId(), QString());
        QCOMPARE(loads.count(), 0);
        QVERIFY(visibleNamed(root(), QStringLiteral("rowInspector")).isEmpty());

        auto [secondSeen, secondWatch] = startedLoading(ids[1]);
        click(summaryOf(root(), ids[1]));
        disconnect(secondWatch);
        QCOMPARE(panel->model()->openId(), ids[1]);
        QVERIFY(*secondSeen);
    }

    void retryShowsTheLoadingBarAtOnce()
    {
        feed(6);
        open();
        const QString id = panel->model()->stream()->ids().first();
        click(summaryOf(root(), id));
        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(id); }, 10000));
        QVERIFY(QTest::qWaitFor(
            [&] { return !visibleNamed(root(), QStringLiteral("retryAction")).isEmpty(); }, 1000));
        QVERIFY(visibleNamed(root(), QStringLiteral("inspectorLoading")).isEmpty());
        click(visibleNamed(root(), QStringLiteral("retryAction")).first());
        QVERIFY(store->loadingDetail().contains(id));
        QCOMPARE(visibleNamed(root(), QStringLiteral("inspectorLoading")).size(), 1);
        QVERIFY(visibleNamed(root(), QStringLiteral("retryAction")).isEmpty());
    }

    void heroEvidenceOpensTheHero()
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
        click(evidence);
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(visibleNamed(root(), QStringLiteral("heroInspector")).isEmpty());
    }

    void miniHeroOpensItsEvidence()
    {
        feed(6);
        open();
        QQuickItem *mini = visibleNamed(root(), QStringLiteral("miniHero")).value(0);
        QVERIFY(mini);
        QVERIFY(visibleNamed(root(), QStringLiteral("heroDetail")).isEmpty());
        click(mini);
        QCOMPARE(panel->model()->openId(), mini->property("signalId").toString());
        QCOMPARE(visibleNamed(root(), QStringLiteral("heroDetail")).size(), 1);
        click(visibleNamed(root(), QStringLiteral("closeDetail")).value(0));
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(visibleNamed(root(), QStringLiteral("heroDetail")).isEmpty());
    }

    void filterChipsChangeTheList()
    {
        feed(6);
        open();
        auto *list = visibleNamed(root(), QStringLiteral("streamList")).value(0);
        QVERIFY(list);
        QCOMPARE(list->property("count").toInt(), 3);
        QQuickItem *spike = visibleNamed(root(), QStringLiteral("chip-SPIKE")).value(0);
        QVERIFY(spike);
        QCOMPARE(spike->property("trailing").toString(), QStringLiteral("0"));
        click(spike);
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));
        QVERIFY(spike->property("selected").toBool());
        QVERIFY(visibleNamed(root(), QStringLiteral("streamList")).isEmpty());
        QQuickItem *message = visibleNamed(root(), QStringLiteral("emptyMessage")).value(0);
        QVERIFY(message);
        QCOMPARE(message->property("text").toString(), QStringLiteral("Connecting to the tape\u2026"));

        click(visibleNamed(root(), QStringLiteral("chip-ALL")).value(0));
        QCOMPARE(store->filter(), FeedFilter::all());
        QCOMPARE(visibleNamed(root(), QStringLiteral("streamList")).value(0)->property("count").toInt(), 3);
    }

    void heroesOnlyShowTheStreamMessage()
    {
        feed(3);
        open();
        QQuickItem *message = visibleNamed(root(), QStringLiteral("emptyMessage")).value(0);
        QVERIFY(message);
        QCOMPARE(message->property("text").toString(), QStringLiteral("Nothing in this stream right now."));
        QCOMPARE(visibleNamed(root(), QStringLiteral("miniHero")).size(), 2);
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

    void settingsPageEdits()
    {
        open();
        click(visibleNamed(root(), QStringLiteral("settingsButton")).value(0));
        QVERIFY(panel->model()->showSettings());
        QVERIFY(QTest::qWaitFor(
            [&] { return !visibleNamed(root(), QStringLiteral("settingsView")).isEmpty(); }, 1000));

        QQuickItem *chips = visibleNamed(root(), QStringLiteral("minimumChips")).value(0);
        QVERIFY(chips);
        QSignalSpy prefs(store.get(), &FeedStore::preferencesChanged);
        QList<QQuickItem *> buttons;
        for (QQuickItem *child : chips->childItems())
            if (child->property("label").isValid())
                buttons << child;
        QCOMPARE(buttons.size(), 5);
        click(buttons[2]); // "$1K", already selected
        QCOMPARE(prefs.count(), 0);
        click(buttons[3]); // "$5K"
        QCOMPARE(prefs.count(), 1);
        QCOMPARE(store->preferences().minTradeUsd, 5000.0);
        QCOMPARE(PreferencesStore::load().minTradeUsd, 5000.0);

        QQuickItem *pause = visibleNamed(root(), QStringLiteral("pauseSwitch")).value(0);
        QVERIFY(pause);
        click(visibleNamed(pause, QStringLiteral("toggle")).value(0));
        QVERIFY(store->preferences().paused);

        QCOMPARE(
            visibleNamed(root(), QStringLiteral("versionText")).value(0)->property("text").toString().left(8),
            QStringLiteral("Version "));
        click(visibleNamed(root(), QStringLiteral("backButton")).value(0));
        QVERIFY(!panel->model()->showSettings());
    }

    void hoverLiftsARow()
    {
        feed(6);
        open();
        const QStringList ids = panel->model()->stream()->ids();
        QQuickItem *summary = summaryOf(root(), ids[0]);
        QQuickItem *row = summary->parentItem()->parentItem();
        QCOMPARE(row->opacity(), 0.72);
        QTest::mouseMove(panel->window(), summary->mapToScene(QPointF(10, 5)).toPoint());
        QVERIFY(QTest::qWaitFor([&] { return row->opacity() == 1.0; }, 1000));
        // Open rows stay lifted when the pointer leaves.
        click(summary);
        QTest::mouseMove(panel->window(), QPoint(200, 5));
        QVERIFY(QTest::qWaitFor([&] { return !row->property("hovering").toBool(); }, 1000));
        QCOMPARE(row->opacity(), 1.0);
        QQuickItem *other = summaryOf(root(), ids[1])->parentItem()->parentItem();
        QCOMPARE(other->opacity(), 0.72);
    }

    void bandIsDimmedUntilHovered()
    {
        open();
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

    // The QML animations take the theme's curves through "hud": a control
    // point list that QML failed to read would leave them linear.
    void qmlAnimationsUseTheThemeCurves()
    {
        open();
        QQmlEngine *engine = qmlEngine(root());
        QVERIFY(engine);
        QQmlComponent component(engine);
        component.setData("import QtQuick\n"
                          "QtObject {\n"
                          "  property NumberAnimation glide: NumberAnimation {\n"
                          "    easing.type: Easing.BezierSpline; easing.bezierCurve: hud.glideCurve }\n"
                          "  property NumberAnimation breath: NumberAnimation {\n"
                          "    easing.type: Easing.BezierSpline; easing.bezierCurve: hud.easeInOutCurve }\n"
                          "}\n",
                          QUrl());
        std::unique_ptr<QObject> object(component.create(qmlContext(root())));
        QVERIFY2(object, qPrintable(component.errorString()));
        const auto curveOf = [&](const char *name) {
            auto *animation = object->property(name).value<QObject *>();
            return animation ? animation->property("easing").value<QEasingCurve>() : QEasingCurve();
        };
        const QEasingCurve glide = curveOf("glide"), breath = curveOf("breath");
        for (double t : {0.1, 0.3, 0.5, 0.8}) {
            QVERIFY(std::abs(glide.valueForProgress(t) - PanelStyle::easeOut().valueForProgress(t)) < 1e-6);
            QVERIFY(std::abs(breath.valueForProgress(t) - PanelStyle::easeInOut().valueForProgress(t)) <
                    1e-6);
        }
        QVERIFY(glide.valueForProgress(0.3) > 0.4); // an ease-out, ahead of linear
    }

    void railPauseButton()
    {
        open();
        QQuickItem *pause = visibleNamed(root(), QStringLiteral("pauseButton")).value(0);
        QVERIFY(pause);
        QCOMPARE(pause->property("help").toString(), QStringLiteral("Pause ticker"));
        click(pause);
        QVERIFY(store->preferences().paused);
        QCOMPARE(pause->property("help").toString(), QStringLiteral("Resume ticker"));
        QCOMPARE(pause->property("systemName").toString(), QStringLiteral("play.fill"));
        QVERIFY(pause->property("active").toBool());
    }
};

QTEST_MAIN(PanelQmlTest)
#include "tst_panel_qml.moc"
