// The ticker strip's controller and its drawing decisions, without a
// display: the status line and badges, the strip's place on screen, the two
// menus and when a trade takes the strip over.

#include "IsolatedSettings.h"
#include "Table.h"

#include "Feed/FeedStore.h"
#include "Feed/TarnwickClient.h"
#include "Menu/BarShade.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StreamComposer.h"
#include "Menu/StripPlacement.h"
#include "Menu/StripWindow.h"
#include "Menu/X11Desktop.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QScreen>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>

using namespace Qt::StringLiterals;

// clang-format off
struct StatusLineRow { const char *name; LinkState link; int whales, stocks; const char *out; };
const StatusLineRow statusLines[] = {
    {.name = "connecting", .link = LinkState::connecting, .whales = 2, .stocks = 1, .out = "Connecting…"},
    {.name = "live, nothing yet", .link = LinkState::live, .whales = 0, .stocks = 0,
     .out = "Waiting for signals"},
    {.name = "live with counts", .link = LinkState::live, .whales = 2, .stocks = 1,
     .out = "2 WHALE · 1 STOCK"},
    {.name = "polling, nothing", .link = LinkState::polling, .whales = 0, .stocks = 0,
     .out = "Reconnecting…"},
    {.name = "polling with counts", .link = LinkState::polling, .whales = 0, .stocks = 3, .out = "3 STOCK"},
    {.name = "down hides counts", .link = LinkState::down, .whales = 2, .stocks = 1, .out = "Feed offline"},
};

// runs -1: left as given.
struct Truncation { const char *name, *ticker, *tag; double width; int runs; };
const Truncation truncations[] = {
    {.name = "fits", .ticker = "$WIF", .tag = "▲", .width = 137, .runs = -1},
    {.name = "cut in the ticker", .ticker = "$SUPERLONGTICKERNAMEHERE", .tag = "▲", .width = 60, .runs = 1},
    {.name = "cut in the tag", .ticker = "$WIF",
     .tag = "BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY BUY ", .width = 100, .runs = 2},
    {.name = "no room at all", .ticker = "$WIF", .tag = "▲", .width = 0, .runs = 0},
};

// `reserved` is the strip's own reservation in effect, which the window
// manager has already taken out of the work area.
const QRect hd(0, 0, 1920, 1080), small(0, 0, 1280, 800);
struct Placement { const char *name; QRect screen, available, reserved, strip; };
const Placement placements[] = {
    {.name = "top bar 32: just under it, its height", .screen = hd, .available = {0, 32, 1920, 1048},
     .reserved = {}, .strip = {1920 - 196, 32, 196, 32}},
    {.name = "no bar", .screen = small, .available = small, .reserved = {},
     .strip = {1280 - 196, 0, 196, 24}},
    {.name = "bottom bar 44 only: usual height at the top", .screen = small, .available = {0, 0, 1280, 756},
     .reserved = {}, .strip = {1280 - 196, 0, 196, 24}},
    {.name = "dock on the left, bar on top, second screen", .screen = {1920, 0, 2560, 1440},
     .available = {1990, 27, 2490, 1413}, .reserved = {}, .strip = {4480 - 196, 27, 196, 27}},
    {.name = "a bar too thin for the pill", .screen = {0, 0, 800, 600}, .available = {0, 10, 800, 590},
     .reserved = {}, .strip = {800 - 196, 10, 196, 24}},
    {.name = "own reservation under a 28 px bar: stays put", .screen = hd, .available = {0, 56, 1920, 1024},
     .reserved = {1724, 28, 196, 28}, .strip = {1724, 28, 196, 28}},
    {.name = "own reservation, no bar: stays put", .screen = hd, .available = {0, 24, 1920, 1056},
     .reserved = {1724, 0, 196, 24}, .strip = {1724, 0, 196, 24}},
    {.name = "late panel taller than the strip: moves under it", .screen = hd,
     .available = {0, 30, 1920, 1050}, .reserved = {1724, 0, 196, 24}, .strip = {1724, 30, 196, 30}},
    {.name = "panel gone: the work area no longer ends at the strip", .screen = hd, .available = hd,
     .reserved = {1724, 28, 196, 28}, .strip = {1724, 0, 196, 24}},
    {.name = "screen grew: follows the new right edge", .screen = {0, 0, 2560, 1440},
     .available = {0, 24, 2560, 1416}, .reserved = {1724, 0, 196, 24}, .strip = {2560 - 196, 0, 196, 24}},
    {.name = "reservation on another screen is not ours here", .screen = {1920, 0, 1280, 1024},
     .available = {1920, 24, 1280, 1000}, .reserved = {1724, 0, 196, 24}, .strip = {3200 - 196, 24, 196, 24}},
};

// The same from what X says, in device pixels: monitors (the primary first),
// the work area, the other clients' top struts (their columns, down to their
// bottom row), the strip's own reservation and the scale.
struct OnMonitors { const char *name; QList<QRect> monitors; QRect workArea; QList<QRect> bars; QRect reserved;
                    double scale; QRect strip; };
const QRect left(0, 0, 1280, 800), right(1280, 0, 1280, 800);
const OnMonitors onMonitors[] = {
    {.name = "one monitor, a 30 px bar", .monitors = {hd}, .workArea = {0, 30, 1920, 1050},
     .bars = {{0, 0, 1920, 30}}, .reserved = {}, .scale = 1, .strip = {1724, 30, 196, 30}},
    {.name = "scale 2: device pixels, the default height doubled under a thin bar", .monitors = {hd},
     .workArea = {0, 30, 1920, 1050}, .bars = {{0, 0, 1920, 30}}, .reserved = {}, .scale = 2,
     .strip = {1920 - 392, 30, 392, 48}},
    {.name = "scale 1.25", .monitors = {hd}, .workArea = {0, 30, 1920, 1050}, .bars = {{0, 0, 1920, 30}},
     .reserved = {}, .scale = 1.25, .strip = {1920 - 245, 30, 245, 30}},
    {.name = "scale 1.5, a 40 px bar", .monitors = {hd}, .workArea = {0, 40, 1920, 1040},
     .bars = {{0, 0, 1920, 40}}, .reserved = {}, .scale = 1.5, .strip = {1920 - 294, 40, 294, 40}},
    {.name = "two monitors, the bar on the primary only: the work area says nothing",
     .monitors = {left, right}, .workArea = {0, 0, 2560, 800}, .bars = {{0, 0, 1280, 30}}, .reserved = {},
     .scale = 1, .strip = {1280 - 196, 30, 196, 30}},
    {.name = "two monitors, the bar on the second one", .monitors = {left, right},
     .workArea = {0, 0, 2560, 800}, .bars = {{1280, 0, 1280, 28}}, .reserved = {}, .scale = 1,
     .strip = {2560 - 196, 28, 196, 28}},
    {.name = "bars on both: the primary's", .monitors = {right, left}, .workArea = {0, 32, 2560, 768},
     .bars = {{0, 0, 1280, 32}, {1280, 0, 1280, 32}}, .reserved = {}, .scale = 1,
     .strip = {2560 - 196, 32, 196, 32}},
    {.name = "a monitor below another: its bar starts at its top", .monitors = {{0, 800, 1280, 800}, left},
     .workArea = {}, .bars = {{0, 0, 1280, 826}}, .reserved = {}, .scale = 1,
     .strip = {1280 - 196, 826, 196, 26}},
    {.name = "no bar anywhere: the primary's work area, own reservation left out", .monitors = {right, left},
     .workArea = {0, 24, 2560, 776}, .bars = {}, .reserved = {2364, 0, 196, 24}, .scale = 1,
     .strip = {2560 - 196, 0, 196, 24}},
    {.name = "a bottom strut is no top bar", .monitors = {hd}, .workArea = {0, 0, 1920, 1040}, .bars = {},
     .reserved = {}, .scale = 1, .strip = {1724, 0, 196, 24}},
    {.name = "no monitors", .monitors = {}, .workArea = {}, .bars = {}, .reserved = {}, .scale = 1,
     .strip = {}},
};

struct BarSample { const char *name; QRect available, strip, sample; };
const BarSample barSamples[] = {
    {.name = "top bar above the strip", .available = {0, 56, 1920, 1024}, .strip = {1724, 28, 196, 28},
     .sample = {1724, 0, 196, 28}},
    {.name = "bottom bar only", .available = {0, 24, 1920, 1012}, .strip = {1724, 0, 196, 24},
     .sample = {1724, 1036, 196, 44}},
    {.name = "no bar", .available = {0, 24, 1920, 1056}, .strip = {1724, 0, 196, 24}, .sample = {}},
};

// _NET_WM_STRUT_PARTIAL: left, right, top, bottom, then each edge's span.
struct Strut { const char *name; QRect root, strip; QList<uint> strut; };
const Strut struts[] = {
    {.name = "under a 28 px bar", .root = hd, .strip = {1724, 28, 196, 28},
     .strut = {0, 0, 56, 0, 0, 0, 0, 0, 1724, 1919, 0, 0}},
    {.name = "right screen of two", .root = {0, 0, 3840, 1080}, .strip = {3644, 0, 196, 24},
     .strut = {0, 0, 24, 0, 0, 0, 0, 0, 3644, 3839, 0, 0}},
    {.name = "withdrawn", .root = hd, .strip = {}, .strut = QList<uint>(12, 0)},
    {.name = "off the root", .root = hd, .strip = {4000, 0, 196, 24}, .strut = QList<uint>(12, 0)},
};
// clang-format on

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
        const QString n = QString::number(id);
        return TwFill{.id = id, .ts = clock - 2, .side = QStringLiteral("buy"), .usd = usd, .price = 2.5,
                      .handle = u"kai"_s + n, .wallet = u"Wallet"_s + n, .token = u"TokenWIF"_s + n,
                      .symbol = u"WIF"_s + n};
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

    void statusLine_data() { rows(statusLines); }
    void statusLine()
    {
        const StatusLineRow &r = row(statusLines);
        QCOMPARE(StatusItemController::statusLine(r.link, r.whales, 0, r.stocks), QString::fromUtf8(r.out));
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

    void truncation_data() { rows(truncations); }
    void truncation()
    {
        const auto [name, ticker, tag, width, runs] = row(truncations);
        StreamSegment s = segment(ticker);
        s.line.tag = QString::fromUtf8(tag);
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
    void stripPlacement_data() { rows(placements); }
    void stripPlacement()
    {
        const Placement &r = row(placements);
        QCOMPARE(StripPlacement::stripGeometry(r.screen, r.available, r.reserved), r.strip);
    }

    void stripOnMonitors_data() { rows(onMonitors); }
    void stripOnMonitors()
    {
        const OnMonitors &r = row(onMonitors);
        QCOMPARE(StripPlacement::stripOnMonitors(r.monitors, r.workArea, r.bars, r.reserved, r.scale),
                 r.strip);
    }

    void barSample_data() { rows(barSamples); }
    void barSample()
    {
        const BarSample &r = row(barSamples);
        QCOMPARE(BarShade::sampleRegion(hd, r.available, r.strip), r.sample);
    }

    // _NET_WM_STRUT_PARTIAL: left, right, top, bottom, then each edge's span.
    void strut_data() { rows(struts); }
    void strut()
    {
        const Strut &r = row(struts);
        const auto got = X11Desktop::topStrut(r.root, r.strip);
        QCOMPARE(QList<uint>(got.begin(), got.end()), r.strut);
    }

    void placedAsAskedAndTheTrayMark()
    {
        const QRect asked(1724, 28, 196, 28);
        QVERIFY(StripPlacement::placedAsAsked(asked, asked.translated(2, 2)));
        QVERIFY(!StripPlacement::placedAsAsked(asked, QRect(0, 0, 196, 28)));     // top-left
        QVERIFY(!StripPlacement::placedAsAsked(asked, QRect(862, 526, 196, 28))); // centred
        // The tray mark is one colour, the one that stands out on the panel.
        for (bool dark : {true, false}) {
            const QImage mark = StripWindow::trayMark(dark, 32);
            QSet<QRgb> opaque;
            for (int y = 0; y < 32; ++y)
                for (int x = 0; x < 32; ++x)
                    if (qAlpha(mark.pixel(x, y)) == 255)
                        opaque.insert(mark.pixel(x, y));
            QCOMPARE(opaque.size(), 1);
            QCOMPARE(BarShade::isDark(QColor(*opaque.begin())), !dark);
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
        QCOMPARE(StripPlacement::cornerAnchor(QRect(0, 28, 1920, 1052)), QRect(1919, 28, 1, 1));
        auto store = quietStore();
        StatusItemController item(store.get());
        QVERIFY(item.stripShown());
        QCOMPARE(item.anchorRect().size(), item.strip()->size());
        Preferences prefs = store->preferences();
        prefs.trayOnly = true;
        store->updatePreferences(prefs);
        QVERIFY(!item.stripShown());
        QCOMPARE(item.anchorRect(),
                 StripPlacement::cornerAnchor(QGuiApplication::primaryScreen()->availableGeometry()));
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
        store->ingest(QList<TwRadar>{{.token = u"TokenPILE"_s, .symbol = u"PILE"_s, .buyers = 9,
                                      .firstTs = clock - 10, .usdIn = 400000}});
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
