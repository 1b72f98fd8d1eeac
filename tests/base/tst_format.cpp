// Texts of numbers: every tier, the boundaries between tiers, and the same
// texts under a comma-decimal locale.

#include "Support/Format.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <clocale>

using Call = std::function<QString()>;
Q_DECLARE_METATYPE(Call)

class FormatTest : public QObject {
    Q_OBJECT

    void addTable()
    {
        QTest::addColumn<Call>("call");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, Call c, const char *e) {
            QTest::newRow(name) << c << QString::fromUtf8(e);
        };
        using namespace Format;
        // One case a line reads as a table.
        // clang-format off
        row("usd 12.345", [] { return usd(12.345); }, "$12.35");
        row("usd -7.5", [] { return usd(-7.5); }, "-$7.50");
        row("usd 999.996 no carry", [] { return usd(999.996); }, "$1000.00");
        row("usd 1000", [] { return usd(1000); }, "$1.0K");
        row("usd -56789", [] { return usd(-56789); }, "-$56.8K");
        row("usd 999999 no carry", [] { return usd(999999); }, "$1000.0K");
        row("usd 1e6 boundary", [] { return usd(1000000); }, "$1.00M");
        row("usd 1e9 boundary", [] { return usd(1e9); }, "$1.00B");
        row("usd shaped M", [] { return usd(500, 2000000); }, "$0.00M");
        row("usd shaped plain", [] { return usd(1500000, 900); }, "$1500000.00");
        row("usd shaped B negative", [] { return usd(-2500, 5000000000); }, "-$0.00B");
        row("price 0", [] { return price(0); }, "$0");
        row("price -1.5 keeps sign after $", [] { return price(-1.5); }, "$-1.50");
        row("price 1 boundary", [] { return price(1); }, "$1.00");
        row("price 0.01 boundary", [] { return price(0.01); }, "$0.0100");
        row("price 0.00999", [] { return price(0.00999); }, "$0.01");
        row("price tiny exponent", [] { return price(0.000012345); }, "$1.2e-05");
        row("pct 0.1234", [] { return signedPercent(0.1234, 1); }, "+12.3%");
        row("pct 0", [] { return signedPercent(0, 1); }, "0.0%");
        row("pct negative zero", [] { return signedPercent(-0.00004, 1); }, "-0.0%");
        row("pct 1.5 no digits", [] { return signedPercent(1.5, 0); }, "+150%");
        row("age 59.6 rounds within tier", [] { return age(59.6); }, "60s");
        row("age 60 boundary", [] { return age(60); }, "1m");
        row("age 3599", [] { return age(3599); }, "60m");
        row("age 5400", [] { return age(5400); }, "2h");
        row("age 86399", [] { return age(86399); }, "24h");
        row("age 129600", [] { return age(129600); }, "2d");
        row("age negative", [] { return age(-3.2); }, "-3s");
        row("relative 44.9", [] { return relative(1000 - 44.9, 1000); }, "now");
        row("relative 45", [] { return relative(1000 - 45, 1000); }, "1m");
        row("relative 7199 truncates", [] { return relative(10000 - 7199, 10000); }, "1h");
        row("relative 86399", [] { return relative(100000 - 86399, 100000); }, "23h");
        row("relative 3.5 days", [] { return relative(0, 3.5 * 86400); }, "3d");
        row("relative future", [] { return relative(2000, 1000); }, "now");
        row("relative nan", [] { return relative(std::nan(""), 1000); }, "now");
        row("duration negative", [] { return duration(-5); }, "1m");
        row("duration 59.4", [] { return duration(59.4); }, "59m");
        row("duration 60", [] { return duration(60); }, "1h");
        row("duration 90", [] { return duration(90); }, "1h 30m");
        row("duration 119.6 keeps 60m", [] { return duration(119.6); }, "1h 60m");
        row("duration 1440", [] { return duration(1440); }, "1d");
        row("duration 3000", [] { return duration(3000); }, "2d 2h");
        row("count 1000", [] { return count(1000); }, "1,000");
        row("count -1234567 never grouped", [] { return count(-1234567); }, "-1234567");
        row("count int64 max", [] { return count(std::numeric_limits<qint64>::max()); },
            "9,223,372,036,854,775,807");
        row("fixed", [] { return fixed(3.14159, 2); }, "3.14");
        // Wire times can be anything finite; the texts saturate rather than stop.
        row("age of a fill dated -1e300", [] { return age(1e300); }, "9223372036854775807d");
        row("age far in the future", [] { return age(-1e300); }, "-9223372036854775808s");
        row("age nan", [] { return age(std::nan("")); }, "0d");
        row("relative infinitely long ago", [] { return relative(-1.7e308, 1.7e308); }, "6405119470038038d");
        row("duration huge", [] { return duration(1e300); }, "384307168202282325d 7h");
        row("duration huge negative", [] { return duration(-1e300); }, "1m");
        // clang-format on
    }

private Q_SLOTS:
    void texts_data() { addTable(); }
    void texts()
    {
        QFETCH(Call, call);
        QFETCH(QString, expected);
        QCOMPARE(call(), expected);
    }

    // The app adopts the user's LC_NUMERIC; the texts must not.
    void underCommaLocale_data() { addTable(); }
    void underCommaLocale()
    {
        static bool ready = [] {
            if (std::setlocale(LC_ALL, "de_DE.UTF-8"))
                return true;
            static QTemporaryDir dir;
            const QString target = QDir(dir.path()).filePath(QStringLiteral("de_DE.UTF-8"));
            QProcess::execute(QStringLiteral("localedef"),
                              {QStringLiteral("-i"), QStringLiteral("de_DE"), QStringLiteral("-f"),
                               QStringLiteral("UTF-8"), target});
            qputenv("LOCPATH", dir.path().toLocal8Bit());
            return std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
        }();
        if (!ready)
            QSKIP("no comma-decimal locale could be made on this machine");
        char probe[16];
        std::snprintf(probe, sizeof probe, "%.1f", 1.5);
        QCOMPARE(QByteArray(probe), QByteArray("1,5")); // the trap is really armed
        QFETCH(Call, call);
        QFETCH(QString, expected);
        QCOMPARE(call(), expected);
    }
    void cleanupTestCase() { std::setlocale(LC_ALL, "C"); }
};

QTEST_APPLESS_MAIN(FormatTest)
#include "tst_format.moc"
