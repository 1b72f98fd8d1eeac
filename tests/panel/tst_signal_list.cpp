// The stream's list model as views see it: every change announced in the
// shape Qt's views require (checked by QAbstractItemModelTester), and the
// count that QML binds to announced whenever it moves, and only then.

#include "IsolatedSettings.h"
#include "Panel/SignalListModel.h"
#include "PanelTestSupport.h"
#include "Table.h"

#include <QAbstractItemModelTester>

namespace {
constexpr double T0 = 1'700'000'000;

// Letters stand for signals; a later letter is a newer one.
QList<Signal> listOf(const QString &letters, const QString &body = QStringLiteral("added"))
{
    QList<Signal> out;
    for (const QString &l : letters.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const double at = T0 + l.at(0).unicode();
        out << Signal{.id = QStringLiteral("tw-fill-") + l,
                      .kind = SignalKind::whale,
                      .line = {.ticker = QStringLiteral("$") + l.toUpper(), .body = body},
                      .createdAt = at,
                      .expiresAt = at + 3600};
    }
    return out;
}

QString idsOf(const SignalListModel &model)
{
    QStringList out;
    for (int row = 0; row < model.rowCount(); ++row)
        out << model.index(row).data(SignalListModel::IdRole).toString().mid(8);
    return out.join(QLatin1Char(' '));
}

TwFill whale(qint64 id, double ts, const char *handle, const char *symbol, double usd)
{
    return whaleFill(id, ts, usd, QLatin1String(handle), QLatin1String(symbol));
}

// clang-format off
// A new order cannot be told as moves: it resets.
struct Transition { const char *name, *before, *after; int resets; };
const Transition transitionRows[] = {
    {.name = "from empty", .before = "", .after = "c b a", .resets = 0},
    {.name = "a newer one on top", .before = "b a", .after = "c b a", .resets = 0},
    {.name = "one into the middle", .before = "c a", .after = "c b a", .resets = 0},
    {.name = "one leaves", .before = "c b a", .after = "c a", .resets = 0},
    {.name = "all replaced, same count", .before = "b a", .after = "d c", .resets = 0},
    {.name = "same rows", .before = "b a", .after = "b a", .resets = 0},
    {.name = "a new order", .before = "a b c", .after = "c b a", .resets = 1},
    {.name = "to empty", .before = "c b a", .after = "", .resets = 0},
};
// clang-format on
} // namespace

class SignalListTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { isolateSettings(); }

    void transitions_data() { rows(transitionRows); }
    void transitions()
    {
        const auto &[name, beforeText, afterText, resets] = row(transitionRows);
        const QString before = QLatin1String(beforeText), after = QLatin1String(afterText);
        SignalListModel model(nullptr);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        model.setSignals(listOf(before), T0);
        QSignalSpy count(&model, &SignalListModel::countChanged);
        QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
        model.setSignals(listOf(after, QStringLiteral("dumped")), T0 + 60);
        QCOMPARE(idsOf(model), after);
        QCOMPARE(model.count(), model.rowCount());
        QCOMPARE(count.count(), listOf(before).size() == listOf(after).size() ? 0 : 1);
        QCOMPARE(reset.count(), resets);
        // Rows that stayed carry the new text too.
        for (int row = 0; row < model.rowCount(); ++row)
            QVERIFY(model.index(row).data(SignalListModel::BodyRole).toString() == QStringLiteral("dumped"));
    }

    // Driven by the store as the panel drives it: inserts, merges, filters,
    // mutes and expiry, with the count checked after each.
    void followsTheStore()
    {
        double now = T0;
        FeedStore store(new TarnwickClient(QStringLiteral("http://127.0.0.1:9/api"),
                                           QStringLiteral("ws://127.0.0.1:9/ws"), TarnwickTiming{},
                                           [&] { return now; }),
                        [&] { return now; });
        store.setPreferences(Preferences::defaults());
        SignalListModel model(&store);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);
        const auto follow = [&] { model.setSignals(store.visibleSignals(), now); };
        connect(&store, &FeedStore::signalsChanged, &model, follow);
        connect(&store, &FeedStore::filterChanged, &model, follow);
        QSignalSpy count(&model, &SignalListModel::countChanged);
        int expected = 0;
        const auto step = [&](int rows) { // before a change that leaves `rows`
            if (rows != model.count())
                ++expected;
        };

        store.ingest({whale(1, T0, "kai", "WIF", 5000), whale(2, T0 + 1, "mo", "BONK", 6000)});
        QCOMPARE(model.count(), 2);
        QCOMPARE(count.count(), 1);
        now = T0 + 10;
        store.ingest({whale(3, T0 + 10, "kai", "WIF", 9000)}); // a larger repeat replaces the first
        QCOMPARE(idsOf(model), QStringLiteral("3 2"));
        QCOMPARE(count.count(), 1);
        store.ingest({whale(4, T0 + 11, "lu", "PEPE", 7000), whale(5, T0 + 12, "jo", "WIF", 8000)});
        QCOMPARE(idsOf(model), QStringLiteral("5 4 3 2"));
        QCOMPARE(count.count(), 2);

        expected = int(count.count());
        step(0);
        store.setFilter(FeedFilter::of(SignalKind::spike));
        QCOMPARE(model.count(), 0);
        step(4);
        store.setFilter(FeedFilter::all());
        QCOMPARE(model.count(), 4);
        Preferences muted = Preferences::defaults();
        muted.mutedTokens = {QStringLiteral("WIF")};
        step(2);
        QVERIFY(store.updatePreferences(muted));
        QCOMPARE(idsOf(model), QStringLiteral("4 2"));
        now = T0 + 1 + 3600; // the oldest shown expires
        step(1);
        store.rebuild();
        QCOMPARE(idsOf(model), QStringLiteral("4"));
        QCOMPARE(count.count(), expected);
    }
};

QTEST_GUILESS_MAIN(SignalListTest)
#include "tst_signal_list.moc"
