#include "alerts/live_state.h"

#include "hub/hub.h"

#include <algorithm>

namespace pulsebar {

std::optional<double> LiveVolume::usedPercent() const
{
    if (!(total > 0))
        return std::nullopt;
    return diskUsedPercent(total, available, reserved);
}

LiveState LiveState::from(const Hub& hub)
{
    LiveState s;
    s.cpuUser = hub.cpu.user;
    s.cpuSystem = hub.cpu.system;
    if (!hub.gpu.gpus.empty())
        s.gpuUtilization = hub.gpu.utilization();

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
    s.pingMs = network.pingMs;
    s.internetReachable = network.internetReachable;
    s.publicIP = network.publicIP;
    s.primaryInterface = network.primaryInterface;
    if (network.wifi) {
        s.wifiSSID = network.wifi->ssid;
        // A link that names neither a network nor an access point is not associated.
        s.wifiAssociated = network.wifi->ssid.has_value() || network.wifi->bssid.has_value();
    }

    s.fans = hub.sensors.fans;
    s.cpuTemperature = hub.sensors.cpuTemperature();

    const BatteryMonitor& battery = hub.battery;
    s.batteryPresent = battery.present;
    s.onAC = battery.onAC;
    s.batteryCharged = battery.isCharged;
    s.batteryPercent = battery.percent;
    s.batteryVoltage = battery.voltage;
    s.batteryAmperage = battery.amperage;
    s.minutesRemaining = battery.minutesRemaining;
    return s;
}

} // namespace pulsebar
