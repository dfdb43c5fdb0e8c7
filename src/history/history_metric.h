#pragma once

#include "core/enum_names.h"

#include <map>
#include <string_view>

namespace pulsebar {

// The metrics kept in the 30-day store. The name of each case is at once its database column and the
// name agents use; the order of the cases is the column order and never changes (new metrics go last).
enum class HistoryMetric {
    cpuUser,        // %, share of all cores
    cpuSystem,      // %
    gpu,            // %, only while a GPU is known
    memoryPressure, // %
    memoryUsed,     // %
    diskRead,       // bytes per second
    diskWrite,      // bytes per second
    download,       // bytes per second
    upload,         // bytes per second
    temperature,    // °C, the menu-bar temperature
    fan,            // rpm of the fastest fan
    battery,        // % charge, only while a battery is present
    power,          // W
};

template <>
struct EnumNames<HistoryMetric> {
    static constexpr std::array<std::string_view, 13> names{
        "cpu_user", "cpu_system", "gpu",         "mem_pressure", "mem_used", "disk_read", "disk_write",
        "net_down", "net_up",     "temperature", "fan",          "battery",  "power"};
};

// One history row: only the metrics that had a value at that moment.
using HistoryValues = std::map<HistoryMetric, double>;

} // namespace pulsebar
