// The ticker strip's decisions and geometry, without a display.

#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Menu/StreamComposer.h"

#include <QTest>

class MenuTest : public QObject {
    Q_OBJECT
    static StreamSegment segment(const char *ticker, std::optional<QString> figure = std::nullopt)
    {
        return StreamSegment{SignalKind::whale,
                             Headline{QLatin1String(ticker), QStringLiteral("@kai aped"), figure, QStringLiteral("▲")}};
    }

private Q_SLOTS:
    void statusLine_data()
    {
        QTest::addColumn<LinkState>("link");
        QTest::addColumn<int>("whales");
        QTest::addColumn<int>("stocks");
        QTest::addColumn<QString>("expected");
        QTest::newRow("connecting") << LinkState::connecting << 2 << 1 << QStringLiteral("Connecting…");
        QTest::newRow("live, nothing yet") << LinkState::live << 0 << 0 << QStringLiteral("Waiting for signals");
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

    void pauseTitles()
    {
        QCOMPARE(StatusItemController::pauseTitle(false), QStringLiteral("Pause ticker"));
        QCOMPARE(StatusItemController::pauseTitle(true), QStringLiteral("Resume ticker"));
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

    void leadingWidth()
    {
        QCOMPARE(StreamComposer::leadingWidth(0), 137.0);
        QCOMPARE(StreamComposer::leadingWidth(40), 137.0 - 48);
        QCOMPARE(StreamComposer::leadingWidth(200), 0.0);
    }

    void figureOverridesTheHeadline()
    {
        const QImage own = StreamComposer::badge(segment("$WIF", QStringLiteral("$1.0K")), std::nullopt, 24, 2);
        const QImage over = StreamComposer::badge(segment("$WIF", QStringLiteral("$1.0K")), QStringLiteral("$0.40M"), 24, 2);
        QVERIFY(own != over);
        QCOMPARE(over, StreamComposer::badge(segment("$WIF"), QStringLiteral("$0.40M"), 24, 2));
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

    void pingsShareOnePumpAndPausedPingsDoNothing()
    {
        StatusStreamView view;
        view.update({segment("$A")}, true);
        view.ping();
        QVERIFY(!view.hasPumpTimer());
        view.update({segment("$A")}, false);
        view.ping();
        view.ping();
        QVERIFY(view.hasPumpTimer());
        QVERIFY(QTest::qWaitFor([&] { return !view.hasPumpTimer(); }, 3000)); // it stops by itself
    }
};

QTEST_MAIN(MenuTest)
#include "tst_menu.moc"
