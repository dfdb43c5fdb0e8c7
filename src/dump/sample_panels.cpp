#include "dump/sample_panels.h"

#include <cmath>

namespace pulsebar {

namespace {

constexpr double gib = 1024.0 * 1024.0 * 1024.0;

std::vector<double> scaled(const std::vector<double>& values, double factor)
{
    std::vector<double> out;
    for (double v : values)
        out.push_back(v * factor);
    return out;
}

std::vector<double> wave(double level, double swing, int count = 120, double phase = 0)
{
    std::vector<double> out;
    for (int i = 0; i < count; ++i)
        out.push_back(std::max(0.0, level + swing * std::sin(i * 0.31 + phase) * std::cos(i * 0.11)));
    return out;
}

ProcessSample process(int32_t pid, const char* name, double cpu, double memoryGiB, double read, double write)
{
    return {pid, QString::fromUtf8(name), cpu, memoryGiB * gib, read, write};
}

Sensor sensor(const char* key, const char* name, SensorGroup group, SensorKind kind, double value, double peak)
{
    return {QString::fromLatin1(key), QString::fromUtf8(name), group, kind, value, peak};
}

} // namespace

PanelSnapshot samplePanelSnapshot(const SampleState& state)
{
    const HubSnapshot& r = state.readings;
    const bool busy = r.cpuUser > 50;
    PanelSnapshot s;
    s.now = r.time;

    auto& c = s.cpu;
    c.brand = QStringLiteral("AMD Ryzen 7 7840U w/ Radeon 780M Graphics");
    c.physicalCount = 8;
    c.logicalCount = 16;
    for (int i = 0; i < 16; ++i) {
        const double share = std::clamp((r.cpuUser + r.cpuSystem) * (0.55 + 0.9 * std::fabs(std::sin(i * 1.7))), 0.0, 100.0);
        c.cores.push_back({i, share * 0.8, share * 0.2, false});
    }
    c.user = r.cpuUser;
    c.system = r.cpuSystem;
    const double total = std::max(1.0, r.cpuUser + r.cpuSystem);
    c.userTrail = scaled(r.cpuHistory, r.cpuUser / total);
    c.systemTrail = scaled(r.cpuHistory, r.cpuSystem / total);
    c.loadAverage = {total / 100 * 16 * 0.9, total / 100 * 16 * 0.7, total / 100 * 16 * 0.5};
    c.loadTrail = wave(c.loadAverage[0], c.loadAverage[0] * 0.3);
    c.uptime = 3 * 86400 + 4 * 3600 + 12 * 60;

    auto& m = s.memory;
    m.total = 32 * gib;
    const double used = m.total * r.memoryUsed / 100;
    m.app = used * 0.62;
    m.wired = used * 0.26;
    m.compressed = used * 0.12;
    m.cached = (m.total - used) * 0.55;
    m.free = m.total - used - m.cached;
    m.pressure = r.memoryPressure;
    m.pressureLevel = r.memoryPressureLevel;
    m.swapTotal = 8 * gib;
    m.swapUsed = busy ? 1.6 * gib : 0.1 * gib;
    m.pageInsRate = busy ? 2.1e6 : 0;
    m.pageOutsRate = busy ? 0.8e6 : 0;
    m.pressureTrail = wave(r.memoryPressure, 4);

    if (r.gpuUtilization)
        s.gpus.push_back({QStringLiteral("AMD Radeon 780M"), std::nullopt, *r.gpuUtilization, 1.4 * gib, r.gpuHistory});

    const double load = busy ? 1 : 0.05;
    const std::vector<ProcessSample> processes{
        process(4211, "blender", 310 * load, 3.2, 8e6 * load, 1.2e6 * load),
        process(3120, "firefox", 42 * load + 3, 2.7, 0.2e6, 0.6e6),
        process(2890, "code", 18 * load + 1, 1.9, 0.1e6, 0.3e6),
        process(1502, "gnome-shell", 9, 0.6, 0, 0.05e6),
        process(3377, "pulsebar", 0.8, 0.09, 0, 0.01e6),
        process(2210, "tracker-miner-fs-3", 4 * load, 0.3, 12e6 * load, 4e6 * load),
    };
    auto top = [&](auto key) {
        std::vector<ProcessSample> sorted = processes;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [&](const ProcessSample& a, const ProcessSample& b) { return key(a) > key(b); });
        sorted.resize(5);
        return sorted;
    };
    s.topByCpu = top([](const ProcessSample& p) { return p.cpu; });
    s.topByMemory = top([](const ProcessSample& p) { return p.memory; });
    s.topByDisk = top([](const ProcessSample& p) { return p.diskTotal(); });

    const double startupUsed = (r.startupVolume ? r.startupVolume->usedPercent().value_or(0) : 0) / 100;
    s.disks.volumes = {
        {QStringLiteral("/"), QStringLiteral("/"), 1000e9, 1000e9 * (1 - startupUsed), 1000e9 * (1 - startupUsed), false,
         true, true},
        {QStringLiteral("/home"), QStringLiteral("home"), 2000e9, 640e9, 640e9, false, true, false},
        {QStringLiteral("/media/backup"), QStringLiteral("Backup"), 4000e9, 300e9, 300e9, true, true, false},
    };
    s.disks.readRate = busy ? 21.4e6 : 0.12e6;
    s.disks.writeRate = busy ? 6.8e6 : 0.04e6;
    s.disks.readTrail = wave(s.disks.readRate, s.disks.readRate * 0.8, 120, 1);
    s.disks.writeTrail = wave(s.disks.writeRate, s.disks.writeRate * 0.8, 120, 2);

    auto& n = s.network;
    n.upload = r.upload;
    n.download = r.download;
    n.uploadTrail = r.uploadHistory;
    n.downloadTrail = r.downloadHistory;
    n.sessionUp = 412'000'000;
    n.sessionDown = 6'840'000'000;
    n.interfaces = {{QStringLiteral("wlp1s0"), QStringLiteral("Wi-Fi"), {QStringLiteral("192.168.1.23")},
                     {QStringLiteral("2001:db8::23")}, QStringLiteral("3c:22:fb:10:7e:41"), r.upload, r.download, 0, 0},
                    {QStringLiteral("tun0"), QStringLiteral("tun0"), {QStringLiteral("10.8.0.6")}, {}, std::nullopt, 0, 0,
                     0, 0}};
    n.primaryInterface = QStringLiteral("wlp1s0");
    n.router = QStringLiteral("192.168.1.1");
    n.dns = {QStringLiteral("192.168.1.1"), QStringLiteral("1.1.1.1")};
    WiFiInfo wifi;
    wifi.interfaceName = QStringLiteral("wlp1s0");
    wifi.ssid = QStringLiteral("Lighthouse");
    wifi.rssi = -54;
    wifi.noise = -92;
    wifi.channel = 44;
    wifi.band = QStringLiteral("5 GHz");
    wifi.width = QStringLiteral("80 MHz");
    wifi.transmitRate = 866;
    wifi.phyMode = QStringLiteral("802.11ax (Wi-Fi 6)");
    wifi.security = QStringLiteral("WPA3 Personal");
    n.wifi = wifi;
    n.vpnInterfaces = {QStringLiteral("tun0")};
    n.internetReachable = r.internetReachable;
    if (r.internetReachable.value_or(false)) {
        n.publicIP = QStringLiteral("203.0.113.42");
        n.pingMs = 18;
        n.pingTrail = wave(18, 6, 24);
    }

    auto& sn = s.sensors;
    const double t = r.menubarTemperature.value_or(45);
    sn.sensors = {
        sensor("k10temp/temp1", "CPU Package", SensorGroup::cpu, SensorKind::temperature, t, t + 6),
        sensor("k10temp/temp3", "CPU Die", SensorGroup::cpu, SensorKind::temperature, t - 3, t + 4),
        sensor("amdgpu/temp1", "GPU Edge", SensorGroup::gpu, SensorKind::temperature, t - 8, t),
        sensor("nvme/temp1", "NVMe Composite", SensorGroup::storage, SensorKind::temperature, 38, 44),
        sensor("BAT0/temp", "Battery", SensorGroup::battery, SensorKind::temperature, 31, 33),
        sensor("PSTR", "System Total", SensorGroup::power, SensorKind::power, busy ? 38.5 : 7.2, 52),
    };
    for (const Sensor& one : sn.sensors)
        sn.trails[one.key] = wave(one.value, 3, 60);
    for (SensorGroup group : {SensorGroup::cpu, SensorGroup::gpu, SensorGroup::storage, SensorGroup::battery}) {
        double sum = 0, count = 0, maximum = 0;
        for (const Sensor& one : sn.sensors)
            if (one.group == group && one.kind == SensorKind::temperature) {
                sum += one.value;
                maximum = std::max(maximum, one.value);
                ++count;
            }
        if (count > 0)
            sn.summaries[group] = {sum / count, maximum};
    }
    if (r.fastestFanRpm) {
        sn.fans = {{0, *r.fastestFanRpm, 1200, 6800}};
        sn.fanTrail = wave(*r.fastestFanRpm, 300);
    }
    sn.menubarTemperature = r.menubarTemperature;

    auto& b = s.battery;
    b.present = r.batteryPresent;
    if (b.present) {
        b.percent = r.batteryPercent;
        b.isCharging = r.batteryCharging;
        b.onAC = r.batteryCharging;
        b.stateDescription = r.batteryCharging ? QStringLiteral("Charging") : QStringLiteral("On battery");
        b.minutesRemaining = r.batteryCharging ? 96 : 245;
        b.healthPercent = 91;
        b.condition = QStringLiteral("Good");
        b.cycleCount = 214;
        b.designCapacity = 4810;
        b.maxCapacity = 4377;
        b.temperature = 31;
        b.voltage = 15.62;
        b.amperage = r.batteryCharging ? 2.1 : -0.58;
        b.power = batteryPowerDraw(b.voltage, b.amperage);
        if (b.onAC) {
            b.adapterWatts = 65;
            b.adapterName = QStringLiteral("USB-C Power Delivery");
        }
        b.accessories = {{QStringLiteral("MX Master 3"), 72}, {QStringLiteral("WH-1000XM4"), 12}};
        b.trail = wave(r.batteryPercent, 2, 60);
    }

    s.devices = r.connectedDevices;
    // Two saved speed tests; the busy machine is running a third, the offline one failed.
    const QDateTime tested = QDateTime::fromSecsSinceEpoch(qint64(r.time), QTimeZone::utc());
    s.speedTests.results = {
        {tested.addSecs(-2 * 3600), 61.2e6, 5.4e6, 842, 18, QStringLiteral("wlp1s0"), 1.38e9},
        {tested.addDays(-3), 48.9e6, 4.9e6, 412, 23, QStringLiteral("wlp1s0"), 1.1e9},
    };
    if (busy)
        s.speedTests.state = {SpeedTest::State::Kind::running, tested.addSecs(-7), {}};
    else if (r.internetReachable == false)
        s.speedTests.state = {SpeedTest::State::Kind::failed, {}, QStringLiteral("The test failed. Check your connection.")};

    s.keepAwake = busy ? PanelSnapshot::KeepAwake{true, QStringLiteral("Until turned off")}
                       : PanelSnapshot::KeepAwake{false, QStringLiteral("Off")};
    if (r.cpuUser + r.cpuSystem > 95)
        s.insight = {Insight::Kind::cpu, QStringLiteral("blender is using 3 cores — the fans are at full speed."),
                     Insight::Severity::critical, ModuleKind::cpu, 4211};
    else if (busy)
        s.insight = {Insight::Kind::cpu, QStringLiteral("blender is using 3 cores."), Insight::Severity::warning,
                     ModuleKind::cpu, 4211};

    s.timeZone = sampleTimeZone();
    s.weather = state.weather;
    s.calendar = state.calendar;
    if (state.place)
        s.sky = AstronomyMonitor::compute(*state.place, s.now, s.timeZone);
    return s;
}

HistorySeries sampleHistory(const SampleState& state, const std::vector<HistoryMetric>& metrics, HistoryRange range)
{
    HistorySeries series;
    if (state.name == QLatin1String("offline"))
        return series;
    const HistoryRangeShape shape = historyRangeShape(range);
    series.bucket = double(shape.width);
    const auto now = int64_t(state.readings.time);
    const int64_t first = (now - shape.span) / shape.width * shape.width + shape.width;
    const int count = int((now - first) / shape.width) + 1;
    const int sleepFrom = count * 55 / 100;
    const int sleepTo = count * 68 / 100;
    for (int i = 0; i < count; ++i) {
        if (i >= sleepFrom && i < sleepTo)
            continue;
        series.times.push_back(double(first + i * shape.width));
    }
    for (HistoryMetric metric : metrics) {
        double level = 30, swing = 20, floor = 0;
        switch (metric) {
        case HistoryMetric::cpuUser: level = 22; swing = 18; break;
        case HistoryMetric::cpuSystem: level = 7; swing = 5; break;
        case HistoryMetric::gpu: level = 15; swing = 14; break;
        case HistoryMetric::memoryPressure: level = 30; swing = 12; break;
        case HistoryMetric::memoryUsed: level = 55; swing = 10; break;
        case HistoryMetric::diskRead: level = 3e6; swing = 2.8e6; break;
        case HistoryMetric::diskWrite: level = 1e6; swing = 0.9e6; break;
        case HistoryMetric::download: level = 4e6; swing = 3.8e6; break;
        case HistoryMetric::upload: level = 0.6e6; swing = 0.5e6; break;
        case HistoryMetric::temperature: level = 55; swing = 12; floor = 35; break;
        case HistoryMetric::fan: level = 2600; swing = 1200; floor = 1200; break;
        case HistoryMetric::battery: level = 60; swing = 35; break;
        case HistoryMetric::power: level = 14; swing = 10; floor = 3; break;
        }
        std::vector<std::optional<double>> values;
        for (size_t i = 0; i < series.times.size(); ++i) {
            const double x = double(i) / 9.0 + double(int(metric));
            values.push_back(std::max(floor, level + swing * std::sin(x) * std::cos(x * 0.37)));
        }
        series.values[metric] = values;
    }
    return series;
}

} // namespace pulsebar
