// Link trouble as the journal sees it: warnings in the larkpin.* categories,
// quiet while the LARKPIN_LOG trace (which says the same) is on, one line
// each however the wire text is shaped, and held back after a burst.

#include "Support/Log.h"
#include "Table.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {
struct Captured {
    QString category;
    QtMsgType type;
    QString text;
    bool operator==(const Captured &) const = default;
};
QList<Captured> captured;
void capture(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    captured << Captured{QString::fromLatin1(context.category), type, text};
}

// clang-format off
struct Trouble { const char *name, *line; bool trouble; };
const Trouble troubles[] = {
    {.name = "receive failed", .line = "receive FAILED: the socket closed (code 1006)", .trouble = true},
    {.name = "ping failed", .line = "ping FAILED: no pong within 15000 ms", .trouble = true},
    {.name = "undecodable", .line = "frame #12 UNDECODABLE", .trouble = true},
    {.name = "oversized", .line = "frame #3 over 1048576 bytes, dropped", .trouble = true},
    {.name = "ping ok", .line = "ping ok · frames=3 fills=9", .trouble = false},
    {.name = "frame", .line = "frame #4 fills=2 (total 9)", .trouble = false},
};

// The app's own lines: tagged, flattened, in larkpin.app at their level,
// and printed whether or not the trace is on (they are not in the trace).
struct AppLine { const char *name; QtMsgType type; bool tracing; };
const AppLine appLineRows[] = {
    {.name = "warning", .type = QtWarningMsg, .tracing = false},
    {.name = "warning while tracing", .type = QtWarningMsg, .tracing = true},
    {.name = "info", .type = QtInfoMsg, .tracing = false},
    {.name = "critical", .type = QtCriticalMsg, .tracing = false},
};
// clang-format on
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

    void whatCountsAsTrouble_data() { rows(troubles); }
    void whatCountsAsTrouble()
    {
        const Trouble &r = row(troubles);
        QCOMPARE(Log::isTrouble(QString::fromUtf8(r.line)), r.trouble);
    }

    void troubleIsOneFlatWarningUnlessTracing()
    {
        Log::trouble(lcInput(), QStringLiteral("bad symbol \"AB\nC\u2028D\" dropped"));
        const QList<Captured> flat{{u"larkpin.input"_s, QtWarningMsg, u"bad symbol \"AB C D\" dropped"_s}};
        QCOMPARE(captured, flat);
        qputenv("LARKPIN_LOG", "1");
        Log::trouble(lcInput(), QStringLiteral("receive FAILED: x"));
        QCOMPARE(captured, flat);
    }

    void appLines_data() { rows(appLineRows); }
    void appLines()
    {
        const auto [name, type, tracing] = row(appLineRows);
        if (tracing)
            qputenv("LARKPIN_LOG", "1");
        const auto write = type == QtWarningMsg ? Log::warning
                           : type == QtInfoMsg  ? Log::info
                                                : Log::critical;
        write(lcApp(), QStringLiteral("cannot save \"a\nb\""));
        QCOMPARE(captured, (QList<Captured>{{u"larkpin.app"_s, type, u"[Larkpin] cannot save \"a b\""_s}}));
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
