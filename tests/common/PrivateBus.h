#pragma once
// A private session bus that activates nothing: a desktop's services installed
// on the machine (a notification daemon, say) would otherwise start on it and
// take the names a test stands in for. The daemon looks for services under
// XDG_DATA_HOME and XDG_DATA_DIRS; both point at an empty folder here.

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

class PrivateBus {
public:
    // Starts the daemon and waits for its address as long as a loaded machine
    // may need. False only where dbus-daemon cannot be started at all (the
    // caller skips); a daemon that never says its address leaves `address`
    // empty, which the caller checks.
    bool start()
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_DATA_HOME"), empty_.path());
        env.insert(QStringLiteral("XDG_DATA_DIRS"), empty_.path());
        daemon_.setProcessEnvironment(env);
        daemon_.start(QStringLiteral("dbus-daemon"),
                      {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address")});
        if (!daemon_.waitForStarted(patience))
            return false;
        if (QTest::qWaitFor([&] { return daemon_.canReadLine(); }, patience))
            address = QString::fromUtf8(daemon_.readLine()).trimmed();
        return true;
    }
    ~PrivateBus()
    {
        daemon_.terminate();
        daemon_.waitForFinished(patience);
    }

    static constexpr int patience = 60000;
    QString address;

private:
    QTemporaryDir empty_; // outlives the daemon that looks into it
    QProcess daemon_;
};
