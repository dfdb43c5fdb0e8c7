#include "dump/sample_states.h"

#include <cmath>

namespace pulsebar {

namespace {

constexpr double sampleTime = 1773481260; // 2026-03-14 09:41 UTC

// A trail of `count` values around `level`, wobbling so the graphs look like a live machine.
std::vector<double> trail(double level, double swing, int count = 120)
{
    std::vector<double> out;
    for (int i = 0; i < count; ++i)
        out.push_back(std::max(0.0, level + swing * std::sin(i * 0.9) * std::cos(i * 0.37)));
    return out;
}

// Two devices: a trusted iPhone charging over USB, and an iPad on Wi-Fi that does not trust this computer.
std::vector<ConnectedDevice> devices()
{
    ConnectedDevice phone;
    phone.id = QStringLiteral("00008120-001A2C3E0E91801E");
    phone.trusted = true;
    phone.name = QStringLiteral("Mira's iPhone");
    phone.productType = QStringLiteral("iPhone16,1");
    phone.deviceClass = QStringLiteral("iPhone");
    phone.osVersion = QStringLiteral("18.1");
    phone.batteryLevel = 76;
    phone.isCharging = true;
    phone.fullyCharged = false;
    phone.storageTotal = 256'000'000'000;
    phone.storageFree = 61'400'000'000;
    phone.battery = DeviceBattery{.cycleCount = 412, .designCapacity = 3274, .maxCapacity = 2914,
                                  .currentCharge = 2215, .temperature = 31.5, .voltage = 4.312};
    ConnectedDevice tablet;
    tablet.id = QStringLiteral("00008103-000D39A21E38001E");
    tablet.connection = Connection::wifi;
    return {phone, tablet};
}

HubSnapshot idle()
{
    HubSnapshot r;
    r.time = sampleTime;
    r.cpuUser = 3;
    r.cpuSystem = 2;
    r.cpuHistory = trail(5, 3);
    r.gpuUtilization = 2;
    r.gpuHistory = trail(2, 2);
    r.memoryPressure = 22;
    r.memoryPressureLevel = MemoryPressureLevel::normal;
    r.memoryUsed = 38;
    r.startupVolume = LiveVolume{100, 59};
    r.internetReachable = true;
    r.upload = 1200;
    r.download = 5400;
    r.uploadHistory = trail(1200, 900);
    r.downloadHistory = trail(5400, 4000);
    r.menubarTemperature = 41;
    r.sensorsReady = true;
    r.batteryPresent = true;
    r.batteryPercent = 84;
    r.weather = HubSnapshot::Weather{QStringLiteral("cloud.sun.fill"), 17};
    r.nextSunEvent = HubSnapshot::SunEvent{false, sampleTime + 8.5 * 3600};
    r.connectedDevices = devices();
    return r;
}

HubSnapshot busy()
{
    HubSnapshot r = idle();
    r.cpuUser = 71;
    r.cpuSystem = 17;
    r.cpuHistory = trail(80, 18);
    r.gpuUtilization = 64;
    r.gpuHistory = trail(60, 30);
    r.memoryPressure = 58;
    r.memoryPressureLevel = MemoryPressureLevel::warning;
    r.memoryUsed = 81;
    r.upload = 2.4e6;
    r.download = 38.5e6;
    r.uploadHistory = trail(2.4e6, 1.5e6);
    r.downloadHistory = trail(38.5e6, 20e6);
    r.menubarTemperature = 78;
    r.fastestFanRpm = 3400;
    r.batteryPercent = 62;
    r.weather = HubSnapshot::Weather{QStringLiteral("cloud.rain.fill"), 9};
    return r;
}

HubSnapshot hot()
{
    HubSnapshot r = busy();
    r.cpuUser = 92;
    r.cpuSystem = 7;
    r.cpuHistory = trail(96, 4);
    r.memoryPressure = 91;
    r.memoryPressureLevel = MemoryPressureLevel::critical;
    r.menubarTemperature = 99;
    r.fastestFanRpm = 6800;
    r.weather = HubSnapshot::Weather{QStringLiteral("sun.max.fill"), 34};
    return r;
}

} // namespace

std::vector<SampleState> sampleStates()
{
    std::vector<SampleState> out;
    out.push_back({QStringLiteral("idle"), idle()});
    out.push_back({QStringLiteral("busy"), busy()});
    out.push_back({QStringLiteral("hot"), hot()});

    HubSnapshot charging = idle();
    charging.batteryPercent = 10;
    charging.batteryCharging = true;
    out.push_back({QStringLiteral("charging"), charging});

    HubSnapshot noBattery = busy();
    noBattery.batteryPresent = false;
    noBattery.batteryPercent = 0;
    noBattery.connectedDevices.clear(); // the devices panel with nothing attached
    out.push_back({QStringLiteral("no-battery"), noBattery});

    HubSnapshot offline = idle();
    offline.internetReachable = false;
    offline.upload = offline.download = 0;
    offline.uploadHistory = offline.downloadHistory = std::vector<double>(120, 0.0);
    offline.weather.reset(); // no report without a network
    out.push_back({QStringLiteral("offline"), offline});

    out.push_back({QStringLiteral("monochrome"), busy(), true, false});

    HubSnapshot night = busy();
    night.weather = HubSnapshot::Weather{QStringLiteral("moon.stars.fill"), 6};
    night.nextSunEvent = HubSnapshot::SunEvent{true, sampleTime + 9 * 3600};
    out.push_back({QStringLiteral("dark"), night, false, true});
    out.push_back({QStringLiteral("light"), busy(), false, false});
    return out;
}

} // namespace pulsebar
