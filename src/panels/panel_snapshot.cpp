#include "panels/panel_snapshot.h"

#include "hub/hub.h"
#include "insight/insight_engine.h"


namespace pulsebar {

namespace {

constexpr int topCount = 5;

std::vector<double> trail(const History& history)
{
    return {history.values().begin(), history.values().end()};
}

} // namespace

PanelSnapshot PanelSnapshot::from(const Hub& hub)
{
    PanelSnapshot s;
    s.now = hub.now();

    const CPUMonitor& cpu = hub.cpu;
    s.cpu = {cpu.brand,          cpu.performanceCount, cpu.efficiencyCount,   cpu.physicalCount, cpu.logicalCount,
             cpu.cores,          cpu.user,             cpu.system,            trail(cpu.userHistory),
             trail(cpu.systemHistory), cpu.loadAverage, trail(cpu.loadHistory), cpu.uptime};

    const MemoryMonitor& m = hub.memory;
    s.memory = {m.total,    m.app,       m.wired,        m.compressed,    m.cached,
                m.free,     m.pressure,  m.pressureLevel, m.swapUsed,     m.swapTotal,
                m.pageInsRate, m.pageOutsRate, trail(m.pressureHistory)};

    for (const GPU& gpu : hub.gpu.gpus)
        s.gpus.push_back({gpu.name, gpu.cores, gpu.utilization, gpu.memoryUsed, trail(gpu.history)});

    s.topByCpu = hub.processes.top(ProcessSortKey::cpu, topCount);
    s.topByMemory = hub.processes.top(ProcessSortKey::memory, topCount);
    s.topByDisk = hub.processes.top(ProcessSortKey::diskTotal, topCount);

    const DiskMonitor& d = hub.disks;
    s.disks = {d.volumes, d.readRate, d.writeRate, trail(d.readHistory), trail(d.writeHistory)};

    const NetworkMonitor& n = hub.network;
    s.network = {n.upload,      n.download,    trail(n.uploadHistory), trail(n.downloadHistory),
                 n.sessionUp,   n.sessionDown, n.interfaces,           n.primaryInterface,
                 n.router,      n.dns,         n.wifi,                 n.vpnInterfaces,
                 n.publicIP,    n.pingMs,      trail(n.pingHistory),   n.internetReachable};

    s.speedTests = {hub.speedTest().state(), hub.speedTest().results()};

    const SensorMonitor& sensors = hub.sensors;
    s.sensors.sensors = sensors.sensors;
    s.sensors.fans = sensors.fans;
    for (const auto& [key, history] : sensors.histories)
        s.sensors.trails[key] = trail(history);
    s.sensors.fanTrail = trail(sensors.fanHistory);
    for (SensorGroup group : allCases<SensorGroup>())
        if (const auto summary = sensors.summary(group))
            s.sensors.summaries[group] = *summary;
    s.sensors.menubarTemperature = hub.menubarTemperature();

    const BatteryMonitor& b = hub.battery;
    s.battery = {b.present,       b.percent,        b.isCharging,   b.onAC,        b.stateDescription(),
                 b.minutesRemaining, b.healthPercent(), b.displayedCondition(), b.cycleCount, b.designCapacity,
                 b.maxCapacity,   b.temperature,    b.voltage,      b.amperage,    b.powerDraw(),
                 b.adapterWatts,  b.adapterName,    b.lowPowerMode, b.bluetooth,   trail(b.history)};

    const WeatherService& w = hub.weather;
    s.weather = {w.report(), w.lastError(), w.isLoading(), w.location().has_value()};
    s.sky = hub.astronomy.snapshot();

    s.devices = hub.snapshot().connectedDevices;
    s.calendar = hub.calendar.state();
    s.keepAwake = {hub.keepAwake().isActive, hub.keepAwake().statusText()};
    s.insight = hub.insights().current();
    return s;
}

} // namespace pulsebar
