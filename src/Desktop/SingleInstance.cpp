#include "Desktop/SingleInstance.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

#include <unistd.h>

// The object a running instance exports; its two methods are the whole remote
// interface (org.larkpin.Larkpin.Open / .Quit).
class InstanceBusAdaptor : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.larkpin.Larkpin")
public:
    explicit InstanceBusAdaptor(SingleInstance *owner) : QObject(owner), owner_(owner) {}
public Q_SLOTS:
    Q_SCRIPTABLE void Open() { owner_->deliver(SingleInstance::Request::Open); }
    Q_SCRIPTABLE void Quit() { owner_->deliver(SingleInstance::Request::Quit); }

private:
    SingleInstance *owner_;
};

namespace {
constexpr int callTimeoutMs = 1000;

QString normalisedX11Display(QString display)
{
    // ":0" and ":0.0" are the same display; only the screen differs.
    const int colon = display.lastIndexOf(QLatin1Char(':'));
    const int dot = display.indexOf(QLatin1Char('.'), colon < 0 ? 0 : colon);
    if (colon >= 0 && dot > colon)
        display.truncate(dot);
    return display;
}
} // namespace

SingleInstance::SingleInstance(const QProcessEnvironment &env, QObject *parent)
    : QObject(parent),
      key_(sessionKey(env, QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)))
{
}

SingleInstance::~SingleInstance()
{
    if (transport_ == QLatin1String("dbus")) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterObject(objectPath());
        bus.unregisterService(busName());
    }
}

QString SingleInstance::sessionKey(const QProcessEnvironment &env, const QString &configDir)
{
    const QString seed = QStringLiteral("x11=") + normalisedX11Display(env.value(QStringLiteral("DISPLAY"))) +
                         QStringLiteral(";wayland=") + env.value(QStringLiteral("WAYLAND_DISPLAY")) +
                         QStringLiteral(";config=") + configDir;
    return QString::fromLatin1(
        QCryptographicHash::hash(seed.toUtf8(), QCryptographicHash::Sha1).toHex().left(12));
}

QString SingleInstance::busName() const
{
    return QStringLiteral("org.larkpin.Larkpin.s") + key_;
}

QString SingleInstance::socketName() const
{
    return QStringLiteral("larkpin-") + QString::number(::getuid()) + QLatin1Char('-') + key_;
}

bool SingleInstance::send(Request request) const
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return sendOverSocket(request);
    QDBusMessage call = QDBusMessage::createMethodCall(busName(), objectPath(), interfaceName(),
                                                       request == Request::Open ? QStringLiteral("Open")
                                                                                : QStringLiteral("Quit"));
    // Never start anything: only a running instance may answer.
    call.setAutoStartService(false);
    const QDBusMessage reply = bus.call(call, QDBus::Block, callTimeoutMs);
    return reply.type() == QDBusMessage::ReplyMessage;
}

bool SingleInstance::sendOverSocket(Request request) const
{
    QLocalSocket socket;
    socket.connectToServer(socketName());
    if (!socket.waitForConnected(300))
        return false;
    socket.write(request == Request::Open ? "open\n" : "quit\n");
    socket.waitForBytesWritten(300);
    socket.disconnectFromServer();
    return true;
}

bool SingleInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return claimSocket();
    if (!bus.interface()->isServiceRegistered(busName()).value()) {
        adaptor_ = new InstanceBusAdaptor(this);
        if (bus.registerObject(objectPath(), adaptor_, QDBusConnection::ExportScriptableSlots) &&
            bus.registerService(busName())) {
            transport_ = QStringLiteral("dbus");
            return true;
        }
        bus.unregisterObject(objectPath());
        delete adaptor_;
        adaptor_ = nullptr;
    }
    return false;
}

bool SingleInstance::claimSocket()
{
    // A live server accepts; a dead one left only its file behind.
    {
        QLocalSocket probe;
        probe.connectToServer(socketName());
        if (probe.waitForConnected(300))
            return false;
    }
    QLocalServer::removeServer(socketName());
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(socketName()))
        return false;
    transport_ = QStringLiteral("socket");
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *peer = server_->nextPendingConnection()) {
            connect(peer, &QLocalSocket::readyRead, this, [this, peer] {
                const QByteArray line = peer->read(16); // a request is one short word
                if (line.startsWith("open"))
                    deliver(Request::Open);
                else if (line.startsWith("quit"))
                    deliver(Request::Quit);
                peer->disconnectFromServer();
            });
            connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
        }
    });
    return true;
}

void SingleInstance::deliver(Request request)
{
    const auto &handler = request == Request::Open ? onOpen : onQuit;
    if (handler)
        handler();
}

#include "SingleInstance.moc"
