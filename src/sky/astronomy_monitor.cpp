#include "sky/astronomy_monitor.h"

#include "core/clock.h"

#include <QDateTime>

namespace pulsebar {

namespace {

AstronomyMonitor::Snapshot positions(const WeatherLocation& location, double now, const QTimeZone& zone)
{
    AstronomyMonitor::Snapshot s;
    s.location = location;
    s.sun = SunCalc::sunTimes(now, location.latitude, location.longitude);
    const SunCalc::Position sun = SunCalc::sunPosition(now, location.latitude, location.longitude);
    s.sunAzimuth = sun.azimuth;
    s.sunAltitude = sun.altitude;
    const SunCalc::Illumination light = SunCalc::moonIllumination(now);
    s.moonFraction = light.fraction;
    s.moonPhase = light.phase;
    const SunCalc::MoonPosition moon = SunCalc::moonPosition(now, location.latitude, location.longitude);
    s.moonAltitude = moon.altitude;
    s.moonDistance = moon.distance;
    const SunCalc::MoonTimes times = SunCalc::moonTimes(now, location.latitude, location.longitude, zone);
    s.moonrise = times.rise;
    s.moonset = times.set;
    return s;
}

} // namespace

std::optional<double> AstronomyMonitor::Snapshot::dayLength() const
{
    const auto rise = sun.event(QStringLiteral("sunrise"));
    const auto set = sun.event(QStringLiteral("sunset"));
    if (!rise || !set)
        return std::nullopt;
    return *set - *rise;
}

AstronomyMonitor::AstronomyMonitor(std::function<double()> now, QTimeZone zone)
    : m_now(now ? std::move(now) : systemClock()), m_zone(std::move(zone))
{
}

AstronomyMonitor::Snapshot AstronomyMonitor::compute(const WeatherLocation& location, double now, const QTimeZone& zone)
{
    Snapshot s = positions(location, now, zone);
    const SunCalc::Phases phases = SunCalc::nextPhases(now);
    s.nextNewMoon = phases.nextNewMoon;
    s.nextFullMoon = phases.nextFullMoon;
    return s;
}

void AstronomyMonitor::update(const std::optional<WeatherLocation>& location)
{
    if (!location)
        return;
    const double now = m_now();
    if (m_snapshot && m_lastLocation == location && now - m_lastUpdate <= snapshotAge)
        return;
    Snapshot s = positions(*location, now, m_zone);
    if (!m_phasesCache || now - m_phasesCache->computed > phasesAge) {
        m_phasesCache = PhasesCache{now, SunCalc::nextPhases(now)};
        ++m_phaseSearches;
    }
    s.nextNewMoon = m_phasesCache->phases.nextNewMoon;
    s.nextFullMoon = m_phasesCache->phases.nextFullMoon;
    m_snapshot = std::move(s);
    m_lastUpdate = now;
    m_lastLocation = location;
}

std::optional<AstronomyMonitor::SunEvent> AstronomyMonitor::Snapshot::nextSunEvent(double now) const
{
    std::optional<SunEvent> first;
    for (const auto& [isSunrise, name] : {std::pair{true, "sunrise"}, std::pair{false, "sunset"}}) {
        const auto time = sun.event(QString::fromLatin1(name));
        if (time && *time > now && (!first || *time < first->time))
            first = SunEvent{isSunrise, *time};
    }
    if (first)
        return first;
    if (const auto tomorrow =
            SunCalc::sunTimes(now + 86400, location.latitude, location.longitude).event(QStringLiteral("sunrise")))
        return SunEvent{true, *tomorrow};
    return std::nullopt;
}

std::optional<AstronomyMonitor::SunEvent> AstronomyMonitor::nextSunEvent(double now) const
{
    return m_snapshot ? m_snapshot->nextSunEvent(now) : std::nullopt;
}

} // namespace pulsebar
