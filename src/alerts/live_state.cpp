#include "alerts/live_state.h"

#include "core/hub.h"

#include <algorithm>

namespace pulsebar {

std::optional<double> LiveVolume::usedPercent() const
{
    if (!(total > 0))
        return std::nullopt;
    return (total - std::max(available, 0.0)) / total * 100.0;
}

double LiveState::memoryUsedPercent() const
{
    if (!(memoryTotal > 0))
        return 0;
    return (memoryApp + memoryWired + memoryCompressed) / memoryTotal * 100.0;
}

LiveState LiveState::from(const Hub& hub)
{
    Q_UNUSED(hub);
    LiveState state;
    return state;
}

} // namespace pulsebar
