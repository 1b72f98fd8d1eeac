// The real QML panel in a real (offscreen) window, driven with mouse and keys:
// one test per interaction; what the models decide is tested on the models.

#include "Panel/SignalListModel.h"
#include "PanelTestSupport.h"
#include "Table.h"

#include <QFont>
#include <QGuiApplication>
#include <QScreen>
#include <QWheelEvent>

using namespace Qt::StringLiterals;

namespace {
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

// A tooltip on show anywhere in the window: a style's popup or the panel's own.
QQuickItem *shownToolTip(QQuickWindow *window)
{
    for (QQuickItem *item : allItems(window->contentItem()))
        if ((item->inherits("QQuickPopupItem") || item->objectName() == QLatin1String("hudToolTip")) &&
            item->isVisible() && item->opacity() > 0.5)
            return item;
    return nullptr;
}

// clang-format off
// The panel keeps its full height where the work area has room below (or
// above) the anchor, and otherwise shrinks to what fits, 8 short of the edge.
struct Placement { const char *name; QRect anchor, screen; QPoint topLeft; int height = 620; };
const QRect wide(0, 0, 1920, 1080);
const Placement placements[] = {
    {.name = "under the button, right edges 10 apart", .anchor = {1500, 0, 30, 24}, .screen = wide,
     .topLeft = {1140, 30}},
    {.name = "far right stops 8 inside", .anchor = {1900, 0, 20, 24}, .screen = wide, .topLeft = {1512, 30}},
    {.name = "far left stops 8 inside", .anchor = {0, 0, 20, 24}, .screen = wide, .topLeft = {8, 30}},
    {.name = "offset screen", .anchor = {1930, 30, 20, 20}, .screen = {1920, 28, 1280, 1000},
     .topLeft = {1928, 56}},
    {.name = "narrow screen: the right margin wins", .anchor = {100, 0, 20, 24}, .screen = {0, 0, 410, 800},
     .topLeft = {2, 30}},
    {.name = "tray icon in a bottom bar: above it", .anchor = {1800, 1052, 24, 24},
     .screen = {0, 0, 1920, 1048}, .topLeft = {1434, 1052 - 6 - 620}},
    {.name = "corner anchor of a tray-only start", .anchor = {1919, 0, 1, 1}, .screen = wide,
     .topLeft = {1512, 7}},
    {.name = "scale 2 on 1920x1080: shrinks to the work area", .anchor = {764, 15, 196, 24},
     .screen = {0, 39, 960, 501}, .topLeft = {552, 45}, .height = 487},
    {.name = "a short screen: never below the minimum", .anchor = {604, 0, 196, 24},
     .screen = {0, 0, 800, 290}, .topLeft = {392, 0}, .height = 300},
    {.name = "above a bottom tray on a short screen", .anchor = {700, 560, 24, 24},
     .screen = {0, 0, 800, 556}, .topLeft = {334, 8}, .height = 546},
};

// The hero's figure line shrinks to fit, down to the smallest legible size,
// then shortens the ticker; it never runs under the amount.
struct HeroTicker { const char *name, *symbol; bool shortened; };
const HeroTicker heroTickers[] = {
    {.name = "fits at full size", .symbol = "WIF", .shortened = false},
    {.name = "fits once shrunk", .symbol = "ABCDEFGHIJKLMNOPQR", .shortened = false},
    {.name = "shortened at the smallest size", .symbol = "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMN",
     .shortened = true},
};
// clang-format on

QString heroId(PanelModel *model)
{
    return model->hero().signalId;
}
} // namespace

class PanelQmlTest : public QObject, private PanelRig {
    Q_OBJECT

    void feed(int n) { store->ingest(whaleRun(n, clock.t)); }

    // Clicks at `at` and says whether a load of `id` started. A load may be over
    // by the time the click returns, so it is caught as it happens.
    bool clickStartsLoading(QPoint at, const QString &id)
    {
        bool seen = store->loadingDetail().contains(id);
        const auto watch = connect(store.get(), &FeedStore::loadingDetailChanged, this,
                                   [&] { seen = seen || store->loadingDetail().contains(id); });
        settleFrame(window());
        QTest::mouseClick(window(), Qt::LeftButton, {}, at);
        disconnect(watch);
        return seen;
    }
    // A point `fromTop` below the top (negative: above the bottom) of the row of `id`.
    QPoint onRow(const QString &id, double fromTop)
    {
        settleFrame(window());
        QQuickItem *row = summaryOf(root(), id)->parentItem()->parentItem();
        const double y = fromTop >= 0 ? fromTop : row->height() + fromTop;
        return row->mapToScene(QPointF(row->width() / 3, y)).toPoint();
    }
    bool failsSoon(const QString &id)
    {
        return QTest::qWaitFor([&] { return store->failedDetail().contains(id); }, 10000);
    }

private Q_SLOTS:
    void init() { freshPanel(); }
    void cleanup() { dropAll(); }

    void placement_data() { rows(placements); }
    void placement()
    {
        const Placement &r = row(placements);
        const int height = PanelController::fittedHeight(r.anchor, r.screen);
        QCOMPARE(height, r.height);
        QCOMPARE(PanelController::placement(r.anchor, r.screen, height), r.topLeft);
    }

    // A frameless tool window that slides into place; closing drops the whole
    // tree after the fade, and the next opening starts with nothing open.
    void openAndClose()
    {
        QCOMPARE(panel->secondsSinceClosed(), std::numeric_limits<double>::infinity());
        QVERIFY(!panel->isVisible());
        feed(6);
        open();
        QQuickWindow *w = window();
        QVERIFY(w->flags().testFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::Tool));
        QCOMPARE(w->size(), QSize(400, 620));
        QCOMPARE(w->color().alpha(), 0);
        QVERIFY(QTest::qWaitFor([&] { return w->position() == panel->targetPosition(); }, 30000));
        const qint64 opened = panel->generation();
        model()->toggle(model()->stream()->ids().first());
        model()->setShowSettings(true);

        QSignalSpy torn(panel.get(), &PanelController::tornDown);
        panel->close();
        QVERIFY(!panel->isVisible());
        QVERIFY(panel->generation() > opened);
        QVERIFY(panel->secondsSinceClosed() < 0.2);
        QVERIFY(torn.wait(30000));
        QVERIFY(!w->isVisible());
        // Nothing but the window's popup overlay, empty: no view survives.
        for (QQuickItem *child : w->contentItem()->childItems())
            QVERIFY2(QByteArray(child->metaObject()->className()).contains("Overlay") &&
                         child->childItems().isEmpty(),
                     child->metaObject()->className());
        QVERIFY(!model());
        panel->close(); // closing a closed panel does nothing
        QCOMPARE(torn.count(), 1);

        open();
        QCOMPARE(model()->openId(), QString());
        QVERIFY(!model()->showSettings());
    }

    void escapeClosesAndGoesNoFurther()
    {
        open();
        QTest::keyClick(window(), Qt::Key_A);
        QCOMPARE(root()->property("lastKey").toInt(), int(Qt::Key_A));
        QTest::keyClick(window(), Qt::Key_Escape);
        QVERIFY(QTest::qWaitFor([&] { return !panel->isVisible(); }, 30000));
        QVERIFY(root() == nullptr || root()->property("lastKey").toInt() == int(Qt::Key_A));
    }

    void closesWhenFocusLeavesAfterActivation()
    {
        open();
        window()->requestActivate();
        if (!QTest::qWaitForWindowActive(window(), 1000))
            QSKIP("this platform never activates windows");
        QWindow other;
        other.resize(50, 50);
        other.show();
        other.requestActivate();
        QVERIFY(QTest::qWaitFor([&] { return !panel->isVisible(); }, 30000));
    }

    // Tapping a row anywhere, edges included, opens it and starts its load; a
    // failed load offers a retry that shows the loading bar at once; tapping
    // the open row closes it without a reload, and tapping another moves the expansion.
    void tappingRowsOpensOneAndLoadsOnce()
    {
        feed(7);
        open();
        const QStringList ids = model()->stream()->ids();
        QVERIFY(clickStartsLoading(onRow(ids[0], 1.5), ids[0]));
        QCOMPARE(model()->openId(), ids[0]);
        // One inspector under the open row: loading, or already failed.
        const auto inspectors = [&] {
            return shown("inspectorLoading").size() + shown("retryAction").size();
        };
        QVERIFY(QTest::qWaitFor([&] { return inspectors() == 1; }, 30000));
        QVERIFY(failsSoon(ids[0]));
        QVERIFY(waitFor("retryAction"));
        QVERIFY(!on("inspectorLoading"));
        click(on("retryAction"));
        QVERIFY(store->loadingDetail().contains(ids[0]));
        QCOMPARE(shown("inspectorLoading").size(), 1);
        QCOMPARE(inspectors(), 1);

        QVERIFY(failsSoon(ids[0]));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(summaryOf(root(), ids[0]));
        QCOMPARE(model()->openId(), QString());
        QCOMPARE(loads.count(), 0);
        QVERIFY(!on("rowInspector"));
        QVERIFY(clickStartsLoading(onRow(ids[1], -1.5), ids[1]));
        QCOMPARE(model()->openId(), ids[1]);
    }

    // The big hero unfolds its evidence in place; a mini hero opens onto the
    // detail card, and closing the card closes it without a reload.
    void heroesOpenTheirEvidence()
    {
        feed(6);
        open();
        QQuickItem *evidence = on("heroEvidence");
        QVERIFY(evidence);
        QCOMPARE(evidence->property("title").toString(), QStringLiteral("EVIDENCE"));
        click(evidence);
        QCOMPARE(model()->openId(), heroId(model()));
        QCOMPARE(evidence->property("title").toString(), QStringLiteral("HIDE"));
        QCOMPARE(shown("heroInspector").size(), 1);
        QVERIFY(!on("heroDetail"));
        click(evidence);
        QCOMPARE(model()->openId(), QString());
        QVERIFY(!on("heroInspector"));

        QQuickItem *mini = on("miniHero");
        QVERIFY(mini);
        const QString id = mini->property("signalId").toString();
        settleFrame(window());
        QVERIFY(clickStartsLoading(centre(mini).toPoint(), id));
        QCOMPARE(model()->openId(), id);
        QCOMPARE(shown("heroDetail").size(), 1);
        QVERIFY(failsSoon(id));
        QSignalSpy loads(store.get(), &FeedStore::loadingDetailChanged);
        click(on("closeDetail"));
        QCOMPARE(model()->openId(), QString());
        QVERIFY(!on("heroDetail"));
        QCOMPARE(loads.count(), 0);
    }

    void filterChipsChangeTheList()
    {
        feed(6);
        open();
        const auto chip = [&](const char *label) {
            return on(QByteArray("chip-").append(label).constData());
        };
        const auto rows = [&] { return on("streamList") ? on("streamList")->property("count").toInt() : 0; };
        QCOMPARE(rows(), 3);
        QQuickItem *spike = chip("SPIKE");
        QVERIFY(spike && chip("ALL"));
        QCOMPARE(spike->property("trailing").toString(), QStringLiteral("0"));
        click(spike);
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));
        QVERIFY(spike->property("selected").toBool());
        QVERIFY(!chip("ALL")->property("selected").toBool());
        QCOMPARE(chip("ALL")->property("trailing").toString(), QStringLiteral("6")); // still counts all
        QCOMPARE(rows(), 0);
        QVERIFY(on("emptyMessage"));
        QCOMPARE(on("emptyMessage")->property("text").toString(),
                 QStringLiteral("Connecting to the tape\u2026"));
        model()->selectFilter(7); // no such chip: ignored
        QCOMPARE(store->filter(), FeedFilter::of(SignalKind::spike));
        click(chip("ALL"));
        QCOMPARE(store->filter(), FeedFilter::all());
        QCOMPARE(rows(), 3);
    }

    // A headline too long for its row loses its middle, clear of the figure.
    void longHeadlineIsCutInTheMiddle()
    {
        feed(4);
        const QString handle = QStringLiteral("averyveryverylonghandlethatgoesonandonforeverandever");
        store->ingest({whaleFill(900, clock.t - 5, 1200, handle, QStringLiteral("LONGTICKER"))});
        open();
        settleFrame(window());
        QQuickItem *summary = summaryOf(root(), QStringLiteral("tw-fill-900"));
        QVERIFY(summary);
        QQuickItem *ticker = shownNamed(summary, QStringLiteral("tickerText")).value(0);
        QQuickItem *body = shownNamed(summary, QStringLiteral("bodyText")).value(0);
        QQuickItem *figure = shownNamed(summary, QStringLiteral("figureText")).value(0);
        QVERIFY(ticker && body && figure);
        const QString text = ticker->property("text").toString() + body->property("text").toString();
        QVERIFY2(text.contains(QChar(0x2026)) && text.startsWith(QStringLiteral("$LONG")), qPrintable(text));
        QVERIFY2(!text.endsWith(QChar(0x2026)), qPrintable(text));
        const double right = ticker->mapToItem(summary, QPointF(0, 0)).x() + ticker->width() + body->width();
        QVERIFY2(right <= figure->x() + 0.5,
                 qPrintable(QStringLiteral("%1 > %2").arg(right).arg(figure->x())));
    }

    // Wire text is plain everywhere, and a line break in it never makes a
    // second line where the layout has one.
    void wireTextIsPlainAndOnOneLine()
    {
        QList<TwFill> fills;
        for (int i = 0; i < 5; ++i)
            fills << whaleFill(300 + i, clock.t - 10 - i, 3000.0 * (i + 1), QStringLiteral("<b>x</b>"),
                               QStringLiteral("<i>T%1</i>").arg(i));
        fills << whaleFill(800, clock.t - 2, 9e6, QStringLiteral("heroone\nherotwo"))
              << whaleFill(801, clock.t - 1, 1500, QStringLiteral("rowone\r\nrowtwo\u2028rowthree"));
        store->ingest(fills);
        open();
        QCOMPARE(heroId(model()), QStringLiteral("tw-fill-800"));
        settleFrame(window());
        int texts = 0, markup = 0, broken = 0;
        const auto scan = [&] {
            for (QQuickItem *item : allItems(root())) {
                if (!item->inherits("QQuickText"))
                    continue;
                ++texts;
                const QString text = item->property("text").toString();
                QVERIFY2(item->property("textFormat").toInt() == Qt::PlainText, qPrintable(text));
                markup += text.contains(QStringLiteral("<b>x</b>"));
                if (!item->isVisible() ||
                    (!text.contains(QStringLiteral("heroone")) && !text.contains(QStringLiteral("rowone"))))
                    continue;
                ++broken;
                QVERIFY2(item->property("lineCount").toInt() == 1, qPrintable(text));
                QVERIFY2(!text.contains(QLatin1Char('\n')) && !text.contains(QChar(0x2028)),
                         qPrintable(text));
            }
        };
        scan();
        QVERIFY(broken >= 2);
        model()->setShowSettings(true); // every page in the tree
        QTest::qWait(50);
        scan();
        QVERIFY(texts > 30);
        QVERIFY2(markup > 0, "a handle with markup shows its brackets");
    }

    // The rail's pause button and the settings page edit the same preferences,
    // and every control shows what they hold.
    void settingsAndPause()
    {
        open();
        QQuickItem *railPause = on("pauseButton");
        QVERIFY(railPause);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Pause ticker"));
        click(railPause);
        QVERIFY(store->preferences().paused);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Resume ticker"));
        QCOMPARE(railPause->property("systemName").toString(), QStringLiteral("play.fill"));
        QVERIFY(railPause->property("active").toBool());

        click(on("settingsButton"));
        QVERIFY(model()->showSettings());
        QVERIFY(waitFor("settingsView"));
        QList<QQuickItem *> buttons;
        for (QQuickItem *child : on("minimumChips")->childItems())
            if (child->property("label").isValid())
                buttons << child;
        QCOMPARE(buttons.size(), 5);
        click(buttons[3]); // "$5K"
        QCOMPARE(store->preferences().minTradeUsd, 5000.0);
        QVERIFY(buttons[3]->property("selected").toBool());
        QVERIFY(!buttons[2]->property("selected").toBool());
        click(shownNamed(on("pauseSwitch"), QStringLiteral("toggle")).value(0));
        QVERIFY(!store->preferences().paused);
        QCOMPARE(railPause->property("help").toString(), QStringLiteral("Pause ticker"));
    }

    // New signals arrive in sight at the top of a list left at its top, even
    // when a change removes and adds rows at once; a list the user scrolled
    // keeps the row they were reading.
    void theStreamKeepsItsTopWhileOpen_data() { eitherWay("animated", "still", "animated"); }
    void theStreamKeepsItsTopWhileOpen()
    {
        QFETCH(bool, animated);
        feed(24);
        open();
        model()->setAnimated(animated);
        QQuickItem *list = on("streamList");
        QVERIFY(list);
        settleFrame(window());
        SignalListModel *stream = model()->stream();
        const auto topId = [&] { return stream->ids().value(topIndex(list)); };
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
            settleFrame(window());
            settleFrame(window());
        };
        for (int dropAt : {0, 0, 5, 1, 0}) {
            arrive(dropAt);
            QCOMPARE(topId(), stream->ids().first());
            QVERIFY2(list->property("atYBeginning").toBool(),
                     qPrintable(QStringLiteral("contentY %1 originY %2")
                                    .arg(list->property("contentY").toReal())
                                    .arg(list->property("originY").toReal())));
        }

        const QPointF at = centre(list);
        for (int i = 0; i < 3; ++i) {
            QWheelEvent event(at, window()->mapToGlobal(at), QPoint(), QPoint(0, -120), Qt::NoButton, {},
                              Qt::NoScrollPhase, false);
            QGuiApplication::sendEvent(window(), &event);
        }
        QVERIFY(QTest::qWaitFor([&] { return !list->property("moving").toBool(); }, 30000));
        QVERIFY(!list->property("atYBeginning").toBool());
        const QString reading = topId();
        arrive(0);
        QCOMPARE(topId(), reading);
        QVERIFY(!list->property("atYBeginning").toBool());
    }

    // Links keep their encoded form from the wire to the opener, from a row's
    // evidence and from the hero's chart button alike.
    void anEncodedLinkReachesTheOpenerIntact_data() { eitherWay("asHero", "row evidence", "hero chart"); }
    void anEncodedLinkReachesTheOpenerIntact()
    {
        QFETCH(bool, asHero);
        const QString pair = QStringLiteral("https://dex.example/solana/a%20b?q=x%2Fy");
        const TwFill f = whaleFill(700, clock.t - 5, asHero ? 9e6 : 1500);
        servedWith({QJsonObject{{u"id"_s, f.id}, {u"ts"_s, f.ts}, {u"side"_s, f.side}, {u"usd"_s, f.usd},
                                {u"handle"_s, f.handle}, {u"wallet"_s, f.wallet}, {u"token"_s, f.token},
                                {u"symbol"_s, f.symbol}, {u"pair_url"_s, pair}}},
                   {{u"address"_s, f.wallet}, {u"handle"_s, f.handle}});
        feed(6);
        store->ingest({f});
        open();
        QList<QByteArray> opened;
        model()->openUrlHook = [&](const QUrl &url) {
            opened << url.toEncoded();
            return true;
        };
        const QString id = QStringLiteral("tw-fill-700");
        if (asHero) {
            QCOMPARE(heroId(model()), id);
            click(on("heroEvidence"));
        } else {
            click(summaryOf(root(), id));
        }
        QVERIFY(QTest::qWaitFor([&] { return store->details().contains(id); }, 30000));
        QVERIFY(waitFor(asHero ? "heroChart" : "link-CHART"));
        click(on(asHero ? "heroChart" : "link-CHART"));
        QCOMPARE(opened, QList<QByteArray>{pair.toUtf8()});
    }

    void aLongTickerInTheHeroStaysClearOfTheAmount_data() { rows(heroTickers); }
    void aLongTickerInTheHeroStaysClearOfTheAmount()
    {
        const auto [name, symbol, shortened] = row(heroTickers);
        feed(4);
        store->ingest(
            {whaleFill(810, clock.t - 1, 9'876'543, QStringLiteral("ansem"), QLatin1String(symbol))});
        open();
        settleFrame(window());
        QCOMPARE(heroId(model()), QStringLiteral("tw-fill-810"));
        QQuickItem *ticker = on("heroTicker");
        QQuickItem *amount = on("heroAmount");
        QVERIFY(ticker && amount);
        const QFont font = ticker->property("font").value<QFont>();
        const double px = font.pixelSize() > 0
                              ? font.pixelSize()
                              : font.pointSizeF() * window()->screen()->logicalDotsPerInchY() / 72.0;
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

    // Tooltips wear the panel's own dark plate with light plain text.
    void tooltipsWearThePanelsColours_data()
    {
        QTest::addColumn<QByteArray>("target");
        QTest::newRow("pause button") << QByteArray("pauseButton");
        QTest::newRow("telemetry band") << QByteArray("telemetryBand");
    }
    void tooltipsWearThePanelsColours()
    {
        QFETCH(QByteArray, target);
        feed(6);
        open();
        settleFrame(window());
        QQuickItem *item = on(target.constData());
        QVERIFY(item);
        QTest::mouseMove(window(), centre(item).toPoint());
        QQuickItem *tip = nullptr;
        QVERIFY(QTest::qWaitFor([&] { return (tip = shownToolTip(window())) != nullptr; }, 30000));
        int plates = 0, texts = 0;
        for (QQuickItem *part : allItems(tip)) {
            const QColor c = part->property("color").value<QColor>();
            if (!part->isVisible())
                continue;
            if (part->inherits("QQuickRectangle") && c.alpha() >= 128) {
                ++plates;
                QVERIFY2(c.lightnessF() < 0.25, qPrintable(c.name()));
            } else if (part->inherits("QQuickText")) {
                ++texts;
                QVERIFY2(c.lightnessF() > 0.6, qPrintable(c.name()));
                QCOMPARE(part->property("textFormat").toInt(), int(Qt::PlainText));
            }
        }
        QVERIFY(plates >= 1);
        QCOMPARE(texts, 1);
    }

    // Opening the last row scrolls its evidence into view above the band.
    void anOpenedLowRowShowsItsEvidenceAboveTheBand()
    {
        servedWith({}, {{u"address"_s, u"Wallet1"_s}, {u"handle"_s, u"w1"_s}});
        feed(12);
        open();
        QQuickItem *list = on("streamList");
        QVERIFY(list);
        QMetaObject::invokeMethod(list, "positionViewAtEnd");
        settleFrame(window());
        const QString id = model()->stream()->ids().last();
        click(summaryOf(root(), id));
        QCOMPARE(model()->openId(), id);
        QVERIFY(QTest::qWaitFor([&] { return store->details().contains(id); }, 30000));
        QVERIFY(waitFor("walletModule"));
        QTest::qWait(100);
        settleFrame(window());
        QQuickItem *inspector = on("rowInspector");
        QQuickItem *band = on("telemetryBand");
        QVERIFY(inspector && band);
        const QRectF evidence = sceneRect(inspector), view = sceneRect(list);
        QVERIFY(evidence.height() > 60);
        if (evidence.height() <= view.height() - 34)
            QVERIFY2(evidence.bottom() <= sceneRect(band).top() + 0.5,
                     qPrintable(QStringLiteral("%1 > %2").arg(evidence.bottom()).arg(sceneRect(band).top())));
        else
            QVERIFY2(evidence.top() >= view.top() - 0.5 && evidence.top() <= view.top() + 40,
                     qPrintable(QStringLiteral("%1 vs %2").arg(evidence.top()).arg(view.top())));
    }

    // With less motion asked for, the settings page does not slide in: it
    // stands in place from the first frame and only fades.
    void settingsFadeWithReducedMotion()
    {
        open();
        model()->setAnimated(true);
        model()->setReduceMotion(true);
        click(on("settingsButton"));
        QQuickItem *page = waitFor("settingsView");
        QVERIFY(page);
        QCOMPARE(page->x(), 0.0);
        QVERIFY(QTest::qWaitFor([&] { return page->opacity() == 1.0; }, 30000));
        click(on("backButton"));
        QVERIFY(!model()->showSettings());
        QCOMPARE(page->x(), 0.0);
        QVERIFY(QTest::qWaitFor([&] { return !page->isVisible(); }, 30000));
    }
};

QTEST_MAIN(PanelQmlTest)
#include "tst_panel_qml.moc"
