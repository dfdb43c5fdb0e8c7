#include "mcp/mcp_tools.h"

#include "mcp/mcp_history.h"

namespace pulsebar {

namespace {

QJsonObject property(const char* type, const char* description, QJsonObject extra = {})
{
    extra.insert("type", QLatin1String(type));
    extra.insert("description", QString::fromUtf8(description));
    return extra;
}

QJsonObject tool(const char* name, const char* title, const char* description, QJsonObject properties = {})
{
    return QJsonObject{
        {"name", QLatin1String(name)},
        {"title", QLatin1String(title)},
        {"description", QString::fromUtf8(description)},
        {"annotations", QJsonObject{{"readOnlyHint", true}, {"openWorldHint", false}}},
        {"inputSchema",
         QJsonObject{{"type", "object"}, {"properties", properties}, {"additionalProperties", false}}},
    };
}

QJsonArray metricNames()
{
    QJsonArray names;
    for (const QString& name : McpHistory::metricNames())
        names.append(name);
    return names;
}

} // namespace

QJsonArray MCPTools::catalogue()
{
    static const QJsonArray tools{
        tool("get_overview", "Overview",
             "Snapshot of the computer right now: CPU, GPU, memory, startup disk, network, temperatures, fans, "
             "battery, power, uptime, connected iPhones/iPads, and Pulsebar's one-line insight about what is "
             "using the computer."),
        tool("get_top_processes", "Top processes",
             "The processes using the most CPU, memory or disk right now. CPU is per core (100% = one full "
             "core). Disk rates are shown only for processes of the current user.",
             QJsonObject{
                 {"sort_by", property("string", "Resource to rank by. Default: cpu.",
                                      {{"enum", QJsonArray{"cpu", "memory", "disk"}}})},
                 {"limit", property("integer", "How many processes. Default: 10.", {{"minimum", 1}, {"maximum", 30}})},
             }),
        tool("get_history", "History",
             "Recorded history of one metric: summary (min, max, average, when the peak was) plus evenly spaced "
             "points. Pulsebar keeps 30 days while it runs; gaps mean the computer was asleep or Pulsebar wasn't "
             "running.",
             QJsonObject{
                 {"metric", property("string",
                                     "cpu_user/cpu_system/gpu/mem_pressure/mem_used/battery in %, "
                                     "disk_read/disk_write/net_down/net_up in bytes per second, temperature in "
                                     "°C, fan in rpm (fastest fan), power in watts.",
                                     {{"enum", metricNames()}})},
                 {"range", property("string", "How far back. Default: 24h.",
                                    {{"enum", QJsonArray{"1h", "24h", "7d", "30d"}}})},
                 {"points", property("integer", "Number of points to return besides the summary. Default: 48.",
                                     {{"minimum", 0}, {"maximum", 200}})},
             }),
        tool("get_sensors", "Sensors",
             "Temperatures (average and maximum per component group, and the hottest sensors), fan speeds with "
             "their range, and power readings.",
             QJsonObject{
                 {"all_sensors",
                  property("boolean", "Also list every sensor with its SMC key (long). Default: false.")},
             }),
        tool("get_battery", "Battery",
             "Battery charge, charging state, time remaining, health (maximum capacity vs design), cycle count, "
             "temperature, power draw, adapter, Low Power Mode, and Bluetooth device batteries."),
        tool("get_network", "Network",
             "Network rates, internet status, public and local IP addresses, ping, router, DNS, VPN, Wi-Fi "
             "details, interfaces, and the saved results of Pulsebar's network speed tests."),
        tool("get_disks", "Disks",
             "Mounted volumes with capacity, used and free space, purgeable space, and current disk read/write "
             "rates."),
        tool("get_connected_devices", "Connected devices",
             "iPhones and iPads connected by USB or Wi-Fi sync that trust this computer: battery, battery health, "
             "cycle count, storage, model and iOS version."),
    };
    return tools;
}

} // namespace pulsebar
