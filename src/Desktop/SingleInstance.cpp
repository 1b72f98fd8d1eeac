#include "Desktop/SingleInstance.h"

#include "Support/Log.h"

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

#include <cerrno>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
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

namespace {
// A folder we own, that is no link, and that no one else may enter.
bool isPrivate(const QByteArray &path)
{
    struct stat st {};
    return ::lstat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() &&
           (st.st_mode & 077) == 0;
}
} // namespace

QString SingleInstance::privateFolder()
{
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && isPrivate(runtime))
        return QString::fromLocal8Bit(runtime);
    const QByteArray own =
        QFile::encodeName(QDir::tempPath() + QStringLiteral("/larkpin-") + QString::number(::getuid()));
    if (::mkdir(own.constData(), 0700) != 0 && errno != EEXIST)
        return {};
    return isPrivate(own) ? QFile::decodeName(own) : QString();
}

long SingleInstance::peerUid(qintptr socketDescriptor)
{
    struct ucred cred {};
    socklen_t length = sizeof cred;
    if (socketDescriptor < 0 ||
        ::getsockopt(int(socketDescriptor), SOL_SOCKET, SO_PEERCRED, &cred, &length) != 0)
        return -1;
    return long(cred.uid);
}

QString SingleInstance::socketName() const
{
    const QString folder = privateFolder();
    return folder.isEmpty() ? QString() : folder + QStringLiteral("/larkpin-") + key_;
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
    const QString name = socketName();
    if (name.isEmpty())
        return false;
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(300))
        return false;
    // Only an instance of ours may take the request.
    if (peerUid(socket.socketDescriptor()) != long(::getuid()))
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
    const QString name = socketName();
    if (name.isEmpty()) {
        // Better two instances than none: this one runs, unreachable.
        Log::warning(lcApp(), QStringLiteral("no private folder for the instance socket (") +
                                  QDir::tempPath() + QStringLiteral("/larkpin-") +
                                  QString::number(::getuid()) +
                                  QStringLiteral(" is not ours alone); running without it"));
        transport_ = QStringLiteral("none");
        return true;
    }
    // A live server accepts; a dead one left only its file behind.
    {
        QLocalSocket probe;
        probe.connectToServer(name);
        if (probe.waitForConnected(300))
            return false;
    }
    QLocalServer::removeServer(name);
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(name))
        return false;
    transport_ = QStringLiteral("socket");
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *peer = server_->nextPendingConnection()) {
            if (peerUid(peer->socketDescriptor()) != long(::getuid())) {
                peer->abort(); // another user: not a word is read
                peer->deleteLater();
                continue;
            }
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
