// Link trouble as the journal sees it: warnings in the larkpin.* categories,
// quiet while the LARKPIN_LOG trace (which says the same) is on, one line
// each however the wire text is shaped, and held back after a burst.

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

    void troubleIsOneFlatWarningUnlessTracing()
    {
        Log::trouble(lcInput(), QStringLiteral("bad symbol \"AB\nC\u2028D\" dropped"));
        QCOMPARE(captured.size(), 1);
        QCOMPARE(captured[0].type, QtWarningMsg);
        QCOMPARE(captured[0].category, QStringLiteral("larkpin.input"));
        QCOMPARE(captured[0].text, QStringLiteral("bad symbol \"AB C D\" dropped"));
        qputenv("LARKPIN_LOG", "1");
        Log::trouble(lcInput(), QStringLiteral("receive FAILED: x"));
        QCOMPARE(captured.size(), 1);
    }

    // The app's own lines: tagged, flattened, in larkpin.app at their level,
    // and printed whether or not the trace is on (they are not in the trace).
    void appLines_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("tracing");
        QTest::newRow("warning") << int(QtWarningMsg) << false;
        QTest::newRow("warning while tracing") << int(QtWarningMsg) << true;
        QTest::newRow("info") << int(QtInfoMsg) << false;
        QTest::newRow("critical") << int(QtCriticalMsg) << false;
    }
    void appLines()
    {
        QFETCH(int, type);
        QFETCH(bool, tracing);
        if (tracing)
            qputenv("LARKPIN_LOG", "1");
        const auto write = type == QtWarningMsg ? Log::warning
                           : type == QtInfoMsg  ? Log::info
                                                : Log::critical;
        write(lcApp(), QStringLiteral("cannot save \"a\nb\""));
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
