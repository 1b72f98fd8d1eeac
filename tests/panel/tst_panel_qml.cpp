// The real QML panel in a real (offscreen) window, driven with mouse and keys.

#include "Panel/PanelController.h"
#include "Panel/PanelModel.h"
#include "Panel/PanelStyle.h"
#include "Panel/PanelText.h"
#include "Panel/SignalListModel.h"
#include "PanelTestSupport.h"

#include <QFont>
#include <QGuiApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

#include <memory>

namespace {
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

// Scene rectangle of an item.
QRectF sceneRect(QQuickItem *item)
{
    return QRectF(item->mapToScene(QPointF(0, 0)), item->size());
}

// The index of the list row under the top edge of the viewport.
int topIndex(QQuickItem *list)
{
    int at = -1;
    QMetaObject::invokeMethod(list, "indexAt", Q_RETURN_ARG(int, at), Q_ARG(qreal, list->width() / 2),
                              Q_ARG(qreal, list->property("contentY").toReal() + 1));
    return at;
}

void wheel(QQuickItem *item, int notches)
{
    const QPointF at = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    for (int i = 0; i < notches; ++i) {
        QWheelEvent event(at, item->window()->mapToGlobal(at), QPoint(), QPoint(0, -120), Qt::NoButton, {},
                          Qt::NoScrollPhase, false);
        QGuiApplication::sendEvent(item->window(), &event);
    }
}

// A tooltip on show anywhere in the window: a style's popup or the panel's own.
QQuickItem *shownToolTip(QQuickWindow *window)
{
    for (QQuickItem *item : allItems(window->contentItem()))
        if ((item->inherits("QQuickPopupItem") || item->objectName() == QLatin1String("hudToolTip")) &&
            item->isVisible() && item->opacity() > 0.5)
            return item;
    return nullptr;
}
} // namespace

class PanelQmlTest : public QObject, private PanelRig {
    Q_OBJECT

    void feed(int n)
    {
        QList<TwFill> fills;
        for (int i = 0; i < n; ++i)
            fills << whaleFill(100 + i, clock.t - 30 * (n - i), 2000.0 * (i + 1),
                               QStringLiteral("w%1").arg(i), QStringLiteral("T%1").arg(i));
        store->ingest(fills);
    }

    QQuickItem *root() const { return panel->rootItem(); }
    QList<QQuickItem *> on(const char *name) const { return visibleNamed(root(), QLatin1String(name)); }

    // Clicks `item` and says whether a load of `id` started. A load may be over
    // by the time the click returns, so it is caught as it happens.
    bool clickStartsLoading(QQuickItem *item, const QString &id)
    {
        bool seen = store->loadingDetail().contains(id);
        const auto watch = connect(store.get(), &FeedStore::loadingDetailChanged, this,
                                   [&] { seen = seen || store->loadingDetail().contains(id); });
        click(item);
        disconnect(watch);
        return seen;
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
        freshStore();
        panel = std::make_unique<PanelController>(store.get());
    }
    void cleanup() { dropAll(); }

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
        QTest::newRow("tray icon in a bottom bar: above it")
            << QRect(1800, 1052, 24, 24) << QRect(0, 0, 1920, 1048)
            << QPoint(1824 - 400 + 10, 1052 - 6 - 620);
        QTest::newRow("corner anchor of a tray-only start")
            << QRect(1919, 0, 1, 1) << wide << QPoint(1920 - 400 - 8, 7);
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
        QVERIFY(w->flags().testFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::Tool));
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
        QVERIFY(clickStartsLoading(summaryOf(root(), ids[0]), ids[0]));
        QCOMPARE(panel->model()->openId(), ids[0]);
        // One inspector under the open row: loading, or already failed.
        const auto inspectors = [&] { return on("inspectorLoading").size() + on("retryAction").size(); };
        QVERIFY(QTest::qWaitFor([&] { return inspectors() == 1; }, 1000));

        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(ids[0]); }, 10000));
        QVERIFY(QTest::qWaitFor([&] { return !on("retryAction").isEmpty(); }, 1000));
        QVERIFY(on("inspectorLoading").isEmpty());
        click(on("retryAction").first());
        QVERIFY(store->loadingDetail().contains(ids[0]));
        QCOMPARE(on("inspectorLoading").size(), 1);
        QCOMPARE(inspectors(), 1);

        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(ids[0]); }, 10000));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(summaryOf(root(), ids[0]));
        QCOMPARE(panel->model()->openId(), QString());
        QCOMPARE(loads.count(), 0);
        QVERIFY(on("rowInspector").isEmpty());

        QVERIFY(clickStartsLoading(summaryOf(root(), ids[1]), ids[1]));
        QCOMPARE(panel->model()->openId(), ids[1]);
    }

    // The big hero unfolds its evidence in place; a mini hero opens onto the
    // detail card, and closing the card closes it without a reload.
    void heroesOpenTheirEvidence()
    {
        feed(6);
        open();
        const QString hero = panel->model()->hero()[QStringLiteral("signalId")].toString();
        QQuickItem *evidence = on("heroEvidence").value(0);
        QVERIFY(evidence);
        QCOMPARE(evidence->property("title").toString(), QStringLiteral("EVIDENCE"));
        click(evidence);
        QCOMPARE(panel->model()->openId(), hero);
        QCOMPARE(evidence->property("title").toString(), QStringLiteral("HIDE"));
        QCOMPARE(on("heroInspector").size(), 1);
        QVERIFY(on("heroDetail").isEmpty());
        click(evidence);
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(on("heroInspector").isEmpty());

        QQuickItem *mini = on("miniHero").value(0);
        QVERIFY(mini);
        const QString id = mini->property("signalId").toString();
        QVERIFY(clickStartsLoading(mini, id));
        QCOMPARE(panel->model()->openId(), id);
        QCOMPARE(on("heroDetail").size(), 1);
        QVERIFY(QTest::qWaitFor([&] { return store->failedDetail().contains(id); }, 10000));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(on("closeDetail").value(0));
        QCOMPARE(panel->model()->openId(), QString());
        QVERIFY(on("heroDetail").isEmpty());
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
            QQuickItem *list = on("streamList").value(0);
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
        QQuickItem *message = on("emptyMessage").value(0);
        QVERIFY(message);
        QCOMPARE(message->property("text").toString(), QStringLiteral("Connecting to the tape\u2026"));
        panel->model()->selectFilter(7); // no such chip: ignored
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));

        click(chip("ALL"));
        QCOMPARE(store->filter(), FeedFilter::all());
        QCOMPARE(shown(), 3);
    }

    // A headline too long for its row loses its middle, clear of the figure.
    // Where the elided headline splits into its ticker run and its body run.
    void headlineRuns_data()
    {
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<QString>("tickerRun");
        QTest::addColumn<QString>("bodyRun");
        // "~" stands for the ellipsis.
        const auto row = [](const char *name, const char *shown, const char *ticker, const char *tickerRun,
                            const char *bodyRun) {
            const auto t = [](const char *s) { return QString::fromUtf8(s).replace(u'~', QChar(0x2026)); };
            QTest::newRow(name) << t(shown) << t(ticker) << t(tickerRun) << t(bodyRun);
        };
        row("whole", "$WIF bought 12K", "$WIF", "$WIF", " bought 12K");
        row("cut in the body", "$WIF bo~2K", "$WIF", "$WIF", " bo~2K");
        row("cut in the ticker", "$LONG~ever", "$LONGTICKER", "$LONG~", "ever");
        row("cut right after the ticker", "$WIF~12K", "$WIF", "$WIF", "~12K");
        row("cut at the ticker's first letter", "~12K", "$WIF", "~", "12K");
        // An ellipsis the wire put in the ticker is not the cut.
        row("ticker's own ellipsis, whole", "A~B sold", "A~B", "A~B", " sold");
        row("ticker's own ellipsis, cut after it", "A~BC~ld", "A~BCDE", "A~BC~", "ld");
        row("nothing shown", "", "$WIF", "", "");
        row("only the ellipsis", "~", "$WIF", "~", "");
        row("no ticker", "sold", "", "", "sold");
    }
    void headlineRuns()
    {
        QFETCH(QString, shown);
        QFETCH(QString, ticker);
        QFETCH(QString, tickerRun);
        QFETCH(QString, bodyRun);
        const PanelText::HeadlineRuns runs = PanelText::headlineRuns(shown, ticker);
        QCOMPARE(runs.ticker, tickerRun);
        QCOMPARE(runs.body, bodyRun);
        QCOMPARE(runs.ticker + runs.body, shown); // nothing lost, nothing added
    }

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
        QQuickItem *figure = itemsNamed(summary, QStringLiteral("figureText")).value(0);
        QVERIFY(ticker && body && figure);
        const QString shown = ticker->property("text").toString() + body->property("text").toString();
        QVERIFY2(shown.contains(QChar(0x2026)), qPrintable(shown));
        QVERIFY2(shown.startsWith(QStringLiteral("$LONG")), qPrintable(shown));
        QVERIFY2(!shown.endsWith(QChar(0x2026)), qPrintable(shown));
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
        QQuickItem *railPause = on("pauseButton").value(0);
        QVERIFY(railPause);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Pause ticker"));
        click(railPause);
        QVERIFY(store->preferences().paused);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Resume ticker"));
        QCOMPARE(railPause->property("systemName").toString(), QStringLiteral("play.fill"));
        QVERIFY(railPause->property("active").toBool());

        click(on("settingsButton").value(0));
        QVERIFY(panel->model()->showSettings());
        QVERIFY(QTest::qWaitFor([&] { return !on("settingsView").isEmpty(); }, 1000));
        QQuickItem *chips = on("minimumChips").value(0);
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

        QQuickItem *pauseSwitch = on("pauseSwitch").value(0);
        QVERIFY(pauseSwitch);
        click(visibleNamed(pauseSwitch, QStringLiteral("toggle")).value(0));
        QVERIFY(!store->preferences().paused);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Pause ticker"));

        QQuickItem *notifySwitch = on("notifySwitch").value(0);
        QVERIFY(notifySwitch);
        QVERIFY(notifySwitch->property("on").toBool()); // on by default
        click(visibleNamed(notifySwitch, QStringLiteral("toggle")).value(0));
        QVERIFY(!store->preferences().notifyTakeovers);
        QVERIFY(!notifySwitch->property("on").toBool());
        click(on("backButton").value(0));
        QVERIFY(!panel->model()->showSettings());
    }

    // New signals arrive in sight at the top of a list left at its top, even
    // when a change removes and adds rows at once; a list the user scrolled
    // keeps the row they were reading.
    void theStreamKeepsItsTopWhileOpen_data()
    {
        QTest::addColumn<bool>("animated");
        QTest::newRow("still") << false;
        QTest::newRow("animated") << true;
    }
    void theStreamKeepsItsTopWhileOpen()
    {
        QFETCH(bool, animated);
        feed(24);
        open();
        panel->model()->setAnimated(animated);
        QQuickItem *list = on("streamList").value(0);
        QVERIFY(list);
        settleFrame(panel->window());
        const auto topId = [&] { return panel->model()->stream()->ids().value(topIndex(list)); };
        SignalListModel *stream = panel->model()->stream();
        int made = 0;
        // Changes as the store makes them: the head row leaves as new ones
        // land in its place, or a row leaves the middle while one arrives.
        const auto arrive = [&](int dropAt) {
            QList<Signal> next = stream->signalList();
            Signal fresh = next.first();
            fresh.id = QStringLiteral("fresh-%1").arg(made++);
            next.removeAt(std::min(dropAt, int(next.size()) - 1));
            next.prepend(fresh);
            stream->setSignals(next, clock.t);
            settleFrame(panel->window());
            settleFrame(panel->window());
        };
        for (int dropAt : {0, 0, 5, 1, 0}) {
            arrive(dropAt);
            QCOMPARE(topId(), stream->ids().first());
            QVERIFY2(list->property("atYBeginning").toBool(),
                     qPrintable(QStringLiteral("contentY %1 originY %2")
                                    .arg(list->property("contentY").toReal())
                                    .arg(list->property("originY").toReal())));
        }

        wheel(list, 3);
        QVERIFY(QTest::qWaitFor([&] { return !list->property("moving").toBool(); }, 2000));
        QVERIFY(!list->property("atYBeginning").toBool());
        const QString reading = topId();
        arrive(0);
        QCOMPARE(topId(), reading);
        QVERIFY(!list->property("atYBeginning").toBool());
    }

    // Links keep their encoded form from the wire to the opener, from a row's
    // evidence and from the hero's chart button alike.
    void anEncodedLinkReachesTheOpenerIntact_data()
    {
        QTest::addColumn<bool>("asHero");
        QTest::newRow("row evidence") << false;
        QTest::newRow("hero chart") << true;
    }
    void anEncodedLinkReachesTheOpenerIntact()
    {
        QFETCH(bool, asHero);
        CannedService service;
        const QString pair = QStringLiteral("https://dex.example/solana/a%20b?q=x%2Fy");
        const TwFill fill = whaleFill(700, clock.t - 5, asHero ? 9e6 : 1500);
        service.tape = {CannedService::fillRecord(fill, pair)};
        service.trader = {{QStringLiteral("address"), fill.wallet}, {QStringLiteral("handle"), fill.handle}};
        panel.reset();
        store = service.store(clock);
        store->setPreferences(Preferences::defaults());
        panel = std::make_unique<PanelController>(store.get());
        feed(6);
        store->ingest({fill});
        open();
        QList<QByteArray> opened;
        panel->model()->openUrlHook = [&](const QUrl &url) {
            opened << url.toEncoded();
            return true;
        };
        const QString id = QStringLiteral("tw-fill-700");
        if (asHero) {
            QCOMPARE(panel->model()->hero()[QStringLiteral("signalId")].toString(), id);
            click(on("heroEvidence").value(0));
        } else {
            click(summaryOf(root(), id));
        }
        QVERIFY(QTest::qWaitFor([&] { return store->details().contains(id); }, 5000));
        const char *button = asHero ? "heroChart" : "link-CHART";
        QVERIFY(QTest::qWaitFor([&] { return !on(button).isEmpty(); }, 1000));
        click(on(button).value(0));
        QCOMPARE(opened, QList<QByteArray>{pair.toUtf8()});
    }

    // A line break in wire text never makes a second line where the layout
    // has one.
    void aLineBreakInWireTextStaysOnOneLine()
    {
        feed(6);
        store->ingest({whaleFill(800, clock.t - 2, 9e6, QStringLiteral("heroone\nherotwo")),
                       whaleFill(801, clock.t - 1, 1500, QStringLiteral("rowone\r\nrowtwo\u2028rowthree"))});
        open();
        settleFrame(panel->window());
        QCOMPARE(panel->model()->hero()[QStringLiteral("signalId")].toString(),
                 QStringLiteral("tw-fill-800"));
        int seen = 0;
        for (QQuickItem *item : allItems(root())) {
            if (!item->inherits("QQuickText") || !item->isVisible())
                continue;
            const QString text = item->property("text").toString();
            if (!text.contains(QStringLiteral("heroone")) && !text.contains(QStringLiteral("rowone")))
                continue;
            ++seen;
            QVERIFY2(item->property("lineCount").toInt() == 1, qPrintable(text));
            QVERIFY2(!text.contains(QLatin1Char('\n')) && !text.contains(QChar(0x2028)), qPrintable(text));
        }
        QVERIFY(seen >= 2);
    }

    // The hero's figure line shrinks to fit, down to the smallest legible
    // size, then shortens the ticker; it never runs under the amount.
    void aLongTickerInTheHeroStaysClearOfTheAmount_data()
    {
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<bool>("shortened");
        QTest::newRow("fits at full size") << QStringLiteral("WIF") << false;
        QTest::newRow("fits once shrunk") << QStringLiteral("ABCDEFGHIJKLMNOPQR") << false;
        QTest::newRow("shortened at the smallest size")
            << QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMN") << true;
    }
    void aLongTickerInTheHeroStaysClearOfTheAmount()
    {
        QFETCH(QString, symbol);
        QFETCH(bool, shortened);
        feed(4);
        store->ingest({whaleFill(810, clock.t - 1, 9'876'543, QStringLiteral("ansem"), symbol)});
        open();
        settleFrame(panel->window());
        QCOMPARE(panel->model()->hero()[QStringLiteral("signalId")].toString(),
                 QStringLiteral("tw-fill-810"));
        QQuickItem *ticker = on("heroTicker").value(0);
        QQuickItem *amount = on("heroAmount").value(0);
        QVERIFY(ticker && amount);
        const QFont font = ticker->property("font").value<QFont>();
        const double px = font.pixelSize() > 0
                              ? font.pixelSize()
                              : font.pointSizeF() * panel->window()->screen()->logicalDotsPerInchY() / 72.0;
        QVERIFY2(px >= 11, qPrintable(QString::number(px)));
        const double right = ticker->mapToScene(QPointF(ticker->property("contentWidth").toReal(), 0)).x();
        const double amountLeft = sceneRect(amount).left();
        QVERIFY2(right <= amountLeft - 6,
                 qPrintable(QStringLiteral("%1 > %2 - 6").arg(right).arg(amountLeft)));
        QCOMPARE(ticker->property("truncated").toBool(), shortened);
        QCOMPARE(ticker->property("text").toString().contains(QChar(0x2026)) ||
                     ticker->property("truncated").toBool(),
                 shortened);
    }

    // A click anywhere on a closed row opens it, edges included.
    void theWholeRowTakesTheClick_data()
    {
        QTest::addColumn<double>("fromTop"); // negative: from the bottom
        QTest::newRow("top edge") << 1.5;
        QTest::newRow("middle") << 17.0;
        QTest::newRow("bottom edge") << -1.5;
    }
    void theWholeRowTakesTheClick()
    {
        QFETCH(double, fromTop);
        feed(6);
        open();
        settleFrame(panel->window());
        const QString id = panel->model()->stream()->ids().first();
        QQuickItem *summary = summaryOf(root(), id);
        QVERIFY(summary);
        QQuickItem *row = summary->parentItem()->parentItem();
        const double y = fromTop >= 0 ? fromTop : row->height() + fromTop;
        const QPointF at = row->mapToScene(QPointF(row->width() / 3, y));
        QTest::mouseClick(panel->window(), Qt::LeftButton, {}, at.toPoint());
        QCOMPARE(panel->model()->openId(), id);
    }

    // Tooltips wear the panel's own dark plate with light plain text.
    void tooltipsWearThePanelsColours_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("pause button") << QStringLiteral("pauseButton");
        QTest::newRow("telemetry band") << QStringLiteral("telemetryBand");
    }
    void tooltipsWearThePanelsColours()
    {
        QFETCH(QString, target);
        feed(6);
        open();
        settleFrame(panel->window());
        QQuickItem *item = visibleNamed(root(), target).value(0);
        QVERIFY(item);
        QTest::mouseMove(panel->window(),
                         item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint());
        QQuickItem *tip = nullptr;
        QVERIFY(QTest::qWaitFor([&] { return (tip = shownToolTip(panel->window())) != nullptr; }, 3000));
        int plates = 0, texts = 0;
        for (QQuickItem *part : allItems(tip)) {
            if (!part->isVisible())
                continue;
            if (part->inherits("QQuickRectangle")) {
                const QColor c = part->property("color").value<QColor>();
                if (c.alpha() < 128)
                    continue;
                ++plates;
                QVERIFY2(c.lightnessF() < 0.25, qPrintable(c.name()));
            } else if (part->inherits("QQuickText")) {
                ++texts;
                QVERIFY2(part->property("color").value<QColor>().lightnessF() > 0.6,
                         qPrintable(part->property("color").value<QColor>().name()));
                QCOMPARE(part->property("textFormat").toInt(), int(Qt::PlainText));
            }
        }
        QVERIFY(plates >= 1);
        QCOMPARE(texts, 1);
    }

    // Opening the last row scrolls its evidence into view above the band.
    void anOpenedLowRowShowsItsEvidenceAboveTheBand()
    {
        CannedService service;
        panel.reset();
        store = service.store(clock);
        store->setPreferences(Preferences::defaults());
        panel = std::make_unique<PanelController>(store.get());
        feed(12);
        service.trader = {{QStringLiteral("address"), QStringLiteral("Wallet1")},
                          {QStringLiteral("handle"), QStringLiteral("w1")}};
        open();
        QQuickItem *list = on("streamList").value(0);
        QVERIFY(list);
        QMetaObject::invokeMethod(list, "positionViewAtEnd");
        settleFrame(panel->window());
        const QString id = panel->model()->stream()->ids().last();
        click(summaryOf(root(), id));
        QCOMPARE(panel->model()->openId(), id);
        QVERIFY(QTest::qWaitFor([&] { return store->details().contains(id); }, 5000));
        QVERIFY(QTest::qWaitFor([&] { return !on("walletModule").isEmpty(); }, 1000));
        QTest::qWait(100);
        settleFrame(panel->window());
        QQuickItem *inspector = on("rowInspector").value(0);
        QQuickItem *band = on("telemetryBand").value(0);
        QVERIFY(inspector && band);
        const QRectF evidence = sceneRect(inspector);
        const QRectF view = sceneRect(list);
        QVERIFY(evidence.height() > 60);
        if (evidence.height() <= view.height() - 34)
            QVERIFY2(evidence.bottom() <= sceneRect(band).top() + 0.5,
                     qPrintable(QStringLiteral("%1 > %2").arg(evidence.bottom()).arg(sceneRect(band).top())));
        else
            QVERIFY2(evidence.top() >= view.top() - 0.5 && evidence.top() <= view.top() + 40,
                     qPrintable(QStringLiteral("%1 vs %2").arg(evidence.top()).arg(view.top())));
    }
    // Where a compositor runs, the window carries a transparent margin the
    // panel's soft shadow falls into: faint at the margin's edge, darker at
    // the panel's. (Only on a display with a compositor.)
    void aShadowWhereACompositorRuns()
    {
        if (!PanelStyle::compositorRunning())
            QSKIP("no compositor on this display");
        feed(6);
        open();
        QQuickWindow *w = panel->window();
        const int m = PanelStyle::shadowMarginWanted;
        QCOMPARE(w->size(), QSize(PanelController::width + 2 * m, PanelController::height + 2 * m));
        QCOMPARE(root()->position(), QPointF(m, m));
        QVERIFY(
            QTest::qWaitFor([&] { return w->position() == panel->targetPosition() - QPoint(m, m); }, 2000));
        settleFrame(w);
        const QImage image = w->grabWindow();
        const double dpr = image.devicePixelRatio();
        const auto alphaAt = [&](double x, double y) {
            return qAlpha(image.pixel(int(x * dpr), int(y * dpr)));
        };
        const double midX = m + PanelController::width / 2.0, below = m + PanelController::height;
        QVERIFY2(alphaAt(midX, below + 2) > alphaAt(midX, below + m - 3), "the shadow fades outwards");
        QVERIFY(alphaAt(midX, below + 2) > 20);
        QCOMPARE(alphaAt(0, 0), 0);
    }

    // With less motion asked for, the settings page does not slide in: it
    // stands in place from the first frame and only fades.
    void settingsFadeWithReducedMotion()
    {
        open();
        panel->model()->setAnimated(true);
        panel->model()->setReduceMotion(true);
        click(on("settingsButton").value(0));
        QVERIFY(QTest::qWaitFor([&] { return !on("settingsView").isEmpty(); }, 1000));
        QQuickItem *page = on("settingsView").value(0);
        QCOMPARE(page->x(), 0.0);
        QVERIFY(QTest::qWaitFor([&] { return page->opacity() == 1.0; }, 2000));
        click(on("backButton").value(0));
        QCOMPARE(page->x(), 0.0);
        QVERIFY(QTest::qWaitFor([&] { return !page->isVisible(); }, 2000));
        panel->model()->setReduceMotion(false);
    }
};

QTEST_MAIN(PanelQmlTest)
#include "tst_panel_qml.moc"
