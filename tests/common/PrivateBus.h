#pragma once
// A private session bus that activates nothing: a desktop's services installed
// on the machine (a notification daemon, say) would otherwise start on it and
// take the names a test stands in for. The daemon looks for services under
// XDG_DATA_HOME and XDG_DATA_DIRS; both point at an empty folder here.

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

inline void startPrivateBus(QProcess &daemon, const QTemporaryDir &empty)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), empty.path());
    env.insert(QStringLiteral("XDG_DATA_DIRS"), empty.path());
    daemon.setProcessEnvironment(env);
    daemon.start(QStringLiteral("dbus-daemon"),
                 {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address")});
}
