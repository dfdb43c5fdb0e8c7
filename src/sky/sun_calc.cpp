#include "sky/sun_calc.h"

#include <QDateTime>

#include <cmath>
#include <numbers>

namespace pulsebar::SunCalc {

namespace {

constexpr double pi = std::numbers::pi;
constexpr double rad = pi / 180.0;
constexpr double daySeconds = 86400;
constexpr double j1970 = 2440588;
constexpr double j2000 = 2451545;
constexpr double sinObliquity = 0.39778370349342274; // 23.4397°
constexpr double cosObliquity = 0.9174792233260962;
constexpr double j0 = 0.0009;
constexpr double sunDistance = 149598000; // km

double toJulian(double date) { return date / daySeconds - 0.5 + j1970; }
double fromJulian(double julian) { return (julian + 0.5 - j1970) * daySeconds; }
double toDays(double date) { return toJulian(date) - j2000; }

double rightAscension(double l, double b)
{
    return std::atan2(std::sin(l) * cosObliquity - std::tan(b) * sinObliquity, std::cos(l));
}
double declination(double l, double b)
{
    return std::asin(std::sin(b) * cosObliquity + std::cos(b) * sinObliquity * std::sin(l));
}
double azimuth(double h, double phi, double dec)
{
    return std::atan2(std::sin(h), std::cos(h) * std::sin(phi) - std::tan(dec) * std::cos(phi));
}
double altitude(double h, double phi, double dec)
{
    return std::asin(std::sin(phi) * std::sin(dec) + std::cos(phi) * std::cos(dec) * std::cos(h));
}
double siderealTime(double d, double lw) { return rad * (280.16 + 360.9856235 * d) - lw; }

double astroRefraction(double h)
{
    // The formula only holds above the horizon; below it the correction stays at its horizon value.
    if (h < 0)
        h = 0;
    return 0.0002967 / std::tan(h + 0.00312536 / (h + 0.08901179));
}

double solarMeanAnomaly(double d) { return rad * (357.5291 + 0.98560028 * d); }

double eclipticLongitude(double m)
{
    const double centre = rad * (1.9148 * std::sin(m) + 0.02 * std::sin(2 * m) + 0.0003 * std::sin(3 * m));
    const double perihelion = rad * 102.9372;
    return m + centre + perihelion + pi;
}

struct Equatorial {
    double ra = 0;
    double dec = 0;
    double distance = 0; // km, the moon only
};

Equatorial sunCoords(double d)
{
    const double l = eclipticLongitude(solarMeanAnomaly(d));
    return {rightAscension(l, 0), declination(l, 0)};
}

Equatorial moonCoords(double d)
{
    const double meanLongitude = rad * (218.316 + 13.176396 * d);
    const double meanAnomaly = rad * (134.963 + 13.064993 * d);
    const double meanDistance = rad * (93.272 + 13.229350 * d);
    const double l = meanLongitude + rad * 6.289 * std::sin(meanAnomaly);
    const double b = rad * 5.128 * std::sin(meanDistance);
    return {rightAscension(l, b), declination(l, b), 385001 - 20905 * std::cos(meanAnomaly)};
}

double julianCycle(double d, double lw) { return std::round(d - j0 - lw / (2 * pi)); }
double approxTransit(double ht, double lw, double n) { return j0 + (ht + lw) / (2 * pi) + n; }
double solarTransitJ(double ds, double m, double l) { return j2000 + ds + 0.0053 * std::sin(m) - 0.0069 * std::sin(2 * l); }

} // namespace

std::optional<double> SunTimes::event(const QString& name) const
{
    const auto found = events.find(name);
    if (found == events.end())
        return std::nullopt;
    return found->second;
}

SunTimes sunTimes(double date, double latitude, double longitude)
{
    const double lw = rad * -longitude;
    const double phi = rad * latitude;
    const double d = toDays(date);
    const double n = julianCycle(d, lw);
    const double ds = approxTransit(0, lw, n);
    const double m = solarMeanAnomaly(ds);
    const double l = eclipticLongitude(m);
    const double dec = declination(l, 0);
    const double noon = solarTransitJ(ds, m, l);

    SunTimes out;
    out.solarNoon = fromJulian(noon);
    for (const SunTimeRow& row : sunTimeRows) {
        const double cosHourAngle =
            (std::sin(row.altitude * rad) - std::sin(phi) * std::sin(dec)) / (std::cos(phi) * std::cos(dec));
        // Outside −1…1 the sun never reaches this altitude today.
        if (!(cosHourAngle >= -1 && cosHourAngle <= 1))
            continue;
        const double set = solarTransitJ(approxTransit(std::acos(cosHourAngle), lw, n), m, l);
        const double rise = noon - (set - noon);
        out.events[QString::fromLatin1(row.morning)] = fromJulian(rise);
        out.events[QString::fromLatin1(row.evening)] = fromJulian(set);
    }
    return out;
}

Position sunPosition(double date, double latitude, double longitude)
{
    const double lw = rad * -longitude;
    const double phi = rad * latitude;
    const double d = toDays(date);
    const Equatorial c = sunCoords(d);
    const double h = siderealTime(d, lw) - c.ra;
    return {azimuth(h, phi, c.dec), altitude(h, phi, c.dec)};
}

MoonPosition moonPosition(double date, double latitude, double longitude)
{
    const double lw = rad * -longitude;
    const double phi = rad * latitude;
    const double d = toDays(date);
    const Equatorial c = moonCoords(d);
    const double h = siderealTime(d, lw) - c.ra;
    const double alt = altitude(h, phi, c.dec);
    return {azimuth(h, phi, c.dec), alt + astroRefraction(alt), c.distance};
}

Illumination moonIllumination(double date)
{
    const double d = toDays(date);
    const Equatorial s = sunCoords(d);
    const Equatorial m = moonCoords(d);
    const double elongation = std::acos(std::sin(s.dec) * std::sin(m.dec)
                                        + std::cos(s.dec) * std::cos(m.dec) * std::cos(s.ra - m.ra));
    const double inc = std::atan2(sunDistance * std::sin(elongation), m.distance - sunDistance * std::cos(elongation));
    const double angle = std::atan2(std::cos(s.dec) * std::sin(s.ra - m.ra),
                                    std::sin(s.dec) * std::cos(m.dec) - std::cos(s.dec) * std::sin(m.dec) * std::cos(s.ra - m.ra));
    return {(1 + std::cos(inc)) / 2, 0.5 + 0.5 * inc * (angle < 0 ? -1 : 1) / pi};
}

MoonTimes moonTimes(double date, double latitude, double longitude, const QTimeZone& zone)
{
    const QDateTime at = QDateTime::fromMSecsSinceEpoch(qint64(std::floor(date * 1000.0)), zone);
    const double start = double(QDateTime(at.date(), QTime(0, 0), zone).toMSecsSinceEpoch()) / 1000.0;
    const auto hoursLater = [start](double hours) { return start + hours * 3600.0; };
    // The moon's centre at the horizon, allowing for its parallax and refraction.
    const double horizon = 0.133 * rad;
    const auto heightAt = [&](double hours) {
        return moonPosition(hoursLater(hours), latitude, longitude).altitude - horizon;
    };

    // Two-hour windows; a parabola through three heights tells whether the moon crosses the horizon in one.
    std::optional<double> rise, set;
    double h0 = heightAt(0);
    for (int i = 1; i <= 24; i += 2) {
        const double h1 = heightAt(i);
        const double h2 = heightAt(i + 1);
        const double a = (h0 + h2) / 2 - h1;
        const double b = (h2 - h0) / 2;
        const double xe = -b / (2 * a);
        const double ye = (a * xe + b) * xe + h1;
        const double discriminant = b * b - 4 * a * h1;
        int roots = 0;
        double x1 = 0, x2 = 0;
        if (discriminant >= 0) {
            const double dx = std::sqrt(discriminant) / (std::abs(a) * 2);
            x1 = xe - dx;
            x2 = xe + dx;
            if (std::abs(x1) <= 1)
                ++roots;
            if (std::abs(x2) <= 1)
                ++roots;
            if (x1 < -1)
                x1 = x2;
        }
        if (roots == 1) {
            if (h0 < 0)
                rise = i + x1;
            else
                set = i + x1;
        } else if (roots == 2) {
            rise = i + (ye < 0 ? x2 : x1);
            set = i + (ye < 0 ? x1 : x2);
        }
        if (rise && set)
            break;
        h0 = h2;
    }
    MoonTimes out;
    if (rise)
        out.rise = hoursLater(*rise);
    if (set)
        out.set = hoursLater(*set);
    return out;
}

namespace {

// Narrows [before, after] to the instant where `passed` turns true, to a second.
template <typename Predicate> double bisect(double before, double after, Predicate passed)
{
    while (after - before > 1) {
        const double middle = (before + after) / 2;
        (passed(middle) ? after : before) = middle;
    }
    return after;
}

} // namespace

Phases nextPhases(double after)
{
    // The phase grows by about 0.0085 in six hours, so a step of six hours sees every crossing;
    // the new moon shows as the phase wrapping from near 1 to near 0.
    constexpr double step = 6 * 3600;
    const auto phaseAt = [](double t) { return moonIllumination(t).phase; };
    std::optional<double> newMoon, fullMoon;
    double t = after;
    double p = phaseAt(t);
    for (int i = 0; i < 4 * 40 && !(newMoon && fullMoon); ++i) {
        const double next = t + step;
        const double q = phaseAt(next);
        if (!newMoon && q < p - 0.5)
            newMoon = bisect(t, next, [&](double x) { return phaseAt(x) < 0.5; });
        if (!fullMoon && p < 0.5 && q >= 0.5)
            fullMoon = bisect(t, next, [&](double x) { return phaseAt(x) >= 0.5; });
        t = next;
        p = q;
    }
    return {newMoon.value_or(0), fullMoon.value_or(0)};
}

QString phaseSymbol(double p)
{
    const char* name = "moonphase.waning.crescent";
    if (p < 0.03 || p >= 0.97)
        name = "moonphase.new.moon";
    else if (p < 0.22)
        name = "moonphase.waxing.crescent";
    else if (p < 0.28)
        name = "moonphase.first.quarter";
    else if (p < 0.47)
        name = "moonphase.waxing.gibbous";
    else if (p < 0.53)
        name = "moonphase.full.moon";
    else if (p < 0.72)
        name = "moonphase.waning.gibbous";
    else if (p < 0.78)
        name = "moonphase.last.quarter";
    return QString::fromLatin1(name);
}

QString phaseName(double phase)
{
    // Named after the symbol, so name and picture always agree on the band.
    QStringList words = phaseSymbol(phase).mid(QStringLiteral("moonphase.").size()).split(QLatin1Char('.'));
    for (QString& word : words)
        word[0] = word[0].toUpper();
    return words.join(QLatin1Char(' '));
}

} // namespace pulsebar::SunCalc
