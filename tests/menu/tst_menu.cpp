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
#include <QFontMetricsF>
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

    static QString textOf(const StyledText &text)
    {
        QString s;
        for (const StyledRun &r : text)
            s += r.text;
        return s;
    }
    static Focal focalOf(const char *ticker, double usd) { return Focal{segment(ticker), usd}; }

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

    void badgeGeometry_data()
    {
        QTest::addColumn<double>("height");
        QTest::addColumn<bool>("image");
        QTest::newRow("16.9 is too low") << 16.9 << false;
        QTest::newRow("17 fits exactly") << 17.0 << true;
        QTest::newRow("bar height") << 24.0 << true;
    }
    void badgeGeometry()
    {
        QFETCH(double, height);
        QFETCH(bool, image);
        const QImage img = StreamComposer::badge(segment("$WIF"), std::nullopt, height, 2);
        QCOMPARE(!img.isNull(), image);
        if (image) {
            QCOMPARE(img.width(), 310);
            // The pill's left edge is drawn at the vertical middle.
            QVERIFY(qAlpha(img.pixel(1, img.height() / 2)) > 0);
        }
    }

    void figureOverridesTheHeadline()
    {
        const QImage own =
            StreamComposer::badge(segment("$WIF", QStringLiteral("$1.0K")), std::nullopt, 24, 2);
        const QImage over =
            StreamComposer::badge(segment("$WIF", QStringLiteral("$1.0K")), QStringLiteral("$0.40M"), 24, 2);
        QVERIFY(own != over);
        QCOMPARE(over, StreamComposer::badge(segment("$WIF"), QStringLiteral("$0.40M"), 24, 2));
    }

    void leadingAndTrailingStyles()
    {
        const QColor ink(204, 255, 0);
        const StyledText lead = StreamComposer::leading(segment("$WIF"), ink);
        QCOMPARE(lead.size(), 2);
        QCOMPARE(lead[0].text, QStringLiteral("$WIF"));
        QCOMPARE(lead[0].font.weight(), QFont::Bold);
        QCOMPARE(lead[0].colour, ink);
        QCOMPARE(lead[1].text, QStringLiteral(" ▲"));
        QVERIFY(lead[1].font.styleHint() == QFont::Monospace);
        QCOMPARE(lead[1].colour.alphaF(), 0.72f);
        // The body never reaches the menu bar; without a tag there is one run.
        StreamSegment bare = segment("$WIF");
        bare.line.tag.reset();
        QCOMPARE(textOf(StreamComposer::leading(bare, ink)), QStringLiteral("$WIF"));

        QVERIFY(!StreamComposer::trailing(std::nullopt, ink));
        const auto figure = StreamComposer::trailing(QStringLiteral("$1.1K"), ink);
        QVERIFY(figure && figure->size() == 1 && figure->first().tabularDigits);
        QCOMPARE(StreamComposer::ink(), QColor(6, 7, 10));
    }

    void figuresHaveMonospacedDigits()
    {
        const QColor ink(Qt::white);
        const double ones = StreamComposer::width(*StreamComposer::trailing(QStringLiteral("$111.1K"), ink));
        const double eights =
            StreamComposer::width(*StreamComposer::trailing(QStringLiteral("$888.8K"), ink));
        QCOMPARE(ones, eights);
    }

    void truncation_data()
    {
        QTest::addColumn<QString>("ticker");
        QTest::addColumn<double>("width");
        QTest::addColumn<QString>("expected"); // "*" = as given
        QTest::newRow("fits") << QStringLiteral("$WIF") << 137.0 << QStringLiteral("*");
        QTest::newRow("cut in the ticker")
            << QStringLiteral("$SUPERLONGTICKERNAMEHERE") << 60.0 << QStringLiteral("…");
        QTest::newRow("no room at all") << QStringLiteral("$WIF") << 0.0 << QString();
    }
    void truncation()
    {
        QFETCH(QString, ticker);
        QFETCH(double, width);
        QFETCH(QString, expected);
        const StyledText full = StreamComposer::leading(segment(qPrintable(ticker)), Qt::white);
        const StyledText cut = StreamComposer::truncatedTail(full, width);
        QVERIFY(StreamComposer::width(cut) <= width);
        if (expected == QStringLiteral("*")) {
            QCOMPARE(cut, full);
        } else if (expected.isEmpty()) {
            QVERIFY(cut.isEmpty());
        } else {
            // The head survives in its own style, the tail ends in an ellipsis.
            QCOMPARE(cut.size(), 1);
            QVERIFY(cut[0].text.endsWith(expected));
            QVERIFY(ticker.startsWith(cut[0].text.chopped(1)));
            QCOMPARE(cut[0].font, full[0].font);
        }
    }

    void tagKeepsItsStyleWhenCut()
    {
        StreamSegment s = segment("$WIF");
        s.line.tag = QStringLiteral("BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY");
        const StyledText full = StreamComposer::leading(s, Qt::white);
        const StyledText cut = StreamComposer::truncatedTail(full, 100);
        QCOMPARE(cut.size(), 2);
        QCOMPARE(cut[0], full[0]);
        QCOMPARE(cut[1].font, full[1].font);
        QCOMPARE(cut[1].colour, full[1].colour);
        QVERIFY(cut[1].text.endsWith(QStringLiteral("…")));
    }

    void figureIsRightAlignedNineFromTheEdge()
    {
        const QImage img = StreamComposer::badge(segment("$W", QStringLiteral("$1.0K")), std::nullopt, 17, 4);
        // Rightmost opaque accent pixel of the text row (the outline is inset
        // 0.5 and 1 wide, so stop before it).
        int rightmost = -1;
        for (int x = 0; x < img.width() - 8; ++x)
            for (int y = 16; y < img.height() - 16; ++y)
                if (qGreen(img.pixel(x, y)) > 200)
                    rightmost = std::max(rightmost, x);
        const double fromEdge = 155 - (rightmost + 1) / 4.0;
        QVERIFY2(fromEdge >= 9 && fromEdge < 11, qPrintable(QString::number(fromEdge)));
    }

    void rail_data()
    {
        QTest::addColumn<QList<RailTick>>("ticks");
        QTest::addColumn<QList<int>>("heights"); // in device pixels at scale 2, one per tick
        QTest::newRow("empty") << QList<RailTick>{} << QList<int>{};
        QTest::newRow("level 0 is 1.5 high") << QList<RailTick>{{0, true}} << QList<int>{3};
        QTest::newRow("levels") << QList<RailTick>{{0.5, false}, {1, true}} << QList<int>{8, 16};
    }
    void rail()
    {
        QFETCH(QList<RailTick>, ticks);
        QFETCH(QList<int>, heights);
        QImage img(QSize(100, 40), QImage::Format_ARGB32_Premultiplied);
        img.setDevicePixelRatio(2);
        img.fill(Qt::transparent);
        {
            QPainter p(&img);
            StreamComposer::drawRail(p, ticks, QRectF(0, 2, 50, 8), 3);
        }
        QList<int> measured;
        for (int x = 0; x < img.width(); ++x) {
            int h = 0;
            for (int y = 0; y < img.height(); ++y)
                h += qAlpha(img.pixel(x, y)) > 0;
            // Bars are 2 wide from 3, 10, 17...: sample the middle of each.
            if ((x - 6) % 14 == 1 && h > 0)
                measured << h;
        }
        QCOMPARE(measured, heights);
    }

    void flipTimerOnlyWithTwoRowsAndNotPaused()
    {
        StatusStreamView view;
        view.update({}, false);
        QVERIFY(!view.hasFlipTimer());
        view.update({segment("$A")}, false);
        QVERIFY(!view.hasFlipTimer());
        view.update({segment("$A"), segment("$B")}, false);
        QVERIFY(view.hasFlipTimer());
        view.update({segment("$A"), segment("$B")}, true);
        QVERIFY(!view.hasFlipTimer());
    }

    void updateKeepsTheShownSegment()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B"), segment("$C")}, false);
        view.flip();
        QCOMPARE(view.index(), 1);
        view.update({segment("$Z"), segment("$A"), segment("$B")}, false);
        QCOMPARE(view.rows().value(view.index()), segment("$B"));
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

    void flipAdvancesIndexAndRail()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        view.flip();
        QVERIFY(view.isFlipping());
        view.flip(); // skipped while the first one runs
        QCOMPARE(view.index(), 1);
        QCOMPARE(view.railPhase(), 19.0);
        QVERIFY(QTest::qWaitFor([&] { return !view.isFlipping(); }, 1000));
        view.flip();
        QCOMPARE(view.index(), 0);
        QCOMPARE(view.railPhase(), 38.0);
    }

    void takeoverDimsAndBlursTheStream()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        view.snap(focalOf("$BIG", 48200));
        QVERIFY(!view.hasFlipTimer());
        QVERIFY(view.blurAttached());
        QVERIFY(view.hasPumpTimer());
        const double later = view.now() + 1;
        QCOMPARE(view.laneOpacityAt(later), StatusStreamView::dimmedOpacity);
        QCOMPARE(view.blurRadiusAt(later), StatusStreamView::focalBlurRadius);
        view.update({segment("$C"), segment("$A"), segment("$B")}, false);
        QVERIFY(!view.hasFlipTimer()); // frozen on the focal trade

        view.snap(std::nullopt);
        QVERIFY(!view.focal());
        QVERIFY(view.hasFlipTimer());
        QCOMPARE(view.laneOpacityAt(view.now() + 1), 1.0);
        QVERIFY(view.blurAttached()); // until the fade is over
        QVERIFY(QTest::qWaitFor([&] { return !view.blurAttached(); }, 2000));
    }

    // The figure rolls on its own 60 Hz ticks, for its 0.55 s only; a release
    // or a focal trade without a size stops it at once.
    void rollTimerRunsOnlyWhileTheFigureRolls()
    {
        StatusStreamView view;
        view.snap(focalOf("$BIG", 48200));
        QVERIFY(view.hasRollTimer());
        QVERIFY(QTest::qWaitFor([&] { return !view.hasRollTimer(); }, 2000));

        view.snap(focalOf("$NEXT", 99000));
        QVERIFY(view.hasRollTimer());
        view.snap(std::nullopt);
        QVERIFY(!view.hasRollTimer());

        StreamSegment spike{SignalKind::spike, Headline{QStringLiteral("$NEW"), QStringLiteral("5 wallets"),
                                                        std::nullopt, std::nullopt}};
        view.snap(Focal{spike, std::nullopt});
        QVERIFY(!view.hasRollTimer()); // nothing to count up
    }

    void aNewTakeoverSoonAfterAReleaseKeepsTheBlur()
    {
        StatusStreamView view;
        view.snap(focalOf("$A", 1e5));
        view.snap(std::nullopt);
        QTest::qWait(100);
        view.snap(focalOf("$B", 1e5));
        QTest::qWait(500);
        QVERIFY(view.blurAttached());
    }

    void snapToTheSameFocalChangesNothing()
    {
        StatusStreamView view;
        view.snap(std::nullopt); // nothing to release
        QVERIFY(!view.blurAttached());
        view.snap(focalOf("$A", 1e5));
        QVERIFY(QTest::qWaitFor([&] { return !view.hasPumpTimer(); }, 3000));
        view.snap(focalOf("$A", 1e5));
        QVERIFY(!view.hasPumpTimer());
    }

    // The rail is drawn once and reused between frames: a new tick or a flip
    // must still show up in the next frame, and nothing else may change it.
    void reusedRailFollowsTicksAndFlips()
    {
        StatusStreamView view;
        view.update({segment("$A"), segment("$B")}, false);
        const auto frame = [&](double t) {
            QImage img(QSize(340, 48), QImage::Format_ARGB32_Premultiplied);
            img.setDevicePixelRatio(2);
            img.fill(Qt::black);
            QPainter p(&img);
            view.paintAt(p, QSizeF(170, 24), t);
            p.end();
            return img.copy(0, 40, 300, 8); // the rail's band at the foot
        };
        view.setRail({RailTick{1.0, true}, RailTick{0.1, false}});
        const double t = view.now() + 5;
        const QImage first = frame(t);
        QCOMPARE(frame(t), first);
        view.setRail({RailTick{0.1, true}, RailTick{1.0, false}});
        const QImage ticked = frame(t);
        QVERIFY(ticked != first);
        view.flip();
        QVERIFY(QTest::qWaitFor([&] { return !view.isFlipping(); }, 1000));
        QVERIFY(frame(view.now() + 5) != ticked); // the rail moved on by a step
    }

    void takeoverFrameShowsTheFocalBadge()
    {
        StatusStreamView view;
        view.update({segment("$A", QStringLiteral("$1.0K"))}, false);
        StreamSegment big{SignalKind::stocks,
                          Headline{QStringLiteral("NVDA"), QString(), std::nullopt, std::nullopt}};
        view.snap(Focal{big, 1.25e6});
        QImage img(QSize(340, 48), QImage::Format_ARGB32_Premultiplied);
        img.setDevicePixelRatio(2);
        img.fill(Qt::black);
        {
            QPainter p(&img);
            view.paintAt(p, QSizeF(170, 24), view.now() + 5);
        }
        // The pill's outline at the left middle takes the stocks accent, not the whale's.
        const QColor edge = img.pixelColor(1, 24);
        QVERIFY2(edge.green() > edge.red() + 40, qPrintable(edge.name()));
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
        QVERIFY(StatusItemController::isDarkColour(QColor(30, 31, 36)));
        QVERIFY(!StatusItemController::isDarkColour(QColor(236, 236, 238)));
    }

    void controllerMenuAndPause()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        int toggles = 0;
        item.onToggle = [&] { ++toggles; };
        QCOMPARE(item.strip()->size(), QSize(196, item.strip()->height()));
        QVERIFY(!item.strip()->focusPolicy());

        std::unique_ptr<QMenu> menu(item.buildMenu());
        QStringList titles;
        for (QAction *a : menu->actions())
            titles << (a->isSeparator() ? QStringLiteral("--") : a->text());
        QCOMPARE(titles, (QStringList{QStringLiteral("Connecting…"), QStringLiteral("--"),
                                      QStringLiteral("Open Larkpin"), QStringLiteral("Pause ticker"),
                                      QStringLiteral("--"), QStringLiteral("Quit Larkpin")}));
        QVERIFY(!menu->actions().first()->isEnabled());
        QCOMPARE(menu->actions().last()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_Q));

        menu->actions().at(2)->trigger();
        QCOMPARE(toggles, 1);
        menu->actions().at(3)->trigger();
        QVERIFY(store->preferences().paused);
        QVERIFY(PreferencesStore::load().paused);
        menu.reset(item.buildMenu());
        QCOMPARE(menu->actions().at(3)->text(), QStringLiteral("Resume ticker"));
        menu->actions().at(3)->trigger();
        QVERIFY(!PreferencesStore::load().paused);

        item.handleClick(Qt::RightButton, QPoint(10, 10));
        QCOMPARE(toggles, 1); // a right click only opens the menu
        item.handleClick(Qt::LeftButton, QPoint(10, 10));
        QCOMPARE(toggles, 2);
        QCOMPARE(StatusItemController::tooltip(*store), QStringLiteral("Larkpin"));
        QCOMPARE(item.strip()->toolTip(), QStringLiteral("Larkpin"));
    }

    void aLargeTradeTakesTheStripOver()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
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
