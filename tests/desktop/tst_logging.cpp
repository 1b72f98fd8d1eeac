// Link trouble as the journal sees it: warnings in the larkpin.* categories,
// on by default, quiet while the LARKPIN_LOG trace (which says the same) is
// on, one line each however the wire text is shaped, and held back after a
// burst.

#include "Support/Log.h"

#include <QTest>

namespace {
struct Captured {
    QString category;
    QtMsgType type;
    QString text;
};
QList<Captured> captured;
void capture(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    captured << Captured{QString::fromLatin1(context.category), type, text};
}
} // namespace

class LoggingTest : public QObject {
    Q_OBJECT
    QtMessageHandler previous_ = nullptr;

private Q_SLOTS:
    void init()
    {
        captured.clear();
        qunsetenv("LARKPIN_LOG");
        previous_ = qInstallMessageHandler(capture);
    }
    void cleanup() { qInstallMessageHandler(previous_); }

    void categoriesWarnByDefault()
    {
        QVERIFY(lcLink().isWarningEnabled());
        QVERIFY(lcInput().isWarningEnabled());
        QVERIFY(!lcLink().isDebugEnabled());
        QCOMPARE(QString::fromLatin1(lcLink().categoryName()), QStringLiteral("larkpin.link"));
    }

    void whatCountsAsTrouble_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("trouble");
        QTest::newRow("receive failed")
            << QStringLiteral("receive FAILED: the socket closed (code 1006)") << true;
        QTest::newRow("ping failed") << QStringLiteral("ping FAILED: no pong within 15000 ms") << true;
        QTest::newRow("undecodable") << QStringLiteral("frame #12 UNDECODABLE") << true;
        QTest::newRow("oversized") << QStringLiteral("frame #3 over 1048576 bytes, dropped") << true;
        QTest::newRow("ping ok") << QStringLiteral("ping ok · frames=3 fills=9") << false;
        QTest::newRow("frame") << QStringLiteral("frame #4 fills=2 (total 9)") << false;
    }
    void whatCountsAsTrouble()
    {
        QFETCH(QString, line);
        QFETCH(bool, trouble);
        QCOMPARE(Log::isTrouble(line), trouble);
    }

    void oneFlatWarningLine()
    {
        Log::trouble(lcInput(), QStringLiteral("bad symbol \"AB\nC\u2028D\" dropped"));
        QCOMPARE(captured.size(), 1);
        QCOMPARE(captured[0].type, QtWarningMsg);
        QCOMPARE(captured[0].category, QStringLiteral("larkpin.input"));
        QCOMPARE(captured[0].text, QStringLiteral("bad symbol \"AB C D\" dropped"));
    }

    void quietWhileTracing()
    {
        qputenv("LARKPIN_LOG", "1");
        Log::trouble(lcInput(), QStringLiteral("receive FAILED: x"));
        QVERIFY(captured.isEmpty());
    }

    // The app's own lines: tagged, flattened, in larkpin.app at their level,
    // and printed whether or not the trace is on (they are not in the trace).
    void appLines_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<bool>("tracing");
        QTest::addColumn<int>("type");
        QTest::newRow("warning") << 0 << false << int(QtWarningMsg);
        QTest::newRow("warning while tracing") << 0 << true << int(QtWarningMsg);
        QTest::newRow("info") << 1 << false << int(QtInfoMsg);
        QTest::newRow("critical") << 2 << false << int(QtCriticalMsg);
    }
    void appLines()
    {
        QFETCH(int, level);
        QFETCH(bool, tracing);
        QFETCH(int, type);
        if (tracing)
            qputenv("LARKPIN_LOG", "1");
        const QString message = QStringLiteral("cannot save \"a\nb\"");
        if (level == 0)
            Log::warning(lcApp(), message);
        else if (level == 1)
            Log::info(lcApp(), message);
        else
            Log::critical(lcApp(), message);
        QCOMPARE(captured.size(), 1);
        QCOMPARE(int(captured[0].type), type);
        QCOMPARE(captured[0].category, QStringLiteral("larkpin.app"));
        QCOMPARE(captured[0].text, QStringLiteral("[Larkpin] cannot save \"a b\""));
    }

    // The link category was not used by the cases above: its window is fresh.
    void burstIsHeldBack()
    {
        for (int i = 0; i < Log::troubleBurst + 5; ++i)
            Log::trouble(lcLink(), QStringLiteral("receive FAILED: ") + QString::number(i));
        QCOMPARE(captured.size(), Log::troubleBurst + 1);
        QCOMPARE(captured[Log::troubleBurst - 1].text,
                 QStringLiteral("receive FAILED: ") + QString::number(Log::troubleBurst - 1));
        QVERIFY(captured.last().text.contains(QStringLiteral("held back")));
    }
};

QTEST_GUILESS_MAIN(LoggingTest)
#include "tst_logging.moc"
