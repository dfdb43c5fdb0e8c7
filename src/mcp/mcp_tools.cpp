#include "mcp/mcp_tools.h"

#include "core/app_settings.h"
#include "core/fmt.h"
#include "core/hub.h"
#include "mcp/mcp_arguments.h"
#include "mcp/mcp_history.h"
#include "mcp/mcp_values.h"
#include "mcp/tool_error.h"

#include <QDateTime>

#include <algorithm>
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

} // namespace

MCPTools::MCPTools(Hub& hub, std::unique_ptr<MachineReader> machine) : m_hub(hub), m_machine(std::move(machine))
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
        m_model = m_machine->readModel();
        m_osVersion = m_machine->readOSVersion();
        m_factsRead = true;
    }
    QJsonObject computer{{"model", m_model.value_or(QStringLiteral("Computer"))}};
    if (m_osVersion)
        computer.insert("os", *m_osVersion);

    QJsonObject overview{{"time", McpValue::timestamp(m_hub.now())}, {"computer", computer}};

    const NetworkMonitor& network = m_hub.network;
    QJsonObject networkObject{
        {"download_per_second", McpValue::rate(network.download)},
        {"upload_per_second", McpValue::rate(network.upload)},
        {"internet", internetText(network.internetReachable)},
    };
    if (network.pingMs)
        networkObject.insert("ping_ms", r(*network.pingMs));
    overview.insert("network", networkObject);
    if (const auto thermal = thermalState(m_machine->readThermalZones()))
        overview.insert("thermal", enumName(*thermal));
    return overview;
}

// ---- get_top_processes ----

QJsonObject MCPTools::getTopProcesses(const QJsonObject& arguments)
{
    const QString sortBy = McpArgument::string(arguments, QLatin1String("sort_by")).value_or(QStringLiteral("cpu"));
    if (sortBy != QLatin1String("cpu") && sortBy != QLatin1String("memory") && sortBy != QLatin1String("disk"))
        throw ToolError(QStringLiteral("sort_by must be cpu, memory or disk."));
    const int64_t limit = std::clamp<int64_t>(McpArgument::integer(arguments, QLatin1String("limit")).value_or(10), 1, 30);
    Q_UNUSED(limit);
    return QJsonObject{{"sorted_by", sortBy}, {"processes", QJsonArray()}};
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
    const QStringList metrics = McpHistory::metricNames();
    const std::optional<QString> metric = McpArgument::string(arguments, QLatin1String("metric"));
    if (!metric || !metrics.contains(*metric))
        throw ToolError(QStringLiteral("metric must be one of: ") + metrics.join(QStringLiteral(", ")));
    const QString range = McpArgument::string(arguments, QLatin1String("range")).value_or(QStringLiteral("24h"));
    if (range != QLatin1String("1h") && range != QLatin1String("24h") && range != QLatin1String("7d")
        && range != QLatin1String("30d"))
        throw ToolError(QStringLiteral("range must be 1h, 24h, 7d or 30d."));
    throw ToolError(QStringLiteral("No history yet. Pulsebar records history while the menu bar app is running."));
}

// ---- get_sensors ----

QJsonObject MCPTools::getSensors(const QJsonObject& arguments)
{
    Q_UNUSED(arguments);
    return QJsonObject{{"note", "Sensors are not accessible on this computer."}};
}

// ---- get_battery ----

QJsonObject MCPTools::getBattery()
{
    return QJsonObject{{"present", false}};
}

// ---- get_network ----

QJsonValue MCPTools::speedTests(const QJsonValue& saved)
{
    struct Entry {
        double time;
        QJsonObject object;
    };
    std::vector<Entry> entries;
    for (const QJsonValue& value : saved.toArray()) {
        const QJsonObject result = value.toObject();
        const QJsonValue date = result.value(QLatin1String("date"));
        std::optional<double> time;
        if (date.isDouble())
            time = date.toDouble();
        else if (date.isString())
            if (const QDateTime parsed = QDateTime::fromString(date.toString(), Qt::ISODateWithMs); parsed.isValid())
                time = double(parsed.toMSecsSinceEpoch()) / 1000.0;
        const QJsonValue download = result.value(QLatin1String("download"));
        const QJsonValue upload = result.value(QLatin1String("upload"));
        // A record without its date or either rate is not a finished test.
        if (!time || !std::isfinite(*time) || !download.isDouble() || !upload.isDouble())
            continue;
        QJsonObject entry{{"time", McpValue::timestamp(*time)},
                          {"download", McpValue::rate(download.toDouble())},
                          {"upload", McpValue::rate(upload.toDouble())}};
        const QJsonValue responsiveness = result.value(QLatin1String("responsiveness"));
        if (responsiveness.isDouble()) {
            entry.insert("responsiveness_rpm", r(responsiveness.toDouble()));
            // Responsiveness counts round trips per minute under load; its inverse is that latency.
            if (responsiveness.toDouble() > 0)
                entry.insert("latency_under_load_ms", r(60000.0 / responsiveness.toDouble()));
        }
        entries.push_back({*time, entry});
    }
    if (entries.empty())
        return QStringLiteral("None yet. Run one from Pulsebar's Network dropdown.");
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.time > b.time; });
    QJsonArray list;
    for (const Entry& entry : entries)
        list.append(entry.object);
    return list;
}

QJsonObject MCPTools::getNetwork()
{
    const NetworkMonitor& network = m_hub.network;
    QJsonArray interfaces;
    for (const InterfaceInfo& interface : network.interfaces)
        interfaces.append(QJsonObject{
            {"name", interface.displayName},
            {"bsd_name", interface.bsdName},
            {"ipv4", QJsonArray::fromStringList(interface.ipv4)},
            {"download_per_second", McpValue::rate(interface.download)},
            {"upload_per_second", McpValue::rate(interface.upload)},
        });
    QJsonObject result{
        {"download_per_second", McpValue::rate(network.download)},
        {"upload_per_second", McpValue::rate(network.upload)},
        {"internet", internetText(network.internetReachable)},
        {"dns", QJsonArray::fromStringList(network.dns)},
        {"vpn_interfaces", QJsonArray::fromStringList(network.vpnInterfaces)},
        {"interfaces", interfaces},
        {"speed_tests", speedTests(m_hub.settings().preferences().value(QStringLiteral("PulsebarSpeedTests.v1")))},
    };
    if (network.primaryInterface)
        result.insert("primary_interface", *network.primaryInterface);
    if (network.publicIP)
        result.insert("public_ip", *network.publicIP);
    if (network.router)
        result.insert("router", *network.router);
    if (network.pingMs)
        result.insert("ping_ms", r(*network.pingMs));
    // Associated: the link has a peer, whether or not its name is shown.
    if (network.wifi && (network.wifi->ssid || network.wifi->bssid))
        result.insert("wifi", wifiObject(*network.wifi));
    return result;
}

// ---- get_disks ----

QJsonObject MCPTools::getDisks()
{
    return QJsonObject{{"volumes", QJsonArray()}};
}

// ---- get_connected_devices ----

QJsonObject MCPTools::getConnectedDevices()
{
    return QJsonObject{{"devices", QJsonArray()}};
}

} // namespace pulsebar
