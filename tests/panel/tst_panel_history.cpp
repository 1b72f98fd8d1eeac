// The History view over a real history file: the rail's button opens it, the
// list reads newest first a page at a time as it scrolls, the search field
// filters by token, handle, kind and size, mutes hide and watches mark, a
// kept row opens the same evidence as the live stream (and says plainly when
// the service cannot answer), and a return's summary shows as a banner that
// opens History at that time.

#include "History/HistoryStore.h"
#include "PanelTestSupport.h"

#include <QTemporaryDir>

namespace {
Signal keptWhale(int n, double at, const QString &symbol, const QString &handle, double usd)
{
    Signal s;
    s.id = QStringLiteral("tw-fill-%1").arg(n);
    s.kind = SignalKind::whale;
    s.line = Headline{u'$' + symbol, u'@' + handle + QStringLiteral(" aped"), QStringLiteral("$%1").arg(usd), std::nullopt};
    s.createdAt = at;
    s.expiresAt = at + 3600;
    s.asset = AssetRef{symbol, std::nullopt, false};
    s.wallet = WalletRef{QStringLiteral("W") + handle, u'@' + handle, std::nullopt};
    s.notionalUsd = usd;
    return s;
}

QStringList idsOf(const HistoryModel *m)
{
    QStringList out;
    for (int i = 0; i < m->rowCount(); ++i)
        out << m->data(m->index(i), HistoryModel::IdRole).toString();
    return out;
}
} // namespace

class PanelHistoryTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    PanelRig rig_;
    std::unique_ptr<HistoryStore> history_;
    int serial_ = 0;

    // 120 kept whales a minute apart, the newest at the clock: every third
    // in $DOGO, every fifth by @cat, sizes rising.
    void fill()
    {
        HistoryStore::Options o;
        o.path = dir_.filePath(QStringLiteral("h%1.sqlite").arg(++serial_));
        o.startDelayMs = 0;
        o.batchIntervalMs = 5;
        history_ = std::make_unique<HistoryStore>(o);
        QList<Signal> list;
        for (int i = 0; i < 120; ++i)
            list.prepend(keptWhale(i, rig_.clock.t - (119 - i) * 60.0, i % 3 == 0 ? QStringLiteral("DOGO") : QStringLiteral("WIF"),
                                   i % 5 == 0 ? QStringLiteral("cat") : QStringLiteral("dog"), 1000.0 * (i + 1)));
        history_->notePublished(list);
        history_->flush();
        QTRY_COMPARE_WITH_TIMEOUT(history_->rowsWritten(), qint64(120), 10000);
    }

    HistoryModel *model() const { return rig_.model()->history(); }
    void settled() const
    {
        QTRY_VERIFY_WITH_TIMEOUT(!model()->loading(), 10000);
    }

private Q_SLOTS:
    void init()
    {
        rig_.freshPanel();
        fill();
        rig_.panel->setHistory(history_.get());
        rig_.open();
    }
    void cleanup()
    {
        rig_.panel.reset();
        history_.reset();
        rig_.store.reset();
    }

    // The rail's button opens the view; it reads the first page, newest
    // first, and the next ones as the list reaches its end.
    void opensAndScrolls()
    {
        QQuickItem *button = rig_.on("historyButton");
        QVERIFY(button);
        click(button);
        QVERIFY(model()->shown());
        QVERIFY(rig_.waitFor("historyView"));
        settled();
        QCOMPARE(model()->rowCount(), HistoryModel::pageSize);
        QCOMPARE(idsOf(model()).first(), QStringLiteral("tw-fill-119"));
        QQuickItem *list = rig_.on("historyList");
        QVERIFY(list);
        for (int i = 0; i < 10 && model()->rowCount() < 120; ++i) {
            QMetaObject::invokeMethod(list, "positionViewAtEnd");
            settleFrame(rig_.window());
            settled();
        }
        QCOMPARE(model()->rowCount(), 120);
        QVERIFY(model()->atEnd());
        QCOMPARE(model()->message(), QStringLiteral("That is everything kept."));
        const QStringList ids = idsOf(model());
        QCOMPARE(ids.last(), QStringLiteral("tw-fill-0"));
        QCOMPARE(QSet<QString>(ids.begin(), ids.end()).size(), 120);
    }

    void search_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("newest");
        QTest::newRow("token") << QStringLiteral("$dogo") << 40 << QStringLiteral("tw-fill-117");
        QTest::newRow("handle") << QStringLiteral("@CAT") << 24 << QStringLiteral("tw-fill-115");
        QTest::newRow("size") << QStringLiteral("100k") << 21 << QStringLiteral("tw-fill-119");
        QTest::newRow("all three") << QStringLiteral("$DOGO @cat whale 50k") << 4 << QStringLiteral("tw-fill-105");
        QTest::newRow("nothing") << QStringLiteral("spike") << 0 << QString();
    }
    void search()
    {
        QFETCH(QString, text);
        QFETCH(int, count);
        QFETCH(QString, newest);
        model()->setShown(true);
        settled();
        QQuickItem *input = rig_.waitFor("historySearchInput");
        QVERIFY(input);
        input->forceActiveFocus();
        for (QChar c : text)
            QTest::keyClick(rig_.window(), c.toLatin1());
        QCOMPARE(model()->queryText(), text);
        settled();
        // Pages of 50: read on until the end.
        while (model()->canFetchMore({})) {
            model()->fetchMore({});
            settled();
        }
        QCOMPARE(model()->rowCount(), count);
        QCOMPARE(idsOf(model()).value(0), newest);
        if (count == 0)
            QCOMPARE(model()->message(), QStringLiteral("Nothing kept matches."));
    }

    // Muting hides at once; watching marks.
    void mutesAndWatches()
    {
        model()->setShown(true);
        settled();
        QVERIFY(rig_.model()->settings()->setListed(QStringLiteral("token"), QStringLiteral("DOGO"), true));
        QVERIFY(rig_.model()->settings()->setListed(QStringLiteral("watch"), QStringLiteral("cat"), true));
        settled();
        while (model()->canFetchMore({})) {
            model()->fetchMore({});
            settled();
        }
        QCOMPARE(model()->rowCount(), 80);
        for (int i = 0; i < model()->rowCount(); ++i) {
            const QModelIndex at = model()->index(i);
            QVERIFY(model()->data(at, HistoryModel::TickerRole).toString() != QStringLiteral("$DOGO"));
            QCOMPARE(model()->data(at, HistoryModel::WatchedRole).toBool(),
                     model()->data(at, HistoryModel::BodyRole).toString().startsWith(QStringLiteral("@cat")));
        }
        QTRY_VERIFY(!rig_.shown("historyWatchedMark").isEmpty());
    }

    // A kept row opens into the evidence the live stream shows; when the
    // service does not answer it says so in plain words instead of a retry.
    void rowOpensEvidence()
    {
        model()->setShown(true);
        settled();
        const QString id = idsOf(model()).first();
        settleFrame(rig_.window());
        QQuickItem *row = rig_.waitFor("historyRowTarget");
        QVERIFY(row);
        click(row);
        QCOMPARE(rig_.model()->openId(), id);
        QVERIFY(rig_.store->loadingDetail().contains(id) || rig_.store->failedDetail().contains(id));
        QTRY_VERIFY_WITH_TIMEOUT(rig_.store->failedDetail().contains(id), 10000);
        QCOMPARE(model()->evidenceNote(id),
                 QStringLiteral("The tape service no longer answers for this one; what was kept is shown above."));
        QQuickItem *note = rig_.waitFor("evidenceNote");
        QVERIFY(note);
        QCOMPARE(note->property("text").toString(), model()->evidenceNote(id));
        // The same menu as the live stream's rows.
        QVERIFY(!rig_.model()->menuEntries(id).isEmpty());
    }

    // A return's summary: the banner on the main view, a click on it opens
    // History at that time, and the range has its way out.
    void awayBanner()
    {
        const double now = rig_.clock.t;
        history_->setAway({now - 10 * 60, now - 5 * 60, QStringLiteral("While you were away: 6 whales, largest $115K on $WIF")});
        QQuickItem *banner = rig_.waitFor("awayBannerTarget");
        QVERIFY(banner);
        QCOMPARE(rig_.on("awayText")->property("text").toString(), history_->away().text);
        click(banner);
        QVERIFY(model()->shown());
        settled();
        QVERIFY(!model()->rangeText().isEmpty());
        // Ten minutes ago to five (plus the minute a backfill may lag), both
        // ends in: 7 rows.
        QCOMPARE(idsOf(model()).first(), QStringLiteral("tw-fill-115"));
        QCOMPARE(model()->rowCount(), 7);
        click(rig_.waitFor("historyClearRange"));
        settled();
        QCOMPARE(model()->rowCount(), HistoryModel::pageSize);

        model()->dismissAway();
        QVERIFY(history_->away().text.isEmpty());
        QVERIFY(rig_.shown("awayBannerTarget").isEmpty());
    }

    // The notification's action: History at that time, even on a panel
    // built after the request.
    void requestedRange()
    {
        rig_.panel->close();
        QTRY_VERIFY_WITH_TIMEOUT(!rig_.model(), 30000); // torn down after its fade
        const double now = rig_.clock.t;
        history_->requestShow(now - 2 * 60 - 1, now);
        rig_.panel->show(QRect(900, 0, 24, 24));
        QTRY_VERIFY(rig_.model() && rig_.model()->history()->shown());
        settled();
        QCOMPARE(idsOf(rig_.model()->history()), (QStringList{QStringLiteral("tw-fill-119"), QStringLiteral("tw-fill-118"), QStringLiteral("tw-fill-117")}));
    }
};

QTEST_MAIN(PanelHistoryTest)
#include "tst_panel_history.moc"
