// The panel's texts and small decisions, without any QML.

#include "Panel/PanelStyle.h"
#include "Panel/PanelText.h"
#include "Panel/SignalListModel.h"

#include <QTest>

#include <cmath>
#include <limits>

Q_DECLARE_METATYPE(LinkState)
Q_DECLARE_METATYPE(std::optional<double>)

namespace {
Signal whale(std::optional<double> winRate, double createdAt)
{
    Signal s;
    s.id = QStringLiteral("tw-fill-1");
    s.kind = SignalKind::whale;
    s.createdAt = createdAt;
    s.expiresAt = createdAt + 3600;
    if (winRate)
        s.wallet = WalletRef{QStringLiteral("addr"), QStringLiteral("@ansem"), winRate};
    return s;
}
} // namespace

class PanelTextTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void linkLabel_data()
    {
        QTest::addColumn<LinkState>("link");
        QTest::addColumn<std::optional<double>>("lastUpdate");
        QTest::addColumn<QString>("label");
        const double now = 1'700'000'000;
        QTest::newRow("connecting") << LinkState::connecting << std::optional<double>(now)
                                    << QStringLiteral("LINKING");
        QTest::newRow("live, no update yet")
            << LinkState::live << std::optional<double>() << QStringLiteral("LIVE");
        QTest::newRow("live, just now")
            << LinkState::live << std::optional<double>(now - 10) << QStringLiteral("LIVE \u00B7 now");
        QTest::newRow("live, two minutes")
            << LinkState::live << std::optional<double>(now - 150) << QStringLiteral("LIVE \u00B7 2m");
        QTest::newRow("polling") << LinkState::polling << std::optional<double>(now - 150)
                                 << QStringLiteral("POLLING");
        QTest::newRow("down") << LinkState::down << std::optional<double>() << QStringLiteral("OFFLINE");
    }
    void linkLabel()
    {
        QFETCH(LinkState, link);
        QFETCH(std::optional<double>, lastUpdate);
        QFETCH(QString, label);
        QCOMPARE(PanelText::linkLabel(link, lastUpdate, 1'700'000'000), label);
    }

    void linkDot()
    {
        QCOMPARE(PanelText::linkDotColour(LinkState::live), Theme::emerald);
        QCOMPARE(PanelText::linkDotColour(LinkState::connecting), Theme::amber);
        QCOMPARE(PanelText::linkDotColour(LinkState::polling), Theme::amber);
        QCOMPARE(PanelText::linkDotColour(LinkState::down), Theme::alert);
        QVERIFY(PanelText::linkDotAlive(LinkState::live));
        QVERIFY(!PanelText::linkDotAlive(LinkState::polling));
        QVERIFY(!PanelText::linkDotAlive(LinkState::connecting));
    }

    void emptyState_data()
    {
        QTest::addColumn<bool>("visibleEmpty");
        QTest::addColumn<LinkState>("link");
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<QString>("message");
        const QString antenna = QStringLiteral("antenna.radiowaves.left.and.right");
        const QString slash = QStringLiteral("antenna.radiowaves.left.and.right.slash");
        const QString wave = QStringLiteral("wave.3.right");
        const QString inStream = QStringLiteral("Nothing in this stream right now.");
        // Every visible signal already a hero: the first row wins, the symbol follows the link.
        QTest::newRow("heroes only, connecting") << false << LinkState::connecting << antenna << inStream;
        QTest::newRow("heroes only, down") << false << LinkState::down << slash << inStream;
        QTest::newRow("heroes only, live") << false << LinkState::live << wave << inStream;
        QTest::newRow("connecting") << true << LinkState::connecting << antenna
                                    << QStringLiteral("Connecting to the tape\u2026");
        QTest::newRow("down") << true << LinkState::down << slash
                              << QStringLiteral("Can't reach the tape right now.");
        QTest::newRow("live") << true << LinkState::live << wave
                              << QStringLiteral("Nothing on the wire right now.");
        QTest::newRow("polling") << true << LinkState::polling << wave
                                 << QStringLiteral("Nothing on the wire right now.");
    }
    void emptyState()
    {
        QFETCH(bool, visibleEmpty);
        QFETCH(LinkState, link);
        QFETCH(QString, symbol);
        QFETCH(QString, message);
        const auto state = PanelText::emptyState(visibleEmpty, link);
        QCOMPARE(state.symbol, symbol);
        QCOMPARE(state.message, message);
    }

    void counters_data()
    {
        QTest::addColumn<std::optional<double>>("latency");
        QTest::addColumn<std::optional<double>>("lastFrameAge");
        QTest::addColumn<LinkState>("link");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("empty snapshot")
            << std::optional<double>() << std::optional<double>() << LinkState::connecting
            << QStringList{QStringLiteral("0 shown"), QStringLiteral("0 held")};
        QTest::newRow("rtt first once a call completed")
            << std::optional<double>(41.6) << std::optional<double>() << LinkState::polling
            << QStringList{QStringLiteral("RTT 42ms"), QStringLiteral("0 shown"), QStringLiteral("0 held")};
        QTest::newRow("tape age only when live")
            << std::optional<double>(12.4) << std::optional<double>(3.2) << LinkState::live
            << QStringList{QStringLiteral("RTT 12ms"), QStringLiteral("TAPE 3s"), QStringLiteral("0 shown"),
                           QStringLiteral("0 held")};
        QTest::newRow("no tape while polling")
            << std::optional<double>() << std::optional<double>(3.2) << LinkState::polling
            << QStringList{QStringLiteral("0 shown"), QStringLiteral("0 held")};
        QTest::newRow("no tape while down")
            << std::optional<double>() << std::optional<double>(90.0) << LinkState::down
            << QStringList{QStringLiteral("0 shown"), QStringLiteral("0 held")};
        QTest::newRow("a frame newer than the panel clock is fresh")
            << std::optional<double>() << std::optional<double>(-1.4) << LinkState::live
            << QStringList{QStringLiteral("TAPE 0s"), QStringLiteral("0 shown"), QStringLiteral("0 held")};
        QTest::newRow("tape in minutes")
            << std::optional<double>() << std::optional<double>(90.0) << LinkState::live
            << QStringList{QStringLiteral("TAPE 2m"), QStringLiteral("0 shown"), QStringLiteral("0 held")};
    }
    void counters()
    {
        QFETCH(std::optional<double>, latency);
        QFETCH(std::optional<double>, lastFrameAge);
        QFETCH(LinkState, link);
        QFETCH(QStringList, expected);
        const double now = 1'700'000'000;
        Telemetry t;
        t.latencyMs = latency;
        if (lastFrameAge)
            t.lastFrameAt = now - *lastFrameAge;
        QCOMPARE(PanelText::counters(t, link, now), expected);
    }

    void countersShowVisibleThenHeld()
    {
        Telemetry t;
        t.visible = 7;
        t.held = 31;
        QCOMPARE(PanelText::counters(t, LinkState::live, 0),
                 (QStringList{QStringLiteral("7 shown"), QStringLiteral("31 held")}));
    }

    void countersSurviveAMadClock()
    {
        Telemetry t;
        t.lastFrameAt = -std::numeric_limits<double>::infinity();
        t.latencyMs = std::numeric_limits<double>::quiet_NaN();
        QCOMPARE(PanelText::counters(t, LinkState::live, 1e9),
                 (QStringList{QStringLiteral("0 shown"), QStringLiteral("0 held")}));
    }

    void flow_data()
    {
        QTest::addColumn<double>("buyShare");
        QTest::addColumn<QString>("buy");
        QTest::addColumn<QString>("sell");
        QTest::newRow("even") << 0.5 << QStringLiteral("BUY 50%") << QStringLiteral("SELL 50%");
        QTest::newRow("all buys") << 1.0 << QStringLiteral("BUY 100%") << QStringLiteral("SELL 0%");
        QTest::newRow("all sells") << 0.0 << QStringLiteral("BUY 0%") << QStringLiteral("SELL 100%");
        QTest::newRow("rounded") << 0.6234 << QStringLiteral("BUY 62%") << QStringLiteral("SELL 38%");
        QTest::newRow("rounded up") << 0.6271 << QStringLiteral("BUY 63%") << QStringLiteral("SELL 37%");
    }
    void flow()
    {
        QFETCH(double, buyShare);
        QFETCH(QString, buy);
        QFETCH(QString, sell);
        QCOMPARE(PanelText::buyText(buyShare), buy);
        QCOMPARE(PanelText::sellText(buyShare), sell);
    }

    void flowRate()
    {
        QCOMPARE(PanelText::flowRate(0), QStringLiteral("0.0/m"));
        QCOMPARE(PanelText::flowRate(12.46), QStringLiteral("12.5/m"));
        QCOMPARE(PanelText::flowRate(240), QStringLiteral("240.0/m"));
    }

    void chipLabels()
    {
        const auto &all = FeedFilter::allCases();
        QStringList labels;
        for (const FeedFilter &f : all)
            labels << PanelText::chipLabel(f);
        QCOMPARE(labels, (QStringList{QStringLiteral("ALL"), QStringLiteral("WHALE"), QStringLiteral("SPIKE"),
                                      QStringLiteral("STOCK")}));
    }

    void money_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("zero") << 0.0 << QStringLiteral("$0");
        QTest::newRow("500") << 500.0 << QStringLiteral("$500");
        QTest::newRow("999.99 truncates") << 999.99 << QStringLiteral("$999");
        QTest::newRow("1000") << 1000.0 << QStringLiteral("$1K");
        QTest::newRow("1999 truncates") << 1999.0 << QStringLiteral("$1K");
        QTest::newRow("25000") << 25000.0 << QStringLiteral("$25K");
        QTest::newRow("100000") << 100000.0 << QStringLiteral("$100K");
        QTest::newRow("1.5M truncates") << 1'500'000.0 << QStringLiteral("$1M");
        QTest::newRow("12M") << 12'000'000.0 << QStringLiteral("$12M");
    }
    void money()
    {
        QFETCH(double, value);
        QFETCH(QString, text);
        QCOMPARE(PanelText::money(value), text);
    }

    void settingsChipLabels()
    {
        QStringList minimum, focus;
        for (double v : PanelText::minimumSizeValues())
            minimum << PanelText::minimumSizeLabel(v);
        for (double v : PanelText::focusValues())
            focus << PanelText::focusLabel(v);
        QCOMPARE(minimum, (QStringList{QStringLiteral("Any"), QStringLiteral("$500"), QStringLiteral("$1K"),
                                       QStringLiteral("$5K"), QStringLiteral("$25K")}));
        QCOMPARE(focus, (QStringList{QStringLiteral("Off"), QStringLiteral("$10K"), QStringLiteral("$25K"),
                                     QStringLiteral("$100K")}));
    }

    void versionText()
    {
        QCOMPARE(PanelText::versionText(QStringLiteral("0.1.0")), QStringLiteral("Version 0.1.0"));
        QCOMPARE(PanelText::versionText(QString()), QStringLiteral("Version \u2014"));
    }

    void pauseButton()
    {
        QCOMPARE(PanelText::pauseSymbol(false), QStringLiteral("pause.fill"));
        QCOMPARE(PanelText::pauseHelp(false), QStringLiteral("Pause ticker"));
        QCOMPARE(PanelText::pauseSymbol(true), QStringLiteral("play.fill"));
        QCOMPARE(PanelText::pauseHelp(true), QStringLiteral("Resume ticker"));
    }

    void metaColumn_data()
    {
        QTest::addColumn<std::optional<double>>("winRate");
        QTest::addColumn<double>("ageSeconds");
        QTest::addColumn<QString>("meta");
        QTest::newRow("win rate wins over age")
            << std::optional<double>(0.62) << 600.0 << QStringLiteral("62% WR");
        QTest::newRow("win rate rounds") << std::optional<double>(0.675) << 600.0 << QStringLiteral("68% WR");
        QTest::newRow("no win rate: age") << std::optional<double>() << 600.0 << QStringLiteral("10m");
        QTest::newRow("fresh") << std::optional<double>() << 5.0 << QStringLiteral("now");
    }
    void metaColumn()
    {
        QFETCH(std::optional<double>, winRate);
        QFETCH(double, ageSeconds);
        QFETCH(QString, meta);
        const double now = 1'700'000'000;
        QCOMPARE(PanelText::metaText(whale(winRate, now - ageSeconds), now), meta);
    }

    // The hero's ring shows for every known win rate, a zero one included.
    void heroWinRing_data()
    {
        QTest::addColumn<std::optional<double>>("winRate");
        QTest::addColumn<bool>("shown");
        QTest::addColumn<QString>("text");
        QTest::newRow("known") << std::optional<double>(0.62) << true << QStringLiteral("62% WR");
        QTest::newRow("never won") << std::optional<double>(0.0) << true << QStringLiteral("0% WR");
        QTest::newRow("unknown") << std::optional<double>() << false << QString();
        QTest::newRow("not a number")
            << std::optional<double>(std::numeric_limits<double>::quiet_NaN()) << false << QString();
    }
    void heroWinRing()
    {
        QFETCH(std::optional<double>, winRate);
        QFETCH(bool, shown);
        QFETCH(QString, text);
        const QVariantMap hero = SignalListModel::describe(whale(winRate, 1000), 1000, nullptr);
        QCOMPARE(hero[QStringLiteral("hasWinRate")].toBool(), shown);
        QCOMPARE(hero[QStringLiteral("winRateText")].toString(), text);
    }

    // Hover changes and the panel's slide use the platform's ease-out, the
    // same curve the theme's glide describes; the QML control points agree.
    void easeOutIsTheGlideCurve()
    {
        const QEasingCurve curve = PanelStyle::easeOut();
        const QVariantList points = PanelStyle().glideCurve();
        QCOMPARE(points.size(), 6);
        QEasingCurve fromQml(QEasingCurve::BezierSpline);
        fromQml.addCubicBezierSegment(QPointF(points[0].toDouble(), points[1].toDouble()),
                                      QPointF(points[2].toDouble(), points[3].toDouble()),
                                      QPointF(points[4].toDouble(), points[5].toDouble()));
        for (int i = 0; i <= 20; ++i) {
            const double t = i / 20.0;
            const double expected = Motion::glide.valueAt(t * Motion::glide.response);
            QVERIFY2(std::abs(curve.valueForProgress(t) - expected) < 2e-3, qPrintable(QString::number(t)));
            QVERIFY(std::abs(fromQml.valueForProgress(t) - expected) < 2e-3);
        }
        // Not the cubic the toolkit offers by name: that one starts faster.
        QVERIFY(std::abs(QEasingCurve(QEasingCurve::OutCubic).valueForProgress(0.2) -
                         curve.valueForProgress(0.2)) > 0.05);
    }

    void pileInShowsItsAge()
    {
        Signal s = whale(std::nullopt, 1000);
        s.kind = SignalKind::spike;
        QCOMPARE(PanelText::metaText(s, 1000 + 3 * 3600), QStringLiteral("3h"));
    }

    void inspectorState_data()
    {
        QTest::addColumn<bool>("hasDetail");
        QTest::addColumn<bool>("blank");
        QTest::addColumn<bool>("failed");
        QTest::addColumn<QString>("state");
        QTest::newRow("nothing yet") << false << false << false << QStringLiteral("loading");
        QTest::newRow("failed") << false << false << true << QStringLiteral("failed");
        QTest::newRow("details") << true << false << false << QStringLiteral("details");
        QTest::newRow("blank details") << true << true << false << QStringLiteral("blank");
        // Evidence once loaded wins over any stale failure mark.
        QTest::newRow("details beat a failure") << true << false << true << QStringLiteral("details");
    }
    void inspectorState()
    {
        QFETCH(bool, hasDetail);
        QFETCH(bool, blank);
        QFETCH(bool, failed);
        QFETCH(QString, state);
        const QString id = QStringLiteral("tw-fill-9");
        QHash<QString, SignalDetail> details;
        QSet<QString> failures;
        if (hasDetail) {
            SignalDetail d;
            d.signalId = id;
            if (!blank) {
                TokenProfile token;
                token.symbol = QStringLiteral("WIF");
                d.token = token;
            }
            details.insert(id, d);
        }
        if (failed)
            failures.insert(id);
        QCOMPARE(PanelText::inspectorStateName(PanelText::inspectorState(id, details, failures)), state);
        // Another signal's evidence says nothing about this one.
        QCOMPARE(
            PanelText::inspectorStateName(PanelText::inspectorState(QStringLiteral("other"), details, {})),
            QStringLiteral("loading"));
    }

    void moduleTexts()
    {
        QCOMPARE(PanelText::sessionText(MarketSession::pre), QStringLiteral("Pre-market"));
        QCOMPARE(PanelText::sessionText(MarketSession::regular), QStringLiteral("Regular hours"));
        QCOMPARE(PanelText::sessionText(MarketSession::post), QStringLiteral("After hours"));
        QCOMPARE(PanelText::sideText(TradeSide::buy), QStringLiteral("BUY"));
        QCOMPARE(PanelText::sideText(TradeSide::sell), QStringLiteral("SELL"));
        QCOMPARE(PanelText::buysSellsText(812, 640), QStringLiteral("812 buys / 640 sells"));
        QCOMPARE(PanelText::buysSellsText(std::nullopt, 3), QStringLiteral("- buys / 3 sells"));
    }

    void openableUrls_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("opens");
        QTest::newRow("https") << QStringLiteral("https://dexscreener.com/solana/abc") << true;
        QTest::newRow("http") << QStringLiteral("http://127.0.0.1:47800/pair/1") << true;
        QTest::newRow("upper-case scheme") << QStringLiteral("HTTPS://example.org/x") << true;
        QTest::newRow("javascript") << QStringLiteral("javascript:alert(1)") << false;
        QTest::newRow("file") << QStringLiteral("file:///etc/passwd") << false;
        QTest::newRow("custom scheme") << QStringLiteral("larkpin://open") << false;
        QTest::newRow("no host") << QStringLiteral("https:///nohost") << false;
        QTest::newRow("relative") << QStringLiteral("/pair/1") << false;
        QTest::newRow("empty") << QString() << false;
    }
    void openableUrls()
    {
        QFETCH(QString, url);
        QFETCH(bool, opens);
        QCOMPARE(PanelText::isOpenableUrl(QUrl(url)), opens);
    }

    void sparkPoints_data()
    {
        QTest::addColumn<QList<double>>("values");
        QTest::addColumn<bool>("closed");
        QTest::addColumn<QList<QPointF>>("points");
        QTest::newRow("none") << QList<double>{} << false << QList<QPointF>{};
        QTest::newRow("one value") << QList<double>{3} << true << QList<QPointF>{};
        QTest::newRow("flat is a flat line")
            << QList<double>{2, 2, 2} << false << QList<QPointF>{{0, 10}, {50, 10}, {100, 10}};
        QTest::newRow("min bottom, max top")
            << QList<double>{0, 10, 5} << false << QList<QPointF>{{0, 10}, {50, 0}, {100, 5}};
        QTest::newRow("closed runs to the bottom")
            << QList<double>{0, 10} << true << QList<QPointF>{{0, 10}, {100, 0}, {100, 10}, {0, 10}, {0, 10}};
    }
    void sparkPoints()
    {
        QFETCH(QList<double>, values);
        QFETCH(bool, closed);
        QFETCH(QList<QPointF>, points);
        QCOMPARE(PanelText::sparkPoints(values, 100, 10, closed), points);
    }
};

QTEST_GUILESS_MAIN(PanelTextTest)
#include "tst_panel_text.moc"
