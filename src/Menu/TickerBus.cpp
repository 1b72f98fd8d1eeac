#include "Menu/TickerBus.h"

#include "Feed/FeedStore.h"
#include "Look/Theme.h"
#include "Menu/FocalDirector.h"
#include "Menu/StatusItemController.h"
#include "Menu/StatusStreamView.h"
#include "Support/Log.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QScreen>

namespace {
// Requests carry screen coordinates; anything past this is not a screen.
constexpr int coordinateLimit = 1 << 20;

bool plausible(int x, int y, int w = 0, int h = 0)
{
    return std::abs(x) < coordinateLimit && std::abs(y) < coordinateLimit && w >= 0 && h >= 0 &&
           w < coordinateLimit && h < coordinateLimit;
}

QString hex(const Theme::Rgba &c)
{
    const auto byte = [](double v) { return qBound(0, int(v * 255.0 + 0.5), 255); };
    return QStringLiteral("#%1%2%3")
        .arg(byte(c.r), 2, 16, QLatin1Char('0'))
        .arg(byte(c.g), 2, 16, QLatin1Char('0'))
        .arg(byte(c.b), 2, 16, QLatin1Char('0'));
}

// The pieces take their colours from here, so the bar and the strip never
// disagree: the accent of each kind on a dark and on a light bar, and the ink
// that is written on a badge.
QVariantMap accents()
{
    QVariantMap m;
    for (SignalKind kind : SignalKinds::allCases) {
        m.insert(SignalKinds::rawValue(kind), hex(Theme::menuAccent(kind, true)));
        m.insert(SignalKinds::rawValue(kind) + QStringLiteral("-light"), hex(Theme::menuAccent(kind, false)));
    }
    m.insert(QStringLiteral("ink"), hex(Theme::abyss));
    m.insert(QStringLiteral("panel"), hex(Theme::plate));
    // The link dot: live, offline, anything in between.
    m.insert(QStringLiteral("link-live"), hex(Theme::emerald));
    m.insert(QStringLiteral("link-down"), hex(Theme::alert));
    m.insert(QStringLiteral("link-waiting"), hex(Theme::amber));
    return m;
}
} // namespace

// The exported face. Properties are read through org.freedesktop.DBus.Properties;
// the owner announces their changes.
class TickerBusAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.larkpin.Ticker1")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QVariantMap Row READ row)
    Q_PROPERTY(int RowIndex READ rowIndex)
    Q_PROPERTY(int RowCount READ rowCount)
    Q_PROPERTY(QVariantMap Takeover READ takeover)
    Q_PROPERTY(int TakeoverRemainingMs READ takeoverRemainingMs)
    Q_PROPERTY(QString Link READ link)
    Q_PROPERTY(QVariantMap Counts READ counts)
    Q_PROPERTY(bool Paused READ paused)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QVariantMap Accents READ accentMap)
    Q_PROPERTY(uint Attached READ attached)
public:
    explicit TickerBusAdaptor(TickerBus *owner) : QDBusAbstractAdaptor(owner), owner_(owner) {}

    uint version() const { return TickerBus::version; }
    QVariantMap row() const { return owner_->properties().value(QStringLiteral("Row")).toMap(); }
    int rowIndex() const { return owner_->state_.rowIndex; }
    int rowCount() const { return owner_->state_.rowCount; }
    QVariantMap takeover() const { return owner_->properties().value(QStringLiteral("Takeover")).toMap(); }
    int takeoverRemainingMs() const
    {
        return owner_->state_.takeover && owner_->takeoverRemainingMs ? owner_->takeoverRemainingMs() : 0;
    }
    QString link() const { return owner_->state_.link; }
    QVariantMap counts() const { return owner_->properties().value(QStringLiteral("Counts")).toMap(); }
    bool paused() const { return owner_->state_.paused; }
    QString status() const { return owner_->state_.status; }
    QVariantMap accentMap() const { return accents(); }
    uint attached() const { return uint(owner_->pieces_.size()); }

public Q_SLOTS:
    // A click on a piece: closes the panel when it is open, otherwise opens it
    // hanging from the given rectangle (the piece's own, in screen coordinates).
    void TogglePanel(int x, int y, int width, int height)
    {
        if (plausible(x, y, width, height) && owner_->onTogglePanel)
            owner_->onTogglePanel(QRect(x, y, width, height));
    }
    void OpenPanel(int x, int y, int width, int height)
    {
        if (plausible(x, y, width, height) && owner_->onOpenPanel)
            owner_->onOpenPanel(QRect(x, y, width, height));
    }
    void ShowMenu(int x, int y)
    {
        if (plausible(x, y) && owner_->onShowMenu)
            owner_->onShowMenu(QPoint(x, y));
    }
    void SetPaused(bool paused)
    {
        if (owner_->onSetPaused)
            owner_->onSetPaused(paused);
    }
    void Quit()
    {
        if (owner_->onQuit)
            owner_->onQuit();
    }
    // While the calling connection lives (or until Detach), the strip stays hidden.
    void Attach(const QDBusMessage &message) { owner_->attach(message.service()); }
    void Detach(const QDBusMessage &message) { owner_->detach(message.service()); }

private:
    TickerBus *owner_;
};

QVariantMap TickerRow::toMap() const
{
    QVariantMap m{{QStringLiteral("kind"), kind},           {QStringLiteral("symbol"), symbol},
                  {QStringLiteral("direction"), direction}, {QStringLiteral("amount"), amount},
                  {QStringLiteral("text"), text}};
    if (usd)
        m.insert(QStringLiteral("usd"), *usd);
    return m;
}

TickerRow TickerRow::of(const Signal &signal)
{
    TickerRow row;
    row.kind = SignalKinds::rawValue(signal.kind);
    row.symbol = signal.line.ticker;
    row.amount = signal.line.figure.value_or(QString());
    row.text = signal.line.body;
    row.usd = signal.notionalUsd;
    // The tag says the side: a fill's arrow, a pile-in's buyer count.
    const QString tag = signal.line.tag.value_or(QString());
    if (tag.startsWith(QChar(0x25BC)))
        row.direction = QStringLiteral("sell");
    else if (!tag.isEmpty())
        row.direction = QStringLiteral("buy");
    return row;
}

TickerBus::TickerBus(const QDBusConnection &bus, QObject *parent)
    : QObject(parent), bus_(bus), adaptor_(new TickerBusAdaptor(this))
{
    watcher_ = new QDBusServiceWatcher(this);
    watcher_->setConnection(bus_);
    watcher_->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(watcher_, &QDBusServiceWatcher::serviceUnregistered, this, &TickerBus::detach);
}

TickerBus::~TickerBus()
{
    if (published_) {
        bus_.unregisterObject(objectPath());
        bus_.unregisterService(serviceName());
    }
}

bool TickerBus::publish()
{
    if (published_)
        return true;
    if (!bus_.isConnected())
        return false;
    if (!bus_.registerObject(objectPath(), this, QDBusConnection::ExportAdaptors))
        return false;
    // Queued: another instance of the same bus (another display) that holds
    // the name hands it over when it ends.
    const auto reply = bus_.interface()->registerService(serviceName(), QDBusConnectionInterface::QueueService,
                                                         QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid()) {
        bus_.unregisterObject(objectPath());
        return false;
    }
    published_ = true;
    return true;
}

QVariantMap TickerBus::properties() const
{
    const TickerState &s = state_;
    QVariantMap takeover;
    if (s.takeover) {
        takeover = s.takeover->toMap();
        takeover.insert(QStringLiteral("holdMs"), s.holdMs);
    }
    return {{QStringLiteral("Row"), s.row.toMap()},
            {QStringLiteral("RowIndex"), s.rowIndex},
            {QStringLiteral("RowCount"), s.rowCount},
            {QStringLiteral("Takeover"), takeover},
            {QStringLiteral("Link"), s.link},
            {QStringLiteral("Counts"),
             QVariantMap{{QStringLiteral("whale"), s.whales},
                         {QStringLiteral("spike"), s.spikes},
                         {QStringLiteral("stocks"), s.stocks}}},
            {QStringLiteral("Paused"), s.paused},
            {QStringLiteral("Status"), s.status}};
}

void TickerBus::setState(const TickerState &state)
{
    if (state == state_)
        return;
    const QVariantMap before = properties();
    state_ = state;
    const QVariantMap after = properties();
    QVariantMap changed;
    for (auto it = after.cbegin(); it != after.cend(); ++it)
        if (before.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    // A takeover's start or replacement restarts its clock.
    if (changed.contains(QStringLiteral("Takeover")))
        changed.insert(QStringLiteral("TakeoverRemainingMs"), adaptor_->takeoverRemainingMs());
    if (!changed.isEmpty())
        emitChanged(changed);
}

void TickerBus::emitChanged(const QVariantMap &changed)
{
    if (!published_)
        return;
    QDBusMessage signal = QDBusMessage::createSignal(objectPath(), QStringLiteral("org.freedesktop.DBus.Properties"),
                                                     QStringLiteral("PropertiesChanged"));
    signal << interfaceName() << changed << QStringList();
    bus_.send(signal);
}

void TickerBus::attach(const QString &peer)
{
    if (peer.isEmpty() || pieces_.contains(peer))
        return;
    if (pieces_.size() >= maxPieces) {
        Log::write("Larkpin", QStringLiteral("too many bar pieces attached; ignoring ") + peer);
        return;
    }
    pieces_.insert(peer);
    watcher_->addWatchedService(peer);
    // The name may have gone between the call and the watch.
    if (!bus_.interface()->isServiceRegistered(peer).value()) {
        detach(peer);
        return;
    }
    Log::write("Larkpin", QStringLiteral("a bar piece attached (") + peer + QLatin1Char(')'));
    emitChanged({{QStringLiteral("Attached"), uint(pieces_.size())}});
    if (pieces_.size() == 1)
        Q_EMIT attachedChanged(true);
}

void TickerBus::detach(const QString &peer)
{
    if (!pieces_.remove(peer))
        return;
    watcher_->removeWatchedService(peer);
    Log::write("Larkpin", QStringLiteral("a bar piece went away (") + peer + QLatin1Char(')'));
    emitChanged({{QStringLiteral("Attached"), uint(pieces_.size())}});
    if (pieces_.isEmpty())
        Q_EMIT attachedChanged(false);
}

TickerState TickerBus::stateOf(const StatusItemController &item, const FeedStore &store)
{
    TickerState s;
    const QList<Signal> ticker = store.tickerSignals();
    const StatusStreamView *view = item.view();
    s.rowCount = int(ticker.size());
    // The view holds the index of the row on screen; the store the signal behind it.
    s.rowIndex = view && view->index() < ticker.size() ? view->index() : 0;
    if (!ticker.isEmpty())
        s.row = TickerRow::of(ticker.at(s.rowIndex));
    if (const auto &focal = item.focalDirector()->current()) {
        s.takeover = TickerRow::of(*focal);
        s.holdMs = FocalDirector::holdMs;
    }
    s.link = LinkStates::caseName(store.link());
    s.whales = store.count(FeedFilter::of(SignalKind::whale));
    s.spikes = store.count(FeedFilter::of(SignalKind::spike));
    s.stocks = store.count(FeedFilter::of(SignalKind::stocks));
    s.paused = store.preferences().paused;
    s.status = StatusItemController::statusLine(store.link(), s.whales, s.spikes, s.stocks);
    return s;
}

void TickerBus::follow(StatusItemController *item, FeedStore *store)
{
    const auto refresh = [this, item, store] { setState(stateOf(*item, *store)); };
    connect(store, &FeedStore::signalsChanged, this, refresh);
    connect(store, &FeedStore::linkChanged, this, refresh);
    connect(store, &FeedStore::preferencesChanged, this, refresh);
    connect(item->view(), &StatusStreamView::flipped, this, refresh);
    connect(item, &StatusItemController::focalChanged, this, refresh);
    takeoverRemainingMs = [item] { return item->focalDirector()->remainingMs(); };
    connect(this, &TickerBus::attachedChanged, item, &StatusItemController::setBarPieceAttached);
    onShowMenu = [item](const QPoint &at) { item->handleClick(Qt::RightButton, at); };
    onSetPaused = [store](bool paused) {
        Preferences p = store->preferences();
        if (p.paused == paused)
            return;
        p.paused = paused;
        store->updatePreferences(p);
    };
    refresh();
}

#include "TickerBus.moc"
