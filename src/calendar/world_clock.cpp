#include "calendar/world_clock.h"

#include "core/fmt.h"

#include <cstdlib>

namespace pulsebar::WorldClock {

std::vector<Clock> clocks(const QStringList& ids)
{
    std::vector<Clock> out;
    for (const QString& id : ids) {
        QTimeZone zone(id.toUtf8());
        if (!id.trimmed().isEmpty() && zone.isValid()) // an empty identifier would give the system's zone
            out.push_back({id, zone});
    }
    return out;
}

QString offset(const QTimeZone& zone, const QDateTime& at, const QTimeZone& local)
{
    const int difference = zone.offsetFromUtc(at) - local.offsetFromUtc(at);
    if (difference == 0)
        return QStringLiteral("Same time");
    const QString sign = difference > 0 ? QStringLiteral("+") : QStringLiteral("\u2212");
    return sign + Fmt::wholeOrTenths(std::abs(difference) / 3600.0) + QStringLiteral(" h");
}

QString city(const QString& zoneId)
{
    QString name = zoneId.section(QLatin1Char('/'), -1);
    name.replace(QLatin1Char('_'), QLatin1Char(' '));
    return name;
}

QString label(const QString& zoneId, ClockLabel style, const QDateTime& at)
{
    if (style == ClockLabel::abbreviation) {
        const QTimeZone zone(zoneId.toUtf8());
        if (zone.isValid())
            return zone.abbreviation(at);
    }
    return city(zoneId);
}

bool isDaytime(const QTimeZone& zone, const QDateTime& at)
{
    const int hour = at.toTimeZone(zone).time().hour();
    return hour >= 6 && hour < 18;
}

} // namespace pulsebar::WorldClock
