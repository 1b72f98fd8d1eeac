#pragma once
// Texts of money, prices, percentages, ages, durations and counts. Every number
// prints with a point and without grouping whatever the user's locale is.

#include <QString>
#include <QtGlobal>

namespace Format {
QString fixed(double value, int digits);
QString usd(double amount);
QString usd(double amount, double shapedLike);
QString price(double p);
QString signedPercent(double fraction, int digits);
QString age(double seconds);
QString relative(double date, double now); // both seconds since 1970
QString duration(double minutes);
QString count(qint64 n);
// printf-style "%.<digits>g" in the C locale (used by price and a few labels).
QString general(double value, int significant);
} // namespace Format
