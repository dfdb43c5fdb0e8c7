#pragma once

#include "core/enum_names.h"

#include <QString>

#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

// One trip point of a thermal zone: the kernel's type ("critical", "hot", "passive", "active") and
// the temperature at which it trips.
struct ThermalTrip {
    QString type;
    double celsius = 0;
    bool operator==(const ThermalTrip&) const = default;
};

struct ThermalZoneReading {
    double celsius = 0;
    std::vector<ThermalTrip> trips;
    bool operator==(const ThermalZoneReading&) const = default;
};

// How close the machine runs to its own thermal limits, in the words agents read.
enum class ThermalState { nominal, fair, serious, critical };

template <> struct EnumNames<ThermalState> {
    static constexpr std::array<std::string_view, 4> names{"nominal", "fair", "serious", "critical"};
};

// The hottest zone that has trip points, against those trip points: at or above a "critical" trip is
// critical, a "hot" trip serious, a "passive" trip fair, else nominal. Absent when no zone has any.
std::optional<ThermalState> thermalState(const std::vector<ThermalZoneReading>& zones);

// Facts about the machine itself. Every read fails softly.
class MachineReader {
public:
    virtual ~MachineReader() = default;

    // The product name the firmware gives ("ThinkPad X1 Carbon Gen 11"), else the device-tree model.
    virtual std::optional<QString> readModel() = 0;
    // The distribution's pretty name, then the kernel release in parentheses.
    virtual std::optional<QString> readOSVersion() = 0;
    virtual std::vector<ThermalZoneReading> readThermalZones() = 0;
};

} // namespace pulsebar
