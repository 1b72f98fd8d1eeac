#pragma once
// One instance per graphical session. The running instance owns a name on the
// D-Bus session bus (so a launcher or a second launch can reach it); without a
// session bus it listens on a local socket instead, in a folder only this user
// can enter (and each end checks the other's uid), so another user of the
// machine can neither take the name first nor send requests. Both are keyed by the
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
    // <private folder>/larkpin-<key>, or empty when no folder of ours is
    // private (the instance then runs without the fallback).
    QString socketName() const;
    // $XDG_RUNTIME_DIR when it is ours and closed to others (mode 0700), else
    // <temp>/larkpin-<uid>, made 0700 when missing; empty when neither can be
    // trusted (a folder of that name owned by someone else, or open to others).
    static QString privateFolder();
    // The uid at the other end of a connected local socket, or -1.
    static long peerUid(qintptr socketDescriptor);
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
