#include "Model/Clock.h"

#include <QDateTime>

double systemNow()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}
