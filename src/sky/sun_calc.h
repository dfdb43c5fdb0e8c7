#pragma once

#include <QString>
#include <QTimeZone>

#include <map>
#include <optional>

namespace pulsebar::SunCalc {

// Sun and moon positions and times, computed locally with the classic SunCalc algorithms (low
// precision: about a minute for sun times at moderate latitudes). Dates are seconds since 1970,
// angles radians, as SunCalc gives them.

// The altitudes the sun-time table knows, with their morning and evening names, in table order.
struct SunTimeRow {
    double altitude; // degrees, of the sun's centre
    const char* morning;
    const char* evening;
};
inline constexpr SunTimeRow sunTimeRows[] = {
    {-0.833, "sunrise", "sunset"},
    {-6, "civilDawn", "civilDusk"},
    {-12, "nauticalDawn", "nauticalDusk"},
    {-18, "astronomicalDawn", "astronomicalDusk"},
    {-4, "blueHourEnd", "blueHourStart"},
    {6, "goldenHourEnd", "goldenHourStart"},
};

struct SunTimes {
    double solarNoon = 0;
    // An event the sun does not reach that day (polar summer or winter) is absent.
    std::map<QString, double> events;

    std::optional<double> event(const QString& name) const;
};

struct Position {
    double azimuth = 0;  // from south, westward positive
    double altitude = 0; // above the horizon
};

struct MoonPosition {
    double azimuth = 0;
    double altitude = 0; // corrected for refraction
    double distance = 0; // km
};

struct Illumination {
    double fraction = 0; // illuminated, 0…1
    double phase = 0;    // 0 new, 0.25 first quarter, 0.5 full, 0.75 last quarter
};

struct MoonTimes {
    std::optional<double> rise;
    std::optional<double> set;
};

struct Phases {
    double nextNewMoon = 0;
    double nextFullMoon = 0;
};

SunTimes sunTimes(double date, double latitude, double longitude);
Position sunPosition(double date, double latitude, double longitude);
MoonPosition moonPosition(double date, double latitude, double longitude);
Illumination moonIllumination(double date);
// Searched hour by hour over the calendar day, in `zone`, that contains the date.
MoonTimes moonTimes(double date, double latitude, double longitude, const QTimeZone& zone);
// The first instants after the date where the phase passes 0 and 0.5, to within a few seconds.
Phases nextPhases(double after);
QString phaseSymbol(double phase);
// "Waxing Gibbous" and the like, in the bands of the phase symbols.
QString phaseName(double phase);

} // namespace pulsebar::SunCalc
