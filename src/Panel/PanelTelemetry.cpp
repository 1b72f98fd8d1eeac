#include "Panel/PanelTelemetry.h"

#include "Feed/FeedStore.h"
#include "Panel/PanelText.h"

#include <algorithm>
#include <cmath>

PanelTelemetry::PanelTelemetry(FeedStore *store, std::function<double()> now, QObject *parent)
    : QObject(parent), store_(store), now_(std::move(now))
{
    if (store)
        connect(store, &FeedStore::telemetryChanged, this, &PanelTelemetry::changed);
}

QString PanelTelemetry::flowText() const
{
    return store_ ? PanelText::flowRate(store_->telemetry().fillsPerMinute) : QString();
}

QVariantList PanelTelemetry::buckets() const
{
    QVariantList out;
    if (store_)
        for (double b : store_->telemetry().buckets)
            out << (std::isfinite(b) ? b : 0.0);
    return out;
}

bool PanelTelemetry::hasVolume() const
{
    if (!store_)
        return false;
    for (double b : store_->telemetry().buckets)
        if (b > 0)
            return true;
    return false;
}

bool PanelTelemetry::hasFlow() const
{
    return store_ && store_->telemetry().buyShare.has_value();
}

double PanelTelemetry::buyShare() const
{
    if (!hasFlow())
        return 0;
    const double s = *store_->telemetry().buyShare;
    return std::isfinite(s) ? std::clamp(s, 0.0, 1.0) : 0.0;
}

QString PanelTelemetry::buyText() const
{
    return hasFlow() ? PanelText::buyText(*store_->telemetry().buyShare) : QString();
}

QString PanelTelemetry::sellText() const
{
    return hasFlow() ? PanelText::sellText(*store_->telemetry().buyShare) : QString();
}

QStringList PanelTelemetry::counters() const
{
    return store_ ? PanelText::counters(store_->telemetry(), store_->link(), now_ ? now_() : 0) : QStringList();
}
