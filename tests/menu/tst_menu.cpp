// The ticker strip's controller and its drawing decisions, without a
// display: the status line and badges, the strip's place on screen, the two
// menus and when a trade takes the strip over.

#include "IsolatedSettings.h"

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StreamComposer.h"
#include "Menu/X11Desktop.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QScreen>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>

class MenuTest : public QObject {
    Q_OBJECT
    static StreamSegment segment(const char *ticker, std::optional<QString> figure = std::nullopt)
    {
        return StreamSegment{SignalKind::whale, Headline{QLatin1String(ticker), QStringLiteral("@kai aped"),
                                                         figure, QStringLiteral("▲")}};
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
    static QStringList texts(QMenu *menu)
    {
        QStringList out;
        for (QAction *a : menu->actions())
            out << (a->isSeparator() ? QStringLiteral("--") : a->text());
        return out;
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

    // `reserved` is the strip's own reservation in effect, which the window
    // manager has already taken out of the work area.

    // `reserved` is the strip's own reservation in effect, which the window
    // manager has already taken out of the work area.
    void stripPlacement_data()
    {
        QTest::addColumn<QRect>("screen");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QRect>("reserved");
        QTest::addColumn<QRect>("strip");
        const QRect hd(0, 0, 1920, 1080), small(0, 0, 1280, 800);
        QTest::newRow("top bar 32: just under it, its height")
            << hd << QRect(0, 32, 1920, 1048) << QRect() << QRect(1920 - 196, 32, 196, 32);
        QTest::newRow("no bar") << small << small << QRect() << QRect(1280 - 196, 0, 196, 24);
        QTest::newRow("bottom bar 44 only: usual height at the top")
            << small << QRect(0, 0, 1280, 756) << QRect() << QRect(1280 - 196, 0, 196, 24);
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
            << hd << hd << QRect(1724, 28, 196, 28) << QRect(1724, 0, 196, 24);
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
        const QRect hd(0, 0, 1920, 1080);
        QTest::newRow("under a 28 px bar")
            << hd << QRect(1724, 28, 196, 28) << QList<uint>{0, 0, 56, 0, 0, 0, 0, 0, 1724, 1919, 0, 0};
        QTest::newRow("right screen of two") << QRect(0, 0, 3840, 1080) << QRect(3644, 0, 196, 24)
                                             << QList<uint>{0, 0, 24, 0, 0, 0, 0, 0, 3644, 3839, 0, 0};
        QTest::newRow("withdrawn") << hd << QRect() << QList<uint>(12, 0);
        QTest::newRow("off the root") << hd << QRect(4000, 0, 196, 24) << QList<uint>(12, 0);
    }
    void strut()
    {
        QFETCH(QRect, root);
        QFETCH(QRect, strip);
        QFETCH(QList<uint>, strut);
        const auto got = X11Desktop::topStrut(root, strip);
        QCOMPARE(QList<uint>(got.begin(), got.end()), strut);
    }

    void placedAsAskedAndTheTrayMark()
    {
        const QRect asked(1724, 28, 196, 28);
        QVERIFY(StatusItemController::placedAsAsked(asked, asked.translated(2, 2)));
        QVERIFY(!StatusItemController::placedAsAsked(asked, QRect(0, 0, 196, 28)));     // top-left
        QVERIFY(!StatusItemController::placedAsAsked(asked, QRect(862, 526, 196, 28))); // centred
        // The tray mark is one colour, the one that stands out on the panel.
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

    // The strip's right-click menu is built when asked; the tray's exists
    // whole from the start (a StatusNotifierItem host reads it once, when the
    // icon appears) and follows the store. Both open the panel and pause, and
    // both keep the panel's dark look under a light widget palette (the menu
    // is drawn off screen and its pixels read; LARKPIN_MENU_PNG=<file> keeps it).
    void menusOpenAndPause()
    {
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
        QApplication::setPalette(QApplication::style()->standardPalette()); // Fusion's light one
        auto store = quietStore();
        StatusItemController item(store.get());
        int toggles = 0;
        item.onToggle = [&] { ++toggles; };
        QCOMPARE(item.strip()->width(), 196);
        QVERIFY(!item.strip()->focusPolicy());
        const QStringList whole{QStringLiteral("Connecting…"),  QStringLiteral("--"),
                                QStringLiteral("Open Larkpin"), QStringLiteral("Pause ticker"),
                                QStringLiteral("--"),           QStringLiteral("Quit Larkpin")};
        std::unique_ptr<QMenu> menu(item.buildMenu());
        QCOMPARE(texts(menu.get()), whole);
        QCOMPARE(texts(item.trayMenu()), whole);
        QVERIFY(!menu->actions().first()->isEnabled() && !item.trayMenu()->actions().first()->isEnabled());
        for (QMenu *m : {menu.get(), item.trayMenu()}) {
            m->popup(QPoint(0, 0));
            QVERIFY(QTest::qWaitForWindowExposed(m));
            const QImage shot = m->grab().toImage();
            m->close();
            if (qEnvironmentVariableIsSet("LARKPIN_MENU_PNG"))
                shot.save(qEnvironmentVariable("LARKPIN_MENU_PNG"));
            // Mostly dark, with light text on it, and the hovered row dark too.
            const auto luminance = [](QRgb c) {
                return (0.2126 * qRed(c) + 0.7152 * qGreen(c) + 0.0722 * qBlue(c)) / 255;
            };
            int dark = 0, light = 0;
            for (int y = 0; y < shot.height(); ++y)
                for (int x = 0; x < shot.width(); ++x) {
                    dark += luminance(shot.pixel(x, y)) < 0.15;
                    light += luminance(shot.pixel(x, y)) > 0.6;
                }
            QVERIFY2(dark > shot.width() * shot.height() * 0.7, qPrintable(QString::number(dark)));
            QVERIFY2(light > 20, qPrintable(QString::number(light)));
            QVERIFY(luminance(m->palette().color(QPalette::Highlight).rgb()) < 0.2);
        }
        menu->actions().at(2)->trigger();
        QCOMPARE(toggles, 1);
        menu->actions().at(3)->trigger();
        QVERIFY(store->preferences().paused && PreferencesStore::load().paused);
        QCOMPARE(texts(item.trayMenu()).at(3), QStringLiteral("Resume ticker"));
        menu.reset(item.buildMenu());
        QCOMPARE(menu->actions().at(3)->text(), QStringLiteral("Resume ticker"));
        item.trayMenu()->actions().at(3)->trigger();
        QVERIFY(!store->preferences().paused && !PreferencesStore::load().paused);
        item.trayMenu()->actions().at(2)->trigger();
        QCOMPARE(toggles, 2);

        store->client().onLink(LinkState::live);
        store->ingest(QList<TwFill>{fill(1, 90000), fill(2, 60000)});
        QCOMPARE(texts(item.trayMenu()).first(), QStringLiteral("2 WHALE"));
        item.handleClick(Qt::RightButton, QPoint(10, 10));
        QCOMPARE(toggles, 2); // a right click only opens the menu
        item.handleClick(Qt::LeftButton, QPoint(10, 10));
        QCOMPARE(toggles, 3);
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
    // the backfill, nor the backfill itself, takes the ticker over. Then a
    // trade of the focus size does, until focal alerts are switched off.
    void takeoverWaitsForTheBackfill()
    {
        auto store = quietStore();
        StatusItemController item(store.get());
        QCOMPARE(item.strip()->toolTip(), QStringLiteral("Larkpin"));
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
        store->ingest(QList<TwFill>{fill(2, 5000)}); // under the 25 000 threshold
        QVERIFY(!item.view()->focal());
        store->ingest(QList<TwFill>{fill(3, 40000)}); // the first live trade of size
        QVERIFY(item.view()->focal());
        QCOMPARE(item.view()->focal()->usd, std::optional<double>(40000));
        QVERIFY(item.view()->focal()->segment.line.ticker.contains(QStringLiteral("WIF3")));
        QVERIFY(item.strip()->toolTip().startsWith(QStringLiteral("WHALE  ")));

        Preferences prefs = store->preferences();
        prefs.focalUsd = 0;
        store->updatePreferences(prefs);
        QVERIFY(!item.view()->focal()); // ends at once
    }
};

QTEST_MAIN(MenuTest)
#include "tst_menu.moc"
