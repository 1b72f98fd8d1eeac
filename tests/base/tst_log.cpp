// Log lines: one line per message whatever the wire text inside it holds.

#include "Support/Log.h"

#include <QTest>

class LogTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void formatLine_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plain") << QStringLiteral("link live") << QStringLiteral("12:34:56 [tw] link live\n");
        QTest::newRow("newline in a symbol")
            << QStringLiteral("fill for WIF\n12:00:00 [tw] forged")
            << QStringLiteral("12:34:56 [tw] fill for WIF 12:00:00 [tw] forged\n");
        QTest::newRow("carriage return, tab, escape")
            << QStringLiteral("a\rb\tc\x1b[31md") << QStringLiteral("12:34:56 [tw] a b c [31md\n");
        QTest::newRow("unicode line separators")
            << QStringLiteral("a\u2028b\u2029c") << QStringLiteral("12:34:56 [tw] a b c\n");
        QTest::newRow("other unicode kept")
            << QStringLiteral("$WIF · ▲") << QStringLiteral("12:34:56 [tw] $WIF · ▲\n");
    }
    void formatLine()
    {
        QFETCH(QString, message);
        QFETCH(QString, expected);
        QCOMPARE(Log::formatLine("tw", message, QStringLiteral("12:34:56")), expected);
    }
};

QTEST_APPLESS_MAIN(LogTest)
#include "tst_log.moc"
