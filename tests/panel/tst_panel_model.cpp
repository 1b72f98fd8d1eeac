// The panel's texts and its model over a real store, without a window.

#include "Panel/PanelModel.h"
#include "Panel/PanelStyle.h"
#include "Panel/PanelText.h"
#include "PanelTestSupport.h"
#include "Table.h"

#include <QTimer>

#include <limits>

namespace {
constexpr double now = 1'700'000'000;
const double notANumber = std::numeric_limits<double>::quiet_NaN();
using Maybe = std::optional<double>;

Signal whale(Maybe winRate, double createdAt, SignalKind kind = SignalKind::whale)
{
    Signal s{.id = QStringLiteral("tw-fill-1"),
             .kind = kind,
             .createdAt = createdAt,
             .expiresAt = createdAt + 3600};
    if (winRate)
        s.wallet = WalletRef{QStringLiteral("addr"), QStringLiteral("@ansem"), winRate};
    return s;
}

QString emptyText(bool visibleEmpty, LinkState link)
{
    const PanelText::EmptyState state = PanelText::emptyState(visibleEmpty, link);
    return state.symbol + QStringLiteral(" / ") + state.message;
}

// Where an elided headline splits into its ticker run and its body run, as
// "ticker|body"; "~" stands for the ellipsis.
QString runs(const char *shown, const char *ticker)
{
    const auto t = [](const char *s) { return QString::fromUtf8(s).replace(u'~', QChar(0x2026)); };
    const PanelText::HeadlineRuns r = PanelText::headlineRuns(t(shown), t(ticker));
    return QString(r.ticker + QLatin1Char('|') + r.body).replace(QChar(0x2026), u'~');
}

// Links come from the wire: only web addresses reach the desktop.
QString opening(const char *url)
{
    PanelModel model(nullptr);
    int calls = 0;
    model.openUrlHook = [&](const QUrl &) { return ++calls > 0; };
    const bool opened = model.openLink(QString::fromUtf8(url));
    return (opened ? QStringLiteral("opens ") : QStringLiteral("refused ")) + QString::number(calls);
}

QString counters(Maybe latency, Maybe lastFrameAge, LinkState link)
{
    Telemetry t;
    t.visible = 7;
    t.held = 31;
    t.latencyMs = latency;
    if (lastFrameAge)
        t.lastFrameAt = now - *lastFrameAge;
    return PanelText::counters(t, link, now).join(QLatin1Char('|'));
}

// clang-format off
struct Ring { const char *name; Maybe winRate; bool hasRing; double ring; const char *ringText, *meta; };
const Ring rings[] = {
    {.name = "known", .winRate = 0.62, .hasRing = true, .ring = 0.62, .ringText = "62% WR", .meta = "62% WR"},
    {.name = "never won: an empty ring", .winRate = 0.0, .hasRing = true, .ring = 0.0, .ringText = "0% WR",
     .meta = "0% WR"},
    {.name = "over one: the ring stops full", .winRate = 1.4, .hasRing = true, .ring = 1.0,
     .ringText = "140% WR", .meta = "140% WR"},
    {.name = "unknown: no ring, the age", .winRate = {}, .hasRing = false, .ring = 0.0, .ringText = "",
     .meta = "10m"},
    {.name = "broken: no ring, the age", .winRate = notANumber, .hasRing = false, .ring = 0.0, .ringText = "",
     .meta = "10m"},
};
// clang-format on
} // namespace

class PanelModelTest : public QObject, private PanelRig {
    Q_OBJECT

    // Whales of rising size, one minute apart.
    void feed(int n) { store->ingest(whaleRun(n, clock.t, 60)); }

private Q_SLOTS:
    void init() { freshStore(); }
    void cleanup() { dropAll(); }

    // clang-format off
    void texts_data()
    {
        QTest::addColumn<QString>("actual");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const QString &actual, const char *expected) {
            QTest::newRow(name) << actual << QString::fromUtf8(expected);
        };
        using LS = LinkState;
        using namespace PanelText;
        row("link: connecting", linkLabel(LS::connecting, now, now), "LINKING");
        row("link: live, no update yet", linkLabel(LS::live, {}, now), "LIVE");
        row("link: live, two minutes", linkLabel(LS::live, now - 150, now), "LIVE \u00B7 2m");
        row("link: polling", linkLabel(LS::polling, now - 150, now), "POLLING");
        row("link: down", linkLabel(LS::down, {}, now), "OFFLINE");
        // The symbol follows the link; with every visible signal already a
        // hero, the stream's own message wins.
        row("empty: heroes only, offline", emptyText(false, LS::down),
            "antenna.radiowaves.left.and.right.slash / Nothing in this stream right now.");
        row("empty: connecting", emptyText(true, LS::connecting),
            "antenna.radiowaves.left.and.right / Connecting to the tape\u2026");
        row("empty: offline", emptyText(true, LS::down),
            "antenna.radiowaves.left.and.right.slash / Can't reach the tape right now.");
        row("empty: live", emptyText(true, LS::live), "wave.3.right / Nothing on the wire right now.");
        row("counters: nothing measured", counters({}, {}, LS::connecting), "7 shown|31 held");
        row("counters: rtt once a call completed", counters(41.6, {}, LS::polling), "RTT 42ms|7 shown|31 held");
        row("counters: tape age only when live", counters(12.4, 3.2, LS::live), "RTT 12ms|TAPE 3s|7 shown|31 held");
        row("counters: no tape while down", counters({}, 90, LS::down), "7 shown|31 held");
        row("counters: a frame newer than the clock is fresh", counters({}, -1.4, LS::live), "TAPE 0s|7 shown|31 held");
        row("counters: a mad clock shows no numbers", counters(notANumber, qInf(), LS::live), "7 shown|31 held");
        row("flow: buy rounded", buyText(0.6271), "BUY 63%");
        row("flow: sell is the rest", sellText(0.6271), "SELL 37%");
        row("flow rate", flowRate(12.46), "12.5/m");
        row("money: truncates", money(999.99), "$999");
        row("money: thousands truncate", money(1999), "$1K");
        row("money: millions truncate", money(1'500'000), "$1M");
        row("no minimum", minimumSizeLabel(0), "Any");
        row("no focus", focusLabel(0), "Off");
        row("version", versionText(QStringLiteral("0.1.0")), "Version 0.1.0");
        row("unknown version", versionText(QStringLiteral(" ")), "Version \u2014");
        row("buys unknown", buysSellsText(std::nullopt, 3), "- buys / 3 sells");
        row("meta: an old pile-in", metaText(whale({}, now - 3 * 3600, SignalKind::spike), now), "3h");
        for (const char *url : {"https://dexscreener.com/solana/abc", "http://127.0.0.1:47800/pair/1",
                                "HTTPS://example.org/x"})
            row(url, opening(url), "opens 1");
        for (const char *url : {"javascript:alert(1)", "file:///etc/passwd", "https:///nohost", "/pair/1", "(empty)"})
            row(url, opening(url[0] == '(' ? "" : url), "refused 0");
        row("runs: whole", runs("$WIF bought 12K", "$WIF"), "$WIF| bought 12K");
        row("runs: cut in the body", runs("$WIF bo~2K", "$WIF"), "$WIF| bo~2K");
        row("runs: cut in the ticker", runs("$LONG~ever", "$LONGTICKER"), "$LONG~|ever");
        row("runs: cut right after the ticker", runs("$WIF~12K", "$WIF"), "$WIF|~12K");
        row("runs: cut at the ticker's first letter", runs("~12K", "$WIF"), "~|12K");
        // An ellipsis the wire put in the ticker is not the cut.
        row("runs: ticker's own ellipsis, whole", runs("A~B sold", "A~B"), "A~B| sold");
        row("runs: ticker's own ellipsis, cut after it", runs("A~BC~ld", "A~BCDE"), "A~BC~|ld");
        row("runs: nothing shown", runs("", "$WIF"), "|");
        row("runs: only the ellipsis", runs("~", "$WIF"), "~|");
        row("runs: no ticker", runs("sold", ""), "|sold");
    }
    // clang-format on
    void texts()
    {
        QFETCH(QString, actual);
        QFETCH(QString, expected);
        QCOMPARE(actual, expected);
    }

    // Every visible signal shows exactly once: the hero, two minis, then the stream.
    void heroesAndStreamSplitTheVisibleSignals_data()
    {
        QTest::addColumn<int>("visible");
        QTest::addColumn<int>("streamRows");
        QTest::newRow("heroes only") << 3 << 0;
        QTest::newRow("heroes and stream") << 5 << 2;
    }
    void heroesAndStreamSplitTheVisibleSignals()
    {
        QFETCH(int, visible);
        QFETCH(int, streamRows);
        feed(visible);
        PanelModel model(store.get());
        QVERIFY(model.hasHero());
        QCOMPARE(model.minis()->count(), 2);
        QCOMPARE(model.stream()->count(), streamRows);
        QStringList all = model.stream()->ids() + model.minis()->ids();
        all << model.hero().signalId;
        QCOMPARE(all.removeDuplicates(), 0);
        QCOMPARE(all.size(), visible);
        QCOMPARE(model.emptyMessage(), QStringLiteral("Nothing in this stream right now."));
    }

    void bloomsOnlyForANewTopSignal()
    {
        feed(5);
        PanelModel model(store.get());
        QVERIFY2(!model.bloom(), "the top signal present at opening is not news");
        store->ingest({whaleFill(200, clock.t, 1500, QStringLiteral("small"), QStringLiteral("SML"))});
        QVERIFY2(!model.bloom(), "a small newcomer does not take the top");

        QSignalSpy bloom(&model, &PanelModel::bloomChanged);
        store->ingest({whaleFill(201, clock.t, 900000, QStringLiteral("big"), QStringLiteral("BIG"))});
        QCOMPARE(model.hero().signalId, QStringLiteral("tw-fill-201"));
        QVERIFY(model.bloom());
        QVERIFY(QTest::qWaitFor([&] { return !model.bloom(); }, 30000));
        QCOMPARE(bloom.count(), 2);
    }

    // The open main hero pushed aside by a bigger newcomer folds away: it
    // does not come back as a detail card nobody asked for. An opened mini
    // still shows there.
    void pushedAsideHeroFoldsAway()
    {
        feed(5);
        PanelModel model(store.get());
        const QString top = model.hero().signalId;
        model.toggle(top);
        QCOMPARE(model.openId(), top);
        store->ingest({whaleFill(201, clock.t, 900000, QStringLiteral("big"), QStringLiteral("BIG"))});
        QCOMPARE(model.hero().signalId, QStringLiteral("tw-fill-201"));
        QVERIFY(model.minis()->ids().contains(top));
        QVERIFY(model.openId().isEmpty());
        QVERIFY(!model.detailCard().valid);
        model.toggle(top); // asked for: the card shows
        QCOMPARE(model.detailCard().signalId, top);
    }

    // Escape steps back one level at a time: settings, detail card, open row.
    void escapeStepsBackOneLevel()
    {
        feed(6);
        PanelModel model(store.get());
        const QString row = model.stream()->ids().first();
        const QString mini = model.minis()->ids().first();
        model.toggle(row);
        model.showDetailCard(mini);
        model.setShowSettings(true);
        QVERIFY(model.stepBack());
        QVERIFY(!model.showSettings());
        QVERIFY(model.detailCard().valid);
        QVERIFY(model.stepBack());
        QVERIFY(!model.detailCard().valid);
        QCOMPARE(model.openId(), row);
        QVERIFY(model.stepBack());
        QVERIFY(model.openId().isEmpty());
        QVERIFY2(!model.stepBack(), "nothing left: the panel closes");
    }

    // The menu's choice applies to the signal it was opened on, even when
    // that signal has left every list meanwhile.
    void menuRemembersItsSignal()
    {
        feed(6);
        PanelModel model(store.get());
        const QString row = model.stream()->ids().first();
        QSignalSpy asked(&model, &PanelModel::menuRequested);
        model.requestMenu(row, 10, 20);
        QCOMPARE(asked.count(), 1);
        const QStringList titles = fieldOf(model.menuEntries(row), "title");
        Preferences p = store->preferences();
        p.streams[SignalKind::whale] = false; // every whale leaves the lists
        QVERIFY(store->updatePreferences(p));
        QVERIFY(!model.stream()->ids().contains(row));
        QCOMPARE(fieldOf(model.menuEntries(row), "title"), titles);
        QVERIFY(model.runMenuAction(row, QStringLiteral("muteToken")));
        QCOMPARE(store->preferences().mutedTokens.size(), 1);
        model.requestMenu(QStringLiteral("tw-fill-nothing"), 0, 0);
        QCOMPARE(asked.count(), 1); // no menu for a signal it never saw
    }

    void clockAdvancesAges()
    {
        store->ingest({whaleFill(1, clock.t - 30, 5000)});
        PanelModel model(store.get());
        QCOMPARE(model.hero().age, QStringLiteral("now"));
        QVERIFY(model.clock()->isActive());
        clock.t += 150;
        model.tick(clock.t);
        QCOMPARE(model.hero().age, QStringLiteral("3m"));
    }

    // A row and a card of the same signal read one value per role: the win
    // ring's three fields and every other role agree between data() and the
    // card's field of the same name, the kind as the enum the views compare.
    void rolesAgreeWithTheCard_data() { rows(rings); }
    void rolesAgreeWithTheCard()
    {
        const auto &[name, winRate, hasRing, ring, ringText, meta] = row(rings);
        const Signal s = whale(winRate, now - 600);
        SignalListModel list(nullptr);
        list.setSignals({s}, now);
        const QModelIndex row = list.index(0);
        const SignalCard card = SignalCard::of(s, now, nullptr);
        QVERIFY(card.valid);
        const QMetaObject &meta_ = SignalCard::staticMetaObject;
        const QHash<int, QByteArray> roles = list.roleNames();
        QCOMPARE(meta_.propertyCount(), roles.size() + 1); // and "valid"
        for (auto it = roles.cbegin(); it != roles.cend(); ++it) {
            const int at = meta_.indexOfProperty(it.value().constData());
            QVERIFY2(at >= 0, it.value().constData());
            QVERIFY2(list.data(row, it.key()) == meta_.property(at).readOnGadget(&card), it.value().constData());
        }
        QCOMPARE(card.hasWinRate, hasRing);
        QCOMPARE(card.winRate, ring);
        QCOMPARE(card.winRateText, QLatin1String(ringText));
        QCOMPARE(card.meta, QLatin1String(meta));
    }

    // Each kind reaches the views as its own enum value and back to its wire
    // name; an unknown wire name is no kind, drawn in the quiet ink.
    void kindsReachTheViewsAsEnums_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("wire");
        QTest::addColumn<int>("expected");
        QTest::newRow("whale") << int(SignalKind::whale) << QStringLiteral("whale") << int(PanelKind::Whale);
        QTest::newRow("spike") << int(SignalKind::spike) << QStringLiteral("spike") << int(PanelKind::Spike);
        QTest::newRow("stocks") << int(SignalKind::stocks) << QStringLiteral("stocks") << int(PanelKind::Stocks);
    }
    void kindsReachTheViewsAsEnums()
    {
        QFETCH(int, kind);
        QFETCH(QString, wire);
        QFETCH(int, expected);
        const Signal s = whale({}, now - 60, SignalKind(kind));
        SignalListModel list(nullptr);
        list.setSignals({s}, now);
        QCOMPARE(list.data(list.index(0), SignalListModel::KindRole).toInt(), expected);
        QCOMPARE(int(SignalCard::of(s, now, nullptr).kind), expected);
        const PanelStyle hud(2.0);
        QCOMPARE(hud.kindOf(wire), expected);
        QCOMPARE(hud.kindWire(expected), wire);
        QCOMPARE(hud.kindColour(expected), PanelStyle::toQColor(Theme::kindColour(SignalKind(kind))));
        QCOMPARE(hud.kindOf(QStringLiteral("krill")), int(PanelKind::NoKind));
        QCOMPARE(hud.kindColour(PanelKind::NoKind), PanelStyle::toQColor(Theme::ink3));
        QVERIFY(hud.kindLabel(PanelKind::NoKind).isEmpty());
    }
};

QTEST_MAIN(PanelModelTest)
#include "tst_panel_model.moc"
