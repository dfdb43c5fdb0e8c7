#include "mcp/mcp_values.h"

#include "core/fmt.h"

#include <QDateTime>

#include <algorithm>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace pulsebar::McpValue {

QJsonValue r(double value, int places)
{
    if (!std::isfinite(value))
        return 0;
    // Printing and reading back gives the double nearest to the printed decimal, which the JSON
    // writer's shortest round-trip form prints as exactly that decimal.
    char text[512];
    std::snprintf(text, sizeof text, "%.*f", places, value);
    const double rounded = std::strtod(text, nullptr);
    return rounded == 0 ? 0.0 : rounded; // never "-0"
}

QString size(double bytes, double base)
{
    return Fmt::bytes(std::isfinite(bytes) ? bytes : 0, base);
}

QString rate(double bytesPerSecond)
{
    return Fmt::rate(std::isfinite(bytesPerSecond) ? bytesPerSecond : 0, false);
}

QString timestamp(double secondsSince1970)
{
    // Four-digit years only, a day clear of year 10000 whatever the local offset: a time outside
    // (or not a number) is pinned to the nearest end, so no time printed is ever invalid.
    constexpr double first = 0;
    constexpr double last = 253402214400.0; // 9999-12-31T00:00:00Z
    const auto seconds = qint64(std::isfinite(secondsSince1970) ? std::clamp(std::floor(secondsSince1970), first, last) : 0);
    const QDateTime local = QDateTime::fromSecsSinceEpoch(seconds, Qt::LocalTime);
    const int offset = local.offsetFromUtc();
    const int magnitude = std::abs(offset);
    return local.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"))
        + QString::asprintf("%c%02d:%02d", offset < 0 ? '-' : '+', magnitude / 3600, magnitude % 3600 / 60);
}

QString hoursMinutes(int minutes)
{
    return QString::asprintf("%d:%02d", minutes / 60, minutes % 60);
}

} // namespace pulsebar::McpValue
