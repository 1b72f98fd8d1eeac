// Which trade takes the ticker over, and for how long.

#include "Menu/FocalDirector.h"
#include "Table.h"

#include <QTest>

// One store publication (the full list, the focus threshold and the watched
// handles in force), or the controller holding or releasing the warm-up.
struct Step {
    QList<Signal> list;
    double threshold = 25000;
    QSet<QString> watched;
    enum { Consider, Hold, Release } op = Consider;
};

namespace {
constexpr double now = 1'700'000'000;
Signal trade(const char *id, std::optional<double> usd, int priority = 70, double age = 5,
             SignalKind kind = SignalKind::whale)
{
    return Signal{.id = QLatin1String(id), .kind = kind, .line = {.ticker = QLatin1String(id)},
                  .priority = priority, .createdAt = now - age, .notionalUsd = usd};
}
QStringList seq(const char *ids)
{
    return QString::fromLatin1(ids).split(u' ', Qt::SkipEmptyParts);
}
QList<Step> one(const Signal &s)
{
    return {{}, {{s}}};
}

// Rows after an empty first list start from a warmed-up director. A watched
// wallet's trade needs no size beyond being published, but focus alerts must
// be on. A held warm-up records every list until it is released; the first
// list after the release still only warms up.
const Signal big = trade("big", 5e6), a = trade("a", 1e6), b = trade("b", 1e7), hold = trade("hold", 1e6, 80);
const Signal small = [] {
    Signal s = trade("w", 1500);
    s.wallet = WalletRef{QStringLiteral("Addr"), QStringLiteral("@kim"), std::nullopt};
    return s;
}();
const QSet<QString> kim{QStringLiteral("kim")}, kimber{QStringLiteral("kimber")};
const Step holdUp{{}, 0, {}, Step::Hold}, letGo{{}, 0, {}, Step::Release};
const Signal radar = trade("radar", 4e5, 72, 10, SignalKind::spike), tape = trade("tape", 9e4);

// clang-format off
struct Choice { const char *name; QList<Step> steps; const char *expected; };
const Choice choices[] = {
    {.name = "first list only warms up", .steps = {{{big}}, {{trade("next", 30000), big}}},
     .expected = "next"},
    {.name = "off before warm-up does not warm up", .steps = {{{big}, 0}, {{big, a}}}, .expected = ""},
    {.name = "a returning id is fresh again", .steps = {{{a}}, {}, {{a}}}, .expected = "a"},
    {.name = "size at the threshold", .steps = one(trade("x", 25000)), .expected = "x"},
    {.name = "size just under", .steps = one(trade("x", 24999.99)), .expected = ""},
    {.name = "no size, high priority", .steps = one(trade("x", std::nullopt, 99)), .expected = ""},
    {.name = "spike 60 without size", .steps = one(trade("x", std::nullopt, 60, 5, SignalKind::spike)),
     .expected = "x"},
    {.name = "spike 59 without size", .steps = one(trade("x", std::nullopt, 59, 5, SignalKind::spike)),
     .expected = ""},
    {.name = "stocks 90 without size", .steps = one(trade("x", std::nullopt, 90, 5, SignalKind::stocks)),
     .expected = ""},
    {.name = "119.9 s old", .steps = one(trade("x", 1e6, 70, 119.9)), .expected = "x"},
    {.name = "120 s old", .steps = one(trade("x", 1e6, 70, 120)), .expected = ""},
    {.name = "equal priority: first in list wins",
     .steps = {{}, {{trade("first", 1e5), trade("second", 1e6), trade("low", 1e7, 50)}}},
     .expected = "first"},
    {.name = "lower priority does not preempt", .steps = {{}, {{hold}}, {{trade("new", 1e6, 79), hold}}},
     .expected = "hold"},
    {.name = "equal priority preempts", .steps = {{}, {{hold}}, {{trade("new", 1e6, 80), hold}}},
     .expected = "hold new"},
    // Switching off ends the takeover once; what arrived meanwhile is not fresh later.
    {.name = "threshold zero ends a takeover", .steps = {{}, {{a}}, {{a, b}, 0}, {{a, b}, -1}, {{a, b}}},
     .expected = "a -"},
    {.name = "watched, under the threshold", .steps = {{{}, 25000, kim}, {{small}, 25000, kim}},
     .expected = "w"},
    {.name = "watched, focus alerts off", .steps = {{{}, 0, kim}, {{small}, 0, kim}}, .expected = ""},
    {.name = "another wallet watched", .steps = {{{}, 25000, kimber}, {{small}, 25000, kimber}},
     .expected = ""},
    {.name = "nobody watched", .steps = {{}, {{small}}}, .expected = ""},
    {.name = "held: radar first, then the backfill",
     .steps = {holdUp, {{radar}}, {{tape, radar}}, letGo, {{tape, radar}}, {{trade("live", 3e4), tape, radar}}},
     .expected = "live"},
    {.name = "held: backfill list seen at the release",
     .steps = {holdUp, {{radar}}, letGo, {{tape, radar}}, {{tape, radar}}}, .expected = ""},
    {.name = "held: nothing before the release", .steps = {holdUp, letGo, {{}}, {{tape}}},
     .expected = "tape"},
};
// clang-format on
} // namespace

class FocalTest : public QObject {
    Q_OBJECT
    QStringList changes; // ids handed to onChange, "-" for a release

    std::unique_ptr<FocalDirector> director(int holdMs = FocalDirector::holdMs)
    {
        changes.clear();
        auto d = std::make_unique<FocalDirector>([] { return now; }, holdMs);
        d->onChange = [this](const std::optional<Signal> &s) {
            changes << (s ? s->id : QStringLiteral("-"));
        };
        return d;
    }

private Q_SLOTS:
    void choice_data() { rows(choices); }
    void choice()
    {
        const QStringList expected = seq(row(choices).expected);
        auto d = director();
        for (const Step &s : row(choices).steps) {
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
        QVERIFY(QTest::qWaitFor([&] { return !d->current(); }, 30000));
        QCOMPARE(changes, seq("a b -"));
        QVERIFY(!d->releasePending());
    }
};

QTEST_MAIN(FocalTest)
#include "tst_focal.moc"
