#include "Support/Format.h"

#include <clocale>
#include <cmath>
#include <cstdio>
#include <limits>
#include <locale.h>

namespace {
// printf under the POSIX locale whatever the process locale is: QApplication
// adopts the user's LC_NUMERIC at start-up, and "1,50" must never appear.
locale_t posixLocale()
{
    static const locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return loc;
}

template <typename... Args> QString cprintf(const char *format, Args... args)
{
    const locale_t previous = uselocale(posixLocale());
    char buf[512];
    const int n = std::snprintf(buf, sizeof buf, format, args...);
    uselocale(previous);
    if (n < 0)
        return {};
    return QString::fromLatin1(buf, n < int(sizeof buf) ? n : int(sizeof buf) - 1);
}

// round() is half away from zero, as the texts require. Times and sizes from
// the wire reach these texts (a fill dated -1e300 makes an age of 1e300 s), so
// a value past the 64-bit range saturates instead of taking the app down, and a
// NaN counts as zero.
qint64 toInt64(double value)
{
    if (std::isnan(value))
        return 0;
    // 2^63 is exactly representable; anything at or above it does not fit.
    if (value >= 9223372036854775808.0)
        return std::numeric_limits<qint64>::max();
    if (value < -9223372036854775808.0)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}

QString usdIn(double v, double tierOf)
{
    const QString sign = v < 0 ? QStringLiteral("-") : QString();
    const double a = std::fabs(v);
    const double r = std::fabs(tierOf);
    if (r >= 1e9)
        return sign + QLatin1Char('$') + Format::fixed(a / 1e9, 2) + QLatin1Char('B');
    if (r >= 1e6)
        return sign + QLatin1Char('$') + Format::fixed(a / 1e6, 2) + QLatin1Char('M');
    if (r >= 1000)
        return sign + QLatin1Char('$') + Format::fixed(a / 1000, 1) + QLatin1Char('K');
    return sign + QLatin1Char('$') + Format::fixed(a, 2);
}
} // namespace

namespace Format {

QString fixed(double value, int digits)
{
    return cprintf("%.*f", digits, value);
}

QString general(double value, int significant)
{
    return cprintf("%.*g", significant, value);
}

QString usd(double amount)
{
    return usdIn(amount, amount);
}

QString usd(double amount, double shapedLike)
{
    return usdIn(amount, shapedLike);
}

QString price(double p)
{
    if (p == 0)
        return QStringLiteral("$0");
    const double a = std::fabs(p);
    if (a >= 1)
        return QLatin1Char('$') + fixed(p, 2);
    if (a >= 0.01)
        return QLatin1Char('$') + fixed(p, 4);
    return QLatin1Char('$') + general(p, 2);
}

QString signedPercent(double fraction, int digits)
{
    const double scale = std::pow(10.0, double(digits));
    const double r = std::round(fraction * 100 * scale) / scale;
    return (r > 0 ? QStringLiteral("+") : QString()) + fixed(r, digits) + QLatin1Char('%');
}

QString age(double seconds)
{
    const double s = seconds;
    if (s < 60)
        return QString::number(toInt64(std::round(s))) + QLatin1Char('s');
    if (s < 3600)
        return QString::number(toInt64(std::round(s / 60))) + QLatin1Char('m');
    if (s < 86400)
        return QString::number(toInt64(std::round(s / 3600))) + QLatin1Char('h');
    return QString::number(toInt64(std::round(s / 86400))) + QLatin1Char('d');
}

QString relative(double date, double now)
{
    const double e = now - date;
    if (!(e >= 0) || e < 45)
        return QStringLiteral("now");
    const qint64 m = toInt64(std::trunc(e / 60));
    if (m < 60)
        return QString::number(std::max<qint64>(m, 1)) + QLatin1Char('m');
    if (m > 1439)
        return QString::number(m / 1440) + QLatin1Char('d');
    return QString::number(m / 60) + QLatin1Char('h');
}

QString duration(double minutes)
{
    const double x = minutes;
    if (x < 60)
        return QString::number(std::max<qint64>(toInt64(std::round(x)), 1)) + QLatin1Char('m');
    const qint64 h = toInt64(std::trunc(x / 60));
    if (h > 23) {
        const qint64 days = h / 24, rest = h % 24;
        if (rest != 0)
            return QString::number(days) + QStringLiteral("d ") + QString::number(rest) + QLatin1Char('h');
        return QString::number(days) + QLatin1Char('d');
    }
    const qint64 mins = toInt64(std::round(std::fmod(x, 60)));
    if (mins != 0)
        return QString::number(h) + QStringLiteral("h ") + QString::number(mins) + QLatin1Char('m');
    return QString::number(h) + QLatin1Char('h');
}

QString count(qint64 n)
{
    QString s = QString::number(n);
    if (n < 1000)
        return s;
    QString tail;
    while (s.size() > 3) {
        tail = QLatin1Char(',') + s.right(3) + tail;
        s.chop(3);
    }
    return s + tail;
}

} // namespace Format
