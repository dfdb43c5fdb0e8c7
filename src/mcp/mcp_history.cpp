#include "mcp/mcp_history.h"

namespace pulsebar::McpHistory {

QStringList metricNames()
{
    QStringList names;
    for (const HistoryMetric metric : allCases<HistoryMetric>())
        names << enumName(metric);
    return names;
}

QString unit(HistoryMetric metric)
{
    switch (metric) {
    case HistoryMetric::diskRead:
    case HistoryMetric::diskWrite:
    case HistoryMetric::download:
    case HistoryMetric::upload:
        return QStringLiteral("bytes/s");
    case HistoryMetric::temperature:
        return QStringLiteral("°C");
    case HistoryMetric::fan:
        return QStringLiteral("rpm");
    case HistoryMetric::power:
        return QStringLiteral("W");
    case HistoryMetric::cpuUser:
    case HistoryMetric::cpuSystem:
    case HistoryMetric::gpu:
    case HistoryMetric::memoryPressure:
    case HistoryMetric::memoryUsed:
    case HistoryMetric::battery:
        break;
    }
    return QStringLiteral("%");
}

std::optional<HistoryRange> range(const QString& name)
{
    if (name == QLatin1String("1h"))
        return HistoryRange::hour;
    if (name == QLatin1String("24h"))
        return HistoryRange::day;
    if (name == QLatin1String("7d"))
        return HistoryRange::week;
    if (name == QLatin1String("30d"))
        return HistoryRange::month;
    return std::nullopt;
}

} // namespace pulsebar::McpHistory
