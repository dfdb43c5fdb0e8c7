#pragma once

#include "core/enum_names.h"

#include <cstdint>
#include <string_view>

namespace pulsebar {

// The spans a graph or an agent can ask for. "live" reads exactly what "hour" reads.
enum class HistoryRange { live, hour, day, week, month };

template <>
struct EnumNames<HistoryRange> {
    static constexpr std::array<std::string_view, 5> names{"live", "hour", "day", "week", "month"};
};

// Where a range is read from: the last `span` seconds of `table`, averaged into buckets of `width` seconds.
struct HistoryRangeShape {
    std::int64_t span;
    const char* table;
    std::int64_t width;
};

HistoryRangeShape historyRangeShape(HistoryRange range);

} // namespace pulsebar
