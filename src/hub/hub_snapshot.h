#pragma once

#include "devices/connected_device.h"
#include "history/history_metric.h"
#include "monitors/memory_monitor.h"
#include "monitors/process_monitor.h"
#include "monitors/sensor_monitor.h"

#include <QString>

#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// The figures of the startup volume that matter to the readers.
struct LiveVolume {
    double total = 0;     // bytes
    double available = 0; // bytes free for the user
    double reserved = 0;  // bytes kept for the system
    // As the disks item shows it (diskUsedPercent); absent when total is not above 0.
    std::optional<double> usedPercent() const;
};

// The hub's live state as one plain record: what the tray items, the panels, the rules, the insight
// engine, the history row and the MCP tools read. The hub builds it once at the end of every sample,
// before the rules and the insight engine run, and keeps it until the next tick: a reader takes
// `hub.snapshot()` (a const reference, valid until the next tick; copy it to keep it longer) and,
// to redraw when it changes, connects to `Hub::changed`. The detail a panel lists (every core, every
// volume, every interface) stays in the monitors' own records, reached through the hub's fields.
//
// Readers never reach into a monitor for a figure kept here, so a sequence of hand-made snapshots
// drives them deterministically (sample states, engine tests). Every derived figure is computed in
// one place: a monitor's own method, or `HubSnapshot::of`.
struct HubSnapshot {
    double time = 0; // seconds since 1970, when the sample was taken

    // CPU and GPU
    double cpuUser = 0;   // percent, user + nice
    double cpuSystem = 0; // percent
    std::vector<double> cpuHistory;       // user + system percent, oldest first
    std::optional<double> gpuUtilization; // percent; absent when no GPU is known
    std::vector<double> gpuHistory;       // of the first GPU

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
    std::vector<double> downloadHistory;
    std::vector<double> uploadHistory;
    std::optional<double> pingMs;
    std::optional<bool> internetReachable; // absent until the first ping finished
    std::optional<QString> publicIP;
    std::optional<QString> primaryInterface;
    std::optional<QString> wifiSSID;
    bool wifiAssociated = false;

    // Sensors
    std::vector<Fan> fans;
    std::optional<double> fastestFanRpm;
    std::optional<double> cpuTemperature;     // °C
    std::optional<double> menubarTemperature; // °C, Hub::menubarTemperature
    std::optional<double> systemPower;        // watts, when the machine reports its total draw
    bool sensorsReady = false; // sensor discovery has finished: a missing temperature stays missing

    // Battery
    bool batteryPresent = false;
    bool onAC = false;
    bool batteryCharging = false;
    bool batteryCharged = false; // the system reports it fully charged
    double batteryPercent = 0;
    std::optional<double> batteryVoltage;  // volts
    std::optional<double> batteryAmperage; // amperes, negative while discharging
    std::optional<int> minutesRemaining;

    // Attached phones and tablets, sorted by name
    std::vector<ConnectedDevice> connectedDevices;

    // Weather and sky, for the items that show them
    struct Weather {
        QString symbol;         // for the current code, by day or night
        double temperature = 0; // °C
        QString description{};  // "Partly Cloudy", for the tooltip
    };
    std::optional<Weather> weather; // absent before the first report
    struct SunEvent {
        bool isSunrise = true;
        double time = 0; // seconds since 1970
    };
    std::optional<SunEvent> nextSunEvent; // absent with no sun event ahead

    double cpuTotal() const { return cpuUser + cpuSystem; }
    // What the battery delivers or takes, in watts (|volts × amperes|); absent unless both are known.
    std::optional<double> batteryWatts() const;
    // The machine's total draw when it reports it, else what the battery delivers or takes.
    std::optional<double> power() const;
    // The history row of this sample: exactly the metrics whose sources have a value.
    HistoryValues historyValues() const;

    // Copies what the hub's monitors published on this tick.
    static HubSnapshot of(const Hub& hub);
};

} // namespace pulsebar
