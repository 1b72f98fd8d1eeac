// Which trade takes the ticker over, and for how long.

#include "Menu/FocalDirector.h"

#include <QTest>

class FocalTest : public QObject {
    Q_OBJECT
    double clock = 1'700'000'000;
    QList<std::optional<Signal>> changes;

    std::unique_ptr<FocalDirector> director(int holdMs = FocalDirector::holdMs)
    {
        changes.clear();
        auto d = std::make_unique<FocalDirector>([this] { return clock; }, holdMs);
        d->onChange = [this](const std::optional<Signal> &s) { changes.append(s); };
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
    static QStringList ids(const QList<std::optional<Signal>> &list)
    {
        QStringList out;
        for (const auto &s : list)
            out << (s ? s->id : QStringLiteral("-"));
        return out;
    }

private Q_SLOTS:
    void firstListOnlyWarmsUp()
    {
        auto d = director();
        d->consider({trade("big", 5e6)}, 25000);
        QVERIFY(d->isWarmedUp());
        QVERIFY(changes.isEmpty());
        d->consider({trade("next", 30000), trade("big", 5e6)}, 25000);
        QCOMPARE(ids(changes), QStringList{QStringLiteral("next")});
    }

    void offBeforeWarmUpDoesNotWarmUp()
    {
        auto d = director();
        d->consider({trade("a", 5e6)}, 0);
        QVERIFY(!d->isWarmedUp());
        d->consider({trade("a", 5e6), trade("b", 5e6)}, 25000); // the warm-up call
        QVERIFY(changes.isEmpty());
    }

    void eligibility_data()
    {
        QTest::addColumn<Signal>("candidate");
        QTest::addColumn<bool>("takesOver");
        QTest::newRow("size equal to the threshold") << trade("x", 25000) << true;
        QTest::newRow("size just under") << trade("x", 24999.99) << false;
        QTest::newRow("no size") << trade("x", std::nullopt, 99) << false;
        QTest::newRow("spike 60 without size") << trade("x", std::nullopt, 60, 5, SignalKind::spike) << true;
        QTest::newRow("spike 59 without size") << trade("x", std::nullopt, 59, 5, SignalKind::spike) << false;
        QTest::newRow("stocks 90 without size")
            << trade("x", std::nullopt, 90, 5, SignalKind::stocks) << false;
        QTest::newRow("119.9 s old") << trade("x", 1e6, 70, 119.9) << true;
        QTest::newRow("120 s old") << trade("x", 1e6, 70, 120) << false;
    }
    void eligibility()
    {
        QFETCH(Signal, candidate);
        QFETCH(bool, takesOver);
        auto d = director();
        d->consider({}, 25000);
        d->consider({candidate}, 25000);
        QCOMPARE(changes.size(), takesOver ? 1 : 0);
        QCOMPARE(d->current().has_value(), takesOver);
    }

    void equalPriorityFirstInListWins()
    {
        auto d = director();
        d->consider({}, 25000);
        d->consider({trade("first", 1e5, 70), trade("second", 1e6, 70), trade("low", 1e7, 50)}, 25000);
        QCOMPARE(ids(changes), QStringList{QStringLiteral("first")});
    }

    void preemption_data()
    {
        QTest::addColumn<int>("newcomer");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("lower is ignored") << 70 << QStringList{QStringLiteral("hold")};
        QTest::newRow("equal replaces") << 80 << QStringList{QStringLiteral("hold"), QStringLiteral("new")};
        QTest::newRow("higher replaces") << 95 << QStringList{QStringLiteral("hold"), QStringLiteral("new")};
    }
    void preemption()
    {
        QFETCH(int, newcomer);
        QFETCH(QStringList, expected);
        auto d = director();
        d->consider({}, 25000);
        d->consider({trade("hold", 1e6, 80)}, 25000);
        d->consider({trade("new", 1e6, newcomer), trade("hold", 1e6, 80)}, 25000);
        QCOMPARE(ids(changes), expected);
        QVERIFY(d->releasePending());
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
        QCOMPARE(ids(changes), (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("-")}));
        QVERIFY(!d->releasePending());
    }

    void thresholdZeroEndsATakeoverOnce()
    {
        auto d = director();
        d->consider({}, 25000);
        d->consider({trade("a", 1e6)}, 25000);
        d->consider({trade("a", 1e6), trade("b", 1e7)}, 0);
        d->consider({trade("a", 1e6), trade("b", 1e7)}, -1);
        QCOMPARE(ids(changes), (QStringList{QStringLiteral("a"), QStringLiteral("-")}));
        QVERIFY(!d->releasePending());
        // What arrived while switched off is not fresh when alerts come back.
        d->consider({trade("a", 1e6), trade("b", 1e7)}, 25000);
        QCOMPARE(changes.size(), 2);
    }

    void aReturningIdIsFreshAgain()
    {
        auto d = director();
        d->consider({trade("a", 1e6)}, 25000);
        d->consider({}, 25000);
        QVERIFY(changes.isEmpty());
        d->consider({trade("a", 1e6)}, 25000);
        QCOMPARE(ids(changes), QStringList{QStringLiteral("a")});
    }
};

QTEST_MAIN(FocalTest)
#include "tst_focal.moc"
