#include "hub/hub_snapshot.h"

#include "hub/hub.h"

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

std::vector<double> trail(const History& history)
{
    return {history.values().begin(), history.values().end()};
}

} // namespace

std::optional<double> LiveVolume::usedPercent() const
{
    if (!(total > 0))
        return std::nullopt;
    return diskUsedPercent(total, available, reserved);
}

std::optional<double> HubSnapshot::batteryWatts() const
{
    const std::optional<double> draw = batteryPowerDraw(batteryVoltage, batteryAmperage);
    return draw ? std::optional(std::fabs(*draw)) : std::nullopt;
}

std::optional<double> HubSnapshot::power() const
{
    return systemPower ? systemPower : batteryWatts();
}

HistoryValues HubSnapshot::historyValues() const
{
    HistoryValues values;
    values[HistoryMetric::cpuUser] = cpuUser;
    values[HistoryMetric::cpuSystem] = cpuSystem;
    if (gpuUtilization)
        values[HistoryMetric::gpu] = *gpuUtilization;
    values[HistoryMetric::memoryPressure] = memoryPressure;
    values[HistoryMetric::memoryUsed] = memoryUsed;
    values[HistoryMetric::diskRead] = diskReadRate;
    values[HistoryMetric::diskWrite] = diskWriteRate;
    values[HistoryMetric::download] = download;
    values[HistoryMetric::upload] = upload;
    if (menubarTemperature)
        values[HistoryMetric::temperature] = *menubarTemperature;
    if (fastestFanRpm)
        values[HistoryMetric::fan] = *fastestFanRpm;
    if (batteryPresent)
        values[HistoryMetric::battery] = batteryPercent;
    if (const std::optional<double> watts = power())
        values[HistoryMetric::power] = *watts;
    return values;
}

HubSnapshot HubSnapshot::of(const Hub& hub)
{
    HubSnapshot s;
    s.time = hub.now();

    s.cpuUser = hub.cpu.user;
    s.cpuSystem = hub.cpu.system;
    s.cpuHistory = trail(hub.cpu.totalHistory);
    if (hub.gpu.hasGPU()) {
        s.gpuUtilization = hub.gpu.utilization();
        s.gpuHistory = trail(hub.gpu.gpus.front().history);
    }

    s.memoryUsed = hub.memory.usedPercent();
    s.memoryPressure = hub.memory.pressure;
    s.memoryPressureLevel = hub.memory.pressureLevel;

    s.processes = hub.processes.processes;

    s.diskReadRate = hub.disks.readRate;
    s.diskWriteRate = hub.disks.writeRate;
    if (const auto volume = hub.disks.startupVolume())
        s.startupVolume = LiveVolume{volume->total, volume->available, volume->reserved};

    const NetworkMonitor& network = hub.network;
    s.download = network.download;
    s.upload = network.upload;
    s.downloadHistory = trail(network.downloadHistory);
    s.uploadHistory = trail(network.uploadHistory);
    s.pingMs = network.pingMs;
    s.internetReachable = network.internetReachable;
    s.publicIP = network.publicIP;
    s.primaryInterface = network.primaryInterface;
    if (network.wifi) {
        s.wifiSSID = network.wifi->ssid;
        s.wifiAssociated = network.wifi->isAssociated();
    }

    s.fans = hub.sensors.fans;
    s.fastestFanRpm = hub.sensors.fastestFanRpm();
    s.cpuTemperature = hub.sensors.cpuTemperature();
    s.menubarTemperature = hub.menubarTemperature();
    s.sensorsReady = hub.sensors.isReady;
    if (const std::optional<Sensor> systemPower = hub.sensors.sensor(QStringLiteral("PSTR")))
        s.systemPower = systemPower->value;

    const BatteryMonitor& battery = hub.battery;
    s.batteryPresent = battery.present;
    s.onAC = battery.onAC;
    s.batteryCharging = battery.isCharging;
    s.batteryCharged = battery.isCharged;
    s.batteryPercent = battery.percent;
    s.batteryVoltage = battery.voltage;
    s.batteryAmperage = battery.amperage;
    s.minutesRemaining = battery.minutesRemaining;

    if (const auto& report = hub.weather.report())
        s.weather = Weather{report->current.symbol(), report->current.temperature, report->current.description()};
    if (const auto sun = hub.astronomy.nextSunEvent(s.time))
        s.nextSunEvent = SunEvent{sun->isSunrise, sun->time};
    s.connectedDevices = hub.devices.devices();
    return s;
}

} // namespace pulsebar
