#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// The part of the hub's live state that the insight and rule engines read, copied once per tick.
// The engines take this plain record (and the time) instead of the monitors themselves, so that a
// sequence of states and times can be fed to them directly and their decisions are deterministic.
struct LiveProcess {
    int32_t pid = 0;
    QString name;
    double cpu = 0;       // percent of one core; may exceed 100
    double memory = 0;    // bytes
    double diskRead = 0;  // bytes per second
    double diskWrite = 0; // bytes per second
};

struct LiveFan {
    double rpm = 0;
    double minimum = 0;
    double maximum = 0;
};

struct LiveVolume {
    double total = 0;     // bytes
    double available = 0; // bytes free
    // (total − free) ÷ total × 100, a negative free counting as none; absent when total is not above 0.
    std::optional<double> usedPercent() const;
};

struct LiveState {
    // CPU and GPU
    double cpuUser = 0;   // percent, user + nice
    double cpuSystem = 0; // percent
    std::optional<double> gpuUtilization; // absent when no GPU is known

    // Memory, bytes and percent
    double memoryTotal = 0;
    double memoryApp = 0;
    double memoryWired = 0;
    double memoryCompressed = 0;
    double memoryPressure = 0; // percent 0–100
    int memoryPressureLevel = 1; // 1 normal, 2 warning, 4 critical

    std::vector<LiveProcess> processes; // in the order the platform listed them

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
    std::vector<LiveFan> fans;
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
    // (app + wired + compressed) ÷ total × 100; 0 when total is not above 0.
    double memoryUsedPercent() const;

    // Copies what the hub's monitors published on this tick.
    static LiveState from(const Hub& hub);
};

} // namespace pulsebar
