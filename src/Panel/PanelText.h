#pragma once
// Every text and small decision the panel shows, as pure functions so that
// they are tested in C++ and the QML only binds to their results.

#include "Feed/LinkState.h"
#include "Wire/Telemetry.h"
#include "Model/Signal.h"
#include "Look/Theme.h"

#include <QHash>
#include <QPointF>
#include <QSet>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace PanelText {

// Filter chips: "ALL", "WHALE", "SPIKE", "STOCK".
QString chipLabel(const FeedFilter &filter);

// The link pill: "LINKING", "LIVE · 2m", "LIVE", "POLLING", "OFFLINE".
QString linkLabel(LinkState link, std::optional<double> lastUpdate, double now);
Theme::Rgba linkDotColour(LinkState link);
bool linkDotAlive(LinkState link);

// The empty state under the chips. The symbol always follows the link.
struct EmptyState {
    QString symbol;
    QString message;
    bool operator==(const EmptyState &) const = default;
};
QString linkSymbol(LinkState link);
EmptyState emptyState(bool visibleSignalsEmpty, LinkState link);
// The same, where a known cause of the failures (nothing answers at the
// address; the service cannot prove who it is) takes the place of the link's
// message while nothing is shown. `bundledService` is the path of the
// bundled tape service when it is installed, otherwise empty; it is offered
// only for an address on this machine.
EmptyState emptyState(bool visibleSignalsEmpty, LinkState link, const LinkTrouble &trouble,
                      const QString &bundledService = {});
inline constexpr char bundledServicePath[] = "/usr/libexec/larkpin/tarnwick-sim";

// Telemetry band.
QString flowRate(double fillsPerMinute); // "12.5/m"
QString buyText(double buyShare);        // "BUY 50%"
QString sellText(double buyShare);       // "SELL 50%"
QStringList counters(const Telemetry &telemetry, LinkState link, double now);
inline constexpr QChar counterSeparator{0x00B7};

// Settings chips.
QString money(double value);            // "$1M", "$25K", "$500"
QString minimumSizeLabel(double value); // 0 -> "Any"
QString focusLabel(double value);       // 0 -> "Off"
const QList<double> &minimumSizeValues();
const QList<double> &focusValues();
QString versionText(const QString &version); // "Version 0.1.0", "Version —"

// Command rail.
QString pauseSymbol(bool paused);
QString pauseHelp(bool paused);

// A stream row's meta column: "62% WR" when the wallet's win rate is known,
// else the signal's age.
QString metaText(const Signal &signal, double now);
QString winRatePercent(double winRate); // "62%"

// Which body the inspector shows for a signal.
enum class InspectorState { details, blank, failed, loading };
InspectorState inspectorState(const QString &id, const QHash<QString, SignalDetail> &details,
                              const QSet<QString> &failed);
QString inspectorStateName(InspectorState state);

QString sessionText(MarketSession session);
QString sideText(TradeSide side);
QString buysSellsText(std::optional<qint64> buys, std::optional<qint64> sells);
inline QString dash()
{
    return QStringLiteral("-");
}

// Wire text for a place that holds one line: every run of line or paragraph
// breaks (and tabs) becomes a single space, none at either end.
QString oneLine(const QString &text);

// A stream row's headline is the ticker, a space and the body, elided in the
// middle as one text so the ticker's start and the body's end stay visible;
// it is drawn as two runs in two styles. `shown` is that elided text: the
// ticker's run is what survived of the ticker, with the ellipsis when the cut
// fell inside it; the body's run is the rest. (The ticker may carry an
// ellipsis of its own: where the cut is is told by where `shown` leaves the
// ticker, not by the first ellipsis.)
struct HeadlineRuns {
    QString ticker;
    QString body;
    bool operator==(const HeadlineRuns &) const = default;
};
HeadlineRuns headlineRuns(const QString &shown, const QString &ticker);

// Links that came from the wire open only when they are web addresses.
bool isOpenableUrl(const QUrl &url);

// The sparkline's path: values spread evenly across the width, scaled between
// their minimum (bottom) and maximum (top); a flat series is a flat line.
// `closed` runs on to the bottom corners for a filled area. Fewer than two
// values give no points.
QList<QPointF> sparkPoints(const QList<double> &values, double width, double height, bool closed);


} // namespace PanelText
