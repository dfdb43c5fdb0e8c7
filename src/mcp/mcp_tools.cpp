#include "mcp/mcp_tools.h"

#include "core/app_settings.h"
#include "core/fmt.h"
#include "hub/hub.h"
#include "history/history_store.h"
#include "insight/insight_engine.h"
#include "mcp/mcp_arguments.h"
#include "mcp/mcp_history.h"
#include "mcp/mcp_values.h"
#include "mcp/tool_error.h"
#include "speedtest/speed_test.h"

#include <QDateTime>

#include <algorithm>
#include <array>
#include <cmath>

namespace pulsebar {

using McpValue::r;

namespace {

QString internetText(const std::optional<bool>& reachable)
{
    if (!reachable)
        return QStringLiteral("checking"); // the first ping has not finished yet
    return *reachable ? QStringLiteral("connected") : QStringLiteral("offline");
}

QJsonObject wifiObject(const WiFiInfo& wifi)
{
    QJsonObject object{
        // A link whose name the system withholds still has a BSSID.
        {"network", wifi.ssid.value_or(QStringLiteral("(hidden: Location permission needed)"))},
        {"signal_dbm", wifi.rssi},
        {"noise_dbm", wifi.noise},
        {"tx_rate_mbps", r(wifi.transmitRate)},
        {"standard", wifi.phyMode},
        {"security", wifi.security},
    };
    if (wifi.channel)
        object.insert("channel", *wifi.channel);
    if (wifi.band)
        object.insert("band", *wifi.band);
    return object;
}

QString groupName(SensorGroup group)
{
    static const std::array<QString, 8> names{"CPU", "GPU", "Memory", "Storage", "Battery", "Power", "System", "Other"};
    return names[std::size_t(group)];
}

QJsonObject describe(const Sensor& sensor)
{
    return QJsonObject{
        {"name", sensor.name},
        {"group", groupName(sensor.group)},
        {"kind", enumName(sensor.kind)},
        {"value", r(sensor.value)},
        {"peak_since_start", r(sensor.peak)},
    };
}

// The temperature sensors, hottest first; equal values keep their catalogue order.
std::vector<Sensor> temperaturesHottestFirst(const SensorMonitor& sensors)
{
    std::vector<Sensor> result;
    std::copy_if(sensors.sensors.begin(), sensors.sensors.end(), std::back_inserter(result),
                 [](const Sensor& s) { return s.kind == SensorKind::temperature; });
    std::stable_sort(result.begin(), result.end(), [](const Sensor& a, const Sensor& b) { return a.value > b.value; });
    return result;
}

// (rpm - min) / (max - min) in percent, at most 100; 0 for a fan without a range or below its minimum.
double percentOfRange(const Fan& fan)
{
    if (fan.maximum <= fan.minimum)
        return 0;
    const double share = (fan.rpm - fan.minimum) / (fan.maximum - fan.minimum) * 100.0;
    return share < 0 ? 0 : std::min(share, 100.0);
}

qint64 wholeRpm(double rpm)
{
    return std::isfinite(rpm) ? std::llround(rpm) : 0;
}

QJsonArray fanSpeeds(const std::vector<Fan>& fans)
{
    QJsonArray speeds;
    for (const Fan& fan : fans)
        speeds.append(wholeRpm(fan.rpm));
    return speeds;
}

// What the adapter says about itself: its name, with its rated power when it gives one.
std::optional<QString> adapterDescription(const BatteryMonitor& battery)
{
    if (!battery.onAC)
        return std::nullopt;
    if (battery.adapterName && battery.adapterWatts)
        return *battery.adapterName + QStringLiteral(" (") + QString::number(*battery.adapterWatts) + QStringLiteral(" W)");
    if (battery.adapterName)
        return battery.adapterName;
    if (battery.adapterWatts)
        return QString::number(*battery.adapterWatts) + QStringLiteral(" W adapter");
    return std::nullopt;
}

// Space that can be freed on demand: what counts as free for important use beyond the plain free space.
double purgeable(const Volume& volume)
{
    return std::max(volume.availableImportant - volume.available, 0.0);
}

std::optional<ProcessSortKey> sortKey(const QString& name)
{
    if (name == QLatin1String("cpu"))
        return ProcessSortKey::cpu;
    if (name == QLatin1String("memory"))
        return ProcessSortKey::memory;
    if (name == QLatin1String("disk"))
        return ProcessSortKey::diskTotal;
    return std::nullopt;
}

QJsonObject cpuSummary(const CPUMonitor& cpu)
{
    QJsonArray load;
    for (const double average : cpu.loadAverage)
        load.append(r(average));
    return QJsonObject{{"total_percent", r(cpu.user + cpu.system)},
                       {"user_percent", r(cpu.user)},
                       {"system_percent", r(cpu.system)},
                       {"load_average", load}};
}

QJsonObject memorySummary(const MemoryMonitor& memory)
{
    return QJsonObject{{"used_percent", r(memory.usedPercent())},
                       {"used", McpValue::size(memory.app + memory.wired + memory.compressed, 1024)},
                       {"total", McpValue::size(memory.total, 1024)},
                       {"pressure_percent", r(memory.pressure)},
                       {"pressure", enumName(memory.pressureLevel)},
                       {"swap_used", McpValue::size(memory.swapUsed, 1024)},
                       {"swap_total", McpValue::size(memory.swapTotal, 1024)}};
}

QJsonObject startupDiskSummary(const Volume& volume)
{
    return QJsonObject{{"used_percent", r(volume.usedPercent())},
                       {"free", McpValue::size(volume.available, 1000)},
                       {"total", McpValue::size(volume.total, 1000)}};
}

// Rates, reachability and ping: what the overview shows of the network, and where get_network starts.
QJsonObject networkSummary(const NetworkMonitor& network)
{
    QJsonObject summary{
        {"download_per_second", McpValue::rate(network.download)},
        {"upload_per_second", McpValue::rate(network.upload)},
        {"internet", internetText(network.internetReachable)},
    };
    if (network.pingMs)
        summary.insert("ping_ms", r(*network.pingMs));
    return summary;
}

QJsonObject batterySummary(const BatteryMonitor& battery)
{
    QJsonObject summary{{"percent", r(battery.percent)}, {"state", battery.stateDescription()}};
    if (battery.minutesRemaining)
        summary.insert("time_remaining", Fmt::hoursMinutes(*battery.minutesRemaining));
    if (const auto health = battery.healthPercent())
        summary.insert("health_percent", r(*health));
    return summary;
}

} // namespace

MCPTools::MCPTools(Hub& hub) : m_hub(hub)
{
}

MCPTools::~MCPTools() = default;

QJsonObject MCPTools::call(const QString& name, const QJsonObject& arguments)
{
    if (name == QLatin1String("get_overview"))
        return getOverview();
    if (name == QLatin1String("get_top_processes"))
        return getTopProcesses(arguments);
    if (name == QLatin1String("get_history"))
        return getHistory(arguments);
    if (name == QLatin1String("get_sensors"))
        return getSensors(arguments);
    if (name == QLatin1String("get_battery"))
        return getBattery();
    if (name == QLatin1String("get_network"))
        return getNetwork();
    if (name == QLatin1String("get_disks"))
        return getDisks();
    if (name == QLatin1String("get_connected_devices"))
        return getConnectedDevices();
    throw ToolError(QStringLiteral("Unknown tool: ") + name);
}

// ---- get_overview ----

QJsonObject MCPTools::getOverview()
{
    if (!m_factsRead) {
        m_model = m_hub.machine().readModel();
        m_osVersion = m_hub.machine().readOSVersion();
        m_factsRead = true;
    }
    const CPUMonitor& cpu = m_hub.cpu;
    QJsonObject computer{
        {"model", m_model.value_or(QStringLiteral("Computer"))},
        {"processor", cpu.brand},
        {"cores", cpu.logicalCount},
        {"uptime", Fmt::duration(std::isfinite(cpu.uptime) ? std::max(cpu.uptime, 0.0) : 0)},
        {"insight", m_hub.insights().current().text},
    };
    if (m_osVersion)
        computer.insert("os", *m_osVersion);

    QJsonObject overview{
        {"time", McpValue::timestamp(m_hub.now())},
        {"computer", computer},
        {"cpu", cpuSummary(cpu)},
        {"memory", memorySummary(m_hub.memory)},
        {"network", networkSummary(m_hub.network)},
    };
    if (m_hub.gpu.hasGPU())
        overview.insert("gpu", QJsonObject{{"utilization_percent", r(m_hub.gpu.utilization())}});
    if (const auto startup = m_hub.disks.startupVolume())
        overview.insert("startup_disk", startupDiskSummary(*startup));

    awaitSensorDiscovery();
    const SensorMonitor& sensors = m_hub.sensors;
    overview.insert("fans_rpm", fanSpeeds(sensors.fans));
    if (const auto temperature = m_hub.menubarTemperature())
        overview.insert("cpu_temperature_c", r(*temperature));
    if (const auto hottest = temperaturesHottestFirst(sensors); !hottest.empty())
        overview.insert("hottest_sensor", hottest.front().name + QLatin1Char(' ')
                                              + Fmt::number(hottest.front().value, 1) + QString::fromUtf8(" °C"));
    if (const auto systemPower = sensors.sensor(QStringLiteral("PSTR")))
        overview.insert("system_power_watts", r(systemPower->value));
    if (m_hub.battery.present)
        overview.insert("battery", batterySummary(m_hub.battery));
    if (const auto thermal = thermalState(m_hub.machine().readThermalZones()))
        overview.insert("thermal", enumName(*thermal));
    if (const QJsonArray devices = connectedDevices(); !devices.isEmpty())
        overview.insert("connected_devices", devices);
    return overview;
}

// ---- get_top_processes ----

QJsonObject MCPTools::getTopProcesses(const QJsonObject& arguments)
{
    const QString sortBy = McpArgument::string(arguments, QLatin1String("sort_by")).value_or(QStringLiteral("cpu"));
    if (!sortKey(sortBy))
        throw ToolError(QStringLiteral("sort_by must be cpu, memory or disk."));
    const int64_t limit = std::clamp<int64_t>(McpArgument::integer(arguments, QLatin1String("limit")).value_or(10), 1, 30);
    QJsonArray processes;
    for (const ProcessSample& process : m_hub.processes.top(*sortKey(sortBy), int(limit)))
        processes.append(QJsonObject{
            {"name", process.name},
            {"cpu_percent", r(process.cpu)},
            {"memory", McpValue::size(process.memory, 1024)},
            {"disk_read_per_second", McpValue::rate(process.diskRead)},
            {"disk_write_per_second", McpValue::rate(process.diskWrite)},
        });
    return QJsonObject{{"sorted_by", sortBy}, {"processes", processes}};
}

// ---- get_history ----

QJsonObject MCPTools::historySummary(const std::vector<Sample>& samples, double pointSeconds)
{
    double sum = 0;
    const Sample* highest = &samples.front();
    const Sample* lowest = &samples.front();
    for (const Sample& sample : samples) {
        sum += sample.value;
        // The first sample holding the extreme wins: "when was the peak" names its first moment.
        if (sample.value > highest->value)
            highest = &sample;
        if (sample.value < lowest->value)
            lowest = &sample;
    }
    return QJsonObject{
        {"average", r(sum / double(samples.size()))},
        {"max", r(highest->value)},
        {"max_at", McpValue::timestamp(highest->time)},
        {"min", r(lowest->value)},
        {"min_at", McpValue::timestamp(lowest->time)},
        {"latest", r(samples.back().value)},
        {"from", McpValue::timestamp(samples.front().time)},
        {"to", McpValue::timestamp(samples.back().time)},
        {"point_seconds", qint64(std::isfinite(pointSeconds) ? pointSeconds : 0)},
    };
}

QJsonArray MCPTools::historyPoints(const std::vector<Sample>& samples, int points)
{
    QJsonArray result;
    if (points < 1 || samples.empty())
        return result;
    const std::size_t count = samples.size();
    const std::size_t want = std::size_t(std::min(points, 200));
    const std::size_t bucket = std::max<std::size_t>((count + want - 1) / want, 1);
    for (std::size_t start = 0; start < count; start += bucket) {
        const std::size_t end = std::min(start + bucket, count);
        double sum = 0;
        for (std::size_t i = start; i < end; ++i)
            sum += samples[i].value;
        result.append(QJsonObject{{"time", McpValue::timestamp(samples[start].time)},
                                  {"value", r(sum / double(end - start))}});
    }
    return result;
}

QJsonObject MCPTools::getHistory(const QJsonObject& arguments)
{
    const std::optional<QString> metricName = McpArgument::string(arguments, QLatin1String("metric"));
    const std::optional<HistoryMetric> metric =
        metricName ? enumFromName<HistoryMetric>(*metricName) : std::nullopt;
    if (!metric)
        throw ToolError(QStringLiteral("metric must be one of: ")
                        + McpHistory::metricNames().join(QStringLiteral(", ")));
    const QString rangeName =
        McpArgument::string(arguments, QLatin1String("range")).value_or(QStringLiteral("24h"));
    const std::optional<HistoryRange> range = McpHistory::range(rangeName);
    if (!range)
        throw ToolError(QStringLiteral("range must be 1h, 24h, 7d or 30d."));

    // The hub opened the file at start; when the tray app created it only later, it is opened now.
    std::unique_ptr<HistoryStore> opened;
    HistoryStore* store = m_hub.history.get();
    if (!store) {
        opened = HistoryStore::openDefault(HistoryStore::Access::readOnly);
        store = opened.get();
    }
    if (!store)
        throw ToolError(QStringLiteral("No history yet. Pulsebar records history while the menu bar app is running."));

    const HistorySeries series = store->loadNow({*metric}, *range);
    std::vector<Sample> samples;
    if (const auto values = series.values.find(*metric); values != series.values.end())
        for (std::size_t i = 0; i < series.times.size() && i < values->second.size(); ++i)
            if (const std::optional<double>& value = values->second[i])
                samples.push_back({series.times[i], *value});

    QJsonObject result{{"metric", enumName(*metric)}, {"unit", McpHistory::unit(*metric)}, {"range", rangeName}};
    if (samples.empty()) {
        result.insert("note", "No samples in this range.");
        return result;
    }
    result.insert("summary", historySummary(samples, series.bucket));
    const int64_t points = McpArgument::integer(arguments, QLatin1String("points")).value_or(48);
    if (points >= 1)
        result.insert("points", historyPoints(samples, int(std::min<int64_t>(points, 200))));
    return result;
}

// ---- get_sensors ----

void MCPTools::awaitSensorDiscovery()
{
    SensorMonitor& sensors = m_hub.sensors;
    if (sensors.isReady)
        return;
    // Discovery runs once in the background from the hub's start (or here, for a hub never started);
    // a call that arrives first waits for it, briefly (it is a walk over a few files), instead of
    // calling the sensors inaccessible.
    sensors.awaitDiscovery(3000);
    if (sensors.isReady && sensors.fans.empty() && sensors.fanCount > 0)
        sensors.sample();
}

QJsonObject MCPTools::getSensors(const QJsonObject& arguments)
{
    const bool allSensors = McpArgument::boolean(arguments, QLatin1String("all_sensors")).value_or(false);
    awaitSensorDiscovery();
    const SensorMonitor& sensors = m_hub.sensors;
    if (!sensors.isReady || (sensors.sensors.empty() && sensors.fans.empty()))
        return QJsonObject{{"note", "Sensors are not accessible on this computer."}};

    QJsonArray groups;
    for (const SensorGroup group : allCases<SensorGroup>())
        if (const auto summary = sensors.summary(group))
            groups.append(QJsonObject{{"group", groupName(group)},
                                      {"average_c", r(summary->average)},
                                      {"max_c", r(summary->maximum)}});
    QJsonArray hottest;
    for (const Sensor& sensor : temperaturesHottestFirst(sensors)) {
        if (hottest.size() == 10)
            break;
        hottest.append(describe(sensor));
    }
    QJsonArray fans;
    for (const Fan& fan : sensors.fans)
        fans.append(QJsonObject{{"fan", fan.index + 1},
                                {"rpm", wholeRpm(fan.rpm)},
                                {"min_rpm", wholeRpm(fan.minimum)},
                                {"max_rpm", wholeRpm(fan.maximum)},
                                {"percent_of_range", r(percentOfRange(fan))}});
    QJsonArray power;
    for (const Sensor& sensor : sensors.sensors)
        if (sensor.kind == SensorKind::power)
            power.append(describe(sensor));

    QJsonObject result{
        {"temperature_groups", groups},
        {"hottest_sensors_c", hottest},
        {"fans", fans},
        {"power_watts", power},
    };
    if (allSensors) {
        QJsonArray every;
        for (const Sensor& sensor : sensors.sensors) {
            QJsonObject described = describe(sensor);
            described.insert("key", sensor.key);
            every.append(described);
        }
        result.insert("all_sensors", every);
    }
    return result;
}

// ---- get_battery ----

QJsonObject MCPTools::getBattery()
{
    const BatteryMonitor& battery = m_hub.battery;
    if (!battery.present)
        return QJsonObject{{"present", false}};
    QJsonArray accessories;
    for (const BluetoothBattery& accessory : battery.bluetooth)
        accessories.append(QJsonObject{{"name", accessory.name}, {"percent", accessory.percent}});
    QJsonObject result{
        {"present", true},
        {"percent", r(battery.percent)},
        {"state", battery.stateDescription()},
        {"on_power_adapter", battery.onAC},
        {"low_power_mode", battery.lowPowerMode},
        {"bluetooth_devices", accessories},
    };
    if (battery.minutesRemaining)
        result.insert("time_remaining", Fmt::hoursMinutes(*battery.minutesRemaining));
    if (const auto health = battery.healthPercent())
        result.insert("health_percent", r(*health));
    if (const auto condition = battery.displayedCondition())
        result.insert("condition", *condition);
    if (battery.cycleCount)
        result.insert("cycle_count", *battery.cycleCount);
    if (battery.designCapacity)
        result.insert("design_capacity_mah", *battery.designCapacity);
    if (battery.maxCapacity)
        result.insert("max_capacity_mah", *battery.maxCapacity);
    if (battery.temperature)
        result.insert("temperature_c", r(*battery.temperature));
    if (const auto draw = battery.powerDraw())
        result.insert("power_watts", r(*draw));
    if (const auto adapter = adapterDescription(battery))
        result.insert("adapter", *adapter);
    return result;
}

// ---- get_network ----

QJsonValue MCPTools::speedTests(const QJsonValue& saved)
{
    std::vector<SpeedTestResult> results = SpeedTest::decode(saved);
    if (results.empty())
        return QStringLiteral("None yet. Run one from Pulsebar's Network dropdown.");
    std::stable_sort(results.begin(), results.end(),
                     [](const SpeedTestResult& a, const SpeedTestResult& b) { return a.date > b.date; });
    QJsonArray list;
    for (const SpeedTestResult& result : results) {
        QJsonObject entry{{"time", McpValue::timestamp(double(result.date.toMSecsSinceEpoch()) / 1000.0)},
                          {"download", McpValue::rate(result.download)},
                          {"upload", McpValue::rate(result.upload)}};
        if (result.responsiveness) {
            entry.insert("responsiveness_rpm", r(*result.responsiveness));
            // Responsiveness counts round trips per minute under load; its inverse is that latency.
            if (*result.responsiveness > 0)
                entry.insert("latency_under_load_ms", r(60000.0 / *result.responsiveness));
        }
        list.append(entry);
    }
    return list;
}

QJsonObject MCPTools::getNetwork()
{
    const NetworkMonitor& network = m_hub.network;
    QJsonArray interfaces;
    for (const InterfaceInfo& interface : network.interfaces) {
        QJsonObject object{
            {"name", interface.displayName},
            {"bsd_name", interface.bsdName},
            {"ipv4", QJsonArray::fromStringList(interface.ipv4)},
            {"ipv6", QJsonArray::fromStringList(interface.ipv6)},
            {"download_per_second", McpValue::rate(interface.download)},
            {"upload_per_second", McpValue::rate(interface.upload)},
        };
        if (interface.mac)
            object.insert("mac", *interface.mac);
        interfaces.append(object);
    }
    QJsonObject result = networkSummary(network);
    result.insert("dns", QJsonArray::fromStringList(network.dns));
    result.insert("vpn_interfaces", QJsonArray::fromStringList(network.vpnInterfaces));
    result.insert("interfaces", interfaces);
    result.insert("speed_tests",
                  speedTests(m_hub.settings().preferences().value(SpeedTest::preferencesKey)));
    if (network.primaryInterface)
        result.insert("primary_interface", *network.primaryInterface);
    if (network.publicIP)
        result.insert("public_ip", *network.publicIP);
    if (network.router)
        result.insert("router", *network.router);
    // Associated: the link has a peer, whether or not its name is shown.
    if (network.wifi && network.wifi->isAssociated())
        result.insert("wifi", wifiObject(*network.wifi));
    return result;
}

// ---- get_disks ----

QJsonObject MCPTools::getDisks()
{
    const DiskMonitor& disks = m_hub.disks;
    QJsonArray volumes;
    for (const Volume& volume : disks.volumes) {
        volumes.append(QJsonObject{
            {"name", volume.name},
            {"path", volume.url},
            {"startup_disk", volume.isRoot},
            {"removable", volume.isRemovable},
            {"network", !volume.isLocal},
            {"total", McpValue::size(volume.total, 1000)},
            {"used", McpValue::size(volume.used(), 1000)},
            {"free", McpValue::size(volume.available, 1000)},
            {"reserved", McpValue::size(volume.reserved, 1000)},
            {"used_percent", r(volume.usedPercent())},
            {"purgeable", McpValue::size(purgeable(volume), 1000)},
        });
    }
    return QJsonObject{
        {"volumes", volumes},
        {"read_per_second", McpValue::rate(disks.readRate)},
        {"write_per_second", McpValue::rate(disks.writeRate)},
    };
}

// ---- get_connected_devices ----

QJsonObject MCPTools::deviceObject(const ConnectedDevice& device)
{
    QJsonObject object{
        {"name", device.displayName()},
        {"trusted", device.trusted},
        {"connection", connectionName(device.connection)},
    };
    // A code missing from the model table still tells an agent more than nothing.
    if (const std::optional<QString> model = device.modelName() ? device.modelName() : device.productType)
        object.insert("model", *model);
    if (device.osVersion)
        object.insert("software", device.systemName() + QLatin1Char(' ') + *device.osVersion);
    if (!device.trusted) {
        object.insert("note", untrustedDeviceNote());
        return object;
    }
    if (device.batteryLevel)
        object.insert("battery_percent", *device.batteryLevel);
    if (device.isCharging)
        object.insert("charging", *device.isCharging);
    if (device.storageFree)
        object.insert("storage_free", McpValue::size(double(*device.storageFree), 1000));
    if (device.storageTotal)
        object.insert("storage_total", McpValue::size(double(*device.storageTotal), 1000));
    if (const auto& battery = device.battery) {
        if (const auto health = battery->healthPercent())
            object.insert("battery_health_percent", r(*health));
        if (battery->cycleCount)
            object.insert("battery_cycle_count", *battery->cycleCount);
        if (battery->designCapacity)
            object.insert("battery_design_capacity_mah", *battery->designCapacity);
        if (battery->maxCapacity)
            object.insert("battery_max_capacity_mah", *battery->maxCapacity);
    }
    return object;
}

QJsonArray MCPTools::connectedDevices()
{
    // An agent's question may come before the devices attached at start have been read.
    m_hub.devices.waitForReads();
    QJsonArray devices;
    for (const ConnectedDevice& device : m_hub.snapshot().connectedDevices)
        devices.append(deviceObject(device));
    return devices;
}

QJsonObject MCPTools::getConnectedDevices()
{
    return QJsonObject{{"devices", connectedDevices()}};
}

} // namespace pulsebar
