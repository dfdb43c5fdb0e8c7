#pragma once

#include <cstdint>
#include <functional>

namespace pulsebar {

// Seconds since 1970 from the system clock: the clock of a monitor that was given none.
std::function<double()> systemClock();

// current - previous of a cumulative counter, treating a difference beyond half the range as a
// counter that went backwards (a detached device, a reset) rather than one that wrapped: that gives 0.
inline uint64_t counterDelta(uint64_t current, uint64_t previous)
{
    const uint64_t delta = current - previous;
    return delta > (uint64_t(1) << 63) ? 0 : delta;
}

} // namespace pulsebar
