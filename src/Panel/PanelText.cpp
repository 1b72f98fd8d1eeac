#include "Panel/PanelText.h"

#include "Support/Format.h"


#include <algorithm>
#include <cmath>

namespace PanelText {

QString chipLabel(const FeedFilter &filter)
{
    if (filter.isAll())
        return QStringLiteral("ALL");
    return SignalKinds::label(*filter.kind);
}

QString linkLabel(LinkState link, std::optional<double> lastUpdate, double now)
{
    switch (link) {
    case LinkState::connecting: return QStringLiteral("LINKING");
    case LinkState::live:
        if (lastUpdate)
            return QStringLiteral("LIVE \u00B7 ") + Format::relative(*lastUpdate, now);
        return QStringLiteral("LIVE");
    case LinkState::polling: return QStringLiteral("POLLING");
    case LinkState::down: return QStringLiteral("OFFLINE");
    }
    return {};
}

Theme::Rgba linkDotColour(LinkState link)
{
    switch (link) {
    case LinkState::live: return Theme::emerald;
    case LinkState::connecting:
    case LinkState::polling: return Theme::amber;
    case LinkState::down: return Theme::alert;
    }
    return Theme::amber;
}

bool linkDotAlive(LinkState link)
{
    return link == LinkState::live;
}

QString linkSymbol(LinkState link)
{
    switch (link) {
    case LinkState::connecting: return QStringLiteral("antenna.radiowaves.left.and.right");
    case LinkState::down: return QStringLiteral("antenna.radiowaves.left.and.right.slash");
    case LinkState::live:
    case LinkState::polling: return QStringLiteral("wave.3.right");
    }
    return QStringLiteral("wave.3.right");
}

EmptyState emptyState(bool visibleSignalsEmpty, LinkState link)
{
    EmptyState state{linkSymbol(link), {}};
    if (!visibleSignalsEmpty)
        state.message = QStringLiteral("Nothing in this stream right now.");
    else if (link == LinkState::connecting)
        state.message = QStringLiteral("Connecting to the tape\u2026");
    else if (link == LinkState::down)
        state.message = QStringLiteral("Can't reach the tape right now.");
    else
        state.message = QStringLiteral("Nothing on the wire right now.");
    return state;
}

EmptyState emptyState(bool visibleSignalsEmpty, LinkState link, const LinkTrouble &trouble,
                      const QString &bundledService)
{
    EmptyState state = emptyState(visibleSignalsEmpty, link);
    if (!visibleSignalsEmpty)
        return state;
    switch (trouble.kind) {
    case LinkTrouble::none: break;
    case LinkTrouble::unreachable:
        state.symbol = linkSymbol(LinkState::down);
        state.message = QStringLiteral("Can't reach the tape service at ") + trouble.where + QLatin1Char('.');
        // Starting the bundled service helps only when the app looks for one on this machine.
        if (!bundledService.isEmpty() && (trouble.where.startsWith(QLatin1String("127.")) ||
                                          trouble.where.startsWith(QLatin1String("localhost:"))))
            state.message += QStringLiteral("\nStart the bundled one: ") + bundledService;
        break;
    case LinkTrouble::unverified:
        state.symbol = linkSymbol(LinkState::down);
        state.message = QStringLiteral("Can't verify the identity of the tape service at ") + trouble.where +
                        QStringLiteral(".\n") + trouble.why.left(1).toUpper() + trouble.why.mid(1) +
                        QStringLiteral(": the link stays closed.");
        break;
    }
    return state;
}

QString flowRate(double fillsPerMinute)
{
    return Format::fixed(fillsPerMinute, 1) + QStringLiteral("/m");
}

QString buyText(double buyShare)
{
    return QStringLiteral("BUY ") + Format::fixed(buyShare * 100, 0) + QStringLiteral("%");
}

QString sellText(double buyShare)
{
    return QStringLiteral("SELL ") + Format::fixed((1 - buyShare) * 100, 0) + QStringLiteral("%");
}

QStringList counters(const Telemetry &telemetry, LinkState link, double now)
{
    QStringList out;
    if (telemetry.latencyMs && std::isfinite(*telemetry.latencyMs))
        out << QStringLiteral("RTT ") + Format::fixed(std::round(*telemetry.latencyMs), 0) +
                   QStringLiteral("ms");
    if (telemetry.lastFrameAt && link == LinkState::live) {
        // The panel's clock ticks every 3 s, so a frame can be newer than
        // "now": that is a fresh tape, not one from the future.
        const double age = now - *telemetry.lastFrameAt;
        // The age formatter stops the program on values it cannot print; a
        // clock that went mad must not take the panel with it.
        if (std::isfinite(age) && std::abs(age) < 1e15)
            out << QStringLiteral("TAPE ") + Format::age(std::max(0.0, age));
    }
    out << QString::number(telemetry.visible) + QStringLiteral(" shown");
    out << QString::number(telemetry.held) + QStringLiteral(" held");
    return out;
}

QString money(double value)
{
    if (value >= 1'000'000)
        return QStringLiteral("$") + QString::number(qint64(std::trunc(value / 1'000'000))) +
               QStringLiteral("M");
    if (value >= 1000)
        return QStringLiteral("$") + QString::number(qint64(std::trunc(value / 1000))) + QStringLiteral("K");
    return QStringLiteral("$") + QString::number(qint64(std::trunc(value)));
}

QString minimumSizeLabel(double value)
{
    return value == 0 ? QStringLiteral("Any") : money(value);
}

QString focusLabel(double value)
{
    return value == 0 ? QStringLiteral("Off") : money(value);
}

const QList<double> &minimumSizeValues()
{
    static const QList<double> values{0, 500, 1000, 5000, 25000};
    return values;
}

const QList<double> &focusValues()
{
    static const QList<double> values{0, 10000, 25000, 100000};
    return values;
}

QString versionText(const QString &version)
{
    return QStringLiteral("Version ") + (version.trimmed().isEmpty() ? QStringLiteral("\u2014") : version);
}

QString pauseSymbol(bool paused)
{
    return paused ? QStringLiteral("play.fill") : QStringLiteral("pause.fill");
}

QString pauseHelp(bool paused)
{
    return paused ? QStringLiteral("Resume ticker") : QStringLiteral("Pause ticker");
}

QString winRatePercent(double winRate)
{
    return Format::fixed(winRate * 100, 0) + QStringLiteral("%");
}

QString metaText(const Signal &signal, double now)
{
    if (signal.wallet && signal.wallet->winRate && std::isfinite(*signal.wallet->winRate))
        return winRatePercent(*signal.wallet->winRate) + QStringLiteral(" WR");
    return Format::relative(signal.createdAt, now);
}

InspectorState inspectorState(const QString &id, const QHash<QString, SignalDetail> &details,
                              const QSet<QString> &failed)
{
    const auto it = details.constFind(id);
    if (it != details.constEnd())
        return it->isBlank() ? InspectorState::blank : InspectorState::details;
    if (failed.contains(id))
        return InspectorState::failed;
    return InspectorState::loading;
}

QString inspectorStateName(InspectorState state)
{
    switch (state) {
    case InspectorState::details: return QStringLiteral("details");
    case InspectorState::blank: return QStringLiteral("blank");
    case InspectorState::failed: return QStringLiteral("failed");
    case InspectorState::loading: return QStringLiteral("loading");
    }
    return QStringLiteral("loading");
}

QString sessionText(MarketSession session)
{
    switch (session) {
    case MarketSession::pre: return QStringLiteral("Pre-market");
    case MarketSession::regular: return QStringLiteral("Regular hours");
    case MarketSession::post: return QStringLiteral("After hours");
    }
    return {};
}

QString sideText(TradeSide side)
{
    return side == TradeSide::buy ? QStringLiteral("BUY") : QStringLiteral("SELL");
}

QString buysSellsText(std::optional<qint64> buys, std::optional<qint64> sells)
{
    const auto text = [](std::optional<qint64> n) { return n ? QString::number(*n) : dash(); };
    return text(buys) + QStringLiteral(" buys / ") + text(sells) + QStringLiteral(" sells");
}

namespace {
bool breaksLine(QChar c)
{
    switch (c.unicode()) {
    case '\t':
    case '\n':
    case '\v':
    case '\f':
    case '\r':
    case 0x85:
    case 0x2028:
    case 0x2029: return true;
    default: return false;
    }
}
} // namespace

HeadlineRuns headlineRuns(const QString &shown, const QString &ticker)
{
    if (shown.startsWith(ticker))
        return {ticker, shown.mid(ticker.size())};
    // Cut inside the ticker: its kept start, then the ellipsis that replaced the rest.
    qsizetype kept = 0;
    while (kept < shown.size() && kept < ticker.size() && shown.at(kept) == ticker.at(kept))
        ++kept;
    const qsizetype end = std::min(shown.size(), kept + 1);
    return {shown.left(end), shown.mid(end)};
}

QString oneLine(const QString &text)
{
    if (std::none_of(text.cbegin(), text.cend(), breaksLine))
        return text;
    QString out;
    out.reserve(text.size());
    bool gap = false;
    for (const QChar c : text) {
        if (breaksLine(c)) {
            gap = true;
            continue;
        }
        if (gap && !out.isEmpty() && !out.endsWith(QLatin1Char(' ')) && c != QLatin1Char(' '))
            out += QLatin1Char(' ');
        gap = false;
        out += c;
    }
    return out;
}

bool isOpenableUrl(const QUrl &url)
{
    if (!url.isValid() || url.host().isEmpty())
        return false;
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("http") || scheme == QLatin1String("https");
}

QList<QPointF> sparkPoints(const QList<double> &values, double width, double height, bool closed)
{
    QList<QPointF> points;
    if (values.size() < 2)
        return points;
    double lo = values.first(), hi = values.first();
    for (double v : values) {
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
    const double span = hi == lo ? 1.0 : hi - lo;
    const double step = width / double(values.size() - 1);
    for (int i = 0; i < values.size(); ++i) {
        const double y = height - (values.at(i) - lo) / span * height;
        points << QPointF(step * i, std::isfinite(y) ? y : height);
    }
    if (closed) {
        points << QPointF(width, height) << QPointF(0, height) << points.first();
    }
    return points;
}

} // namespace PanelText
