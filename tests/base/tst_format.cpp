// The texts the engine writes: numbers in every tier and at the boundaries
// between tiers, log lines, headlines and trade ids; and the same texts under a
// comma-decimal locale.

#include "Model/Signal.h"
#include "Support/Format.h"
#include "Support/Log.h"

#include "Table.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

#include <clocale>

namespace {
using namespace Format;
using namespace Qt::StringLiterals;

QString logLine(const char16_t *message)
{
    return Log::formatLine("tw", QString::fromUtf16(message), QStringLiteral("12:34:56"));
}


// A row is named by the call it makes.
struct Text { const char *name; QString (*call)(); const char *expected; };
#define TEXT(call, expected) {#call, [] { return call; }, expected}
// clang-format off
const Text cases[] = {
    TEXT(usd(12.345), "$12.35"), TEXT(usd(-7.5), "-$7.50"), TEXT(usd(999.996), "$1000.00"), // no carry
    TEXT(usd(1000), "$1.0K"), TEXT(usd(-56789), "-$56.8K"), TEXT(usd(999999), "$1000.0K"), // no carry
    TEXT(usd(1000000), "$1.00M"), TEXT(usd(1e9), "$1.00B"),
    // Shaped like another amount: its tier, not the amount's own.
    TEXT(usd(500, 2000000), "$0.00M"), TEXT(usd(1500000, 900), "$1500000.00"),
    TEXT(usd(-2500, 5000000000), "-$0.00B"),
    TEXT(price(0), "$0"), TEXT(price(-1.5), "$-1.50"), TEXT(price(1), "$1.00"), TEXT(price(0.01), "$0.0100"),
    TEXT(price(0.00999), "$0.01"), TEXT(price(0.000012345), "$1.2e-05"),
    TEXT(signedPercent(0.1234, 1), "+12.3%"), TEXT(signedPercent(0, 1), "0.0%"),
    TEXT(signedPercent(-0.00004, 1), "-0.0%"), TEXT(signedPercent(1.5, 0), "+150%"),
    TEXT(age(59.6), "60s"), TEXT(age(60), "1m"), TEXT(age(3599), "60m"), TEXT(age(5400), "2h"),
    TEXT(age(86399), "24h"), TEXT(age(129600), "2d"), TEXT(age(-3.2), "-3s"),
    TEXT(relative(1000 - 44.9, 1000), "now"), TEXT(relative(1000 - 45, 1000), "1m"),
    TEXT(relative(10000 - 7199, 10000), "1h"), TEXT(relative(100000 - 86399, 100000), "23h"), // truncated
    TEXT(relative(0, 3.5 * 86400), "3d"), TEXT(relative(2000, 1000), "now"),
    TEXT(relative(std::nan(""), 1000), "now"),
    TEXT(duration(-5), "1m"), TEXT(duration(59.4), "59m"), TEXT(duration(60), "1h"),
    TEXT(duration(90), "1h 30m"), TEXT(duration(119.6), "1h 60m"), TEXT(duration(1440), "1d"),
    TEXT(duration(3000), "2d 2h"),
    TEXT(count(1000), "1,000"), TEXT(count(-1234567), "-1234567"), // negatives are never grouped
    TEXT(count(Q_INT64_C(9223372036854775807)), "9,223,372,036,854,775,807"), TEXT(fixed(3.14159, 2), "3.14"),
    // Wire times can be anything finite; the texts saturate rather than stop.
    TEXT(age(1e300), "9223372036854775807d"), TEXT(age(-1e300), "-9223372036854775808s"),
    TEXT(age(std::nan("")), "0d"), TEXT(relative(-1.7e308, 1.7e308), "6405119470038038d"),
    TEXT(duration(1e300), "384307168202282325d 7h"), TEXT(duration(-1e300), "1m"),
    // A log line stays one line whatever the wire text inside it holds.
    TEXT(logLine(u"link live"), "12:34:56 [tw] link live\n"),
    TEXT(logLine(u"WIF\n12:00:00 [tw] forged"), "12:34:56 [tw] WIF 12:00:00 [tw] forged\n"),
    TEXT(logLine(u"a\rb\tc\x1b[31md"), "12:34:56 [tw] a b c [31md\n"),
    TEXT(logLine(u"a\u2028b\u2029c"), "12:34:56 [tw] a b c\n"),
    TEXT(logLine(u"$WIF · ▲"), "12:34:56 [tw] $WIF · ▲\n"),
    // The tag never shows in a headline.
    TEXT((Headline{u"$WIF"_s, u"@kai aped"_s, {}, u"▲"_s}.text()), "$WIF · @kai aped"),
    TEXT((Headline{u"$WIF"_s, u"@kai aped"_s, u"$2.50M"_s, u"▲"_s}.text()), "$WIF · @kai aped $2.50M"),
    TEXT((WalletTrade{.tokenSymbol = u"BONK"_s, .at = 1700000000}.id()), "BONK-1700000000.0"),
    TEXT((WalletTrade{.tokenSymbol = u"BONK"_s, .at = 0.1}.id()), "BONK-0.1"),
    TEXT((WalletTrade{.tokenSymbol = u"BONK"_s, .at = 1e22}.id()), "BONK-1.0e+22")};
// clang-format on
#undef TEXT

// A comma-decimal locale, made in a private folder when the machine has none.
bool commaLocale()
{
    if (std::setlocale(LC_ALL, "de_DE.UTF-8"))
        return true;
    static QTemporaryDir dir;
    const QString target = QDir(dir.path()).filePath(QStringLiteral("de_DE.UTF-8"));
    QProcess::execute(QStringLiteral("localedef"),
                      {QStringLiteral("-i"), QStringLiteral("de_DE"), QStringLiteral("-f"),
                       QStringLiteral("UTF-8"), target});
    qputenv("LOCPATH", dir.path().toLocal8Bit());
    return std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
}
} // namespace

class FormatTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void texts_data() { rows(cases); }
    void texts() { QCOMPARE(row(cases).call(), QString::fromUtf8(row(cases).expected)); }

    // The app adopts the user's LC_NUMERIC; the texts must not.
    void underCommaLocale_data() { rows(cases); }
    void underCommaLocale()
    {
        static const bool ready = commaLocale();
        if (!ready)
            QSKIP("no comma-decimal locale could be made on this machine");
        char probe[16];
        std::snprintf(probe, sizeof probe, "%.1f", 1.5);
        QCOMPARE(QByteArray(probe), QByteArray("1,5")); // the trap is really armed
        texts();
    }
    void cleanupTestCase() { std::setlocale(LC_ALL, "C"); }
};

QTEST_APPLESS_MAIN(FormatTest)
#include "tst_format.moc"
