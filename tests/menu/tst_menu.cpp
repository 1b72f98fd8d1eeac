// The ticker strip's decisions and geometry, without a display.

#include "IsolatedSettings.h"

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Menu/FocalDirector.h"
#include "Menu/Paint.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StreamComposer.h"
#include "Menu/X11Desktop.h"
#include "Look/Theme.h"

#include <QAction>
#include <QGuiApplication>
#include <QMenu>
#include <QPainter>
#include <QScreen>
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
        QVERIFY(!StreamComposer::badge(segment("$WIF"), std::nullopt, 17, 2).isNull()); // exactly its height
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
    // Drawn onto a wider canvas, nothing of the ping's ring may fall right of
    // or above/below the view: the window would cut it into a "C".
    void pingRingStaysInside()
    {
        StatusStreamView view;
        view.ping();
        const double start = view.now();
        for (double age : {0.05, 0.15, 0.3, 0.45, 0.6}) {
            QImage img(QSize(120, 64), QImage::Format_ARGB32_Premultiplied);
            img.setDevicePixelRatio(2);
            img.fill(Qt::transparent);
            QPainter p(&img);
            p.translate(10, 4);
            view.paintAt(p, QSizeF(40, 24), start + age);
            p.end();
            for (int y = 0; y < img.height(); ++y)
                for (int x = 0; x < img.width(); ++x) {
                    const bool inside = x >= 20 && x < 100 && y >= 8 && y < 56;
                    if (!inside && qAlpha(img.pixel(x, y)))
                        QFAIL(qPrintable(
                            QStringLiteral("ring outside at age %1: %2,%3").arg(age).arg(x).arg(y)));
                }
        }
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
            p.drawEllipse(QPointF(40 - StatusStreamView::pingRingMax - 1, 12), 2.5, 2.5);
        }
        const QRect dot(int(28 * scale), int(6 * scale), int(10 * scale), int(12 * scale));
        int worst = 0;
        for (int y = dot.top(); y <= dot.bottom(); ++y)
            for (int x = dot.left(); x <= dot.right(); ++x) {
                const QRgb a = drawn.pixel(x, y), b = expected.pixel(x, y);
                worst = std::max({worst, std::abs(qRed(a) - qRed(b)), std::abs(qGreen(a) - qGreen(b)),
                                  std::abs(qBlue(a) - qBlue(b))});
            }
        QVERIFY2(worst <= 3, qPrintable(QString::number(worst)));
    }

    // `reserved` is the strip's own reservation in effect, which the window
    // manager has already taken out of the work area.
    void stripPlacement_data()
    {
        QTest::addColumn<QRect>("screen");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QRect>("reserved");
        QTest::addColumn<QRect>("strip");
        const QRect hd(0, 0, 1920, 1080);
        QTest::newRow("top bar 32: just under it, its height")
            << hd << QRect(0, 32, 1920, 1048) << QRect() << QRect(1920 - 196, 32, 196, 32);
        QTest::newRow("no bar") << QRect(0, 0, 1280, 800) << QRect(0, 0, 1280, 800) << QRect()
                                << QRect(1280 - 196, 0, 196, 24);
        QTest::newRow("bottom bar 44 only: usual height at the top")
            << QRect(0, 0, 1280, 800) << QRect(0, 0, 1280, 756) << QRect() << QRect(1280 - 196, 0, 196, 24);
        QTest::newRow("dock on the left, bar on top, second screen")
            << QRect(1920, 0, 2560, 1440) << QRect(1990, 27, 2490, 1413) << QRect()
            << QRect(4480 - 196, 27, 196, 27);
        QTest::newRow("a bar too thin for the pill")
            << QRect(0, 0, 800, 600) << QRect(0, 10, 800, 590) << QRect() << QRect(800 - 196, 10, 196, 24);
        QTest::newRow("own reservation under a 28 px bar: stays put")
            << hd << QRect(0, 56, 1920, 1024) << QRect(1724, 28, 196, 28) << QRect(1724, 28, 196, 28);
        QTest::newRow("own reservation, no bar: stays put")
            << hd << QRect(0, 24, 1920, 1056) << QRect(1724, 0, 196, 24) << QRect(1724, 0, 196, 24);
        QTest::newRow("late panel taller than the strip: moves under it")
            << hd << QRect(0, 30, 1920, 1050) << QRect(1724, 0, 196, 24) << QRect(1724, 30, 196, 30);
        QTest::newRow("panel gone: the work area no longer ends at the strip")
            << hd << QRect(0, 0, 1920, 1080) << QRect(1724, 28, 196, 28) << QRect(1724, 0, 196, 24);
        QTest::newRow("screen grew: follows the new right edge")
            << QRect(0, 0, 2560, 1440) << QRect(0, 24, 2560, 1416) << QRect(1724, 0, 196, 24)
            << QRect(2560 - 196, 0, 196, 24);
        QTest::newRow("reservation on another screen is not ours here")
            << QRect(1920, 0, 1280, 1024) << QRect(1920, 24, 1280, 1000) << QRect(1724, 0, 196, 24)
            << QRect(3200 - 196, 24, 196, 24);
    }
    void stripPlacement()
    {
        QFETCH(QRect, screen);
        QFETCH(QRect, available);
        QFETCH(QRect, reserved);
        QFETCH(QRect, strip);
        QCOMPARE(StatusItemController::stripGeometry(screen, available, reserved), strip);
    }

    void barSample_data()
    {
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QRect>("strip");
        QTest::addColumn<QRect>("sample");
        QTest::newRow("top bar above the strip")
            << QRect(0, 56, 1920, 1024) << QRect(1724, 28, 196, 28) << QRect(1724, 0, 196, 28);
        QTest::newRow("bottom bar only")
            << QRect(0, 24, 1920, 1012) << QRect(1724, 0, 196, 24) << QRect(1724, 1036, 196, 44);
        QTest::newRow("no bar") << QRect(0, 24, 1920, 1056) << QRect(1724, 0, 196, 24) << QRect();
    }
    void barSample()
    {
        QFETCH(QRect, available);
        QFETCH(QRect, strip);
        QFETCH(QRect, sample);
        QCOMPARE(StatusItemController::barSample(QRect(0, 0, 1920, 1080), available, strip), sample);
    }

    // _NET_WM_STRUT_PARTIAL: left, right, top, bottom, then each edge's span.
    void strut_data()
    {
        QTest::addColumn<QRect>("root");
        QTest::addColumn<QRect>("strip");
        QTest::addColumn<QList<uint>>("strut");
        const QList<uint> none(12, 0);
        QTest::newRow("under a 28 px bar") << QRect(0, 0, 1920, 1080) << QRect(1724, 28, 196, 28)
                                           << QList<uint>{0, 0, 56, 0, 0, 0, 0, 0, 1724, 1919, 0, 0};
        QTest::newRow("right screen of two") << QRect(0, 0, 3840, 1080) << QRect(3644, 0, 196, 24)
                                             << QList<uint>{0, 0, 24, 0, 0, 0, 0, 0, 3644, 3839, 0, 0};
        QTest::newRow("withdrawn") << QRect(0, 0, 1920, 1080) << QRect() << none;
        QTest::newRow("off the root") << QRect(0, 0, 1920, 1080) << QRect(4000, 0, 196, 24) << none;
    }
    void strut()
    {
        QFETCH(QRect, root);
        QFETCH(QRect, strip);
        QFETCH(QList<uint>, strut);
        const auto got = X11Desktop::topStrut(root, strip);
        QCOMPARE(QList<uint>(got.begin(), got.end()), strut);
    }

    void placedAsAsked()
    {
        const QRect asked(1724, 28, 196, 28);
        QVERIFY(StatusItemController::placedAsAsked(asked, asked.translated(2, 2)));
        QVERIFY(!StatusItemController::placedAsAsked(asked, QRect(0, 0, 196, 28)));     // top-left
        QVERIFY(!StatusItemController::placedAsAsked(asked, QRect(862, 526, 196, 28))); // centred
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

    // A StatusNotifierItem host reads the exported menu once, when the icon
    // appears: the menu is whole from the start and follows the store.
    void trayMenuIsWholeBeforeItIsShown()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        int toggles = 0;
        item.onToggle = [&] { ++toggles; };
        const auto texts = [&] {
            QStringList out;
            for (QAction *a : item.trayMenu()->actions())
                out << (a->isSeparator() ? QStringLiteral("--") : a->text());
            return out;
        };
        QCOMPARE(texts(), (QStringList{QStringLiteral("Connecting…"), QStringLiteral("--"),
                                       QStringLiteral("Open Larkpin"), QStringLiteral("Pause ticker"),
                                       QStringLiteral("--"), QStringLiteral("Quit Larkpin")}));
        QVERIFY(!item.trayMenu()->actions().first()->isEnabled());

        store->client().onLink(LinkState::live);
        store->ingest(QList<TwFill>{fill(1, 90000), fill(2, 60000)});
        QCOMPARE(texts().first(), QStringLiteral("2 WHALE"));
        item.trayMenu()->actions().at(3)->trigger();
        QVERIFY(store->preferences().paused);
        QCOMPARE(texts().at(3), QStringLiteral("Resume ticker"));
        item.trayMenu()->actions().at(2)->trigger();
        QCOMPARE(toggles, 1);
    }

    void trayOnlyHidesTheStripAndAnchorsAtTheCorner()
    {
        QCOMPARE(StatusItemController::cornerAnchor(QRect(0, 28, 1920, 1052)), QRect(1919, 28, 1, 1));
        auto store = quietStore();
        StatusItemController item(store.get());
        QVERIFY(item.stripShown());
        QCOMPARE(item.anchorRect().size(), item.strip()->size());
        Preferences prefs = store->preferences();
        prefs.trayOnly = true;
        store->updatePreferences(prefs);
        QVERIFY(!item.stripShown());
        QCOMPARE(item.anchorRect(),
                 StatusItemController::cornerAnchor(QGuiApplication::primaryScreen()->availableGeometry()));
        prefs.trayOnly = false;
        store->updatePreferences(prefs);
        QVERIFY(item.stripShown());
    }

    // The radar usually answers before the tape: nothing that arrives before
    // the backfill, nor the backfill itself, takes the ticker over.
    void warmUpHoldsUntilTheBackfill()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        TwRadar pile;
        pile.token = QStringLiteral("TokenPILE");
        pile.symbol = QStringLiteral("PILE");
        pile.buyers = 9;
        pile.firstTs = clock - 10;
        pile.usdIn = 400000;
        store->ingest(QList<TwRadar>{pile});
        QVERIFY(!store->signalList().isEmpty());
        QVERIFY(!item.view()->focal());
        store->ingest(QList<TwFill>{fill(1, 90000)}); // the backfill's trades
        QVERIFY(!item.view()->focal());
        store->client().onBackfill();
        QVERIFY(store->backfilled());
        QVERIFY(!item.view()->focal());
        store->ingest(QList<TwFill>{fill(2, 40000)}); // the first live trade
        QVERIFY(item.view()->focal());
        QCOMPARE(item.view()->focal()->usd, std::optional<double>(40000));
    }

    void aLargeTradeTakesTheStripOver()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        QCOMPARE(item.strip()->toolTip(), QStringLiteral("Larkpin"));
        store->ingest(QList<TwFill>{fill(1, 90000)}); // arrives with the first fetch
        store->client().onBackfill();
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
