// Each tool's keys on known live state: the hub's monitors hold exact values, so every rounding, size,
// rate and timestamp text can be asserted.

#include "hub/hub.h"
#include "history/history_store.h"
#include "mcp/mcp_server.h"
#include "mcp/mcp_tools.h"
#include "mcp/mcp_values.h"
#include "mcp/tool_error.h"
#include "platform/linux/linux_system_readers.h"

#include "../support/test_support.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <QDateTime>

#include <cmath>
#include <ctime>

using namespace pulsebar;

namespace {

QJsonObject parse(const char* json)
{
    QJsonParseError error{};
    const QJsonObject object = QJsonDocument::fromJson(json, &error).object();
    EXPECT_EQ(error.error, QJsonParseError::NoError) << json;
    return object;
}

std::string pretty(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented).toStdString();
}

#define EXPECT_JSON_EQ(actual, expected) EXPECT_EQ(pretty(actual), pretty(expected))

class McpTools : public ::testing::Test {
protected:
    McpTools()
        : sysroot("PULSEBAR_SYSROOT", test::fixture("mcp/sysroot")), timeZone("TZ", "UTC"),
          dataHome("XDG_DATA_HOME", isolated.dir.path() + "/data")
    {
        tzset();
        hub = std::make_unique<Hub>(isolated.settings,
                                    linuxSystemReaders(RootedFileReader(test::fixture("mcp/sysroot").toStdString())));
        hub->now = [] { return 1772716051.0; }; // 2026-03-05T13:07:31Z
        tools = std::make_unique<MCPTools>(*hub);
    }
    ~McpTools() override { tzset(); }

    test::IsolatedSettings isolated;
    test::ScopedEnv sysroot;
    test::ScopedEnv timeZone;
    test::ScopedEnv dataHome;
    std::unique_ptr<Hub> hub;
    std::unique_ptr<MCPTools> tools;
};

} // namespace

TEST_F(McpTools, NetworkReportsRatesAddressesWifiAndSpeedTests)
{
    NetworkMonitor& n = hub->network;
    n.download = 1536.0 * 1024;
    n.upload = 800;
    n.internetReachable = true;
    n.dns = {"192.168.1.1", "fd00::1"};
    n.vpnInterfaces = {"wg0"};
    n.primaryInterface = "wlp2s0";
    n.router = "192.168.1.1";
    n.publicIP = "203.0.113.7";
    n.pingMs = 12.345;
    InterfaceInfo wifi;
    wifi.bsdName = "wlp2s0";
    wifi.displayName = "Wi-Fi";
    wifi.ipv4 = {"192.168.1.20"};
    wifi.ipv6 = {"2001:db8::20"};
    wifi.mac = "aa:bb:cc:00:11:22";
    wifi.download = 1536.0 * 1024;
    wifi.upload = 800;
    InterfaceInfo vpn;
    vpn.bsdName = "wg0";
    vpn.displayName = "VPN (wg0)";
    vpn.ipv4 = {"10.0.0.2"};
    n.interfaces = {wifi, vpn};
    WiFiInfo link;
    link.interfaceName = "wlp2s0";
    link.ssid = "Home/5G";
    link.bssid = "aa:bb:cc:dd:ee:ff";
    link.rssi = -54;
    link.noise = -92;
    link.channel = 36;
    link.band = "5 GHz";
    link.transmitRate = 866.66;
    link.phyMode = "802.11ac (Wi-Fi 5)";
    link.security = "WPA2 Personal";
    n.wifi = link;

    EXPECT_JSON_EQ(tools->getNetwork(), parse(R"json({
        "download_per_second": "1.5 MB/s", "upload_per_second": "800 B/s", "internet": "connected",
        "dns": ["192.168.1.1", "fd00::1"], "vpn_interfaces": ["wg0"], "primary_interface": "wlp2s0",
        "router": "192.168.1.1", "public_ip": "203.0.113.7", "ping_ms": 12.3,
        "interfaces": [
            {"name": "Wi-Fi", "bsd_name": "wlp2s0", "ipv4": ["192.168.1.20"], "ipv6": ["2001:db8::20"],
             "mac": "aa:bb:cc:00:11:22", "download_per_second": "1.5 MB/s", "upload_per_second": "800 B/s"},
            {"name": "VPN (wg0)", "bsd_name": "wg0", "ipv4": ["10.0.0.2"], "ipv6": [],
             "download_per_second": "0 B/s", "upload_per_second": "0 B/s"}],
        "wifi": {"network": "Home/5G", "signal_dbm": -54, "noise_dbm": -92, "channel": 36, "band": "5 GHz",
                 "tx_rate_mbps": 866.7, "standard": "802.11ac (Wi-Fi 5)", "security": "WPA2 Personal"},
        "speed_tests": "None yet. Run one from Pulsebar's Network dropdown."
    })json"));

    // Unknown values are left out; a withheld network name is said so; offline once a ping failed.
    n.publicIP.reset();
    n.pingMs.reset();
    n.router.reset();
    n.primaryInterface.reset();
    n.internetReachable = false;
    n.wifi->ssid.reset();
    n.wifi->channel.reset();
    n.wifi->band.reset();
    QJsonObject result = tools->getNetwork();
    for (const char* key : {"public_ip", "ping_ms", "router", "primary_interface"})
        EXPECT_FALSE(result.contains(key)) << key;
    EXPECT_EQ(result["internet"].toString(), "offline");
    EXPECT_JSON_EQ(result["wifi"].toObject(), parse(R"json({
        "network": "(hidden: Location permission needed)", "signal_dbm": -54, "noise_dbm": -92,
        "tx_rate_mbps": 866.7, "standard": "802.11ac (Wi-Fi 5)", "security": "WPA2 Personal"})json"));

    // A radio that is on but not associated is no Wi-Fi link; no ping yet reads "checking".
    n.wifi->bssid.reset();
    n.internetReachable.reset();
    result = tools->getNetwork();
    EXPECT_FALSE(result.contains("wifi"));
    EXPECT_EQ(result["internet"].toString(), "checking");

    // Saved speed tests come from the preferences file.
    isolated.preferences.setValue("PulsebarSpeedTests.v1", QJsonDocument::fromJson(R"json([
        {"date": 1772716000, "download": 12500000, "upload": 2500000, "responsiveness": 1200}])json").array());
    EXPECT_JSON_EQ(tools->getNetwork()["speed_tests"].toArray().at(0).toObject(), parse(R"json({
        "time": "2026-03-05T13:06:40+00:00", "download": "11.9 MB/s", "upload": "2.4 MB/s",
        "responsiveness_rpm": 1200, "latency_under_load_ms": 50})json"));
}

namespace {

Sensor sensor(const char* key, const char* name, SensorGroup group, SensorKind kind, double value, double peak)
{
    return Sensor{key, name, group, kind, value, peak};
}

void fillSensors(SensorMonitor& s)
{
    s.sensors = {
        sensor("coretemp/temp1", "Package id 0", SensorGroup::cpu, SensorKind::temperature, 61.04, 70.96),
        sensor("coretemp/temp2", "Core 0", SensorGroup::cpu, SensorKind::temperature, 58.0, 58.0),
        sensor("nvme/temp1", "Composite", SensorGroup::storage, SensorKind::temperature, 41.25, 44.0),
        sensor("PSTR", "System Total", SensorGroup::power, SensorKind::power, 18.26, 30.0),
        sensor("in0", "DC In", SensorGroup::power, SensorKind::voltage, 20.1, 20.2),
    };
    s.fans = {Fan{0, 2400.4, 1200, 6000}, Fan{1, 1000, 2000, 2000}, Fan{2, 900, 1200, 5000}};
    s.fanCount = 3;
    s.isReady = true;
}

} // namespace

TEST_F(McpTools, SensorsGroupTemperaturesRankTheHottestAndPlaceFansInTheirRange)
{
    fillSensors(hub->sensors);
    const QJsonObject result = tools->getSensors({});
    EXPECT_JSON_EQ(result, parse(R"json({
        "temperature_groups": [
            {"group": "CPU", "average_c": 59.5, "max_c": 61},
            {"group": "Storage", "average_c": 41.2, "max_c": 41.2}],
        "hottest_sensors_c": [
            {"name": "Package id 0", "group": "CPU", "kind": "temperature", "value": 61, "peak_since_start": 71},
            {"name": "Core 0", "group": "CPU", "kind": "temperature", "value": 58, "peak_since_start": 58},
            {"name": "Composite", "group": "Storage", "kind": "temperature", "value": 41.2, "peak_since_start": 44}],
        "fans": [
            {"fan": 1, "rpm": 2400, "min_rpm": 1200, "max_rpm": 6000, "percent_of_range": 25},
            {"fan": 2, "rpm": 1000, "min_rpm": 2000, "max_rpm": 2000, "percent_of_range": 0},
            {"fan": 3, "rpm": 900, "min_rpm": 1200, "max_rpm": 5000, "percent_of_range": 0}],
        "power_watts": [
            {"name": "System Total", "group": "Power", "kind": "power", "value": 18.3, "peak_since_start": 30}]
    })json"));

    const QJsonArray every = tools->getSensors({{"all_sensors", true}})["all_sensors"].toArray();
    ASSERT_EQ(every.size(), 5);
    EXPECT_JSON_EQ(every[4].toObject(), parse(R"json({"name": "DC In", "group": "Power", "kind": "voltage",
        "value": 20.1, "peak_since_start": 20.2, "key": "in0"})json"));
    EXPECT_FALSE(tools->getSensors({{"all_sensors", "yes"}}).contains("all_sensors"));

    // Eleven temperatures: only the ten hottest are listed.
    for (int i = 0; i < 8; ++i)
        hub->sensors.sensors.push_back(
            sensor("x", "Extra", SensorGroup::other, SensorKind::temperature, 30 + i, 30 + i));
    EXPECT_EQ(tools->getSensors({})["hottest_sensors_c"].toArray().size(), 10);
}

TEST_F(McpTools, SensorsWithoutACatalogueSaySo)
{
    // Discovery found neither an SMC nor hwmon chips nor thermal zones.
    hub->sensors.isReady = true;
    EXPECT_JSON_EQ(tools->getSensors({}), parse(R"json({"note": "Sensors are not accessible on this computer."})json"));
}

TEST_F(McpTools, BatteryReportsEveryKnownFigureAndLeavesOutTheRest)
{
    EXPECT_JSON_EQ(tools->getBattery(), parse(R"json({"present": false})json"));

    BatteryMonitor& b = hub->battery;
    b.present = true;
    b.percent = 56.78;
    b.isCharging = false;
    b.onAC = false;
    b.minutesRemaining = 185;
    b.cycleCount = 412;
    b.designCapacity = 5000;
    b.maxCapacity = 3900;
    b.temperature = 31.06;
    b.voltage = 12.6;
    b.amperage = -1.5;
    b.lowPowerMode = true;
    b.bluetooth = {{"Keyboard", 80}, {"Mouse", 15}};
    EXPECT_JSON_EQ(tools->getBattery(), parse(R"json({
        "present": true, "percent": 56.8, "state": "On battery", "on_power_adapter": false,
        "low_power_mode": true, "time_remaining": "3:05", "health_percent": 78,
        "condition": "Service Recommended", "cycle_count": 412, "design_capacity_mah": 5000,
        "max_capacity_mah": 3900, "temperature_c": 31.1, "power_watts": -18.9,
        "bluetooth_devices": [{"name": "Keyboard", "percent": 80}, {"name": "Mouse", "percent": 15}]
    })json"));

    b.percent = 99.6;
    b.minutesRemaining.reset();
    b.cycleCount.reset();
    b.designCapacity.reset();
    b.maxCapacity.reset();
    b.temperature.reset();
    b.amperage.reset();
    b.lowPowerMode = false;
    b.bluetooth.clear();
    b.onAC = true;
    b.adapterName = "USB-C";
    b.adapterWatts = 65;
    EXPECT_JSON_EQ(tools->getBattery(), parse(R"json({
        "present": true, "percent": 99.6, "state": "Charged", "on_power_adapter": true,
        "low_power_mode": false, "adapter": "USB-C (65 W)", "bluetooth_devices": []
    })json"));
}

TEST_F(McpTools, OverviewCarriesTheSensorAndBatterySummaries)
{
    fillSensors(hub->sensors);
    hub->battery.present = true;
    hub->battery.percent = 42;
    hub->battery.isCharging = true;
    hub->battery.onAC = true;
    hub->battery.minutesRemaining = 47;
    const QJsonObject overview = tools->getOverview();
    EXPECT_EQ(overview["time"].toString(), "2026-03-05T13:07:31+00:00");
    EXPECT_EQ(overview["fans_rpm"].toArray(), (QJsonArray{2400, 1000, 900}));
    EXPECT_EQ(overview["cpu_temperature_c"].toDouble(), 61.0);
    EXPECT_EQ(overview["hottest_sensor"].toString(), QString::fromUtf8("Package id 0 61.0 °C"));
    EXPECT_EQ(overview["system_power_watts"].toDouble(), 18.3);
    EXPECT_EQ(overview["thermal"].toString(), "fair");
    EXPECT_JSON_EQ(overview["battery"].toObject(),
                   parse(R"json({"percent": 42, "state": "Charging", "time_remaining": "0:47"})json"));

    hub->sensors.sensors.clear();
    hub->sensors.fans.clear();
    hub->battery.present = false;
    const QJsonObject bare = tools->getOverview();
    for (const char* key : {"cpu_temperature_c", "hottest_sensor", "system_power_watts", "battery"})
        EXPECT_FALSE(bare.contains(key)) << key;
    EXPECT_EQ(bare["fans_rpm"].toArray(), QJsonArray());
}

namespace {

ProcessSample process(int32_t pid, const char* name, double cpu, double memory, double read, double write)
{
    return {.pid = pid, .name = name, .cpu = cpu, .memory = memory, .diskRead = read, .diskWrite = write};
}

} // namespace

TEST_F(McpTools, TopProcessesRankByTheChosenResourceWithinTheLimit)
{
    std::vector<ProcessSample>& list = hub->processes.processes;
    for (int i = 0; i < 40; ++i)
        list.push_back(process(100 + i, "idle", 0, 1024, 0, 0));
    list.push_back(process(7, "compiler", 398.76, 2.5 * 1024 * 1024 * 1024, 0, 3 * 1024 * 1024));
    list.push_back(process(8, "browser", 45.0, 4.0 * 1024 * 1024 * 1024, 2048, 0));
    list.push_back(process(9, "backup", 45.0, 512 * 1024, 50 * 1024 * 1024, 10 * 1024 * 1024));

    QJsonObject result = tools->getTopProcesses({{"limit", 3}});
    EXPECT_JSON_EQ(result, parse(R"json({"sorted_by": "cpu", "processes": [
        {"name": "compiler", "cpu_percent": 398.8, "memory": "2.5 GB", "disk_read_per_second": "0 B/s",
         "disk_write_per_second": "3.0 MB/s"},
        {"name": "browser", "cpu_percent": 45, "memory": "4.0 GB", "disk_read_per_second": "2.0 KB/s",
         "disk_write_per_second": "0 B/s"},
        {"name": "backup", "cpu_percent": 45, "memory": "512 KB", "disk_read_per_second": "50.0 MB/s",
         "disk_write_per_second": "10.0 MB/s"}]})json"));

    auto names = [](const QJsonObject& result) {
        QStringList names;
        for (const QJsonValue& p : result["processes"].toArray())
            names << p["name"].toString();
        return names;
    };
    EXPECT_EQ(names(tools->getTopProcesses({{"sort_by", "memory"}, {"limit", 2}})), (QStringList{"browser", "compiler"}));
    EXPECT_EQ(names(tools->getTopProcesses({{"sort_by", "disk"}, {"limit", 2}})), (QStringList{"backup", "compiler"}));
    EXPECT_EQ(tools->getTopProcesses({})["processes"].toArray().size(), 10);
    EXPECT_EQ(tools->getTopProcesses({{"limit", 0}})["processes"].toArray().size(), 1);
    EXPECT_EQ(tools->getTopProcesses({{"limit", -5}})["processes"].toArray().size(), 1);
    EXPECT_EQ(tools->getTopProcesses({{"limit", 500}})["processes"].toArray().size(), 30);
    EXPECT_EQ(tools->getTopProcesses({{"limit", 2.5}})["processes"].toArray().size(), 10);
    EXPECT_EQ(tools->getTopProcesses({{"limit", true}})["processes"].toArray().size(), 10);
    EXPECT_EQ(tools->getTopProcesses({{"limit", 1e300}})["processes"].toArray().size(), 10);
    EXPECT_EQ(tools->getTopProcesses({{"sort_by", 3}})["sorted_by"].toString(), "cpu");
    try {
        tools->getTopProcesses({{"sort_by", "gpu"}});
        ADD_FAILURE() << "gpu is no sort key";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.message(), "sort_by must be cpu, memory or disk.");
    }
}

TEST_F(McpTools, DisksListVolumesWithSizesInBase1000)
{
    const Volume root{.url = "/", .name = "/", .total = 500e9, .available = 123.4e9, .availableImportant = 130e9,
                      .isRoot = true, .reserved = 25e9};
    const Volume share{.url = "/mnt/share", .name = "share", .isLocal = false};
    // Less free for important use than plainly free: nothing is purgeable.
    const Volume stick{.url = "/media/USB STICK", .name = "USB STICK", .total = 16e9, .available = 16e9,
                       .availableImportant = 15e9, .isRemovable = true};
    hub->disks.volumes = {root, share, stick};
    hub->disks.readRate = 5 * 1024 * 1024;
    hub->disks.writeRate = 512;

    EXPECT_JSON_EQ(tools->getDisks(), parse(R"json({"volumes": [
        {"name": "/", "path": "/", "startup_disk": true, "removable": false, "network": false,
         "total": "500 GB", "used": "352 GB", "free": "123 GB", "reserved": "25.0 GB", "used_percent": 74,
         "purgeable": "6.6 GB"},
        {"name": "share", "path": "/mnt/share", "startup_disk": false, "removable": false, "network": true,
         "total": "0 B", "used": "0 B", "free": "0 B", "reserved": "0 B", "used_percent": 0, "purgeable": "0 B"},
        {"name": "USB STICK", "path": "/media/USB STICK", "startup_disk": false, "removable": true, "network": false,
         "total": "16.0 GB", "used": "0 B", "free": "16.0 GB", "reserved": "0 B", "used_percent": 0,
         "purgeable": "0 B"}],
        "read_per_second": "5.0 MB/s", "write_per_second": "512 B/s"})json"));

    hub->disks.volumes.clear();
    EXPECT_JSON_EQ(tools->getDisks(), parse(R"json({"volumes": [], "read_per_second": "5.0 MB/s",
                                                     "write_per_second": "512 B/s"})json"));
}

TEST_F(McpTools, OverviewSummarisesCpuMemoryGpuAndTheStartupDisk)
{
    CPUMonitor& cpu = hub->cpu;
    cpu.brand = "Fixture CPU @ 3.00GHz";
    cpu.logicalCount = 8;
    cpu.user = 12.34;
    cpu.system = 5.55;
    cpu.loadAverage = {1.234, 0.5, 0.049};
    cpu.uptime = 3 * 86400 + 5 * 3600 + 7 * 60 + 30;
    MemoryMonitor& memory = hub->memory;
    memory.total = 16.0 * 1024 * 1024 * 1024;
    memory.app = 6.0 * 1024 * 1024 * 1024;
    memory.wired = 1.5 * 1024 * 1024 * 1024;
    memory.compressed = 0.5 * 1024 * 1024 * 1024;
    memory.pressure = 41.66;
    memory.pressureLevel = MemoryPressureLevel::warning;
    memory.swapUsed = 300 * 1024 * 1024;
    memory.swapTotal = 2.0 * 1024 * 1024 * 1024;
    GPU gpu;
    gpu.name = "GPU";
    gpu.utilization = 33.33;
    hub->gpu.gpus = {gpu};
    const Volume root{.url = "/", .name = "/", .total = 1e12, .available = 250e9, .availableImportant = 250e9,
                      .isRoot = true, .reserved = 50e9};
    hub->disks.volumes = {root};

    const QJsonObject overview = tools->getOverview();
    // The insight engine has not seen anything held long enough yet.
    EXPECT_JSON_EQ(overview["computer"].toObject(), parse(R"json({"model": "Fixture Book 14",
        "processor": "Fixture CPU @ 3.00GHz", "cores": 8, "os": "Debian GNU/Linux 12 (bookworm) (6.1.0-fixture-amd64)",
        "uptime": "3d 5h 7m", "insight": "All quiet."})json"));
    EXPECT_JSON_EQ(overview["cpu"].toObject(), parse(R"json({"total_percent": 17.9, "user_percent": 12.3,
        "system_percent": 5.5, "load_average": [1.2, 0.5, 0]})json"));
    EXPECT_JSON_EQ(overview["memory"].toObject(), parse(R"json({"used_percent": 50, "used": "8.0 GB",
        "total": "16.0 GB", "pressure_percent": 41.7, "pressure": "warning", "swap_used": "300 MB",
        "swap_total": "2.0 GB"})json"));
    EXPECT_JSON_EQ(overview["gpu"].toObject(), parse(R"json({"utilization_percent": 33.3})json"));
    EXPECT_JSON_EQ(overview["startup_disk"].toObject(),
                   parse(R"json({"used_percent": 73.7, "free": "250 GB", "total": "1.0 TB"})json"));

    memory.pressureLevel = MemoryPressureLevel::normal;
    EXPECT_EQ(tools->getOverview().value("memory")["pressure"].toString(), "normal");
    memory.pressureLevel = MemoryPressureLevel::critical;
    EXPECT_EQ(tools->getOverview().value("memory")["pressure"].toString(), "critical");

    hub->gpu.gpus.clear();
    hub->disks.volumes.clear();
    const QJsonObject bare = tools->getOverview();
    EXPECT_FALSE(bare.contains("gpu"));
    EXPECT_FALSE(bare.contains("startup_disk"));
}

TEST_F(McpTools, HistorySummarisesAndBucketsWhatTheTrayAppRecorded)
{
    // Without a file there is no history to read.
    try {
        tools->getHistory({{"metric", "cpu_user"}});
        ADD_FAILURE() << "no store, no history";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.message(), "No history yet. Pulsebar records history while the menu bar app is running.");
    }

    // The tray app records 100 seconds-apart rows, ten seconds apart, ending a little before now.
    const double now = double(QDateTime::currentSecsSinceEpoch());
    const double first = std::floor(now / 10) * 10 - 1200;
    {
        auto writer = HistoryStore::open(HistoryStore::defaultPath(), HistoryStore::Access::writable);
        ASSERT_NE(writer, nullptr);
        for (int i = 0; i < 100; ++i)
            writer->record({{HistoryMetric::cpuUser, double(i)}, {HistoryMetric::fan, 1000.0 + 10 * i}}, first + 10 * i);
        writer->flush();
    }

    const QJsonObject hour = tools->getHistory({{"metric", "cpu_user"}, {"range", "1h"}});
    EXPECT_EQ(hour["metric"].toString(), "cpu_user");
    EXPECT_EQ(hour["unit"].toString(), "%");
    EXPECT_EQ(hour["range"].toString(), "1h");
    EXPECT_JSON_EQ(hour["summary"].toObject(), (QJsonObject{
        {"average", 49.5}, {"max", 99}, {"max_at", McpValue::timestamp(first + 990)}, {"min", 0},
        {"min_at", McpValue::timestamp(first)}, {"latest", 99}, {"from", McpValue::timestamp(first)},
        {"to", McpValue::timestamp(first + 990)}, {"point_seconds", 10}}));
    const QJsonArray points = hour["points"].toArray();
    ASSERT_EQ(points.size(), 34); // 48 asked: buckets of ceil(100 / 48) = 3 samples
    EXPECT_JSON_EQ(points[0].toObject(), (QJsonObject{{"time", McpValue::timestamp(first)}, {"value", 1}}));
    EXPECT_JSON_EQ(points[33].toObject(), (QJsonObject{{"time", McpValue::timestamp(first + 990)}, {"value", 99}}));

    EXPECT_EQ(tools->getHistory({{"metric", "cpu_user"}, {"range", "1h"}, {"points", 7}})["points"].toArray().size(), 7);
    EXPECT_EQ(tools->getHistory({{"metric", "cpu_user"}, {"range", "1h"}, {"points", "7"}})["points"].toArray().size(), 34);

    // The day range reads minute averages; points 0 leaves the points out.
    const QJsonObject fan = tools->getHistory({{"metric", "fan"}, {"points", 0}});
    EXPECT_EQ(QStringList(fan.keys()), (QStringList{"metric", "range", "summary", "unit"}));
    EXPECT_EQ(fan["unit"].toString(), "rpm");
    EXPECT_EQ(fan["range"].toString(), "24h");
    EXPECT_EQ(fan["summary"]["point_seconds"].toInt(), 300);

    // A metric the app never recorded, and the argument errors.
    EXPECT_JSON_EQ(tools->getHistory({{"metric", "battery"}, {"range", "30d"}}),
                   parse(R"json({"metric": "battery", "unit": "%", "range": "30d", "note": "No samples in this range."})json"));
    for (const auto& [metric, unit] : std::vector<std::pair<const char*, const char*>>{
             {"net_down", "bytes/s"}, {"temperature", "°C"}, {"power", "W"}, {"mem_used", "%"}})
        EXPECT_EQ(tools->getHistory({{"metric", metric}})["unit"].toString(), QString::fromUtf8(unit)) << metric;
    auto error = [&](const QJsonObject& arguments) {
        try {
            tools->getHistory(arguments);
        } catch (const ToolError& e) {
            return e.message();
        }
        return QString();
    };
    const QString metricError = "metric must be one of: cpu_user, cpu_system, gpu, mem_pressure, mem_used, disk_read, "
                                "disk_write, net_down, net_up, temperature, fan, battery, power";
    EXPECT_EQ(error({}), metricError);
    EXPECT_EQ(error({{"metric", "cpuUser"}}), metricError);
    EXPECT_EQ(error({{"metric", QJsonArray{"cpu_user"}}}), metricError);
    EXPECT_EQ(error({{"metric", "cpu_user"}, {"range", "1H"}}), "range must be 1h, 24h, 7d or 30d.");
    EXPECT_EQ(error({{"metric", "cpu_user"}, {"range", 24}}), QString()); // not a string: the default
}

// A response that cannot be built or sent (here: the first write fails) still answers the request,
// with an internal error, and the server goes on.
TEST_F(McpTools, ARequestWhoseResponseFailsGetsAnInternalError)
{
    std::vector<QJsonObject> sent;
    bool failNext = true;
    MCPServer server(*hub, [&](const QByteArray& line) {
        if (std::exchange(failNext, false))
            throw std::bad_alloc();
        sent.push_back(QJsonDocument::fromJson(line).object());
    });
    server.handle(R"({"jsonrpc":"2.0","id":7,"method":"ping"})");
    server.handle(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
    server.handle(R"({"jsonrpc":"2.0","id":8,"method":"ping"})");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[0]["id"].toInt(), 7);
    EXPECT_EQ(sent[0]["error"].toObject()["code"].toInt(), -32603);
    EXPECT_EQ(sent[1]["id"].toInt(), 8);
    EXPECT_TRUE(sent[1]["result"].isObject());
}
