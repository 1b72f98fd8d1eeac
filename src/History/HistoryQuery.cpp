#include "History/HistoryQuery.h"

#include <QRegularExpression>

#include <cmath>

Q_LOGGING_CATEGORY(lcHistory, "larkpin.history", QtInfoMsg)

namespace {
bool isName(const QString &s)
{
    if (s.isEmpty() || s.size() > 64)
        return false;
    for (QChar c : s)
        if (!(c.isLetterOrNumber() || c == QLatin1Char('_') || c == QLatin1Char('-') || c == QLatin1Char('.')))
            return false;
    return true;
}
} // namespace

std::optional<double> HistoryQuery::parseSize(QString text)
{
    text = text.trimmed().toLower();
    for (const char *prefix : {"min:", ">=", ">", "$"})
        if (text.startsWith(QLatin1String(prefix)))
            text = text.mid(qsizetype(qstrlen(prefix)));
    if (text.startsWith(QLatin1Char('$')))
        text = text.mid(1);
    static const QRegularExpression re(QStringLiteral("^([0-9]+(?:\\.[0-9]+)?)([kmb]?)$"));
    const auto m = re.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    bool ok = false;
    double v = m.captured(1).toDouble(&ok);
    if (!ok || !std::isfinite(v))
        return std::nullopt;
    const QString unit = m.captured(2);
    if (unit == QLatin1String("k"))
        v *= 1e3;
    else if (unit == QLatin1String("m"))
        v *= 1e6;
    else if (unit == QLatin1String("b"))
        v *= 1e9;
    if (v > 1e12)
        return std::nullopt;
    return v;
}

HistoryQuery HistoryQuery::parse(const QString &text, QStringList *ignored)
{
    HistoryQuery q;
    // A field is short; what is past any sensible query is not read.
    const QStringList words = text.left(256).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &w : words) {
        const QString lower = w.toLower();
        if (lower == QLatin1String("whale") || lower == QLatin1String("whales"))
            q.kind = SignalKind::whale;
        else if (lower == QLatin1String("spike") || lower == QLatin1String("spikes"))
            q.kind = SignalKind::spike;
        else if (lower == QLatin1String("stocks") || lower == QLatin1String("stock"))
            q.kind = SignalKind::stocks;
        else if (const auto size = parseSize(w))
            q.minUsd = *size;
        else if (w.startsWith(QLatin1Char('@')) && isName(w.mid(1)))
            q.handle = w.mid(1);
        else if (w.startsWith(QLatin1Char('$')) && isName(w.mid(1)))
            q.symbol = w.mid(1);
        else if (isName(w) && !w.front().isDigit())
            q.symbol = w;
        else if (ignored)
            *ignored << w;
    }
    return q;
}

QString HistoryQuery::text() const
{
    QStringList out;
    if (!symbol.isEmpty())
        out << QLatin1Char('$') + symbol;
    if (!handle.isEmpty())
        out << QLatin1Char('@') + handle;
    if (kind)
        out << SignalKinds::rawValue(*kind);
    if (minUsd > 0)
        out << QStringLiteral(">=") + QString::number(minUsd, 'f', 0);
    return out.join(QLatin1Char(' '));
}
