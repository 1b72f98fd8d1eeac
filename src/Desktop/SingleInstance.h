#pragma once
// One instance per graphical session. The running instance owns a name on the
// D-Bus session bus (so a launcher or a second launch can reach it); without a
// session bus it listens on a local socket instead. Both are keyed by the
// display and the settings folder: a launch on another display of the same
// user, or a test with its own XDG_CONFIG_HOME, gets an instance of its own.

#include <QObject>
#include <QProcessEnvironment>
#include <QString>

#include <functional>

class QLocalServer;
class InstanceBusAdaptor;

class SingleInstance : public QObject {
    Q_OBJECT
public:
    enum class Request { Open, Quit };

    explicit SingleInstance(const QProcessEnvironment &env, QObject *parent = nullptr);
    ~SingleInstance() override;

    // The session key: a short hash of the displays and the settings folder.
    static QString sessionKey(const QProcessEnvironment &env, const QString &configDir);
    QString busName() const;    // org.larkpin.Larkpin.s<key>
    QString socketName() const; // larkpin-<uid>-<key>
    static QString objectPath() { return QStringLiteral("/org/larkpin/Larkpin"); }
    static QString interfaceName() { return QStringLiteral("org.larkpin.Larkpin"); }

    // Client side: true when a running instance took the request.
    bool send(Request request) const;

    // Server side: claims the name (or the socket). False when another
    // instance got there first; send() then reaches it.
    bool claim();
    // "dbus" or "socket" once claimed, for logs and tests.
    QString transport() const { return transport_; }

    std::function<void()> onOpen;
    std::function<void()> onQuit;

private:
    friend class InstanceBusAdaptor;
    void deliver(Request request);
    bool sendOverSocket(Request request) const;
    bool claimSocket();

    QString key_;
    QString transport_;
    QLocalServer *server_ = nullptr;
    InstanceBusAdaptor *adaptor_ = nullptr;
};
