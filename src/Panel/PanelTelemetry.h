#pragma once
// The telemetry band's readings ("panel.telemetry"): the flow rate, the
// volume buckets, the buy and sell split and the rail's counters, read
// from the store at the panel's clock.

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <functional>

class FeedStore;

class PanelTelemetry : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("a panel's telemetry comes with its model")
    Q_PROPERTY(QString flowText READ flowText NOTIFY changed)
    Q_PROPERTY(QVariantList buckets READ buckets NOTIFY changed)
    Q_PROPERTY(bool hasVolume READ hasVolume NOTIFY changed)
    Q_PROPERTY(bool hasFlow READ hasFlow NOTIFY changed)
    Q_PROPERTY(double buyShare READ buyShare NOTIFY changed)
    Q_PROPERTY(QString buyText READ buyText NOTIFY changed)
    Q_PROPERTY(QString sellText READ sellText NOTIFY changed)
    Q_PROPERTY(QStringList counters READ counters NOTIFY changed)
public:
    // `now` is the panel's clock, which the counters' ages follow.
    PanelTelemetry(FeedStore *store, std::function<double()> now, QObject *parent = nullptr);

    QString flowText() const;
    QVariantList buckets() const;
    bool hasVolume() const;
    bool hasFlow() const;
    double buyShare() const;
    QString buyText() const;
    QString sellText() const;
    QStringList counters() const;

Q_SIGNALS:
    void changed();

private:
    QPointer<FeedStore> store_;
    std::function<double()> now_;
};
