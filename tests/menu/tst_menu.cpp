// The ticker strip's decisions and geometry, without a display.

#include "IsolatedSettings.h"

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Menu/FocalDirector.h"
#include "Menu/Paint.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StreamComposer.h"
#include "Support/Theme.h"

#include <QAction>
#include <QMenu>
#include <QPainter>
#include <QTest>

class MenuTest : public QObject {
    Q_OBJECT
    static StreamSegment segment(const char *ticker, std::optional<QString> figure = std::nullopt)
    {
        return StreamSegment{SignalKind::whale, Headline{QLatin1String(ticker), QStringLiteral("@kai aped"),
                                                         figure, QStringLiteral("▲")}};
    }
    static Focal focalOf(const char *ticker, double usd) { return Focal{segment(ticker), usd}; }
    // The whole strip at 2x, 170 x 24 points, as it looks at view time t.
    static QImage frame(const StatusStreamView &view, double t)
    {
        QImage img(QSize(340, 48), QImage::Format_ARGB32_Premultiplied);
        img.setDevicePixelRatio(2);
        img.fill(Qt::black);
        QPainter p(&img);
        view.paintAt(p, QSizeF(170, 24), t);
        return img;
    }

    // A store whose client points at a closed port: nothing arrives but what a test ingests.
    double clock = 1'700'000'000;
    std::unique_ptr<FeedStore> quietStore()
    {
        auto *client = new TarnwickClient(QStringLiteral("http://127.0.0.1:1/api"),
                                          QStringLiteral("ws://127.0.0.1:1/ws"), TarnwickTiming{},
                                          [this] { return clock; });
        return std::make_unique<FeedStore>(client, [this] { return clock; });
    }
    TwFill fill(qint64 id, double usd) const
    {
        TwFill f;
        f.id = id;
        f.ts = clock - 2;
        f.side = QStringLiteral("buy");
        f.usd = usd;
        f.price = 2.5;
        f.handle = QStringLiteral("kai") + QString::number(id);
        f.wallet = QStringLiteral("Wallet") + QString::number(id);
        f.token = QStringLiteral("TokenWIF") + QString::number(id);
        f.symbol = QStringLiteral("WIF") + QString::number(id);
        return f;
    }

private Q_SLOTS:
    void initTestCase()
    {
        isolateSettings();
        QCoreApplication::setOrganizationName(QStringLiteral("Larkpin"));
        QCoreApplication::setApplicationName(QStringLiteral("Larkpin"));
    }

    void statusLine_data()
    {
        QTest::addColumn<LinkState>("link");
        QTest::addColumn<int>("whales");
        QTest::addColumn<int>("stocks");
        QTest::addColumn<QString>("expected");
        QTest::newRow("connecting") << LinkState::connecting << 2 << 1 << QStringLiteral("Connecting…");
        QTest::newRow("live, nothing yet")
            << LinkState::live << 0 << 0 << QStringLiteral("Waiting for signals");
        QTest::newRow("live with counts") << LinkState::live << 2 << 1 << QStringLiteral("2 WHALE · 1 STOCK");
        QTest::newRow("polling, nothing") << LinkState::polling << 0 << 0 << QStringLiteral("Reconnecting…");
        QTest::newRow("polling with counts") << LinkState::polling << 0 << 3 << QStringLiteral("3 STOCK");
        QTest::newRow("down hides counts") << LinkState::down << 2 << 1 << QStringLiteral("Feed offline");
    }
    void statusLine()
    {
        QFETCH(LinkState, link);
        QFETCH(int, whales);
        QFETCH(int, stocks);
        QFETCH(QString, expected);
        QCOMPARE(StatusItemController::statusLine(link, whales, 0, stocks), expected);
    }

    void badgeAndRuns()
    {
        QVERIFY(
            StreamComposer::badge(segment("$WIF"), std::nullopt, 16.9, 2).isNull()); // too low for the pill
        // A figure passed in replaces the headline's own.
        const auto withFigure = [](std::optional<QString> own, std::optional<QString> over) {
            return StreamComposer::badge(segment("$WIF", own), over, 24, 2);
        };
        const QString k = QStringLiteral("$1.0K"), m = QStringLiteral("$0.40M");
        QVERIFY(withFigure(k, std::nullopt) != withFigure(k, m));
        QCOMPARE(withFigure(k, m), withFigure(std::nullopt, m));

        StreamSegment bare = segment("$WIF");
        bare.line.tag.reset();
        QCOMPARE(StreamComposer::leading(bare, Qt::white).size(), 1); // the body never reaches the bar
        QVERIFY(!StreamComposer::trailing(std::nullopt, Qt::white));
    }

    void truncation_data()
    {
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<double>("width");
        QTest::addColumn<int>("runs"); // -1: left as given
        const QString tag = QStringLiteral("▲"), longTag = QStringLiteral("BUY ").repeated(13);
        QTest::newRow("fits") << QStringLiteral("$WIF") << tag << 137.0 << -1;
        QTest::newRow("cut in the ticker") << QStringLiteral("$SUPERLONGTICKERNAMEHERE") << tag << 60.0 << 1;
        QTest::newRow("cut in the tag") << QStringLiteral("$WIF") << longTag << 100.0 << 2;
        QTest::newRow("no room at all") << QStringLiteral("$WIF") << tag << 0.0 << 0;
    }
    void truncation()
    {
        QFETCH(QString, ticker);
        QFETCH(QString, tag);
        QFETCH(double, width);
        QFETCH(int, runs);
        StreamSegment s = segment(qPrintable(ticker));
        s.line.tag = tag;
        const StyledText full = StreamComposer::leading(s, Qt::white);
        const StyledText cut = StreamComposer::truncatedTail(full, width);
        QVERIFY(StreamComposer::width(cut) <= width);
        if (runs < 0) {
            QCOMPARE(cut, full);
            return;
        }
        // Whole runs before the cut, the cut one keeps its style and ends in an ellipsis.
        QCOMPARE(cut.size(), runs);
        for (int i = 0; i < runs; ++i) {
            QCOMPARE(cut[i].font, full[i].font);
            QCOMPARE(cut[i].colour, full[i].colour);
            if (i < runs - 1)
                QCOMPARE(cut[i].text, full[i].text);
        }
        if (runs > 0) {
            QVERIFY(cut.last().text.endsWith(QStringLiteral("…")));
            QVERIFY(full[runs - 1].text.startsWith(cut.last().text.chopped(1)));
        }
    }

    void flipping()
    {
        StatusStreamView view;
        view.update({segment("$A")}, false);
        QVERIFY(!view.hasFlipTimer()); // one row has nothing to flip to
        view.update({segment("$A"), segment("$B"), segment("$C")}, true);
        QVERIFY(!view.hasFlipTimer()); // paused
        view.update({segment("$A"), segment("$B"), segment("$C")}, false);
        QVERIFY(view.hasFlipTimer());
        view.flip();
        view.flip(); // skipped while the first one runs
        QCOMPARE(view.index(), 1);
        QCOMPARE(view.railPhase(), StatusStreamView::railStep);
        // A new list keeps the row on show where it went.
        view.update({segment("$Z"), segment("$A"), segment("$B")}, false);
        QCOMPARE(view.rows().value(view.index()), segment("$B"));
        QVERIFY(QTest::qWaitFor([&] { return !view.isFlipping(); }, 1000));
        view.flip();
        QCOMPARE(view.index(), 0); // wraps around
        QCOMPARE(view.railPhase(), 2 * StatusStreamView::railStep);
    }

    void newListsDoNotRestartTheFlipRhythm()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        // A busy tape publishes faster than the 3 s hold; the ticker must still move.
        for (int i = 0; i < 4; ++i) {
            QTest::qWait(900);
            view.update({segment(i % 2 ? "$A" : "$C"), segment("$B")}, false);
        }
        QVERIFY(view.railPhase() >= StatusStreamView::railStep);
    }

    void takeoverDimsAndBlursTheStream()
    {
        StatusStreamView view;
        view.snap(std::nullopt); // nothing to release
        QVERIFY(!view.blurAttached());
        view.update({segment("$A"), segment("$B")}, false);
        view.snap(focalOf("$BIG", 48200));
        QVERIFY(!view.hasFlipTimer());
        QVERIFY(view.blurAttached() && view.hasPumpTimer());
        QCOMPARE(view.laneOpacityAt(view.now() + 1), StatusStreamView::dimmedOpacity);
        QCOMPARE(view.blurRadiusAt(view.now() + 1), StatusStreamView::focalBlurRadius);
        view.update({segment("$C"), segment("$A"), segment("$B")}, false);
        QVERIFY(!view.hasFlipTimer()); // frozen on the focal trade
        QVERIFY(QTest::qWaitFor([&] { return !view.hasPumpTimer(); }, 3000));
        view.snap(focalOf("$BIG", 48200));
        QVERIFY(!view.hasPumpTimer()); // the same focal again changes nothing

        view.snap(std::nullopt);
        QVERIFY(!view.focal() && view.hasFlipTimer());
        QCOMPARE(view.laneOpacityAt(view.now() + 1), 1.0);
        QVERIFY(view.blurAttached()); // until the fade is over
        QVERIFY(QTest::qWaitFor([&] { return !view.blurAttached(); }, 2000));
        // A new takeover soon after a release keeps the blur the fade would drop.
        view.snap(focalOf("$A", 1e5));
        view.snap(std::nullopt);
        QTest::qWait(100);
        view.snap(focalOf("$B", 1e5));
        QTest::qWait(500);
        QVERIFY(view.blurAttached());
    }

    // The rail is drawn once and reused between frames: a new tick or a flip
    // must still show up in the next frame, and nothing else may change it.
    void reusedRailFollowsTicksAndFlips()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        const auto railBand = [&](double t) { return frame(view, t).copy(0, 40, 300, 8); };
        view.setRail({RailTick{1.0, true}, RailTick{0.1, false}});
        const double t = view.now() + 5;
        const QImage first = railBand(t);
        QCOMPARE(railBand(t), first);
        view.setRail({RailTick{0.1, true}, RailTick{1.0, false}});
        const QImage ticked = railBand(t);
        QVERIFY(ticked != first);
        view.flip();
        QVERIFY(QTest::qWaitFor([&] { return !view.isFlipping(); }, 1000));
        QVERIFY(railBand(view.now() + 5) != ticked); // the rail moved on by a step
    }

    void pingsShareOnePumpAndPausedPingsDoNothing()
    {
        StatusStreamView view;
        view.show(); // pings only play in a window on screen
        view.update({segment("$A")}, true);
        view.ping();
        QVERIFY(!view.hasPumpTimer());
        view.update({segment("$A")}, false);
        view.ping();
        view.ping();
        QVERIFY(view.hasPumpTimer());
        QVERIFY(QTest::qWaitFor([&] { return !view.hasPumpTimer(); }, 3000)); // it stops by itself
        view.hide();
        view.ping();
        QVERIFY(!view.hasPumpTimer());
    }

    // The link dot is blitted from a small cached image: it must land where the
    // circle it stands for would be drawn, at any scale and sub-pixel offset.
    void linkDotLandsWhereTheCircleWould_data()
    {
        QTest::addColumn<double>("scale");
        QTest::addColumn<QPointF>("offset");
        QTest::newRow("1x") << 1.0 << QPointF();
        QTest::newRow("2x") << 2.0 << QPointF();
        QTest::newRow("2x, odd bar half a point down") << 2.0 << QPointF(0, 0.5);
        QTest::newRow("1x, quarter pixels") << 1.0 << QPointF(0.25, 0.75);
    }
    void linkDotLandsWhereTheCircleWould()
    {
        QFETCH(double, scale);
        QFETCH(QPointF, offset);
        StatusStreamView view; // no rows, no ping: the dot is the only thing right of the lane
        const QSize pixels(int(40 * scale), int(24 * scale));
        auto canvas = [&] {
            QImage img(pixels, QImage::Format_ARGB32_Premultiplied);
            img.setDevicePixelRatio(scale);
            img.fill(Qt::black);
            return img;
        };
        QImage drawn = canvas(), expected = canvas();
        {
            QPainter p(&drawn);
            p.translate(offset);
            view.paintAt(p, QSizeF(40, 24), view.now());
        }
        {
            QPainter p(&expected);
            p.setRenderHint(QPainter::Antialiasing);
            p.translate(offset);
            p.setPen(Qt::NoPen);
            p.setBrush(toQColor(Theme::amber)); // connecting
            p.drawEllipse(QPointF(35, 12), 2.5, 2.5);
        }
        const QRect dot(int(30 * scale), int(6 * scale), int(10 * scale), int(12 * scale));
        int worst = 0;
        for (int y = dot.top(); y <= dot.bottom(); ++y)
            for (int x = dot.left(); x <= dot.right(); ++x) {
                const QRgb a = drawn.pixel(x, y), b = expected.pixel(x, y);
                worst = std::max({worst, std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                                  std::abs(qBlue(a) - qBlue(b))});
            }
        QVERIFY2(worst <= 3, qPrintable(QString::number(worst)));
    }

    void stripPlacement_data()
    {
        QTest::addColumn<QRect>("screen");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QRect>("strip");
        QTest::newRow("top bar 32") << QRect(0, 0, 1920, 1080) << QRect(0, 32, 1920, 1048)
                                    << QRect(1920 - 196, 32, 196, 32);
        QTest::newRow("no bar") << QRect(0, 0, 1280, 800) << QRect(0, 0, 1280, 800)
                                << QRect(1280 - 196, 0, 196, 24);
        QTest::newRow("bottom bar 40")
            << QRect(0, 0, 1280, 800) << QRect(0, 0, 1280, 760) << QRect(1280 - 196, 0, 196, 40);
        QTest::newRow("dock on the left, bar on top, second screen")
            << QRect(1920, 0, 2560, 1440) << QRect(1990, 27, 2490, 1413) << QRect(4480 - 196, 27, 196, 27);
        QTest::newRow("a bar too thin for the pill")
            << QRect(0, 0, 800, 600) << QRect(0, 10, 800, 590) << QRect(800 - 196, 10, 196, 24);
    }
    void stripPlacement()
    {
        QFETCH(QRect, screen);
        QFETCH(QRect, available);
        QFETCH(QRect, strip);
        QCOMPARE(StatusItemController::stripGeometry(screen, available), strip);
    }

    void trayMarkIsMonochromeForThePanel()
    {
        for (bool dark : {true, false}) {
            const QImage mark = StatusItemController::trayMark(dark, 32);
            QSet<QRgb> opaque;
            for (int y = 0; y < 32; ++y)
                for (int x = 0; x < 32; ++x)
                    if (qAlpha(mark.pixel(x, y)) == 255)
                        opaque.insert(mark.pixel(x, y));
            QCOMPARE(opaque.size(), 1);
            QCOMPARE(StatusItemController::isDarkColour(QColor(*opaque.begin())), !dark);
        }
    }

    void controllerMenuAndPause()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        int toggles = 0;
        item.onToggle = [&] { ++toggles; };
        QCOMPARE(item.strip()->width(), 196);
        QVERIFY(!item.strip()->focusPolicy());

        std::unique_ptr<QMenu> menu(item.buildMenu());
        const auto action = [&](const char *text) {
            for (QAction *a : menu->actions())
                if (a->text() == QString::fromUtf8(text))
                    return a;
            qFatal("no menu item %s", text);
        };
        QVERIFY(!menu->actions().first()->isEnabled()); // the status line
        action("Open Larkpin")->trigger();
        QCOMPARE(toggles, 1);
        action("Pause ticker")->trigger();
        QVERIFY(store->preferences().paused && PreferencesStore::load().paused);
        menu.reset(item.buildMenu());
        action("Resume ticker")->trigger();
        QVERIFY(!PreferencesStore::load().paused);

        item.handleClick(Qt::RightButton, QPoint(10, 10));
        QCOMPARE(toggles, 1); // a right click only opens the menu
        item.handleClick(Qt::LeftButton, QPoint(10, 10));
        QCOMPARE(toggles, 2);
    }

    void aLargeTradeTakesTheStripOver()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        QCOMPARE(item.strip()->toolTip(), QStringLiteral("Larkpin"));
        store->ingest(QList<TwFill>{fill(1, 90000)}); // arrives with the first fetch
        QVERIFY(!item.view()->focal());
        store->ingest(QList<TwFill>{fill(2, 5000)}); // under the 25 000 threshold
        QVERIFY(!item.view()->focal());
        store->ingest(QList<TwFill>{fill(3, 40000)});
        QVERIFY(item.view()->focal());
        QCOMPARE(item.view()->focal()->usd, std::optional<double>(40000));
        QCOMPARE(item.focalDirector()->current()->notionalUsd, std::optional<double>(40000));
        QVERIFY(item.view()->focal()->segment.line.ticker.contains(QStringLiteral("WIF3")));
        QVERIFY(item.strip()->toolTip().startsWith(QStringLiteral("WHALE  ")));

        // Switching focal alerts off ends the takeover at once.
        Preferences prefs = store->preferences();
        prefs.focalUsd = 0;
        store->updatePreferences(prefs);
        QVERIFY(!item.view()->focal());
    }
};

QTEST_MAIN(MenuTest)
#include "tst_menu.moc"
