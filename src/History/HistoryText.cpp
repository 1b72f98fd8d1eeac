#include "History/HistoryText.h"

#include "Support/WireText.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace HistoryText {

std::optional<double> parseDuration(const QString &text)
{
    static const QRegularExpression whole(QStringLiteral("^(?:[0-9]{1,6}[smhdw])+$"));
    static const QRegularExpression part(QStringLiteral("([0-9]{1,6})([smhdw])"));
    const QString t = text.trimmed().toLower();
    if (!whole.match(t).hasMatch())
        return std::nullopt;
    double seconds = 0;
    for (auto it = part.globalMatch(t); it.hasNext();) {
        const auto m = it.next();
        const double n = m.captured(1).toDouble();
        switch (m.captured(2).front().toLatin1()) {
        case 's': seconds += n; break;
        case 'm': seconds += n * 60; break;
        case 'h': seconds += n * 3600; break;
        case 'd': seconds += n * 86400; break;
        case 'w': seconds += n * 7 * 86400; break;
        }
    }
    if (seconds <= 0 || seconds > 366.0 * 86400)
        return std::nullopt;
    return seconds;
}

namespace {
QString cleaned(const QString &s)
{
    return WireText::clean(s.left(WireText::maxLength));
}

QString handleOf(const Signal &s)
{
    if (!s.wallet || !s.wallet->label)
        return {};
    return cleaned(*s.wallet->label);
}
} // namespace

QString line(const HistoryEntry &entry)
{
    const Signal &s = entry.signal;
    const QString when = QDateTime::fromMSecsSinceEpoch(qint64(s.createdAt * 1000))
                             .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    QString out = when + QStringLiteral("  ") + SignalKinds::label(s.kind).leftJustified(5) + QStringLiteral("  ") +
                  cleaned(s.line.ticker) + QStringLiteral(" · ") + cleaned(s.line.body);
    if (s.line.figure)
        out += QStringLiteral("  ") + cleaned(*s.line.figure);
    out += QStringLiteral("  ") + cleaned(s.id);
    return out;
}

QString json(const HistoryEntry &entry)
{
    const Signal &s = entry.signal;
    QJsonObject o;
    o.insert(QStringLiteral("id"), cleaned(s.id));
    o.insert(QStringLiteral("kind"), SignalKinds::rawValue(s.kind));
    o.insert(QStringLiteral("time"), s.createdAt);
    o.insert(QStringLiteral("at"), QDateTime::fromMSecsSinceEpoch(qint64(s.createdAt * 1000), Qt::UTC)
                                       .toString(Qt::ISODate));
    if (s.asset)
        o.insert(QStringLiteral("symbol"), cleaned(s.asset->symbol));
    const QString handle = handleOf(s);
    if (!handle.isEmpty())
        o.insert(QStringLiteral("handle"), handle);
    if (s.notionalUsd)
        o.insert(QStringLiteral("usd"), *s.notionalUsd);
    o.insert(QStringLiteral("ticker"), cleaned(s.line.ticker));
    o.insert(QStringLiteral("body"), cleaned(s.line.body));
    if (s.line.figure)
        o.insert(QStringLiteral("figure"), cleaned(*s.line.figure));
    if (s.line.tag)
        o.insert(QStringLiteral("tag"), cleaned(*s.line.tag));
    if (entry.chart)
        o.insert(QStringLiteral("chart"), entry.chart->toString(QUrl::FullyEncoded));
    if (entry.profile)
        o.insert(QStringLiteral("profile"), entry.profile->toString(QUrl::FullyEncoded));
    return QString::fromUtf8(QJsonDocument(o).toJson(QJsonDocument::Compact));
}

} // namespace HistoryText
