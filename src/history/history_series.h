#pragma once

#include "history/history_metric.h"

#include <map>
#include <optional>
#include <vector>

namespace pulsebar {

// What one read returns: the start of each bucket (seconds since 1970, ascending) and, per metric
// asked for, one entry per bucket, absent where no sample of that metric fell in it.
struct HistorySeries {
    std::vector<double> times;
    std::map<HistoryMetric, std::vector<std::optional<double>>> values;
    double bucket = 0; // bucket width in seconds

    bool operator==(const HistorySeries&) const = default;
};

} // namespace pulsebar
