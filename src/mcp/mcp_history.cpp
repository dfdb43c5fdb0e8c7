#include "mcp/mcp_history.h"

namespace pulsebar::McpHistory {

QStringList metricNames()
{
    return {"cpu_user", "cpu_system", "gpu", "mem_pressure", "mem_used", "disk_read", "disk_write",
            "net_down", "net_up", "temperature", "fan", "battery", "power"};
}

QString unit(const QString& metric)
{
    if (metric == QLatin1String("disk_read") || metric == QLatin1String("disk_write")
        || metric == QLatin1String("net_down") || metric == QLatin1String("net_up"))
        return QStringLiteral("bytes/s");
    if (metric == QLatin1String("temperature"))
        return QStringLiteral("°C");
    if (metric == QLatin1String("fan"))
        return QStringLiteral("rpm");
    if (metric == QLatin1String("power"))
        return QStringLiteral("W");
    return QStringLiteral("%");
}

} // namespace pulsebar::McpHistory
