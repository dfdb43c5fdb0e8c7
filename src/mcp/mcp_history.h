#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace pulsebar::McpHistory {

// The metric names agents use, in column order.
QStringList metricNames();
// "%", "bytes/s", "°C", "rpm" or "W".
QString unit(const QString& metric);

} // namespace pulsebar::McpHistory
