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
    {"first list only warms up", {{{big}}, {{trade("next", 30000), big}}}, "next"},
    {"off before warm-up does not warm up", {{{big}, 0}, {{big, a}}}, ""},
    {"a returning id is fresh again", {{{a}}, {}, {{a}}}, "a"},
    {"size at the threshold", one(trade("x", 25000)), "x"},
    {"size just under", one(trade("x", 24999.99)), ""},
    {"no size, high priority", one(trade("x", std::nullopt, 99)), ""},
    {"spike 60 without size", one(trade("x", std::nullopt, 60, 5, SignalKind::spike)), "x"},
    {"spike 59 without size", one(trade("x", std::nullopt, 59, 5, SignalKind::spike)), ""},
    {"stocks 90 without size", one(trade("x", std::nullopt, 90, 5, SignalKind::stocks)), ""},
    {"119.9 s old", one(trade("x", 1e6, 70, 119.9)), "x"}, {"120 s old", one(trade("x", 1e6, 70, 120)), ""},
    {"equal priority: first in list wins",
     {{}, {{trade("first", 1e5), trade("second", 1e6), trade("low", 1e7, 50)}}}, "first"},
    {"lower priority does not preempt", {{}, {{hold}}, {{trade("new", 1e6, 79), hold}}}, "hold"},
    {"equal priority preempts", {{}, {{hold}}, {{trade("new", 1e6, 80), hold}}}, "hold new"},
    // Switching off ends the takeover once; what arrived meanwhile is not fresh later.
    {"threshold zero ends a takeover", {{}, {{a}}, {{a, b}, 0}, {{a, b}, -1}, {{a, b}}}, "a -"},
    {"watched, under the threshold", {{{}, 25000, kim}, {{small}, 25000, kim}}, "w"},
    {"watched, focus alerts off", {{{}, 0, kim}, {{small}, 0, kim}}, ""},
    {"another wallet watched", {{{}, 25000, kimber}, {{small}, 25000, kimber}}, ""},
    {"nobody watched", {{}, {{small}}}, ""},
    {"held: radar first, then the backfill",
     {holdUp, {{radar}}, {{tape, radar}}, letGo, {{tape, radar}}, {{trade("live", 3e4), tape, radar}}},
     "live"},
    {"held: backfill list seen at the release",
     {holdUp, {{radar}}, letGo, {{tape, radar}}, {{tape, radar}}}, ""},
    {"held: nothing before the release", {holdUp, letGo, {{}}, {{tape}}}, "tape"}};
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
        QVERIFY(QTest::qWaitFor([&] { return !d->current(); }, 5000));
        QCOMPARE(changes, seq("a b -"));
        QVERIFY(!d->releasePending());
    }
};

QTEST_MAIN(FocalTest)
#include "tst_focal.moc"
