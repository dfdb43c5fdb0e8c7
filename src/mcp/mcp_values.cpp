#include "mcp/mcp_values.h"

#include "core/fmt.h"

#include <QDateTime>

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
    const auto seconds = std::isfinite(secondsSince1970) ? qint64(std::floor(secondsSince1970)) : 0;
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
