#include "core/clock.h"

#include <QDateTime>

namespace pulsebar {

double systemNow()
{
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

std::function<double()> systemClock()
{
    return systemNow;
}

} // namespace pulsebar
