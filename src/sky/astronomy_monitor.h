#pragma once

#include "core/config.h"
#include "sky/sun_calc.h"

#include <QTimeZone>

#include <functional>
#include <optional>

namespace pulsebar {

// Keeps the sun and moon facts for the weather's location up to date. The hub calls update() every
// tick; the snapshot is rebuilt at most once a minute (or when the place changes) and the phase search,
// the one costly step, at most once an hour.
class AstronomyMonitor {
public:
    struct SunEvent {
        bool isSunrise = true;
        double time = 0;
    };

    struct Snapshot {
        WeatherLocation location;
        SunCalc::SunTimes sun;
        double sunAzimuth = 0;  // radians, from south, westward positive
        double sunAltitude = 0; // radians
        double moonFraction = 0;
        double moonPhase = 0;
        double moonAltitude = 0; // radians
        double moonDistance = 0; // km
        std::optional<double> moonrise;
        std::optional<double> moonset;
        std::optional<double> nextNewMoon;
        std::optional<double> nextFullMoon;

        // Sunset − sunrise; absent when the sun does not rise or set that day.
        std::optional<double> dayLength() const;
        // The first of the day's sunrise and sunset after `now`; when both have passed, the next day's
        // sunrise; absent when the sun neither rises nor sets before then.
        std::optional<SunEvent> nextSunEvent(double now) const;
    };

    static constexpr double snapshotAge = 60;   // seconds
    static constexpr double phasesAge = 3600;   // seconds

    // `now` gives seconds since 1970; `zone` is the calendar the moon times are searched over.
    explicit AstronomyMonitor(std::function<double()> now = {}, QTimeZone zone = QTimeZone::systemTimeZone());

    void update(const std::optional<WeatherLocation>& location);
    std::optional<SunEvent> nextSunEvent(double now) const;

    const std::optional<Snapshot>& snapshot() const { return m_snapshot; }
    double lastUpdate() const { return m_lastUpdate; }
    int phaseSearches() const { return m_phaseSearches; }

    // The whole snapshot for a place and instant, without the caches (the dump and benchmarks use it).
    static Snapshot compute(const WeatherLocation& location, double now, const QTimeZone& zone);

private:
    struct PhasesCache {
        double computed = 0;
        SunCalc::Phases phases;
    };

    std::function<double()> m_now;
    QTimeZone m_zone;
    std::optional<Snapshot> m_snapshot;
    double m_lastUpdate = 0;
    std::optional<WeatherLocation> m_lastLocation;
    std::optional<PhasesCache> m_phasesCache;
    int m_phaseSearches = 0;
};

} // namespace pulsebar
