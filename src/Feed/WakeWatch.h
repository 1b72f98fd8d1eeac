#pragma once
// Tells the link when the machine has just woken or the network has come
// back or changed, so it can reconnect at once instead of waiting out a
// back-off or a missed ping. Sources: logind's PrepareForSleep on the system
// bus and QNetworkInformation. Either may be missing (no system bus in a
// container or on CI, no network backend): that source is then silently absent.

#include <QObject>
#include <QString>

class WakeWatch : public QObject {
    Q_OBJECT
public:
    enum Source { SystemBus = 0x1, NetworkInformation = 0x2, AllSources = 0x3 };
    // Tests pass 0 and drive the slots below themselves.
    explicit WakeWatch(int sources = AllSources, QObject *parent = nullptr);

    bool watchesSleep() const { return watchesSleep_; }
    bool watchesNetwork() const { return watchesNetwork_; }

public Q_SLOTS:
    // logind's signal: true before the machine sleeps, false once it has resumed.
    void prepareForSleep(bool sleeping);
    // The network's reachability as QNetworkInformation reports it; a rise to
    // Online, or a new medium while online, wakes the link.
    void reachabilityChanged(int reachability);
    void transportChanged();

Q_SIGNALS:
    void woke(const QString &reason);
    void sleeping();

private:
    bool watchesSleep_ = false;
    bool watchesNetwork_ = false;
    int lastReachability_ = -1;
};
