#pragma once

#include <QJsonValue>
#include <QString>

namespace pulsebar::McpValue {

// The value conventions every tool result follows, so an agent reads one quantity the same way in
// every tool.

// A number with `places` decimals as an exact decimal JSON number (12.3, never 12.300000000000001);
// NaN and infinity become 0.
QJsonValue r(double value, int places = 1);
// A size text ("1.5 GB"): base 1024 for memory, 1000 for disks.
QString size(double bytes, double base);
// A transfer rate in bytes per second ("340 KB/s").
QString rate(double bytesPerSecond);
// An ISO 8601 time in the local time zone, offset with a colon, no fraction: 2026-03-05T14:07:31+01:00.
QString timestamp(double secondsSince1970);

} // namespace pulsebar::McpValue
