#include "Feed/WakeWatch.h"

#include <QDBusConnection>
#include <QNetworkInformation>

WakeWatch::WakeWatch(int sources, QObject *parent) : QObject(parent)
{
    if (sources & SystemBus) {
        QDBusConnection bus = QDBusConnection::systemBus();
        if (bus.isConnected())
            watchesSleep_ = bus.connect(QStringLiteral("org.freedesktop.login1"),
                                        QStringLiteral("/org/freedesktop/login1"),
                                        QStringLiteral("org.freedesktop.login1.Manager"),
                                        QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
    }
    if (sources & NetworkInformation) {
        if (QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability)) {
            QNetworkInformation *info = QNetworkInformation::instance();
            lastReachability_ = int(info->reachability());
            connect(info, &QNetworkInformation::reachabilityChanged, this,
                    [this](QNetworkInformation::Reachability r) { reachabilityChanged(int(r)); });
            connect(info, &QNetworkInformation::transportMediumChanged, this, &WakeWatch::transportChanged);
            watchesNetwork_ = true;
        }
    }
}

void WakeWatch::prepareForSleep(bool sleeping)
{
    if (sleeping)
        Q_EMIT this->sleeping();
    else
        Q_EMIT woke(QStringLiteral("resumed from sleep"));
}

void WakeWatch::reachabilityChanged(int reachability)
{
    const int before = lastReachability_;
    lastReachability_ = reachability;
    const int online = int(QNetworkInformation::Reachability::Online);
    if (reachability == online && before != online)
        Q_EMIT woke(QStringLiteral("network is back"));
}

void WakeWatch::transportChanged()
{
    // A switch from one Wi-Fi to another, or to a cable, leaves sockets that
    // look open but lead nowhere.
    if (lastReachability_ == int(QNetworkInformation::Reachability::Online))
        Q_EMIT woke(QStringLiteral("network changed"));
}
