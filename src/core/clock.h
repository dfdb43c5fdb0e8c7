#pragma once

#include <functional>

namespace pulsebar {

// Seconds since 1970 from the system clock: the one clock of everything that was not handed another.
double systemNow();
// systemNow() as a callable, for the `now` members that tests replace with fake clocks.
std::function<double()> systemClock();

} // namespace pulsebar
