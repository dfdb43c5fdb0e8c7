#pragma once

#include "calendar/calendar_event.h"
#include "devices/connected_device.h"
#include "insight/insight.h"
#include "monitors/battery_monitor.h"
#include "monitors/cpu_monitor.h"
#include "monitors/disk_monitor.h"
#include "monitors/gpu_monitor.h"
#include "monitors/memory_monitor.h"
#include "monitors/network_monitor.h"
#include "monitors/process_monitor.h"
#include "monitors/sensor_monitor.h"
#include "speedtest/speed_test.h"
#include "sky/astronomy_monitor.h"
#include "weather/weather_report.h"

#include <QString>
#include <QTimeZone>

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace pulsebar {

class Hub;

// What the panels show, copied out of the hub once per redraw. Panel content is a pure function of
// this record and the configuration, so sample states and tests can fill it by hand and a panel never
// reads the machine itself. Field names are the monitors' own; trails are oldest first.
struct PanelSnapshot {
    double now = 0; // seconds since 1970
    QTimeZone timeZone = QTimeZone::systemTimeZone(); // the clock times panels show are in this zone

    struct Cpu {
        QString brand;
        int performanceCount = 0;
        int efficiencyCount = 0;
        int physicalCount = 0;
        int logicalCount = 0;
        std::vector<CPUMonitor::Core> cores;
        double user = 0;   // percent
        double system = 0; // percent
        std::vector<double> userTrail;
        std::vector<double> systemTrail;
        std::array<double, 3> loadAverage{0, 0, 0};
        std::vector<double> loadTrail;
        double uptime = 0; // seconds
    } cpu;

    struct Memory {
        double total = 0; // bytes
        double app = 0;
        double wired = 0;
        double compressed = 0;
        double cached = 0;
        double free = 0;
        double pressure = 0;   // percent
        MemoryPressureLevel pressureLevel = MemoryPressureLevel::normal;
        double swapUsed = 0;
        double swapTotal = 0;
        double pageInsRate = 0;  // bytes per second
        double pageOutsRate = 0; // bytes per second
        std::vector<double> pressureTrail;
        double usedPercent() const { return memoryUsedPercent(total, app, wired, compressed); }
    } memory;

    struct Gpu {
        QString name;
        std::optional<int> cores;
        double utilization = 0; // percent
        std::optional<double> memoryUsed; // bytes
        std::vector<double> trail;
    };
    std::vector<Gpu> gpus;

    // The five busiest processes by each figure a panel ranks by.
    std::vector<ProcessSample> topByCpu;
    std::vector<ProcessSample> topByMemory;
    std::vector<ProcessSample> topByDisk;

    struct Disks {
        std::vector<Volume> volumes; // startup volume first
        double readRate = 0;  // bytes per second
        double writeRate = 0;
        std::vector<double> readTrail;
        std::vector<double> writeTrail;
    } disks;

    struct Network {
        double upload = 0;   // bytes per second
        double download = 0;
        std::vector<double> uploadTrail;
        std::vector<double> downloadTrail;
        uint64_t sessionUp = 0; // bytes
        uint64_t sessionDown = 0;
        std::vector<InterfaceInfo> interfaces; // primary first
        std::optional<QString> primaryInterface;
        std::optional<QString> router;
        QStringList dns;
        std::optional<WiFiInfo> wifi;
        QStringList vpnInterfaces;
        std::optional<QString> publicIP;
        std::optional<double> pingMs;
        std::vector<double> pingTrail;
        std::optional<bool> internetReachable;
    } network;

    struct SpeedTests {
        SpeedTest::State state;
        std::vector<SpeedTestResult> results; // newest first
    } speedTests;

    struct Sensors {
        std::vector<Sensor> sensors;
        std::vector<Fan> fans;
        std::map<QString, std::vector<double>> trails; // by sensor key
        std::vector<double> fanTrail;
        std::map<SensorGroup, TemperatureSummary> summaries; // groups with temperatures only
        std::optional<double> menubarTemperature;            // °C
    } sensors;

    struct Battery {
        bool present = false;
        double percent = 0;
        bool isCharging = false;
        bool onAC = false;
        QString stateDescription;
        std::optional<int> minutesRemaining;
        std::optional<double> healthPercent;
        std::optional<QString> condition;
        std::optional<int> cycleCount;
        std::optional<int> designCapacity; // mAh
        std::optional<int> maxCapacity;    // mAh
        std::optional<double> temperature; // °C
        std::optional<double> voltage;     // V
        std::optional<double> amperage;    // A, negative while discharging
        std::optional<double> power;       // W, negative while discharging
        std::optional<int> adapterWatts;
        std::optional<QString> adapterName;
        bool lowPowerMode = false;
        std::vector<BluetoothBattery> accessories;
        std::vector<double> trail; // percent
    } battery;

    std::vector<ConnectedDevice> devices; // sorted by name

    struct KeepAwake {
        bool isActive = false;
        QString statusText; // "Off", "Until turned off", "Until 14:30"
    } keepAwake;

    struct Weather {
        std::optional<WeatherReport> report; // kept through failed refreshes
        std::optional<QString> lastError;
        bool isLoading = false;
        bool hasLocation = false; // configured or found by address; without one the panels wait
    } weather;

    std::optional<AstronomyMonitor::Snapshot> sky; // absent until a place is known

    // The calendars and events of the last fetch (shared with the calendar, never null).
    std::shared_ptr<const CalendarState> calendar = std::make_shared<const CalendarState>();

    Insight insight;

    static PanelSnapshot from(const Hub& hub);
};

} // namespace pulsebar
