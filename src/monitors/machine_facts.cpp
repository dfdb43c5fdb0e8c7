#include "monitors/machine_facts.h"

#include <algorithm>

namespace pulsebar {

std::optional<ThermalState> thermalState(const std::vector<ThermalZoneReading>& zones)
{
    const ThermalZoneReading* hottest = nullptr;
    for (const ThermalZoneReading& zone : zones)
        if (!zone.trips.empty() && (!hottest || zone.celsius > hottest->celsius))
            hottest = &zone;
    if (!hottest)
        return std::nullopt;

    auto reached = [&](QLatin1String type) {
        return std::any_of(hottest->trips.begin(), hottest->trips.end(), [&](const ThermalTrip& trip) {
            return trip.type == type && hottest->celsius >= trip.celsius;
        });
    };
    if (reached(QLatin1String("critical")))
        return ThermalState::critical;
    if (reached(QLatin1String("hot")))
        return ThermalState::serious;
    if (reached(QLatin1String("passive")))
        return ThermalState::fair;
    return ThermalState::nominal;
}

} // namespace pulsebar
