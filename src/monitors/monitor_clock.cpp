#include "monitors/monitor_clock.h"

#include <QDateTime>

namespace pulsebar {

std::function<double()> systemClock()
{
    return [] { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; };
}

} // namespace pulsebar
