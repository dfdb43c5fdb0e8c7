#pragma once

#include "history/history_metric.h"
#include "history/history_range.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace pulsebar::McpHistory {

// The metric names agents use, in column order.
QStringList metricNames();
// "%", "bytes/s", "°C", "rpm" or "W".
QString unit(HistoryMetric metric);
// The ranges agents name: "1h", "24h", "7d", "30d".
std::optional<HistoryRange> range(const QString& name);

} // namespace pulsebar::McpHistory
