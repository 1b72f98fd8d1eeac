// Which trade takes the ticker over, and for how long.

#include "Menu/FocalDirector.h"

#include <QTest>

// One store publication (the full list, the focus threshold and the watched
// handles in force), or the controller holding or releasing the warm-up.
struct Step {
    QList<Signal> list;
    double threshold = 25000;
    QSet<QString> watched;
    enum { Consider, Hold, Release } op = Consider;
};
using Steps = QList<Step>;
Q_DECLARE_METATYPE(Steps)

class FocalTest : public QObject {
    Q_OBJECT
    double clock = 1'700'000'000;
    QStringList changes; // ids handed to onChange, "-" for a release

    std::unique_ptr<FocalDirector> director(int holdMs = FocalDirector::holdMs)
    {
        changes.clear();
        auto d = std::make_unique<FocalDirector>([this] { return clock; }, holdMs);
        d->onChange = [this](const std::optional<Signal> &s) {
            changes << (s ? s->id : QStringLiteral("-"));
        };
        return d;
    }
    Signal trade(const char *id, std::optional<double> usd, int priority = 70, double age = 5,
                 SignalKind kind = SignalKind::whale) const
    {
        Signal s;
        s.id = QLatin1String(id);
        s.kind = kind;
        s.priority = priority;
        s.createdAt = clock - age;
        s.notionalUsd = usd;
        s.line.ticker = QLatin1String(id);
        return s;
    }
    static QStringList seq(const char *ids)
    {
        return QString::fromLatin1(ids).split(u' ', Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    // Rows after an empty first list start from a warmed-up director.
    void choice_data()
    {
        QTest::addColumn<Steps>("steps");
        QTest::addColumn<QStringList>("expected");
        const Signal big = trade("big", 5e6), a = trade("a", 1e6), b = trade("b", 1e7);
        const auto one = [](const Signal &s) { return Steps{{}, {{s}}}; };
        QTest::newRow("first list only warms up")
            << Steps{{{big}}, {{trade("next", 30000), big}}} << seq("next");
        QTest::newRow("off before warm-up does not warm up") << Steps{{{big}, 0}, {{big, a}}} << seq("");
        QTest::newRow("a returning id is fresh again") << Steps{{{a}}, {}, {{a}}} << seq("a");
        QTest::newRow("size at the threshold") << one(trade("x", 25000)) << seq("x");
        QTest::newRow("size just under") << one(trade("x", 24999.99)) << seq("");
        QTest::newRow("no size, high priority") << one(trade("x", std::nullopt, 99)) << seq("");
        QTest::newRow("spike 60 without size")
            << one(trade("x", std::nullopt, 60, 5, SignalKind::spike)) << seq("x");
        QTest::newRow("spike 59 without size")
            << one(trade("x", std::nullopt, 59, 5, SignalKind::spike)) << seq("");
        QTest::newRow("stocks 90 without size")
            << one(trade("x", std::nullopt, 90, 5, SignalKind::stocks)) << seq("");
        QTest::newRow("119.9 s old") << one(trade("x", 1e6, 70, 119.9)) << seq("x");
        QTest::newRow("120 s old") << one(trade("x", 1e6, 70, 120)) << seq("");
        QTest::newRow("equal priority: first in list wins")
            << Steps{{}, {{trade("first", 1e5), trade("second", 1e6), trade("low", 1e7, 50)}}}
            << seq("first");
        const Signal hold = trade("hold", 1e6, 80);
        QTest::newRow("lower priority does not preempt")
            << Steps{{}, {{hold}}, {{trade("new", 1e6, 79), hold}}} << seq("hold");
        QTest::newRow("equal priority preempts")
            << Steps{{}, {{hold}}, {{trade("new", 1e6, 80), hold}}} << seq("hold new");
        // Switching off ends the takeover once; what arrived meanwhile is not fresh later.
        QTest::newRow("threshold zero ends a takeover")
            << Steps{{}, {{a}}, {{a, b}, 0}, {{a, b}, -1}, {{a, b}}} << seq("a -");
        // A watched wallet's trade needs no size beyond being published, but focus alerts must be on.
        Signal small = trade("w", 1500);
        small.wallet = WalletRef{QStringLiteral("Addr"), QStringLiteral("@kim"), std::nullopt};
        const QSet<QString> kim{QStringLiteral("kim")}, kimber{QStringLiteral("kimber")};
        QTest::newRow("watched, under the threshold")
            << Steps{{{}, 25000, kim}, {{small}, 25000, kim}} << seq("w");
        QTest::newRow("watched, focus alerts off") << Steps{{{}, 0, kim}, {{small}, 0, kim}} << seq("");
        QTest::newRow("another wallet watched")
            << Steps{{{}, 25000, kimber}, {{small}, 25000, kimber}} << seq("");
        QTest::newRow("nobody watched") << Steps{{}, {{small}}} << seq("");
        // A held warm-up records every list until it is released; the first
        // list after the release still only warms up.
        const Step holdUp{{}, 0, {}, Step::Hold}, letGo{{}, 0, {}, Step::Release};
        const Signal radar = trade("radar", 4e5, 72, 10, SignalKind::spike), tape = trade("tape", 9e4);
        QTest::newRow("held: radar first, then the backfill")
            << Steps{holdUp, {{radar}},       {{tape, radar}},
                     letGo,  {{tape, radar}}, {{trade("live", 3e4), tape, radar}}}
            << seq("live");
        QTest::newRow("held: backfill list seen at the release")
            << Steps{holdUp, {{radar}}, letGo, {{tape, radar}}, {{tape, radar}}} << seq("");
        QTest::newRow("held: nothing before the release")
            << Steps{holdUp, letGo, {{}}, {{tape}}} << seq("tape");
    }
    void choice()
    {
        QFETCH(Steps, steps);
        QFETCH(QStringList, expected);
        auto d = director();
        for (const Step &s : steps) {
            if (s.op == Step::Hold)
                d->holdWarmUp();
            else if (s.op == Step::Release)
                d->releaseWarmUp();
            else
                d->consider(s.list, s.threshold, s.watched);
        }
        QCOMPARE(changes, expected);
        QCOMPARE(d->current() ? d->current()->id : QStringLiteral("-"),
                 expected.value(expected.size() - 1, QStringLiteral("-")));
        QCOMPARE(d->releasePending(), d->current().has_value());
    }

    void holdEndsTheTakeoverAndReplacementRestartsIt()
    {
        auto d = director(1000);
        d->consider({}, 25000);
        d->consider({trade("a", 1e6, 80)}, 25000);
        QTest::qWait(700);
        d->consider({trade("b", 1e6, 80), trade("a", 1e6, 80)}, 25000); // restarts the hold
        QTest::qWait(500);
        QCOMPARE(d->current()->id, QStringLiteral("b")); // past a's hold, within b's
        QVERIFY(QTest::qWaitFor([&] { return !d->current(); }, 5000));
        QCOMPARE(changes, seq("a b -"));
        QVERIFY(!d->releasePending());
    }
};

QTEST_MAIN(FocalTest)
#include "tst_focal.moc"
