#pragma once

#include <cstdint>

namespace pulsebar {

// current - previous of a cumulative counter, treating a difference beyond half the range as a
// counter that went backwards (a detached device, a reset) rather than one that wrapped: that gives 0.
inline uint64_t counterDelta(uint64_t current, uint64_t previous)
{
    const uint64_t delta = current - previous;
    return delta > (uint64_t(1) << 63) ? 0 : delta;
}

// The per-second rate of a cumulative counter over `seconds` (> 0); a counter that went backwards is 0.
inline double counterRate(uint64_t current, uint64_t previous, double seconds)
{
    return double(counterDelta(current, previous)) / seconds;
}

} // namespace pulsebar
