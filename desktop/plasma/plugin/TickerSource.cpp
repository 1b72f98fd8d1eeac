#include "TickerSource.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QQmlExtensionPlugin>
#include <QtQml>

namespace {
const QString service = QStringLiteral("org.larkpin.Ticker1");
const QString path = QStringLiteral("/org/larkpin/Ticker");
const QString iface = QStringLiteral("org.larkpin.Ticker1");
const QString propsIface = QStringLiteral("org.freedesktop.DBus.Properties");

// Maps inside maps arrive still marshalled.
QVariant plain(const QVariant &v)
{
    if (v.userType() == qMetaTypeId<QDBusVariant>())
        return plain(v.value<QDBusVariant>().variant());
    if (v.userType() == qMetaTypeId<QDBusArgument>()) {
        const QDBusArgument arg = v.value<QDBusArgument>();
        if (arg.currentType() != QDBusArgument::MapType)
            return {};
        QVariantMap m = qdbus_cast<QVariantMap>(arg);
        for (auto it = m.begin(); it != m.end(); ++it)
            *it = plain(*it);
        return m;
    }
    return v;
}
} // namespace

TickerSource::TickerSource(QObject *parent)
    : QObject(parent), watcher_(service, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForOwnerChange)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(service, path, propsIface, QStringLiteral("PropertiesChanged"), this,
                SLOT(propertiesChanged(QString, QVariantMap, QStringList)));
    connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &owner) {
                vanished();
                if (!owner.isEmpty())
                    appeared();
            });
    if (bus.isConnected() && bus.interface()->isServiceRegistered(service).value())
        appeared();
}

TickerSource::~TickerSource()
{
    if (available_ && attach_)
        call(QStringLiteral("Detach"), {});
}

void TickerSource::appeared()
{
    const quint64 generation = ++generation_;
    QDBusMessage getAll = QDBusMessage::createMethodCall(service, path, propsIface, QStringLiteral("GetAll"));
    getAll << iface;
    auto *pending = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(getAll), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this, generation](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        const QDBusMessage reply = w->reply();
        if (generation != generation_ || reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
            return;
        merge(plain(reply.arguments().first()).toMap());
        available_ = true;
        Q_EMIT availableChanged();
        if (attach_)
            call(QStringLiteral("Attach"), {});
    });
}

void TickerSource::vanished()
{
    ++generation_;
    if (!available_)
        return;
    available_ = false;
    Q_EMIT availableChanged();
}

void TickerSource::propertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &)
{
    if (interface != iface || !available_)
        return;
    QVariantMap m;
    for (auto it = changed.cbegin(); it != changed.cend(); ++it)
        m.insert(it.key(), plain(it.value()));
    merge(m);
}

void TickerSource::merge(const QVariantMap &changed)
{
    bool row = false, takeover = false, link = false, counts = false, paused = false, status = false,
         accents = false;
    for (auto it = changed.cbegin(); it != changed.cend(); ++it) {
        if (props_.value(it.key()) == it.value())
            continue;
        props_.insert(it.key(), it.value());
        const QString &k = it.key();
        row |= k == QLatin1String("Row");
        takeover |= k == QLatin1String("Takeover") || k == QLatin1String("TakeoverRemainingMs");
        link |= k == QLatin1String("Link");
        counts |= k == QLatin1String("Counts");
        paused |= k == QLatin1String("Paused");
        status |= k == QLatin1String("Status");
        accents |= k == QLatin1String("Accents");
    }
    if (link)
        Q_EMIT linkChanged();
    if (counts)
        Q_EMIT countsChanged();
    if (paused)
        Q_EMIT pausedChanged();
    if (status)
        Q_EMIT statusChanged();
    if (accents)
        Q_EMIT accentsChanged();
    if (row)
        Q_EMIT rowChanged();
    if (takeover)
        Q_EMIT takeoverChanged();
}

void TickerSource::setAttach(bool attach)
{
    if (attach_ == attach)
        return;
    attach_ = attach;
    if (available_)
        call(attach ? QStringLiteral("Attach") : QStringLiteral("Detach"), {});
    Q_EMIT attachChanged();
}

void TickerSource::call(const QString &method, const QVariantList &args)
{
    QDBusMessage m = QDBusMessage::createMethodCall(service, path, iface, method);
    m.setArguments(args);
    m.setAutoStartService(false);
    QDBusConnection::sessionBus().asyncCall(m);
}

void TickerSource::togglePanel(int x, int y, int width, int height)
{
    call(QStringLiteral("TogglePanel"), {x, y, width, height});
}

void TickerSource::showMenu(int x, int y)
{
    call(QStringLiteral("ShowMenu"), {x, y});
}

void TickerSource::setPaused(bool paused)
{
    call(QStringLiteral("SetPaused"), {paused});
}

class TickerPlugin : public QQmlExtensionPlugin {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QQmlExtensionInterface_iid)
public:
    void registerTypes(const char *uri) override
    {
        qmlRegisterType<TickerSource>(uri, 1, 0, "TickerSource");
    }
};

#include "TickerSource.moc"
