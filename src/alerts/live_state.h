#pragma once

#include "monitors/memory_monitor.h"
#include "monitors/process_monitor.h"
#include "monitors/sensor_monitor.h"

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// The part of the hub's live state that the insight and rule engines read, copied once per tick.
// The engines take this plain record (and the time) instead of the monitors themselves, so that a
// sequence of states and times can be fed to them directly and their decisions are deterministic.
// Processes and fans keep the monitors' own records.

// The two figures of the startup volume that matter here.
struct LiveVolume {
    double total = 0;     // bytes
    double available = 0; // bytes free for the user
    double reserved = 0;  // bytes kept for the system
    // As the disks item shows it (diskUsedPercent); absent when total is not above 0.
    std::optional<double> usedPercent() const;
};

struct LiveState {
    // CPU and GPU
    double cpuUser = 0;   // percent, user + nice
    double cpuSystem = 0; // percent
    std::optional<double> gpuUtilization; // absent when no GPU is known

    // Memory
    double memoryUsed = 0;     // percent: (app + wired + compressed) of the total, 0 without a total
    double memoryPressure = 0; // percent 0–100
    MemoryPressureLevel memoryPressureLevel = MemoryPressureLevel::normal;

    std::vector<ProcessSample> processes; // in the order the platform listed them

    // Disks
    double diskReadRate = 0;  // bytes per second
    double diskWriteRate = 0; // bytes per second
    std::optional<LiveVolume> startupVolume;

    // Network
    double download = 0; // bytes per second
    double upload = 0;   // bytes per second
    std::optional<double> pingMs;
    std::optional<bool> internetReachable; // absent until the first ping finished
    std::optional<QString> publicIP;
    std::optional<QString> primaryInterface;
    std::optional<QString> wifiSSID;
    bool wifiAssociated = false;

    // Sensors
    std::vector<Fan> fans;
    std::optional<double> cpuTemperature; // °C

    // Battery
    bool batteryPresent = false;
    bool onAC = false;
    bool batteryCharged = false; // the system reports it fully charged
    double batteryPercent = 0;
    std::optional<double> batteryVoltage;  // volts
    std::optional<double> batteryAmperage; // amperes, negative while discharging
    std::optional<int> minutesRemaining;

    double cpuTotal() const { return cpuUser + cpuSystem; }

    // Copies what the hub's monitors published on this tick.
    static LiveState from(const Hub& hub);
};

} // namespace pulsebar
